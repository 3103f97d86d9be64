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

#include "evc/EncodeSession.h"
#include "media/ZKImageLayout.h"
#include "tools/Interrupts.h"
#include "tools/MediaSource.h"
#include "tools/PictureQueue.h"

namespace evc {
namespace tools {

namespace {

constexpr size_t kQueuedPictures = 3;
constexpr std::chrono::milliseconds kPollInterrupts{50};

struct Item {
    Picture picture;
    std::vector<AudioPacket> audio;
    bool end = false;
};

std::string SetOutputFailure(uint32_t status, const std::string& preset)
{
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

// The service as the loop sees it: one picture in, what came out appended.
class Channel {
public:
    virtual ~Channel() = default;
    virtual void send(const Picture& picture, bool key, bool last, std::vector<EncodedFrame>& output) = 0;
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
            throw EncodeError(SetOutputFailure(status, job.presetName));
        ZKEncImage_t sample = Sample(format);
        status = m_client.Begin(&sample);
        if (status != kZKNoErr)
            throw EncodeError(BeginFailure(format, status));
    }
    ~DirectChannel() override { SetServiceToKill(0); }

    void send(const Picture& picture, bool key, bool last, std::vector<EncodedFrame>& output) override
    {
        ZKEncImage_t input = Lend(m_client, m_format, picture);
        EncodedFrame encoded;
        const uint32_t status = m_client.CompressFrame(&input, key, last, &encoded);
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
    SessionChannel(const EncodeJob& job, const VideoFormat& format, const ClientOptions& options)
        : m_format(format), m_pixels(format.frameBytes())
    {
        SessionOptions session;
        session.client = options;
        session.maxRestarts = unsigned(job.maxRestarts);
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
                                  ? SetOutputFailure(e.status(), job.presetName)
                                  : BeginFailure(format, e.status()));
        }
        SetServiceToKill(m_session->servicePid());
    }
    ~SessionChannel() override { SetServiceToKill(0); }

    void send(const Picture& picture, bool key, bool last, std::vector<EncodedFrame>& output) override
    {
        uint8_t* planes[3] = {};
        uint32_t rowBytes[3] = {};
        ZKEncImage_t input{};
        if (InitZKImage(&input.image, uint32_t(m_pixels.size()), m_pixels.data(), m_format.colorFormat, false,
                        int(m_format.width), int(m_format.height), false, picture.time, m_format.timeScale) != 0)
            throw EncodeError("cannot describe a picture");
        for (int p = 0; p < 3; ++p) {
            planes[p] = input.image.planes[p];
            rowBytes[p] = input.image.rowBytes[p] != 0 ? input.image.rowBytes[p] : input.image.rowBytes[1];
        }
        CopyPicture(picture, m_format, planes, rowBytes);
        const uint64_t frame = m_session->framesSent();
        try {
            m_session->Encode(input, key, last, output);
        } catch (const StatusError& e) {
            throw EncodeError(PictureFailure(frame, e.status()));
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
    VideoFormat m_format;
    std::vector<uint8_t> m_pixels;
    std::unique_ptr<EncodeSession> m_session;
};

std::unique_ptr<Channel> OpenChannel(const EncodeJob& job, const VideoFormat& format)
{
    ClientOptions options = job.client;
    options.largestFrameBytes = format.frameBytes();
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
    if (current.end)
        throw EncodeError(source.name() +
                          (reader.interrupted() ? ": interrupted before the first picture" : ": holds no pictures"));
    std::vector<EncodedFrame> encoded;
    std::map<uint64_t, uint64_t> durations;  // of the pictures in the compressor, by time
    while (!current.end) {
        Item following = reader.next();
        encoded.clear();
        channel->send(current.picture, result.frames == 0, following.end, encoded);
        // The compressor guesses the duration of a picture it has not seen
        // the successor of; the source knows it.
        if (current.picture.duration != 0)
            durations[current.picture.time] = current.picture.duration;
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
    Writing([&] { writer->close(); });
    result.bytes = writer->bytesWritten();
    result.interrupted = reader.interrupted();
    return result;
}

}  // namespace tools
}  // namespace evc
