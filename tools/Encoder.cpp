// The encode loop and its reader thread.
#include "tools/Encoder.h"

#include <cstdio>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "evc/CodecList.h"
#include "evc/EncodeSession.h"
#include "media/ZKImageLayout.h"
#include "tools/Interrupts.h"
#include "tools/MediaSource.h"
#include "tools/PictureQueue.h"

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

namespace evc {
namespace tools {

namespace {

// Read ahead; the reader wakes when half of them are taken.
constexpr size_t kQueuedPictures = 6;
constexpr std::chrono::milliseconds kPollInterrupts{50};
constexpr std::chrono::milliseconds kStandbyDelay{2000};
// Pictures up to this size are brought into the cache before their copy.
constexpr size_t kPrefetchedBytes = 1 << 20;

struct Item {
    Picture picture;
    std::vector<AudioPacket> audio;
    bool end = false;
};

std::string SetOutputFailure(uint32_t status, const EncodeJob& job)
{
    const std::string& preset = job.presetName;
    if (status == kZKErrBadPreset) {
        // The service refuses a setting of the wrong kind too; which one is
        // worth the listing only now.
        try {
            const std::string mismatch = CheckPresetKinds(job.presetXml, ListCodecs(job.client));
            if (!mismatch.empty())
                return "preset refused: " + mismatch;
        } catch (const std::exception&) {
            // No listing: the service's answer alone.
        }
    }
    switch (status) {
    case kZKErrBadPreset:
        return "the service rejected preset " + preset + " (status " + StatusText(status) +
               ": not a preset document with the root element \"Output\")";
    case kZKErrNoCompressor:
        return "no installed plug-in offers the compressor that preset " + preset + " names (status " +
               StatusText(status) + ")";
    default:
        return "the compressor did not accept preset " + preset + " (status " + StatusText(status) + ")";
    }
}

// Asks the processor to bring a mapped picture's pixels into its cache while
// the service still works on the one before: the copy into the segment, the
// one step between two commands that grows with the picture, then reads them
// from the cache. Larger pictures would not stay there; a decoder's are there
// already (prefetching them only costs time).
void Prefetch(const Picture& picture, const VideoFormat& format)
{
    if (!picture.mapped || format.frameBytes() > kPrefetchedBytes)
        return;
    const auto lines = [](const uint8_t* from, size_t bytes) {
        for (size_t at = 0; at < bytes; at += 64)
            __builtin_prefetch(from + at, 0, 3);
    };
    if (!picture.frame) {
        lines(picture.pixels.data(), picture.pixels.size());
        return;
    }
    const AVPixFmtDescriptor* layout = av_pix_fmt_desc_get(AVPixelFormat(picture.frame->format));
    for (int p = 0; p < 3 && layout != nullptr; ++p) {
        const int linesize = picture.frame->linesize[p];
        if (picture.frame->data[p] == nullptr || linesize <= 0)
            continue;
        const int shift = p == 0 ? 0 : layout->log2_chroma_h;
        lines(picture.frame->data[p], size_t(linesize) * size_t((picture.frame->height + (1 << shift) - 1) >> shift));
    }
}

// The stream's description for Begin.
ZKEncImage_t Sample(const VideoFormat& format)
{
    ZKEncImage_t record{};
    if (InitZKImage(&record.image, 0, nullptr, format.colorFormat, false, static_cast<int>(format.width),
                    static_cast<int>(format.height), false, 0, format.timeScale) != 0)
        throw EncodeError("cannot describe a " + std::to_string(format.width) + "x" + std::to_string(format.height) +
                          " picture");
    return record;
}

// The picture written straight into the shared segment, where the service
// reads it.
ZKEncImage_t Lend(Client& client, const VideoFormat& format, const Picture& picture)
{
    ZKEncImage_t record = client.LendPicture(format.colorFormat, format.width, format.height);
    ZKImage_t& image = record.image;
    const uint32_t rowBytes[3] = {image.rowBytes[0], image.rowBytes[1],
                                  image.rowBytes[2] != 0 ? image.rowBytes[2] : image.rowBytes[1]};
    CopyPicture(picture, format, image.planes, rowBytes);
    image.time = picture.time;
    image.timeScale = format.timeScale;
    return record;
}

// Pictures as records over pixels that live as long as an owner, for a
// session that keeps each picture until its packets are out: the decoder's
// or the source's own pixels, whether they lie as the record's standard
// layout puts them (a raw source's frames do) or plane by plane wherever the
// decoder put them (the session copies those straight into the segment), else
// a copy in a buffer recycled from the pictures the session let go of.
class PictureKeeper {
public:
    explicit PictureKeeper(const VideoFormat& format) : m_format(format), m_spares(std::make_shared<Spares>()) {}

