#include "evc/Client.h"
#include "evc/CodecList.h"

#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <future>
#include <map>
#include <mutex>
#include <system_error>

#include "client/ReplyReader.h"
#include "client/ServiceLocation.h"
#include "client/ServiceProcess.h"
#include "ipc/CAExternalEncodeProxyMPI.h"
#include "ipc/details/FutexWake.h"
#include "ipc/details/QuickWakeUps.h"
#include "media/ZKImageLayout.h"
#include "transport/ExternalVideoProxy.h"

namespace evc {

namespace {

// Room for the element headers and packets around a frame's pixels.
constexpr uint64_t kElementMargin = 1 << 20;
// How often a wait for the service looks at the child (waitpid) and the clock:
// the first slice is short, so a service that dies on a command is seen at
// once; each next one is twice as long up to the last, so a long encode looks
// at the child seldom (the semaphore's own sleeps still end at a post, and at
// the service's end where the process reader watches it through a pidfd).
constexpr unsigned kFirstWatchSliceMs = 2;
constexpr unsigned kLastWatchSliceMs = 16;

std::string DescribeEnd(ServiceProcess& process)
{
    if (process.termSignal() != 0)
        return "evc-service was killed by signal " + std::to_string(process.termSignal()) + " (" +
               strsignal(process.termSignal()) + ")";
    return "evc-service exited with status " + std::to_string(process.exitStatus());
}

}  // namespace

ServiceError::ServiceError(Kind kind, int signal, int exitStatus, std::string lastErrorLines, const std::string& what)
    : std::runtime_error(lastErrorLines.empty() ? what : what + "; its last words:\n" + lastErrorLines), m_kind(kind),
      m_signal(signal), m_exitStatus(exitStatus), m_lastErrorLines(std::move(lastErrorLines))
{
}

// A limit and how it was reached, for the error that says it was exceeded.
struct EVC_CLIENT_LOCAL Limit {
    std::chrono::milliseconds total;
    std::string origin;
};

class EVC_CLIENT_LOCAL Client::TPrivate {
public:
    explicit TPrivate(const ClientOptions& options);

    // One request: the caller has written the operands; posts and waits.
    uint32_t Transact(CAExternalVideoProxySharedData::TCommand command, const char* name);
    uint32_t Transact(CAExternalVideoProxySharedData::TCommand command, const char* name, const Limit& limit);
    // The first half of a request: posts without waiting.
    void Post(CAExternalVideoProxySharedData::TCommand command, const char* name, const Limit& limit);
    // Waits for the response until limit has passed since start.
    void WaitForResponse(const char* name, const Limit& limit,
                         std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now());
    [[noreturn]] void Fail(const char* name, const Limit& limit);
    // The service answered what the protocol does not allow: it is stopped.
    [[noreturn]] void Violation(const std::string& what);
    void CheckUsable() const;
    CAExternalVideoProxySharedData& Record() { return *m_channel.sharedData(); }
    uint32_t WriteFrame(uint64_t offset, const ZKEncImage_t& record);
    // Sends quit once and waits up to ms for the service to end; a service
    // that does not end is killed (the process object reaps it either way).
    void Quit(int ms);
    // The request of PostCompressFrame, written and posted.
    void PostRequest(const ZKEncImage_t* input, bool isKeyFrame, bool isLastFrame,
                     const ZKEncImage_t* outputDescription);
    // On the process's reader thread, once the service has ended; answers
    // whether to wake the waiter again a millisecond later.
    bool NoteServiceEnd();

