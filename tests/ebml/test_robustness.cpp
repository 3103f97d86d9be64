// Loading over untrusted bytes: one crawl loads every element type from each sample whole and
// truncated at every length; every load is soft and stays inside. Random mutations of these
// samples are the ebml_load fuzz target's job.
#include "EbmlTestTypes.h"

#include "ebml/ebmlDoc.h"

#include <iostream>
#include <memory>

using namespace EbmlTest;

namespace {

class EbmlCrawl : public ::testing::Test {
protected:
    // Checksum warnings go to std::cerr: dropped, where a capture would leave its file in /tmp
    // should the test be killed half-way.
    void SetUp() override { std::cerr.setstate(std::ios::badbit); }
    void TearDown() override { std::cerr.clear(); }

    // Each element type from the start of the bytes, bounded by their length and unbounded: a
    // load consumes what it reports or nothing, and whatever loaded can be measured again.
    static void LoadAll(const Bytes& bytes)
    {
        ConstMemoryStorage storage(bytes.data(), bytes.size());
        for (uint64 bound : {uint64(bytes.size()), uintMax[8]}) {
            std::unique_ptr<IElement> elts[] = {std::make_unique<TList>(),  std::make_unique<TGroup>(),
                                                std::make_unique<TItem>(),  std::make_unique<TData>(),
                                                std::make_unique<TCount>(), std::make_unique<EbmlDoc::THead>()};
            for (auto& e : elts) {
                storage.seekTo(0);
                const uint64 consumed = e->load(storage, bound);
                ASSERT_LE(storage.absolutePosition(), bytes.size());
                ASSERT_EQ(storage.absolutePosition(), consumed);
                if (consumed > 0) {
                    NullStorage counter;
                    e->save(counter);
                }
                e->discardReceipts();
            }
            storage.seekTo(0);
            EbmlDoc doc("", 0, 0);
            doc.load(storage, bound, nullptr);
            ASSERT_LE(storage.absolutePosition(), bytes.size());
        }
    }

    static void Crawl(const Bytes& sample)
    {
        for (std::size_t n = 0; n <= sample.size(); ++n) {
            SCOPED_TRACE(testing::Message() << "cut at " << n);
            LoadAll(Bytes(sample.begin(), sample.begin() + long(n)));
            if (HasFatalFailure())
                return;
        }
    }
};

}  // namespace

TEST_F(EbmlCrawl, SamplesWholeTruncatedAndMutated)
{
    const std::pair<const char*, const char*> samples[] = {
        {"list of item, group with CRC-32 and Voids",
         "91A0 8487 828103 8382DEAD EC8100 908E BF8401020304 828109 8383010203 A980 EC80"},
        {"document header", "1A45DFA3 8E 42F78103 4282 83 78797A 4287 8105"},
        {"group of unknown size", "90 01FFFFFFFFFFFFFF 828109"},
        {"two CRC-32 children", "90 8C BF8401020304 BF8405060708"},
        {"CRC-32 with a long size field", "90 87 BF 4004 01020304"},
        {"9-byte unsigned int", "82 89 010203040506070809"},
        {"huge size", "91 01FFFFFFFFFFFFFE"},
        {"size field starting 0x00", "91 00"},
        {"unknown 2-byte id", "4F 81 00"},
    };
    for (const auto& sample : samples) {
        SCOPED_TRACE(sample.first);
        Crawl(Hex(sample.second));
        ASSERT_FALSE(HasFatalFailure());
    }
    // 10000 nested lists of unknown size: the depth is bounded, the outer list still loads.
    Bytes deep;
    for (int i = 0; i < 10000; ++i)
        deep.insert(deep.end(), {0x91, 0xFF});
    LoadAll(deep);
    TList list;
    EXPECT_GT(LoadBytes(list, deep), 0u);
}

TEST(EbmlElementBounds, SizeAgainstTheBoundTheStorageAndTheParent)
{
    // Rows after a refusal also show that it leaves no trace in the next load.
    const struct {
        const char* name;
        IElement* (*make)();
        Bytes bytes;
        uint64 bound, consumed;
    } rows[] = {
        {"size past the storage", TGroup::create, {0x90, 0x90, 0x82, 0x81, 0x05}, uintMax[8], 0},
        {"size past the bound", TGroup::create, {0x90, 0x83, 0x82, 0x81, 0x05}, 4, 0},
        {"size exactly the bound", TGroup::create, {0x90, 0x83, 0x82, 0x81, 0x05}, 5, 5},
        {"child exactly at its parent's end", TGroup::create, {0x90, 0x84, 0x83, 0x82, 1, 2, 3}, 7, 6},
        {"child past its parent by one byte", TGroup::create, {0x90, 0x84, 0x83, 0x83, 1, 2, 3}, 7, 0},
        {"child larger than its parent", TGroup::create, {0x90, 0x83, 0x83, 0x85, 1, 2, 3, 4, 5}, 9, 0},
        {"Void past its parent", TGroup::create, {0x90, 0x85, 0x82, 0x81, 0x05, 0xEC, 0x81, 0}, 8, 0},
        {"unknown child past its parent: skipped", TGroup::create, {0x90, 0x85, 0x82, 0x81, 5, 0xA1, 0x85, 0}, 8, 7},
        {"nested, exactly at the end", TList::create, {0x91, 0x86, 0x84, 0x84, 0x83, 0x82, 1, 2}, 8, 8},
        {"nested, grandchild past its parent", TList::create, {0x91, 0x86, 0x84, 0x84, 0x83, 0x83, 1, 2}, 8, 0},
        {"nested, second item past the list", TList::create, {0x91, 0x85, 0x84, 0x80, 0x90, 0x82, 0x82, 0x81}, 8, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ConstMemoryStorage storage(row.bytes.data(), row.bytes.size());
        std::unique_ptr<IElement> e(row.make());
        EXPECT_EQ(e->load(storage, row.bound), row.consumed);
        EXPECT_EQ(storage.absolutePosition(), row.consumed);
    }
}
