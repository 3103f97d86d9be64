// YUV4MPEG2 files as evc-encode maps them: any bytes, read to the end once with every picture and
// once with a seek and a picture limit. Each picture's planes must lie inside its buffer, its
// bytes inside the file (all are read), times must rise and no more pictures come than announced.
// A file that is not for this reader, or that it refuses, is fine. The input lives in a memory
// file opened through /proc, so nothing is written to disk.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "tools/MediaSource.h"
#include "tools/Y4mSource.h"

namespace {

void Read(const std::string& path, uint64_t seekFrames, double seekSeconds, uint64_t maxFrames)
{
    evc::tools::InputPlan plan;
    plan.path = path;
    plan.seekFrames = seekFrames;
    plan.seekSeconds = seekSeconds;
    plan.maxFrames = maxFrames;
    try {
        const auto source = evc::tools::OpenMappedY4m(plan);
        if (!source)
            return;
        const evc::tools::VideoFormat format = source->format();
        evc::tools::Picture picture;
        std::vector<evc::tools::AudioPacket> audio;
        uint64_t delivered = 0, lastTime = 0;
        while (source->next(picture, audio)) {
            const AVFrame& frame = *picture.frame;
            const uint8_t* begin = frame.buf[0]->data;
            const uint8_t* end = begin + frame.buf[0]->size;
            for (int p = 0; p < 3; ++p) {
                const int shift = p == 0 ? 0 : 1;
                const int rows = (frame.height + shift) >> shift, width = (frame.width + shift) >> shift;
                if (frame.data[p] < begin || frame.data[p] + size_t(rows - 1) * frame.linesize[p] + width > end)
                    abort();
            }
            uint8_t sum = 0;
            for (const uint8_t* at = begin; at < end; ++at)
                sum += *at;
            *static_cast<volatile uint8_t*>(&sum) = sum;
            if ((delivered != 0 && picture.time <= lastTime) || ++delivered > format.expectedFrames)
                abort();
            lastTime = picture.time;
        }
    } catch (const evc::tools::InputError&) {
        // A damaged or cut file is refused; that is the expected answer.
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const int fd = memfd_create("fuzz-y4m", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(fd);
    if (fd < 0 || ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != ssize_t(size))
        abort();
    Read(path, 0, 0, 0);
    Read(path, 1, 0.1, 2);
    return 0;
}
