// Reading a Matroska file that ffmpeg writes at test time: data nobody here wrote.
#include "EbmlTestTypes.h"

#include "ebml/ebmlDoc.h"
#include "ebml/ebmlFileStorage.h"

#include <cstdlib>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>

using namespace EbmlTest;
using evctest::ReadBytes;

namespace {

const uint64 kSegment = 0x18538067, kSeekHead = 0x114D9B74, kInfo = 0x1549A966, kTracks = 0x1654AE6B,
             kTrackEntry = 0xAE, kCluster = 0x1F43B675, kBlockGroup = 0xA0, kSimpleBlock = 0xA3, kCues = 0x1C53BB6B,
             kTags = 0x1254C367;

EBML_TEST_NAME(TNameCodecId, "CodecID");
EBML_TEST_NAME(TNameSimpleBlock, "SimpleBlock");
EBML_TEST_NAME(TNameLevel1, "Level1");
typedef TElt<VString, 0x86, TNameCodecId> TCodecId;
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
std::unique_ptr<IElement> Opaque()
{
    return std::make_unique<TElt<OpaqueMaster, Id, TNameLevel1>>();
}

struct Child {
    uint64 id, start, payload, size;  // first id byte, first payload byte, payload bytes
    uint64 end() const { return payload + size; }
};
typedef std::vector<Child> Children;

// The elements that fill [begin, end) exactly, read with the library's id and size readers; false
// at the first that cannot be read or runs past end.
bool ReadChildren(FileStorage& storage, uint64 begin, uint64 end, Children& out)
{
    out.clear();
    try {
        storage.seekTo(begin);
        while (storage.absolutePosition() < end) {
            Child c{};
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
    } catch (const std::runtime_error&) {  // a read-only storage refuses to seek past the end
        return false;
    }
    return storage.absolutePosition() == end;
}

const Child* Find(const Children& children, uint64 id)
{
    for (const Child& c : children)
        if (c.id == id)
            return &c;
    return nullptr;
}

class Matroska : public evctest::TempDirTest {
protected:
    void SetUp() override
    {
        TempDirTest::SetUp();
        if (std::system("command -v ffmpeg >/dev/null 2>&1") != 0)
            GTEST_SKIP() << "ffmpeg is not installed";
        m_path = m_dir.File("x.mkv");
        const std::string command = "ffmpeg -nostdin -hide_banner -loglevel error -f lavfi -i "
                                    "testsrc=size=64x48:rate=5 -t 1 -c:v ffv1 -y '" +
                                    m_path + "' >/dev/null 2>&1";
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
        m_bytes = ReadBytes(m_path);
        // The header, then the segment as the last element of the file.
        FileStorage storage(m_path, File::kReadOnly);
        EbmlDoc doc("", 0, 0);
        m_headBytes = doc.load(storage, m_bytes.size(), nullptr);
        ASSERT_GT(m_headBytes, 0u);
        ASSERT_EQ(loadEbmlId(storage), kSegment);
        uint64 width = 0;
        const uint64 size = vsizeDecode(storage, width);
        m_segment = storage.absolutePosition();
        ASSERT_EQ(m_segment + size, m_bytes.size());
        ASSERT_TRUE(ReadChildren(storage, m_segment, m_bytes.size(), m_top));
    }

    std::string m_path;
    Bytes m_bytes;
    uint64 m_headBytes = 0, m_segment = 0;
    Children m_top;
};

}  // namespace

TEST_F(Matroska, HeaderTracksAndBlocksOfAnFfmpegFile)
{
    FileStorage storage(m_path, File::kReadOnly);
    EbmlDoc doc("", 0, 0);
    ASSERT_EQ(doc.load(storage, m_bytes.size(), nullptr), m_headBytes);
    uint64 width = 0;  // the header's extent decoded here from the raw bytes
    EXPECT_EQ(m_headBytes, 4 + vsizeDecode(m_bytes.data() + 4, width) + width);
    const EbmlHead& head = doc.head_.payload();
    EXPECT_EQ(head.docType_->get(), "matroska");
    EXPECT_EQ(head.ebmlReadVersion_->get(), 1u);
    EXPECT_EQ(head.ebmlMaxIdLength_->get(), 4u);
    EXPECT_EQ(head.ebmlMaxSizeLength_->get(), 8u);
    EXPECT_GE(head.docTypeVersion_->get(), head.docTypeReadVersion_->get());
    // Saving the loaded header gives back ffmpeg's bytes.
    Bytes saved(m_headBytes + 8, 0);
    MemoryStorage memory(saved.data(), saved.size());
    ASSERT_TRUE(doc.save(memory));
    EXPECT_EQ(memory.absolutePosition(), m_headBytes);
    EXPECT_TRUE(std::equal(saved.begin(), saved.begin() + long(m_headBytes), m_bytes.begin()));

    const std::set<uint64> known = {kSeekHead, kInfo, kTracks, kCluster, kCues, kTags, IPayload::kIdVoid};
    for (const Child& c : m_top)
        EXPECT_EQ(known.count(c.id), 1u) << std::hex << c.id;

    // Tracks / TrackEntry / CodecID through our elements.
    const Child* tracks = Find(m_top, kTracks);
    ASSERT_NE(tracks, nullptr);
    Children entries, fields;
    ASSERT_TRUE(ReadChildren(storage, tracks->payload, tracks->end(), entries));
    const Child* entry = Find(entries, kTrackEntry);
    ASSERT_NE(entry, nullptr);
    ASSERT_TRUE(ReadChildren(storage, entry->payload, entry->end(), fields));
    const Child* codec = Find(fields, TCodecId::kId);
    ASSERT_NE(codec, nullptr);
    TCodecId codecId;
    storage.seekTo(codec->start);
    EXPECT_EQ(codecId.load(storage, codec->end() - codec->start), codec->end() - codec->start);
    // Depending on its version ffmpeg stores FFV1 natively or wrapped in a VfW header.
    EXPECT_TRUE(codecId->get() == "V_FFV1" || codecId->get() == "V_MS/VFW/FOURCC") << codecId->get();
    // Five frames, each block loaded without copying and read back through its receipt.
    int frames = 0;
    for (const Child& cluster : m_top) {
        Children blocks;
        if (cluster.id != kCluster)
            continue;
        ASSERT_TRUE(ReadChildren(storage, cluster.payload, cluster.end(), blocks));
        for (const Child& b : blocks) {
            frames += b.id == kBlockGroup || b.id == kSimpleBlock;
            if (b.id != kSimpleBlock)
                continue;
            TSimpleBlock block;
            storage.seekTo(b.start);
            ASSERT_EQ(block.load(storage, cluster.end() - b.start), b.end() - b.start);
            Bytes data;
            ASSERT_TRUE(block->get(data));
            EXPECT_EQ(data[0], 0x81);  // track number 1
            EXPECT_EQ(data, Bytes(m_bytes.begin() + long(b.payload), m_bytes.begin() + long(b.end())));
        }
    }
    EXPECT_EQ(frames, 5);
}

// ffmpeg puts a CRC-32 child first in its top-level elements; loading checks them.
TEST_F(Matroska, ChecksumsOfTopLevelElementsMatch)
{
    FileStorage storage(m_path, File::kReadOnly);
    int checked = 0;
    for (const Child& c : m_top) {
        std::unique_ptr<IElement> elt = c.id == kSeekHead ? Opaque<kSeekHead>()
                                        : c.id == kInfo   ? Opaque<kInfo>()
                                        : c.id == kTracks ? Opaque<kTracks>()
                                        : c.id == kTags   ? Opaque<kTags>()
                                        : c.id == kCues   ? Opaque<kCues>()
                                                          : Opaque<kCluster>();
        if (m_bytes[c.payload] != kIdCrc32 || elt->getId() != c.id)
            continue;
        SCOPED_TRACE(testing::Message() << std::hex << c.id);
        storage.seekTo(c.start);
        testing::internal::CaptureStderr();
        ASSERT_EQ(elt->load(storage, c.end() - c.start), c.end() - c.start);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        const uint8* stored = m_bytes.data() + c.payload + 2;
        EXPECT_EQ(elt->loadedChecksum(),
                  uint32(stored[0] | stored[1] << 8 | stored[2] << 16 | uint32(stored[3]) << 24));
        EXPECT_EQ(elt->computedChecksum(), elt->loadedChecksum());
        ++checked;
    }
    EXPECT_GE(checked, 3);
}

// Every truncation and random damage: the header loads or not, the walk refuses, and nothing reads or moves past the end of the file.
TEST_F(Matroska, TruncatedAndDamagedFilesStayInside)
{
    for (size_t n = 0; n < m_bytes.size(); n += n < 200 ? 1 : 61) {
        FileStorage storage(m_dir.Write("cut.mkv", Bytes(m_bytes.begin(), m_bytes.begin() + long(n))), File::kReadOnly);
        EbmlDoc doc("", 0, 0);
        const uint64 loaded = doc.load(storage, n, nullptr);
        ASSERT_LE(storage.absolutePosition(), n) << n;
        if (n < m_headBytes)
            continue;
        ASSERT_EQ(loaded, m_headBytes) << n;
        Children top;
        EXPECT_FALSE(ReadChildren(storage, m_segment, m_bytes.size(), top)) << n;
    }

    std::mt19937 rng(7);
    for (int round = 0; round < 100; ++round) {
        Bytes damaged = m_bytes;
        for (int k = 0; k < 4; ++k)
            damaged[rng() % std::min<size_t>(damaged.size(), 400)] = uint8(rng());
        FileStorage storage(m_dir.Write("damaged.mkv", damaged), File::kReadOnly);
        EbmlDoc doc("", 0, 0);
        doc.load(storage, damaged.size(), nullptr);
        Children children, inner;
        ReadChildren(storage, storage.absolutePosition(), damaged.size(), children);
        for (const Child& c : children) {
            if ((c.id != kCluster && c.id != kTracks) || !ReadChildren(storage, c.payload, c.end(), inner))
                continue;
            for (const Child& b : inner) {
                TSimpleBlock simpleBlock;
                storage.seekTo(b.start);
                simpleBlock.load(storage, c.end() - b.start);
                ASSERT_LE(storage.absolutePosition(), damaged.size()) << round;
            }
        }
        ASSERT_EQ(storage.file().size(), damaged.size()) << round;
    }
}
