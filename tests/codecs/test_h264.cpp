// The H.264 bundle on its own: its side of the plug-in contract (settings, the checks Begin and
// CompressFrame make, headers and output bundles), and streams checked by
// ffprobe and ffmpeg: times, the flush of delayed pictures, lossless round trips of padded and
// bottom-up input (the bit rate is the evc-encode tests').
#include "PluginFixture.h"
#include "common/Picture.h"
#include "common/Scratch.h"
#include "evc/H264Codec.h"
#include "evc/VideoCompressorPlugin.h"
#include "evc/ZKResult.h"

#include <algorithm>
#include <functional>
#include <set>

using namespace evctest;
namespace codes = evc::h264;

namespace {

using CompressorPtr = std::unique_ptr<IVideoCompressor>;

template <class Setting, class Value>
void Set(IVideoCompressor& compressor, const char* name, Value value)
{
    for (ISettingArray* array : {compressor.GetStandardSettings(), compressor.GetNonStandardSettings()})
        for (int32_t i = 0; i < array->GetCount(); ++i)
            if (std::string(array->GetSetting(i)->GetName()) == name)
                return static_cast<Setting*>(array->GetSetting(i))->SetValue(value);
    ADD_FAILURE() << "no setting " << name;
}

// An 8-bit 4:2:0 picture, rows padded by the given bytes, optionally stored bottom-up.
TestPicture Picture(uint32_t width, uint32_t height, uint32_t padding = 0, bool bottomUp = false)
{
    return TestPicture(codes::kInputColorFormat, width, height, padding ? width + padding : 0, bottomUp);
}

struct Copy {
    uint32_t type;
    uint64_t time, timeBase, duration;
    Bytes data;
};

// Everything a run of CompressFrame calls handed out, copied.
struct Stream {
    std::vector<Copy> headers, pictures;
    std::vector<size_t> perCall;  // pictures in each output
    std::vector<uint32_t> statuses;
    Bytes input;  // the pictures handed in, as a decoder gives them back

    void Add(uint32_t status, const ZKEncImage_t& output)
    {
        statuses.push_back(status);
        const size_t before = pictures.size();
        for (auto [bundle, into] : {std::pair{output.descriptors, &headers}, {output.image.dataPackets, &pictures}})
            for (uint32_t i = 0; bundle != nullptr && i < bundle->size(); ++i) {
                const IPacket* p = bundle->get(i);
                into->push_back({p->getType(), p->getTime(), p->getTimeBase(), p->getDuration(),
                                 Bytes(p->getData(), p->getData() + p->getDataSize())});
            }
        perCall.push_back(pictures.size() - before);
    }
    // The headers, then the pictures: an Annex-B elementary stream.
    Bytes AnnexB() const
    {
        Bytes bytes;
        for (const auto* list : {&headers, &pictures})
            for (const Copy& packet : *list)
                bytes.insert(bytes.end(), packet.data.begin(), packet.data.end());
        return bytes;
    }
};

class H264 : public ScratchTest {
protected:
    void SetUp() override
    {
        ScratchTest::SetUp();
        m_bundle.reset(new TLoadedCompressor(codes::kManufacturer, codes::kCodec));
        ASSERT_NE(m_bundle->get(), nullptr);
    }
    void TearDown() override
    {
        m_bundle.reset();
        std::remove(Path("stream.h264").c_str());
        std::remove(Path("decoded.yuv").c_str());
        ScratchTest::TearDown();
    }
    CompressorPtr Make() { return CompressorPtr(m_bundle->get()->CreateInstance()); }
    // Frames 0 .. count-1, key pictures forced at keys; the last frame carries the last-frame flag
    // or, with flushWithNull, a further call with no input does.
    Stream Encode(IVideoCompressor& compressor, TestPicture& picture, int count, uint64_t step = 1,
                  const std::set<int>& keys = {}, bool flushWithNull = false)
    {
        Stream stream;
        for (int n = 0; n < count; ++n) {
            stream.input = Cat({stream.input, picture.Draw(n, step)});
            ZKEncImage_t output{};
            stream.Add(compressor.CompressFrame(&picture.Record(), keys.count(n) > 0, n == count - 1 && !flushWithNull,
                                                &output),
                       output);
        }
        if (flushWithNull) {
            ZKEncImage_t output{};
            stream.Add(compressor.CompressFrame(nullptr, false, true, &output), output);
        }
        return stream;
    }
    // What ffprobe reads from the stream: "width,height,frames".
    std::string Probe(const Stream& stream)
    {
        WriteBytes(Path("stream.h264"), stream.AnnexB());
        return RunCommand("ffprobe -v error -f h264 -count_frames -select_streams v:0 -show_entries "
                          "stream=width,height,nb_read_frames -of csv=p=0 '" +
                          Path("stream.h264") + "'")
            .output;
    }

