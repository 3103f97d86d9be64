// The minimal host: starts the installed evc-service, loads the pass-through
// compressor through a preset, encodes ten 64x48 pictures and prints what
// came back. argv[1], when given, is the folder whose Evc.app holds the
// plug-in (by default the installed host bundle).
#include <evc/Client.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

int main(int argc, char** argv)
{
    // The preset names the compressor by its two codes ('EvcT', 'raw ') and
    // gives its settings; SetOutput takes this XML text itself.
    const std::string preset = R"(<?xml version="1.0" encoding="UTF-8"?>
<Output>
  <VideoCompressor Manufacture4cc="1165386580" Codec4cc="1918990112">
    <StandardSettings>
      <KeyFrameInterval Type="eInt" Value="5"/>
    </StandardSettings>
    <NonStandardSettings/>
  </VideoCompressor>
</Output>)";
    const uint32_t width = 64, height = 48, frames = 10;

    // One 8-bit 4:2:0 picture: three planes back to back, no padding.
    std::vector<uint8_t> pixels(width * height * 3 / 2);
    ZKEncImage_t picture{};
    picture.image.colorFormat = eColorFormatYUV420Planar;
    picture.image.colorRange = eColorRangeDefault;
    picture.image.width = width;
    picture.image.height = height;
    picture.image.rowBytes[0] = width;
    picture.image.rowBytes[1] = picture.image.rowBytes[2] = width / 2;
    picture.image.planes[0] = pixels.data();
    picture.image.planes[1] = pixels.data() + width * height;
    picture.image.planes[2] = picture.image.planes[1] + width * height / 4;
    picture.image.dataSize = static_cast<uint32_t>(pixels.size());
    picture.image.timeScale = 25;  // time counts pictures at 25 per second

    try {
        evc::ClientOptions options;
        options.largestFrameBytes = pixels.size();
        if (argc > 1)
            options.applicationFolder = argv[1];
        evc::Client client(options);
        uint32_t status = client.SetOutput(preset);
        if (status == kZKNoErr)
            status = client.Begin(&picture);
        size_t bytes = 0, packets = 0, keys = 0;
        for (uint32_t n = 0; n < frames && status == kZKNoErr; ++n) {
            std::fill(pixels.begin(), pixels.end(), static_cast<uint8_t>(n));
            picture.image.time = n;
            evc::EncodedFrame out;
            status = client.CompressFrame(&picture, n == 0, n + 1 == frames, &out);
            for (const evc::Packet& packet : out.packets) {
                bytes += packet.data.size();
                keys += packet.type == 1;
                ++packets;
            }
        }
        if (status == kZKNoErr)
            status = client.End();
        if (status != kZKNoErr) {
            std::fprintf(stderr, "example-host: the service answered 0x%08X\n", status);
            return 1;
        }
        std::printf("encoded %u pictures: %zu packets, %zu key, %zu bytes\n", frames, packets, keys, bytes);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "example-host: %s\n", e.what());
        return 1;
    }
    return 0;
}
