// The operation positions of the plug-in contract, checked against a plug-in
// built apart from this test: every call below goes through the raw
// operation table of an object made by the echo bundle, at the position the
// contract fixes, never through the interface declarations.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "plugins/PluginFixture.h"
#include "plugins/bundles/EchoReport.h"
#include "plugins/bundles/TestPluginCodes.h"

using namespace evctest;

namespace {

// Positions (from 0, the two destructor entries first) the host relies on.
enum TCompressorSlot {
    kDeletingDestructor = 1,
    kSetFileFormatHint = 4,
    kSetStreamModeHint = 6,
    kBegin = 17,
    kCompressFrame = 22,
    kEnd = 23,
    kIsLastPassEncodingReady = 25,
    kCreateInstance = 29,
    kGetStandardSettings = 49,
    kGetNonStandardSettings = 50,
    kSetInputColorFormat = 59,
};
enum TSettingSlot {
    kGetName = 6,
    kBoolOrEnumSetValue = 20,
    kIntOrDoubleSetValue = 22,
};
enum TSettingArraySlot {
    kGetCount = 19,
    kGetSetting = 20,
};

// Calls the operation at slot of object's table as the Itanium ABI lays a
// member call out: the object first, then the arguments.
template <class Result, class... Args>
Result CallSlot(void* object, int slot, Args... args)
{
    void** table = *static_cast<void***>(object);
    return reinterpret_cast<Result (*)(void*, Args...)>(table[slot])(object, args...);
}

// The setting of array named name, found through the raw table.
void* FindSetting(void* array, const char* name)
{
    const int32_t count = CallSlot<int32_t>(array, kGetCount);
    for (int32_t i = 0; i < count; ++i) {
        void* setting = CallSlot<void*>(array, kGetSetting, i);
        if (std::strcmp(CallSlot<const char*>(setting, kGetName), name) == 0)
            return setting;
    }
    return nullptr;
}

TEST(PluginLayout, OperationsSitAtTheirPositions)
{
    CPluginCollection collection;
    collection.Initialize(BuildPath(), kHostBundle);
    collection.LoadVideoPlugin(kTestManufacturer, kEchoCodec);
    ASSERT_EQ(collection.GetCompressors().GetSize(), 1);
    void* prototype = collection.GetCompressors()[0]->m_prototype;

    void* compressor = CallSlot<void*>(prototype, kCreateInstance);
    ASSERT_NE(compressor, nullptr);
    ASSERT_NE(compressor, prototype);

    CallSlot<void>(compressor, kSetFileFormatHint, uint32_t{41});
    CallSlot<void>(compressor, kSetStreamModeHint, uint32_t{42});
    CallSlot<void>(compressor, kSetInputColorFormat, uint32_t{43});

    void* standard = CallSlot<void*>(compressor, kGetStandardSettings);
    void* nonStandard = CallSlot<void*>(compressor, kGetNonStandardSettings);
    ASSERT_NE(standard, nullptr);
    ASSERT_NE(nonStandard, nullptr);
    EXPECT_EQ(CallSlot<int32_t>(standard, kGetCount), 4);
    EXPECT_EQ(CallSlot<void*>(standard, kGetSetting, int32_t{4}), nullptr);
    void* bitrate = FindSetting(standard, "Bitrate");
    void* quality = FindSetting(standard, "Quality");
    void* twoPass = FindSetting(standard, "TwoPass");
    void* preset = FindSetting(nonStandard, "Preset");
    ASSERT_TRUE(bitrate && quality && twoPass && preset);
    CallSlot<void>(bitrate, kIntOrDoubleSetValue, int32_t{-7000});
    CallSlot<void>(quality, kIntOrDoubleSetValue, 0.125);
    CallSlot<void>(twoPass, kBoolOrEnumSetValue, true);
    CallSlot<void>(preset, kBoolOrEnumSetValue, "veryslow");

    ZKEncImage_t sample{};
    sample.image.width = 64;
    sample.image.height = 48;
    EXPECT_EQ(CallSlot<uint32_t>(compressor, kBegin, static_cast<const ZKEncImage_t*>(&sample), true), 0u);
    EXPECT_FALSE(CallSlot<bool>(compressor, kIsLastPassEncodingReady));

    ZKEncImage_t input{};
    input.image.time = 3003;
    input.image.timeScale = 30000;
    ZKEncImage_t output{};
    EXPECT_EQ(
        CallSlot<uint32_t>(compressor, kCompressFrame, static_cast<const ZKEncImage_t*>(&input), true, true, &output),
        0u);
    CallSlot<void>(compressor, kEnd);
    EXPECT_TRUE(CallSlot<bool>(compressor, kIsLastPassEncodingReady));

    const TEchoReport report = EchoReportOf(output);
    const std::pair<const char*, const char*> expected[] = {
        {"fileFormatHint", "41"},
        {"streamModeHint", "42"},
        {"inputColorFormat", "43"},
        {"setting.Bitrate", "-7000 sets=1"},
        {"setting.Quality", "0.125 sets=1"},
        {"setting.TwoPass", "true sets=1"},
        {"setting.Preset", "veryslow sets=1"},
        {"begins", "1"},
        {"keyFrame", "1"},
        {"lastFrame", "1"},
        {"input.time", "3003"},
        {"input.timeScale", "30000"},
    };
    for (const auto& [name, value] : expected)
        EXPECT_EQ(EchoValue(report, name), value) << name;
    // The Begin record: flag and sample.
    const TEchoReport begin = ParseEchoReport(PacketData(output.descriptors->get(0)));
    EXPECT_EQ(EchoValue(begin, "begin.flag"), "1");
    EXPECT_EQ(EchoValue(begin, "begin.sample.width"), "64");

    // The second destructor entry deletes the object.
    CallSlot<void>(compressor, kDeletingDestructor);
    collection.Uninitialize();
}

}  // namespace
