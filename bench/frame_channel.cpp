// One 1080p 4:2:0 frame through the frame channel: written as an "EncImage"
// element into a payload-sized area, and read back into a pooled frame. Each
// direction is set against a plain memcpy of the same pixel bytes measured in
// the same run, the floor that any channel has to pay once. The in-place rows
// write a picture whose pixels the host put into the area itself (a lent
// picture): only the element's header and information are written.
// The Picture rows are the element work of one 640x360 CompressFrame: the
// service reading the request (the picture in place, then the output
// description), writing the reply (one packet of 8 KB; the first reply also
// carries the parameter sets) and the host reading that reply.

#include "client/ReplyReader.h"
#include "transport/ExternalVideoProxy.h"
#include "transport/TPacketBundle.h"
#include "transport/TQVAPIPacket.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace {

// A 4:2:0 picture whose three planes lie one after the other from pixels.
ZKImage_t Yuv420(uint8_t* pixels, uint32_t width, uint32_t height)
{
    ZKImage_t image{};
    image.colorFormat = eColorFormatYUV420Planar;
    image.width = width;
    image.height = height;
    image.rowBytes[0] = width;
    image.rowBytes[1] = image.rowBytes[2] = width / 2;
    image.planes[0] = pixels;
    image.planes[1] = pixels + width * height;
    image.planes[2] = image.planes[1] + width * height / 4;
    image.dataSize = width * height * 3 / 2;
    return image;
}

constexpr uint32_t kWidth = 1920;
constexpr uint32_t kHeight = 1080;
constexpr uint32_t kLuma = kWidth * kHeight;
constexpr uint32_t kChroma = kLuma / 4;
constexpr uint32_t kFrameBytes = kLuma + 2 * kChroma;
constexpr uint32_t kAreaBytes = 0x4000000;  // the service's 64 MiB reply limit

struct Fixture {
    std::vector<uint8_t> pixels = std::vector<uint8_t>(kFrameBytes);
    std::vector<uint8_t> area = std::vector<uint8_t>(kAreaBytes);
    std::vector<uint8_t> copy = std::vector<uint8_t>(kFrameBytes);
    TPacketBundle descriptors;
    ZKEncImage_t record;
    uint32_t elementSize = 0;

    Fixture()
    {
        for (size_t i = 0; i < pixels.size(); ++i)
            pixels[i] = static_cast<uint8_t>(i * 31);
        auto* header = new TQVAPIPacket;
        const uint8_t sps[] = {0, 0, 0, 1, 0x67, 0x42, 0x00, 0x28};
        header->setData(sps, sizeof sps);
        descriptors.append(header);
        std::memset(&record, 0, sizeof record);
        ZKImage_t& image = record.image;
        image = Yuv420(pixels.data(), kWidth, kHeight);
        image.time = 1001;
        image.timeScale = 30000;
        record.descriptors = &descriptors;
        // Pre-fault the area, as a mapped segment in use would be.
        std::memset(area.data(), 0, area.size());
        ExternalVideoProxy proxy;
        proxy.Begin(area.data(), kAreaBytes);
        proxy.SerializeFrame(&record, elementSize, false);
    }
};

Fixture& fixture()
{
    static Fixture instance;
    return instance;
}

void setRate(benchmark::State& state)
{
    state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    state.SetBytesProcessed(int64_t(state.iterations()) * kFrameBytes);
}

void BM_Memcpy(benchmark::State& state)
{
    Fixture& f = fixture();
    for (auto _ : state) {
        std::memcpy(f.area.data(), f.pixels.data(), kFrameBytes);
        benchmark::ClobberMemory();
    }
    setRate(state);
}

// Writes record into the area, again and again.
void serializeLoop(benchmark::State& state, const ZKEncImage_t& record)
{
    Fixture& f = fixture();
    ExternalVideoProxy proxy;
    for (auto _ : state) {
        proxy.Begin(f.area.data(), kAreaBytes);
        uint32_t size = 0;
        if (proxy.SerializeFrame(&record, size, false) != 0)
            state.SkipWithError("serialize failed");
        benchmark::ClobberMemory();
    }
    setRate(state);
}

// Writes record into the area and reads it back into a pooled frame.
void roundTripLoop(benchmark::State& state, const ZKEncImage_t& record)
{
    Fixture& f = fixture();
    ExternalVideoProxy proxy;
    for (auto _ : state) {
        proxy.Begin(f.area.data(), kAreaBytes);
        uint32_t size = 0;
        proxy.SerializeFrame(&record, size, false);
        proxy.Begin(f.area.data(), size);
        TZKImageFramePtr frame = proxy.DeSerializeFrame(size);
        benchmark::DoNotOptimize(frame.get());
    }
    setRate(state);
}

