// Encode sessions that lose nothing: the real H.264 compressor behind a fault
// switch crashes or hangs once at a chosen picture (or while flushing), or the
// service is killed from outside; the output must hold every picture, decode
// with ffmpeg without a complaint and stay close to the source, also when the
// pictures go in two steps and the service dies between them. A picture that
// fails every time ends the session with an error naming it.
#include <gtest/gtest.h>

#include <signal.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "common/Picture.h"
#include "common/Process.h"
#include "common/Scratch.h"
#include "evc/EncodeSession.h"
#include "media/ZKImageLayout.h"
#include "plugins/bundles/TestPluginCodes.h"

using namespace evctest;

namespace {

constexpr uint32_t kWidth = 128;
constexpr uint32_t kHeight = 96;
constexpr size_t kPictureBytes = kWidth * kHeight * 3 / 2;

// A smooth moving picture, so the quality bar means something.
std::vector<uint8_t> Picture(uint64_t n)
{
    std::vector<uint8_t> bytes(kPictureBytes);
    for (uint32_t y = 0; y < kHeight; ++y)
        for (uint32_t x = 0; x < kWidth; ++x)
            bytes[y * kWidth + x] = static_cast<uint8_t>(x + 2 * y + 3 * n);
    for (size_t i = kWidth * kHeight; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(128 + (i % 32) + n);
    return bytes;
}

ZKEncImage_t Record(std::vector<uint8_t>* bytes, uint64_t n)
{
    ZKEncImage_t record{};
    const uint32_t status =
        InitZKImage(&record.image, bytes != nullptr ? kPictureBytes : 0, bytes != nullptr ? bytes->data() : nullptr,
                    eColorFormatYUV420Planar, false, kWidth, kHeight, false, n, 25);
    EXPECT_EQ(status, kZKNoErr);
    return record;
}

// The picture with its planes apart, each with padded rows, in one buffer
// (as a decoder lays out a frame), described by record.
std::shared_ptr<std::vector<uint8_t>> Scattered(const std::vector<uint8_t>& picture, ZKEncImage_t& record)
{
    const uint32_t rows[3] = {kWidth + 32, kWidth / 2 + 16, kWidth / 2 + 16};
    const uint32_t heights[3] = {kHeight, kHeight / 2, kHeight / 2};
    auto bytes = std::make_shared<std::vector<uint8_t>>(3 * kPictureBytes);
    const uint8_t* from = picture.data();
    size_t at = 0;
    for (int p = 0; p < 3; ++p) {
        const uint32_t width = p == 0 ? kWidth : kWidth / 2;
        record.image.planes[p] = bytes->data() + at;
        record.image.rowBytes[p] = rows[p];
        for (uint32_t y = 0; y < heights[p]; ++y, from += width)
            std::copy(from, from + width, bytes->data() + at + y * rows[p]);
        at += size_t{rows[p]} * heights[p] + 100;
    }
    return bytes;
}

class EncodeSessionTest : public ScratchTest {
protected:
    evc::SessionOptions Options()
    {
        evc::SessionOptions options;
        options.client.servicePath = BuildPath("bin/evc-service");
        options.client.applicationFolder = BuildPath();
        options.client.largestFrameBytes = kPictureBytes;
        options.client.commandTimeout = std::chrono::milliseconds(1500);
        return options;
    }
    static std::string Preset(const std::string& fault)
    {
        return "<Output><VideoCompressor Manufacture4cc=\"" + std::to_string(kTestManufacturer) + "\" Codec4cc=\"" +
               std::to_string(kFaultyH264Codec) + "\"><NonStandardSettings><Fault Type=\"eEnum\" Value=\"" + fault +
               "\"/><Preset Type=\"eEnum\" Value=\"veryfast\"/><CRF Type=\"eDouble\" Value=\"18\"/>"
               "<Threads Type=\"eInt\" Value=\"1\"/></NonStandardSettings></VideoCompressor></Output>";
    }
    // Encodes count pictures; kills the service from outside before picture
    // killAt when it is not negative. Returns the Annex-B stream.
    // With byOwner the session keeps each picture through its owner instead
    // of a copy; the owners are watched in m_owners. In twoSteps each picture
    // is posted and then collected, and the kill comes between the two.
    // With scattered the owned pictures have their planes apart.
    std::string Encode(evc::EncodeSession& session, uint64_t count, int64_t killAt = -1, bool byOwner = false,
                       bool twoSteps = false, bool scattered = false)
    {
        std::vector<evc::EncodedFrame> out;
        for (uint64_t n = 0; n < count; ++n) {
            // Pauses before two pictures: the standby is ready and taken over
            // at the first, and due for its first ping at the second.
            if (m_pauseAt >= 0 && (static_cast<int64_t>(n) == m_pauseAt || static_cast<int64_t>(n) == m_pauseAt + 1))
                std::this_thread::sleep_for(std::chrono::milliseconds(300));
            if (static_cast<int64_t>(n) == killAt && !twoSteps)
                kill(session.servicePid(), SIGKILL);
            auto bytes = std::make_shared<std::vector<uint8_t>>(Picture(n));
            if (twoSteps) {
                ZKEncImage_t record = Record(bytes.get(), n);
                if (scattered)
                    bytes = Scattered(*bytes, record);
                m_owners.push_back(bytes);
                session.Post(record, std::move(bytes), n == 0, n + 1 == count);
                if (static_cast<int64_t>(n) == killAt)
                    kill(session.servicePid(), SIGKILL);
                session.Collect(out);
            } else if (byOwner) {
                m_owners.push_back(bytes);
                const ZKEncImage_t record = Record(bytes.get(), n);
                session.Encode(record, std::move(bytes), n == 0, n + 1 == count, out);
            } else {
                session.Encode(Record(bytes.get(), n), n == 0, n + 1 == count, out);
            }
        }
        session.Close();
        std::string stream;
        for (const evc::EncodedFrame& frame : out) {
            for (const evc::Packet& header : frame.descriptors)
                stream.append(header.data.begin(), header.data.end());
            for (const evc::Packet& picture : frame.packets) {
                stream.append(picture.data.begin(), picture.data.end());
                ++m_pictures;
            }
        }
        return stream;
    }
    size_t m_pictures = 0;
    int64_t m_pauseAt = -1;
    std::vector<std::weak_ptr<std::vector<uint8_t>>> m_owners;
};

TEST_F(EncodeSessionTest, OneFailureCostsNoPictureAndTheOutputDecodes)
{
    struct Row {
        const char* name;
        const char* fault;  // "ONCE" stands for the marker file
        int64_t killAt;
        evc::ServiceError::Kind kind;
        bool byOwner = false;
        bool cold = false;  // no standby yet: the recovery starts a service
        bool twoSteps = false;
        bool pinged = false;     // the standby lives long enough to be pinged
        bool scattered = false;  // planes apart, copied into the segment
    };
    const Row rows[] = {
        {"crash at picture 7", "CompressFrame:segv:t=7:once=ONCE", -1, evc::ServiceError::Kind::Crashed},
        {"hang at picture 12", "CompressFrame:hang:t=12:once=ONCE", -1, evc::ServiceError::Kind::TimedOut},
        {"crash while flushing", "CompressFrame:segv:last:once=ONCE", -1, evc::ServiceError::Kind::Crashed},
        {"killed from outside at picture 20", "", 20, evc::ServiceError::Kind::Crashed},
        {"killed at picture 20, the standby crashed by its ping", "IsLastPassEncodingReady:segv", 20,
         evc::ServiceError::Kind::Crashed, false, false, false, true},
        {"crash at picture 7, pictures kept by their owners", "CompressFrame:segv:t=7:once=ONCE", -1,
         evc::ServiceError::Kind::Crashed, true},
        {"crash at picture 7 before the standby is due", "CompressFrame:segv:t=7:once=ONCE", -1,
         evc::ServiceError::Kind::Crashed, false, true},
        {"crash at picture 7, two steps", "CompressFrame:segv:t=7:once=ONCE", -1, evc::ServiceError::Kind::Crashed,
         true, false, true},
        {"killed between post and collect of picture 20", "", 20, evc::ServiceError::Kind::Crashed, true, false, true},
        {"crash at picture 7, planes apart", "CompressFrame:segv:t=7:once=ONCE", -1, evc::ServiceError::Kind::Crashed,
         true, false, true, false, true},
    };
    constexpr uint64_t kCount = 40;
    const std::string marker = Path("fired");
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::string fault = row.fault;
        if (fault.find("ONCE") != std::string::npos)
            fault.replace(fault.find("ONCE"), 4, marker);
        std::vector<evc::RecoveryEvent> seen;
        evc::SessionOptions options = Options();
        options.onRecovery = [&](const evc::RecoveryEvent& event) { seen.push_back(event); };
        if (row.cold)
            options.standbyDelay = std::chrono::hours(1);
        m_pictures = 0;
        m_pauseAt = row.pinged ? 10 : -1;
        m_owners.clear();
        std::string stream;
        {
            evc::EncodeSession session(options, Preset(fault), Record(nullptr, 0));
            stream = Encode(session, kCount, row.killAt, row.byOwner, row.twoSteps, row.scattered);
            EXPECT_EQ(session.framesPending(), 0u);
            // Every picture's packets are out: no owner is held any more.
            for (const auto& owner : m_owners)
                EXPECT_TRUE(owner.expired());
            // The standby took over unless none was due yet; the re-sent
            // pictures' delivery was noted once they were all out.
            ASSERT_EQ(session.recoveries().size(), 1u);
            EXPECT_EQ(session.recoveries()[0].fromStandby, !row.cold);
            EXPECT_GE(session.recoveries()[0].deliveryTime, session.recoveries()[0].recoveryTime);
        }
        std::filesystem::remove(marker);
        ASSERT_EQ(seen.size(), 1u);
        EXPECT_EQ(seen[0].fault, row.kind);
        ASSERT_FALSE(seen[0].resentFrames.empty());
        EXPECT_LE(seen[0].resentFrames.front(), seen[0].failedFrame);
        EXPECT_EQ(seen[0].resentFrames.back(), seen[0].failedFrame);
        EXPECT_EQ(m_pictures, kCount);

        // Decoded through a pipe, so nothing is left behind.
        const std::string file = Path("out.h264");
        std::ofstream(file, std::ios::binary) << stream;
        const CommandResult decode = RunCommand("ffmpeg -v error -i '" + file + "' -f rawvideo -pix_fmt yuv420p -");
        std::filesystem::remove(file);
        EXPECT_EQ(decode.status, 0);
        ASSERT_EQ(decode.output.size(), kCount * kPictureBytes) << "every picture, and not a word from ffmpeg";
        Bytes source;
        for (uint64_t n = 0; n < kCount; ++n)
            source = Cat({source, Picture(n)});
        EXPECT_GT(Psnr(source, Bytes(decode.output.begin(), decode.output.end())), 35.0);
    }
}

TEST_F(EncodeSessionTest, TwoStepsAllowNothingBetweenThemAndNoCollectWithoutAPost)
{
    evc::EncodeSession session(Options(), Preset(""), Record(nullptr, 0));
    std::vector<evc::EncodedFrame> out;
    EXPECT_THROW(session.Collect(out), evc::UsageError);
    auto bytes = std::make_shared<std::vector<uint8_t>>(Picture(0));
    const ZKEncImage_t record = Record(bytes.get(), 0);
    session.Post(record, bytes, true, false);
    EXPECT_THROW(session.Post(record, bytes, false, true), evc::UsageError);
    EXPECT_THROW(session.Encode(record, false, true, out), evc::UsageError);
    EXPECT_THROW(session.Finish(out), evc::UsageError);
    EXPECT_THROW(session.Close(), evc::UsageError);
    session.Collect(out);
    EXPECT_THROW(session.Collect(out), evc::UsageError) << "collected once";
    session.Finish(out);
    session.Close();
    EXPECT_EQ(session.framesSent(), 1u);
    EXPECT_EQ(session.framesPending(), 0u);
}

TEST_F(EncodeSessionTest, APictureThatFailsEveryTimeIsNamedAfterTheLimit)
{
    for (const unsigned restarts : {3u, 0u}) {
        SCOPED_TRACE(restarts);
        evc::SessionOptions options = Options();
        options.maxRestarts = restarts;
        evc::EncodeSession session(options, Preset("CompressFrame:segv:t=9"), Record(nullptr, 0));
        try {
            Encode(session, 20);
            ADD_FAILURE() << "no error";
        } catch (const evc::RecoveryError& e) {
            EXPECT_EQ(restarts, 3u);
            EXPECT_EQ(e.frameIndex(), 9u);
            EXPECT_EQ(e.restarts(), 3u);
            EXPECT_EQ(e.kind(), evc::ServiceError::Kind::Crashed);
            EXPECT_NE(std::string(e.what()).find("frame 9"), std::string::npos) << e.what();
        } catch (const evc::ServiceError& e) {
            // No restarts: the service's own error, as without a session.
            EXPECT_EQ(restarts, 0u);
            EXPECT_EQ(e.signal(), SIGSEGV);
        }
        EXPECT_TRUE(session.recoveries().empty());
    }
}

}  // namespace
