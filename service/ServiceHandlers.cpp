// The eight command handlers. Each reads its operands from the record and the
// payload area, calls the compressor, and answers exactly once. Lengths come
// from the client and are checked against the payload area before any byte is
// touched; a client's mistake gets a status, never a crash.

#include <algorithm>
#include <iostream>
#include <stdexcept>

#include "plugins/CPluginCollection.h"
#include "service/ExternalVideoCompressorService.h"
#include "evc/ZKResult.h"
#include "service/CodecListing.h"
#include "service/PresetReader.h"

namespace {

// A payload item the client announced, read as a frame description. False
// when the bytes are not a well-formed image element, or describe a picture
// larger than the payload area could carry. In place, the pixels are read
// where they lie in the payload area (they must be used before the reply is
// written there).
bool ReadFrameItem(ExternalVideoProxy& proxy, size_t capacity, int32_t length, TZKImageFramePtr& frame,
                   ZKEncImage_t& record, bool inPlace = false)
{
    const uint32_t size = static_cast<uint32_t>(length);
    proxy.LimitFrameBytes(capacity);
    frame = inPlace ? proxy.DeSerializeFrameInPlace(size, record) : proxy.DeSerializeFrame(size);
    if (!frame)
        return false;
    if (!inPlace)
        record = frame->GetZKEncImage();
    return true;
}

// A setting given a kind other than the one its bundle declares would be
// called at an operation it does not have: such a preset is refused whole.
bool KindsAgree(const std::string& preset, unsigned int manufacturer, unsigned int codec)
{
    size_t count = 0;
    const EVCSettingInfo* declared = RegisteredSettingInfo(manufacturer, codec, count);
    if (declared == nullptr)
        return true;
    unsigned int m = 0;
    unsigned int c = 0;
    std::vector<TPresetSetting> settings;
    if (!ReadPresetSettings(preset, m, c, settings))
        return false;
    const std::string mismatch = FindKindMismatch(settings, declared, count);
    if (mismatch.empty())
        return true;
    std::cerr << "evc-service: preset refused: " << mismatch << std::endl;
    return false;
}

}  // namespace

void ExternalVideoCompressorService::ServiceBegin()
{
    if (m_compressor == nullptr)
        return Answer(kZKErrNoCompressor);
    const int32_t length = m_shared->m_payloadSize0;
    if (!LengthsFit(length))
        return Answer(kZKErrBadArgument);

    TZKImageFramePtr frame;
    ZKEncImage_t sample{};
    const ZKEncImage_t* samplePointer = nullptr;
    if (length > 0) {
        m_videoProxy.Begin(payload(), static_cast<uint32_t>(length));
        if (!ReadFrameItem(m_videoProxy, payloadCapacity(), length, frame, sample))
            return Answer(kZKErrBadArgument);
        samplePointer = &sample;
    }
    Answer(m_compressor->Begin(samplePointer, m_shared->m_beginFlag != 0));
}

void ExternalVideoCompressorService::ServiceEnd()
{
    if (m_compressor == nullptr)
        return Answer(kZKErrNoCompressor);
    m_compressor->End();
    Answer(0);
}

