// Elements saved to and loaded from disk files: size fields patched through file
// receipts, padding, binary payloads that refer into a file.

#include "ebml/ebmlElt.h"
#include "ebml/ebmlFileStorage.h"

#include "ebml/test_file_util.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Ebml;

namespace {

// Announces more bytes than it writes, as a payload does whose final length is only
// known once written; the element then patches its size field in place.
class ShrinkingPayload : public IPayload {
public:
    ShrinkingPayload(uint64 announced = 0, std::vector<uint8> bytes = {})
        : announced_(announced), bytes_(std::move(bytes))
    {
    }
    bool eval(IElementCrawler&) override { return false; }
    bool isDefault() const override { return false; }
    uint64 calcSize() const override { return announced_; }
    TReceiptPtr save(IStorage& storage) const override { return Ebml::save(storage, bytes_); }
    uint64 load(IStorage& storage, uint64 bytesToRead, IDelegateLoad*) override
    {
        bytes_.resize(bytesToRead);
        return Ebml::load(storage, bytes_) ? bytesToRead : 0;
    }

    uint64 announced_;
    std::vector<uint8> bytes_;
};

struct TNameShrink {
    static constexpr const char* kName = "Shrink";
};
struct TNameBlob {
    static constexpr const char* kName = "Blob";
};
typedef TElt<ShrinkingPayload, 0x4321, TNameShrink> TShrink;
typedef TElt<VBinary, 0xA1, TNameBlob> TBlob;

class FileElementsTest : public EbmlTest::TempDirTest {};

std::vector<uint8> concat(std::initializer_list<std::vector<uint8>> parts)
{
    std::vector<uint8> all;
    for (const auto& p : parts)
        all.insert(all.end(), p.begin(), p.end());
    return all;
}

}  // namespace

TEST_F(FileElementsTest, SizeFieldIsPatchedAfterItsLineWasWrittenBack)
{
    const std::string path = dir_.file("patch");
    const std::vector<uint8> lead = EbmlTest::pattern(10, 3);
    const std::vector<uint8> body = EbmlTest::pattern(40, 4);
    {
        FileStorage storage(path, File::kReadWrite);
        // Lines of 16 bytes: writing the body evicts the line holding the size field.
        storage.file().cache()->resize(1, 16);
        ASSERT_TRUE(storage.save(lead.data(), lead.size()));
        TShrink elt(ShrinkingPayload(200, body));
        TReceiptPtr r = elt.save(storage);
        ASSERT_TRUE(r);
        EXPECT_EQ(10u, r->position());
        EXPECT_EQ(2u + 2u + 40u, r->numBytes());
        EXPECT_EQ(4u, elt.offsetToPayload());
        EXPECT_EQ(54u, storage.absolutePosition());
    }
    // 200 needs a 2-byte size field (0x40 0xC8); the patch keeps the width.
    EXPECT_EQ(concat({lead, {0x43, 0x21, 0x40, 0x28}, body}), EbmlTest::readBytes(path));

    FileStorage storage(path, File::kReadOnly);
    storage.seekTo(10);
    TShrink loaded;
    ASSERT_EQ(44u, loaded.load(storage, 44));
    EXPECT_EQ(body, loaded->bytes_);
    TReceiptPtr payload = loaded.payloadReceipt();
    ASSERT_TRUE(payload);
    EXPECT_EQ(14u, payload->position());
    EXPECT_EQ(40u, payload->numBytes());
}

TEST_F(FileElementsTest, PaddedAndWideSizeFieldsOnDisk)
{
    const std::string path = dir_.file("pad");
    const std::vector<uint8> three = {1, 2, 3};
    {
        FileStorage storage(path, File::kReadWrite);
        TBlob blob;
        blob->set(three, storage);  // copied into the file first, at 0
        TReceiptPtr padded = blob.savePaddedUpToSize(storage, 10);
        ASSERT_TRUE(padded);
        EXPECT_EQ(10u, padded->numBytes());
        TReceiptPtr wide = blob.save(storage, 8);
        ASSERT_TRUE(wide);
        EXPECT_EQ(1u + 8u + 3u, wide->numBytes());
    }
    const std::vector<uint8> expected = {1,    2,    3,                                       // the payload's own copy
                                         0xA1, 0x83, 1, 2, 3, 0xEC, 0x83, 0, 0,    0,         // element and its Void
                                         0xA1, 0x01, 0, 0, 0, 0,    0,    0, 0x03, 1, 2, 3};  // 8-byte size field
    EXPECT_EQ(expected, EbmlTest::readBytes(path));

    FileStorage storage(path, File::kReadOnly);
    storage.seekTo(13);
    TBlob loaded;
    ASSERT_EQ(12u, loaded.load(storage, 12));
    std::vector<uint8> got;
    ASSERT_TRUE(loaded->get(got));
    EXPECT_EQ(three, got);
}

TEST_F(FileElementsTest, BinaryLoadedFromOneFileIsSavedIntoAnother)
{
    const std::string src = dir_.file("src");
    const std::string dst = dir_.file("dst");
    const std::vector<uint8> data = EbmlTest::pattern(9000, 5);
    std::vector<uint8> file = {0xA1, 0x10, 0x00, 0x23, 0x28};  // 4-byte size 9000
    file.insert(file.end(), data.begin(), data.end());
    EbmlTest::writeBytes(src, file);
    {
        FileStorage in(src, File::kReadOnly);
        TBlob blob;
        ASSERT_EQ(file.size(), blob.load(in, file.size()));
        // Zero-copy: the payload is one receipt into the source file.
        EXPECT_EQ(9000u, blob->data().numBytes());
        FileStorage out(dst, File::kReadWrite);
        TReceiptPtr r = blob.save(out);
        ASSERT_TRUE(r);
        EXPECT_EQ(1u + 2u + 9000u, r->numBytes());
        blob.discardReceipts();
    }
    const std::vector<uint8> copied = EbmlTest::readBytes(dst);
    EXPECT_EQ(concat({{0xA1, 0x63, 0x28}, data}), copied);
}

TEST_F(FileElementsTest, TruncatedElementsLoadSoftly)
{
    const std::vector<uint8> whole = {0xA1, 0x85, 1, 2, 3, 4, 5};
    for (size_t n = 0; n <= whole.size(); ++n) {
        const std::string path = dir_.file("cut");
        EbmlTest::writeBytes(path, std::vector<uint8>(whole.begin(), whole.begin() + n));
        FileStorage storage(path, File::kReadOnly);
        TBlob blob;
        const uint64 consumed = blob.load(storage, 100);
        EXPECT_LE(storage.absolutePosition(), n) << n;
        EXPECT_EQ(n, storage.file().size()) << n;
        std::vector<uint8> got;
        blob->get(got);
        if (n == whole.size()) {
            EXPECT_EQ(7u, consumed);
            EXPECT_EQ((std::vector<uint8>{1, 2, 3, 4, 5}), got);
        } else {
            // Refused, or counted without any bytes behind it.
            EXPECT_LE(consumed, 7u) << n;
            EXPECT_TRUE(got.empty()) << n;
        }
    }
}
