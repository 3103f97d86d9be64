// Elements: golden bytes of scalars, binaries, masters, lists and the document header; size
// fields patched and padded; Voids and CRC-32 children kept and checked.
#include "EbmlTestTypes.h"

#include "ebml/ebmlDoc.h"
#include "ebml/ebmlHodgePodge.h"

#include <sstream>

using namespace EbmlTest;

namespace {

EBML_TEST_NAME(TNameVersion, "EBMLVersion");
EBML_TEST_NAME(TNameI, "I");
EBML_TEST_NAME(TNameF, "F");
EBML_TEST_NAME(TNameS, "S");
EBML_TEST_NAME(TNameD, "D");
EBML_TEST_NAME(TNameO, "O");
EBML_TEST_NAME(TNameP, "P");
typedef TElt<VUInt, 0x4286, TNameVersion> TVersion;
typedef TElt<VInt, 0xA1, TNameI> TSigned;
typedef TElt<VFloat, 0xA2, TNameF> TFloat;

const Bytes kAbcHeader = {0x1A, 0x45, 0xDF, 0xA3, 0x9E, 0x42, 0x86, 0x81, 0x01, 0x42, 0xF7, 0x81,
                          0x01, 0x42, 0xF2, 0x81, 0x04, 0x42, 0xF3, 0x81, 0x08, 0x42, 0x82, 0x83,
                          'a',  'b',  'c',  0x42, 0x87, 0x81, 0x02, 0x42, 0x85, 0x81, 0x02};

}  // namespace