    ClientOptions m_options;
    std::string m_servicePath;
    std::string m_appFolder;
    CAExternalEncodeProxyMPI m_channel;
    // Raised when the service has ended: a wait for its response then ends at
    // once instead of at the end of its slice. m_waiting tells the reader
    // thread that such a wait is under way. Both outlive m_process's reader.
    std::atomic<bool> m_serviceEnded{false};
    std::atomic<bool> m_waiting{false};
    std::unique_ptr<ServiceProcess> m_process;
    // With shareProcessor: the processor the waiting thread and the
    // service's main thread share, and the waiting thread's hold on it from a
    // CompressFrame's post to its answer.
    int m_sharedProcessor = -1;
    TZKProcessorPin m_pin;
    ExternalVideoProxy m_proxy;
    bool m_quit = false;
    uint64_t m_picturesPending = 0;
    // A CompressFrame posted and not collected, and its limit (from the post).
    bool m_posted = false;
    bool m_postedLast = false;
    Limit m_postedLimit;
    std::chrono::steady_clock::time_point m_postedAt;
    // What the plug-ins declare, listed while the service starts, for the
    // first SetOutput that checks.
    std::future<std::vector<CodecInfo>> m_listing;
    std::vector<CodecInfo> m_codecs;
    bool m_codecsListed = false;
};

namespace {

uint64_t SegmentSize(const ClientOptions& options)
{
    const uint64_t request = 2 * (options.largestFrameBytes + kElementMargin);
    return CAExternalEncodeProxyMPI::kPayloadOffset +
           std::max<uint64_t>(CAExternalEncodeProxyMPI::kReplyAreaBytes, request);
}

// Before the segment exists: what hosts that died left behind goes first.
size_t PrepareSegment(const ClientOptions& options)
{
    CAExternalEncodeProxyMPI::RemoveAbandonedSegments();
    return static_cast<size_t>(SegmentSize(options));
}

// What the plug-ins of one service and bundle declare, listed once per
// process: a session's standby and restarted services check their preset
// against the same listing instead of starting a listing service each.
const std::vector<CodecInfo>& ListedCodecs(const ClientOptions& options, const std::string& service,
                                           const std::string& folder)
{
    static std::mutex mutex;
    static std::map<std::string, std::vector<CodecInfo>> listings;
    const std::string key = service + '\n' + folder + '\n' + options.hostBundle;
    {
        std::lock_guard<std::mutex> lock(mutex);
        const auto known = listings.find(key);
        if (known != listings.end())
            return known->second;
    }
    // Listed outside the lock; two clients that list at once store the same.
    std::vector<CodecInfo> codecs = ListCodecs(options);
    std::lock_guard<std::mutex> lock(mutex);
    return listings.emplace(key, std::move(codecs)).first->second;
}

std::string Milliseconds(std::chrono::milliseconds ms)
{
    return std::to_string(ms.count()) + " ms";
}

}  // namespace

Client::TPrivate::TPrivate(const ClientOptions& options) : m_options(options), m_channel(PrepareSegment(options))
{
    const std::string service = ServicePath(options);
    m_servicePath = service;
    m_appFolder = ApplicationFolder(options, service);
    m_options.hostBundle = HostBundle(options);
    if (access(service.c_str(), X_OK) != 0)
        throw ServiceError(ServiceError::Kind::StartFailed, 0, -1, "",
                           "cannot start the service: " + service + " is not an executable file");
    std::vector<std::string> settings;
    if (options.shareProcessor && ZKFutexWakeUpsEnabled())
        m_sharedProcessor = ZKPickSharedProcessor();
    if (m_sharedProcessor >= 0)
        settings.push_back("EVC_PROCESSOR=" + std::to_string(m_sharedProcessor));
    try {
        m_process.reset(new ServiceProcess(
            service, {m_channel.GetSharedMemoryName(), std::to_string(getpid()), options.applicationName},
            options.forwardServiceErrors, [this] { return NoteServiceEnd(); }, settings));
    } catch (const std::exception& e) {
        throw ServiceError(ServiceError::Kind::StartFailed, 0, -1, "", e.what());
    }
    if (options.checkPresetKinds) {
        try {
            m_listing = std::async(std::launch::async, [options, service, folder = m_appFolder] {
                return ListedCodecs(options, service, folder);
            });
        } catch (const std::system_error&) {
            // No thread for it: SetOutput lists then.
        }
    }
    if (options.maxServiceMemoryBytes != 0) {
        // Set from here so the service's command line stays as it is; it
        // applies before the first command loads any plug-in.
        const rlimit limit{options.maxServiceMemoryBytes, options.maxServiceMemoryBytes};
        if (prlimit(m_process->pid(), RLIMIT_AS, &limit, nullptr) != 0)
            throw ServiceError(ServiceError::Kind::StartFailed, 0, -1, "",
                               std::string("cannot limit the service's memory: ") + std::strerror(errno));
    }
    try {
        WaitForResponse("start-up", {options.startTimeout, "startTimeout"});
    } catch (const ServiceError& e) {
        // A service that never announced itself did not start, however it ended.
        throw ServiceError(ServiceError::Kind::StartFailed, e.signal(), e.exitStatus(), e.lastErrorLines(),
                           std::string("cannot start the service: ") + e.what());
    }
}

void Client::TPrivate::Fail(const char* name, const Limit& limit)
{
    if (m_process->alive()) {
        m_process->kill();
        throw ServiceError(ServiceError::Kind::TimedOut, 0, -1, m_process->lastErrorLines(),
                           std::string("evc-service did not answer ") + name + " within " + Milliseconds(limit.total) +
                               " (" + limit.origin + ") and was stopped");
    }
    const ServiceError::Kind kind =
        m_process->termSignal() != 0 ? ServiceError::Kind::Crashed : ServiceError::Kind::Exited;
    throw ServiceError(kind, m_process->termSignal(), m_process->exitStatus(), m_process->lastErrorLines(),
                       DescribeEnd(*m_process) + " during " + name);
}

void Client::TPrivate::Violation(const std::string& what)
{
    m_process->kill();
    throw ServiceError(ServiceError::Kind::ProtocolViolation, 0, -1, m_process->lastErrorLines(),
                       "evc-service broke the protocol (" + what + ") and was stopped");
}

void Client::TPrivate::CheckUsable() const
{
    if (m_quit)
        throw UsageError("the service was quit; no command can follow");
    if (m_posted)
        throw UsageError("a CompressFrame was posted and not collected; the segment is the service's until then");
}

// A wake that lands between the waiter's look at the flag and the start of
// its sleep is lost: while the waiter sleeps, the wake is repeated (the
// slice's own end bounds the repeats).
bool Client::TPrivate::NoteServiceEnd()
{
    m_serviceEnded.store(true);
    m_channel.WakeResponseWaiter();
    return m_waiting.load();
}

void Client::TPrivate::WaitForResponse(const char* name, const Limit& limit,
                                       std::chrono::steady_clock::time_point start)
{
    const auto deadline = start + limit.total;
    // Once per thread that waits: it then runs as soon as the answer comes.
    static thread_local bool quickWakeUpsAsked = false;
    if (m_options.quickWakeUps && !quickWakeUpsAsked) {
        quickWakeUpsAsked = true;
        ZKPreferQuickWakeUps();
    }
    for (unsigned slice = kFirstWatchSliceMs;; slice = std::min(2 * slice, kLastWatchSliceMs)) {
        // Sleeps on the response semaphore, which the service's post ends at
        // once, in slices; between them the child and the clock are looked
        // at, so a crash is reported within a slice, or at once when the
        // reader thread saw the end.
        m_waiting.store(true);
        const bool answered = m_channel.WaitForResponseWithin(slice, &m_serviceEnded);
        m_waiting.store(false);
        if (answered)
            return;
        // A raised flag ends every wait at once: the child, which the kernel
        // said has ended, is reaped before the next (no busy loop).
        if (!m_process->alive() || (m_serviceEnded.load() && m_process->waitForExit(static_cast<int>(slice)))) {
            // A response posted just before the end still counts.
            if (m_channel.WaitForResponseWithin(0))
                return;
            Fail(name, limit);
        }
        if (std::chrono::steady_clock::now() >= deadline)
            Fail(name, limit);
    }
}

uint32_t Client::TPrivate::Transact(CAExternalVideoProxySharedData::TCommand command, const char* name)
{
    return Transact(command, name, {m_options.commandTimeout, "commandTimeout"});
}

uint32_t Client::TPrivate::Transact(CAExternalVideoProxySharedData::TCommand command, const char* name,
                                    const Limit& limit)
{
    Post(command, name, limit);
    WaitForResponse(name, limit);
    return m_channel.GetStatus();
}

void Client::TPrivate::Post(CAExternalVideoProxySharedData::TCommand command, const char* name, const Limit& limit)
{
    CheckUsable();
    if (!m_process->alive())
        Fail(name, limit);
    // Every response answers one command; one that is already waiting would
    // shift every later status by one.
    if (m_channel.WaitForResponseWithin(0))
        Violation(std::string("a response arrived before ") + name + " was sent");
    m_channel.SetCommand(command);
    m_channel.PostCommand();
}

uint32_t Client::TPrivate::WriteFrame(uint64_t offset, const ZKEncImage_t& record)
{
    const uint64_t capacity = m_channel.payloadCapacity();
    if (offset > capacity)
        throw UsageError("the frame does not fit the shared segment; raise largestFrameBytes");
    const uint64_t room = std::min<uint64_t>(capacity - offset, UINT32_MAX);
    uint8_t* area = m_channel.payload() + offset;

    // Pixels lent over the segment (LendPicture) are written around where
    // they lie; pixels in the area but elsewhere would be overwritten by the
    // element's header before they are moved, so they are staged first.
    ZKEncImage_t local = record;
    std::vector<uint8_t> staged;
    const uintptr_t pixels = reinterpret_cast<uintptr_t>(record.image.planes[0]);
    const uintptr_t start = reinterpret_cast<uintptr_t>(m_channel.payload());
    if (pixels >= start && pixels - start < capacity &&
        pixels != reinterpret_cast<uintptr_t>(area) + ExternalVideoProxy::PixelOffset(record)) {
        const size_t bytes = std::min<uint64_t>(record.image.dataSize, capacity - (pixels - start));
        staged.assign(record.image.planes[0], record.image.planes[0] + bytes);
        for (uint8_t*& plane : local.image.planes)
            if (plane != nullptr)
                plane = staged.data() + (plane - record.image.planes[0]);
    }
    m_proxy.Begin(area, static_cast<uint32_t>(room));
    uint32_t size = 0;
    if (m_proxy.SerializeFrame(&local, size, false) != 0)
        throw UsageError("the frame (" + std::to_string(size) +
                         " bytes as an element) does not fit the shared segment; raise largestFrameBytes");
    return size;
}

void Client::TPrivate::Quit(int ms)
{
    if (m_quit)
        return;
    m_quit = true;
    if (!m_process->alive())
        return;
    m_channel.SetCommand(CAExternalVideoProxySharedData::kQuit);
    m_channel.PostCommand();
    if (!m_process->waitForExit(ms))
        m_process->kill();
}

Client::Client(const ClientOptions& options) : m_private(new TPrivate(options)) {}

Client::~Client()
{
    m_private->Quit(2000);
}

uint32_t Client::SetOutput(const std::string& presetXml)
{
    TPrivate& p = *m_private;
    if (p.m_options.checkPresetKinds) {
        if (!p.m_codecsListed) {
            p.m_codecsListed = true;
            try {
                p.m_codecs =
                    p.m_listing.valid() ? p.m_listing.get() : ListedCodecs(p.m_options, p.m_servicePath, p.m_appFolder);
            } catch (const ServiceError&) {
                // Without a listing the service's own check still applies.
            }
        }
        const std::string mismatch = CheckPresetKinds(presetXml, p.m_codecs);
        if (!mismatch.empty())
            throw PresetError("preset refused: " + mismatch);
    }
    const std::string& folder = p.m_appFolder;
    const std::string& bundle = p.m_options.hostBundle;
    const uint64_t total = folder.size() + bundle.size() + presetXml.size();
    p.CheckUsable();
    if (total > p.m_channel.payloadCapacity() || presetXml.size() > INT32_MAX)
        throw UsageError("the preset does not fit the shared segment");
    uint8_t* area = p.m_channel.payload();
    std::memcpy(area, folder.data(), folder.size());
    std::memcpy(area + folder.size(), bundle.data(), bundle.size());
    std::memcpy(area + folder.size() + bundle.size(), presetXml.data(), presetXml.size());
    p.Record().m_payloadSize0 = static_cast<int32_t>(folder.size());
    p.Record().m_payloadSize1 = static_cast<int32_t>(bundle.size());
    p.Record().m_payloadSize2 = static_cast<int32_t>(presetXml.size());
    return p.Transact(CAExternalVideoProxySharedData::kSetOutput, "SetOutput");
}

uint32_t Client::Begin(const ZKEncImage_t* sample, bool flag)
{
    TPrivate& p = *m_private;
    p.CheckUsable();
    p.Record().m_payloadSize0 = sample != nullptr ? static_cast<int32_t>(p.WriteFrame(0, *sample)) : 0;
    p.Record().m_beginFlag = flag ? 1 : 0;
    p.m_picturesPending = 0;
    return p.Transact(CAExternalVideoProxySharedData::kBegin, "Begin");
}

uint32_t Client::CompressFrame(const ZKEncImage_t* input, bool isKeyFrame, bool isLastFrame, EncodedFrame* result,
                               const ZKEncImage_t* outputDescription)
{
    if (result != nullptr)
        *result = EncodedFrame();
    PostCompressFrame(input, isKeyFrame, isLastFrame, outputDescription);
    return CollectCompressFrame(result);
}

void Client::PostCompressFrame(const ZKEncImage_t* input, bool isKeyFrame, bool isLastFrame,
                               const ZKEncImage_t* outputDescription)
{
    TPrivate& p = *m_private;
    p.CheckUsable();
    // Held until the answer is collected; let go if the post fails.
    p.m_pin.pin(p.m_sharedProcessor);
    try {
        p.PostRequest(input, isKeyFrame, isLastFrame, outputDescription);
    } catch (...) {
        p.m_pin.release();
        throw;
    }
}

void Client::TPrivate::PostRequest(const ZKEncImage_t* input, bool isKeyFrame, bool isLastFrame,
                                   const ZKEncImage_t* outputDescription)
{
    uint32_t inputBytes = input != nullptr ? WriteFrame(0, *input) : 0;
    ZKEncImage_t output{};
    if (outputDescription != nullptr) {
        output = *outputDescription;
    } else if (input != nullptr) {
        // The same geometry and times, without pixels or packets.
        output.image = input->image;
        for (uint8_t*& plane : output.image.planes)
            plane = nullptr;
        output.image.dataSize = 0;
        output.image.dataPackets = nullptr;
    }
    const uint32_t outputBytes = WriteFrame(inputBytes, output);
    Record().m_payloadSize0 = static_cast<int32_t>(inputBytes);
    Record().m_payloadSize1 = static_cast<int32_t>(outputBytes);
    m_channel.SetIsKeyFrame(isKeyFrame);
    m_channel.SetIsLastFrame(isLastFrame);
    if (input != nullptr)
        ++m_picturesPending;
    Limit limit{m_options.commandTimeout, "commandTimeout"};
    if (isLastFrame && m_picturesPending > 0) {
        // Slow is not hung: flushing costs time for each picture still held.
        limit.total += m_options.pendingPictureTimeout * static_cast<int64_t>(m_picturesPending);
        limit.origin += " + " + std::to_string(m_picturesPending) + " pending pictures x pendingPictureTimeout " +
                        Milliseconds(m_options.pendingPictureTimeout);
    }
    Post(CAExternalVideoProxySharedData::kCompressFrame, "CompressFrame", limit);
    m_posted = true;
    m_postedLast = isLastFrame;
    m_postedLimit = std::move(limit);
    m_postedAt = std::chrono::steady_clock::now();
    // On the processor it shares with us, the service's main thread would
    // otherwise wait for what we do until our wait: it goes first.
    if (m_pin.pinned() && m_channel.CommandWaiting())
        sched_yield();
}

uint32_t Client::CollectCompressFrame(EncodedFrame* result)
{
    TPrivate& p = *m_private;
    if (p.m_quit || !p.m_posted)
        throw UsageError(p.m_quit ? "the service was quit; no command can follow"
                                  : "no CompressFrame was posted; there is nothing to collect");
    if (result != nullptr)
        *result = EncodedFrame();
    // Whatever happens next, the segment is the client's again, and the
    // thread may run anywhere.
    p.m_posted = false;
    struct Release {
        TZKProcessorPin& pin;
        ~Release() { pin.release(); }
    } release{p.m_pin};
    const bool isLastFrame = p.m_postedLast;
    p.WaitForResponse("CompressFrame", p.m_postedLimit, p.m_postedAt);
    const uint32_t status = p.m_channel.GetStatus();

    EncodedFrame copy;
    EncodedFrame& out = result != nullptr ? *result : copy;
    const std::string violation =
        ReadCompressReply(p.m_channel.payload(), p.m_channel.payloadCapacity(), p.Record().m_payloadSize0, status, out);
    if (!violation.empty())
        p.Violation(violation);
    if (status != kZKNoErr)
        return status;
    p.m_picturesPending -= std::min<uint64_t>(p.m_picturesPending, out.packets.size());
    if (isLastFrame)
        p.m_picturesPending = 0;
    return status;
}

ZKEncImage_t Client::LendPicture(uint32_t colorFormat, uint32_t width, uint32_t height)
{
    TPrivate& p = *m_private;
    if (p.m_posted)
        throw UsageError("a CompressFrame was posted and not collected; its picture still lies in the segment");
    ZKEncImage_t record{};
    const uint32_t bytes = CalcFrameSize(colorFormat, width, height, 0, false);
    if (width > INT32_MAX || height > INT32_MAX || bytes == 0 ||
        InitZKImage(&record.image, bytes, nullptr, colorFormat, false, static_cast<int>(width),
                    static_cast<int>(height), false) != 0)
        throw UsageError("no plane layout for a " + std::to_string(width) + "x" + std::to_string(height) +
                         " picture of colour format " + std::to_string(colorFormat));
    // The request's first element starts at the payload area's start.
    const uint64_t offset = ExternalVideoProxy::PixelOffset(record);
    if (offset + bytes > p.m_channel.payloadCapacity())
        throw UsageError("a lent picture of " + std::to_string(bytes) +
                         " bytes does not fit the shared segment; raise largestFrameBytes");
    if (InitZKImage(&record.image, bytes, p.m_channel.payload() + offset, colorFormat, false, static_cast<int>(width),
                    static_cast<int>(height), false) != 0)
        throw UsageError("no plane layout for colour format " + std::to_string(colorFormat));
    return record;
}

uint32_t Client::End()
{
    return m_private->Transact(CAExternalVideoProxySharedData::kEnd, "End");
}

bool Client::IsLastPassEncodingReady()
{
    TPrivate& p = *m_private;
    p.CheckUsable();
    p.Record().m_isLastPassEncodingReady = 0;
    const uint32_t status =
        p.Transact(CAExternalVideoProxySharedData::kIsLastPassEncodingReady, "IsLastPassEncodingReady");
    return status == 0 && p.Record().m_isLastPassEncodingReady != 0;
}

uint32_t Client::SetInputColorFormat(uint32_t colorFormat)
{
    m_private->CheckUsable();
    m_private->Record().m_inputColorFormat = colorFormat;
    return m_private->Transact(CAExternalVideoProxySharedData::kSetInputColorFormat, "SetInputColorFormat");
}

uint32_t Client::SetFileFormatHint(uint32_t hint)
{
    m_private->CheckUsable();
    m_private->Record().m_fileFormatHint = hint;
    return m_private->Transact(CAExternalVideoProxySharedData::kSetFileFormatHint, "SetFileFormatHint");
}

uint32_t Client::SetStreamModeHint(uint32_t hint)
{
    m_private->CheckUsable();
    m_private->Record().m_streamModeHint = hint;
    return m_private->Transact(CAExternalVideoProxySharedData::kSetStreamModeHint, "SetStreamModeHint");
}

void Client::Quit()
{
    m_private->Quit(static_cast<int>(m_private->m_options.commandTimeout.count()));
}

int Client::servicePid() const
{
    return m_private->m_process->pid();
}

bool Client::serviceAlive()
{
    return m_private->m_process->alive();
}

std::string Client::segmentKey() const
{
    return m_private->m_channel.GetSharedMemoryName();
}

uint64_t Client::payloadCapacity() const
{
    return m_private->m_channel.payloadCapacity();
}

uint64_t Client::picturesPending() const
{
    return m_private->m_picturesPending;
}

bool Client::compressPosted() const
{
    return m_private->m_posted;
}

}  // namespace evc
