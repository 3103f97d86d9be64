#include "test_element_types.h"

#include "ebml/ebmlMemoryStorage.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <vector>

using namespace Ebml;
using namespace EbmlTest;

namespace {

typedef std::vector<uint8> Bytes;
struct TNameVersion {
    static constexpr const char* kName = "EBMLVersion";
};
typedef TElt<VUInt, 0x4286, TNameVersion> TVersion;
// Name types must live at namespace scope (local classes cannot hold the static name).
struct TNameI {
    static constexpr const char* kName = "I";
};
struct TNameF {
    static constexpr const char* kName = "F";
};
struct TNameS {
    static constexpr const char* kName = "S";
};
struct TNameD {
    static constexpr const char* kName = "D";
};
struct TNameO {
    static constexpr const char* kName = "O";
};
struct TNameP {
    static constexpr const char* kName = "P";
};

// Saves e into a fresh area and returns the bytes written.
Bytes saveBytes(const IElement& e, uint64 vsizeBytes = 0)
{
    std::vector<uint8> area(4096);
    MemoryStorage storage(area.data(), area.size());
    TReceiptPtr r = e.save(storage, vsizeBytes);
    EXPECT_TRUE(r);
    area.resize(std::size_t(storage.absolutePosition()));
    return area;
}

Bytes cat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& p : parts)
        all.insert(all.end(), p.begin(), p.end());
    return all;
}

}  // namespace

TEST(EbmlElement, ScalarSavedOnlyWhenNotDefault)
{
    TVersion v;
    EXPECT_EQ(v.calcSize(), 0u);
    uint8 area[8];
    MemoryStorage storage(area, sizeof area);
    TReceiptPtr r = v.save(storage);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->numBytes(), 0u);
    EXPECT_EQ(storage.absolutePosition(), 0u);

    v->set(1);
    EXPECT_EQ(saveBytes(v), (Bytes{0x42, 0x86, 0x81, 0x01}));
    v->setDefault(1);
    EXPECT_EQ(v.calcSize(), 0u);
    v.alwaysSave();
    EXPECT_EQ(v.calcSize(), 4u);
    EXPECT_EQ(saveBytes(v), (Bytes{0x42, 0x86, 0x81, 0x01}));
}