    ZKEncImage_t Keep(Picture& picture, std::shared_ptr<const void>& owner)
    {
        const uint32_t bytes = uint32_t(m_format.frameBytes());
        uint8_t* source[4] = {};
        int sourceRows[4] = {};
        const uint8_t* first = nullptr;
        const uint8_t* end = nullptr;
        if (picture.frame) {
            const AVBufferRef* buffer = picture.frame->buf[0];
            for (int p = 0; p < 3; ++p) {
                source[p] = picture.frame->data[p];
                sourceRows[p] = picture.frame->linesize[p];
            }
            // One buffer must hold every plane.
            if (buffer != nullptr && picture.frame->buf[1] == nullptr) {
                first = buffer->data;
                end = buffer->data + buffer->size;
            }
        } else if (picture.pixels.size() >= bytes) {
            av_image_fill_arrays(source, sourceRows, picture.pixels.data(), AVPixelFormat(m_format.pixelFormat),
                                 int(m_format.width), int(m_format.height), 1);
            first = picture.pixels.data();
            end = first + picture.pixels.size();
        }
        ZKEncImage_t record = Describe(source[0], bytes, picture.time);
        bool asTheyLie = first != nullptr && source[0] >= first && uint64_t(end - source[0]) >= bytes;
        for (int p = 0; p < 3 && asTheyLie; ++p)
            asTheyLie = record.image.planes[p] == source[p] && int(RowBytes(record, p)) == sourceRows[p];
        if (asTheyLie) {
            if (picture.frame)
                owner = std::shared_ptr<const AVFrame>(picture.frame.release(), FrameFree());
            else
                owner = std::make_shared<const std::vector<uint8_t>>(std::move(picture.pixels));
            return record;
        }
        if (picture.frame && source[0] != nullptr && source[1] != nullptr && source[2] != nullptr &&
            sourceRows[0] > 0 && sourceRows[1] > 0 && sourceRows[2] > 0) {
            for (int p = 0; p < 3; ++p) {
                record.image.planes[p] = source[p];
                record.image.rowBytes[p] = uint32_t(sourceRows[p]);
            }
            record.image.dataSize =
                CalcFrameSize(m_format.colorFormat, m_format.width, m_format.height, record.image.rowBytes[0], false);
            owner = std::shared_ptr<const AVFrame>(picture.frame.release(), FrameFree());
            return record;
        }
        std::shared_ptr<std::vector<uint8_t>> copy = Spare(bytes);
        record = Describe(copy->data(), bytes, picture.time);
        const uint32_t rowBytes[3] = {RowBytes(record, 0), RowBytes(record, 1), RowBytes(record, 2)};
        CopyPicture(picture, m_format, record.image.planes, rowBytes);
        owner = std::move(copy);
        return record;
    }

private:
    using Spares = std::vector<std::unique_ptr<std::vector<uint8_t>>>;

    ZKEncImage_t Describe(uint8_t* pixels, uint32_t bytes, uint64_t time) const
    {
        ZKEncImage_t record{};
        if (InitZKImage(&record.image, bytes, pixels, m_format.colorFormat, false, int(m_format.width),
                        int(m_format.height), false, time, m_format.timeScale) != 0)
            throw EncodeError("cannot describe a picture");
        return record;
    }

    // 4:2:0 records leave the second chroma plane's row bytes at 0.
    static uint32_t RowBytes(const ZKEncImage_t& record, int plane)
    {
        const uint32_t* rows = record.image.rowBytes;
        return plane == 2 && rows[2] == 0 ? rows[1] : rows[plane];
    }

