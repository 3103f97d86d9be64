#include "TransportTestUtil.h"

#include "transport/TZKEncAudio.h"
#include "transport/TZKEncImage.h"
#include "transport/TZKIntermediateSegment.h"
#include "transport/TZKSegmentHeader.h"
#include "transport/TZKSegmentWriter.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

using namespace transport_test;

namespace {

// A private temporary folder, removed with everything in it after each test.
class SegmentFileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        const char* tmp = std::getenv("TMPDIR");
        std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/evc-segment-XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        ASSERT_NE(mkdtemp(buffer.data()), nullptr);
        m_dir = buffer.data();
    }
    void TearDown() override
    {
        for (const std::string& file : m_files)
            std::remove(file.c_str());
        if (!m_dir.empty())
            rmdir(m_dir.c_str());
    }
    std::string path(const std::string& name)
    {
        m_files.push_back(m_dir + "/" + name);
        return m_files.back();
    }
    static std::vector<uint8_t> contents(const std::string& file)
    {
        std::ifstream in(file, std::ios::binary);
        return std::vector<uint8_t>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }
    static void writeFile(const std::string& file, const std::vector<uint8_t>& bytes)
    {
        std::ofstream out(file, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    }

    std::string m_dir;
    std::vector<std::string> m_files;
};

ZKEncImage_t imageRecord(std::vector<uint8_t>& pixels, uint64_t time)
{
    ZKEncImage_t record;
    std::memset(&record, 0, sizeof record);
    record.image.colorFormat = eColorFormatYUV420Planar;
    record.image.width = 8;
    record.image.height = 4;
    record.image.rowBytes[0] = 8;
    record.image.rowBytes[1] = record.image.rowBytes[2] = 4;
    record.image.planes[0] = pixels.data();
    record.image.planes[1] = pixels.data() + 32;
    record.image.planes[2] = pixels.data() + 40;
    record.image.dataSize = static_cast<uint32_t>(pixels.size());
    record.image.time = time;
    record.image.timeScale = 25;
    return record;
}

ZKEncAudio_t audioRecord(std::vector<uint8_t>& samples, uint64_t time)
{
    ZKEncAudio_t record;
    std::memset(&record, 0, sizeof record);
    record.audio.time = time;
    record.audio.timeScale = 48000;
    record.audio.duration = 1920;
    record.audio.format = eAudioFormat16Bit;
    record.audio.channels = 1;
    record.audio.sampleSize = 16;
    record.audio.sampleRate = 48000;
    record.audio.numberSamples = 1920;
    record.audio.dataSize = static_cast<uint32_t>(samples.size());
    record.audio.data = samples.data();
    return record;
}

