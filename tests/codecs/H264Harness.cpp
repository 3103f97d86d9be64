#include "codecs/H264Harness.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

#include "evc/H264Codec.h"

namespace evctest {

std::string H264BundleExecutable()
{
    const char* dir = std::getenv("EVC_BUILD_DIR");
    if (dir == nullptr || *dir == '\0')
        return "";
    return std::string(dir) + "/Evc.app/Contents/PlugIns/h264.qv64/Contents/Linux/h264";
}

TH264Library::TH264Library(const std::string& path)
{
    m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (m_handle == nullptr) {
        const char* error = dlerror();
        m_error = error != nullptr ? error : "dlopen failed";
        return;
    }
    m_count = reinterpret_cast<QVGetNumberVideoCompressorsFunc>(dlsym(m_handle, kQVGetNumberVideoCompressors));
    m_info = reinterpret_cast<QVGetVideoCompressorInfoFunc>(dlsym(m_handle, kQVGetVideoCompressorInfo));
    m_create = reinterpret_cast<CreateVideoCompressorFunc>(dlsym(m_handle, kCreateVideoCompressor));
    m_shutDown = reinterpret_cast<QVShutDownPluginFunc>(dlsym(m_handle, kQVShutDownPlugin));
    if (!IsLoaded())
        m_error = "an entry point is missing";
}

TH264Library::~TH264Library()
{
    if (m_handle != nullptr)
        dlclose(m_handle);
}

TCompressorPtr MakeCompressor(const TH264Library& library)
{
    TCompressorPtr prototype(library.m_create(evc::h264::kManufacturer, evc::h264::kCodec));
    if (!prototype)
        return nullptr;
    return TCompressorPtr(prototype->CreateInstance());
}

ISetting* FindSetting(IVideoCompressor& compressor, const char* name)
{
    for (ISettingArray* array : {compressor.GetStandardSettings(), compressor.GetNonStandardSettings()}) {
        if (array == nullptr)
            continue;
        for (int32_t i = 0; i < array->GetCount(); ++i) {
            ISetting* setting = array->GetSetting(i);
            if (setting != nullptr && std::strcmp(setting->GetName(), name) == 0)
                return setting;
        }
    }
    return nullptr;
}

namespace {
template <class Interface>
Interface& Setting(IVideoCompressor& compressor, const char* name)
{
    ISetting* setting = FindSetting(compressor, name);
    if (setting == nullptr)
        throw std::runtime_error(std::string("no setting ") + name);
    return *static_cast<Interface*>(setting);
}
}  // namespace

void SetInt(IVideoCompressor& compressor, const char* name, int32_t value)
{
    Setting<IIntSetting>(compressor, name).SetValue(value);
}

void SetDouble(IVideoCompressor& compressor, const char* name, double value)
{
    Setting<IDoubleSetting>(compressor, name).SetValue(value);
}

void SetEnum(IVideoCompressor& compressor, const char* name, const char* value)
{
    Setting<IEnumSetting>(compressor, name).SetValue(value);
}

TPicture::TPicture(uint32_t width, uint32_t height, uint32_t rowPadding, bool bottomUp)
    : m_width(width), m_height(height), m_bottomUp(bottomUp), m_record{}
{
    const uint32_t chromaWidth = (width + 1) / 2;
    const uint32_t chromaHeight = (height + 1) / 2;
    ZKImage_t& image = m_record.image;
    image.colorFormat = evc::h264::kInputColorFormat;
    image.colorRange = 1;
    image.width = width;
    image.height = height;
    image.bottomUp = bottomUp ? 1 : 0;
    image.rowBytes[0] = width + rowPadding;
    image.rowBytes[1] = image.rowBytes[2] = chromaWidth + rowPadding;
    const size_t lumaSize = size_t(image.rowBytes[0]) * height;
    const size_t chromaSize = size_t(image.rowBytes[1]) * chromaHeight;
    m_buffer.assign(lumaSize + 2 * chromaSize, 0xEE);
    image.planes[0] = m_buffer.data();
    image.planes[1] = m_buffer.data() + lumaSize;
    image.planes[2] = m_buffer.data() + lumaSize + chromaSize;
    image.timeScale = 25;
    image.dataSize = static_cast<uint32_t>(m_buffer.size());
}

uint8_t* TPicture::Row(int plane, uint32_t row)
{
    return const_cast<uint8_t*>(static_cast<const TPicture&>(*this).Row(plane, row));
}

const uint8_t* TPicture::Row(int plane, uint32_t row) const
{
    const ZKImage_t& image = m_record.image;
    const uint32_t rows = plane == 0 ? m_height : (m_height + 1) / 2;
    const uint32_t stored = m_bottomUp ? rows - 1 - row : row;
    return image.planes[plane] + size_t(stored) * image.rowBytes[plane];
}

void TPicture::Draw(int n, uint64_t timeStep, uint64_t timeScale)
{
    // A diagonal ramp sliding right, a bright square moving down and right,
    // and chroma ramps that drift the other way.
    const uint32_t square = m_width / 8;
    const uint32_t sx = (uint32_t(n) * 7) % (m_width > square ? m_width - square : 1);
    const uint32_t sy = (uint32_t(n) * 3) % (m_height > square ? m_height - square : 1);
    for (uint32_t y = 0; y < m_height; ++y) {
        uint8_t* row = Row(0, y);
        for (uint32_t x = 0; x < m_width; ++x) {
            const bool inSquare = x >= sx && x < sx + square && y >= sy && y < sy + square;
            row[x] = inSquare ? 235 : static_cast<uint8_t>(16 + ((x + y + 4 * uint32_t(n)) % 200));
        }
    }
    for (int p = 1; p < 3; ++p) {
        for (uint32_t y = 0; y < (m_height + 1) / 2; ++y) {
            uint8_t* row = Row(p, y);
            for (uint32_t x = 0; x < (m_width + 1) / 2; ++x)
                row[x] = static_cast<uint8_t>(64 + ((p == 1 ? x : y) * 2 + 1000 - 3 * uint32_t(n)) % 128);
        }
    }
    m_record.image.time = uint64_t(n) * timeStep;
    m_record.image.timeScale = timeScale;
}

std::vector<uint8_t> TPicture::Packed() const
{
    std::vector<uint8_t> bytes;
    for (int p = 0; p < 3; ++p) {
        const uint32_t rows = p == 0 ? m_height : (m_height + 1) / 2;
        const uint32_t width = p == 0 ? m_width : (m_width + 1) / 2;
        for (uint32_t y = 0; y < rows; ++y)
            bytes.insert(bytes.end(), Row(p, y), Row(p, y) + width);
    }
    return bytes;
}

ZKEncImage_t EmptyOutput()
{
    ZKEncImage_t output{};
    return output;
}

std::vector<uint8_t> TStream::AnnexB() const
{
    std::vector<uint8_t> bytes;
    for (const auto* list : {&descriptors, &pictures}) {
        for (const TPacketCopy& packet : *list)
            bytes.insert(bytes.end(), packet.data.begin(), packet.data.end());
    }
    return bytes;
}

namespace {
void CopyBundle(const IPacketBundle* bundle, std::vector<TPacketCopy>& into)
{
    for (uint32_t i = 0; i < bundle->size(); ++i) {
        const IPacket* packet = bundle->get(i);
        TPacketCopy copy;
        copy.type = packet->getType();
        copy.time = packet->getTime();
        copy.timeBase = packet->getTimeBase();
        copy.duration = packet->getDuration();
        if (packet->getData() != nullptr)
            copy.data.assign(packet->getData(), packet->getData() + packet->getDataSize());
        into.push_back(std::move(copy));
    }
}
}  // namespace

void CopyOutput(const ZKEncImage_t& output, TStream& stream)
{
    if (output.descriptors != nullptr) {
        ++stream.descriptorOutputs;
        CopyBundle(output.descriptors, stream.descriptors);
    }
    const size_t before = stream.pictures.size();
    if (output.image.dataPackets != nullptr)
        CopyBundle(output.image.dataPackets, stream.pictures);
    stream.picturesPerCall.push_back(stream.pictures.size() - before);
}

TStream EncodeStream(IVideoCompressor& compressor, TPicture& picture, int count, const std::set<int>& keys,
                     uint64_t timeStep, bool flushWithNull)
{
    TStream stream;
    const uint64_t timeScale = picture.Record().image.timeScale;
    for (int n = 0; n < count; ++n) {
        picture.Draw(n, timeStep, timeScale);
        const bool last = n == count - 1 && !flushWithNull;
        ZKEncImage_t output = EmptyOutput();
        const auto start = std::chrono::steady_clock::now();
        stream.statuses.push_back(compressor.CompressFrame(&picture.Record(), keys.count(n) > 0, last, &output));
        stream.seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        CopyOutput(output, stream);
    }
    if (flushWithNull) {
        ZKEncImage_t output = EmptyOutput();
        stream.statuses.push_back(compressor.CompressFrame(nullptr, false, true, &output));
        CopyOutput(output, stream);
    }
    return stream;
}

TTempFile::TTempFile()
{
    const char* dir = std::getenv("TMPDIR");
    std::string pattern = std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") + "/evc-h264-XXXXXX";
    const int fd = mkstemp(pattern.data());
    if (fd < 0)
        throw std::runtime_error("mkstemp failed");
    close(fd);
    m_path = pattern;
}

TTempFile::~TTempFile()
{
    std::remove(m_path.c_str());
}

void TTempFile::Write(const std::vector<uint8_t>& bytes) const
{
    std::ofstream file(m_path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::vector<uint8_t> TTempFile::Read() const
{
    std::ifstream file(m_path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string ProbeStream(const std::string& path)
{
    return RunCommand("ffprobe -v error -f h264 -count_frames -select_streams v:0 "
                      "-show_entries stream=width,height,nb_read_frames -of default=nw=1 '" +
                      path + "'")
        .output;
}

std::vector<int> ProbeKeyFrames(const std::string& path)
{
    const std::string text =
        RunCommand("ffprobe -v error -f h264 -select_streams v:0 -show_entries frame=key_frame -of csv=p=0 '" + path +
                   "'")
            .output;
    std::vector<int> keys;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        if (!line.empty())
            keys.push_back(std::atoi(line.c_str()));
    }
    return keys;
}

}  // namespace evctest
