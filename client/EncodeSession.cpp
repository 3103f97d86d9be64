#include "evc/EncodeSession.h"

#include <algorithm>
#include <deque>
#include <future>
#include <optional>

#include "client/ScatteredPicture.h"
#include "transport/ExternalVideoProxy.h"

namespace evc {

StatusError::StatusError(uint32_t status, const std::string& what) : std::runtime_error(what), m_status(status) {}

RecoveryError::RecoveryError(const ServiceError& last, uint64_t frame, unsigned restarts)
    : ServiceError(last.kind(), last.signal(), last.exitStatus(), "",
                   "frame " + std::to_string(frame) + " failed the service " + std::to_string(restarts + 1) +
                       " times in a row, the session gave up after " + std::to_string(restarts) +
                       " restarts; last failure: " + last.what()),
      m_frame(frame), m_restarts(restarts)
{
}

namespace {

std::string Hex(uint32_t status)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", status);
    return text;
}

// A picture kept for re-sending: either as the element the client would
// write for it (one copy, whatever the layout of the caller's planes, into a
// buffer recycled from pictures already handed out), or, when the caller
// vouches for its pixels, as the caller's record and the owner that keeps
// them alive (no copy).
class KeptPicture {
public:
    KeptPicture(const ZKEncImage_t& record, ExternalVideoProxy& proxy, std::vector<uint8_t> buffer)
        : m_bytes(std::move(buffer))
    {
        uint32_t size = 0;
        proxy.Begin(nullptr, 0);
        proxy.SerializeFrame(&record, size, false);
        // A recycled buffer of the size is used as it is (resize zeroes only
        // what it adds); one too small is not copied along when it grows.
        if (m_bytes.capacity() < size)
            m_bytes = std::vector<uint8_t>();
        m_bytes.resize(size);
        proxy.Begin(m_bytes.data(), size);
        if (size == 0 || proxy.SerializeFrame(&record, size, false) != 0)
            throw UsageError("the picture cannot be described as a frame element");
    }
    KeptPicture(const ZKEncImage_t& record, std::shared_ptr<const void> owner)
        : m_owner(std::move(owner)), m_record(record)
    {
        if (record.descriptors != nullptr || record.image.dataPackets != nullptr)
            throw UsageError("a picture kept by its owner cannot carry packet bundles");
    }
    // The record until the next call; a copy's planes point into the kept
    // element itself, so re-sending copies the pixels once, into the segment.
    const ZKEncImage_t& Record(ExternalVideoProxy& proxy)
    {
        if (m_owner)
            return m_record;
        proxy.Begin(m_bytes.data(), static_cast<uint32_t>(m_bytes.size()));
        m_frame = proxy.DeSerializeFrameInPlace(static_cast<uint32_t>(m_bytes.size()), m_record);
        if (!m_frame)
            throw UsageError("a kept picture does not read back");
        return m_record;
    }
    // The copy's buffer, for the next picture kept.
    std::vector<uint8_t> TakeBuffer() { return std::move(m_bytes); }

private:
    std::vector<uint8_t> m_bytes;
    std::shared_ptr<const void> m_owner;
    TZKImageFramePtr m_frame;
    ZKEncImage_t m_record{};
};

struct Pending {
    uint64_t index;
    uint64_t time;
    uint64_t timeScale;
    bool key;
    bool done = false;  // its packet came back (not yet necessarily handed out)
    std::unique_ptr<KeptPicture> picture;
};

using Clock = std::chrono::steady_clock;

// The standby's first ping comes once it has had time to fall asleep; later
// ones keep it well inside the service's five minutes without a command.
constexpr std::chrono::milliseconds kFirstStandbyPing{10};
constexpr std::chrono::seconds kStandbyPingPeriod{30};

struct Received {
    uint64_t frame;
    Packet packet;
};

}  // namespace

class EVC_CLIENT_LOCAL EncodeSession::TPrivate {
public:
    TPrivate(const SessionOptions& options, const std::string& presetXml, const ZKEncImage_t& description)
        : m_options(options), m_preset(presetXml), m_description(description, m_proxy, {})
    {
        Start();
        if (!m_options.standbyService)
            return;
        if (m_options.standbyDelay.count() <= 0)
            ReadyStandby();
        else
            m_standbyDue = Clock::now() + m_options.standbyDelay;
    }

