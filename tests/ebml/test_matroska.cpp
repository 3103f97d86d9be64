// Reading Matroska files that ffmpeg writes at test time: data nobody here wrote.

#include "ebml/ebmlDoc.h"
#include "ebml/ebmlFileStorage.h"
#include "ebml/ebmlMemoryStorage.h"

#include "ebml/test_file_util.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using namespace Ebml;
using EbmlTest::TempDir;

namespace {

// Matroska element ids.
const uint64 kSegment = 0x18538067;
const uint64 kSeekHead = 0x114D9B74;
const uint64 kInfo = 0x1549A966;
const uint64 kTracks = 0x1654AE6B;
const uint64 kTrackEntry = 0xAE;
const uint64 kVideo = 0xE0;
const uint64 kCluster = 0x1F43B675;
const uint64 kBlockGroup = 0xA0;
const uint64 kSimpleBlock = 0xA3;
const uint64 kCues = 0x1C53BB6B;
const uint64 kTags = 0x1254C367;

struct TNameCodecId {
    static constexpr const char* kName = "CodecID";
};
struct TNamePixelWidth {
    static constexpr const char* kName = "PixelWidth";
};
struct TNamePixelHeight {
    static constexpr const char* kName = "PixelHeight";
};
struct TNameSimpleBlock {
    static constexpr const char* kName = "SimpleBlock";
};
typedef TElt<VString, 0x86, TNameCodecId> TCodecId;
typedef TElt<VUInt, 0xB0, TNamePixelWidth> TPixelWidth;
typedef TElt<VUInt, 0xBA, TNamePixelHeight> TPixelHeight;
typedef TElt<VBinary, kSimpleBlock, TNameSimpleBlock> TSimpleBlock;

// A composite that knows none of its children: loading it leaves only the CRC-32
// child to the element, which then checks the payload against it.
class OpaqueMaster : public EbmlMaster {
public:
    bool eval(IElementCrawler&) override { return false; }
    bool isDefault() const override { return false; }
    uint64 calcSize() const override { return 0; }
    TReceiptPtr save(IStorage& storage) const override { return storage.receipt(); }
    uint64 load(IStorage&, uint64, IDelegateLoad*) override { return 0; }
};
struct TNameLevel1 {
    static constexpr const char* kName = "Level1";
};

struct Child {
    uint64 id;
    uint64 start;    // first id byte
    uint64 payload;  // first payload byte
    uint64 size;     // payload bytes
    uint64 end() const { return payload + size; }
};

// Reads the ids and sizes of the elements that fill [begin, end) exactly. False at the
// first that cannot be read or runs past end; the storage never moves past end.
// A read-only storage refuses to seek past the end of a truncated file (an exception).
bool readChildren(FileStorage& storage, uint64 begin, uint64 end, std::vector<Child>& out)
{
    out.clear();
    try {
        storage.seekTo(begin);
        while (storage.absolutePosition() < end) {
            Child c;
            c.start = storage.absolutePosition();
            c.id = loadEbmlId(storage);
            uint64 width = 0;
            c.size = vsizeDecode(storage, width);
            c.payload = storage.absolutePosition();
            if (c.id == 0 || width == 0 || c.payload > end || c.size > end - c.payload)
                return false;
            out.push_back(c);
            storage.seekTo(c.end());
        }
    } catch (const std::runtime_error&) {
        return false;
    }
    return storage.absolutePosition() == end;
}

const Child* findChild(const std::vector<Child>& children, uint64 id)
{
    for (const Child& c : children)
        if (c.id == id)
            return &c;
    return nullptr;
}

class MatroskaTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(dir_.ok());
        if (std::system("command -v ffmpeg >/dev/null 2>&1") != 0)
            GTEST_SKIP() << "ffmpeg is not installed";
        path_ = dir_.file("x.mkv");
        const std::string command =
            "ffmpeg -nostdin -hide_banner -loglevel error -f lavfi -i testsrc=size=64x48:rate=5 "
            "-t 1 -c:v ffv1 -y '" +
            path_ + "' >/dev/null 2>&1";
        ASSERT_EQ(0, std::system(command.c_str())) << command;
        bytes_ = EbmlTest::readBytes(path_);
        ASSERT_GT(bytes_.size(), 100u);
    }

    // The file with some bytes changed, written next to the original.
    std::string variant(const std::string& name, const std::vector<uint8>& bytes)
    {
        const std::string path = dir_.file(name);
        EbmlTest::writeBytes(path, bytes);
        return path;
    }

    TempDir dir_;
    std::string path_;
    std::vector<uint8> bytes_;
};

}  // namespace

