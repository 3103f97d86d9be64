// Element loading over untrusted bytes: random, truncated and mutated inputs must load
// softly and leave the storage inside its area.

#include "test_element_types.h"

#include "ebml/ebmlDoc.h"
#include "ebml/ebmlMemoryStorage.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

using namespace Ebml;
using namespace EbmlTest;

namespace {

typedef std::vector<uint8> Bytes;

// Loads every element type from bytes; checks positions stay inside and that each
// load either consumed nothing (position restored) or consumed what it reported.
void loadAll(const Bytes& bytes)
{
    ConstMemoryStorage storage(bytes.data(), bytes.size());
    const uint64 bounds[] = {bytes.size(), uintMax[8]};
    for (uint64 bytesToRead : bounds) {
        std::vector<std::unique_ptr<IElement>> elts;
        elts.emplace_back(new TList);
        elts.emplace_back(new TGroup);
        elts.emplace_back(new TItem);
        elts.emplace_back(new TData);
        elts.emplace_back(new TCount);
        elts.emplace_back(new EbmlDoc::THead);
        for (auto& e : elts) {
            storage.seekTo(0);
            const uint64 consumed = e->load(storage, bytesToRead);
            ASSERT_LE(storage.absolutePosition(), bytes.size());
            ASSERT_EQ(storage.absolutePosition(), consumed);
            if (consumed > 0) {
                // Whatever loaded can be measured and saved again.
                NullStorage counter;
                e->save(counter);
            }
            e->discardReceipts();
        }
        storage.seekTo(0);
        EbmlDoc doc("", 0, 0);
        doc.load(storage, bytesToRead, nullptr);
        ASSERT_LE(storage.absolutePosition(), bytes.size());
    }
}

Bytes validList()
{
    const Bytes bytes = {0x91, 0xA0, 0x84, 0x87, 0x82, 0x81, 0x03, 0x83, 0x82, 0xDE, 0xAD, 0xEC,
                         0x81, 0x00, 0x90, 0x8E, 0xBF, 0x84, 0x01, 0x02, 0x03, 0x04, 0x82, 0x81,
                         0x09, 0x83, 0x83, 0x01, 0x02, 0x03, 0xA9, 0x80, 0xEC, 0x80};
    return bytes;
}

}  // namespace

TEST(EbmlRobustness, HandPickedMalformedInputs)
{
    const Bytes cases[] = {
        {},
        {0x00},
        {0x91, 0x00},                                                  // size field starting 0x00
        {0x91, 0xFF},                                                  // unknown size, nothing follows
        {0x91, 0x88, 0x84},                                            // size past the end
        {0x91, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE},        // huge size
        {0x90, 0x8C, 0xBF, 0x84, 1, 2, 3, 4, 0xBF, 0x84, 5, 6, 7, 8},  // two CRC-32 children
        {0x90, 0x87, 0xBF, 0x40, 0x04, 1, 2, 3, 4},                    // CRC-32 with a long size field
        {0x82, 0x89, 1, 2, 3, 4, 5, 6, 7, 8, 9},                       // 9-byte unsigned int
        {0x4F, 0x81, 0x00},                                            // unknown 2-byte id, cut short
        {0x1A, 0x45, 0xDF, 0xA3, 0xFF, 0x42, 0x82, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE},
    };
    testing::internal::CaptureStderr();  // checksum warnings
    for (const Bytes& c : cases)
        loadAll(c);
    testing::internal::GetCapturedStderr();

    // Two CRC-32 children: the first is the checksum, the second is skipped.
    const Bytes twoCrc = {0x90, 0x8F, 0xBF, 0x84, 1, 2, 3, 4, 0xBF, 0x84, 5, 6, 7, 8, 0x82, 0x81, 0x05};
    ConstMemoryStorage storage(twoCrc.data(), twoCrc.size());
    TGroup g;
    testing::internal::CaptureStderr();
    EXPECT_EQ(g.load(storage, twoCrc.size()), twoCrc.size());
    const std::string warning = testing::internal::GetCapturedStderr();
    EXPECT_EQ(g.loadedChecksum(), 0x04030201u);
    EXPECT_EQ(g->count_->get(), 5u);
    EXPECT_NE(warning.find("WARNING: Group 0x90"), std::string::npos);

    // A size running past the storage refuses the element and restores the position.
    const Bytes pastEnd = {0x90, 0x90, 0x82, 0x81, 0x05};
    ConstMemoryStorage short1(pastEnd.data(), pastEnd.size());
    TGroup h;
    EXPECT_EQ(h.load(short1, uintMax[8]), 0u);
    EXPECT_EQ(short1.absolutePosition(), 0u);
    // A child larger than its parent is not taken as a child.
    const Bytes childTooBig = {0x90, 0x83, 0x83, 0x85, 1, 2, 3, 4, 5};
    ConstMemoryStorage big(childTooBig.data(), childTooBig.size());
    TGroup k;
    EXPECT_EQ(k.load(big, childTooBig.size()), 5u);
    EXPECT_FALSE(k->data_.storageReceipt());
}

