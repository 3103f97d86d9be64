/// @file
/// A base for compressor plug-ins over planar YUV pictures: it does what every
/// such compressor does the same way, so a plug-in writes only what is specific
/// to its codec (open the encoder, feed one picture, drain at the end).
///
/// The base checks the Begin sample (format among the accepted ones, size,
/// time scale, every setting within its row), checks each picture against the
/// stream (format, size, planes, row bytes, buffer size) and refuses a wrong
/// one with a status instead of reading wrong bytes, hands the codec top-down
/// planes (a bottom-up or misaligned picture is copied first), keeps the
/// pictures' times in the stream's time base, gives each packet the duration up
/// to the next picture, sends the stream headers once in the descriptors with
/// the first output that holds a picture, and keeps the bundles it hands out
/// until the next CompressFrame or End. An exception from the codec becomes a
/// failure status; it never reaches the host.
///
/// Header-only, so a plug-in links nothing of ours.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "evc/Codecs.h"
#include "evc/IVideoCompressor.h"
#include "evc/ZKResult.h"
#include "evc/PluginPackets.h"
#include "evc/PluginSettings.h"

namespace evc {
namespace plugin {

// The packet types of the pictures the compressors of this project hand out
// (evc/Codecs.h): any picture, and a random access point.
using codecs::kKeyPicturePacket;
using codecs::kPicturePacket;

/// One planar YUV colour format: three planes, samples of one or two bytes
/// (two bytes hold a 10-bit value in the low bits, little-endian).
struct TPlanarFormat {
    uint32_t colorFormat;     ///< the EColorFormats value
    unsigned bitDepth;        ///< 8 or 10
    unsigned bytesPerSample;  ///< 1 or 2
    unsigned chromaShiftX;    ///< chroma width = width >> shift
    unsigned chromaShiftY;    ///< chroma height = height >> shift
    const char* name;         ///< e.g. "10-bit 4:2:0", for messages
};

/// The planar formats a compressor may accept; null for any other.
inline const TPlanarFormat* FindPlanarFormat(uint32_t colorFormat)
{
    static const TPlanarFormat kFormats[] = {
        {6, 8, 1, 1, 1, "8-bit 4:2:0"},    {13, 8, 1, 0, 0, "8-bit 4:4:4"},   {31, 10, 2, 1, 1, "10-bit 4:2:0"},
        {32, 10, 2, 1, 0, "10-bit 4:2:2"}, {24, 10, 2, 0, 0, "10-bit 4:4:4"},
    };
    for (const TPlanarFormat& format : kFormats)
        if (format.colorFormat == colorFormat)
            return &format;
    return nullptr;
}

/// The stream Begin opened, as the codec needs it.
struct TStreamInfo {
    TPlanarFormat format;  ///< the Begin sample's format
    uint32_t width;        ///< pixels, at most 16384, whole chroma samples
    uint32_t height;       ///< pixels, at most 16384, whole chroma samples
    uint64_t timeScale;    ///< units per second of every time below
};

/// One picture for the codec: top-down planes (Y, Cb, Cr), each row at least
/// (plane width x bytes per sample) long, valid during the Encode call.
struct TInputPicture {
    const uint8_t* planes[3];  ///< Y, Cb, Cr; the compressor's or the host's, read-only
    int rowBytes[3];           ///< the stride of each plane, in bytes
    int64_t pts;               ///< in the stream's time base, increasing
    uint64_t duration;         ///< expected: the last spacing of pictures, or the nominal one
    bool forceKey;             ///< the host asked for a key picture here
};

/// The IVideoCompressor of a planar YUV codec: derive from it, implement
/// Open, Encode, Drain and Close, and call CloseStream() in the destructor.
/// The host owns each instance; CreateInstance is the derived class's.
class TCompressor : public IVideoCompressor {
public:
    /// name prefixes the messages on standard error; formats lists the colour
    /// formats the codec accepts (each one FindPlanarFormat knows).
    TCompressor(const char* name, std::vector<uint32_t> formats, std::vector<TSettingRow> standard,
                std::vector<TSettingRow> nonStandard)
        : m_standard(std::move(standard)), m_nonStandard(std::move(nonStandard)), m_name(name),
          m_formats(std::move(formats))
    {
    }
    TCompressor(const TCompressor&) = delete;
    TCompressor& operator=(const TCompressor&) = delete;

