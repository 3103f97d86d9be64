// The H.264 bundle's side of the plug-in contract: entry points, exports,
// settings, the checks Begin and CompressFrame make, and who owns the output.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <sstream>

#include "codecs/H264Fixture.h"
#include "evc/H264Codec.h"

using namespace evctest;
namespace codes = evc::h264;

namespace {

constexpr uint32_t kOk = kZKNoErr;
constexpr uint32_t kFailure = kZKErrGeneral;
constexpr uint32_t kBadArgument = kZKErrBadArgument;
constexpr uint32_t kMismatch = kZKErrFormatMismatch;

std::vector<std::string> Names(ISettingArray* array)
{
    std::vector<std::string> names;
    for (int32_t i = 0; array != nullptr && i < array->GetCount(); ++i)
        names.emplace_back(array->GetSetting(i)->GetName());
    return names;
}

TEST_F(H264Test, EntryPointsOfferOneCompressorUnderItsCodes)
{
    EXPECT_EQ(m_library->m_count(), 1u);
    uint32_t manufacturer = 0, codec = 0;
    uint64_t info = 0;
    m_library->m_info(0, &manufacturer, &codec, &info);
    EXPECT_EQ(manufacturer, 1702257440u);  // 'evc '
    EXPECT_EQ(codec, 1635148593u);         // 'avc1'
    EXPECT_NE(info, 0u);
    manufacturer = codec = 0;
    info = 0;
    m_library->m_info(1, &manufacturer, &codec, &info);
    EXPECT_EQ(manufacturer + codec + info, 0u) << "index 1 is past the only compressor";

    const std::pair<uint32_t, uint32_t> wrongPairs[] = {
        {codes::kManufacturer, codes::FourCC("avc2")}, {0, codes::kCodec}, {codes::FourCC("EvcT"), codes::kCodec}};
    for (const auto& pair : wrongPairs)
        EXPECT_EQ(m_library->m_create(pair.first, pair.second), nullptr) << pair.first << "/" << pair.second;

    TCompressorPtr prototype(m_library->m_create(codes::kManufacturer, codes::kCodec));
    ASSERT_NE(prototype, nullptr);
    TCompressorPtr instance(prototype->CreateInstance());
    ASSERT_NE(instance, nullptr);
    EXPECT_NE(instance.get(), prototype.get());
    EXPECT_NE(instance->GetStandardSettings(), prototype->GetStandardSettings());
    EXPECT_TRUE(instance->IsLastPassEncodingReady());
}

TEST_F(H264Test, OnlyTheFourEntryPointsAreExported)
{
    const TCommandResult result = RunCommand("nm -D --defined-only '" + H264BundleExecutable() + "'");
    ASSERT_EQ(result.status, 0) << result.output;
    std::vector<std::string> exported;
    std::istringstream lines(result.output);
    std::string address, kind, name;
    while (lines >> address >> kind >> name) {
        if (kind != "A")  // version nodes
            exported.push_back(name);
    }
    std::sort(exported.begin(), exported.end());
    const std::vector<std::string> expected = {"CreateVideoCompressor", "QVGetNumberVideoCompressors",
                                               "QVGetVideoCompressorInfo", "QVShutDownPlugin"};
    EXPECT_EQ(exported, expected);
}

TEST_F(H264Test, SettingsAreListedByName)
{
    EXPECT_EQ(Names(m_compressor->GetStandardSettings()), (std::vector<std::string>{"Bitrate", "KeyFrameInterval"}));
    EXPECT_EQ(Names(m_compressor->GetNonStandardSettings()),
              (std::vector<std::string>{"Preset", "Tune", "Profile", "CRF", "Threads", "FrameRate"}));
    for (ISettingArray* array : {m_compressor->GetStandardSettings(), m_compressor->GetNonStandardSettings()}) {
        EXPECT_EQ(array->GetSetting(-1), nullptr);
        EXPECT_EQ(array->GetSetting(array->GetCount()), nullptr);
    }
}

TEST_F(H264Test, BeginRejectsBadSamplesAndSettings)
{
    struct Case {
        const char* what;
        std::function<void(IVideoCompressor&, ZKEncImage_t&)> spoil;
        uint32_t status;
    };
    const Case cases[] = {
        {"colour format 24", [](IVideoCompressor&, ZKEncImage_t& s) { s.image.colorFormat = 24; }, kMismatch},
        {"width 0", [](IVideoCompressor&, ZKEncImage_t& s) { s.image.width = 0; }, kBadArgument},
        {"height 0", [](IVideoCompressor&, ZKEncImage_t& s) { s.image.height = 0; }, kBadArgument},
        {"odd width", [](IVideoCompressor&, ZKEncImage_t& s) { s.image.width = 63; }, kBadArgument},
        {"huge height", [](IVideoCompressor&, ZKEncImage_t& s) { s.image.height = 1u << 20; }, kBadArgument},
        {"time scale 0", [](IVideoCompressor&, ZKEncImage_t& s) { s.image.timeScale = 0; }, kBadArgument},
        {"time scale over 32 bits", [](IVideoCompressor&, ZKEncImage_t& s) { s.image.timeScale = 1ull << 32; },
         kBadArgument},
        {"unknown preset", [](IVideoCompressor& c, ZKEncImage_t&) { SetEnum(c, "Preset", "turbo"); }, kBadArgument},
        {"preset in capitals", [](IVideoCompressor& c, ZKEncImage_t&) { SetEnum(c, "Preset", "Medium"); },
         kBadArgument},
        {"unknown tune", [](IVideoCompressor& c, ZKEncImage_t&) { SetEnum(c, "Tune", "loud"); }, kBadArgument},
        {"10-bit profile", [](IVideoCompressor& c, ZKEncImage_t&) { SetEnum(c, "Profile", "high10"); }, kBadArgument},
        {"lossless in baseline",
         [](IVideoCompressor& c, ZKEncImage_t&) {
             SetEnum(c, "Profile", "baseline");
             SetDouble(c, "CRF", 0);
         },
         kBadArgument},
        {"negative CRF", [](IVideoCompressor& c, ZKEncImage_t&) { SetDouble(c, "CRF", -1); }, kBadArgument},
        {"CRF 60", [](IVideoCompressor& c, ZKEncImage_t&) { SetDouble(c, "CRF", 60); }, kBadArgument},
        {"negative bitrate", [](IVideoCompressor& c, ZKEncImage_t&) { SetInt(c, "Bitrate", -5); }, kBadArgument},
        {"negative key interval", [](IVideoCompressor& c, ZKEncImage_t&) { SetInt(c, "KeyFrameInterval", -1); },
         kBadArgument},
        {"negative threads", [](IVideoCompressor& c, ZKEncImage_t&) { SetInt(c, "Threads", -1); }, kBadArgument},
        {"negative frame rate", [](IVideoCompressor& c, ZKEncImage_t&) { SetDouble(c, "FrameRate", -25); },
         kBadArgument},
    };
    EXPECT_EQ(m_compressor->Begin(nullptr, false), kBadArgument);
    for (const Case& c : cases) {
        TCompressorPtr compressor = MakeCompressor(*m_library);
        TPicture picture(64, 48);
        ZKEncImage_t sample = picture.Record();
        c.spoil(*compressor, sample);
        EXPECT_EQ(compressor->Begin(&sample, false), c.status) << c.what;
        ZKEncImage_t output = EmptyOutput();
        EXPECT_EQ(compressor->CompressFrame(&picture.Record(), false, false, &output), kFailure) << c.what;
    }
    TPicture picture(64, 48);
    EXPECT_EQ(m_compressor->Begin(&picture.Record(), false), kOk);
}

TEST_F(H264Test, CompressFrameRejectsBadPicturesAndCarriesOn)
{
    TPicture picture(64, 48, 8);
    picture.Draw(0);
    ZKEncImage_t output = EmptyOutput();
    EXPECT_EQ(m_compressor->CompressFrame(&picture.Record(), false, false, &output), kFailure) << "before Begin";

    // No look-ahead: each picture comes out of the call that takes it.
    SetEnum(*m_compressor, "Preset", "ultrafast");
    SetEnum(*m_compressor, "Tune", "zerolatency");
    ASSERT_EQ(m_compressor->Begin(&picture.Record(), false), kOk);
    ASSERT_EQ(m_compressor->CompressFrame(&picture.Record(), true, false, &output), kOk);

    struct Case {
        const char* what;
        std::function<void(ZKEncImage_t&)> spoil;
        uint32_t status;
    };
    const Case cases[] = {
        {"no chroma plane", [](ZKEncImage_t& f) { f.image.planes[1] = nullptr; }, kBadArgument},
        {"luma rows too short", [](ZKEncImage_t& f) { f.image.rowBytes[0] = 63; }, kBadArgument},
        {"chroma rows too short", [](ZKEncImage_t& f) { f.image.rowBytes[2] = 31; }, kBadArgument},
        {"rows over 2 GiB", [](ZKEncImage_t& f) { f.image.rowBytes[0] = 0x80000000u; }, kBadArgument},
        {"other width", [](ZKEncImage_t& f) { f.image.width = 32; }, kMismatch},
        {"other height", [](ZKEncImage_t& f) { f.image.height = 50; }, kMismatch},
        {"zero size", [](ZKEncImage_t& f) { f.image.width = f.image.height = 0; }, kMismatch},
        {"other format", [](ZKEncImage_t& f) { f.image.colorFormat = 31; }, kMismatch},
        {"buffer smaller than the planes", [](ZKEncImage_t& f) { f.image.dataSize -= 1; }, kMismatch},
        {"same time again", [](ZKEncImage_t& f) { f.image.time = 0; }, kBadArgument},
        {"time beyond 63 bits", [](ZKEncImage_t& f) { f.image.time = ~0ull; }, kBadArgument},
    };
    picture.Draw(1);
    for (const Case& c : cases) {
        ZKEncImage_t frame = picture.Record();
        c.spoil(frame);
        output = EmptyOutput();
        output.image.dataPackets = reinterpret_cast<IPacketBundle*>(&output);  // must be overwritten
        EXPECT_EQ(m_compressor->CompressFrame(&frame, false, false, &output), c.status) << c.what;
        EXPECT_EQ(output.image.dataPackets, nullptr) << c.what;
        EXPECT_EQ(output.descriptors, nullptr) << c.what;
    }
    EXPECT_EQ(m_compressor->CompressFrame(&picture.Record(), false, false, nullptr), kBadArgument) << "no output";
    EXPECT_EQ(m_compressor->CompressFrame(nullptr, false, false, &output), kBadArgument) << "nothing to do";

    // The stream goes on as if the bad calls had not happened.
    TStream stream;
    for (int n = 1; n < 4; ++n) {
        picture.Draw(n);
        output = EmptyOutput();
        EXPECT_EQ(m_compressor->CompressFrame(&picture.Record(), false, n == 3, &output), kOk) << n;
        CopyOutput(output, stream);
    }
    ASSERT_EQ(stream.pictures.size(), 3u);
    EXPECT_EQ(stream.pictures[0].time, 1u);

    // A finished stream takes no more pictures until Begin starts another.
    picture.Draw(4);
    EXPECT_EQ(m_compressor->CompressFrame(&picture.Record(), false, false, &output), kFailure);
    ASSERT_EQ(m_compressor->Begin(&picture.Record(), false), kOk);
    output = EmptyOutput();
    EXPECT_EQ(m_compressor->CompressFrame(&picture.Record(), false, true, &output), kOk);
    ASSERT_NE(output.descriptors, nullptr) << "a new stream sends its headers again";
    m_compressor->End();
}

TEST_F(H264Test, OutputBundlesStayValidUntilTheNextCall)
{
    // No look-ahead: each picture comes out of the call that takes it.
    SetEnum(*m_compressor, "Preset", "ultrafast");
    SetEnum(*m_compressor, "Tune", "zerolatency");
    TPicture picture(64, 48);
    ASSERT_EQ(m_compressor->Begin(&picture.Record(), false), kOk);

    picture.Draw(0);
    ZKEncImage_t first = EmptyOutput();
    ASSERT_EQ(m_compressor->CompressFrame(&picture.Record(), false, false, &first), kOk);
    ASSERT_NE(first.image.dataPackets, nullptr);
    ASSERT_NE(first.descriptors, nullptr);
    // Other calls leave the bundles alone.
    EXPECT_TRUE(m_compressor->IsLastPassEncodingReady());
    m_compressor->SetFileFormatHint(3);
    ASSERT_EQ(first.image.dataPackets->size(), 1u);
    const IPacket* packet = first.image.dataPackets->get(0);
    EXPECT_EQ(packet->getType(), codes::kKeyPicturePacket);
    EXPECT_GT(packet->getDataSize(), 4u);
    ASSERT_EQ(first.descriptors->size(), 2u);
    EXPECT_EQ(first.descriptors->get(0)->getType(), codes::kSequenceParameterSetPacket);
    EXPECT_EQ(first.descriptors->get(1)->getType(), codes::kPictureParameterSetPacket);
    // Annex-B: a start code, then the NAL header whose low bits give its type.
    for (uint32_t i = 0; i < 2; ++i) {
        const IPacket* header = first.descriptors->get(i);
        ASSERT_GE(header->getDataSize(), 5u);
        const uint8_t* bytes = header->getData();
        EXPECT_EQ(bytes[0] + bytes[1] + bytes[2], 0);
        EXPECT_EQ(bytes[3], 1);
        EXPECT_EQ(bytes[4] & 0x1F, header->getType());
    }
    // A bundle read by the host may be cloned; the clone is the host's.
    IPacket* clone = first.image.dataPackets->clone();
    EXPECT_EQ(clone->getType(), IPacketBundle::kBundleType);
    clone->destroy();

    // The headers come only once; the next output holds its own bundle.
    picture.Draw(1);
    ZKEncImage_t second = EmptyOutput();
    ASSERT_EQ(m_compressor->CompressFrame(&picture.Record(), false, false, &second), kOk);
    EXPECT_EQ(second.descriptors, nullptr);
    ASSERT_NE(second.image.dataPackets, nullptr);
    EXPECT_EQ(second.image.dataPackets->size(), 1u);
    EXPECT_EQ(second.image.dataPackets->get(0)->getTime(), 1u);
    // End releases the last bundles (the leak checker watches this).
    m_compressor->End();
}

}  // namespace
