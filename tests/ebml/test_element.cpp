// Elements: golden bytes of scalars, binaries, masters, lists and the document header; size
// fields patched and padded; Voids and CRC-32 children kept and checked.
#include "EbmlTestTypes.h"

#include "ebml/ebmlDoc.h"

#include <sstream>

using namespace EbmlTest;

namespace {

EBML_TEST_NAME(TNameVersion, "EBMLVersion");
EBML_TEST_NAME(TNameO, "O");
typedef TElt<VUInt, 0x4286, TNameVersion> TVersion;
typedef TElt<VInt, 0xA1, TNameO> TSigned;
typedef TElt<VFloat, 0xA2, TNameO> TFloat;

}  // namespace

TEST(EbmlElement, ScalarGoldenBytes)
{
    TVersion v;
    v->set(1);
    v->setDefault(1);  // default: not saved at all, unless asked to
    EXPECT_EQ(SaveBytes(v), Bytes{});
    EXPECT_EQ(v.calcSize(), 0u);
    v.alwaysSave();
    EXPECT_EQ(SaveBytes(v), Hex("4286 81 01"));
    TSigned i;
    i->set(200);
    EXPECT_EQ(SaveBytes(i), Hex("A1 82 00C8"));
    i->setSize(3);
    EXPECT_EQ(SaveBytes(i), Hex("A1 83 0000C8"));
    TFloat f;
    f->set(1.0);
    f->setSize(8);
    EXPECT_EQ(SaveBytes(f), Hex("A2 88 3FF0000000000000"));
    TCount c;
    c->set(0x1234);
    EXPECT_EQ(SaveBytes(c, 8), Hex("82 0100000000000002 1234"));

    // Loading back: short negative values are sign-extended, a float keeps its width.
    for (const auto& row : {std::make_pair("A1 82 8000", -32768), std::make_pair("A1 80", 0)}) {
        TSigned loaded;
        EXPECT_EQ(LoadBytes(loaded, Hex(row.first)), Hex(row.first).size());
        EXPECT_EQ(loaded->get(), row.second);
    }
    TFloat lf;
    EXPECT_EQ(LoadBytes(lf, Hex("A2 84 3F800000")), 6u);
    EXPECT_EQ(lf->get(), 1.0);
    EXPECT_EQ(lf->getSize(), 4u);
    TCount wrong;  // another id: nothing consumed
    EXPECT_EQ(LoadBytes(wrong, Hex("83 81 05")), 0u);
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
    EXPECT_EQ(SaveBytes(o, 2), Hex("85 4001 42"));
    EXPECT_EQ(SaveBytes(o), Hex("85 81 42"));

    TCount c;
    c->set(7);  // natural size 3
    const std::pair<uint64, const char*> pads[] = {
        {2, ""},                        // too small
        {4, ""},                        // one spare byte cannot hold a Void
        {5, "82 81 07 EC 80"},          // an empty Void
        {3 + 129, "82 81 07 EC 407E"},  // a Void with a 2-byte size field
    };
    for (const auto& pad : pads) {
        SCOPED_TRACE(pad.first);
        Bytes area(256, 0xEE);
        MemoryStorage storage(area.data(), area.size());
        const Bytes head = Hex(pad.second);
        ASSERT_EQ(bool(c.savePaddedUpToSize(storage, pad.first)), !head.empty());
        EXPECT_TRUE(head.empty() || Bytes(area.begin(), area.begin() + long(pad.first)) ==
                                        Cat({head, Bytes(pad.first - head.size(), 0)}));
    }

    // Unknown size: an 8-byte all-ones field; loading runs to the end given.
    TGroup g;
    g->count_->set(9);
    uint8 area[32];
    MemoryStorage storage(area, sizeof area);
    ASSERT_TRUE(g.savePaddedUpToSize(storage, uintMax[8]));
    const Bytes unknown = Hex("90 01FFFFFFFFFFFFFF 828109");
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
    const Bytes expected = Hex("91 90 84 87 828103 8382DEAD 90 85 8383010203");
    EXPECT_EQ(list.calcSize(), expected.size());
    EXPECT_EQ(SaveBytes(list), expected);

    TList loaded;
    EXPECT_EQ(LoadBytes(loaded, expected), expected.size());
    ASSERT_EQ(loaded->items_.getCount(), 2u);
    TList copy(loaded);
    EXPECT_NE(copy->items_.elts().front(), loaded->items_.elts().front());
    EXPECT_EQ(SaveBytes(copy), expected);
}

