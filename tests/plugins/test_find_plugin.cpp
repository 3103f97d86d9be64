#include <gtest/gtest.h>

#include "plugins/ZKPlugin.h"

namespace {

struct TFakeCompressor {
    int id;
};

using TRecords = Array_c<ZKPlugin<TFakeCompressor>>;

void Add(TRecords& records, uint32_t manufacturer, uint32_t codec, TFakeCompressor* prototype)
{
    ZKPlugin<TFakeCompressor> record;
    record.m_bundleIndex = records.GetSize();
    record.m_manufacturer = manufacturer;
    record.m_codec = codec;
    record.m_prototype = prototype;
    ASSERT_TRUE(records.Append(record));
}

TEST(FindPlugin, SearchRules)
{
    TFakeCompressor a{1}, b{2}, c{3};
    TRecords records;
    EXPECT_EQ(FindPlugin(records, 0, 10), nullptr) << "empty array";

    Add(records, 7, 10, nullptr);  // matches but has no prototype
    Add(records, 5, 10, &a);
    Add(records, 6, 10, &b);
    Add(records, 6, 11, &c);

    struct {
        uint32_t manufacturer, codec;
        int expectedId;  // 0: none
    } cases[] = {
        {0, 10, 1},                                     // any manufacturer: first registered with a prototype
        {6, 10, 2}, {7, 10, 0},                         // only the record without a prototype matches
        {0, 11, 3}, {5, 11, 0}, {0, 12, 0}, {6, 0, 0},  // codec 0 is not a wildcard
    };
    for (const auto& test : cases) {
        const ZKPlugin<TFakeCompressor>* found = FindPlugin(records, test.manufacturer, test.codec);
        SCOPED_TRACE(testing::Message() << test.manufacturer << "/" << test.codec);
        if (test.expectedId == 0) {
            EXPECT_EQ(found, nullptr);
        } else {
            ASSERT_NE(found, nullptr);
            EXPECT_EQ(found->m_prototype->id, test.expectedId);
        }
    }
}

}  // namespace
