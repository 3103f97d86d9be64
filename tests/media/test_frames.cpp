// Image and audio frames over pooled buffers: records laid out on the buffer, records from
// elsewhere accepted only inside it, imports, and the bundles a frame owns.
#include "media/CAAudioFrame.h"
#include "media/CAImageFrame.h"
#include "media/ZKImageLayout.h"
#include "evc/ZKResult.h"

#include "MediaTestSupport.h"

#include <cstring>
#include <vector>

namespace {

class FrameTest : public MediaTest {
protected:
    // A frame of the given geometry laid out over a pooled buffer.
    static void Allocate(CAImageFrame& frame, EColorFormats format, uint32_t width, uint32_t height)
    {
        frame.SetColorFormat(format);
        frame.SetWidth(width);
        frame.SetHeight(height);
        ASSERT_NE(frame.GetZKImage().planes[0], nullptr);
    }
};

}  // namespace

TEST_F(FrameTest, RecordIsLaidOutOnABufferKeptWhileItFits)
{
    CAImageFrame frame;
    EXPECT_EQ(frame.GetZKEncImage().image.planes[0], nullptr);  // a new frame: 4:2:0, 0 x 0, no buffer
    EXPECT_EQ(frame.GetBuffer(), nullptr);
    frame.SetColorFormat(eColorFormatARGB32);
    frame.SetWidth(1920);
    frame.SetHeight(1080);
    frame.SetTime(CATime(1001, 30000));
    const ZKEncImage_t first = frame.GetZKEncImage();
    const CABuffer* buffer = frame.GetBuffer();
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(first.image.dataSize, 8294400u);
    EXPECT_EQ(first.image.planes[0], buffer->GetData());
    EXPECT_EQ(first.image.rowBytes[0], 7680u);

    frame.SetHeight(720);  // smaller still fits
    frame.GetZKEncImage();
    EXPECT_EQ(frame.GetBuffer(), buffer);
    frame.SetHeight(2160);  // larger replaces the buffer; the old one goes back
    EXPECT_EQ(frame.GetZKEncImage().image.dataSize, 1920u * 4 * 2160);
    EXPECT_NE(frame.GetBuffer(), buffer);
    EXPECT_TRUE(buffer->IsAvailable());
    EXPECT_EQ(m_pool->GetUsedBufferCount(), 1u);

    // No layout for the format, or a size that would wrap: an all-zero record, the buffer kept.
    buffer = frame.GetBuffer();
    frame.SetColorFormat(eColorFormatRGB16A);  // a size of 2 bytes per pixel but no layout
    frame.SetRowBytes(0);
    frame.SetWidth(4000);
    EXPECT_EQ(evctest::BytesOf(frame.GetZKEncImage()), evctest::Bytes(sizeof(ZKEncImage_t), 0));
    frame.SetColorFormat(eColorFormatARGB32);
    frame.SetWidth(65536);
    frame.SetHeight(65536);
    EXPECT_EQ(frame.GetZKEncImage().image.planes[0], nullptr);
    EXPECT_EQ(frame.GetBuffer(), buffer);
}

