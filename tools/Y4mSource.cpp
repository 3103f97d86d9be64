// The mapped YUV4MPEG2 reader: header tags as libavformat reads them, pictures
// as frames over the mapping, pages brought in by the reading thread.
#include "tools/Y4mSource.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <mutex>
#include <utility>
#include <vector>
#include <cstdlib>
#include <cstring>
#include <sstream>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/rational.h>
}

namespace evc {
namespace tools {

namespace {

constexpr char kMagic[] = "YUV4MPEG2 ";
constexpr char kFrameMagic[] = "FRAME";
constexpr size_t kMaxHeader = 4096;
// libavformat's limit for a picture's own line.
constexpr size_t kMaxFrameHeader = 80;
constexpr uint32_t kMaxDimension = 16384;
// Pictures whose pages are dropped together.
constexpr size_t kDropBatch = 16;

// The whole file, mapped read-only; unmapped when the last picture over it
// is gone. The pages of pictures let go of are dropped from this process's
// page tables (they stay in the page cache) in batches by the reading
// thread, so that a long file is not left mapped behind the reading and the
// encode loop never waits for it.
struct Mapping {
    const uint8_t* base = nullptr;
    size_t size = 0;
    std::mutex mutex;
    std::vector<std::pair<uintptr_t, uintptr_t>> released;  // page ranges no picture holds

    ~Mapping()
    {
        if (base != nullptr)
            munmap(const_cast<uint8_t*>(base), size);
    }

    // Drops what was released once there is enough of it.
    void Drop(size_t batch)
    {
        std::vector<std::pair<uintptr_t, uintptr_t>> ranges;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (released.size() < batch)
                return;
            ranges.swap(released);
        }
        std::sort(ranges.begin(), ranges.end());
        const uintptr_t page = uintptr_t(sysconf(_SC_PAGESIZE));
        for (size_t i = 0; i < ranges.size();) {
            uintptr_t end = ranges[i].second;
            size_t j = i + 1;
            // The page between two released pictures holds only their bytes.
            while (j < ranges.size() && ranges[j].first <= end + page)
                end = std::max(end, ranges[j++].second);
            madvise(reinterpret_cast<void*>(ranges[i].first), end - ranges[i].first, MADV_DONTNEED);
            i = j;
        }
    }
};

struct Header {
    uint32_t width = 0, height = 0;
    int rateNum = 0, rateDen = 0;
    uint32_t sarNum = 0, sarDen = 1;
    int fieldOrder = AV_FIELD_UNKNOWN;
    int colorRange = AVCOL_RANGE_UNSPECIFIED;
    bool chroma = false;
};

bool Whole(const std::string& text, long long limit, long long& value)
{
    if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    value = std::atoll(text.c_str());
    return value <= limit;
}

bool Ratio(const std::string& text, int& num, int& den)
{
    const size_t colon = text.find(':');
    long long n = 0, d = 0;
    if (colon == std::string::npos || !Whole(text.substr(0, colon), INT32_MAX, n) ||
        !Whole(text.substr(colon + 1), INT32_MAX, d))
        return false;
    num = int(n);
    den = int(d);
    return true;
}

// False for anything this reader leaves to libavformat.
bool ParseHeader(const std::string& line, Header& header)
{
    std::istringstream tags(line.substr(sizeof kMagic - 1));
    std::string tag;
    while (tags >> tag) {
        const std::string value = tag.substr(1);
        long long number = 0;
        int num = 0, den = 0;
        switch (tag[0]) {
        case 'W':
        case 'H':
            if (!Whole(value, kMaxDimension, number) || number == 0 || number % 2 != 0)
                return false;
            (tag[0] == 'W' ? header.width : header.height) = uint32_t(number);
            break;
        case 'F':
            if (!Ratio(value, header.rateNum, header.rateDen) || header.rateNum <= 0 || header.rateDen <= 0)
                return false;
            break;
        case 'A':
            if (!Ratio(value, num, den))
                return false;
            if (num > 0 && den > 0) {
                header.sarNum = uint32_t(num);
                header.sarDen = uint32_t(den);
            }
            break;
        case 'I':
            if (value == "p")
                header.fieldOrder = AV_FIELD_PROGRESSIVE;
            else if (value == "t")
                header.fieldOrder = AV_FIELD_TT;
            else if (value == "b")
                header.fieldOrder = AV_FIELD_BB;
            else if (value != "?")
                return false;
            break;
        case 'C':
            if (value != "420jpeg" && value != "420mpeg2" && value != "420paldv" && value != "420")
                return false;
            header.chroma = true;
            break;
        case 'X':
            if (value == "COLORRANGE=FULL")
                header.colorRange = AVCOL_RANGE_JPEG;
            else if (value == "COLORRANGE=LIMITED")
                header.colorRange = AVCOL_RANGE_MPEG;
            break;
        default:
            return false;
        }
    }
    return header.width != 0 && header.height != 0 && header.rateNum != 0 && header.chroma;
}

// A picture's hold on the mapping.
struct Hold {
    std::shared_ptr<Mapping> mapping;
    size_t bytes;
};

// Lets go of the mapping and leaves the pages wholly inside the picture to
// be dropped.
void Release(void* opaque, uint8_t* data)
{
    const std::unique_ptr<Hold> hold(static_cast<Hold*>(opaque));
    const uintptr_t page = uintptr_t(sysconf(_SC_PAGESIZE));
    const uintptr_t start = (uintptr_t(data) + page - 1) & ~(page - 1);
    const uintptr_t end = (uintptr_t(data) + hold->bytes) & ~(page - 1);
    if (end > start) {
        std::lock_guard<std::mutex> lock(hold->mapping->mutex);
        hold->mapping->released.emplace_back(start, end);
    }
}

class Y4mSource : public FrameSource {
public:
    Y4mSource(const InputPlan& plan, std::shared_ptr<Mapping> mapping, size_t start, const Header& header)
        : m_plan(plan), m_mapping(std::move(mapping)), m_position(start)
    {
        AVRational timeBase{header.rateDen, header.rateNum};
        av_reduce(&timeBase.num, &timeBase.den, timeBase.num, timeBase.den, INT32_MAX);
        m_timeBase = timeBase;
        AVRational rate{header.rateNum, header.rateDen};
        av_reduce(&rate.num, &rate.den, rate.num, rate.den, INT32_MAX);
        m_format.width = header.width;
        m_format.height = header.height;
        m_format.fpsNum = uint32_t(rate.num);
        m_format.fpsDen = uint32_t(rate.den);
        m_format.timeScale = uint64_t(timeBase.den);
        m_format.sarNum = header.sarNum;
        m_format.sarDen = header.sarDen;
        m_format.fieldOrder = header.fieldOrder;
        m_format.colorRange = header.colorRange;
        m_frameBytes = m_format.frameBytes();

        uint64_t frames = (m_mapping->size - start) / (m_frameBytes + sizeof kFrameMagic);
        const uint64_t skipped = plan.seekFrames + uint64_t(std::llround(plan.seekSeconds * av_q2d(rate)));
        frames = frames > skipped ? frames - skipped : 0;
        if (plan.maxFrames != 0 && (frames == 0 || frames > plan.maxFrames))
            frames = plan.maxFrames;
        m_format.expectedFrames = frames;
        if (plan.seekSeconds > 0)
            m_firstIndex = uint64_t(std::llround(plan.seekSeconds * timeBase.den / timeBase.num));
    }

