// The chunk trailer's bytes.
#include "tools/ChunkTrailer.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

namespace evc {
namespace tools {

namespace {

constexpr uint8_t kMagic[8] = {0, 'E', 'V', 'C', 'C', 'H', 'K', '1'};

// Little-endian whatever the host's order.
void PutLe(uint8_t* at, uint64_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        at[i] = uint8_t(value >> (8 * i));
}
void Put32(uint8_t* at, uint32_t value)
{
    PutLe(at, value, 4);
}
void Put64(uint8_t* at, uint64_t value)
{
    PutLe(at, value, 8);
}
uint64_t GetLe(const uint8_t* at, int bytes)
{
    uint64_t value = 0;
    for (int i = bytes - 1; i >= 0; --i)
        value = value << 8 | at[i];
    return value;
}
uint32_t Get32(const uint8_t* at)
{
    return uint32_t(GetLe(at, 4));
}
uint64_t Get64(const uint8_t* at)
{
    return GetLe(at, 8);
}

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

void ChunkTrailer::encode(uint8_t (&out)[kSize]) const
{
    std::memset(out, 0, kSize);
    std::memcpy(out, kMagic, sizeof kMagic);
    Put32(out + 8, index);
    Put32(out + 12, count);
    Put64(out + 16, first);
    Put64(out + 24, frames);
    Put64(out + 32, format.timeScale);
    Put32(out + 40, codec);
    Put32(out + 44, format.colorFormat);
    Put32(out + 48, uint32_t(format.pixelFormat));
    Put32(out + 52, format.width);
    Put32(out + 56, format.height);
    Put32(out + 60, format.fpsNum);
    Put32(out + 64, format.fpsDen);
    Put32(out + 68, format.variableRate ? 1 : 0);
    Put32(out + 72, format.sarNum);
    Put32(out + 76, format.sarDen);
    Put32(out + 80, uint32_t(format.fieldOrder));
    Put32(out + 84, uint32_t(format.colorRange));
    Put32(out + 88, uint32_t(format.colorPrimaries));
    Put32(out + 92, uint32_t(format.colorTransfer));
    Put32(out + 96, uint32_t(format.colorMatrix));
    Put64(out + 104, totalFrames);
}

std::optional<ChunkTrailer> ChunkTrailer::decode(const uint8_t (&in)[kSize])
{
    if (std::memcmp(in, kMagic, sizeof kMagic) != 0)
        return std::nullopt;
    ChunkTrailer t;
    t.index = Get32(in + 8);
    t.count = Get32(in + 12);
    t.first = Get64(in + 16);
    t.frames = Get64(in + 24);
    t.format.timeScale = Get64(in + 32);
    t.codec = Get32(in + 40);
    t.format.colorFormat = Get32(in + 44);
    t.format.pixelFormat = int(Get32(in + 48));
    t.format.width = Get32(in + 52);
    t.format.height = Get32(in + 56);
    t.format.fpsNum = Get32(in + 60);
    t.format.fpsDen = Get32(in + 64);
    t.format.variableRate = (Get32(in + 68) & 1) != 0;
    t.format.sarNum = Get32(in + 72);
    t.format.sarDen = Get32(in + 76);
    t.format.fieldOrder = int(Get32(in + 80));
    t.format.colorRange = int(Get32(in + 84));
    t.format.colorPrimaries = int(Get32(in + 88));
    t.format.colorTransfer = int(Get32(in + 92));
    t.format.colorMatrix = int(Get32(in + 96));
    t.totalFrames = Get64(in + 104);
    // Nothing the join could not use.
    if (t.count == 0 || t.index >= t.count || t.format.timeScale == 0 || t.format.width == 0 || t.format.height == 0 ||
        t.format.width > 16384 || t.format.height > 16384 || t.format.fpsDen == 0 || t.format.sarDen == 0 ||
        t.first + t.frames < t.first || t.first + t.frames > t.totalFrames || t.format.timeScale > INT32_MAX)
        return std::nullopt;
    return t;
}

bool AppendChunkTrailer(const std::string& path, const ChunkTrailer& trailer)
{
    uint8_t bytes[ChunkTrailer::kSize];
    trailer.encode(bytes);
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "ab"));
    if (!file || std::fwrite(bytes, 1, sizeof bytes, file.get()) != sizeof bytes)
        return false;
    return std::fclose(file.release()) == 0;
}

std::optional<ChunkTrailer> ReadChunkTrailer(const std::string& path)
{
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
    uint8_t bytes[ChunkTrailer::kSize];
    if (!file || std::fseek(file.get(), -long(sizeof bytes), SEEK_END) != 0 ||
        std::fread(bytes, 1, sizeof bytes, file.get()) != sizeof bytes)
        return std::nullopt;
    return ChunkTrailer::decode(bytes);
}

}  // namespace tools
}  // namespace evc