    // A service with the preset applied and the stream begun.
    std::unique_ptr<Client> StartService() const;
    // Takes the standby service when it is ready and alive, else starts one.
    // Returns whether the standby took over.
    bool Start();
    // Starts the next standby in the background.
    void ReadyStandby();
    // Takes over a standby whose start has finished (or, with wait, waits
    // for it); a start that failed leaves none.
    void TakeStandby(bool wait);
    // Pings the idle standby now and then: its first wait learns that this
    // side wakes it (else it polls every millisecond), and a service that
    // hears nothing for five minutes ends itself.
    void LookAfterStandby();
    // Sends one command; index names the picture it carries (for errors).
    void Send(const ZKEncImage_t* picture, bool key, bool last, uint64_t index);
    // The two halves of Send.
    void PostPicture(const ZKEncImage_t* picture, bool key, bool last);
    void Receive(uint64_t index, bool last);
    // Sends with recovery: on a service failure restarts and re-sends.
    void SendRecovering(const ZKEncImage_t* picture, bool key, bool last);
    void Recover(const ServiceError& fault, uint64_t failedIndex, bool last, Clock::time_point commandStart);
    // Notes the delivery time of recoveries whose re-sent pictures are all out.
    void NoteDeliveries();
    void Absorb(const EncodedFrame& reply, bool last);
    void Release(bool everything);
    Pending* Find(const Packet& packet);
    // Sends a new picture, kept as given for re-sending, without waiting.
    void Post(const ZKEncImage_t& picture, std::unique_ptr<KeptPicture> kept, bool key, bool last);
    // Waits for the posted picture's answer; recovers a service that failed.
    void Collect(std::vector<EncodedFrame>& output);
    // Refuses a call while a picture is posted and not collected.
    void CheckNotPosted() const;
    // A buffer of a picture handed out, for the next copy.
    std::vector<uint8_t> SpareBuffer();

    SessionOptions m_options;
    std::string m_preset;
    ExternalVideoProxy m_proxy;
    KeptPicture m_description;
    std::unique_ptr<Client> m_client;
    std::future<std::unique_ptr<Client>> m_standbyStart;  // a standby starting in the background
    std::unique_ptr<Client> m_standby;                    // one ready and idle
    bool m_pingStandby = true;                            // until a ping failed
    Clock::time_point m_standbyPing;                      // when the standby is pinged next
    std::optional<Clock::time_point> m_standbyDue;        // the first standby's start
    std::deque<Pending> m_pending;                        // by index; the front is the oldest not handed out
    std::deque<Received> m_received;
    std::vector<Packet> m_headers;  // stream headers waiting for their first picture
    std::vector<EncodedFrame>* m_sink = nullptr;
    uint64_t m_next = 0;
    bool m_finished = false;
    // A picture posted and not collected, and the service's failure during
    // the post, reported when it is collected.
    bool m_posted = false;
    Clock::time_point m_postedAt;
    std::optional<ServiceError> m_postFault;
    unsigned m_restartsInRow = 0;
    std::vector<RecoveryEvent> m_recoveries;
    struct Delivery {
        size_t event;         // in m_recoveries
        uint64_t lastResent;  // out once it left m_pending
        Clock::time_point faultKnown;
    };
    std::vector<Delivery> m_deliveries;          // recoveries whose re-sent pictures are not all out
    std::vector<std::vector<uint8_t>> m_spares;  // buffers of kept copies handed out
};

std::unique_ptr<Client> EncodeSession::TPrivate::StartService() const
{
    auto client = std::make_unique<Client>(m_options.client);
    uint32_t status = client->SetOutput(m_preset);
    if (status != kZKNoErr)
        throw StatusError(status, "the service refused the preset (status " + Hex(status) + ")");
    // A proxy of its own: this may run beside the session's thread.
    ExternalVideoProxy proxy;
    KeptPicture description = m_description;
    status = client->Begin(&description.Record(proxy));
    if (status != kZKNoErr)
        throw StatusError(status, "the compressor refused to begin the stream (status " + Hex(status) + ")");
    return client;
}

bool EncodeSession::TPrivate::Start()
{
    m_client.reset();
    TakeStandby(true);
    if (m_standby && m_standby->serviceAlive())
        m_client = std::move(m_standby);
    m_standby.reset();
    if (m_client)
        return true;
    m_client = StartService();
    return false;
}