TEST_F(MatroskaTest, HeaderAndSegmentOfAnFfmpegFile)
{
    FileStorage storage(path_, File::kReadOnly);
    ASSERT_TRUE(storage.isOpen());
    const uint64 fileSize = storage.file().size();
    ASSERT_EQ(bytes_.size(), fileSize);

    EbmlDoc doc("", 0, 0);
    const uint64 headBytes = doc.load(storage, fileSize, nullptr);
    // Decoded here from the raw bytes, independently of the library's element code.
    ASSERT_EQ((std::vector<uint8>{0x1A, 0x45, 0xDF, 0xA3}), std::vector<uint8>(bytes_.begin(), bytes_.begin() + 4));
    uint64 width = 0;
    const uint64 headPayload = vsizeDecode(bytes_.data() + 4, width);
    ASSERT_EQ(4 + width + headPayload, headBytes);
    EXPECT_EQ(headBytes, storage.absolutePosition());

    const EbmlHead& head = doc.head_.payload();
    EXPECT_EQ("matroska", head.docType_->get());
    EXPECT_EQ(1u, head.ebmlVersion_->get());
    EXPECT_EQ(1u, head.ebmlReadVersion_->get());
    EXPECT_EQ(4u, head.ebmlMaxIdLength_->get());
    EXPECT_EQ(8u, head.ebmlMaxSizeLength_->get());
    EXPECT_GE(head.docTypeVersion_->get(), head.docTypeReadVersion_->get());
    EXPECT_GE(head.docTypeReadVersion_->get(), 1u);
    EXPECT_LE(head.docTypeVersion_->get(), 4u);
    ASSERT_TRUE(doc.head_.storageReceipt());
    EXPECT_EQ(0u, doc.head_.storageReceipt()->position());
    EXPECT_EQ(headBytes, doc.head_.storageReceipt()->numBytes());

    // Saving the loaded header gives back ffmpeg's bytes.
    std::vector<uint8> saved(headBytes + 8, 0);
    Storage<FileInMemory> memory(saved.data(), saved.size());
    TReceiptPtr written = doc.save(memory);
    ASSERT_TRUE(written);
    EXPECT_EQ(headBytes, written->numBytes());
    EXPECT_EQ(std::vector<uint8>(bytes_.begin(), bytes_.begin() + headBytes),
              std::vector<uint8>(saved.begin(), saved.begin() + headBytes));

    // The segment follows and is the last element of the file.
    ASSERT_EQ(kSegment, loadEbmlId(storage));
    const uint64 segmentSize = vsizeDecode(storage, width);
    ASSERT_NE(0u, width);
    ASSERT_NE(uintMax[8], segmentSize);
    const uint64 segmentPayload = storage.absolutePosition();
    EXPECT_EQ(fileSize, segmentPayload + segmentSize);

    std::vector<Child> top;
    ASSERT_TRUE(readChildren(storage, segmentPayload, segmentPayload + segmentSize, top));
    ASSERT_FALSE(top.empty());
    EXPECT_EQ(segmentPayload, top.front().start);
    for (size_t i = 1; i < top.size(); ++i)
        EXPECT_EQ(top[i - 1].end(), top[i].start) << i;
    EXPECT_EQ(segmentPayload + segmentSize, top.back().end());
    const std::set<uint64> known = {kSeekHead, kInfo, kTracks, kCluster, kCues, kTags, IPayload::kIdVoid};
    for (const Child& c : top)
        EXPECT_EQ(1u, known.count(c.id)) << std::hex << c.id;
    ASSERT_NE(nullptr, findChild(top, kInfo));
    ASSERT_NE(nullptr, findChild(top, kCluster));

    // Tracks / TrackEntry / CodecID and Video / PixelWidth, PixelHeight through the
    // library's own elements.
    const Child* tracks = findChild(top, kTracks);
    ASSERT_NE(nullptr, tracks);
    std::vector<Child> entries;
    ASSERT_TRUE(readChildren(storage, tracks->payload, tracks->end(), entries));
    const Child* entry = findChild(entries, kTrackEntry);
    ASSERT_NE(nullptr, entry);
    std::vector<Child> fields;
    ASSERT_TRUE(readChildren(storage, entry->payload, entry->end(), fields));
    const Child* codec = findChild(fields, TCodecId::kId);
    const Child* video = findChild(fields, kVideo);
    ASSERT_TRUE(codec && video);
    TCodecId codecId;
    storage.seekTo(codec->start);
    EXPECT_EQ(codec->end() - codec->start, codecId.load(storage, codec->end() - codec->start));
    // Depending on its version ffmpeg stores FFV1 natively or wrapped in a VfW header.
    const std::set<std::string> ffv1Codecs = {"V_FFV1", "V_MS/VFW/FOURCC"};
    EXPECT_EQ(1u, ffv1Codecs.count(codecId->get())) << codecId->get();
    EXPECT_EQ(codec->size, codecId->get().size());

    std::vector<Child> picture;
    ASSERT_TRUE(readChildren(storage, video->payload, video->end(), picture));
    const Child* w = findChild(picture, TPixelWidth::kId);
    const Child* h = findChild(picture, TPixelHeight::kId);
    ASSERT_TRUE(w && h);
    TPixelWidth pixelWidth;
    TPixelHeight pixelHeight;
    storage.seekTo(w->start);
    EXPECT_EQ(w->end() - w->start, pixelWidth.load(storage, video->end() - w->start));
    storage.seekTo(h->start);
    EXPECT_EQ(h->end() - h->start, pixelHeight.load(storage, video->end() - h->start));
    EXPECT_EQ(64u, pixelWidth->get());
    EXPECT_EQ(48u, pixelHeight->get());

    // Five frames, each block loaded without copying and read back through its receipt.
    int frames = 0;
    for (const Child& cluster : top) {
        if (cluster.id != kCluster)
            continue;
        std::vector<Child> blocks;
        ASSERT_TRUE(readChildren(storage, cluster.payload, cluster.end(), blocks));
        for (const Child& b : blocks) {
            if (b.id == kBlockGroup) {
                ++frames;
                continue;
            }
            if (b.id != kSimpleBlock)
                continue;
            ++frames;
            TSimpleBlock block;
            storage.seekTo(b.start);
            ASSERT_EQ(b.end() - b.start, block.load(storage, cluster.end() - b.start));
            ASSERT_TRUE(block->data().numBytes() == b.size);
            std::vector<uint8> data;
            ASSERT_TRUE(block->get(data));
            EXPECT_EQ(0x81, data[0]);  // track number 1
            EXPECT_TRUE(std::equal(data.begin(), data.end(), bytes_.begin() + b.payload));
        }
    }
    EXPECT_EQ(5, frames);
}