TEST_F(SegmentFileTest, WrittenFramesReadBackWithProgressRewindAndEnd)
{
    const std::string file = path("segment.seg");
    std::vector<uint8_t> pixels(48);
    std::vector<uint8_t> samples(3840);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<uint8_t>(i);
    TPacketBundlePtr packets(bundle(0, 50, 25, 1, {}, {packet(1, 0, 50, 25, 1, {}, {0xE1})}));

    {
        TZKSegmentWriter writer;
        ASSERT_TRUE(writer.open(file, CATime(50, 25)));  // starts at 2 s
        for (uint64_t n = 0; n < 3; ++n) {
            pixels[0] = static_cast<uint8_t>(n);
            ZKEncImage_t image = imageRecord(pixels, 50 + n);
            image.image.dataPackets = n == 1 ? packets.get() : nullptr;
            ASSERT_TRUE(writer.writeImage(&image, CATime(1, 25)));
            ZKEncAudio_t audio = audioRecord(samples, 96000 + 1920 * n);
            ASSERT_TRUE(writer.writeAudio(&audio));
        }
        EXPECT_EQ(writer.getDuration(), CATime(3, 25)) << "three frames of 1/25 s";
        ASSERT_TRUE(writer.close());
    }

    const std::vector<uint8_t> bytes = contents(file);
    ASSERT_GT(bytes.size(), 24u);
    uint8_t head[TZKSegmentHeader::kSize];
    std::memcpy(head, bytes.data(), sizeof head);
    const TZKSegmentHeader header = TZKSegmentHeader::decode(head);
    EXPECT_EQ(header.start, 50u);
    EXPECT_EQ(header.duration, 3u);
    EXPECT_EQ(header.timeScale, 25u);
    EXPECT_EQ(bytes[24], 0x91) << "the first element follows the header";

    TZKIntermediateSegment segment;
    EXPECT_TRUE(segment.isEOF()) << "nothing open";
    ASSERT_TRUE(segment.open(file));
    EXPECT_TRUE(segment.isOpen());
    EXPECT_EQ(segment.getStart(), CATime(50, 25));
    EXPECT_EQ(segment.getDuration(), CATime(3, 25));
    EXPECT_EQ(segment.getPayloadSize(), bytes.size() - 24);
    EXPECT_FALSE(segment.isEOF());
    EXPECT_DOUBLE_EQ(segment.getProgress(), 0.0);

    double lastProgress = 0.0;
    for (int n = 0; n < 6; ++n) {
        std::unique_ptr<Ebml::IElement> element(segment.readNext());
        ASSERT_NE(element, nullptr) << n;
        EXPECT_GT(segment.getProgress(), lastProgress);
        lastProgress = segment.getProgress();
        if (n % 2 == 0) {
            ASSERT_EQ(element->getId(), TZKEncImageElt::kId);
            TZKImageFramePtr frame = static_cast<TZKEncImageElt&>(*element)->exportFrame(CATime(0, 0));
            ASSERT_TRUE(frame);
            const ZKEncImage_t record = frame->GetZKEncImage();
            EXPECT_EQ(record.image.time, 50u + n / 2);
            EXPECT_EQ(record.image.planes[0][0], n / 2);
            EXPECT_EQ(record.image.dataPackets != nullptr, n == 2);
        } else {
            ASSERT_EQ(element->getId(), TZKEncAudioElt::kId);
            TZKAudioFramePtr frame = static_cast<TZKEncAudioElt&>(*element)->exportFrame(CATime(0, 0));
            ASSERT_TRUE(frame);
            EXPECT_EQ(frame->GetTime(), CATime(96000 + 1920 * (n / 2), 48000));
            EXPECT_EQ(frame->GetBuffer()->GetData()[100], 100);
        }
    }
    EXPECT_TRUE(segment.isEOF());
    EXPECT_DOUBLE_EQ(segment.getProgress(), 1.0);
    EXPECT_EQ(segment.readNext(), nullptr);

    segment.rewind();
    EXPECT_FALSE(segment.isEOF());
    EXPECT_DOUBLE_EQ(segment.getProgress(), 0.0);
    std::unique_ptr<Ebml::IElement> first(segment.readNext());
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->getId(), TZKEncImageElt::kId);

    segment.close();
    EXPECT_FALSE(segment.isOpen());
    EXPECT_TRUE(segment.isEOF());
    EXPECT_EQ(segment.getPayloadSize(), 0u);
}

TEST_F(SegmentFileTest, EmptyShortMissingAndDamagedFiles)
{
    TZKIntermediateSegment segment;
    EXPECT_FALSE(segment.open(m_dir + "/missing.seg"));
    EXPECT_FALSE(segment.isOpen());

    const std::string empty = path("empty.seg");
    {
        TZKSegmentWriter writer;
        ASSERT_TRUE(writer.open(empty, CATime(0, 1000)));
    }  // the destructor completes the header
    ASSERT_EQ(contents(empty).size(), 24u);
    ASSERT_TRUE(segment.open(empty));
    EXPECT_EQ(segment.getPayloadSize(), 0u);
    EXPECT_EQ(segment.readNext(), nullptr);
    EXPECT_TRUE(segment.isEOF());
    EXPECT_DOUBLE_EQ(segment.getProgress(), 1.0);

    const std::string shortFile = path("short.seg");
    writeFile(shortFile, std::vector<uint8_t>(23, 0));
    EXPECT_FALSE(segment.open(shortFile));
    EXPECT_FALSE(segment.isOpen());

    // A header followed by something that is not a frame element.
    const std::string damaged = path("damaged.seg");
    std::vector<uint8_t> bytes(24, 0);
    bytes[16] = 1;
    bytes.insert(bytes.end(), {0x1A, 0x45, 0xDF, 0xA3, 0x80});
    writeFile(damaged, bytes);
    ASSERT_TRUE(segment.open(damaged));
    EXPECT_EQ(segment.readNext(), nullptr);
    EXPECT_FALSE(segment.isEOF()) << "the reader does not move over what it cannot read";
    EXPECT_DOUBLE_EQ(segment.getProgress(), 0.0);

    // An element that claims more bytes than the file holds is refused.
    const std::string truncated = path("truncated.seg");
    bytes.resize(24);
    bytes.insert(bytes.end(), {0x91, 0x40, 0xFF, 0x85, 0x40, 0x90, 0, 0, 0});
    writeFile(truncated, bytes);
    ASSERT_TRUE(segment.open(truncated));
    EXPECT_EQ(segment.readNext(), nullptr);
}

}  // namespace
