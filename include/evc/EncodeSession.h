/// @file
/// An encode that survives its codec: a session above Client that owns the
/// preset and the stream description, sends pictures, and when the service
/// crashes, exits, hangs or breaks the protocol during a picture, starts a new
/// service, applies the same preset, begins the stream again and re-sends
/// every picture whose compressed output it has not yet handed out, the first
/// as a forced key frame. The output stays complete and decodable across the
/// restart: the new stream brings its own headers (descriptors).
///
/// Which pictures are pending: a compressed packet carries the time of the
/// picture it encodes. The session keeps each picture it sent until the host
/// has received its packet, and hands packets out (in the order the codec
/// produced them) only once every earlier picture in presentation order has
/// its packet too. So what the host holds is always a whole, decodable prefix
/// of the pictures, and what a crash loses is exactly the pictures kept for
/// re-sending. Their number is bounded by the encoder's delay (look-ahead and
/// reordering). A codec whose packets carry no such time is matched in order:
/// each packet completes the oldest pending picture.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "evc/Client.h"

namespace evc {

/// One recovery: what failed, what was re-sent and how long it took.
struct RecoveryEvent {
    ServiceError::Kind fault = ServiceError::Kind::Crashed;  ///< how the service failed
    std::string message;                                     ///< the fault's text
    uint64_t failedFrame = 0;                                ///< index of the picture in the command that failed
    std::vector<uint64_t> resentFrames;                      ///< in order; the first went as a key frame
    unsigned restarts = 0;     ///< services started for this recovery (1 unless restarts failed too)
    bool fromStandby = false;  ///< the service that took over was the standby, ready beforehand
    /// From the start of the failed command until the session knew it failed
    /// (a service killed before the command: the time to notice; a crash
    /// inside the codec: the codec's work before it, too; a hang: the limit;
    /// with Post and Collect, the caller's work between the two as well).
    std::chrono::microseconds detectTime{};
    /// The phases below count from the moment the failure was known.
    std::chrono::microseconds restartTime{};  ///< until a service was ready again (preset applied, stream begun)
    /// Until the new service had accepted every pending picture again: the
    /// encode is back where it was before the fault, the next picture can go.
    std::chrono::microseconds recoveryTime{};
    /// Until every re-sent picture's packets were handed out (they leave the
    /// encoder as later pictures push them out, as in any encode): known only
    /// later, so 0 in onRecovery unless the re-send flushed the stream;
    /// recoveries() has it once known.
    std::chrono::microseconds deliveryTime{};
};

/// How an EncodeSession starts its services and how hard it tries to recover.
struct SessionOptions {
    /// For every service the session starts (the first, restarts, the standby).
    ClientOptions client;
    /// Restarts in a row (without a picture completed between them) before
    /// the session gives up; 0 fails at once with the service's own error.
    unsigned maxRestarts = 3;
    /// Pictures kept for re-sending at most; older ones are handed out as they
    /// are and can no longer be recovered. Far above any encoder's delay.
    size_t maxPendingFrames = 1024;
    /// Keep a second service ready (preset applied, stream begun), started in
    /// the background, so a recovery need not wait for a start-up. It costs
    /// one idle process and its segment.
    bool standbyService = true;
    /// How long a session encodes before it readies its first standby: an
    /// encode shorter than that never pays for one (a recovery then starts
    /// a service from cold). After a recovery the next standby starts at
    /// once. 0: with the first service.
    std::chrono::milliseconds standbyDelay{0};
    /// Called after each recovery (also listed by recoveries()), on the
    /// thread that called Encode, Finish or Close; may be empty.
    std::function<void(const RecoveryEvent&)> onRecovery;
};

/// The compressor answered a picture or the preset with a failure status: an
/// answer, so the session does not retry it.
class EVC_CLIENT_API StatusError : public std::runtime_error {
public:
    /// status is the compressor's or the service's answer; what says which
    /// request it answered.
    StatusError(uint32_t status, const std::string& what);
    /// The non-zero status (a code of evc/ZKResult.h or the compressor's own).
    uint32_t status() const { return m_status; }

private:
    uint32_t m_status;
};

/// The session gave up: the service failed again after maxRestarts restarts in
/// a row. kind() and the rest describe the last failure.
class EVC_CLIENT_API RecoveryError : public ServiceError {
public:
    /// last is the final failure; what() names frame, the restarts and it.
    RecoveryError(const ServiceError& last, uint64_t frame, unsigned restarts);
    /// The picture whose command failed every time.
    uint64_t frameIndex() const { return m_frame; }
    /// The restarts made before giving up (maxRestarts).
    unsigned restarts() const { return m_restarts; }

private:
    uint64_t m_frame;
    unsigned m_restarts;
};

/// One stream encoded through a service that may fail: see the file's
/// description. Not thread-safe: call it from one thread at a time. It copies
/// what it is given and hands out EncodedFrames the caller owns.
class EVC_CLIENT_API EncodeSession {
public:
    /// Starts the service, applies the preset and begins a stream like
    /// streamDescription (its geometry and time scale; pixels are not needed).
    /// Throws ServiceError (no recovery yet: nothing to lose), StatusError
    /// (preset or stream refused), UsageError.
    EncodeSession(const SessionOptions& options, const std::string& presetXml, const ZKEncImage_t& streamDescription);
    /// Quits the service. Never throws.
    ~EncodeSession();
    EncodeSession(const EncodeSession&) = delete;
    EncodeSession& operator=(const EncodeSession&) = delete;