void EncodeSession::TPrivate::ReadyStandby()
{
    m_standbyDue.reset();
    m_standbyStart = std::async(std::launch::async, [this] { return StartService(); });
}

void EncodeSession::TPrivate::TakeStandby(bool wait)
{
    if (!m_standbyStart.valid() ||
        (!wait && m_standbyStart.wait_for(std::chrono::seconds(0)) != std::future_status::ready))
        return;
    try {
        m_standby = m_standbyStart.get();
        // Pinged once it sleeps in its wait for a command.
        m_standbyPing = Clock::now() + kFirstStandbyPing;
    } catch (const std::exception&) {
        // The standby failed; a recovery's fresh start says why if it fails too.
    }
}

void EncodeSession::TPrivate::LookAfterStandby()
{
    TakeStandby(false);
    const auto now = Clock::now();
    if (!m_standby || !m_pingStandby || now < m_standbyPing)
        return;
    m_standbyPing = now + kStandbyPingPeriod;
    try {
        m_standby->IsLastPassEncodingReady();
    } catch (const std::exception&) {
        // It died idle, or the ping killed it (a compressor that fails the
        // query): another one takes its place, and none is pinged again.
        m_pingStandby = false;
        m_standby.reset();
        ReadyStandby();
    }
}

Pending* EncodeSession::TPrivate::Find(const Packet& packet)
{
    for (Pending& frame : m_pending) {
        if (frame.done)
            continue;
        const unsigned __int128 a = static_cast<unsigned __int128>(frame.time) * packet.timeBase;
        const unsigned __int128 b = static_cast<unsigned __int128>(packet.time) * frame.timeScale;
        if (a == b)
            return &frame;
    }
    // No picture with that time: the oldest one still waiting.
    for (Pending& frame : m_pending)
        if (!frame.done)
            return &frame;
    return nullptr;
}

void EncodeSession::TPrivate::Absorb(const EncodedFrame& reply, bool last)
{
    m_headers.insert(m_headers.end(), reply.descriptors.begin(), reply.descriptors.end());
    for (const Packet& packet : reply.packets) {
        Pending* frame = Find(packet);
        if (frame != nullptr)
            frame->done = true;
        m_received.push_back({frame != nullptr ? frame->index : m_next, packet});
    }
    Release(last);
}

void EncodeSession::TPrivate::Release(bool everything)
{
    // Every picture up to here has its packet.
    uint64_t complete = m_pending.empty() ? m_next : m_pending.front().index;
    for (const Pending& frame : m_pending) {
        if (!frame.done)
            break;
        complete = frame.index + 1;
    }
    // Bounded memory: the oldest pictures are handed out as they are.
    if (m_pending.size() > m_options.maxPendingFrames)
        complete = std::max(complete, m_pending[m_pending.size() - m_options.maxPendingFrames].index);
    uint64_t released = 0;
    while (!m_received.empty() && (everything || m_received.front().frame < complete)) {
        if (!m_headers.empty() || m_sink->empty()) {
            m_sink->emplace_back();
            m_sink->back().descriptors.swap(m_headers);
        }
        EncodedFrame& out = m_sink->back();
        if (out.packets.empty()) {
            out.time = m_received.front().packet.time;
            out.timeScale = m_received.front().packet.timeBase;
        }
        out.packets.push_back(std::move(m_received.front().packet));
        m_received.pop_front();
        ++released;
    }
    if (everything)
        complete = m_next;
    while (!m_pending.empty() && m_pending.front().index < complete &&
           std::none_of(m_received.begin(), m_received.end(),
                        [&](const Received& r) { return r.frame == m_pending.front().index; })) {
        // A few buffers are enough: about one picture leaves per picture sent.
        if (m_spares.size() < 4)
            m_spares.push_back(m_pending.front().picture->TakeBuffer());
        m_pending.pop_front();
        ++released;
    }
    if (released > 0)
        m_restartsInRow = 0;
    NoteDeliveries();
}

void EncodeSession::TPrivate::NoteDeliveries()
{
    const auto now = Clock::now();
    for (size_t i = 0; i < m_deliveries.size();) {
        const Delivery& d = m_deliveries[i];
        if (!m_pending.empty() && m_pending.front().index <= d.lastResent) {
            ++i;
            continue;
        }
        m_recoveries[d.event].deliveryTime = std::chrono::duration_cast<std::chrono::microseconds>(now - d.faultKnown);
        m_deliveries.erase(m_deliveries.begin() + static_cast<std::ptrdiff_t>(i));
    }
}

