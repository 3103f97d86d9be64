// What running a codec in a process of its own costs: for each codec (H.264,
// HEVC, VP9, AV1) the same frames and settings encoded by its plug-in loaded
// into this process, and through evc-service with the client library, side
// by side in one run. The pure transport cost is measured with the echo test plug-in,
// next to an empty command round trip and a plain copy of the frame.
//
// Runs are interleaved (in-process first in even rounds, the service first
// in odd ones) and the best of each side is compared, so a machine that other
// work slows down hurts both sides alike.
//
// Usage: encode_overhead [--rounds=N] (default 3) [--codec=h264|hevc|vp9|av1] [--transport-only].
// The build dir comes from EVC_BUILD_DIR, else the parent of the folder this program runs from.

#include <linux/limits.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "evc/Client.h"
#include "evc/Av1Codec.h"
#include "evc/H264Codec.h"
#include "evc/HevcCodec.h"
#include "evc/Vp9Codec.h"
#include "media/ZKImageLayout.h"
#include "plugins/CPluginCollection.h"
#include "service/PresetReader.h"
#include "plugins/bundles/TestPluginCodes.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint64_t kTimeScale = 30;  // one unit per picture at 30 pictures per second
constexpr int kThreads = 2;
constexpr int kEchoFrames = 30;
// The tests' host bundle: the echo plug-in beside links to the product's.
constexpr char kHostBundle[] = "EvcTests.app";
constexpr int kEmptyCommands = 200;

double Seconds(Clock::time_point since)
{
    return std::chrono::duration<double>(Clock::now() - since).count();
}

// CPU seconds this process has used, all its threads together.
double ProcessCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

// CPU seconds another process has used (user and system, 10 ms steps).
double ChildCpuSeconds(int pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const size_t close = text.rfind(')');
    if (close == std::string::npos)
        return 0.0;
    std::istringstream fields(text.substr(close + 1));
    std::string field;
    unsigned long long ticks = 0;
    // After the name: state is field 3; utime and stime are fields 14 and 15.
    for (int index = 3; index <= 15 && fields >> field; ++index) {
        if (index >= 14)
            ticks += std::strtoull(field.c_str(), nullptr, 10);
    }
    return double(ticks) / double(sysconf(_SC_CLK_TCK));
}

std::string LoadAverage()
{
    std::ifstream file("/proc/loadavg");
    std::string one;
    file >> one;
    return one.empty() ? "?" : one;
}

std::string ProgramFolder()
{
    char path[PATH_MAX];
    const ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0)
        return ".";
    const std::string text(path, static_cast<size_t>(n));
    const size_t slash = text.rfind('/');
    return slash == std::string::npos ? "." : text.substr(0, slash);
}

std::string BuildDir()
{
    const char* fromEnvironment = std::getenv("EVC_BUILD_DIR");
    if (fromEnvironment != nullptr && *fromEnvironment != '\0')
        return fromEnvironment;
    const std::string bin = ProgramFolder();
    const size_t slash = bin.rfind('/');
    return slash == std::string::npos ? "." : bin.substr(0, slash);
}

// The settings both sides use for a codec: quality mode at a middle speed
// with a fixed thread count, so neither side gets more cores than the other.
struct TCodec {
    const char* name;
    uint32_t code;
    std::string settings;  // the NonStandardSettings children
    int frames;            // at 1920x1080; slower codecs get fewer
};

std::vector<TCodec> Codecs()
{
    const std::string threads = "<Threads Type=\"eInt\" Value=\"" + std::to_string(kThreads) + "\"/>";
    return {
        {"h264", evc::h264::kCodec,
         "<Preset Type=\"eEnum\" Value=\"medium\"/><Tune Type=\"eEnum\" Value=\"none\"/>"
         "<Profile Type=\"eEnum\" Value=\"high\"/><CRF Type=\"eDouble\" Value=\"23\"/>" +
             threads + "<FrameRate Type=\"eDouble\" Value=\"30\"/>",
         60},
        {"hevc", evc::hevc::kCodec,
         "<Preset Type=\"eEnum\" Value=\"veryfast\"/><CRF Type=\"eDouble\" Value=\"28\"/>" + threads +
             "<FrameRate Type=\"eDouble\" Value=\"30\"/>",
         30},
        {"vp9", evc::vp9::kCodec, "<CRF Type=\"eInt\" Value=\"32\"/><Speed Type=\"eInt\" Value=\"6\"/>" + threads, 30},
        {"av1", evc::av1::kCodec,
         "<CRF Type=\"eInt\" Value=\"35\"/><Preset Type=\"eInt\" Value=\"10\"/>" + threads +
             "<FrameRate Type=\"eDouble\" Value=\"30\"/>",
         30},
    };
}