    /// The hints and the announced input format mean nothing here: the Begin
    /// sample decides the format. They are kept only.
    void SetFileFormatHint(uint32_t hint) override { m_fileFormatHint = hint; }
    void SetStreamModeHint(uint32_t hint) override { m_streamModeHint = hint; }
    void SetInputColorFormat(uint32_t colorFormat) override { m_inputColorFormat = colorFormat; }
    bool IsLastPassEncodingReady() override { return true; }
    ISettingArray* GetStandardSettings() override { return &m_standard; }        ///< m_standard
    ISettingArray* GetNonStandardSettings() override { return &m_nonStandard; }  ///< m_nonStandard
    /// Both tables as EVCGetVideoCompressorSettings describes them; the texts
    /// live as long as this compressor.
    void DescribeSettings(std::vector<EVCSettingInfo>& infos) const
    {
        m_standard.Describe(true, infos);
        m_nonStandard.Describe(false, infos);
    }

    /// Opens a stream from the sample's format, size and time scale and the
    /// settings as they are now; the flag has no meaning here. A stream that
    /// was open is closed first (its delayed pictures are dropped). The sample
    /// is only read, its pixels never. Answers kZKNoErr; kZKErrFormatMismatch
    /// for a colour format the codec does not accept; kZKErrBadArgument for a
    /// null sample, an empty, odd (where chroma needs even) or over-16384 size,
    /// a time scale of 0 or over 32 bits, or a setting outside its row; else
    /// what Open answers (kZKErrGeneral when it throws). Never throws.
    uint32_t Begin(const ZKEncImage_t* sample, bool /*flag*/) override
    {
        CloseStream();
        if (sample == nullptr)
            return Refuse(kZKErrBadArgument, "Begin needs a sample picture");
        const ZKImage_t& image = sample->image;
        const TPlanarFormat* format = FindPlanarFormat(image.colorFormat);
        if (format == nullptr || std::find(m_formats.begin(), m_formats.end(), image.colorFormat) == m_formats.end())
            return Refuse(kZKErrFormatMismatch, "colour format " + std::to_string(image.colorFormat) +
                                                    " is not supported (only " + AcceptedFormats() + ")");
        // Whole chroma samples; the limit keeps every size inside int.
        const uint32_t wStep = 1u << format->chromaShiftX, hStep = 1u << format->chromaShiftY;
        if (image.width == 0 || image.height == 0 || image.width % wStep != 0 || image.height % hStep != 0 ||
            image.width > kMaxSide || image.height > kMaxSide)
            return Refuse(kZKErrBadArgument, "picture size " + std::to_string(image.width) + "x" +
                                                 std::to_string(image.height) + " is not supported (" +
                                                 (wStep == 2 ? "even sizes" : "sizes") + " up to 16384)");
        if (image.timeScale == 0 || image.timeScale > UINT32_MAX)
            return Refuse(kZKErrBadArgument, "time scale " + std::to_string(image.timeScale) + " is not supported");
        std::string problem;
        if (!m_standard.Check(problem) || !m_nonStandard.Check(problem))
            return Refuse(kZKErrBadArgument, problem);

        m_stream = TStreamInfo{*format, image.width, image.height, image.timeScale};
        m_nominalDuration = std::max<uint64_t>(1, image.timeScale / 25);
        const uint32_t status = Guarded([&] { return Open(m_stream); });
        if (status != kZKNoErr) {
            CloseStream();
            return status;
        }
        m_open = true;
        return kZKNoErr;
    }