void BM_Serialize(benchmark::State& state)
{
    serializeLoop(state, fixture().record);
}

void BM_Deserialize(benchmark::State& state)
{
    Fixture& f = fixture();
    // Restore the element that BM_Memcpy may have overwritten.
    ExternalVideoProxy writer;
    writer.Begin(f.area.data(), kAreaBytes);
    writer.SerializeFrame(&f.record, f.elementSize, false);
    ExternalVideoProxy proxy;
    for (auto _ : state) {
        proxy.Begin(f.area.data(), f.elementSize);
        TZKImageFramePtr frame = proxy.DeSerializeFrame(f.elementSize);
        if (!frame)
            state.SkipWithError("deserialize failed");
        benchmark::DoNotOptimize(frame.get());
    }
    setRate(state);
}

// A record over the pixels lying in the area where the element puts them.
ZKEncImage_t inPlaceRecord(Fixture& f)
{
    ZKEncImage_t record = f.record;
    record.descriptors = nullptr;
    uint8_t* pixels = f.area.data() + ExternalVideoProxy::PixelOffset(record);
    std::memcpy(pixels, f.pixels.data(), kFrameBytes);
    record.image.planes[0] = pixels;
    record.image.planes[1] = pixels + kLuma;
    record.image.planes[2] = pixels + kLuma + kChroma;
    return record;
}

void BM_SerializeInPlace(benchmark::State& state)
{
    serializeLoop(state, inPlaceRecord(fixture()));
}

void BM_RoundTripInPlace(benchmark::State& state)
{
    roundTripLoop(state, inPlaceRecord(fixture()));
}

void BM_RoundTrip(benchmark::State& state)
{
    roundTripLoop(state, fixture().record);
}

BENCHMARK(BM_Memcpy)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_Serialize)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_Deserialize)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_RoundTrip)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_SerializeInPlace)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_RoundTripInPlace)->Unit(benchmark::kMicrosecond)->UseRealTime();

// One 360p CompressFrame's request and replies, as client and service lay them out.
struct Picture {
    static constexpr uint32_t kWidth = 640, kHeight = 360, kPixels = kWidth * kHeight * 3 / 2;
    static constexpr uint32_t kPacketBytes = 8192;
    std::vector<uint8_t> pixels = std::vector<uint8_t>(kPixels, 0x80);
    std::vector<uint8_t> packet = std::vector<uint8_t>(kPacketBytes, 0x5A);
    std::vector<uint8_t> area = std::vector<uint8_t>(kAreaBytes / 16);
    TPacketBundle parameterSets, packets;
    ZKEncImage_t input{}, output{}, reply{}, firstReply{};
    uint32_t inputBytes = 0, outputBytes = 0;

    Picture()
    {
        ZKImage_t& image = input.image;
        image = Yuv420(pixels.data(), kWidth, kHeight);
        image.time = 40;
        image.timeScale = 1000;
        output = input;
        for (uint8_t*& plane : output.image.planes)
            plane = nullptr;
        output.image.dataSize = 0;
        const uint8_t sps[] = {0, 0, 0, 1, 0x67, 0x64, 0x00, 0x1E, 0xAC, 0xD9, 0x40, 0xA0};
        const uint8_t pps[] = {0, 0, 0, 1, 0x68, 0xEB, 0xE3, 0xCB};
        for (const auto& bytes :
             {std::vector<uint8_t>(sps, sps + sizeof sps), std::vector<uint8_t>(pps, pps + sizeof pps)}) {
            auto* header = new TQVAPIPacket;
            header->setData(bytes.data(), bytes.size());
            parameterSets.append(header);
        }
        auto* frame = new TQVAPIPacket;
        frame->setType(1);
        frame->setTime(40);
        frame->setDuration(40);
        frame->setData(packet.data(), packet.size());
        packets.append(frame);
        reply = output;
        reply.image.dataPackets = &packets;
        firstReply = reply;
        firstReply.descriptors = &parameterSets;
        std::memset(area.data(), 0, area.size());
        writeRequest();
    }
    void writeRequest()
    {
        ExternalVideoProxy proxy;
        proxy.Begin(area.data(), static_cast<uint32_t>(area.size()));
        proxy.SerializeFrame(&input, inputBytes, false);
        proxy.Begin(area.data() + inputBytes, static_cast<uint32_t>(area.size() - inputBytes));
        proxy.SerializeFrame(&output, outputBytes, false);
    }
    uint32_t writeReply(ExternalVideoProxy& proxy, const ZKEncImage_t& record)
    {
        uint32_t size = 0;
        proxy.Begin(area.data(), 0x400000);
        proxy.SerializeFrame(&record, size, false);
        return size;
    }
};