std::string Preset(const TCodec& codec)
{
    return "<?xml version=\"1.0\"?>\n<Output>\n  <VideoCompressor Manufacture4cc=\"" +
           std::to_string(evc::kManufacturer) + "\" Codec4cc=\"" + std::to_string(codec.code) +
           "\">\n"
           "    <StandardSettings>\n"
           "      <Bitrate Type=\"eInt\" Value=\"0\"/>\n"
           "      <KeyFrameInterval Type=\"eInt\" Value=\"250\"/>\n"
           "    </StandardSettings>\n"
           "    <NonStandardSettings>" +
           codec.settings +
           "</NonStandardSettings>\n"
           "  </VideoCompressor>\n</Output>\n";
}

std::string EchoPreset()
{
    return "<?xml version=\"1.0\"?>\n<Output>\n  <VideoCompressor Manufacture4cc=\"" +
           std::to_string(evctest::kTestManufacturer) + "\" Codec4cc=\"" + std::to_string(evctest::kEchoCodec) +
           "\">\n  </VideoCompressor>\n</Output>\n";
}

// A deterministic moving 4:2:0 picture sequence, drawn before any timing so
// that drawing costs neither side anything.
class TClip {
public:
    TClip(uint32_t width, uint32_t height, int count) : m_width(width), m_height(height)
    {
        m_frameBytes = CalcFrameSize(evc::h264::kInputColorFormat, width, height, 0, false);
        m_pixels.resize(size_t(count));
        m_records.resize(size_t(count));
        for (int n = 0; n < count; ++n)
            Draw(n);
    }

    int count() const { return static_cast<int>(m_records.size()); }
    uint32_t width() const { return m_width; }
    uint32_t height() const { return m_height; }
    uint32_t frameBytes() const { return m_frameBytes; }
    const ZKEncImage_t& frame(int n) const { return m_records[size_t(n)]; }

    // The stream's shape without pixels: what Begin and the output description need.
    ZKEncImage_t Geometry() const
    {
        ZKEncImage_t record = m_records.front();
        for (uint8_t*& plane : record.image.planes)
            plane = nullptr;
        record.image.dataSize = 0;
        return record;
    }

private:
    void Draw(int n)
    {
        std::vector<uint8_t>& bytes = m_pixels[size_t(n)];
        bytes.resize(m_frameBytes);
        ZKEncImage_t& record = m_records[size_t(n)];
        record = ZKEncImage_t{};
        if (InitZKImage(&record.image, m_frameBytes, bytes.data(), evc::h264::kInputColorFormat, false,
                        static_cast<int>(m_width), static_cast<int>(m_height), false, uint64_t(n), kTimeScale) != 0)
            throw std::runtime_error("cannot lay out a 4:2:0 picture");
        // A 4:2:0 record leaves row bytes 2 at 0 (both chroma planes use row
        // bytes 1); the plug-in reads each plane's own stride.
        record.image.rowBytes[2] = record.image.rowBytes[1];

        // A diagonal ramp sliding right, a bright square moving down and
        // right, and chroma ramps drifting the other way.
        const uint32_t square = m_width / 8;
        const uint32_t sx = (uint32_t(n) * 7) % (m_width - square);
        const uint32_t sy = (uint32_t(n) * 3) % (m_height - square);
        for (uint32_t y = 0; y < m_height; ++y) {
            uint8_t* row = record.image.planes[0] + size_t(y) * record.image.rowBytes[0];
            for (uint32_t x = 0; x < m_width; ++x) {
                const bool inSquare = x >= sx && x < sx + square && y >= sy && y < sy + square;
                row[x] = inSquare ? 235 : static_cast<uint8_t>(16 + (x + y + 4 * uint32_t(n)) % 200);
            }
        }
        for (int p = 1; p < 3; ++p) {
            for (uint32_t y = 0; y < m_height / 2; ++y) {
                uint8_t* row = record.image.planes[p] + size_t(y) * record.image.rowBytes[p];
                for (uint32_t x = 0; x < m_width / 2; ++x)
                    row[x] = static_cast<uint8_t>(64 + ((p == 1 ? x : y) * 2 + 1000 - 3 * uint32_t(n)) % 128);
            }
        }
    }

