#include "tools/Encoder.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "media/ZKImageLayout.h"
#include "tools/OutputWriter.h"

namespace evc {
namespace tools {

namespace {

constexpr uint32_t kMaxDimension = 16384;

std::string ReadPreset(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw EncodeError("cannot read preset " + path + ": " + std::strerror(errno));
    std::ostringstream text;
    text << file.rdbuf();
    if (!file.good() && !file.eof())
        throw EncodeError("cannot read preset " + path);
    return text.str();
}

void CheckFormat(const VideoFormat& format, const std::string& input)
{
    if (format.width == 0 || format.height == 0 || format.width % 2 != 0 || format.height % 2 != 0 ||
        format.width > kMaxDimension || format.height > kMaxDimension)
        throw EncodeError(input + ": picture size " + std::to_string(format.width) + "x" +
                          std::to_string(format.height) + " is not supported (even sizes from 2 to 16384)");
}

std::string SetOutputFailure(uint32_t status, const std::string& presetPath)
{
    switch (status) {
    case kZKErrBadPreset:
        return "the service rejected preset " + presetPath + " (status " + StatusText(status) +
               ": not a preset document with the root element \"Output\")";
    case kZKErrNoCompressor:
        return "no installed plug-in offers the compressor that preset " + presetPath + " names (status " +
               StatusText(status) + ")";
    default:
        return "the compressor did not accept preset " + presetPath + " (status " + StatusText(status) + ")";
    }
}

// The record of picture n over the caller's buffer; a null buffer describes
// the stream for Begin.
ZKEncImage_t Picture(const VideoFormat& format, std::vector<uint8_t>* pixels, uint64_t n)
{
    ZKEncImage_t record{};
    const uint32_t size = pixels != nullptr ? static_cast<uint32_t>(pixels->size()) : 0;
    if (InitZKImage(&record.image, size, pixels != nullptr ? pixels->data() : nullptr, eColorFormatYUV420Planar, false,
                    static_cast<int>(format.width), static_cast<int>(format.height), false, n * format.fpsDen,
                    format.fpsNum) != 0)
        throw EncodeError("cannot describe a " + std::to_string(format.width) + "x" + std::to_string(format.height) +
                          " picture");
    return record;
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
    const VideoFormat format = source.format();
    CheckFormat(format, source.name());
    const std::string presetXml = ReadPreset(job.presetPath);

    // Read ahead one picture: only the next read tells whether this one is last.
    std::vector<uint8_t> current;
    std::vector<uint8_t> following;
    bool haveCurrent = source.next(current);
    if (!haveCurrent)
        throw EncodeError(source.name() + " holds no pictures");

    std::unique_ptr<OutputWriter> writer;
    try {
        writer = MakeOutputWriter(job.outputPath, format);
    } catch (const std::exception& e) {
        throw EncodeError(e.what());
    }

    ClientOptions options = job.client;
    options.largestFrameBytes = format.frameBytes();
    Client client(options);

    uint32_t status = client.SetOutput(presetXml);
    if (status != kZKNoErr)
        throw EncodeError(SetOutputFailure(status, job.presetPath));

    ZKEncImage_t sample = Picture(format, nullptr, 0);
    status = client.Begin(&sample);
    if (status != kZKNoErr)
        throw EncodeError("the compressor refused to begin a " + std::to_string(format.width) + "x" +
                          std::to_string(format.height) + " stream (status " + StatusText(status) + ")");

    EncodeResult result;
    EncodedFrame encoded;
    while (haveCurrent) {
        const bool haveFollowing = source.next(following);
        ZKEncImage_t input = Picture(format, &current, result.frames);
        status = client.CompressFrame(&input, result.frames == 0, !haveFollowing, &encoded);
        if (status != kZKNoErr)
            throw EncodeError("the compressor failed on picture " + std::to_string(result.frames + 1) + " (status " +
                              StatusText(status) + ")");
        try {
            writer->write(encoded);
        } catch (const std::exception& e) {
            throw EncodeError(e.what());
        }
        ++result.frames;
        result.pictures += encoded.packets.size();
        progress.update(result.frames, result.pictures, writer->bytesWritten());
        current.swap(following);
        haveCurrent = haveFollowing;
    }

    status = client.End();
    if (status != kZKNoErr)
        throw EncodeError("the compressor failed to end the stream (status " + StatusText(status) + ")");
    client.Quit();
    try {
        writer->close();
    } catch (const std::exception& e) {
        throw EncodeError(e.what());
    }
    result.bytes = writer->bytesWritten();
    return result;
}

}  // namespace tools
}  // namespace evc