void EncodeSession::TPrivate::PostPicture(const ZKEncImage_t* picture, bool key, bool last)
{
    // Planes that lie apart are copied straight into the segment.
    ZKEncImage_t gathered{};
    if (picture != nullptr && IsScattered(*picture))
        picture = &(gathered = GatherIntoSegment(*m_client, *picture));
    m_client->PostCompressFrame(picture, key, last);
}

void EncodeSession::TPrivate::Receive(uint64_t index, bool last)
{
    EncodedFrame reply;
    const uint32_t status = m_client->CollectCompressFrame(&reply);
    if (status != kZKNoErr)
        throw StatusError(status,
                          "the compressor failed on frame " + std::to_string(index) + " (status " + Hex(status) + ")");
    Absorb(reply, last);
}

void EncodeSession::TPrivate::Send(const ZKEncImage_t* picture, bool key, bool last, uint64_t index)
{
    PostPicture(picture, key, last);
    Receive(index, last);
}

void EncodeSession::TPrivate::SendRecovering(const ZKEncImage_t* picture, bool key, bool last)
{
    // The newest picture: the one sent, or the last one for a flush.
    const uint64_t index = m_next - 1;
    const auto start = Clock::now();
    try {
        Send(picture, key, last, index);
    } catch (const ServiceError& fault) {
        Recover(fault, index, last, start);
    }
}

void EncodeSession::TPrivate::Recover(const ServiceError& firstFault, uint64_t failedIndex, bool last,
                                      Clock::time_point commandStart)
{
    if (m_options.maxRestarts == 0)
        throw firstFault;
    const auto start = Clock::now();
    const auto since = [&start] { return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start); };
    ServiceError fault = firstFault;
    RecoveryEvent event;
    event.fault = fault.kind();
    event.message = fault.what();
    event.failedFrame = failedIndex;
    event.detectTime = std::chrono::duration_cast<std::chrono::microseconds>(start - commandStart);
    for (;;) {
        if (++m_restartsInRow > m_options.maxRestarts)
            throw RecoveryError(fault, failedIndex, m_restartsInRow - 1);
        ++event.restarts;
        // What the dead service produced but the host has not received is
        // lost with it; those pictures are pending again.
        m_received.clear();
        m_headers.clear();
        for (Pending& frame : m_pending)
            frame.done = false;
        event.resentFrames.clear();
        try {
            event.fromStandby = Start();
            event.restartTime = since();
            bool first = true;
            // Index-based: a re-sent picture that completes leaves the deque.
            for (size_t i = 0; i < m_pending.size();) {
                Pending& frame = m_pending[i];
                const uint64_t index = frame.index;
                const bool lastOne = last && index + 1 == m_next;
                failedIndex = index;
                event.resentFrames.push_back(index);
                const size_t before = m_pending.size();
                Send(&frame.picture->Record(m_proxy), first || frame.key, lastOne, index);
                first = false;
                // Released pictures left the front; the rest moved down.
                i = i + 1 - std::min(i + 1, before - m_pending.size());
            }
            break;
        } catch (const ServiceError& next) {
            fault = next;
        }
    }
    event.recoveryTime = since();
    // The next standby starts only now: its start-up would have competed
    // with the re-encode for the processor.
    if (m_options.standbyService)
        ReadyStandby();
    m_recoveries.push_back(event);
    if (!event.resentFrames.empty())
        m_deliveries.push_back({m_recoveries.size() - 1, event.resentFrames.back(), start});
    NoteDeliveries();
    if (m_options.onRecovery)
        m_options.onRecovery(m_recoveries.back());
}

EncodeSession::EncodeSession(const SessionOptions& options, const std::string& presetXml,
                             const ZKEncImage_t& streamDescription)
    : m_private(new TPrivate(options, presetXml, streamDescription))
{
}

EncodeSession::~EncodeSession() = default;

std::vector<uint8_t> EncodeSession::TPrivate::SpareBuffer()
{
    if (m_spares.empty())
        return {};
    std::vector<uint8_t> buffer = std::move(m_spares.back());
    m_spares.pop_back();
    return buffer;
}

