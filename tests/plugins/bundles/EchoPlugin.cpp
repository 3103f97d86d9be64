// The echo compressor: its output tells a test every operand it received. Each CompressFrame
// fills the output's data packets with a report (lines "name=value"), the input's pixel bytes, a
// copy of the input's own packets and ReplyPadding bytes; its descriptors with a record of Begin.
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

void Describe(std::string& text, const std::string& prefix, const ZKEncImage_t* image)
{
    if (image == nullptr)
        return Line(text, prefix, "null");
    const ZKImage_t& i = image->image;
    const std::pair<const char*, uint64_t> fields[] = {{".width", i.width},       {".height", i.height},
                                                       {".time", i.time},         {".timeScale", i.timeScale},
                                                       {".dataSize", i.dataSize}, {".streamValue", image->streamValue}};
    for (const auto& [name, value] : fields)
        Line(text, prefix + name, std::to_string(value));
}

class CEchoCompressor : public IVideoCompressor {
public:
    CEchoCompressor()
    {
        m_standard.Add<kit::TInt>("Bitrate", 0);
        m_standard.Add<kit::TInt>("KeyFrameInterval", 0);
        m_standard.Add<kit::TDouble>("Quality", 0.5);
        m_standard.Add<kit::TBool>("TwoPass", false);
        m_nonStandard.Add<kit::TEnum>("Preset", "medium");
        m_nonStandard.Add<kit::TEnum>("Tune", "none");
        m_nonStandard.Add<kit::TDouble>("Gain", 1.0);
        m_nonStandard.Add<kit::TInt>("Offset", 0);  // an eUnsignedInt
        m_nonStandard.Add<kit::TInt>("Twin", 0);    // two settings of one name
        m_nonStandard.Add<kit::TInt>("Twin", 0);
        m_status = m_nonStandard.Add<kit::TInt>("ReturnStatus", 0);
        m_padding = m_nonStandard.Add<kit::TInt>("ReplyPadding", 0);
    }

    void SetFileFormatHint(uint32_t hint) override { m_hints[0] = std::to_string(hint); }
    void SetStreamModeHint(uint32_t hint) override { m_hints[1] = std::to_string(hint); }
    void SetInputColorFormat(uint32_t colorFormat) override { m_hints[2] = std::to_string(colorFormat); }

    uint32_t Begin(const ZKEncImage_t* sample, bool flag) override
    {
        m_beginRecord.clear();
        Line(m_beginRecord, "begin", std::to_string(++m_begins));
        Line(m_beginRecord, "begin.flag", flag ? "1" : "0");
        Describe(m_beginRecord, "begin.sample", sample);
        return static_cast<uint32_t>(m_status->Value());
    }

    uint32_t CompressFrame(const ZKEncImage_t* input, bool isKeyFrame, bool isLastFrame, ZKEncImage_t* output) override
    {
        m_lastFrameSeen = m_lastFrameSeen || isLastFrame;
        if (output == nullptr)
            return static_cast<uint32_t>(m_status->Value());
        std::string report;
        Line(report, "keyFrame", isKeyFrame ? "1" : "0");
        Line(report, "lastFrame", isLastFrame ? "1" : "0");
        Describe(report, "input", input);
        Describe(report, "output", output);
        Line(report, "fileFormatHint", m_hints[0]);
        Line(report, "streamModeHint", m_hints[1]);
        Line(report, "inputColorFormat", m_hints[2]);
        Line(report, "begins", std::to_string(m_begins));
        report += m_standard.Report() + m_nonStandard.Report();

        const uint64_t time = input != nullptr ? input->image.time : 0;
        const uint64_t timeBase = input != nullptr && input->image.timeScale != 0 ? input->image.timeScale : 1;
        m_data->clear();
        m_data->append(new kit::TPacket(kEchoReportPacket, reinterpret_cast<const uint8_t*>(report.data()),
                                        report.size(), time, timeBase));
        if (input != nullptr) {
            const ZKImage_t& image = input->image;
            m_data->append(new kit::TPacket(kEchoPixelsPacket, image.planes[0], image.planes[0] ? image.dataSize : 0,
                                            time, timeBase));
            if (image.dataPackets != nullptr)
                m_data->append(image.dataPackets->clone());
        }
        if (m_padding->Value() > 0) {
            const std::string padding(size_t(m_padding->Value()), 'p');
            m_data->append(
                new kit::TPacket(kEchoPixelsPacket, reinterpret_cast<const uint8_t*>(padding.data()), padding.size()));
        }
        m_descriptors->clear();
        auto* begin = new kit::TPacket(kEchoBeginPacket, reinterpret_cast<const uint8_t*>(m_beginRecord.data()),
                                       m_beginRecord.size());
        begin->SetDescriptor(reinterpret_cast<const uint8_t*>(kEchoDescriptor), sizeof kEchoDescriptor - 1);
        m_descriptors->append(begin);
        // The bundles handed out stay ours.
        output->image.dataPackets = m_data.get();
        output->descriptors = m_descriptors.get();
        return static_cast<uint32_t>(m_status->Value());
    }

    void End() override {}
    bool IsLastPassEncodingReady() override { return m_lastFrameSeen; }
    IVideoCompressor* CreateInstance() override { return new CEchoCompressor; }
    ISettingArray* GetStandardSettings() override { return &m_standard; }
    ISettingArray* GetNonStandardSettings() override { return &m_nonStandard; }

private:
    kit::TSettingArray m_standard, m_nonStandard;
    kit::TInt* m_status;
    kit::TInt* m_padding;
    std::string m_hints[3] = {"none", "none", "none"};
    std::string m_beginRecord = "begin=0\n";
    uint64_t m_begins = 0;
    bool m_lastFrameSeen = false;
    evc::plugin::TBundlePtr m_data = evc::plugin::MakeBundle(1), m_descriptors = evc::plugin::MakeBundle(1);
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

// The echo compressor describes its settings so that presets naming a wrong
// kind are refused; the other test bundles do not.
EVC_PLUGIN_EXPORT uint64_t EVCGetVideoCompressorSettings(uint32_t manufacturer, uint32_t codec,
                                                         const EVCSettingInfo** settings)
{
    static const EVCSettingInfo kSettings[] = {
        {"Bitrate", "eInt", 1, "0", nullptr},      {"KeyFrameInterval", "eInt", 1, "0", nullptr},
        {"Quality", "eDouble", 1, "0.5", "0..1"},  {"TwoPass", "eBool", 1, "False", nullptr},
        {"Preset", "eEnum", 0, "medium", nullptr}, {"Tune", "eEnum", 0, "none", nullptr},
        {"Gain", "eDouble", 0, "1", nullptr},      {"Offset", "eUnsignedInt", 0, "0", nullptr},
        {"Twin", "eInt", 0, "0", nullptr},         {"ReturnStatus", "eInt", 0, "0", nullptr},
    };
    if (settings == nullptr || manufacturer != kTestManufacturer || codec != kEchoCodec)
        return 0;
    *settings = kSettings;
    return sizeof kSettings / sizeof kSettings[0];
}
