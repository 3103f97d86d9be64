/// @file
/// The host side of evc: starts evc-service as a child process, creates the
/// shared segment it works in, and drives the conversation one command at a
/// time. Every wait is bounded and watches the child, so a codec that crashes
/// or hangs the service is reported as a ServiceError, never felt by the host.
///
/// Error model. A call returns the status the service answered (0, a code of
/// evc/ZKResult.h, or the compressor's own 32-bit result): a status is an
/// answer, not a fault. It throws
///   - ServiceError when the service cannot be started, has died, hangs, or
///     breaks the protocol (a reply the client cannot read is the service's
///     fault, never reported as a bad argument of the caller's);
///   - UsageError when the caller asks for something impossible (a frame
///     larger than the segment was sized for, a command after Quit).
/// Nothing else escapes except std::bad_alloc. After a ServiceError the
/// service is gone: every later command throws ServiceError again.
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

/// How a Client finds and starts the service, sizes the segment and bounds
/// each wait. Every field has a usable default except largestFrameBytes.
struct ClientOptions {
    /// Path of evc-service; empty: EVC_SERVICE from the environment, else
    /// evc-service next to the running program, else the installed one
    /// (PREFIX/bin, found from the PREFIX/LIBDIR that holds libevc-client.so;
    /// a statically linked host looks in the configured prefix's bin).
    std::string servicePath;
    /// The folder that holds the host bundle; empty: the parent of the
    /// service's folder when the host bundle is there (a build tree), else
    /// PREFIX/LIBDIR/evc (an installation).
    std::string applicationFolder;
    /// The host bundle's path inside applicationFolder (its Contents/PlugIns
    /// holds the plug-in bundles); empty: EVC_HOST_BUNDLE from the
    /// environment, else Evc.app.
    std::string hostBundle;
    /// Name the service is told the host goes by.
    std::string applicationName = "evc-client";
    /// Bytes of the largest raw frame the host will send (pixels of every
    /// plane); sizes the segment. 0 leaves room for small frames only.
    uint64_t largestFrameBytes = 0;
    /// How long one command may take before the service is declared hung.
    std::chrono::milliseconds commandTimeout{30000};
    /// The last frame flushes every picture the encoder still holds in one
    /// command; it may take commandTimeout plus this much per picture still
    /// pending (pictures sent since Begin minus pictures returned).
    std::chrono::milliseconds pendingPictureTimeout{5000};
    /// How long the service may take to attach and announce itself.
    std::chrono::milliseconds startTimeout{20000};
    /// Copy the service's standard error lines to ours as they come.
    bool forwardServiceErrors = false;
    /// SetOutput first checks the kinds a preset gives its settings against
    /// what the compressor declares (see evc/CodecList.h) and throws
    /// PresetError on a mismatch, before the service sees the preset.
    bool checkPresetKinds = true;
    /// Address-space limit of the service in bytes (RLIMIT_AS), 0 for none. A
    /// codec that needs more fails its allocations instead of taking the
    /// machine's memory. Sanitizer builds reserve far more address space than
    /// they use: leave it 0 there. (The service runs sandboxed; EVC_NO_SANDBOX=1
    /// in the environment it inherits turns that off, for debugging plug-ins.)
    uint64_t maxServiceMemoryBytes = 0;
    /// Each thread that waits for the service asks the kernel, once, for the
    /// shortest scheduling slice (Linux 6.12 and later; its nice value,
    /// policy and share of the processor stay): when the answer comes while
    /// the codec's threads fill every processor, it runs at once instead of
    /// after a busy thread's slice (up to about a millisecond). Threads and
    /// processes it starts afterwards keep the default. Real-time threads
    /// are left alone; EVC_NO_FUTEX=1 turns it off with the futex wake-ups.
    bool quickWakeUps = true;
    /// The thread that posts a CompressFrame stays on one processor until
    /// its answer is collected, and the service's main thread stays on the
    /// same one (Linux): each hand-over then wakes a thread on a processor
    /// that runs, rather than one that sleeps, which on a virtual machine
    /// costs tens of microseconds twice per picture. After the post the
    /// thread yields that processor to the service's main thread once. The
    /// codec's own threads keep every processor, and a service whose main
    /// thread does most of the codec's work is let go again. Sessions that
    /// share processors take the next one in turn. Threads the caller
    /// starts between the post and the collect would inherit the one
    /// processor: leave it off when the caller does that. evc-encode turns
    /// it on.
    bool shareProcessor = false;
};

/// The service died, hung, broke the protocol or could not be started. what()
/// says what happened and during which command, followed by the service's
/// last lines of standard error when it wrote any.
class EVC_CLIENT_API ServiceError : public std::runtime_error {
public:
    /// How the service failed.
    enum class Kind {
        StartFailed,        ///< the program is missing or did not announce itself
        Crashed,            ///< a signal ended it (signal())
        Exited,             ///< it exited during a command (exitStatus())
        TimedOut,           ///< it did not answer within a limit; what() names the limit
        ProtocolViolation,  ///< it answered something the protocol does not allow
    };