    /// Sends picture number framesSent() (copied; the caller keeps it) and
    /// appends what can be handed out to output: one EncodedFrame per run of
    /// packets, each run's stream headers in its descriptors. isLastFrame
    /// flushes the encoder: every remaining packet comes out. Throws
    /// RecoveryError, ServiceError (maxRestarts 0), StatusError, UsageError
    /// (after the last frame).
    void Encode(const ZKEncImage_t& picture, bool isKeyFrame, bool isLastFrame, std::vector<EncodedFrame>& output);
    /// The same without the copy kept for re-sending: owner keeps the pixels
    /// the record points at alive and unchanged until the session lets go of
    /// it (once the picture's packets are handed out, or with the session).
    /// Here the planes may also lie apart, each at its own row bytes (a
    /// decoder's frame), rather than one after the other in one buffer; they
    /// are then copied straight into the segment, still one copy. The picture
    /// may not carry packet bundles (UsageError).
    void Encode(const ZKEncImage_t& picture, std::shared_ptr<const void> owner, bool isKeyFrame, bool isLastFrame,
                std::vector<EncodedFrame>& output);
    /// Encode in two steps: sends the picture as the Encode with an owner does
    /// and returns without waiting, so the caller can prepare the next
    /// picture, or write out earlier packets, while the compressor works.
    /// Collect must follow before any other call that sends. A service that
    /// fails between the two is recovered in Collect, and this picture is sent
    /// again with the others pending. Throws UsageError (a picture already
    /// posted, after the last frame, or as Encode), StatusError.
    void Post(const ZKEncImage_t& picture, std::shared_ptr<const void> owner, bool isKeyFrame, bool isLastFrame);
    /// The second step: waits for the posted picture's answer and appends what
    /// can be handed out to output, as Encode does. Throws what Encode throws,
    /// and UsageError when nothing was posted.
    void Collect(std::vector<EncodedFrame>& output);
    /// Flushes without a new picture, when no last frame was sent. The same
    /// errors as Encode.
    void Finish(std::vector<EncodedFrame>& output);
    /// Ends the stream and quits the service. A service that fails once every
    /// packet is out costs nothing. Throws ServiceError while packets are
    /// still pending, StatusError.
    void Close();

    /// Pictures given to Encode so far; the next one's index.
    uint64_t framesSent() const;
    /// Pictures sent whose packets have not been handed out.
    uint64_t framesPending() const;
    /// Every recovery so far, oldest first; valid as long as the session.
    const std::vector<RecoveryEvent>& recoveries() const;
    /// The service now running (it changes with each recovery).
    int servicePid() const;

private:
    class TPrivate;
    std::unique_ptr<TPrivate> m_private;
};

}  // namespace evc