    const VideoFormat& format() const override { return m_format; }
    std::string name() const override { return m_plan.path; }

    bool next(Picture& picture, std::vector<AudioPacket>&) override
    {
        while (m_plan.maxFrames == 0 || m_delivered < m_plan.maxFrames) {
            const uint8_t* pixels = NextPicture();
            if (pixels == nullptr)
                return false;
            const uint64_t index = m_index++;
            if (index < m_firstIndex)
                continue;
            if (m_skipped < m_plan.seekFrames) {
                ++m_skipped;
                continue;
            }
            // The first picture past the seek sets the clock; a chunk's
            // pictures keep it.
            if (!m_clockSet)
                m_offset = m_plan.seekSeconds > 0 || m_plan.seekFrames > 0 ? index : 0;
            m_clockSet = true;
            const uint64_t time = (index - m_offset) * uint64_t(m_timeBase.num);
            if (time < m_plan.chunkStart)
                continue;
            m_mapping->Drop(kDropBatch);
            Populate(pixels);
            picture.frame = Wrap(pixels);
            picture.mapped = true;
            picture.time = time;
            picture.duration = uint64_t(m_timeBase.num);
            ++m_delivered;
            return true;
        }
        return false;
    }

private:
    // The pixels of the picture at the position, which moves past it; null
    // at the end.
    const uint8_t* NextPicture()
    {
        const uint8_t* base = m_mapping->base;
        const size_t size = m_mapping->size;
        if (m_position >= size)
            return nullptr;
        const size_t left = size - m_position;
        const uint8_t* line = base + m_position;
        const void* newline = std::memchr(line, '\n', std::min(left, kMaxFrameHeader));
        if (newline == nullptr && left >= kMaxFrameHeader)
            throw InputError("cannot read: " + AvError(AVERROR_INVALIDDATA));
        if (newline != nullptr && std::memcmp(line, kFrameMagic, std::min(left, sizeof kFrameMagic - 1)) != 0)
            throw InputError("cannot read: " + AvError(AVERROR_INVALIDDATA));
        const size_t lineBytes = newline != nullptr ? size_t(static_cast<const uint8_t*>(newline) - line) + 1 : left;
        if (newline == nullptr || left - lineBytes < m_frameBytes) {
            // A picture cut short is lost; libavformat's reader says so only
            // after a whole one.
            if (m_index > 0)
                throw InputError("truncated: its last picture is incomplete");
            m_position = size;
            return nullptr;
        }
        m_position += lineBytes + m_frameBytes;
        return line + lineBytes;
    }

