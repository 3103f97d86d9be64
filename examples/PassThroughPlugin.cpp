// The minimal compressor plug-in, on the public helpers alone: every picture
// comes out as its planes, top-down rows without padding, one packet each;
// "KeyFrameInterval" marks every n-th picture as a key one. The examples
// build it against an installed evc; the end-to-end test checks the helpers
// byte for byte with it.
#include <string>

#include "evc/PluginCompressor.h"
#include "evc/PluginEntryPoints.h"

namespace {

using namespace evc::plugin;

class CPassThrough : public TCompressor {
public:
    CPassThrough() : TCompressor("raw", {6, 13, 24, 31, 32}, {IntRow("KeyFrameInterval", 0, 0)}, {}) {}
    ~CPassThrough() override { CloseStream(); }
    IVideoCompressor* CreateInstance() override { return new CPassThrough; }

private:
    uint32_t Open(const TStreamInfo& stream) override
    {
        const std::string header = "raw " + std::to_string(stream.format.colorFormat);
        AddHeader(0, reinterpret_cast<const uint8_t*>(header.data()), header.size());
        m_count = 0;
        return kZKNoErr;
    }
    uint32_t Encode(const TInputPicture& picture) override
    {
        const TStreamInfo& s = Stream();
        std::string bytes;
        for (int p = 0; p < 3; ++p) {
            const uint32_t width = (p == 0 ? s.width : s.width >> s.format.chromaShiftX) * s.format.bytesPerSample;
            const uint32_t rows = p == 0 ? s.height : s.height >> s.format.chromaShiftY;
            for (uint32_t y = 0; y < rows; ++y)
                bytes.append(reinterpret_cast<const char*>(picture.planes[p]) + size_t(y) * picture.rowBytes[p], width);
        }
        const int32_t interval = m_standard.Int("KeyFrameInterval");
        const bool key = picture.forceKey || m_count == 0 || (interval > 0 && m_count % interval == 0);
        ++m_count;
        Emit(key ? 1 : 0, reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), picture.pts);
        return kZKNoErr;
    }
    uint32_t Drain() override { return kZKNoErr; }
    void Close() override {}

    int64_t m_count = 0;
};

}  // namespace

EVC_COMPRESSOR_PLUGIN(evc::FourCC("EvcT"), evc::FourCC("raw "), CPassThrough);
