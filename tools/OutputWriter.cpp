#include "tools/OutputWriter.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "transport/TPacketBundle.h"
#include "transport/TQVAPIPacket.h"
#include "transport/TZKSegmentWriter.h"

namespace evc {
namespace tools {

namespace {

bool EndsWith(const std::string& text, const std::string& suffix)
{
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::string SystemError(const std::string& what, const std::string& path)
{
    return what + " " + path + ": " + std::strerror(errno);
}

// The partial file goes away unless the writer was closed successfully.
class RemoveUnlessKept {
public:
    explicit RemoveUnlessKept(std::string path) : m_path(std::move(path)) {}
    ~RemoveUnlessKept()
    {
        if (!m_keep)
            std::remove(m_path.c_str());
    }
    RemoveUnlessKept(const RemoveUnlessKept&) = delete;
    RemoveUnlessKept& operator=(const RemoveUnlessKept&) = delete;
    void keep() { m_keep = true; }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
    bool m_keep = false;
};

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// SPS and PPS (the descriptors, already with start codes) before the first
// picture, then every picture's bytes in decode order.
class AnnexBWriter : public OutputWriter {
public:
    explicit AnnexBWriter(const std::string& path) : m_guard(path), m_file(std::fopen(path.c_str(), "wb"))
    {
        if (!m_file)
            throw std::runtime_error(SystemError("cannot create", path));
    }
    // The guard is declared first, so it removes the file after it is closed.
    ~AnnexBWriter() override = default;

    void write(const EncodedFrame& frame) override
    {
        for (const Packet& packet : frame.descriptors)
            put(packet.data);
        for (const Packet& packet : frame.packets)
            put(packet.data);
    }

    void close() override
    {
        std::FILE* file = m_file.release();
        if (file == nullptr)
            return;
        if (std::fclose(file) != 0)
            throw std::runtime_error(SystemError("cannot write", m_guard.path()));
        m_guard.keep();
    }

    uint64_t bytesWritten() const override { return m_bytes; }

private:
    void put(const std::vector<uint8_t>& bytes)
    {
        if (bytes.empty())
            return;
        if (!m_file || std::fwrite(bytes.data(), 1, bytes.size(), m_file.get()) != bytes.size())
            throw std::runtime_error(SystemError("cannot write", m_guard.path()));
        m_bytes += bytes.size();
    }

    RemoveUnlessKept m_guard;
    std::unique_ptr<std::FILE, FileCloser> m_file;
    uint64_t m_bytes = 0;
};

struct BundleDeleter {
    void operator()(TPacketBundle* bundle) const { bundle->destroy(); }
};
using BundlePtr = std::unique_ptr<TPacketBundle, BundleDeleter>;

// Rebuilds a transport bundle from the client's flattened copies.
BundlePtr MakeBundle(const std::vector<Packet>& packets, uint64_t& bytes)
{
    BundlePtr bundle(new TPacketBundle());
    for (const Packet& source : packets) {
        auto* packet = new TQVAPIPacket();
        packet->setType(source.type);
        packet->setTrack(source.track);
        packet->setTime(source.time);
        packet->setTimeBase(source.timeBase);
        packet->setDuration(source.duration);
        packet->setDescriptor(source.descriptor.data(), source.descriptor.size());
        packet->setData(source.data.data(), source.data.size());
        bundle->append(packet);
        bytes += source.data.size();
    }
    return bundle;
}

// One "EncImage" element per output that holds packets: the picture's
// geometry and time, its data packets and, once, the descriptors.
class SegmentFileWriter : public OutputWriter {
public:
    SegmentFileWriter(const std::string& path, const VideoFormat& format) : m_guard(path), m_format(format)
    {
        errno = 0;
        if (!m_writer.open(path, CATime(0, format.fpsNum)))
            throw std::runtime_error(SystemError("cannot create", path));
    }

    void write(const EncodedFrame& frame) override
    {
        if (frame.packets.empty() && frame.descriptors.empty())
            return;
        BundlePtr data = MakeBundle(frame.packets, m_bytes);
        BundlePtr descriptors = MakeBundle(frame.descriptors, m_bytes);

        ZKEncImage_t record{};
        record.image.colorFormat = eColorFormatYUV420Planar;
        record.image.colorRange = eColorRangeDefault;
        record.image.width = m_format.width;
        record.image.height = m_format.height;
        record.image.time = frame.time;
        record.image.timeScale = frame.timeScale != 0 ? frame.timeScale : m_format.fpsNum;
        record.image.dataPackets = data.get();
        record.descriptors = descriptors->size() > 0 ? descriptors.get() : nullptr;
        record.streamValue = frame.streamValue;
        record.streamFlags = frame.streamFlags;

        if (!m_writer.writeImage(&record, Span(frame, record.image.timeScale)))
            throw std::runtime_error("cannot write " + m_guard.path());
    }

    void close() override
    {
        if (!m_writer.isOpen())
            return;
        if (!m_writer.close())
            throw std::runtime_error("cannot write " + m_guard.path());
        m_guard.keep();
    }

    uint64_t bytesWritten() const override { return m_bytes; }

private:
    // From the record's time to the end of its latest picture, so that the
    // segment's duration covers every picture.
    CATime Span(const EncodedFrame& frame, uint64_t timeScale) const
    {
        uint64_t end = frame.time;
        for (const Packet& packet : frame.packets) {
            const CATime packetEnd(packet.time + packet.duration, packet.timeBase != 0 ? packet.timeBase : timeScale);
            end = std::max(end, packetEnd.GetTime(timeScale));
        }
        return CATime(end - frame.time, timeScale);
    }

    RemoveUnlessKept m_guard;
    VideoFormat m_format;
    TZKSegmentWriter m_writer;
    uint64_t m_bytes = 0;
};

}  // namespace

std::unique_ptr<OutputWriter> MakeOutputWriter(const std::string& path, const VideoFormat& format)
{
    if (EndsWith(path, ".h264") || EndsWith(path, ".264"))
        return std::make_unique<AnnexBWriter>(path);
    if (EndsWith(path, ".evcseg"))
        return std::make_unique<SegmentFileWriter>(path, format);
    throw std::invalid_argument("cannot tell the output format of " + path + " (use the extension .h264 or .evcseg)");
}

}  // namespace tools
}  // namespace evc