    std::unique_ptr<TLoadedCompressor> m_bundle;
};

TEST_F(H264, BeginRefusesBadSamplesAndSettings)
{
    using Spoil = std::function<void(IVideoCompressor&, ZKImage_t&)>;
    // A setting of the given kind at a value it refuses.
    const auto bad = [](auto kind, const char* name, auto value) -> Spoil {
        return [=](IVideoCompressor& c, ZKImage_t&) { Set<std::remove_pointer_t<decltype(kind)>>(c, name, value); };
    };
    IEnumSetting* const text = nullptr;
    IIntSetting* const whole = nullptr;
    IDoubleSetting* const real = nullptr;
    const struct {
        const char* what;
        Spoil spoil;
        uint32_t status;
    } cases[] = {
        {"width 0", [](IVideoCompressor&, ZKImage_t& s) { s.width = 0; }, kZKErrBadArgument},
        {"odd width", [](IVideoCompressor&, ZKImage_t& s) { s.width = 63; }, kZKErrBadArgument},
        {"huge height", [](IVideoCompressor&, ZKImage_t& s) { s.height = 1u << 20; }, kZKErrBadArgument},
        {"time scale 0", [](IVideoCompressor&, ZKImage_t& s) { s.timeScale = 0; }, kZKErrBadArgument},
        {"time scale over 32 bits", [](IVideoCompressor&, ZKImage_t& s) { s.timeScale = 1ull << 32; },
         kZKErrBadArgument},
        {"preset in capitals", bad(text, "Preset", "Medium"), kZKErrBadArgument},
        {"unknown tune", bad(text, "Tune", "loud"), kZKErrBadArgument},
        {"lossless in baseline",
         [](IVideoCompressor& c, ZKImage_t&) {
             Set<IEnumSetting>(c, "Profile", "baseline");
             Set<IDoubleSetting>(c, "CRF", 0.0);
         },
         kZKErrBadArgument},
        {"CRF 60", bad(real, "CRF", 60.0), kZKErrBadArgument},
        {"negative bitrate", bad(whole, "Bitrate", -5), kZKErrBadArgument},
        {"negative key interval", bad(whole, "KeyFrameInterval", -1), kZKErrBadArgument},
        {"negative threads", bad(whole, "Threads", -1), kZKErrBadArgument},
        {"negative frame rate", bad(real, "FrameRate", -25.0), kZKErrBadArgument},
    };
    EXPECT_EQ(Make()->Begin(nullptr, false), kZKErrBadArgument);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CompressorPtr compressor = Make();
        TestPicture picture = Picture(64, 48);
        ZKEncImage_t sample = picture.Record();
        c.spoil(*compressor, sample.image);
        EXPECT_EQ(compressor->Begin(&sample, false), c.status);
        ZKEncImage_t output{};
        EXPECT_EQ(compressor->CompressFrame(&picture.Record(), false, false, &output), kZKErrGeneral) << "not begun";
    }
}