TEST_F(FrameTest, RecordsFromElsewhereAreTakenOnlyInsideTheBuffer)
{
    CAImageFrame argb, yuv;
    Allocate(argb, eColorFormatARGB32, 100, 10);      // 4000 bytes
    Allocate(yuv, eColorFormatYUV420Planar, 64, 64);  // 6144 bytes, row bytes 64 + 32
    const ZKEncImage_t bases[] = {argb.GetZKEncImage(), yuv.GetZKEncImage()};
    EXPECT_EQ(argb.SetZKImage(nullptr), kZKErrBadArgument);
    EXPECT_EQ(yuv.SetZKEncImage(nullptr), kZKErrBadArgument);
    const struct {
        const char* name;
        bool encoded;
        long shift;
        uint32_t height, rowBytes;  // row bytes 0: as laid out
        bool ok;
    } rows[] = {
        {"exact fit", false, 0, 10, 0, true},
        {"one row shorter, shifted by a row", false, 400, 9, 0, true},
        {"shifted by one byte", false, 1, 10, 0, false},
        {"before the buffer", false, -4, 1, 0, false},
        {"padded rows, the last one unpadded", false, 0, 8, 480, true},
        {"padded rows, one too many", false, 0, 9, 480, false},
        // An encoded record may run past the end by half its row bytes: (64 + 32) / 2 = 48.
        {"encoded, larger than the buffer", true, 0, 66, 0, false},
        {"encoded, shifted within the allowance", true, 48, 64, 0, true},
        {"encoded, shifted past the allowance", true, 49, 64, 0, false},
        {"encoded, before the buffer", true, -1, 64, 0, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        CAImageFrame& frame = row.encoded ? yuv : argb;
        ZKEncImage_t record = bases[row.encoded];
        record.image.planes[0] += row.shift;
        record.image.height = row.height;
        record.image.rowBytes[0] = row.rowBytes ? row.rowBytes : record.image.rowBytes[0];
        record.image.time = 33;
        record.image.timeScale = 600;
        EXPECT_EQ(row.encoded ? frame.SetZKEncImage(&record) : frame.SetZKImage(&record.image),
                  row.ok ? kZKNoErr : kZKErrBadArgument);
        EXPECT_EQ(frame.GetTime() == CATime(33, 600), row.ok);
        ASSERT_EQ(row.encoded ? yuv.SetZKEncImage(&bases[1]) : argb.SetZKImage(&bases[0].image), kZKNoErr);
    }
    // Contained: the first plane within the buffer, its end included.
    ZKImage_t record = bases[0].image;
    uint8_t* start = record.planes[0];
    for (const auto& at :
         {std::make_pair(start, true), std::make_pair(start + 4000, true), std::make_pair(start + 4001, false),
          std::make_pair(start - 1, false), std::make_pair(static_cast<uint8_t*>(nullptr), false)}) {
        record.planes[0] = at.first;
        EXPECT_EQ(argb.ContainsZKImage(record), at.second) << at.first - start;
    }
}

TEST_F(FrameTest, ImportTakesANewBufferAndMovesThePlanesOntoIt)
{
    ZKEncImage_t source{};
    uint8_t foreign[16];
    ASSERT_EQ(
        InitZKImage(&source.image, 3110400, foreign, eColorFormatYUV420Planar, false, 0, 1920, 1080, false, 1, 25),
        kZKNoErr);
    source.image.dataPackets = new TestPacketBundle(1);
    source.descriptors = new TestPacketBundle(2);
    CAImageFrame frame;
    EXPECT_EQ(frame.ImportEncImage(nullptr), kZKErrBadArgument);
    ASSERT_EQ(frame.ImportEncImage(&source), kZKNoErr);
    const CABuffer* buffer = frame.GetBuffer();
    ASSERT_NE(buffer, nullptr);
    const ZKEncImage_t record = frame.GetZKEncImage();
    uint8_t* b = buffer->GetData();
    EXPECT_EQ(std::vector<uint8_t*>(record.image.planes, record.image.planes + 4),
              (std::vector<uint8_t*>{b, b + 2073600, b + 2073600 + 518400, nullptr}));
    EXPECT_EQ(record.image.dataPackets, source.image.dataPackets);
    IPacketBundle* out = nullptr;  // taking one out moves ownership to the caller
    frame.ExchangeDataPacketsWith(out);
    ASSERT_EQ(out, source.image.dataPackets);
    EXPECT_EQ(frame.GetZKEncImage().image.dataPackets, nullptr);
    out->destroy();

    ZKEncImage_t argb{};
    ASSERT_EQ(InitZKImage(&argb.image, 0, foreign, eColorFormatARGB32, false, 0, 8, 8, false),
              kZKNoErr);  // no data: no buffer, and the sender's plane is not kept
    ASSERT_EQ(frame.ImportEncImage(&argb), kZKNoErr);
    EXPECT_EQ(frame.GetBuffer(), nullptr);
    EXPECT_TRUE(buffer->IsAvailable());

    // A data size shorter than the planes is refused and changes nothing.
    Allocate(frame, eColorFormatARGB32, 8, 8);
    ASSERT_EQ(InitZKImage(&argb.image, 100, nullptr, eColorFormatARGB32, false, 0, 64, 64, false), kZKNoErr);
    buffer = frame.GetBuffer();
    EXPECT_EQ(frame.ImportEncImage(&argb), kZKErrFormatMismatch);
    EXPECT_EQ(frame.GetBuffer(), buffer);
    EXPECT_EQ(frame.GetWidth(), 8u);
}

TEST_F(FrameTest, AudioBuffersImportsAndBundles)
{
    CAAudioFrame frame;
    frame.SetFormat(eAudioFormat16Bit);
    frame.SetNumberSamples(1024);  // 16-bit stereo
    frame.SetTime(CATime(96000, 48000));
    frame.SetDuration(CATime(1, 50));
    const ZKAudio_t laidOut = frame.GetZKAudio();  // lays the record out on a buffer
    const CABuffer* buffer = frame.GetBuffer();
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(buffer->GetSize(), 4096u);
    EXPECT_EQ(laidOut.data, buffer->GetData());
    EXPECT_EQ(laidOut.duration, 960u);  // 20 ms at 48 kHz
    frame.SetNumberSamples(512);
    EXPECT_EQ(frame.GetZKAudio().dataSize, 2048u);
    EXPECT_EQ(frame.GetBuffer(), buffer);

    uint8_t foreign[8];
    ZKEncAudio_t record{};
    record.audio = {100, 1000, 21, eAudioFormat16Bit, 1, 0, 48000, 1000, 2000, 0, foreign};
    record.dataPackets = new TestPacketBundle(3);
    EXPECT_EQ(frame.ImportEncAudio(nullptr), kZKErrBadArgument);
    ASSERT_EQ(frame.ImportEncAudio(&record), kZKNoErr);
    ASSERT_NE(frame.GetBuffer(), nullptr);
    EXPECT_EQ(frame.GetBuffer()->GetSize(), 2000u);
    EXPECT_EQ(frame.GetDuration(), CATime(21, 1000));
    ZKEncAudio_t after = frame.GetZKEncAudio();
    EXPECT_EQ(after.audio.data, frame.GetBuffer()->GetData());
    EXPECT_EQ(after.dataPackets, record.dataPackets);

    after.descriptors = new TestPacketBundle(1);
    ASSERT_EQ(frame.SetZKEncAudio(&after), kZKNoErr);
    ZKEncAudio_t bad = after;
    bad.audio.data = nullptr;  // a refused record leaves the bundles alone
    bad.descriptors = nullptr;
    EXPECT_EQ(frame.SetZKEncAudio(&bad), kZKErrBadArgument);
    EXPECT_EQ(frame.GetZKEncAudio().descriptors, after.descriptors);

    record.audio.dataSize = 0;  // no data: no buffer, and the sender's pointer is not kept
    record.dataPackets = nullptr;
    ASSERT_EQ(frame.ImportEncAudio(&record), kZKNoErr);
    EXPECT_EQ(frame.GetBuffer(), nullptr);
}
