// The echo compressor: its output tells a test every operand it received.
// Each CompressFrame fills the output description's data packets with a
// report (text lines "name=value"), the input's plane bytes and a copy of
// the input's own packets, and its descriptors with a record of Begin.
#include <cinttypes>
#include <cstdio>
#include <string>

#include "evc/VideoCompressorPlugin.h"
#include "PluginKit.h"
#include "TestPluginCodes.h"

using namespace evctest;

namespace {

void Line(std::string& text, const std::string& name, const std::string& value)
{
    text += name + "=" + value + "\n";
}

std::string Number(uint64_t value)
{
    return std::to_string(value);
}

// The fields of an image description, one line each, names prefixed.
void Describe(std::string& text, const std::string& prefix, const ZKEncImage_t* image)
{
    if (image == nullptr) {
        Line(text, prefix, "null");
        return;
    }
    const ZKImage_t& i = image->image;
    Line(text, prefix + ".colorFormat", Number(i.colorFormat));
    Line(text, prefix + ".colorRange", Number(i.colorRange));
    Line(text, prefix + ".width", Number(i.width));
    Line(text, prefix + ".height", Number(i.height));
    Line(text, prefix + ".bottomUp", Number(i.bottomUp));
    Line(text, prefix + ".rowBytes",
         Number(i.rowBytes[0]) + "," + Number(i.rowBytes[1]) + "," + Number(i.rowBytes[2]) + "," +
             Number(i.rowBytes[3]));
    std::string planes;
    for (int p = 0; p < 4; ++p)
        planes += std::string(p ? "," : "") + (i.planes[p] != nullptr ? "1" : "0");
    Line(text, prefix + ".planes", planes);
    Line(text, prefix + ".time", Number(i.time));
    Line(text, prefix + ".timeScale", Number(i.timeScale));
    Line(text, prefix + ".originalTime", Number(i.originalTime));
    Line(text, prefix + ".originalTimeScale", Number(i.originalTimeScale));
    Line(text, prefix + ".originalFrameWithinSecond", Number(i.originalFrameWithinSecond));
    Line(text, prefix + ".dataSize", Number(i.dataSize));
    Line(text, prefix + ".dataPackets", i.dataPackets != nullptr ? Number(i.dataPackets->size()) : "null");
    Line(text, prefix + ".descriptors", image->descriptors != nullptr ? Number(image->descriptors->size()) : "null");
    Line(text, prefix + ".streamValue", Number(image->streamValue));
    Line(text, prefix + ".streamFlags", Number(image->streamFlags));
}

// Plane bytes, rowBytes × rows per present plane; the chroma planes of the
// 4:2:0 formats (6 and 31) have half the rows, rounded up. Never more than
// dataSize bytes in all when dataSize is set.
std::string PlaneBytes(const ZKImage_t& image)
{
    std::string bytes;
    const bool halfChroma = image.colorFormat == 6 || image.colorFormat == 31;
    for (int p = 0; p < 4; ++p) {
        if (image.planes[p] == nullptr)
            continue;
        const bool chroma = halfChroma && (p == 1 || p == 2);
        const uint64_t rows = chroma ? (image.height + 1) / 2 : image.height;
        // A 4:2:0 record leaves row bytes 2 at 0: both chroma planes use row bytes 1.
        const uint32_t rowBytes = chroma && image.colorFormat == 6 ? image.rowBytes[1] : image.rowBytes[p];
        uint64_t size = rows * rowBytes;
        if (image.dataSize != 0 && bytes.size() + size > image.dataSize)
            size = image.dataSize - bytes.size();
        bytes.append(reinterpret_cast<const char*>(image.planes[p]), size);
    }
    return bytes;
}

class CEchoCompressor : public IVideoCompressor {
public:
    CEchoCompressor()
    {
        m_standard.Add(new kit::TIntSetting("Bitrate", 0));
        m_standard.Add(new kit::TIntSetting("KeyFrameInterval", 0));
        m_standard.Add(new kit::TDoubleSetting("Quality", 0.5));
        m_standard.Add(new kit::TBoolSetting("TwoPass", false));
        m_nonStandard.Add(new kit::TEnumSetting("Preset", "medium"));
        m_nonStandard.Add(new kit::TEnumSetting("Tune", "none"));
        m_nonStandard.Add(new kit::TDoubleSetting("Gain", 1.0));
        m_nonStandard.Add(new kit::TIntSetting("Offset", 0));  // an eUnsignedInt
        m_nonStandard.Add(new kit::TIntSetting("Twin", 0));    // two settings of one name
        m_nonStandard.Add(new kit::TIntSetting("Twin", 0));
        m_status = m_nonStandard.Add(new kit::TIntSetting("ReturnStatus", 0));
    }
    ~CEchoCompressor() override
    {
        ZKDestroyPacket(m_data);
        ZKDestroyPacket(m_descriptors);
    }