    /// Feeds input (a key picture when isKeyFrame) and puts every picture the
    /// codec hands back into output. isLastFrame drains every delayed picture
    /// into the same output and finishes the stream; input may then be null.
    /// The output's bundles stay the compressor's until the next CompressFrame
    /// or End; both are set to null first, and stay null when no picture came
    /// out. Answers kZKNoErr; kZKErrGeneral before Begin, after the last frame,
    /// or when the codec fails; kZKErrFormatMismatch for a picture whose format
    /// or size differs from the stream's or whose planes overrun its buffer;
    /// kZKErrBadArgument for a missing output, missing planes, rows shorter
    /// than the width, or a time that does not follow the previous one (the
    /// stream then goes on as if the call had not happened). Never throws.
    uint32_t CompressFrame(const ZKEncImage_t* input, bool isKeyFrame, bool isLastFrame, ZKEncImage_t* output) override
    {
        ReleaseOutput();
        if (output != nullptr) {
            output->image.dataPackets = nullptr;
            output->descriptors = nullptr;
        }
        if (!m_open || m_finished)
            return Refuse(kZKErrGeneral,
                          m_open ? "the stream has ended; Begin starts a new one" : "CompressFrame before Begin");
        // Without an output the pictures would be lost; with neither input
        // nor a flush there is nothing to do.
        if (output == nullptr || (input == nullptr && !isLastFrame))
            return Refuse(kZKErrBadArgument, "CompressFrame needs an output and an input or the last-frame flag");

        TBundlePtr pictures = MakeBundle(m_stream.timeScale);
        m_pictures = pictures.get();
        uint32_t status = kZKNoErr;
        if (input != nullptr)
            status = Feed(input->image, isKeyFrame);
        if (isLastFrame && status != kZKErrBadArgument && status != kZKErrFormatMismatch) {
            if (status == kZKNoErr)
                status = Guarded([&] { return Drain(); });
            m_finished = true;
        }
        m_pictures = nullptr;

        // Whatever was compressed is handed out, even when a later step failed.
        if (pictures->size() > 0) {
            if (!m_headersSent) {
                m_descriptors = MakeBundle(m_stream.timeScale);
                for (const auto& header : m_headers)
                    m_descriptors->append(new TPacket(header.first, header.second.data(), header.second.size(), 0,
                                                      m_stream.timeScale, 0));
                m_headersSent = true;
                output->descriptors = m_descriptors.get();
            }
            m_data = std::move(pictures);
            output->image.dataPackets = m_data.get();
        }
        return status;
    }

    /// Closes the stream; pictures still delayed in the codec are dropped (a
    /// last frame delivers them). Releases the last output's bundles.
    void End() override
    {
        CloseStream();
        ReleaseOutput();
    }

protected:
    /// A derived class calls CloseStream() in its destructor: the codec's
    /// Close cannot be reached from this one.
    ~TCompressor() override { ReleaseOutput(); }

    /// What a codec implements. Open starts the encoder (the settings have
    /// passed their rows' checks) and announces the stream headers with
    /// AddHeader; Encode feeds one picture, Drain everything still delayed,
    /// both handing each compressed picture to Emit; Close releases the
    /// encoder and must accept being called when nothing is open or Open
    /// failed half-way. Each returns a status (kZKNoErr or a code of
    /// evc/ZKResult.h); an exception they throw becomes kZKErrGeneral.
    virtual uint32_t Open(const TStreamInfo& stream) = 0;
    virtual uint32_t Encode(const TInputPicture& picture) = 0;  ///< see Open
    virtual uint32_t Drain() = 0;                               ///< see Open
    virtual void Close() = 0;                                   ///< see Open