    uint32_t m_width;
    uint32_t m_height;
    uint32_t m_frameBytes = 0;
    std::vector<std::vector<uint8_t>> m_pixels;
    std::vector<ZKEncImage_t> m_records;
};

// What one encode of a clip produced: enough to tell that both sides made
// the same stream.
struct TStreamSum {
    uint64_t bytes = 0;
    uint64_t packets = 0;
    uint64_t hash = 1469598103934665603ull;  // FNV-1a over every packet's bytes

    void Add(const uint8_t* data, uint64_t size)
    {
        bytes += size;
        ++packets;
        for (uint64_t i = 0; i < size; ++i)
            hash = (hash ^ data[i]) * 1099511628211ull;
    }
    bool operator==(const TStreamSum& other) const
    {
        return bytes == other.bytes && packets == other.packets && hash == other.hash;
    }
};

struct TRun {
    double seconds = 0;
    double cpuSeconds = 0;        // both processes' when the service encodes
    double clientCpuSeconds = 0;  // this process's part of it
    TStreamSum sum;
};

void Check(uint32_t status, const char* what)
{
    if (status != 0) {
        char text[128];
        std::snprintf(text, sizeof text, "%s failed with status 0x%08X", what, status);
        throw std::runtime_error(text);
    }
}

// The plug-in in this process, found, created and configured the way the
// service does it.
class TInProcess {
public:
    TInProcess(CPluginCollection& collection, std::string preset)
    {
        unsigned int manufacturer = 0;
        unsigned int codec = 0;
        if (!DeSerializeVideoCodec4cc(preset, manufacturer, codec))
            throw std::runtime_error("the preset is unreadable");
        collection.LoadVideoPlugin(manufacturer, codec);
        m_compressor.reset(collection.CreateVideoCompressor(manufacturer, codec));
        if (!m_compressor)
            throw std::runtime_error("no compressor for the preset in the plug-ins folder (are the codecs built?)");
        if (!DeSerializeVideoCodecSettings(preset, m_compressor.get()))
            throw std::runtime_error("the preset's settings were not applied");
    }

    TRun Encode(const TClip& clip)
    {
        TRun run;
        const ZKEncImage_t geometry = clip.Geometry();
        const double cpu = ProcessCpuSeconds();
        const auto start = Clock::now();
        Check(m_compressor->Begin(&geometry, false), "Begin");
        for (int n = 0; n < clip.count(); ++n) {
            ZKEncImage_t output = geometry;
            Check(m_compressor->CompressFrame(&clip.frame(n), n == 0, n == clip.count() - 1, &output), "CompressFrame");
            AddBundle(output.descriptors, run.sum);
            AddBundle(output.image.dataPackets, run.sum);
        }
        m_compressor->End();
        run.seconds = Seconds(start);
        run.cpuSeconds = ProcessCpuSeconds() - cpu;
        return run;
    }

private:
    static void AddBundle(const IPacketBundle* bundle, TStreamSum& sum)
    {
        if (bundle == nullptr)
            return;
        for (uint32_t i = 0; i < bundle->size(); ++i) {
            const IPacket* packet = bundle->get(i);
            if (packet != nullptr && packet->getData() != nullptr)
                sum.Add(packet->getData(), packet->getDataSize());
        }
    }

    std::unique_ptr<IVideoCompressor> m_compressor;
};

evc::ClientOptions ServiceOptions(const std::string& buildDir, uint64_t largestFrameBytes)
{
    evc::ClientOptions options;
    options.servicePath = buildDir + "/bin/evc-service";
    options.applicationFolder = buildDir;
    options.hostBundle = kHostBundle;
    options.applicationName = "encode_overhead";
    options.largestFrameBytes = largestFrameBytes;
    // A flush drains the whole look-ahead in one command; on a busy machine
    // that takes a while.
    options.commandTimeout = std::chrono::milliseconds(600000);
    return options;
}

