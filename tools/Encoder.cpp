// The encode loop and its reader thread.
#include "tools/Encoder.h"

#include <cstdio>
#include <atomic>
#include <exception>
#include <thread>

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

// The record of a picture over its pixels; null pixels describe the stream
// for Begin.
ZKEncImage_t Record(const VideoFormat& format, Picture* picture)
{
    ZKEncImage_t record{};
    uint8_t* pixels = picture != nullptr ? picture->pixels.data() : nullptr;
    const uint32_t size = picture != nullptr ? static_cast<uint32_t>(picture->pixels.size()) : 0;
    if (InitZKImage(&record.image, size, pixels, eColorFormatYUV420Planar, false, static_cast<int>(format.width),
                    static_cast<int>(format.height), false, picture != nullptr ? picture->time : 0,
                    format.timeScale) != 0)
        throw EncodeError("cannot describe a " + std::to_string(format.width) + "x" + std::to_string(format.height) +
                          " picture");
    return record;
}

// Reads the source on a thread of its own into the queue, ending with an
// item marked end (also after a failure, which it keeps for the loop).
class Reader {
public:
    explicit Reader(FrameSource& source) : m_source(source), m_queue(kQueuedPictures)
    {
        m_thread = std::thread([this] { Run(); });
    }
    ~Reader()
    {
        m_queue.close();
        m_thread.join();
    }

    // The next item; throws what the reader met, or EncodeAbandoned at a
    // second Ctrl-C.
    Item next()
    {
        while (true) {
            if (InterruptCount() >= 2)
                throw EncodeAbandoned();
            if (std::optional<Item> item = m_queue.pop(kPollInterrupts)) {
                if (item->end && m_failure)
                    std::rethrow_exception(m_failure);
                return std::move(*item);
            }
        }
    }
    bool interrupted() const { return m_interrupted; }

private:
    void Run()
    {
        try {
            while (true) {
                Item item;
                if (InterruptCount() >= 1) {
                    m_interrupted = true;
                    item.end = true;
                } else {
                    item.end = !m_source.next(item.picture, item.audio);
                }
                const bool end = item.end;
                if (!m_queue.push(std::move(item)) || end)
                    return;
            }
        } catch (...) {
            m_failure = std::current_exception();
            Item end;
            end.end = true;
            m_queue.push(std::move(end));
        }
    }

    FrameSource& m_source;
    PictureQueue<Item> m_queue;
    std::exception_ptr m_failure;
    std::atomic<bool> m_interrupted{false};
    std::thread m_thread;
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

EncodeResult Encode(FrameSource& source, const EncodeJob& job, Progress& progress)
{
    const VideoFormat& format = source.format();
    std::unique_ptr<OutputWriter> writer;
    Writing([&] { writer = MakeOutputWriter(job.output, format, source.audioTracks()); });

    // Reading starts while the service starts.
    Reader reader(source);
    ClientOptions options = job.client;
    options.largestFrameBytes = format.frameBytes();
    Client client(options);
    SetServiceToKill(client.servicePid());
    struct Forget {
        ~Forget() { SetServiceToKill(0); }
    } forget;

    uint32_t status = client.SetOutput(job.presetXml);
    if (status != kZKNoErr)
        throw EncodeError(SetOutputFailure(status, job.presetName));
    ZKEncImage_t sample = Record(format, nullptr);
    status = client.Begin(&sample);
    if (status != kZKNoErr)
        throw EncodeError("the compressor refused to begin a " + std::to_string(format.width) + "x" +
                          std::to_string(format.height) + " stream (status " + StatusText(status) + ")");

    EncodeResult result;
    Item current = reader.next();
    if (current.end)
        throw EncodeError(source.name() + (reader.interrupted() ? ": interrupted before the first picture"
                                                                : ": holds no pictures"));
    EncodedFrame encoded;
    while (!current.end) {
        Item following = reader.next();
        ZKEncImage_t input = Record(format, &current.picture);
        status = client.CompressFrame(&input, result.frames == 0, following.end, &encoded);
        if (InterruptCount() >= 2)
            throw EncodeAbandoned();
        if (status != kZKNoErr)
            throw EncodeError("the compressor failed on picture " + std::to_string(result.frames + 1) + " (status " +
                              StatusText(status) + ")");
        Writing([&] {
            for (AudioPacket& audio : current.audio)
                writer->writeAudio(std::move(audio));
            writer->write(encoded);
        });
        ++result.frames;
        result.pictures += encoded.packets.size();
        progress.update(result.frames, result.pictures, writer->bytesWritten());
        current = std::move(following);
    }
    // What was read after the last picture.
    Writing([&] {
        for (AudioPacket& audio : current.audio)
            writer->writeAudio(std::move(audio));
    });

    status = client.End();
    if (status != kZKNoErr)
        throw EncodeError("the compressor failed to end the stream (status " + StatusText(status) + ")");
    client.Quit();
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