// ffmpeg puts a CRC-32 child first in its top-level elements; the library's load
// checks the payload against it through file receipts.
TEST_F(MatroskaTest, ChecksumsOfTopLevelElementsMatch)
{
    FileStorage storage(path_, File::kReadOnly);
    EbmlDoc doc("", 0, 0);
    ASSERT_GT(doc.load(storage, storage.file().size(), nullptr), 0u);
    ASSERT_EQ(kSegment, loadEbmlId(storage));
    uint64 width = 0;
    const uint64 size = vsizeDecode(storage, width);
    const uint64 payload = storage.absolutePosition();
    std::vector<Child> top;
    ASSERT_TRUE(readChildren(storage, payload, payload + size, top));

    int checked = 0;
    for (const Child& c : top) {
        if (bytes_[c.payload] != kIdCrc32)
            continue;
        std::unique_ptr<IElement> elt;
        switch (c.id) {
        case kSeekHead:
            elt.reset(new TElt<OpaqueMaster, kSeekHead, TNameLevel1>);
            break;
        case kInfo:
            elt.reset(new TElt<OpaqueMaster, kInfo, TNameLevel1>);
            break;
        case kTracks:
            elt.reset(new TElt<OpaqueMaster, kTracks, TNameLevel1>);
            break;
        case kTags:
            elt.reset(new TElt<OpaqueMaster, kTags, TNameLevel1>);
            break;
        case kCluster:
            elt.reset(new TElt<OpaqueMaster, kCluster, TNameLevel1>);
            break;
        case kCues:
            elt.reset(new TElt<OpaqueMaster, kCues, TNameLevel1>);
            break;
        default:
            continue;
        }
        storage.seekTo(c.start);
        testing::internal::CaptureStderr();
        ASSERT_EQ(c.end() - c.start, elt->load(storage, c.end() - c.start)) << std::hex << c.id;
        EXPECT_EQ("", testing::internal::GetCapturedStderr()) << std::hex << c.id;
        EXPECT_TRUE(elt->shouldComputeCrc32()) << std::hex << c.id;
        const uint32 stored = uint32(bytes_[c.payload + 2]) | uint32(bytes_[c.payload + 3]) << 8 |
                              uint32(bytes_[c.payload + 4]) << 16 | uint32(bytes_[c.payload + 5]) << 24;
        EXPECT_EQ(stored, elt->loadedChecksum()) << std::hex << c.id;
        EXPECT_EQ(stored, elt->computedChecksum()) << std::hex << c.id;
        ++checked;
    }
    EXPECT_GE(checked, 3);
}