// The same plug-in behind evc-service.
class TThroughService {
public:
    TThroughService(const std::string& buildDir, const std::string& preset, uint64_t largestFrameBytes)
        : m_client(ServiceOptions(buildDir, largestFrameBytes))
    {
        Check(m_client.SetOutput(preset), "SetOutput");
    }

    TRun Encode(const TClip& clip)
    {
        TRun run;
        const ZKEncImage_t geometry = clip.Geometry();
        evc::EncodedFrame result;
        const double clientCpu = ProcessCpuSeconds();
        const double cpu = clientCpu + ChildCpuSeconds(m_client.servicePid());
        const auto start = Clock::now();
        Check(m_client.Begin(&geometry), "Begin");
        for (int n = 0; n < clip.count(); ++n) {
            Check(m_client.CompressFrame(&clip.frame(n), n == 0, n == clip.count() - 1, &result), "CompressFrame");
            for (const auto* list : {&result.descriptors, &result.packets}) {
                for (const evc::Packet& packet : *list)
                    run.sum.Add(packet.data.data(), packet.data.size());
            }
        }
        Check(m_client.End(), "End");
        run.seconds = Seconds(start);
        run.clientCpuSeconds = ProcessCpuSeconds() - clientCpu;
        run.cpuSeconds = run.clientCpuSeconds + ChildCpuSeconds(m_client.servicePid()) - (cpu - clientCpu);
        return run;
    }

private:
    evc::Client m_client;
};

// Keeps the clip's shape, not the clip: the pictures are freed once measured.
struct TSizeResult {
    const char* codec = "";
    uint32_t width = 0;
    uint32_t height = 0;
    int frames = 0;
    double inProcessSeconds = 1e300;
    double serviceSeconds = 1e300;
    double inProcessCpu = 1e300;
    double serviceCpu = 1e300;
    bool sameStream = true;
    TStreamSum sum;
};

TSizeResult CompareSize(const TClip& clip, const TCodec& codec, CPluginCollection& collection,
                        const std::string& buildDir, int rounds)
{
    const std::string preset = Preset(codec);
    TInProcess inProcess(collection, preset);
    TThroughService service(buildDir, preset, clip.frameBytes());
    TSizeResult result;
    result.codec = codec.name;
    result.width = clip.width();
    result.height = clip.height();
    result.frames = clip.count();
    bool first = true;
    auto note = [&](const TRun& run, double& best, double& bestCpu, const char* side, int round) {
        best = std::min(best, run.seconds);
        bestCpu = std::min(bestCpu, run.cpuSeconds);
        if (first)
            result.sum = run.sum;
        else if (!(run.sum == result.sum))
            result.sameStream = false;
        first = false;
        std::printf("  %s %ux%u round %d %-10s %7.2f fps %8.2f CPU ms/frame (%5.2f of it the client's)  %llu bytes in "
                    "%llu packets\n",
                    codec.name, clip.width(), clip.height(), round, side, clip.count() / run.seconds,
                    run.cpuSeconds * 1000.0 / clip.count(), run.clientCpuSeconds * 1000.0 / clip.count(),
                    static_cast<unsigned long long>(run.sum.bytes), static_cast<unsigned long long>(run.sum.packets));
        std::fflush(stdout);
    };
    for (int round = 0; round < rounds; ++round) {
        if (round % 2 == 0) {
            note(inProcess.Encode(clip), result.inProcessSeconds, result.inProcessCpu, "in-process", round);
            note(service.Encode(clip), result.serviceSeconds, result.serviceCpu, "service", round);
        } else {
            note(service.Encode(clip), result.serviceSeconds, result.serviceCpu, "service", round);
            note(inProcess.Encode(clip), result.inProcessSeconds, result.inProcessCpu, "in-process", round);
        }
    }
    return result;
}

struct TTransport {
    double echoMedianMs = 0;
    double echoMeanMs = 0;
    double echoCpuMs = 0;  // both processes, per frame
    uint64_t requestBytes = 0;
    uint64_t replyBytes = 0;
    double emptyMedianMs = 0;
    double oneWayMedianMs = 0;
    double copyMs = 0;
};

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