    // A buffer of bytes that returns to the spares when its last owner lets go.
    std::shared_ptr<std::vector<uint8_t>> Spare(uint32_t bytes)
    {
        std::unique_ptr<std::vector<uint8_t>> buffer;
        if (!m_spares->empty()) {
            buffer = std::move(m_spares->back());
            m_spares->pop_back();
        } else {
            buffer = std::make_unique<std::vector<uint8_t>>();
        }
        buffer->resize(bytes);
        std::weak_ptr<Spares> spares = m_spares;
        return std::shared_ptr<std::vector<uint8_t>>(buffer.release(), [spares](std::vector<uint8_t>* b) {
            std::unique_ptr<std::vector<uint8_t>> owned(b);
            if (const std::shared_ptr<Spares> list = spares.lock())
                if (list->size() < kSpareBuffers)
                    list->push_back(std::move(owned));
        });
    }

    static constexpr size_t kSpareBuffers = 8;
    VideoFormat m_format;
    std::shared_ptr<Spares> m_spares;
};

// Reads the source on a thread of its own into the queue, ending with an
// item marked end (also after a failure, which it keeps for the loop). A
// first Ctrl-C ends the input at once, even while the thread waits for a
// pipe: the thread is then left behind with its share of the state (the
// source outlives the encode; main leaves it to the process's exit).
class Reader {
public:
    explicit Reader(FrameSource& source) : m_state(std::make_shared<State>())
    {
        std::thread([state = m_state, &source] { Run(*state, source); }).detach();
    }
    ~Reader()
    {
        m_state->queue.close();
        std::unique_lock<std::mutex> lock(m_state->mutex);
        // A thread that is not stuck in a read ends promptly once closed.
        m_state->done.wait_for(lock, std::chrono::seconds(2), [&] { return m_state->finished; });
    }

    // The next item; throws what the reader met, or EncodeAbandoned at a
    // second Ctrl-C.
    Item next()
    {
        while (true) {
            if (InterruptCount() >= 2)
                throw EncodeAbandoned();
            if (std::optional<Item> item = m_state->queue.pop(kPollInterrupts)) {
                if (item->end && m_state->failure)
                    std::rethrow_exception(m_state->failure);
                return std::move(*item);
            }
            if (InterruptCount() >= 1) {
                m_state->interrupted = true;
                Item end;
                end.end = true;
                return end;
            }
        }
    }
    bool interrupted() const { return m_state->interrupted; }

private:
    struct State {
        PictureQueue<Item> queue{kQueuedPictures};
        std::exception_ptr failure;
        std::atomic<bool> interrupted{false};
        std::mutex mutex;
        std::condition_variable done;
        bool finished = false;
    };

    static void Run(State& state, FrameSource& source)
    {
        try {
            while (true) {
                Item item;
                if (InterruptCount() >= 1) {
                    state.interrupted = true;
                    item.end = true;
                } else {
                    item.end = !source.next(item.picture, item.audio);
                }
                const bool end = item.end;
                if (!state.queue.push(std::move(item)) || end)
                    break;
            }
        } catch (...) {
            state.failure = std::current_exception();
            Item end;
            end.end = true;
            state.queue.push(std::move(end));
        }
        std::lock_guard<std::mutex> lock(state.mutex);
        state.finished = true;
        state.done.notify_all();
    }

    std::shared_ptr<State> m_state;
};

template <typename Action>
void Writing(Action&& action)
{
    try {
        action();
    } catch (const EncodeAbandoned&) {
        throw;
    } catch (const std::exception& e) {
        throw EncodeError(e.what());
    }
}

}  // namespace

std::string StatusText(uint32_t status)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", status);
    return text;
}

namespace {

// The service as the loop sees it: one picture posted at a time, what came
// out of it collected while the next one waits, prepared.
class Channel {
public:
    virtual ~Channel() = default;
    // Readies the next picture while the service still works on the one
    // posted; may take its pixels (its time and duration stay).
    virtual void prepare(Picture&) {}
    // Sends the picture last prepared (or this one).
    virtual void post(Picture& picture, bool key, bool last) = 0;
    // Waits for the posted picture's answer; what came out is appended.
    virtual void collect(std::vector<EncodedFrame>& output) = 0;
    // Ends the stream and quits the service.
    virtual void close() = 0;
};

std::string BeginFailure(const VideoFormat& format, uint32_t status)
{
    return "the compressor refused to begin a " + std::to_string(format.width) + "x" + std::to_string(format.height) +
           " stream (status " + StatusText(status) + ")";
}

std::string PictureFailure(uint64_t frame, uint32_t status)
{
    return "the compressor failed on picture " + std::to_string(frame + 1) + " (status " + StatusText(status) + ")";
}

// Straight to one service; its failure ends the encode. Pictures are written
// into the segment where the service reads them.
class DirectChannel : public Channel {
public:
    DirectChannel(const EncodeJob& job, const VideoFormat& format, const ClientOptions& options)
        : m_format(format), m_client(options)
    {
        SetServiceToKill(m_client.servicePid());
        uint32_t status = m_client.SetOutput(job.presetXml);
        if (status != kZKNoErr)
            throw EncodeError(SetOutputFailure(status, job));
        ZKEncImage_t sample = Sample(format);
        status = m_client.Begin(&sample);
        if (status != kZKNoErr)
            throw EncodeError(BeginFailure(format, status));
    }
    ~DirectChannel() override { SetServiceToKill(0); }