TEST(EbmlElement, ScalarGoldenBytes)
{
    TVersion v;
    EXPECT_EQ(SaveBytes(v), Bytes{});  // default: not saved at all
    v->set(1);
    EXPECT_EQ(SaveBytes(v), (Bytes{0x42, 0x86, 0x81, 0x01}));
    v->setDefault(1);
    EXPECT_EQ(v.calcSize(), 0u);
    v.alwaysSave();
    EXPECT_EQ(SaveBytes(v), (Bytes{0x42, 0x86, 0x81, 0x01}));

    TSigned i;
    i->set(200);
    EXPECT_EQ(SaveBytes(i), (Bytes{0xA1, 0x82, 0x00, 0xC8}));
    i->setSize(3);
    EXPECT_EQ(SaveBytes(i), (Bytes{0xA1, 0x83, 0x00, 0x00, 0xC8}));
    TFloat f;
    f->set(1.0);
    f->setSize(8);
    EXPECT_EQ(SaveBytes(f), (Bytes{0xA2, 0x88, 0x3F, 0xF0, 0, 0, 0, 0, 0, 0}));
    TElt<VString, 0xA3, TNameS> s;
    s->set(std::string("a\0b", 3));
    EXPECT_EQ(SaveBytes(s), (Bytes{0xA3, 0x83, 'a', 0, 'b'}));
    TElt<VDate, 0xA4, TNameD> d;
    d->setTime(978307200 + 1);  // one second after the epoch of dates, in nanoseconds
    EXPECT_EQ(SaveBytes(d), (Bytes{0xA4, 0x88, 0, 0, 0, 0, 0x3B, 0x9A, 0xCA, 0x00}));
    TCount c;
    c->set(0x1234);
    EXPECT_EQ(SaveBytes(c, 8), (Bytes{0x82, 0x01, 0, 0, 0, 0, 0, 0, 0x02, 0x12, 0x34}));

    // Loading back: short negative values are sign-extended, a float keeps its width.
    const struct {
        Bytes bytes;
        int64 value;
    } ints[] = {{{0xA1, 0x81, 0xFE}, -2},
                {{0xA1, 0x82, 0x80, 0x00}, -32768},
                {{0xA1, 0x80}, 0},
                {{0xA1, 0x88, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, -1}};
    for (const auto& row : ints) {
        TSigned loaded;
        EXPECT_EQ(LoadBytes(loaded, row.bytes), row.bytes.size());
        EXPECT_EQ(loaded->get(), row.value);
    }
    TFloat lf;
    EXPECT_EQ(LoadBytes(lf, {0xA2, 0x84, 0x3F, 0x80, 0x00, 0x00}), 6u);
    EXPECT_EQ(lf->get(), 1.0);
    EXPECT_EQ(lf->getSize(), 4u);
    TCount wrong;  // another id: nothing consumed
    const Bytes other = {0x83, 0x81, 0x05};
    ConstMemoryStorage storage(other.data(), other.size());
    EXPECT_EQ(wrong.load(storage, other.size()), 0u);
    EXPECT_EQ(storage.absolutePosition(), 0u);
}

TEST(EbmlElement, BinaryRefersToTheBytesWhereTheyLie)
{
    const Bytes data = evctest::Pattern(200);
    uint8 scratch[512];
    MemoryStorage copies(scratch, sizeof scratch);
    TData d;
    d->set(data, copies);
    const Bytes saved = SaveBytes(d);
    EXPECT_EQ(saved, Cat({{0x83, 0x40, 0xC8}, data}));
    TData loaded;
    EXPECT_EQ(LoadBytes(loaded, saved), 203u);
    Bytes back;
    loaded->get(back);
    EXPECT_EQ(back, data);
    ASSERT_EQ(loaded->data().receipts().size(), 1u);
    EXPECT_EQ(loaded->data().receipts().front()->position(), 3u);
    EXPECT_EQ(loaded.payloadReceipt()->position(), 3u);
    EXPECT_EQ(loaded.storageReceipt()->numBytes(), 203u);
}

TEST(EbmlElement, SizeFieldPatchedPaddedOrUnknown)
{
    // A payload that announces more than it writes: the field is patched in the same width.
    struct Overestimating : VUInt {
        uint64 calcSize() const override { return 4; }
        TReceiptPtr save(IStorage& storage) const override
        {
            const uint8 byte = uint8(get());
            return storage.save(&byte, 1);
        }
    };
    TElt<Overestimating, 0x85, TNameO> o;
    o->set(0x42);
    EXPECT_EQ(SaveBytes(o, 2), (Bytes{0x85, 0x40, 0x01, 0x42}));
    EXPECT_EQ(SaveBytes(o), (Bytes{0x85, 0x81, 0x42}));

    TCount c;
    c->set(7);  // natural size 3
    const struct {
        uint64 total;
        Bytes head;  // what precedes the zero filling
    } pads[] = {
        {2, {}},                                          // too small
        {4, {}},                                          // one spare byte cannot hold a Void
        {5, {0x82, 0x81, 0x07, 0xEC, 0x80}},              // an empty Void
        {3 + 129, {0x82, 0x81, 0x07, 0xEC, 0x40, 0x7E}},  // a Void with a 2-byte size field
    };
    for (const auto& pad : pads) {
        SCOPED_TRACE(pad.total);
        Bytes area(256, 0xEE);
        MemoryStorage storage(area.data(), area.size());
        TReceiptPtr r = c.savePaddedUpToSize(storage, pad.total);
        ASSERT_EQ(bool(r), !pad.head.empty());
        if (!r)
            continue;
        EXPECT_EQ(r->numBytes(), pad.total);
        EXPECT_EQ(Bytes(area.begin(), area.begin() + long(pad.head.size())), pad.head);
        EXPECT_EQ(Bytes(area.begin() + long(pad.head.size()), area.begin() + long(pad.total)),
                  Bytes(pad.total - pad.head.size(), 0));
    }
    c.setFixedSize(10);  // the fixed size makes save() pad as well
    EXPECT_EQ(SaveBytes(c).size(), 10u);
    c.setFixedSize(0);

    // Unknown size: an 8-byte all-ones field; loading runs to the end given.
    TGroup g;
    g->count_->set(9);
    uint8 area[32];
    MemoryStorage storage(area, sizeof area);
    ASSERT_TRUE(g.savePaddedUpToSize(storage, uintMax[8]));
    const Bytes unknown = {0x90, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x82, 0x81, 0x09};
    EXPECT_EQ(Bytes(area, area + storage.absolutePosition()), unknown);
    TGroup loaded;
    EXPECT_EQ(LoadBytes(loaded, unknown), unknown.size());
    EXPECT_EQ(loaded->count_->get(), 9u);
}

TEST(EbmlElement, NestedListRoundTripAndCopies)
{
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
    group->data_->set(receiptForConstMemory(packet, sizeof packet));
    list->items_.push_back(group);
    const Bytes expected = {0x91, 0x90, 0x84, 0x87, 0x82, 0x81, 0x03, 0x83, 0x82,
                            0xDE, 0xAD, 0x90, 0x85, 0x83, 0x83, 0x01, 0x02, 0x03};
    EXPECT_EQ(list.calcSize(), expected.size());
    EXPECT_EQ(SaveBytes(list), expected);
    uint8 small[10];
    MemoryStorage tooSmall(small, sizeof small);
    EXPECT_FALSE(list.save(tooSmall));

    TList loaded;
    EXPECT_EQ(LoadBytes(loaded, expected), expected.size());
    ASSERT_EQ(loaded->items_.getCount(), 2u);
    Bytes data;
    loaded->items_.back<TGroup>()->data_->get(data);
    EXPECT_EQ(data, (Bytes{1, 2, 3}));
    EXPECT_EQ(eltsFind(loaded->items_.elts(), 2), loaded->items_.elts().front());
    EXPECT_EQ(eltsFind(loaded->items_.elts(), 3), nullptr);
    FindElement atSecond(17);  // the last byte of the group
    loaded.getPayload().eval(atSecond);
    ASSERT_NE(atSecond.eltFound_, nullptr);
    EXPECT_EQ(atSecond.eltFound_->getId(), 0x90u);
    FindElement outside(18);
    loaded.getPayload().eval(outside);
    EXPECT_EQ(outside.eltFound_, nullptr);
    TList copy(loaded);
    EXPECT_EQ(copy->items_.getCount(), 2u);
    EXPECT_NE(copy->items_.elts().front(), loaded->items_.elts().front());

    // Through the copying storage: blocks land apart, the receipt reads back as one.
    TReceiptPtr r = group.save(HodgePodgeStorage::Instance, 2);
    ASSERT_TRUE(r);
    Bytes bytes(std::size_t(r->numBytes()));
    ASSERT_TRUE(r->load(bytes.data()));
    EXPECT_EQ(bytes, (Bytes{0x90, 0x40, 0x05, 0x83, 0x83, 1, 2, 3}));
    EXPECT_EQ(group.offsetToPayload(), 3u);
}

TEST(EbmlElement, VoidsAreKeptWhereTheyBelong)
{
    const Bytes itemA = {0x84, 0x83, 0x82, 0x81, 0x01};
    const Bytes voidElt = {0xEC, 0x81, 0x00};
    const Bytes itemB = {0x84, 0x83, 0x82, 0x81, 0x02};
    // A Void after a child belongs to that child and is written again right after it.
    const Bytes between = Cat({{0x91, 0x8D}, itemA, voidElt, itemB});
    TList list;
    EXPECT_EQ(LoadBytes(list, between), between.size());
    ASSERT_EQ(list->items_.getCount(), 2u);
    EXPECT_EQ(list->items_.elts().front()->getPayload().voids_.size(), 1u);
    EXPECT_EQ(SaveBytes(list), between);
    // A Void before the first child belongs to the parent and is written after its children.
    TList list2;
    EXPECT_EQ(LoadBytes(list2, Cat({{0x91, 0x88}, voidElt, itemA})), 10u);
    EXPECT_EQ(list2->voids_.size(), 1u);
    EXPECT_EQ(SaveBytes(list2), Cat({{0x91, 0x85}, itemA, voidElt}));

    // A mixed list loads one run per call and stops at the Void.
    const Bytes run = Cat({itemA, {0xEC, 0x80}, itemB});
    ConstMemoryStorage source(run.data(), run.size());
    MixedElements items;
    items.addType<TItem>();
    EXPECT_EQ(items.load(source, run.size(), nullptr), 5u);
    IElement* elt = nullptr;
    EXPECT_EQ(items.loadOneElement(elt, source, run.size() - 5, nullptr), 0u);
    EXPECT_EQ(elt, nullptr);
    source.skip(2);
    EXPECT_EQ(items.load(source, run.size() - 7, nullptr), 5u);
    EXPECT_EQ(items.getCount(), 2u);
    EXPECT_EQ(items.back<TItem>()->count_->get(), 2u);
}

TEST(EbmlElement, Crc32ChildIsWrittenAndVerified)
{
    TGroup s;
    s->count_->set(7);
    s.setCrc32(true);
    EXPECT_EQ(s.calcSize(), 11u);
    EXPECT_EQ(SaveBytes(s), (Bytes{0x90, 0x89, 0xBF, 0x84, 0, 0, 0, 0, 0x82, 0x81, 0x07}));
    TCount scalar;
    scalar.setCrc32(true);  // only composites take the flag
    EXPECT_FALSE(scalar.shouldComputeCrc32());

    const Bytes children = {0x82, 0x81, 0x07, 0x83, 0x81, 0xAA};
    Crc32 crc;
    crc.compute(children.data(), children.size());
    const uint32 good = crc.checksum();
    std::ostringstream mismatch;
    mismatch << "WARNING: Group 0x90 -- checksum mismatch, loaded 12345678, computed " << std::hex << std::uppercase
             << good << ", CRC-32 @ 0x2, payload @ 0x2:C\n";
    for (const uint32 stored : {good, 0x12345678u}) {
        SCOPED_TRACE(stored);
        const Bytes bytes =
            Cat({{0x90, 0x8C, 0xBF, 0x84, uint8(stored), uint8(stored >> 8), uint8(stored >> 16), uint8(stored >> 24)},
                 children});
        TGroup g;
        testing::internal::CaptureStderr();
        EXPECT_EQ(LoadBytes(g, bytes), bytes.size());  // loaded either way
        EXPECT_EQ(testing::internal::GetCapturedStderr(), stored == good ? "" : mismatch.str());
        EXPECT_TRUE(g.shouldComputeCrc32());
        EXPECT_EQ(g.loadedChecksum(), stored);
        EXPECT_EQ(g.computedChecksum(), good);
        EXPECT_EQ(g.crc32Receipt()->position(), 2u);
        EXPECT_EQ(g->count_->get(), 7u);
    }

    // A CRC-like child of the wrong size and an unknown child are skipped; what follows the
    // unknown child is not reached, the whole declared size is consumed.
    const Bytes odd = {0x90, 0x8F, 0x82, 0x81, 0x05, 0xA9, 0x81, 0xFF, 0xBF,
                       0x83, 0x01, 0x02, 0x03, 0x83, 0x81, 0x07, 0xEE};
    TGroup g;
    EXPECT_EQ(LoadBytes(g, odd), 17u);
    EXPECT_EQ(g->count_->get(), 5u);
    EXPECT_FALSE(g.shouldComputeCrc32());
    EXPECT_FALSE(g->data_.storageReceipt());
}

TEST(EbmlElement, PositionIsRewrittenInPlace)
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
    ASSERT_TRUE(pos.save(storage));  // the target is not saved yet: 0 in 2 bytes
    EXPECT_EQ(Bytes(area + 5, area + 9), (Bytes{0xA5, 0x82, 0x00, 0x00}));
    ASSERT_TRUE(target.save(storage));  // at 9
    EXPECT_TRUE(pos->rewrite());
    EXPECT_EQ(Bytes(area + 7, area + 9), (Bytes{0x00, 0x07}));
}