TEST(EbmlElement, VoidsAreKeptWhereTheyBelong)
{
    const Bytes itemA = Hex("84 83 828101"), voidElt = Hex("EC 81 00"), itemB = Hex("84 83 828102");
    // A Void after a child belongs to that child and is written again right after it.
    const Bytes between = Cat({Hex("91 8D"), itemA, voidElt, itemB});
    TList list;
    EXPECT_EQ(LoadBytes(list, between), between.size());
    EXPECT_EQ(list->items_.elts().front()->getPayload().voids_.size(), 1u);
    EXPECT_EQ(SaveBytes(list), between);
    // A Void before the first child belongs to the parent and is written after its children.
    TList list2;
    EXPECT_EQ(LoadBytes(list2, Cat({Hex("91 88"), voidElt, itemA})), 10u);
    EXPECT_EQ(SaveBytes(list2), Cat({Hex("91 85"), itemA, voidElt}));
}

TEST(EbmlElement, Crc32ChildIsWrittenAndVerified)
{
    TGroup s;
    s->count_->set(7);
    s.setCrc32(true);
    EXPECT_EQ(s.calcSize(), 11u);
    EXPECT_EQ(SaveBytes(s), Hex("90 89 BF84 00000000 828107"));

    const Bytes children = Hex("828107 8381AA");
    Crc32 crc;
    crc.compute(children.data(), children.size());
    const uint32 good = crc.checksum();
    std::ostringstream mismatch;
    mismatch << "WARNING: Group 0x90 -- checksum mismatch, loaded 12345678, computed " << std::hex << std::uppercase
             << good << ", CRC-32 @ 0x2, payload @ 0x2:C\n";
    for (const uint32 stored : {good, 0x12345678u}) {
        SCOPED_TRACE(stored);
        Bytes bytes = Hex("90 8C BF84");
        evctest::PutLe(bytes, stored, 4);
        TGroup g;
        testing::internal::CaptureStderr();
        EXPECT_EQ(LoadBytes(g, Cat({bytes, children})), 14u);  // loaded either way
        EXPECT_EQ(testing::internal::GetCapturedStderr(), stored == good ? "" : mismatch.str());
        EXPECT_EQ(g.loadedChecksum(), stored);
        EXPECT_EQ(g.computedChecksum(), good);
        EXPECT_EQ(g.crc32Receipt()->position(), 2u);
    }
    // A CRC-like child of the wrong size and an unknown child are skipped; what follows the
    // unknown child is not reached; the whole declared size is consumed.
    TGroup g;
    EXPECT_EQ(LoadBytes(g, Hex("90 8F 828105 A981FF BF83010203 838107 EE")), 17u);
    EXPECT_EQ(g->count_->get(), 5u);
    EXPECT_FALSE(g->data_.storageReceipt());
}

TEST(EbmlDoc, HeaderIs35BytesAndIsFoundAfterGarbage)
{
    const Bytes header =
        Hex("1A45DFA3 9E 4286 81 01 42F7 81 01 42F2 81 04 42F3 81 08 4282 83 616263 4287 81 02 4285 81 02");
    EbmlDoc doc("abc", 2, 2);
    EXPECT_EQ(doc.calcSize(), 35u);
    Bytes area(64);
    MemoryStorage storage(area.data(), area.size());
    ASSERT_TRUE(doc.save(storage));
    EXPECT_EQ(Bytes(area.begin(), area.begin() + long(storage.absolutePosition())), header);

    const Bytes bytes = Cat({Hex("00137F"), header, Hex("EE")});
    ConstMemoryStorage source(bytes.data(), bytes.size());
    EbmlDoc loaded(nullptr, 0, 0);
    EXPECT_EQ(loaded.load(source, bytes.size(), nullptr), 35u);
    EXPECT_EQ(source.absolutePosition(), 38u);
    EXPECT_EQ(loaded.head_->docType_->get(), "abc");
}