    // The picture goes straight into the segment, which is free only now.
    void post(Picture& picture, bool key, bool last) override
    {
        ZKEncImage_t input = Lend(m_client, m_format, picture);
        m_client.PostCompressFrame(&input, key, last);
    }

    void collect(std::vector<EncodedFrame>& output) override
    {
        EncodedFrame encoded;
        const uint32_t status = m_client.CollectCompressFrame(&encoded);
        if (InterruptCount() >= 2)
            throw EncodeAbandoned();
        if (status != kZKNoErr)
            throw EncodeError(PictureFailure(m_sent, status));
        ++m_sent;
        output.push_back(std::move(encoded));
    }

    void close() override
    {
        const uint32_t status = m_client.End();
        if (status != kZKNoErr)
            throw EncodeError("the compressor failed to end the stream (status " + StatusText(status) + ")");
        m_client.Quit();
    }

private:
    VideoFormat m_format;
    Client m_client;
    uint64_t m_sent = 0;
};

// Through a session that restarts a service that fails and re-sends what
// was lost, saying so on standard error.
class SessionChannel : public Channel {
public:
    SessionChannel(const EncodeJob& job, const VideoFormat& format, const ClientOptions& options) : m_keeper(format)
    {
        SessionOptions session;
        session.client = options;
        session.maxRestarts = unsigned(job.maxRestarts);
        // A standby costs a service's start-up, more than a short encode
        // would lose to a cold restart: only longer encodes keep one.
        session.standbyDelay = kStandbyDelay;
        session.onRecovery = [](const RecoveryEvent& event) {
            // The fault itself, without the service's last words.
            const std::string fault = event.message.substr(0, event.message.find_first_of(";\n"));
            std::cerr << "\revc-encode: the service failed at picture " << event.failedFrame + 1 << " (" << fault
                      << "); recovered in " << event.recoveryTime.count() / 1000 << " ms, " << event.resentFrames.size()
                      << " pictures sent again" << std::endl;
        };
        try {
            m_session = std::make_unique<EncodeSession>(session, job.presetXml, Sample(format));
        } catch (const StatusError& e) {
            throw EncodeError(e.status() == kZKErrBadPreset || e.status() == kZKErrNoCompressor
                                  ? SetOutputFailure(e.status(), job)
                                  : BeginFailure(format, e.status()));
        }
        SetServiceToKill(m_session->servicePid());
    }
    ~SessionChannel() override { SetServiceToKill(0); }

    // A converted copy, when one is needed, is made here, off the wait.
    void prepare(Picture& picture) override { m_prepared = m_keeper.Keep(picture, m_owner); }

    void post(Picture& picture, bool key, bool last) override
    {
        if (!m_owner)
            prepare(picture);
        m_posted = m_session->framesSent();
        try {
            m_session->Post(m_prepared, std::move(m_owner), key, last);
        } catch (const StatusError& e) {
            throw EncodeError(PictureFailure(m_posted, e.status()));
        }
        m_owner.reset();
    }

    void collect(std::vector<EncodedFrame>& output) override
    {
        try {
            m_session->Collect(output);
        } catch (const StatusError& e) {
            throw EncodeError(PictureFailure(m_posted, e.status()));
        } catch (const ServiceError&) {
            if (InterruptCount() >= 2)
                throw EncodeAbandoned();
            throw;
        }
        if (InterruptCount() >= 2)
            throw EncodeAbandoned();
        SetServiceToKill(m_session->servicePid());
    }