    void SetFileFormatHint(uint32_t hint) override { m_fileFormatHint = Number(hint); }
    void SetStreamModeHint(uint32_t hint) override { m_streamModeHint = Number(hint); }
    void SetInputColorFormat(uint32_t colorFormat) override { m_inputColorFormat = Number(colorFormat); }

    uint32_t Begin(const ZKEncImage_t* sample, bool flag) override
    {
        ++m_begins;
        m_beginRecord.clear();
        Line(m_beginRecord, "begin", Number(m_begins));
        Line(m_beginRecord, "begin.flag", flag ? "1" : "0");
        Describe(m_beginRecord, "begin.sample", sample);
        return static_cast<uint32_t>(m_status->Value());
    }

    uint32_t CompressFrame(const ZKEncImage_t* input, bool isKeyFrame, bool isLastFrame, ZKEncImage_t* output) override
    {
        ++m_frames;
        if (isLastFrame)
            m_lastFrameSeen = true;
        if (output == nullptr)
            return static_cast<uint32_t>(m_status->Value());

        std::string report;
        Line(report, "frame", Number(m_frames));
        Line(report, "keyFrame", isKeyFrame ? "1" : "0");
        Line(report, "lastFrame", isLastFrame ? "1" : "0");
        Describe(report, "input", input);
        Describe(report, "output", output);
        Line(report, "fileFormatHint", m_fileFormatHint);
        Line(report, "streamModeHint", m_streamModeHint);
        Line(report, "inputColorFormat", m_inputColorFormat);
        Line(report, "begins", Number(m_begins));
        Line(report, "ends", Number(m_ends));
        report += m_standard.Report();
        report += m_nonStandard.Report();

        const uint64_t time = input != nullptr ? input->image.time : 0;
        const uint64_t timeBase = input != nullptr && input->image.timeScale != 0 ? input->image.timeScale : 1;
        if (m_data == nullptr)
            m_data = new kit::TBundle;
        m_data->clear();
        m_data->append(kit::MakePacket(kEchoReportPacket, report, time, timeBase));
        if (input != nullptr) {
            m_data->append(kit::MakePacket(kEchoPixelsPacket, PlaneBytes(input->image), time, timeBase));
            if (input->image.dataPackets != nullptr)
                m_data->append(input->image.dataPackets->clone());
        }
        if (m_descriptors == nullptr)
            m_descriptors = new kit::TBundle;
        m_descriptors->clear();
        m_descriptors->append(kit::MakePacket(kEchoBeginPacket, m_beginRecord, 0, 1, kEchoDescriptor));

        output->image.dataPackets = m_data;
        output->descriptors = m_descriptors;
        return static_cast<uint32_t>(m_status->Value());
    }

    void End() override { ++m_ends; }
    bool IsLastPassEncodingReady() override { return m_lastFrameSeen; }
    IVideoCompressor* CreateInstance() override { return new CEchoCompressor; }
    ISettingArray* GetStandardSettings() override { return &m_standard; }
    ISettingArray* GetNonStandardSettings() override { return &m_nonStandard; }

private:
    kit::TSettingArray m_standard;
    kit::TSettingArray m_nonStandard;
    kit::TIntSetting* m_status;
    std::string m_fileFormatHint = "none";
    std::string m_streamModeHint = "none";
    std::string m_inputColorFormat = "none";
    std::string m_beginRecord = "begin=0\n";
    uint64_t m_begins = 0;
    uint64_t m_ends = 0;
    uint64_t m_frames = 0;
    bool m_lastFrameSeen = false;
    // The bundles handed out in the output stay ours.
    kit::TBundle* m_data = nullptr;
    kit::TBundle* m_descriptors = nullptr;
};

constexpr kit::TOffer kOffers[] = {
    {kTestManufacturer, kEchoCodec, 1},
    {0, 0, 0},  // an empty slot
    {kOtherManufacturer, kTwinCodec, 2},
    {kTestManufacturer, kDualCodec, 5},
};

}  // namespace

EVC_PLUGIN_EXPORT uint64_t QVGetNumberVideoCompressors()
{
    return sizeof kOffers / sizeof kOffers[0];
}

EVC_PLUGIN_EXPORT void QVGetVideoCompressorInfo(uint64_t index, uint32_t* manufacturer, uint32_t* codec, uint64_t* info)
{
    kit::WriteOffer(kOffers, index, manufacturer, codec, info);
}

EVC_PLUGIN_EXPORT IVideoCompressor* CreateVideoCompressor(uint32_t manufacturer, uint32_t codec)
{
    // Prototypes live as long as the code; compressors are made from them.
    static CEchoCompressor prototype;
    return kit::IsOffered(kOffers, manufacturer, codec) ? &prototype : nullptr;
}

EVC_PLUGIN_EXPORT void QVShutDownPlugin() {}