    /// A stream header, sent once in the descriptors.
    void AddHeader(uint32_t type, const uint8_t* data, size_t size)
    {
        m_headers.emplace_back(type, std::vector<uint8_t>(data, data + size));
    }
    /// One compressed picture whose presentation time is pts.
    void Emit(uint32_t type, const uint8_t* data, size_t size, int64_t pts)
    {
        uint64_t duration = 0;
        const auto known = m_durations.find(pts);
        if (known != m_durations.end()) {
            duration = known->second;
            m_durations.erase(known);
        }
        // The next picture's time is not known yet: assume the last spacing.
        if (duration == 0)
            duration = ExpectedDuration();
        if (m_pictures != nullptr)
            m_pictures->append(new TPacket(type, data, size, uint64_t(pts), m_stream.timeScale, duration));
    }
    /// The stream Begin opened (valid from Open on).
    const TStreamInfo& Stream() const { return m_stream; }
    /// The spacing of pictures assumed before two have arrived.
    void SetNominalDuration(uint64_t duration) { m_nominalDuration = std::max<uint64_t>(1, duration); }
    /// The duration a picture is expected to have: the last spacing of
    /// pictures, or the nominal one before two have arrived.
    uint64_t ExpectedDuration() const { return m_lastInterval != 0 ? m_lastInterval : m_nominalDuration; }

    /// One line on standard error, prefixed with the compressor's name.
    void Complain(const std::string& text) const { std::fprintf(stderr, "%s: %s\n", m_name, text.c_str()); }
    /// Complains with text and returns status.
    uint32_t Refuse(uint32_t status, const std::string& text) const
    {
        Complain(text);
        return status;
    }

    /// Closes the codec (Close) and forgets the stream: headers, times,
    /// durations. Safe when nothing is open.
    void CloseStream()
    {
        Close();
        m_open = false;
        m_finished = false;
        m_headers.clear();
        m_headersSent = false;
        m_hasLastPts = false;
        m_lastPts = 0;
        m_lastInterval = 0;
        m_durations.clear();
    }

    TSettingTable m_standard;     ///< the standard settings, from the constructor's rows
    TSettingTable m_nonStandard;  ///< the codec's own settings, from the constructor's rows

private:
    static constexpr uint32_t kMaxSide = 16384;

    template <class Call>
    uint32_t Guarded(Call call)
    {
        try {
            return call();
        } catch (const std::exception& e) {
            return Refuse(kZKErrGeneral, e.what());
        } catch (...) {
            return Refuse(kZKErrGeneral, "the encoder failed");
        }
    }

    std::string AcceptedFormats() const
    {
        std::string text;
        for (uint32_t f : m_formats)
            text += (text.empty() ? "" : ", ") + std::to_string(f) + " " + FindPlanarFormat(f)->name;
        return text;
    }

    /// The usual 4:2:0 layout leaves row bytes 2 at 0: both chroma planes
    /// then share row bytes 1.
    static uint32_t PlaneRowBytes(const ZKImage_t& image, int plane)
    {
        return plane == 2 && image.rowBytes[2] == 0 ? image.rowBytes[1] : image.rowBytes[plane];
    }