TEST_F(H264, CompressFrameRefusesBadPicturesCarriesOnAndSendsHeadersOnce)
{
    CompressorPtr compressor = Make();
    Set<IEnumSetting>(*compressor, "Preset", "ultrafast");
    Set<IEnumSetting>(*compressor, "Tune", "zerolatency");  // each picture comes out of the call that takes it
    TestPicture picture = Picture(64, 48, 8);
    picture.Draw(0);
    ZKEncImage_t first{};
    EXPECT_EQ(compressor->CompressFrame(&picture.Record(), false, false, &first), kZKErrGeneral) << "before Begin";
    ASSERT_EQ(compressor->Begin(&picture.Record(), false), kZKNoErr);
    ASSERT_EQ(compressor->CompressFrame(&picture.Record(), false, false, &first), kZKNoErr);
    // The first output: parameter sets as Annex-B NAL units whose header gives their type, then a key picture.
    ASSERT_NE(first.descriptors, nullptr);
    ASSERT_EQ(first.descriptors->size(), 2u);
    for (uint32_t i = 0; i < 2; ++i) {
        const IPacket* header = first.descriptors->get(i);
        EXPECT_EQ(header->getType(), i ? codes::kPictureParameterSetPacket : codes::kSequenceParameterSetPacket);
        EXPECT_EQ(Bytes(header->getData(), header->getData() + 5),
                  (Bytes{0, 0, 0, 1, uint8_t(0x60 | header->getType())}));
    }
    EXPECT_EQ(first.image.dataPackets->get(0)->getType(), codes::kKeyPicturePacket);

    using Spoil = std::function<void(ZKImage_t&)>;
    const struct {
        const char* what;
        Spoil spoil;
        uint32_t status;
    } cases[] = {
        {"no chroma plane", [](ZKImage_t& f) { f.planes[1] = nullptr; }, kZKErrBadArgument},
        {"luma rows too short", [](ZKImage_t& f) { f.rowBytes[0] = 63; }, kZKErrBadArgument},
        {"chroma rows too short", [](ZKImage_t& f) { f.rowBytes[2] = 31; }, kZKErrBadArgument},
        {"rows over 2 GiB", [](ZKImage_t& f) { f.rowBytes[0] = 0x80000000u; }, kZKErrBadArgument},
        {"other width", [](ZKImage_t& f) { f.width = 32; }, kZKErrFormatMismatch},
        {"other format", [](ZKImage_t& f) { f.colorFormat = 31; }, kZKErrFormatMismatch},
        {"buffer smaller than the planes", [](ZKImage_t& f) { f.dataSize -= 1; }, kZKErrFormatMismatch},
        {"same time again", [](ZKImage_t& f) { f.time = 0; }, kZKErrBadArgument},
        {"time beyond 63 bits", [](ZKImage_t& f) { f.time = ~0ull; }, kZKErrBadArgument},
    };
    picture.Draw(1);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        ZKEncImage_t frame = picture.Record(), output{};
        c.spoil(frame.image);
        output.image.dataPackets = reinterpret_cast<IPacketBundle*>(&output);  // must be overwritten
        EXPECT_EQ(compressor->CompressFrame(&frame, false, false, &output), c.status);
        EXPECT_EQ(output.image.dataPackets, nullptr);
        EXPECT_EQ(output.descriptors, nullptr);
    }
    EXPECT_EQ(compressor->CompressFrame(&picture.Record(), false, false, nullptr), kZKErrBadArgument) << "no output";
    ZKEncImage_t none{};
    EXPECT_EQ(compressor->CompressFrame(nullptr, false, false, &none), kZKErrBadArgument) << "nothing to do";

    // The stream goes on as if the bad calls had not happened; headers come only once.
    const Stream stream = Encode(*compressor, picture, 4);
    EXPECT_EQ(stream.headers.size(), 0u);
    ASSERT_EQ(stream.pictures.size(), 3u) << "frame 0 again is refused as the same time";
    EXPECT_EQ(stream.pictures[0].time, 1u);
    // A finished stream takes no more pictures until Begin starts another, which sends its headers.
    picture.Draw(4);
    EXPECT_EQ(compressor->CompressFrame(&picture.Record(), false, false, &none), kZKErrGeneral);
    ASSERT_EQ(compressor->Begin(&picture.Record(), false), kZKNoErr);
    EXPECT_EQ(compressor->CompressFrame(&picture.Record(), false, true, &none), kZKNoErr);
    EXPECT_NE(none.descriptors, nullptr);
    compressor->End();
}

