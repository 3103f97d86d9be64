// The plug-in collection finds the H.264 bundle in the host bundle and makes
// compressors from it by its codes.
#include <gtest/gtest.h>

#include <memory>

#include "evc/H264Codec.h"
#include "plugins/CPluginCollection.h"
#include "plugins/PluginFixture.h"

using namespace evctest;
namespace codes = evc::h264;

namespace {

TEST(H264Collection, TheBundleIsDiscoveredAndCreatedByItsCodes)
{
    CPluginCollection collection;
    collection.Initialize(BuildPath(), kHostBundle);
    collection.LoadVideoPlugin(codes::kManufacturer, codes::kCodec);

    const auto& records = collection.GetCompressors();
    ASSERT_EQ(records.GetSize(), 1) << "one bundle offers 'evc ' 'avc1'";
    const auto* record = records[0];
    EXPECT_EQ(record->m_manufacturer, codes::kManufacturer);
    EXPECT_EQ(record->m_codec, codes::kCodec);
    ASSERT_NE(record->m_prototype, nullptr);
    {
        std::unique_ptr<IVideoCompressor> exact(collection.CreateVideoCompressor(codes::kManufacturer, codes::kCodec));
        std::unique_ptr<IVideoCompressor> anyMaker(collection.CreateVideoCompressor(0, codes::kCodec));
        std::unique_ptr<IVideoCompressor> other(
            collection.CreateVideoCompressor(codes::kManufacturer, codes::FourCC("hvc1")));
        ASSERT_NE(exact, nullptr);
        EXPECT_NE(exact.get(), record->m_prototype) << "the host gets an instance, not the prototype";
        EXPECT_NE(anyMaker, nullptr);
        EXPECT_EQ(other, nullptr);
        ASSERT_NE(exact->GetNonStandardSettings(), nullptr);
        EXPECT_EQ(exact->GetNonStandardSettings()->GetCount(), 6);
    }
    // The prototype is the collection's; the bundle goes with it.
    delete record->m_prototype;
    collection.Uninitialize();
}

}  // namespace