    uint32_t Feed(const ZKImage_t& image, bool isKeyFrame)
    {
        const TPlanarFormat& f = m_stream.format;
        if (image.colorFormat != f.colorFormat || image.width != m_stream.width || image.height != m_stream.height)
            return Refuse(kZKErrFormatMismatch, "picture " + std::to_string(image.width) + "x" +
                                                    std::to_string(image.height) + " format " +
                                                    std::to_string(image.colorFormat) + " differs from the stream's");
        uint64_t rowLength[3], rows[3], needed = 0;
        for (int p = 0; p < 3; ++p) {
            const unsigned sx = p == 0 ? 0 : f.chromaShiftX, sy = p == 0 ? 0 : f.chromaShiftY;
            rowLength[p] = uint64_t(image.width >> sx) * f.bytesPerSample;
            rows[p] = image.height >> sy;
            if (image.planes[p] == nullptr || PlaneRowBytes(image, p) < rowLength[p] ||
                PlaneRowBytes(image, p) > INT_MAX)
                return Refuse(kZKErrBadArgument, "picture planes are missing or their row bytes are too small");
            needed += uint64_t(PlaneRowBytes(image, p)) * rows[p];
        }
        // When the buffer's size is known, the planes must fit in it.
        if (image.dataSize != 0 && needed > image.dataSize)
            return Refuse(kZKErrFormatMismatch, "picture planes need " + std::to_string(needed) +
                                                    " bytes, the buffer holds " + std::to_string(image.dataSize));

        unsigned __int128 time = image.time;
        if (image.timeScale != 0 && image.timeScale != m_stream.timeScale)
            time = time * m_stream.timeScale / image.timeScale;
        if (time > INT64_MAX)
            return Refuse(kZKErrBadArgument, "picture time does not fit the stream's time base");
        const int64_t pts = static_cast<int64_t>(time);
        if (m_hasLastPts && pts <= m_lastPts)
            return Refuse(kZKErrBadArgument, "picture time " + std::to_string(pts) +
                                                 " does not follow the previous one, " + std::to_string(m_lastPts));

        TInputPicture picture{};
        // Bottom-up rows, or two-byte samples off their alignment, are copied
        // into a top-down buffer of tight rows first.
        bool copy = image.bottomUp != 0;
        for (int p = 0; p < 3 && f.bytesPerSample == 2; ++p)
            copy = copy || reinterpret_cast<uintptr_t>(image.planes[p]) % 2 != 0 || PlaneRowBytes(image, p) % 2 != 0;
        size_t offset = 0;
        if (copy)
            m_scratch.resize(size_t(rowLength[0] * rows[0] + rowLength[1] * rows[1] + rowLength[2] * rows[2]) + 1);
        for (int p = 0; p < 3; ++p) {
            if (!copy) {
                picture.planes[p] = image.planes[p];
                picture.rowBytes[p] = static_cast<int>(PlaneRowBytes(image, p));
                continue;
            }
            // The +1 above lets an odd start keep two-byte samples aligned.
            uint8_t* start = m_scratch.data() + offset + (reinterpret_cast<uintptr_t>(m_scratch.data()) % 2);
            for (uint64_t r = 0; r < rows[p]; ++r) {
                const uint64_t from = image.bottomUp ? rows[p] - 1 - r : r;
                std::memcpy(start + r * rowLength[p], image.planes[p] + from * PlaneRowBytes(image, p),
                            size_t(rowLength[p]));
            }
            picture.planes[p] = start;
            picture.rowBytes[p] = static_cast<int>(rowLength[p]);
            offset += size_t(rowLength[p] * rows[p]);
        }

        if (m_hasLastPts) {
            m_lastInterval = static_cast<uint64_t>(pts - m_lastPts);
            const auto previous = m_durations.find(m_lastPts);
            if (previous != m_durations.end())
                previous->second = m_lastInterval;
        }
        m_durations[pts] = 0;
        m_hasLastPts = true;
        m_lastPts = pts;
        picture.pts = pts;
        picture.duration = ExpectedDuration();
        picture.forceKey = isKeyFrame;
        return Guarded([&] { return Encode(picture); });
    }

    void ReleaseOutput()
    {
        m_data.reset();
        m_descriptors.reset();
    }

    const char* m_name;
    std::vector<uint32_t> m_formats;
    uint32_t m_fileFormatHint = 0;
    uint32_t m_streamModeHint = 0;
    uint32_t m_inputColorFormat = 0;

    /// The open stream.
    TStreamInfo m_stream{};
    bool m_open = false;
    bool m_finished = false;
    std::vector<std::pair<uint32_t, std::vector<uint8_t>>> m_headers;
    bool m_headersSent = false;
    bool m_hasLastPts = false;
    int64_t m_lastPts = 0;
    uint64_t m_lastInterval = 0;
    uint64_t m_nominalDuration = 1;
    /// Duration of each picture still in the codec; 0 until the next input's
    /// time is known.
    std::map<int64_t, uint64_t> m_durations;
    std::vector<uint8_t> m_scratch;

    /// The bundle the current call fills, and what the last call handed out.
    TBundle* m_pictures = nullptr;
    TBundlePtr m_data;
    TBundlePtr m_descriptors;
};

}  // namespace plugin
}  // namespace evc