TEST(EbmlElement, ScalarPayloadEncodings)
{
    TElt<VInt, 0xA1, TNameI> i;
    i->set(-2);
    EXPECT_EQ(saveBytes(i), (Bytes{0xA1, 0x81, 0xFE}));
    i->set(200);
    EXPECT_EQ(saveBytes(i), (Bytes{0xA1, 0x82, 0x00, 0xC8}));
    i->setSize(3);
    EXPECT_EQ(saveBytes(i), (Bytes{0xA1, 0x83, 0x00, 0x00, 0xC8}));

    TElt<VFloat, 0xA2, TNameF> f;
    f->set(1.0);
    EXPECT_EQ(saveBytes(f), (Bytes{0xA2, 0x84, 0x3F, 0x80, 0x00, 0x00}));
    f->setSize(8);
    EXPECT_EQ(saveBytes(f), (Bytes{0xA2, 0x88, 0x3F, 0xF0, 0, 0, 0, 0, 0, 0}));

    TElt<VString, 0xA3, TNameS> s;
    s->set(std::string("a\0b", 3));
    EXPECT_EQ(saveBytes(s), (Bytes{0xA3, 0x83, 'a', 0, 'b'}));
    s->set(static_cast<const char*>(nullptr));
    EXPECT_EQ(s->get(), "");

    TElt<VDate, 0xA4, TNameD> d;
    d->setTime(978307200 + 1);
    EXPECT_EQ(d->getTime(), 978307200 + 1);
    EXPECT_EQ(saveBytes(d), (Bytes{0xA4, 0x88, 0, 0, 0, 0, 0x3B, 0x9A, 0xCA, 0x00}));

    // Loading back, including sign extension of short negative values.
    struct Case {
        Bytes bytes;
        int64 value;
    } ints[] = {{{0xA1, 0x81, 0xFE}, -2},
                {{0xA1, 0x82, 0x80, 0x00}, -32768},
                {{0xA1, 0x80}, 0},
                {{0xA1, 0x88, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, -1}};
    for (const Case& c : ints) {
        ConstMemoryStorage storage(c.bytes.data(), c.bytes.size());
        TElt<VInt, 0xA1, TNameI> loaded;
        EXPECT_EQ(loaded.load(storage, c.bytes.size()), c.bytes.size());
        EXPECT_EQ(loaded->get(), c.value);
    }
    const Bytes single = {0xA2, 0x84, 0x3F, 0x80, 0x00, 0x00};
    ConstMemoryStorage fs(single.data(), single.size());
    TElt<VFloat, 0xA2, TNameF> lf;
    lf->setSize(8);
    EXPECT_EQ(lf.load(fs, single.size()), 6u);
    EXPECT_EQ(lf->get(), 1.0);
    EXPECT_EQ(lf->getSize(), 4u);
}

TEST(EbmlElement, BinaryPayloadAndWideSizeField)
{
    uint8 scratch[512];
    MemoryStorage copies(scratch, sizeof scratch);
    Bytes data(200);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = uint8(i * 7);
    TData d;
    d->set(data, copies);
    const Bytes saved = saveBytes(d);
    EXPECT_EQ(saved, cat({{0x83, 0x40, 0xC8}, data}));

    ConstMemoryStorage source(saved.data(), saved.size());
    TData loaded;
    EXPECT_EQ(loaded.load(source, saved.size()), 203u);
    Bytes back;
    loaded->get(back);
    EXPECT_EQ(back, data);
    // Zero copy: the payload refers to the bytes where they lie.
    ASSERT_EQ(loaded->data().receipts().size(), 1u);
    EXPECT_EQ(loaded->data().receipts().front()->position(), 3u);
    EXPECT_EQ(loaded.payloadReceipt()->position(), 3u);
    EXPECT_EQ(loaded.storageReceipt()->numBytes(), 203u);

    TCount c;
    c->set(0x1234);
    const Bytes wide = saveBytes(c, 8);
    EXPECT_EQ(wide, (Bytes{0x82, 0x01, 0, 0, 0, 0, 0, 0, 0x02, 0x12, 0x34}));
    ConstMemoryStorage ws(wide.data(), wide.size());
    TCount lc;
    EXPECT_EQ(lc.load(ws, wide.size()), wide.size());
    EXPECT_EQ(lc->get(), 0x1234u);
}

TEST(EbmlElement, WrongIdConsumesNothing)
{
    const Bytes bytes = {0x83, 0x81, 0x05};
    ConstMemoryStorage storage(bytes.data(), bytes.size());
    storage.skip(0);
    TCount c;
    EXPECT_EQ(c.load(storage, bytes.size()), 0u);
    EXPECT_EQ(storage.absolutePosition(), 0u);
    EXPECT_FALSE(c.storageReceipt());
    EXPECT_EQ(c.load(storage, 0), 0u);
}

TEST(EbmlElement, SizePatchedWhenPayloadWritesLessThanAnnounced)
{
    // A payload that announces 3 bytes more than it writes.
    struct Overestimating : VUInt {
        uint64 calcSize() const override { return 4; }
        TReceiptPtr save(IStorage& storage) const override
        {
            const uint8 byte = uint8(get());
            return storage.save(&byte, 1);
        }
    };
    TElt<Overestimating, 0x85, TNameO> e;
    e->set(0x42);
    // Announced 4 bytes, the field is patched to the true count in the same width.
    EXPECT_EQ(saveBytes(e, 2), (Bytes{0x85, 0x40, 0x01, 0x42}));
    EXPECT_EQ(saveBytes(e), (Bytes{0x85, 0x81, 0x42}));
}

TEST(EbmlElement, PaddedSaveFillsWithOneVoid)
{
    TCount c;
    c->set(7);  // natural size 3
    uint8 area[256];
    {
        MemoryStorage storage(area, sizeof area);
        EXPECT_FALSE(c.savePaddedUpToSize(storage, 4));  // one spare byte cannot be filled
        EXPECT_FALSE(c.savePaddedUpToSize(storage, 2));
    }
    {
        MemoryStorage storage(area, sizeof area);
        TReceiptPtr r = c.savePaddedUpToSize(storage, 5);
        ASSERT_TRUE(r);
        EXPECT_EQ(r->numBytes(), 5u);
        EXPECT_EQ(Bytes(area, area + 5), (Bytes{0x82, 0x81, 0x07, 0xEC, 0x80}));
    }
    {
        MemoryStorage storage(area, sizeof area);
        TReceiptPtr r = c.savePaddedUpToSize(storage, 3 + 129);
        ASSERT_TRUE(r);
        EXPECT_EQ(storage.absolutePosition(), 132u);
        EXPECT_EQ(Bytes(area, area + 6), (Bytes{0x82, 0x81, 0x07, 0xEC, 0x40, 0x7E}));
        EXPECT_EQ(Bytes(area + 6, area + 132), Bytes(126, 0));
    }
    {
        // The fixed size makes save() pad as well.
        MemoryStorage storage(area, sizeof area);
        c.setFixedSize(10);
        EXPECT_TRUE(c.save(storage));
        EXPECT_EQ(storage.absolutePosition(), 10u);
        c.setFixedSize(0);
    }
    {
        // Unknown size: 8-byte all-ones size field, no padding; loads up to the end given.
        MemoryStorage storage(area, sizeof area);
        TGroup g;
        g->count_->set(9);
        ASSERT_TRUE(g.savePaddedUpToSize(storage, uintMax[8]));
        const Bytes expected = {0x90, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x82, 0x81, 0x09};
        EXPECT_EQ(Bytes(area, area + 12), expected);
        ConstMemoryStorage source(expected.data(), expected.size());
        TGroup loaded;
        EXPECT_EQ(loaded.load(source, expected.size()), expected.size());
        EXPECT_EQ(loaded->count_->get(), 9u);
    }
}

TEST(EbmlElement, NestedMasterRoundTripOverRawArea)
{
    // The frame-channel pattern: serialise into a raw caller-owned area.
    const std::size_t capacity = 64;
    std::unique_ptr<uint8, decltype(&std::free)> raw(static_cast<uint8*>(std::malloc(capacity)), &std::free);
    // Receipts refer into the storage that holds the bytes: it outlives the elements.
    uint8 scratch[16];
    MemoryStorage copies(scratch, sizeof scratch);
    TList list;
    {
        TItem item;
        item->count_->set(3);
        item->data_->set(Bytes{0xDE, 0xAD}, copies);
        list->items_.push_back(item);  // a copy: item may go away
    }
    const uint8 packet[3] = {1, 2, 3};
    TGroup group;
    group->data_->set(receiptForConstMemory(packet, sizeof packet));  // referenced in place
    list->items_.push_back(group);

    uint64 written = 0;
    {
        MemoryStorage storage(raw.get(), capacity);
        TReceiptPtr r = list.save(storage);
        ASSERT_TRUE(r);
        written = storage.absolutePosition();
        EXPECT_EQ(r->numBytes(), written);
        EXPECT_EQ(written, list.calcSize());
    }
    const Bytes expected = {0x91, 0x90, 0x84, 0x87, 0x82, 0x81, 0x03, 0x83, 0x82,
                            0xDE, 0xAD, 0x90, 0x85, 0x83, 0x83, 0x01, 0x02, 0x03};
    EXPECT_EQ(Bytes(raw.get(), raw.get() + written), expected);

    ConstMemoryStorage source(raw.get(), written);
    TList loaded;
    EXPECT_EQ(loaded.load(source, written), written);
    ASSERT_EQ(loaded->items_.getCount(), 2u);
    EXPECT_EQ(loaded->items_.elts().front()->getId(), 0x84u);
    const TGroup& g = loaded->items_.back<TGroup>();
    Bytes data;
    g->data_->get(data);
    EXPECT_EQ(data, (Bytes{1, 2, 3}));
    EXPECT_EQ(eltsFind(loaded->items_.elts(), 2), loaded->items_.elts().front());
    EXPECT_EQ(eltsFind(loaded->items_.elts(), 3), nullptr);

    // Too small an area: save fails softly with a null receipt.
    MemoryStorage tooSmall(raw.get(), 10);
    EXPECT_FALSE(list.save(tooSmall));

    // The list copies deeply.
    TList copy(loaded);
    EXPECT_EQ(copy->items_.getCount(), 2u);
    EXPECT_NE(copy->items_.elts().front(), loaded->items_.elts().front());
}

TEST(EbmlElement, VoidsAreAttachedAndWrittenAgain)
{
    // List: item, Void(1 payload byte), item.
    const Bytes itemA = {0x84, 0x83, 0x82, 0x81, 0x01};
    const Bytes voidElt = {0xEC, 0x81, 0x00};
    const Bytes itemB = {0x84, 0x83, 0x82, 0x81, 0x02};
    const Bytes bytes = cat({{0x91, 0x8D}, itemA, voidElt, itemB});
    ConstMemoryStorage source(bytes.data(), bytes.size());
    TList list;
    EXPECT_EQ(list.load(source, bytes.size()), bytes.size());
    ASSERT_EQ(list->items_.getCount(), 2u);
    const IElement* first = list->items_.elts().front();
    EXPECT_EQ(first->getPayload().voids_.size(), 1u);
    EXPECT_TRUE(list->voids_.empty());
    EXPECT_EQ(saveBytes(list), bytes);  // the Void comes back right after the first item

    // A Void before the first child belongs to the parent and is written after it.
    const Bytes leading = cat({{0x91, 0x88}, voidElt, itemA});
    ConstMemoryStorage source2(leading.data(), leading.size());
    TList list2;
    EXPECT_EQ(list2.load(source2, leading.size()), leading.size());
    EXPECT_EQ(list2->voids_.size(), 1u);
    EXPECT_EQ(list2.calcSize(), leading.size());
    EXPECT_EQ(saveBytes(list2), cat({{0x91, 0x85}, itemA, voidElt}));
}

TEST(EbmlElement, UnknownChildrenAndShortCrcAreSkipped)
{
    // Group: count, unknown child 0xA9, CRC-like child with size 3, data.
    const Bytes bytes = {0x90, 0x8F, 0x82, 0x81, 0x05, 0xA9, 0x81, 0xFF, 0xBF,
                         0x83, 0x01, 0x02, 0x03, 0x83, 0x81, 0x07, 0xEE};
    ConstMemoryStorage source(bytes.data(), bytes.size());
    TGroup g;
    EXPECT_EQ(g.load(source, bytes.size()), 17u);  // the whole declared size
    EXPECT_EQ(source.absolutePosition(), 17u);
    EXPECT_EQ(g->count_->get(), 5u);
    EXPECT_FALSE(g.shouldComputeCrc32());
    EXPECT_FALSE(g->data_.storageReceipt());  // behind the unknown child: not reached
}

TEST(EbmlElement, Crc32ChildIsVerified)
{
    const Bytes children = {0x82, 0x81, 0x07, 0x83, 0x81, 0xAA};
    Crc32 crc;
    crc.compute(children.data(), children.size());
    const uint32 good = crc.checksum();
    auto withCrc = [&](uint32 value) {
        return cat({{0x90, 0x8C, 0xBF, 0x84, uint8(value), uint8(value >> 8), uint8(value >> 16), uint8(value >> 24)},
                    children});
    };

    const Bytes ok = withCrc(good);
    ConstMemoryStorage okSource(ok.data(), ok.size());
    TGroup g;
    testing::internal::CaptureStderr();
    EXPECT_EQ(g.load(okSource, ok.size()), ok.size());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(g.shouldComputeCrc32());
    EXPECT_EQ(g.loadedChecksum(), good);
    EXPECT_EQ(g.computedChecksum(), good);
    EXPECT_EQ(g.crc32Receipt()->position(), 2u);
    EXPECT_EQ(g->count_->get(), 7u);

    const Bytes bad = withCrc(0x12345678);
    ConstMemoryStorage badSource(bad.data(), bad.size());
    TGroup h;
    testing::internal::CaptureStderr();
    EXPECT_EQ(h.load(badSource, bad.size()), bad.size());  // still loaded
    std::ostringstream expected;
    expected << "WARNING: Group 0x90 -- checksum mismatch, loaded 12345678, computed " << std::hex << std::uppercase
             << good << ", CRC-32 @ 0x2, payload @ 0x2:C\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), expected.str());
    EXPECT_EQ(h->count_->get(), 7u);

    // Saving with the flag writes a zeroed CRC-32 child first and counts it.
    TGroup s;
    s->count_->set(7);
    s.setCrc32(true);
    EXPECT_EQ(s.calcSize(), 11u);
    EXPECT_EQ(saveBytes(s), (Bytes{0x90, 0x89, 0xBF, 0x84, 0, 0, 0, 0, 0x82, 0x81, 0x07}));
    TCount scalar;
    scalar.setCrc32(true);  // only composites take the flag
    EXPECT_FALSE(scalar.shouldComputeCrc32());
}

TEST(EbmlElement, MixedListLoadsOneRunPerCall)
{
    const Bytes itemA = {0x84, 0x83, 0x82, 0x81, 0x01};
    const Bytes voidElt = {0xEC, 0x80};
    const Bytes itemB = {0x84, 0x83, 0x82, 0x81, 0x02};
    const Bytes run = cat({itemA, voidElt, itemB});
    ConstMemoryStorage source(run.data(), run.size());
    MixedElements items;
    items.addType<TItem>();
    EXPECT_EQ(items.load(source, run.size(), nullptr), 5u);  // stops at the Void
    EXPECT_EQ(items.getCount(), 1u);
    IElement* elt = nullptr;
    EXPECT_EQ(items.loadOneElement(elt, source, run.size() - 5, nullptr), 0u);
    EXPECT_EQ(elt, nullptr);
    EXPECT_EQ(source.absolutePosition(), 5u);
    source.skip(2);
    EXPECT_EQ(items.load(source, run.size() - 7, nullptr), 5u);
    EXPECT_EQ(items.getCount(), 2u);
    EXPECT_EQ(items.back<TItem>()->count_->get(), 2u);
    items.clear();
    EXPECT_EQ(items.getCount(), 0u);
}

TEST(EbmlElement, CrawlerFindsElementByPosition)
{
    const Bytes bytes = {0x91, 0x8A, 0x84, 0x83, 0x82, 0x81, 0x01, 0x90, 0x83, 0x82, 0x81, 0x02};
    ConstMemoryStorage source(bytes.data(), bytes.size());
    TList list;
    ASSERT_EQ(list.load(source, bytes.size()), bytes.size());
    FindElement atSecond(8);
    list.getPayload().eval(atSecond);
    ASSERT_NE(atSecond.eltFound_, nullptr);
    EXPECT_EQ(atSecond.eltFound_->getId(), 0x90u);
    FindElement outside(12);
    list.getPayload().eval(outside);
    EXPECT_EQ(outside.eltFound_, nullptr);
    list.discardReceipts();
    EXPECT_FALSE(list.storageReceipt());
    EXPECT_FALSE(list.payloadReceipt());
}

TEST(EbmlElement, SavesThroughTheCopyingStorage)
{
    // Blocks land in separate vectors; the element receipt still reads back as one string.
    TGroup g;
    g->count_->set(0x0102);
    g->data_->set(receiptForConstMemory("xyz", 3));
    TReceiptPtr r = g.save(HodgePodgeStorage::Instance, 2);
    ASSERT_TRUE(r);
    Bytes bytes(std::size_t(r->numBytes()));
    ASSERT_TRUE(r->load(bytes.data()));
    EXPECT_EQ(bytes, (Bytes{0x90, 0x40, 0x09, 0x82, 0x82, 0x01, 0x02, 0x83, 0x83, 'x', 'y', 'z'}));
    EXPECT_EQ(g.offsetToPayload(), 3u);
    Bytes payload(9);
    ASSERT_TRUE(g.payloadReceipt()->load(payload.data()));
    EXPECT_EQ(payload.front(), 0x82);
}

TEST(EbmlElement, EltPositionIsRewrittenInPlace)
{
    uint8 area[32] = {};
    MemoryStorage storage(area, sizeof area);
    TGroup origin;
    origin->count_->set(1);
    ASSERT_TRUE(origin.save(storage));  // payload at 2
    TElt<VEltPosition, 0xA5, TNameP> pos;
    pos->setMaxSize(2);
    pos->setOrigin(&origin);
    TCount target;
    target->set(9);
    pos->setElt(&target);
    ASSERT_TRUE(pos.save(storage));  // the target is not saved yet: position 0 in 2 bytes
    EXPECT_EQ(Bytes(area + 5, area + 9), (Bytes{0xA5, 0x82, 0x00, 0x00}));
    ASSERT_TRUE(target.save(storage));  // at 9
    EXPECT_TRUE(pos->rewrite());
    EXPECT_EQ(Bytes(area + 7, area + 9), (Bytes{0x00, 0x07}));
}
