// The host side of evc: starts evc-service as a child process, creates the
// shared segment it works in, and drives the conversation one command at a
// time. Every wait is bounded and watches the child, so a codec that crashes
// or hangs the service is reported as a ServiceError, never felt by the host.
//
// Error model. A call returns the status the service answered (0, one of the
// statuses below, or the compressor's own 32-bit result): a status is an
// answer, not a fault. It throws
//   - ServiceError when the service cannot be started, has died, hangs, or
//     breaks the protocol (a reply the client cannot read is the service's
//     fault, never reported as a bad argument of the caller's);
//   - UsageError when the caller asks for something impossible (a frame
//     larger than the segment was sized for, a command after Quit).
// Nothing else escapes except std::bad_alloc. After a ServiceError the
// service is gone: every later command throws ServiceError again.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "evc/Export.h"
#include "evc/ZKImage.h"
#include "evc/ZKResult.h"

namespace evc {

struct ClientOptions {
    // Path of evc-service; empty: EVC_SERVICE from the environment, else
    // evc-service next to the running program, else the installed one
    // (PREFIX/bin beside the PREFIX/lib that holds libevc-client.so).
    std::string servicePath;
    // The folder that holds the host bundle and the bundle's path inside it;
    // empty folder: the parent of the service's folder (a build tree) or
    // PREFIX/lib/evc (an installation); empty bundle: EVC_HOST_BUNDLE from the
    // environment, else Evc.app.
    std::string applicationFolder;
    std::string hostBundle;
    // Name the service is told the host goes by.
    std::string applicationName = "evc-client";
    // Bytes of the largest raw frame the host will send; sizes the segment.
    uint64_t largestFrameBytes = 0;
    // How long one command may take before the service is declared hung.
    std::chrono::milliseconds commandTimeout{30000};
    // The last frame flushes every picture the encoder still holds in one
    // command; it may take commandTimeout plus this much per picture still
    // pending (pictures sent since Begin minus pictures returned).
    std::chrono::milliseconds pendingPictureTimeout{5000};
    // How long the service may take to attach and announce itself.
    std::chrono::milliseconds startTimeout{20000};
    // Copy the service's standard error lines to ours as they come.
    bool forwardServiceErrors = false;
    // SetOutput first checks the kinds a preset gives its settings against
    // what the compressor declares (see evc/CodecList.h) and throws
    // PresetError on a mismatch, before the service sees the preset.
    bool checkPresetKinds = true;
    // Address-space limit of the service in bytes (RLIMIT_AS), 0 for none. A
    // codec that needs more fails its allocations instead of taking the
    // machine's memory. Sanitizer builds reserve far more address space than
    // they use: leave it 0 there. (The service runs sandboxed; EVC_NO_SANDBOX=1
    // in the environment it inherits turns that off, for debugging plug-ins.)
    uint64_t maxServiceMemoryBytes = 0;
};

// The service died, hung, broke the protocol or could not be started.
class EVC_CLIENT_API ServiceError : public std::runtime_error {
public:
    enum class Kind {
        StartFailed,        // the program is missing or did not announce itself
        Crashed,            // a signal ended it (signal())
        Exited,             // it exited during a command (exitStatus())
        TimedOut,           // it did not answer within a limit; what() names the limit
        ProtocolViolation,  // it answered something the protocol does not allow
    };

    ServiceError(Kind kind, int signal, int exitStatus, std::string lastErrorLines, const std::string& what);