void ExternalVideoCompressorService::ServiceCompressFrame()
{
    // No reply goes with a refused command 3.
    if (m_compressor == nullptr) {
        m_shared->m_payloadSize0 = 0;
        return Answer(kZKErrNoCompressor);
    }
    const int32_t inputLength = m_shared->m_payloadSize0;
    const int32_t outputLength = m_shared->m_payloadSize1;
    const bool isKeyFrame = m_shared->m_isKeyFrame != 0;
    const bool isLastFrame = m_shared->m_isLastFrame != 0;
    // A refused request has no reply.
    const auto refuse = [this] {
        m_shared->m_payloadSize0 = 0;
        Answer(kZKErrBadArgument);
    };
    if (!LengthsFit(inputLength, outputLength))
        return refuse();

    const uint32_t requestBytes =
        static_cast<uint32_t>(std::max(inputLength, 0)) + static_cast<uint32_t>(std::max(outputLength, 0));
    m_videoProxy.Begin(payload(), requestBytes);

    TZKImageFramePtr inputFrame;
    TZKImageFramePtr outputFrame;
    ZKEncImage_t input{};
    ZKEncImage_t output{};
    const ZKEncImage_t* inputPointer = nullptr;
    ZKEncImage_t* outputPointer = nullptr;
    if (inputLength > 0) {
        // The compressor reads the input's pixels during the call only.
        if (!ReadFrameItem(m_videoProxy, payloadCapacity(), inputLength, inputFrame, input, true))
            return refuse();
        inputPointer = &input;
    }
    if (outputLength > 0) {
        // A description the compressor fills with packets: read in place, so
        // one sent without pixels gets no buffer and the reply carries none.
        if (!ReadFrameItem(m_videoProxy, payloadCapacity(), outputLength, outputFrame, output, true))
            return refuse();
        outputPointer = &output;
    }

    const uint32_t status = m_compressor->CompressFrame(inputPointer, isKeyFrame, isLastFrame, outputPointer);

    uint32_t replySize = 0;
    const size_t replyArea = std::min<size_t>(kReplyAreaBytes, payloadCapacity());
    m_videoProxy.Begin(payload(), static_cast<uint32_t>(replyArea));
    uint32_t answer = status;
    if (outputPointer != nullptr) {
        // Bundles stay the compressor's: written, never released here.
        const uint32_t written = m_videoProxy.SerializeFrame(outputPointer, replySize, false);
        // A reply larger than the area: the size still tells the client how
        // large it would have been.
        if (written != 0 && answer == 0)
            answer = written;
    }
    m_shared->m_payloadSize0 = static_cast<int32_t>(replySize);
    Answer(answer);
}

void ExternalVideoCompressorService::ServiceIsLastPassEncodingReady()
{
    if (m_compressor == nullptr)
        return Answer(kZKErrNoCompressor);
    m_shared->m_isLastPassEncodingReady = m_compressor->IsLastPassEncodingReady() ? 1 : 0;
    Answer(0);
}

void ExternalVideoCompressorService::ServiceSetOutput()
{
    const int32_t lengths[3] = {m_shared->m_payloadSize0, m_shared->m_payloadSize1, m_shared->m_payloadSize2};
    for (int32_t length : lengths) {
        // A string cannot have a negative length; this ends the service.
        if (length < 0)
            throw std::length_error("ServiceSetOutput: negative payload length " + std::to_string(length));
    }
    if (!LengthsFit(lengths[0], lengths[1], lengths[2]))
        return Answer(kZKErrBadArgument);

    const char* bytes = reinterpret_cast<const char*>(payload());
    const std::string appPath(bytes, static_cast<size_t>(lengths[0]));
    const std::string hostBundlePath(bytes + lengths[0], static_cast<size_t>(lengths[1]));
    std::string preset(bytes + lengths[0] + lengths[1], static_cast<size_t>(lengths[2]));

    uint32_t status = static_cast<uint32_t>(g_pluginCollection.Initialize(appPath, hostBundlePath.c_str()));
    if (status == 0) {
        unsigned int manufacturer = 0;
        unsigned int codec = 0;
        if (!DeSerializeVideoCodec4cc(preset, manufacturer, codec)) {
            status = kZKErrBadPreset;
        } else {
            g_pluginCollection.LoadVideoPlugin(manufacturer, codec);
            // An earlier compressor is not released: the client may still
            // hold packets that belong to it.
            m_compressor = g_pluginCollection.CreateVideoCompressor(manufacturer, codec);
            if (m_compressor == nullptr)
                status = kZKErrNoCompressor;
            else if (!KindsAgree(preset, manufacturer, codec) || !DeSerializeVideoCodecSettings(preset, m_compressor))
                status = kZKErrBadPreset;
        }
    }
    Answer(status);
}

void ExternalVideoCompressorService::ServiceSetInputColorFormat()
{
    if (m_compressor == nullptr)
        return Answer(kZKErrNoCompressor);
    m_compressor->SetInputColorFormat(m_shared->m_inputColorFormat);
    Answer(0);
}

void ExternalVideoCompressorService::ServiceSetFileFormatHint()
{
    if (m_compressor == nullptr)
        return Answer(kZKErrNoCompressor);
    m_compressor->SetFileFormatHint(m_shared->m_fileFormatHint);
    Answer(0);
}

void ExternalVideoCompressorService::ServiceSetStreamModeHint()
{
    if (m_compressor == nullptr)
        return Answer(kZKErrNoCompressor);
    m_compressor->SetStreamModeHint(m_shared->m_streamModeHint);
    Answer(0);
}