TEST_F(MatroskaTest, CopyingThroughTwoCachesIsExact)
{
    const std::string copyPath = dir_.file("copy.mkv");
    {
        FileStorage src(path_, File::kReadOnly);
        FileStorage dst(copyPath, File::kReadWrite);
        ASSERT_TRUE(src.isOpen() && dst.isOpen());
        TReceiptPtr all = src.skipWithReceipt(src.file().size());
        ASSERT_TRUE(all);
        // An odd chunk size so that chunks straddle cache lines on both sides.
        TReceiptPtr copied = all->saveTo(dst, 1000);
        ASSERT_TRUE(copied);
        EXPECT_EQ(bytes_.size(), copied->numBytes());
    }
    EXPECT_EQ(bytes_, EbmlTest::readBytes(copyPath));
}

TEST_F(MatroskaTest, RewritingAHeaderValueInPlace)
{
    const std::string copy = variant("edit.mkv", bytes_);
    uint64 oldVersion = 0;
    {
        FileStorage storage(copy, File::kReadWrite);
        EbmlDoc doc("", 0, 0);
        ASSERT_GT(doc.load(storage, storage.file().size(), nullptr), 0u);
        const EbmlHead::TDocTypeVersion& version = doc.head_->docTypeVersion_;
        oldVersion = version->get();
        TReceiptPtr payload = version.payloadReceipt();
        ASSERT_TRUE(payload);
        ASSERT_EQ(1u, payload->numBytes());
        const uint8 nine = 9;
        ASSERT_TRUE(payload->save(&nine, 1));
    }
    std::vector<uint8> expected = bytes_;
    const std::vector<uint8> after = EbmlTest::readBytes(copy);
    ASSERT_EQ(bytes_.size(), after.size());
    size_t changed = 0;
    for (size_t i = 0; i < after.size(); ++i)
        if (after[i] != bytes_[i]) {
            EXPECT_EQ(oldVersion, bytes_[i]);
            EXPECT_EQ(9, after[i]);
            ++changed;
        }
    EXPECT_EQ(1u, changed);

    FileStorage storage(copy, File::kReadOnly);
    EbmlDoc doc("", 0, 0);
    ASSERT_GT(doc.load(storage, storage.file().size(), nullptr), 0u);
    EXPECT_EQ(9u, doc.head_->docTypeVersion_->get());
}