// The echo plug-in does no work of its own beyond copying the pixels into
// its reply, so a frame's round trip is what the conversation costs.
TTransport MeasureTransport(const TClip& clip, const std::string& buildDir)
{
    TTransport transport;
    evc::Client client(ServiceOptions(buildDir, clip.frameBytes()));
    Check(client.SetOutput(EchoPreset()), "SetOutput (echo)");
    const ZKEncImage_t geometry = clip.Geometry();
    Check(client.Begin(&geometry), "Begin (echo)");

    evc::EncodedFrame result;
    std::vector<double> ms;
    double total = 0;
    const double cpu = ProcessCpuSeconds() + ChildCpuSeconds(client.servicePid());
    for (int n = 0; n < kEchoFrames; ++n) {
        const auto start = Clock::now();
        Check(client.CompressFrame(&clip.frame(n % clip.count()), false, n == kEchoFrames - 1, &result),
              "CompressFrame (echo)");
        ms.push_back(Seconds(start) * 1000.0);
        total += ms.back();
        uint64_t echoed = 0;
        for (const evc::Packet& packet : result.packets)
            echoed += packet.data.size();
        if (echoed < clip.frameBytes())
            throw std::runtime_error("the echo plug-in did not return the frame's pixels");
    }
    transport.echoCpuMs = (ProcessCpuSeconds() + ChildCpuSeconds(client.servicePid()) - cpu) * 1000.0 / kEchoFrames;
    transport.echoMedianMs = Median(ms);
    transport.echoMeanMs = total / kEchoFrames;
    transport.replyBytes = result.replyBytes;
    transport.requestBytes = clip.frameBytes();

    // A frame's pixels in, nothing back: Begin carries a whole sample
    // picture, which the echo plug-in only describes.
    ms.clear();
    for (int n = 0; n < kEchoFrames; ++n) {
        const auto start = Clock::now();
        Check(client.Begin(&clip.frame(n % clip.count())), "Begin with pixels (echo)");
        ms.push_back(Seconds(start) * 1000.0);
    }
    transport.oneWayMedianMs = Median(ms);
    Check(client.End(), "End (echo)");

    // A command without operands: only the two semaphore hand-overs.
    ms.clear();
    for (int n = 0; n < kEmptyCommands; ++n) {
        const auto start = Clock::now();
        Check(client.SetStreamModeHint(0), "SetStreamModeHint");
        ms.push_back(Seconds(start) * 1000.0);
    }
    transport.emptyMedianMs = Median(ms);

    // The floor: the frame's bytes copied once in each direction.
    std::vector<uint8_t> there(clip.frameBytes());
    std::vector<uint8_t> back(clip.frameBytes());
    ms.clear();
    for (int n = 0; n < kEchoFrames; ++n) {
        const auto start = Clock::now();
        std::memcpy(there.data(), clip.frame(n % clip.count()).image.planes[0], clip.frameBytes());
        benchmark::ClobberMemory();
        std::memcpy(back.data(), there.data(), clip.frameBytes());
        benchmark::ClobberMemory();
        ms.push_back(Seconds(start) * 1000.0);
    }
    transport.copyMs = Median(ms);
    return transport;
}

// Loads the plug-ins for the in-process side and shuts them down at the end,
// once every compressor made from them is gone.
class TLoadedPlugins {
public:
    explicit TLoadedPlugins(const std::string& buildDir) { m_collection.Initialize(buildDir, kHostBundle); }
    ~TLoadedPlugins()
    {
        // The collection keeps its prototypes for the life of the process;
        // they go here so that leak checkers see a clean exit.
        const auto& compressors = m_collection.GetCompressors();
        for (unsigned long i = 0; i < static_cast<unsigned long>(compressors.GetSize()); ++i)
            delete compressors[i]->m_prototype;
        m_collection.Uninitialize();
    }
    TLoadedPlugins(const TLoadedPlugins&) = delete;
    TLoadedPlugins& operator=(const TLoadedPlugins&) = delete;

    CPluginCollection& collection() { return m_collection; }

private:
    CPluginCollection m_collection;
};

struct TOptions {
    int rounds = 3;
    bool transportOnly = false;
    std::string codec;  // empty: every codec
};