void EncodeSession::TPrivate::CheckNotPosted() const
{
    if (m_posted)
        throw UsageError("a picture was posted and not collected; collect it first");
}

void EncodeSession::TPrivate::Post(const ZKEncImage_t& picture, std::unique_ptr<KeptPicture> kept, bool key, bool last)
{
    CheckNotPosted();
    if (m_finished)
        throw UsageError("the stream was finished; no picture can follow");
    if (m_standbyDue && Clock::now() >= *m_standbyDue)
        ReadyStandby();
    LookAfterStandby();
    m_pending.push_back({m_next, picture.image.time, picture.image.timeScale, key, false, std::move(kept)});
    ++m_next;
    m_postFault.reset();
    // A failure is timed from the command's start, the copy of the picture included.
    m_postedAt = Clock::now();
    // The caller's own picture goes out; the kept one serves re-sending.
    try {
        PostPicture(&picture, key, last);
    } catch (const ServiceError& fault) {
        // The picture is pending: Collect recovers and sends it again.
        m_postFault = fault;
    } catch (...) {
        // Refused before it was sent (it does not fit): as if never given.
        m_pending.pop_back();
        --m_next;
        throw;
    }
    m_finished = last;
    m_posted = true;
}

void EncodeSession::TPrivate::Collect(std::vector<EncodedFrame>& output)
{
    if (!m_posted)
        throw UsageError("no picture was posted; there is nothing to collect");
    m_posted = false;
    m_sink = &output;
    const uint64_t index = m_next - 1;
    try {
        if (m_postFault)
            throw ServiceError(*m_postFault);
        // Nothing but a Collect follows a Post: the posted picture was the
        // last one exactly when the stream is finished.
        Receive(index, m_finished);
    } catch (const ServiceError& fault) {
        m_postFault.reset();
        Recover(fault, index, m_finished, m_postedAt);
    }
}

void EncodeSession::Encode(const ZKEncImage_t& picture, bool isKeyFrame, bool isLastFrame,
                           std::vector<EncodedFrame>& output)
{
    TPrivate& p = *m_private;
    p.CheckNotPosted();
    if (p.m_finished)
        throw UsageError("the stream was finished; no picture can follow");
    p.Post(picture, std::make_unique<KeptPicture>(picture, p.m_proxy, p.SpareBuffer()), isKeyFrame, isLastFrame);
    p.Collect(output);
}

void EncodeSession::Encode(const ZKEncImage_t& picture, std::shared_ptr<const void> owner, bool isKeyFrame,
                           bool isLastFrame, std::vector<EncodedFrame>& output)
{
    Post(picture, std::move(owner), isKeyFrame, isLastFrame);
    m_private->Collect(output);
}

void EncodeSession::Post(const ZKEncImage_t& picture, std::shared_ptr<const void> owner, bool isKeyFrame,
                         bool isLastFrame)
{
    TPrivate& p = *m_private;
    if (!owner)
        throw UsageError("a picture kept by its owner needs an owner");
    p.Post(picture, std::make_unique<KeptPicture>(picture, std::move(owner)), isKeyFrame, isLastFrame);
}

void EncodeSession::Collect(std::vector<EncodedFrame>& output)
{
    m_private->Collect(output);
}

void EncodeSession::Finish(std::vector<EncodedFrame>& output)
{
    TPrivate& p = *m_private;
    p.CheckNotPosted();
    if (p.m_finished)
        return;
    p.m_finished = true;
    p.m_sink = &output;
    p.SendRecovering(nullptr, false, true);
}

void EncodeSession::Close()
{
    TPrivate& p = *m_private;
    p.CheckNotPosted();
    try {
        const uint32_t status = p.m_client->End();
        if (status != kZKNoErr)
            throw StatusError(status, "the compressor failed to end the stream (status " + Hex(status) + ")");
        p.m_client->Quit();
    } catch (const ServiceError&) {
        if (!p.m_pending.empty() || !p.m_received.empty())
            throw;
    }
}

uint64_t EncodeSession::framesSent() const
{
    return m_private->m_next;
}

uint64_t EncodeSession::framesPending() const
{
    return m_private->m_pending.size();
}

const std::vector<RecoveryEvent>& EncodeSession::recoveries() const
{
    return m_private->m_recoveries;
}

int EncodeSession::servicePid() const
{
    return m_private->m_client->servicePid();
}

}  // namespace evc