// Every truncation of the file: the header loads or not, the walk refuses the segment,
// and nothing reads or moves past the end of the file.
TEST_F(MatroskaTest, TruncatedFilesAreRefusedSoftly)
{
    std::vector<size_t> lengths;
    for (size_t n = 0; n < 200 && n < bytes_.size(); ++n)
        lengths.push_back(n);
    for (size_t n = 200; n < bytes_.size(); n += 61)
        lengths.push_back(n);
    lengths.push_back(bytes_.size() - 1);

    uint64 headBytes = 0;
    {
        FileStorage storage(path_, File::kReadOnly);
        EbmlDoc doc("", 0, 0);
        headBytes = doc.load(storage, storage.file().size(), nullptr);
    }
    for (size_t n : lengths) {
        const std::string path = variant("cut.mkv", std::vector<uint8>(bytes_.begin(), bytes_.begin() + n));
        FileStorage storage(path, File::kReadOnly);
        ASSERT_TRUE(storage.isOpen());
        EbmlDoc doc("", 0, 0);
        const uint64 loaded = doc.load(storage, n, nullptr);
        ASSERT_LE(storage.absolutePosition(), n) << n;
        if (n >= headBytes) {
            ASSERT_EQ(headBytes, loaded) << n;
            EXPECT_EQ("matroska", doc.head_->docType_->get()) << n;
            if (storage.absolutePosition() + 12 <= n) {
                EXPECT_EQ(kSegment, loadEbmlId(storage)) << n;
                uint64 width = 0;
                const uint64 size = vsizeDecode(storage, width);
                const uint64 payload = storage.absolutePosition();
                std::vector<Child> top;
                EXPECT_FALSE(readChildren(storage, payload, payload + size, top)) << n;
            }
        }
        ASSERT_LE(storage.absolutePosition(), n) << n;
        ASSERT_EQ(n, storage.file().size()) << n;
    }
}

// Sizes that point past the end of the file, and random damage: loads stay inside the file.
TEST_F(MatroskaTest, LyingSizesAndDamageStayInsideTheFile)
{
    // The first block announces far more bytes than the file holds.
    std::vector<Child> top;
    std::vector<Child> blocks;
    {
        FileStorage storage(path_, File::kReadOnly);
        EbmlDoc doc("", 0, 0);
        const uint64 head = doc.load(storage, storage.file().size(), nullptr);
        ASSERT_EQ(kSegment, loadEbmlId(storage));
        uint64 width = 0;
        const uint64 size = vsizeDecode(storage, width);
        const uint64 payload = storage.absolutePosition();
        ASSERT_TRUE(readChildren(storage, payload, payload + size, top));
        const Child* cluster = findChild(top, kCluster);
        ASSERT_NE(nullptr, cluster);
        ASSERT_TRUE(readChildren(storage, cluster->payload, cluster->end(), blocks));
        ASSERT_GT(head, 0u);
    }
    const Child* block = findChild(blocks, kSimpleBlock);
    ASSERT_NE(nullptr, block);
    const uint64 sizeWidth = block->payload - block->start - 1;
    std::vector<uint8> lying = bytes_;
    vsizeEncode(vsizeRange[sizeWidth], lying.data() + block->start + 1, sizeWidth);
    {
        FileStorage storage(variant("lying.mkv", lying), File::kReadOnly);
        storage.seekTo(block->start);
        TSimpleBlock simpleBlock;
        simpleBlock.load(storage, vsizeRange[8]);
        EXPECT_LE(storage.absolutePosition(), lying.size());
        EXPECT_EQ(lying.size(), storage.file().size());
        std::vector<uint8> data;
        simpleBlock->get(data);
        EXPECT_LT(data.size(), lying.size());
    }

    std::mt19937 rng(7);
    for (int round = 0; round < 150; ++round) {
        std::vector<uint8> damaged = bytes_;
        for (int k = 0; k < 4; ++k)
            damaged[rng() % std::min<size_t>(damaged.size(), 400)] = static_cast<uint8>(rng());
        FileStorage storage(variant("damaged.mkv", damaged), File::kReadOnly);
        EbmlDoc doc("", 0, 0);
        doc.load(storage, damaged.size(), nullptr);
        ASSERT_LE(storage.absolutePosition(), damaged.size()) << round;
        const uint64 start = storage.absolutePosition();
        std::vector<Child> children;
        readChildren(storage, start, damaged.size(), children);
        for (const Child& c : children) {
            if (c.id != kCluster && c.id != kTracks)
                continue;
            std::vector<Child> inner;
            if (!readChildren(storage, c.payload, c.end(), inner))
                continue;
            for (const Child& b : inner) {
                TSimpleBlock simpleBlock;
                storage.seekTo(b.start);
                simpleBlock.load(storage, c.end() - b.start);
                ASSERT_LE(storage.absolutePosition(), damaged.size()) << round;
            }
        }
        ASSERT_EQ(damaged.size(), storage.file().size()) << round;
    }
}