Picture& picture()
{
    static Picture instance;
    return instance;
}

void BM_PictureReadRequest(benchmark::State& state)
{
    Picture& p = picture();
    p.writeRequest();
    ExternalVideoProxy proxy;
    for (auto _ : state) {
        proxy.Begin(p.area.data(), p.inputBytes + p.outputBytes);
        proxy.LimitFrameBytes(p.area.size());
        ZKEncImage_t input{}, output{};
        TZKImageFramePtr in = proxy.DeSerializeFrameInPlace(p.inputBytes, input);
        TZKImageFramePtr out = proxy.DeSerializeFrameInPlace(p.outputBytes, output);
        if (!in || !out)
            state.SkipWithError("request not read");
    }
}

void writeReplyLoop(benchmark::State& state, const ZKEncImage_t& record)
{
    Picture& p = picture();
    ExternalVideoProxy proxy;
    for (auto _ : state) {
        if (p.writeReply(proxy, record) == 0)
            state.SkipWithError("reply not written");
        benchmark::ClobberMemory();
    }
}

void readReplyLoop(benchmark::State& state, const ZKEncImage_t& record)
{
    Picture& p = picture();
    ExternalVideoProxy proxy;
    const uint32_t size = p.writeReply(proxy, record);
    for (auto _ : state) {
        evc::EncodedFrame out;
        if (!evc::ReadCompressReply(p.area.data(), p.area.size(), static_cast<int32_t>(size), 0, out).empty())
            state.SkipWithError("reply not read");
        benchmark::DoNotOptimize(out.packets.data());
    }
}

void BM_PictureWriteReply(benchmark::State& state)
{
    writeReplyLoop(state, picture().reply);
}

void BM_PictureWriteFirstReply(benchmark::State& state)
{
    writeReplyLoop(state, picture().firstReply);
}

void BM_PictureReadReply(benchmark::State& state)
{
    readReplyLoop(state, picture().reply);
}

void BM_PictureReadFirstReply(benchmark::State& state)
{
    readReplyLoop(state, picture().firstReply);
}

// The floor of a reply: its packet's bytes copied once.
void BM_PictureMemcpyPacket(benchmark::State& state)
{
    Picture& p = picture();
    for (auto _ : state) {
        std::memcpy(p.area.data(), p.packet.data(), p.packet.size());
        benchmark::ClobberMemory();
    }
}

BENCHMARK(BM_PictureMemcpyPacket)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_PictureReadRequest)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_PictureWriteReply)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_PictureWriteFirstReply)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_PictureReadReply)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_PictureReadFirstReply)->Unit(benchmark::kMicrosecond)->UseRealTime();

// Keeps the time per frame of every run so that main can print the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration && run.iterations > 0)
                m_seconds[run.benchmark_name()] = run.real_accumulated_time / double(run.iterations);
    }
    double seconds(const std::string& name) const
    {
        auto it = m_seconds.find(name);
        return it == m_seconds.end() ? 0.0 : it->second;
    }

private:
    std::map<std::string, double> m_seconds;
};

}  // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const double floor = reporter.seconds("BM_Memcpy/real_time");
    std::printf("\n1080p 4:2:0 frame, %u pixel bytes, element %u bytes\n", kFrameBytes, fixture().elementSize);
    for (const char* name :
         {"BM_Memcpy/real_time", "BM_Serialize/real_time", "BM_Deserialize/real_time", "BM_RoundTrip/real_time",
          "BM_SerializeInPlace/real_time", "BM_RoundTripInPlace/real_time"}) {
        const double s = reporter.seconds(name);
        if (s <= 0.0)
            continue;
        std::printf("%-30s %9.1f frames/s   %5.2f x memcpy\n", name, 1.0 / s, floor > 0.0 ? s / floor : 0.0);
    }
    std::printf("goal: BM_RoundTrip <= 2.5 x memcpy\n");
    std::printf("\n640x360 CompressFrame, reply of one %u-byte packet (the first also with SPS and PPS)\n",
                Picture::kPacketBytes);
    for (const char* name : {"BM_PictureMemcpyPacket/real_time", "BM_PictureReadRequest/real_time",
                             "BM_PictureWriteReply/real_time", "BM_PictureWriteFirstReply/real_time",
                             "BM_PictureReadReply/real_time", "BM_PictureReadFirstReply/real_time"}) {
        const double s = reporter.seconds(name);
        if (s > 0.0)
            std::printf("%-36s %7.2f us\n", name, s * 1e6);
    }
    std::printf("goal: each element row under 3 us\n");
    benchmark::Shutdown();
    return 0;
}