    /// what, with lastErrorLines appended when there are any; signal is 0 and
    /// exitStatus -1 where they do not apply.
    ServiceError(Kind kind, int signal, int exitStatus, std::string lastErrorLines, const std::string& what);

    /// How the service failed.
    Kind kind() const { return m_kind; }
    /// The signal that ended the service (Crashed), else 0.
    int signal() const { return m_signal; }
    /// The service's exit status (Exited), else -1.
    int exitStatus() const { return m_exitStatus; }
    /// The last lines the service wrote on standard error.
    const std::string& lastErrorLines() const { return m_lastErrorLines; }

private:
    Kind m_kind;
    int m_signal;
    int m_exitStatus;
    std::string m_lastErrorLines;
};

/// A request the caller should not have made; the service is not involved and
/// the client stays usable unless the text says otherwise.
class EVC_CLIENT_API UsageError : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

/// One compressed packet as the service returned it: a copy, owned by the
/// caller, valid after the client and the service are gone.
struct Packet {
    uint32_t type = 0;                ///< the codec's packet type (e.g. evc/H264Codec.h)
    uint32_t track = 0;               ///< the track the compressor gave it
    uint64_t time = 0;                ///< presentation time, in units of timeBase
    uint64_t timeBase = 1000;         ///< units per second of time and duration
    uint64_t duration = 0;            ///< in units of timeBase; 0 when not known
    std::vector<uint8_t> descriptor;  ///< codec-specific side data; empty when none
    std::vector<uint8_t> data;        ///< the compressed bytes
    /// 0 for a member of the frame's bundle, 1 inside a nested bundle, ...
    unsigned depth = 0;
};

/// What CompressFrame gave back: the output record's packet bundles, flattened
/// in order (nested bundles in place of the bundle), and its stream fields.
struct EncodedFrame {
    /// Stream headers (parameter sets, configuration records); usually only
    /// in the first output that holds a picture.
    std::vector<Packet> descriptors;
    /// The compressed pictures handed out by this call, in decoding order;
    /// empty while the encoder still holds them.
    std::vector<Packet> packets;
    uint64_t time = 0;         ///< the output record's time, in units of timeScale
    uint64_t timeScale = 0;    ///< units per second of time
    uint64_t streamValue = 0;  ///< carried from the compressor unchanged
    uint32_t streamFlags = 0;  ///< carried from the compressor unchanged
    /// The reply element's size in the payload area.
    uint32_t replyBytes = 0;
};