    Kind kind() const { return m_kind; }
    // The signal that ended the service (Crashed), else 0.
    int signal() const { return m_signal; }
    // The service's exit status (Exited), else -1.
    int exitStatus() const { return m_exitStatus; }
    // The last lines the service wrote on standard error.
    const std::string& lastErrorLines() const { return m_lastErrorLines; }

private:
    Kind m_kind;
    int m_signal;
    int m_exitStatus;
    std::string m_lastErrorLines;
};

// A request the caller should not have made; the service is not involved and
// the client stays usable unless the text says otherwise.
class EVC_CLIENT_API UsageError : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

// One compressed packet as the service returned it, owned by the caller.
struct Packet {
    uint32_t type = 0;
    uint32_t track = 0;
    uint64_t time = 0;
    uint64_t timeBase = 1000;
    uint64_t duration = 0;
    std::vector<uint8_t> descriptor;
    std::vector<uint8_t> data;
    // 0 for a member of the frame's bundle, 1 inside a nested bundle, ...
    unsigned depth = 0;
};

// What CompressFrame gave back: the output record's packet bundles, flattened
// in order, and its stream fields.
struct EncodedFrame {
    std::vector<Packet> descriptors;
    std::vector<Packet> packets;
    uint64_t time = 0;
    uint64_t timeScale = 0;
    uint64_t streamValue = 0;
    uint32_t streamFlags = 0;
    // The reply element's size in the payload area.
    uint32_t replyBytes = 0;
};

// Every command below throws ServiceError (the service died, hung or broke
// the protocol) and UsageError (called after Quit), besides what it lists.
class EVC_CLIENT_API Client {
public:
    // Removes what hosts that died left in the temporary folder, creates the
    // segment, starts the service and waits until it is ready (startTimeout).
    // Throws ServiceError (StartFailed, or how the service ended); no child
    // and no segment are left behind then.
    explicit Client(const ClientOptions& options = ClientOptions());
    // Quits the service when it is alive, reaps it, removes the segment.
    // Never throws.
    ~Client();

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Command 5: loads and configures the compressor a preset XML names.
    // Returns 0, kZKErrBadPreset, kZKErrNoCompressor or the compressor's
    // status. UsageError: the preset does not fit the segment.
    // Throws PresetError (evc/CodecList.h) for a setting given a kind other
    // than the one the compressor declares; the preset is not sent.
    uint32_t SetOutput(const std::string& presetXml);
    // Command 1: starts a stream whose frames look like sample (may be null).
    // Returns the compressor's status (kZKErrNoCompressor before a good
    // SetOutput). UsageError: the sample does not fit the segment.
    uint32_t Begin(const ZKEncImage_t* sample, bool flag = false);
    // Command 3: compresses input (may be null, e.g. to flush). The output
    // description defaults to input's geometry with no packets. result (may
    // be null) receives copies of the output's packets; it is filled only
    // when the status is 0. Returns the compressor's status. With isLastFrame
    // the limit grows by pendingPictureTimeout per pending picture.
    // UsageError: the frames do not fit the segment (raise largestFrameBytes).
    // ServiceError ProtocolViolation: the reply's size is out of range, it is
    // not a frame element, or a success came without one.
    uint32_t CompressFrame(const ZKEncImage_t* input, bool isKeyFrame, bool isLastFrame, EncodedFrame* result,
                           const ZKEncImage_t* outputDescription = nullptr);
    // A picture whose planes lie in the shared segment, exactly where
    // CompressFrame (or Begin) puts the pixels of the request's frame: read or
    // convert a frame straight into its planes, set its times, and pass it to
    // CompressFrame, which then writes only the element's header and
    // information around the pixels instead of copying them. The layout is
    // the format's standard one (planes back to back, default row bytes; for
    // 4:2:0 both chroma planes use rowBytes[1]), time 0 at time scale 1. Keep
    // the geometry, data size and planes as handed out; the times, stream
    // fields and flags may change. The pixels are valid until the next
    // command: any call that talks to the service overwrites them, so fill
    // the picture and send it before any other call. A lent picture whose
    // element would no longer start its pixels there (changed geometry,
    // bundles added) is still sent correctly, at the cost of one copy.
    // Throws UsageError for a format or size without a plane layout, or a
    // picture that does not fit the segment (raise largestFrameBytes).
    ZKEncImage_t LendPicture(uint32_t colorFormat, uint32_t width, uint32_t height);
    // Command 2. Returns the service's status (0, or kZKErrNoCompressor).
    uint32_t End();
    // Command 4. The compressor's answer; false on a non-zero status.
    bool IsLastPassEncodingReady();
    // Commands 6, 7, 8. Return the service's status (0, or
    // kZKErrNoCompressor).
    uint32_t SetInputColorFormat(uint32_t colorFormat);
    uint32_t SetFileFormatHint(uint32_t hint);
    uint32_t SetStreamModeHint(uint32_t hint);
    // Command 9; the service exits (it is killed when it does not within
    // commandTimeout). Later commands throw UsageError. Never throws.
    void Quit();

    // The service's process id, and whether it still runs. Never throw.
    int servicePid() const;
    bool serviceAlive();
    // The key of the shared segment (its backing file).
    std::string segmentKey() const;
    // Bytes a request may occupy in the payload area.
    uint64_t payloadCapacity() const;
    // Pictures sent since Begin whose compressed output has not come back.
    uint64_t picturesPending() const;

private:
    class TPrivate;
    std::unique_ptr<TPrivate> m_private;
};

}  // namespace evc