TOptions ReadOptions(int argc, char** argv)
{
    TOptions options;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--rounds=", 9) == 0)
            options.rounds = std::max(1, std::atoi(argv[i] + 9));
        else if (std::strcmp(argv[i], "--transport-only") == 0)
            options.transportOnly = true;
        else if (std::strncmp(argv[i], "--codec=", 8) == 0)
            options.codec = argv[i] + 8;
    }
    return options;
}

void PrintTransport(const TTransport& transport)
{
    std::printf("\ntransport of one 1920x1080 frame (echo plug-in, %llu bytes in, %llu-byte reply):\n",
                static_cast<unsigned long long>(transport.requestBytes),
                static_cast<unsigned long long>(transport.replyBytes));
    std::printf("  round trip            %8.2f ms median, %8.2f ms mean, %8.2f CPU ms (both processes)\n",
                transport.echoMedianMs, transport.echoMeanMs, transport.echoCpuMs);
    std::printf("  frame in, no reply    %8.2f ms median (Begin with the picture's pixels)\n",
                transport.oneWayMedianMs);
    std::printf("  empty command         %8.2f ms median\n", transport.emptyMedianMs);
    std::printf("  memcpy there and back %8.2f ms median\n", transport.copyMs);
}

}  // namespace

int main(int argc, char** argv)
{
    const TOptions options = ReadOptions(argc, argv);
    const std::string buildDir = BuildDir();
    try {
        if (options.transportOnly) {
            const TClip large(1920, 1080, 8);
            PrintTransport(MeasureTransport(large, buildDir));
            return 0;
        }
        std::printf("encode_overhead: quality mode, middle speeds, %d threads; build %s; best of %d rounds; load "
                    "average %s\n",
                    kThreads, buildDir.c_str(), options.rounds, LoadAverage().c_str());
        TLoadedPlugins plugins(buildDir);
        CPluginCollection& collection = plugins.collection();

        std::vector<TSizeResult> results;
        const std::vector<TCodec> codecs = Codecs();
        if (options.codec.empty() || options.codec == "h264") {
            const TClip small(640, 360, 120);
            results.push_back(CompareSize(small, codecs.front(), collection, buildDir, options.rounds));
        }
        TTransport transport;
        for (const TCodec& codec : codecs) {
            if (!options.codec.empty() && options.codec != codec.name)
                continue;
            const TClip large(1920, 1080, codec.frames);
            results.push_back(CompareSize(large, codec, collection, buildDir, options.rounds));
            if (transport.requestBytes == 0)  // once, with the first large clip
                transport = MeasureTransport(large, buildDir);
        }

        std::printf("\n%-5s %-10s %7s %14s %11s %7s %15s %13s %13s %9s  %s\n", "codec", "size", "frames",
                    "in-process fps", "service fps", "ratio", "extra ms/frame", "CPU ms/frame", "CPU ms/frame",
                    "CPU ratio", "same stream");
        std::printf("%-5s %-10s %7s %14s %11s %7s %15s %13s %13s %9s\n", "", "", "", "", "", "", "", "in-process",
                    "service", "");
        for (const TSizeResult& r : results) {
            const double frames = r.frames;
            const double inFps = frames / r.inProcessSeconds;
            const double serviceFps = frames / r.serviceSeconds;
            char size[32];
            std::snprintf(size, sizeof size, "%ux%u", r.width, r.height);
            const double extraMs = (r.serviceSeconds - r.inProcessSeconds) * 1000.0 / frames;
            std::printf("%-5s %-10s %7d %14.2f %11.2f %7.3f %15.2f %13.2f %13.2f %9.3f  %s\n", r.codec, size, r.frames,
                        inFps, serviceFps, serviceFps / inFps, extraMs, r.inProcessCpu * 1000.0 / frames,
                        r.serviceCpu * 1000.0 / frames, r.inProcessCpu / r.serviceCpu, r.sameStream ? "yes" : "NO");
        }
        PrintTransport(transport);
        std::printf("ratio = service fps / in-process fps (goal: >= 0.97 at every size); CPU ratio = in-process CPU /\n"
                    "(client + service CPU), which other work on the machine does not bend; load average %s\n",
                    LoadAverage().c_str());
    } catch (const std::exception& e) {
        std::fprintf(stderr, "encode_overhead: %s\n", e.what());
        return 1;
    }
    return 0;
}