    void close() override
    {
        try {
            m_session->Close();
        } catch (const StatusError& e) {
            throw EncodeError("the compressor failed to end the stream (status " + StatusText(e.status()) + ")");
        }
    }

private:
    // Before the session: the pictures it keeps return their buffers here.
    PictureKeeper m_keeper;
    std::unique_ptr<EncodeSession> m_session;
    // The next picture, prepared, and the index of the one posted.
    ZKEncImage_t m_prepared{};
    std::shared_ptr<const void> m_owner;
    uint64_t m_posted = 0;
};

std::unique_ptr<Channel> OpenChannel(const EncodeJob& job, const VideoFormat& format)
{
    ClientOptions options = job.client;
    options.largestFrameBytes = format.frameBytes();
    // The loop starts no thread between a post and its collect.
    options.shareProcessor = true;
    // The service checks the kinds of the preset's settings itself: the
    // listing the client would check them against first (a second service
    // that loads every plug-in, beside the first one's start) is made only
    // when the preset is refused.
    options.checkPresetKinds = false;
    if (job.maxRestarts > 0)
        return std::make_unique<SessionChannel>(job, format, options);
    return std::make_unique<DirectChannel>(job, format, options);
}

}  // namespace

EncodeResult Encode(FrameSource& source, const EncodeJob& job, Progress& progress)
{
    const VideoFormat& format = source.format();
    std::unique_ptr<OutputWriter> writer;
    Writing([&] { writer = MakeOutputWriter(job.output, format, source.audioTracks()); });

    // Reading starts while the service starts.
    Reader reader(source);
    std::unique_ptr<Channel> channel = OpenChannel(job, format);

    EncodeResult result;
    Item current = reader.next();
    if (current.end && reader.interrupted())
        throw InterruptedBeforeStart(source.name() + ": interrupted before the first picture");
    if (current.end)
        throw EncodeError(source.name() + ": holds no pictures");
    std::vector<EncodedFrame> encoded;
    std::map<uint64_t, uint64_t> durations;  // of the pictures in the compressor, by time
    // The compressor guesses the duration of a picture it has not seen the
    // successor of; the source knows it.
    const auto post = [&](Item& item, bool key, bool last) {
        if (item.picture.duration != 0)
            durations[item.picture.time] = item.picture.duration;
        channel->post(item.picture, key, last);
    };
    // One picture is with the service while the next is read and prepared
    // and the output of the one before is written: the service never waits
    // for this side's bookkeeping, only for the copy into the segment.
    Item following = reader.next();
    post(current, true, following.end);
    while (true) {
        Item after;
        after.end = true;
        if (!following.end) {
            // Whether the following picture is the last one.
            after = reader.next();
            Prefetch(following.picture, format);
            channel->prepare(following.picture);
        }
        encoded.clear();
        channel->collect(encoded);
        if (!following.end)
            post(following, false, after.end);
        Writing([&] {
            for (AudioPacket& audio : current.audio)
                writer->writeAudio(std::move(audio));
            for (EncodedFrame& frame : encoded) {
                for (Packet& packet : frame.packets) {
                    const auto known = durations.find(packet.time);
                    if (known == durations.end())
                        continue;
                    if (packet.timeBase == format.timeScale)
                        packet.duration = known->second;
                    durations.erase(known);
                }
                result.pictures += frame.packets.size();
                writer->write(frame);
            }
        });
        ++result.frames;
        progress.update(result.frames, result.pictures, writer->bytesWritten());
        if (job.onProgress)
            job.onProgress(result.frames, result.pictures, writer->bytesWritten());
        current = std::move(following);
        if (current.end)
            break;
        following = std::move(after);
    }
    // What was read after the last picture.
    Writing([&] {
        for (AudioPacket& audio : current.audio)
            writer->writeAudio(std::move(audio));
    });
    channel->close();
    channel.reset();
    if (result.pictures == 0)
        throw EncodeError("the compressor returned no pictures for " + std::to_string(result.frames) +
                          " pictures sent");
    result.interrupted = reader.interrupted();
    Writing([&] {
        if (result.interrupted)
            writer->cutShort();
        writer->close();
    });
    result.bytes = writer->bytesWritten();
    return result;
}

}  // namespace tools
}  // namespace evc