TEST(EbmlDoc, HeaderIs35BytesAndIsFoundAfterGarbage)
{
    EbmlDoc doc("abc", 2, 2);
    EXPECT_EQ(doc.calcSize(), 35u);
    Bytes area(64);
    MemoryStorage storage(area.data(), area.size());
    ASSERT_TRUE(doc.save(storage));
    EXPECT_EQ(Bytes(area.begin(), area.begin() + long(storage.absolutePosition())), kAbcHeader);

    const Bytes bytes = Cat({{0x00, 0x13, 0x7F}, kAbcHeader, {0xEE}});
    ConstMemoryStorage source(bytes.data(), bytes.size());
    EbmlDoc loaded(nullptr, 0, 0);
    EXPECT_EQ(loaded.load(source, bytes.size(), nullptr), 35u);
    EXPECT_EQ(source.absolutePosition(), 38u);
    EXPECT_EQ(loaded.head_->docType_->get(), "abc");
    EXPECT_EQ(loaded.head_->docTypeReadVersion_->get(), 2u);
    EXPECT_EQ(loaded.head_->ebmlMaxSizeLength_->get(), 8u);
    const Bytes garbage = {0x01, 0x02, 0x03, 0x04};
    ConstMemoryStorage none(garbage.data(), garbage.size());
    EXPECT_EQ(loaded.load(none, uintMax[8], nullptr), 0u);

    // Missing children keep their defaults.
    const Bytes partial = {0x1A, 0x45, 0xDF, 0xA3, 0x8E, 0x42, 0xF7, 0x81, 0x03, 0x42,
                           0x82, 0x83, 'x',  'y',  'z',  0x42, 0x87, 0x81, 0x05};
    ConstMemoryStorage partialSource(partial.data(), partial.size());
    EbmlDoc other("", 0, 0);
    EXPECT_EQ(other.load(partialSource, partial.size(), nullptr), partial.size());
    EXPECT_EQ(other.head_->ebmlVersion_->get(), 1u);
    EXPECT_EQ(other.head_->ebmlReadVersion_->get(), 3u);
    EXPECT_EQ(other.head_->docTypeVersion_->get(), 5u);
}
