// What the H.264 plug-in tests share: the bundle loaded with dlopen, settings
// applied the way the host applies them, a moving 4:2:0 test picture, copies
// of the compressor's output, temporary files and external tools.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "common/Process.h"
#include "evc/IVideoCompressor.h"
#include "evc/VideoCompressorPlugin.h"

namespace evctest {

// The bundle's executable under EVC_BUILD_DIR; empty without the variable.
std::string H264BundleExecutable();

// The h264.qv64 code, loaded for the life of the object.
class TH264Library {
public:
    explicit TH264Library(const std::string& path);
    ~TH264Library();
    TH264Library(const TH264Library&) = delete;
    TH264Library& operator=(const TH264Library&) = delete;

    bool IsLoaded() const { return m_handle != nullptr && m_count && m_info && m_create && m_shutDown; }
    const std::string& Error() const { return m_error; }

    QVGetNumberVideoCompressorsFunc m_count = nullptr;
    QVGetVideoCompressorInfoFunc m_info = nullptr;
    CreateVideoCompressorFunc m_create = nullptr;
    QVShutDownPluginFunc m_shutDown = nullptr;

private:
    void* m_handle = nullptr;
    std::string m_error;
};

using TCompressorPtr = std::unique_ptr<IVideoCompressor>;

// A compressor made the host's way: the bundle's prototype, then CreateInstance.
TCompressorPtr MakeCompressor(const TH264Library& library);

// The setting of that name in either array, or null.
ISetting* FindSetting(IVideoCompressor& compressor, const char* name);
// Setters that convert the setting the way the host does, trusting the kind.
void SetInt(IVideoCompressor& compressor, const char* name, int32_t value);
void SetDouble(IVideoCompressor& compressor, const char* name, double value);
void SetEnum(IVideoCompressor& compressor, const char* name, const char* value);

// An 8-bit 4:2:0 picture in a buffer of its own, rows padded to rowPadding
// extra bytes, optionally stored bottom-up, with a pattern that moves with
// the frame number.
class TPicture {
public:
    TPicture(uint32_t width, uint32_t height, uint32_t rowPadding = 0, bool bottomUp = false);
    // Draws frame n and sets its time to n × timeStep in timeScale units.
    void Draw(int n, uint64_t timeStep = 1, uint64_t timeScale = 25);
    // The picture as tightly packed top-down planes (Y, then U, then V).
    std::vector<uint8_t> Packed() const;
    ZKEncImage_t& Record() { return m_record; }

private:
    uint8_t* Row(int plane, uint32_t row);
    const uint8_t* Row(int plane, uint32_t row) const;

    uint32_t m_width;
    uint32_t m_height;
    bool m_bottomUp;
    std::vector<uint8_t> m_buffer;
    ZKEncImage_t m_record;
};

// An empty output record.
ZKEncImage_t EmptyOutput();

struct TPacketCopy {
    uint32_t type = 0;
    uint64_t time = 0;
    uint64_t timeBase = 0;
    uint64_t duration = 0;
    std::vector<uint8_t> data;
};

// Everything a run of CompressFrame calls handed out, copied.
struct TStream {
    std::vector<TPacketCopy> descriptors;
    std::vector<TPacketCopy> pictures;
    int descriptorOutputs = 0;            // outputs that carried descriptors
    std::vector<size_t> picturesPerCall;  // pictures in each output
    std::vector<uint32_t> statuses;
    double seconds = 0;  // time spent in CompressFrame

    // Descriptors first, then the pictures: an Annex-B elementary stream.
    std::vector<uint8_t> AnnexB() const;
};

// Appends the packets of one output to stream.
void CopyOutput(const ZKEncImage_t& output, TStream& stream);

// Compresses frames 0 .. count-1 of picture (time step timeStep), forcing key
// pictures at the frames in keys. The last frame carries the last-frame
// flag, or, with flushWithNull, a further call with a null input does.
TStream EncodeStream(IVideoCompressor& compressor, TPicture& picture, int count, const std::set<int>& keys = {},
                     uint64_t timeStep = 1, bool flushWithNull = false);

// A file in the temporary folder, removed when the object goes.
class TTempFile {
public:
    TTempFile();
    ~TTempFile();
    TTempFile(const TTempFile&) = delete;
    TTempFile& operator=(const TTempFile&) = delete;
    const std::string& Path() const { return m_path; }
    void Write(const std::vector<uint8_t>& bytes) const;
    std::vector<uint8_t> Read() const;

private:
    std::string m_path;
};

// Runs a shell command; its standard output and error, and its exit status.
using TCommandResult = CommandResult;

// ffprobe's "key=value" lines of the first video stream of an Annex-B file:
// width, height, nb_read_frames.
std::string ProbeStream(const std::string& path);
// Whether each decoded picture (in display order) is a key picture.
std::vector<int> ProbeKeyFrames(const std::string& path);

}  // namespace evctest
