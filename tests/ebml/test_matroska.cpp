// Reading a Matroska file that ffmpeg writes at test time: data nobody here wrote.
#include "EbmlTestTypes.h"

#include "ebml/ebmlDoc.h"
#include "ebml/ebmlFileStorage.h"

#include <cstdlib>
#include <memory>

using namespace EbmlTest;

namespace {

const uint64 kSegment = 0x18538067, kCluster = 0x1F43B675, kBlockGroup = 0xA0, kSimpleBlock = 0xA3;

EBML_TEST_NAME(TNameSimpleBlock, "SimpleBlock");
EBML_TEST_NAME(TNameLevel1, "Level1");
typedef TElt<VBinary, kSimpleBlock, TNameSimpleBlock> TSimpleBlock;

// A master that knows none of its children: loading it leaves only the CRC-32 child to the
// element, which checks the payload against it.
class OpaqueMaster : public EbmlMaster {
public:
    bool eval(IElementCrawler&) override { return false; }
    bool isDefault() const override { return false; }
    uint64 calcSize() const override { return 0; }
    TReceiptPtr save(IStorage& storage) const override { return storage.receipt(); }
    uint64 load(IStorage&, uint64, IDelegateLoad*) override { return 0; }
};
template <uint64 Id>
using TOpaque = TElt<OpaqueMaster, Id, TNameLevel1>;

struct Child {
    uint64 id, start, payload, size;  // first id byte, first payload byte, payload bytes
    uint64 end() const { return payload + size; }
};

// The elements that fill [begin, end) exactly, read with the library's id and size readers.
std::vector<Child> ReadChildren(FileStorage& storage, uint64 begin, uint64 end)
{
    std::vector<Child> out;
    storage.seekTo(begin);
    while (storage.absolutePosition() < end) {
        Child c{0, storage.absolutePosition(), 0, 0};
        c.id = loadEbmlId(storage);
        uint64 width = 0;
        c.size = vsizeDecode(storage, width);
        c.payload = storage.absolutePosition();
        EXPECT_TRUE(c.id != 0 && width != 0 && c.end() <= end) << c.start;
        if (c.id == 0 || width == 0 || c.end() > end)
            break;
        out.push_back(c);
        storage.seekTo(c.end());
    }
    return out;
}

}  // namespace

TEST(Matroska, HeaderChecksumsAndBlocksOfAnFfmpegFile)
{
    if (std::system("command -v ffmpeg >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "ffmpeg is not installed";
    evctest::TempDir dir;
    const std::string path = dir.File("x.mkv");
    const std::string command = "ffmpeg -nostdin -hide_banner -loglevel error -f lavfi -i testsrc=size=64x48:rate=5 "
                                "-t 1 -c:v ffv1 -y '" +
                                path + "' >/dev/null 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    const Bytes bytes = evctest::ReadBytes(path);
    FileStorage storage(path, File::kReadOnly);

    // The header loads, and saving it gives back ffmpeg's bytes.
    EbmlDoc doc("", 0, 0);
    const uint64 headBytes = doc.load(storage, bytes.size(), nullptr);
    uint64 width = 0;
    ASSERT_EQ(headBytes, 4 + vsizeDecode(bytes.data() + 4, width) + width);
    const EbmlHead& head = doc.head_.payload();
    EXPECT_EQ(head.docType_->get(), "matroska");
    EXPECT_EQ(head.ebmlMaxSizeLength_->get(), 8u);
    Bytes saved(headBytes + 8, 0);
    MemoryStorage memory(saved.data(), saved.size());
    ASSERT_TRUE(doc.save(memory));
    ASSERT_EQ(memory.absolutePosition(), headBytes);
    EXPECT_TRUE(std::equal(saved.begin(), saved.begin() + long(headBytes), bytes.begin()));

    // The segment is the last element; ffmpeg puts a CRC-32 child first in its top-level
    // elements and loading checks it.
    ASSERT_EQ(loadEbmlId(storage), kSegment);
    const uint64 size = vsizeDecode(storage, width), segment = storage.absolutePosition();
    ASSERT_EQ(segment + size, bytes.size());
    int checked = 0, frames = 0;
    for (const Child& c : ReadChildren(storage, segment, bytes.size())) {
        std::unique_ptr<IElement> elts[] = {
            std::make_unique<TOpaque<0x114D9B74>>(), std::make_unique<TOpaque<0x1549A966>>(),
            std::make_unique<TOpaque<0x1654AE6B>>(), std::make_unique<TOpaque<kCluster>>()};
        for (auto& elt : elts) {
            if (bytes[c.payload] != kIdCrc32 || elt->getId() != c.id)
                continue;
            SCOPED_TRACE(testing::Message() << std::hex << c.id);
            storage.seekTo(c.start);
            testing::internal::CaptureStderr();
            ASSERT_EQ(elt->load(storage, c.end() - c.start), c.end() - c.start);
            EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
            const uint8* stored = bytes.data() + c.payload + 2;
            EXPECT_EQ(elt->loadedChecksum(),
                      uint32(stored[0] | stored[1] << 8 | stored[2] << 16 | uint32(stored[3]) << 24));
            EXPECT_EQ(elt->computedChecksum(), elt->loadedChecksum());
            ++checked;
        }
        if (c.id != kCluster)
            continue;
        // Five frames, each block loaded without copying and read back through its receipt.
        for (const Child& b : ReadChildren(storage, c.payload, c.end())) {
            frames += b.id == kBlockGroup || b.id == kSimpleBlock;
            if (b.id != kSimpleBlock)
                continue;
            TSimpleBlock block;
            storage.seekTo(b.start);
            ASSERT_EQ(block.load(storage, c.end() - b.start), b.end() - b.start);
            Bytes data;
            ASSERT_TRUE(block->get(data));
            EXPECT_EQ(data, Bytes(bytes.begin() + long(b.payload), bytes.begin() + long(b.end())));
        }
    }
    EXPECT_GE(checked, 3);
    EXPECT_EQ(frames, 5);
}