    // Brings the picture's pages in on this (the reading) thread, so that
    // the copy into the segment does not wait for them. A file cut short
    // since it was opened shows here as an error rather than as a signal in
    // the copy; one cut in the moment between the two is, as for any reader
    // that maps its input, beyond what a read can notice.
    void Populate(const uint8_t* pixels) const
    {
        const uintptr_t page = uintptr_t(sysconf(_SC_PAGESIZE));
        const uintptr_t start = uintptr_t(pixels) & ~(page - 1);
        if (madvise(reinterpret_cast<void*>(start), uintptr_t(pixels) + m_frameBytes - start, MADV_POPULATE_READ) !=
                0 &&
            errno == EFAULT)
            throw InputError("truncated while it was read");
    }

    FramePtr Wrap(const uint8_t* pixels) const
    {
        FramePtr frame(av_frame_alloc());
        if (!frame)
            throw std::bad_alloc();
        auto hold = std::make_unique<Hold>(Hold{m_mapping, m_frameBytes});
        frame->buf[0] =
            av_buffer_create(const_cast<uint8_t*>(pixels), m_frameBytes, Release, hold.get(), AV_BUFFER_FLAG_READONLY);
        if (frame->buf[0] == nullptr)
            throw std::bad_alloc();
        hold.release();
        frame->format = AV_PIX_FMT_YUV420P;
        frame->width = int(m_format.width);
        frame->height = int(m_format.height);
        av_image_fill_arrays(frame->data, frame->linesize, pixels, AV_PIX_FMT_YUV420P, frame->width, frame->height, 1);
        return frame;
    }

    InputPlan m_plan;
    std::shared_ptr<Mapping> m_mapping;
    size_t m_position;
    VideoFormat m_format;
    AVRational m_timeBase{1, 25};
    size_t m_frameBytes = 0;
    uint64_t m_firstIndex = 0;  // pictures before it lie before --ss
    uint64_t m_index = 0;       // of the next picture in the file
    uint64_t m_skipped = 0;
    uint64_t m_delivered = 0;
    uint64_t m_offset = 0;
    bool m_clockSet = false;
};

}  // namespace

std::unique_ptr<FrameSource> OpenMappedY4m(const InputPlan& plan)
{
    // Audio alone is libavformat's to read (a YUV4MPEG2 file has none).
    if (plan.path == "-" || plan.audioOnly)
        return nullptr;
    const int fd = open(plan.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return nullptr;
    struct stat status {};
    const bool regular = fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0;
    void* base = regular ? mmap(nullptr, size_t(status.st_size), PROT_READ, MAP_SHARED, fd, 0) : MAP_FAILED;
    close(fd);
    if (base == MAP_FAILED)
        return nullptr;
    auto mapping = std::make_shared<Mapping>();
    mapping->base = static_cast<const uint8_t*>(base);
    mapping->size = size_t(status.st_size);

    const char* text = reinterpret_cast<const char*>(mapping->base);
    const void* newline = std::memchr(text, '\n', std::min(mapping->size, kMaxHeader));
    if (mapping->size < sizeof kMagic || std::memcmp(text, kMagic, sizeof kMagic - 1) != 0 || newline == nullptr)
        return nullptr;
    const size_t headerBytes = size_t(static_cast<const char*>(newline) - text) + 1;
    Header header;
    if (!ParseHeader(std::string(text, headerBytes - 1), header))
        return nullptr;
    madvise(base, mapping->size, MADV_SEQUENTIAL);
    return std::make_unique<Y4mSource>(plan, std::move(mapping), headerBytes, header);
}

}  // namespace tools
}  // namespace evc