TEST(EbmlRobustness, DeepNestingIsBounded)
{
    // 10000 nested lists of unknown size: each level is two bytes.
    Bytes bytes;
    for (int i = 0; i < 10000; ++i) {
        bytes.push_back(0x91);
        bytes.push_back(0xFF);
    }
    loadAll(bytes);
    // Nested groups inside items inside lists: the list loads, but not below the bound.
    ConstMemoryStorage storage(bytes.data(), bytes.size());
    TList list;
    EXPECT_GT(list.load(storage, bytes.size()), 0u);
}

TEST(EbmlRobustness, TruncatedAtEveryLength)
{
    const Bytes valid = validList();
    testing::internal::CaptureStderr();  // the CRC-32 of the sample does not match
    for (std::size_t n = 0; n <= valid.size(); ++n)
        loadAll(Bytes(valid.begin(), valid.begin() + std::ptrdiff_t(n)));
    ConstMemoryStorage storage(valid.data(), valid.size());
    TList list;
    EXPECT_EQ(list.load(storage, valid.size()), valid.size());
    EXPECT_EQ(list->items_.getCount(), 2u);
    testing::internal::GetCapturedStderr();
}

TEST(EbmlRobustness, RandomAndMutatedInputs)
{
    std::mt19937 rng(20240601);
    const Bytes valid = validList();
    // Bytes the loaders care about, so mutations reach deep paths.
    const uint8 interesting[] = {0x00, 0x01, 0x40, 0x7F, 0x80, 0x81, 0x82, 0x83, 0x84, 0x90,
                                 0x91, 0xBF, 0xEC, 0xFF, 0x1A, 0x45, 0xDF, 0xA3, 0x42, 0x86};
    testing::internal::CaptureStderr();
    for (int round = 0; round < 8000; ++round) {
        Bytes bytes;
        const int kind = round % 3;
        if (kind == 0) {
            bytes.resize(rng() % 64);
            for (uint8& b : bytes)
                b = uint8(rng());
        } else if (kind == 1) {
            bytes.resize(rng() % 64);
            for (uint8& b : bytes)
                b = interesting[rng() % sizeof interesting];
        } else {
            bytes = valid;
            const int edits = 1 + int(rng() % 4);
            for (int e = 0; e < edits && !bytes.empty(); ++e) {
                const std::size_t at = rng() % bytes.size();
                switch (rng() % 4) {
                case 0:
                    bytes[at] = uint8(rng());
                    break;
                case 1:
                    bytes[at] = interesting[rng() % sizeof interesting];
                    break;
                case 2:
                    bytes.erase(bytes.begin() + std::ptrdiff_t(at));
                    break;
                default:
                    bytes.insert(bytes.begin() + std::ptrdiff_t(at), interesting[rng() % sizeof interesting]);
                    break;
                }
            }
        }
        loadAll(bytes);
        if (HasFatalFailure()) {
            ADD_FAILURE() << "round " << round;
            break;
        }
    }
    testing::internal::GetCapturedStderr();
}
