// Elements saved to and loaded from files: size fields patched through file receipts after
// their line left the cache, padding and wide size fields on disk, binaries that refer into a file.
#include "EbmlTestTypes.h"

#include "ebml/ebmlFileStorage.h"

using namespace EbmlTest;
using evctest::Pattern;
using evctest::ReadBytes;

namespace {

// Announces more bytes than it writes, as a payload whose final length is only known once
// written; the element then patches its size field in place.
class ShrinkingPayload : public IPayload {
public:
    ShrinkingPayload(uint64 announced = 0, Bytes bytes = {}) : announced_(announced), bytes_(std::move(bytes)) {}
    bool eval(IElementCrawler&) override { return false; }
    bool isDefault() const override { return false; }
    uint64 calcSize() const override { return announced_; }
    TReceiptPtr save(IStorage& storage) const override { return Ebml::save(storage, bytes_); }
    uint64 load(IStorage&, uint64, IDelegateLoad*) override { return 0; }

    uint64 announced_;
    Bytes bytes_;
};

EBML_TEST_NAME(TNameShrink, "Shrink");
EBML_TEST_NAME(TNameBlob, "Blob");
typedef TElt<ShrinkingPayload, 0x4321, TNameShrink> TShrink;
typedef TElt<VBinary, 0xA1, TNameBlob> TBlob;
using EbmlFileElements = evctest::TempDirTest;

}  // namespace

TEST_F(EbmlFileElements, SizePatchedAfterItsLineWasWrittenBack)
{
    const std::string path = m_dir.File("patch");
    const Bytes lead = Pattern(10, 3);
    const Bytes body = Pattern(40, 4);
    {
        FileStorage storage(path, File::kReadWrite);
        storage.file().cache()->resize(1, 16);  // the body evicts the line holding the size field
        ASSERT_TRUE(storage.save(lead.data(), lead.size()));
        TShrink elt(ShrinkingPayload(200, body));
        TReceiptPtr r = elt.save(storage);
        ASSERT_TRUE(r);
        EXPECT_EQ(r->position(), 10u);
        EXPECT_EQ(r->numBytes(), 44u);
    }
    // 200 needs a 2-byte size field; the patch keeps the width.
    EXPECT_EQ(ReadBytes(path), Cat({lead, {0x43, 0x21, 0x40, 0x28}, body}));
}

TEST_F(EbmlFileElements, PaddedWideAndCopiedBetweenFiles)
{
    const std::string path = m_dir.File("pad");
    {
        FileStorage storage(path, File::kReadWrite);
        TBlob blob;
        blob->set(Bytes{1, 2, 3}, storage);  // copied into the file first, at 0
        ASSERT_TRUE(blob.savePaddedUpToSize(storage, 10));
        ASSERT_TRUE(blob.save(storage, 8));
    }
    const Bytes expected = {1,    2,    3,                                       // the payload's own copy
                            0xA1, 0x83, 1, 2, 3, 0xEC, 0x83, 0, 0,    0,         // element and its Void
                            0xA1, 0x01, 0, 0, 0, 0,    0,    0, 0x03, 1, 2, 3};  // 8-byte size field
    EXPECT_EQ(ReadBytes(path), expected);

    // A large binary loaded from one file refers into it and is saved into another.
    const Bytes data = Pattern(9000, 5);
    const std::string src = m_dir.Write("src", Cat({{0xA1, 0x10, 0x00, 0x23, 0x28}, data}));
    const std::string dst = m_dir.File("dst");
    {
        FileStorage in(src, File::kReadOnly);
        FileStorage out(dst, File::kReadWrite);
        TBlob blob;
        ASSERT_EQ(blob.load(in, 9005), 9005u);
        EXPECT_EQ(blob->data().receipts().size(), 1u);
        ASSERT_TRUE(blob.save(out));
    }
    EXPECT_EQ(ReadBytes(dst), Cat({{0xA1, 0x63, 0x28}, data}));
}