/// One conversation with one evc-service process. Not thread-safe: call it
/// from one thread at a time. Pointers it is given are read during the call
/// only; what it hands back is the caller's (except LendPicture's planes).
///
/// Every command below throws ServiceError (the service died, hung or broke
/// the protocol) and UsageError (called after Quit), besides what it lists;
/// a status it returns is the service's or the compressor's answer.
class EVC_CLIENT_API Client {
public:
    /// Removes what hosts that died left in the temporary folder, creates the
    /// segment, starts the service and waits until it is ready (startTimeout).
    /// Throws ServiceError (StartFailed, or how the service ended); no child
    /// and no segment are left behind then.
    explicit Client(const ClientOptions& options = ClientOptions());
    /// Quits the service when it is alive (waiting up to 2 s before killing
    /// it), reaps it, removes the segment. Never throws.
    ~Client();

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Command 5: loads and configures the compressor a preset names.
    /// @param presetXml the preset's XML text itself (not a file name): an
    ///        "Output" root whose "VideoCompressor" names the plug-in by
    ///        Manufacture4cc and Codec4cc and gives its settings.
    /// @return 0; kZKErrBadPreset for a preset that does not parse, names no
    ///         codes or gives a setting a wrong kind; kZKErrNoCompressor when
    ///         no plug-in offers the codes; or the compressor's status.
    /// @throws PresetError (evc/CodecList.h) for a setting given a kind other
    ///         than the one the compressor declares (checkPresetKinds); the
    ///         preset is not sent.
    /// @throws UsageError the preset does not fit the segment.
    uint32_t SetOutput(const std::string& presetXml);
    /// Command 1: starts a stream.
    /// @param sample a picture like the stream's (format, size, time scale;
    ///        its pixels are sent too when it has them), or null.
    /// @param flag passed to the compressor as is.
    /// @return the compressor's status; kZKErrNoCompressor before a good
    ///         SetOutput; kZKErrBadArgument when the service cannot read the
    ///         sample.
    /// @throws UsageError the sample does not fit the segment.
    uint32_t Begin(const ZKEncImage_t* sample, bool flag = false);
    /// Command 3: compresses one picture and collects what the encoder hands
    /// out. With isLastFrame the command may take pendingPictureTimeout more
    /// per pending picture, and picturesPending() drops to 0.
    /// @param input the picture (copied into the segment unless it was lent
    ///        by LendPicture), or null to flush with isLastFrame.
    /// @param isKeyFrame ask for a key picture here.
    /// @param isLastFrame the last picture: the encoder hands out all it holds.
    /// @param result cleared, then (status 0 only) given copies of the
    ///        output's packets; may be null.
    /// @param outputDescription the output record sent along; null: input's
    ///        geometry and times without pixels or packets.
    /// @return 0; the compressor's status; kZKErrNoCompressor before a good
    ///         SetOutput; kZKErrBadArgument when the service cannot read the
    ///         request; kZKErrFrameTooLarge when the compressor's output did
    ///         not fit the reply area.
    /// @throws UsageError the frames do not fit the segment (raise
    ///         largestFrameBytes).
    /// @throws ServiceError ProtocolViolation: the reply's size is out of
    ///         range, it is not a frame element, or a success came without one.
    uint32_t CompressFrame(const ZKEncImage_t* input, bool isKeyFrame, bool isLastFrame, EncodedFrame* result,
                           const ZKEncImage_t* outputDescription = nullptr);
    /// The first half of CompressFrame: writes the request and posts command
    /// 3, then returns without waiting, so the caller can read and convert
    /// the next picture, or write out earlier packets, while the compressor
    /// works. CollectCompressFrame gives the answer. Until then the segment
    /// is the service's: every other command, and LendPicture, throws
    /// UsageError. The command's time limit counts from the post.
    /// @param input, isKeyFrame, isLastFrame, outputDescription as for
    ///        CompressFrame.
    /// @throws UsageError as CompressFrame, or a CompressFrame already posted.
    void PostCompressFrame(const ZKEncImage_t* input, bool isKeyFrame, bool isLastFrame,
                           const ZKEncImage_t* outputDescription = nullptr);
    /// The second half: waits for the answer to the posted CompressFrame and
    /// reads its reply.
    /// @param result as for CompressFrame.
    /// @return as CompressFrame.
    /// @throws UsageError nothing was posted.
    /// @throws ServiceError as CompressFrame (a service that died after the
    ///         post is reported here).
    uint32_t CollectCompressFrame(EncodedFrame* result);
    /// Whether a CompressFrame was posted and not yet collected. Never throws.
    bool compressPosted() const;
    /// A picture whose planes lie in the shared segment, exactly where
    /// CompressFrame (or Begin) puts the pixels of the request's frame: read or
    /// convert a frame straight into its planes, set its times, and pass it to
    /// CompressFrame, which then writes only the element's header and
    /// information around the pixels instead of copying them. The layout is
    /// the format's standard one (planes back to back, default row bytes; for
    /// 4:2:0 both chroma planes use rowBytes[1]), time 0 at time scale 1. Keep
    /// the geometry, data size and planes as handed out; the times, stream
    /// fields and flags may change. The pixels are valid until the next
    /// command: any call that talks to the service overwrites them, so fill
    /// the picture and send it before any other call. A lent picture whose
    /// element would no longer start its pixels there (changed geometry,
    /// bundles added) is still sent correctly, at the cost of one copy.
    /// The planes belong to the client and die with it.
    /// @param colorFormat an EColorFormats value with a plane layout.
    /// @param width, height the picture's size in pixels.
    /// @throws UsageError a format or size without a plane layout, or a
    ///         picture that does not fit the segment (raise largestFrameBytes).
    ZKEncImage_t LendPicture(uint32_t colorFormat, uint32_t width, uint32_t height);
    /// Command 2: ends the stream (the compressor's End; the shipped ones drop
    /// pictures they still hold, which a last frame would have delivered).
    /// @return 0, or kZKErrNoCompressor before a good SetOutput.
    uint32_t End();
    /// Command 4: asks the compressor whether its last pass is ready.
    /// @return its answer; false as well when the service answered a
    ///         non-zero status (no compressor).
    bool IsLastPassEncodingReady();
    /// Command 6: announces the colour format of the pictures to come
    /// (EColorFormats); the compressor may ignore it.
    /// @return 0, or kZKErrNoCompressor before a good SetOutput.
    uint32_t SetInputColorFormat(uint32_t colorFormat);
    /// Command 7: passes a file format hint to the compressor; the values are
    /// the host's own, evc gives them no meaning.
    /// @return 0, or kZKErrNoCompressor before a good SetOutput.
    uint32_t SetFileFormatHint(uint32_t hint);
    /// Command 8: passes a stream mode hint to the compressor, as
    /// SetFileFormatHint does.
    /// @return 0, or kZKErrNoCompressor before a good SetOutput.
    uint32_t SetStreamModeHint(uint32_t hint);
    /// Command 9; the service exits (it is killed when it does not within
    /// commandTimeout). Later commands throw UsageError. Never throws.
    void Quit();

    /// The service's process id. Never throws.
    int servicePid() const;
    /// Whether the service still runs. Never throws.
    bool serviceAlive();
    /// The key of the shared segment (its backing file).
    std::string segmentKey() const;
    /// Bytes a request may occupy in the payload area.
    uint64_t payloadCapacity() const;
    /// Pictures sent since Begin whose compressed output has not come back.
    uint64_t picturesPending() const;

private:
    class TPrivate;
    std::unique_ptr<TPrivate> m_private;
};

}  // namespace evc