TEST_F(H264, StreamsKeepEveryPictureAndItsTimeAndFlushDelayedOnes)
{
    const struct {
        const char* what;
        const char* preset;
        bool flushWithNull;
    } cases[] = {{"ultrafast, no reordering", "ultrafast", false},
                 {"default look-ahead, last frame flushes", "medium", false},
                 {"default look-ahead, null input flushes", "medium", true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        constexpr int kFrames = 24;
        CompressorPtr compressor = Make();
        Set<IEnumSetting>(*compressor, "Preset", c.preset);
        Set<IDoubleSetting>(*compressor, "FrameRate", 30.0);
        TestPicture picture = Picture(320, 180, 32);
        picture.Record().image.timeScale = 30000;
        ASSERT_EQ(compressor->Begin(&picture.Record(), false), kZKNoErr);
        const Stream stream = Encode(*compressor, picture, kFrames, 1001, {0, 17}, c.flushWithNull);
        compressor->End();
        EXPECT_TRUE(std::all_of(stream.statuses.begin(), stream.statuses.end(), [](uint32_t s) { return s == 0; }));
        ASSERT_EQ(stream.pictures.size(), size_t(kFrames)) << "every picture in is a packet out";
        std::vector<uint64_t> times;
        for (const Copy& packet : stream.pictures) {
            times.push_back(packet.time);
            EXPECT_EQ(packet.duration, 1001u);
            EXPECT_EQ(packet.timeBase, 30000u);
            EXPECT_EQ(packet.type == codes::kKeyPicturePacket, packet.time == 0 || packet.time == 17 * 1001);
        }
        const bool reordered = std::string(c.preset) != "ultrafast";
        EXPECT_EQ(!std::is_sorted(times.begin(), times.end()), reordered) << "B pictures come after their references";
        if (reordered) {
            EXPECT_EQ(stream.perCall.front(), 0u) << "the look-ahead holds the first picture back";
            EXPECT_GT(stream.perCall.back(), 1u) << "the flush delivers the held pictures";
        }
        std::sort(times.begin(), times.end());
        for (int n = 0; n < kFrames; ++n)
            EXPECT_EQ(times[size_t(n)], uint64_t(n) * 1001);
        EXPECT_EQ(Probe(stream), "320,180," + std::to_string(kFrames) + "\n");
    }
}

TEST_F(H264, LosslessRoundTripKeepsPaddedAndBottomUpRows)
{
    for (const bool bottomUp : {false, true}) {
        SCOPED_TRACE(bottomUp ? "bottom-up" : "top-down");
        CompressorPtr compressor = Make();
        Set<IEnumSetting>(*compressor, "Preset", "ultrafast");
        Set<IDoubleSetting>(*compressor, "CRF", 0.0);
        TestPicture picture = Picture(96, 64, 13, bottomUp);
        ASSERT_EQ(compressor->Begin(&picture.Record(), false), kZKNoErr);
        const Stream stream = Encode(*compressor, picture, 6);
        compressor->End();
        WriteBytes(Path("stream.h264"), stream.AnnexB());
        const CommandResult decode = RunCommand("ffmpeg -nostdin -y -v error -f h264 -i '" + Path("stream.h264") +
                                                "' -f rawvideo -pix_fmt yuv420p '" + Path("decoded.yuv") + "'");
        ASSERT_EQ(decode.status, 0) << decode.output;
        EXPECT_TRUE(ReadBytes(Path("decoded.yuv")) == stream.input) << "decoded pictures differ from the input";
    }
}

}  // namespace
