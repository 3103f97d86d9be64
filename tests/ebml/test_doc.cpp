#include "ebml/ebmlDoc.h"
#include "ebml/ebmlMemoryStorage.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Ebml;

namespace {

typedef std::vector<uint8> Bytes;

const Bytes kAbcHeader = {0x1A, 0x45, 0xDF, 0xA3, 0x9E, 0x42, 0x86, 0x81, 0x01, 0x42, 0xF7, 0x81,
                          0x01, 0x42, 0xF2, 0x81, 0x04, 0x42, 0xF3, 0x81, 0x08, 0x42, 0x82, 0x83,
                          'a',  'b',  'c',  0x42, 0x87, 0x81, 0x02, 0x42, 0x85, 0x81, 0x02};

Bytes saveDoc(const EbmlDoc& doc)
{
    Bytes area(128);
    MemoryStorage storage(area.data(), area.size());
    EXPECT_TRUE(doc.save(storage));
    area.resize(std::size_t(storage.absolutePosition()));
    return area;
}

}  // namespace

TEST(EbmlDoc, HeaderIsByteExact)
{
    EbmlDoc doc("abc", 2, 2);
    EXPECT_EQ(doc.calcSize(), 35u);
    EXPECT_EQ(saveDoc(doc), kAbcHeader);

    EbmlDoc empty("", 0, 0);
    const Bytes bytes = saveDoc(empty);
    const Bytes docType = {0x42, 0x82, 0x80};
    EXPECT_NE(std::search(bytes.begin(), bytes.end(), docType.begin(), docType.end()), bytes.end());
    EXPECT_EQ(bytes.size(), 4u + 1u + 4u * 4u + 3u + 4u + 4u);
}

TEST(EbmlDoc, LoadFindsTheHeaderAfterGarbage)
{
    Bytes bytes = {0x00, 0x13, 0x7F};
    bytes.insert(bytes.end(), kAbcHeader.begin(), kAbcHeader.end());
    bytes.push_back(0xEE);
    ConstMemoryStorage storage(bytes.data(), bytes.size());
    EbmlDoc doc(nullptr, 0, 0);
    EXPECT_EQ(doc.load(storage, bytes.size(), nullptr), 35u);
    EXPECT_EQ(storage.absolutePosition(), 38u);
    const EbmlHead& head = doc.head_.payload();
    EXPECT_EQ(head.docType_->get(), "abc");
    EXPECT_EQ(head.docTypeVersion_->get(), 2u);
    EXPECT_EQ(head.docTypeReadVersion_->get(), 2u);
    EXPECT_EQ(head.ebmlMaxSizeLength_->get(), 8u);

    const Bytes garbage = {0x01, 0x02, 0x03, 0x04};
    ConstMemoryStorage none(garbage.data(), garbage.size());
    EXPECT_EQ(doc.load(none, uintMax[8], nullptr), 0u);  // ends at the end of the storage
}

TEST(EbmlDoc, MissingChildKeepsItsDefault)
{
    // Header without EBMLVersion and with a different version 3.
    Bytes bytes = {0x1A, 0x45, 0xDF, 0xA3, 0x8C, 0x42, 0xF7, 0x81, 0x03, 0x42,
                   0x82, 0x83, 'x',  'y',  'z',  0x42, 0x87, 0x81, 0x05};
    bytes[4] = uint8(0x80 | (bytes.size() - 5));
    ConstMemoryStorage storage(bytes.data(), bytes.size());
    EbmlDoc doc("", 0, 0);
    EXPECT_EQ(doc.load(storage, bytes.size(), nullptr), bytes.size());
    const EbmlHead& head = doc.head_.payload();
    EXPECT_EQ(head.ebmlVersion_->get(), 1u);
    EXPECT_EQ(head.ebmlReadVersion_->get(), 3u);
    EXPECT_EQ(head.docType_->get(), "xyz");
    EXPECT_EQ(head.docTypeVersion_->get(), 5u);
}
