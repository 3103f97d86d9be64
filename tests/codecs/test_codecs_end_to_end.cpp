// Every compressor bundle through the real service, one row per plug-in and
// accepted colour format: a generated clip goes in with the bundled quality
// preset, the stream comes out as ffmpeg reads it (Annex-B or IVF), and
// Debian's ffprobe and ffmpeg, decoders no one here wrote, check the codec,
// profile, pixel format, frame count, the key picture forced in the middle
// and the fidelity to the source. Refused formats get the mismatch code.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "common/Golden.h"
#include "common/Picture.h"
#include "common/Process.h"
#include "common/Scratch.h"
#include "evc/Client.h"
#include "media/ZKColorFormats.h"

using namespace evctest;

namespace {

constexpr uint32_t kFormatMismatch = kZKErrFormatMismatch;
constexpr uint32_t kWidth = 128, kHeight = 96;
constexpr int kFrames = 12, kForcedKey = 6;

// ffmpeg's name of the same layout, for the formats the plug-ins take.
const char* PixFmt(uint32_t format)
{
    return format == 6    ? "yuv420p"
           : format == 13 ? "yuv444p"
           : format == 31 ? "yuv420p10le"
           : format == 32 ? "yuv422p10le"
                          : "yuv444p10le";
}

struct Row {
    const char* plugin;  // presets/<plugin>-quality.xml
    uint32_t colorFormat;
    const char* codec;  // as ffprobe names codec and profile
    const char* profile;
    const char* container;  // "annexb" or "ivf"
};

const Row kRows[] = {
    {"h264", 6, "h264", "High", "annexb"},
    {"h264", 31, "h264", "High 10", "annexb"},
    {"h264", 32, "h264", "High 4:2:2", "annexb"},
    {"h264", 13, "h264", "High 4:4:4 Predictive", "annexb"},
    {"hevc", 6, "hevc", "Main", "annexb"},
    {"hevc", 31, "hevc", "Main 10", "annexb"},
    {"hevc", 32, "hevc", "Rext", "annexb"},
    {"hevc", 13, "hevc", "Rext", "annexb"},
    {"hevc", 24, "hevc", "Rext", "annexb"},
    {"vp9", 6, "vp9", "Profile 0", "ivf"},
    {"vp9", 13, "vp9", "Profile 1", "ivf"},
    {"vp9", 31, "vp9", "Profile 2", "ivf"},
    {"vp9", 32, "vp9", "Profile 3", "ivf"},
    {"vp9", 24, "vp9", "Profile 3", "ivf"},
    {"av1", 6, "av1", "Main", "ivf"},
    {"av1", 31, "av1", "Main", "ivf"},
};

std::string Preset(const char* plugin, const char* kind = "quality")
{
    const Bytes text = ReadBytes(std::string(EVC_PRESETS_DIR) + "/" + plugin + "-" + kind + ".xml");
    return std::string(text.begin(), text.end());
}

evc::ClientOptions Options()
{
    evc::ClientOptions options;
    options.servicePath = BuildPath("bin/evc-service");
    options.applicationFolder = BuildPath("");
    options.largestFrameBytes = kWidth * kHeight * 6;
    options.commandTimeout = std::chrono::milliseconds(60000);
    return options;
}

// The stream as ffmpeg reads it: Annex-B (headers, then the pictures) or an
// IVF file of the pictures.
Bytes Container(const Row& row, const evc::EncodedFrame& headers, const std::vector<evc::Packet>& pictures)
{
    const bool ivf = std::strcmp(row.container, "ivf") == 0;
    Bytes bytes;
    if (ivf) {
        const char* fourcc = std::strcmp(row.codec, "vp9") == 0 ? "VP90" : "AV01";
        bytes = Cat({Hex("444B4946 0000 2000"), Bytes(fourcc, fourcc + 4)});  // "DKIF", version 0, 32 bytes
        for (const auto& [value, size] :
             {std::pair{kWidth, 2}, {kHeight, 2}, {25u, 4}, {1u, 4}, {uint32_t(pictures.size()), 4}, {0u, 4}})
            PutLe(bytes, value, size_t(size));
    }
    for (const evc::Packet& header : ivf ? std::vector<evc::Packet>() : headers.descriptors)
        bytes.insert(bytes.end(), header.data.begin(), header.data.end());
    for (const evc::Packet& picture : pictures) {
        if (ivf) {
            PutLe(bytes, picture.data.size(), 4);
            PutLe(bytes, picture.time, 8);
        }
        bytes.insert(bytes.end(), picture.data.begin(), picture.data.end());
    }
    return bytes;
}

class CodecsEndToEnd : public ScratchTest {};

TEST_F(CodecsEndToEnd, EachPluginEncodesEachOfItsFormatsForFfmpeg)
{
    TempDir files;
    for (const Row& row : kRows) {
        const char* pixFmt = PixFmt(row.colorFormat);
        SCOPED_TRACE(std::string(row.plugin) + " format " + std::to_string(row.colorFormat));
        Bytes source;
        std::vector<evc::Packet> pictures;
        evc::EncodedFrame headers;
        {
            evc::Client client(Options());
            ASSERT_EQ(client.SetOutput(Preset(row.plugin)), 0u);
            TestPicture picture(row.colorFormat, kWidth, kHeight);
            ASSERT_EQ(client.Begin(&picture.Record()), 0u);
            for (int n = 0; n < kFrames; ++n) {
                source = Cat({source, picture.Draw(n)});
                evc::EncodedFrame out;
                ASSERT_EQ(client.CompressFrame(&picture.Record(), n == kForcedKey, n == kFrames - 1, &out), 0u) << n;
                if (!out.descriptors.empty())
                    headers.descriptors = out.descriptors;
                pictures.insert(pictures.end(), out.packets.begin(), out.packets.end());
            }
            EXPECT_EQ(client.End(), 0u);
        }
        ASSERT_EQ(pictures.size(), size_t(kFrames)) << "one packet per picture";
        EXPECT_FALSE(headers.descriptors.empty()) << "stream headers in the descriptors";

        const std::string stream = files.Write(std::string("out.") + row.plugin, Container(row, headers, pictures));
        // One ffprobe run: every packet's flags, then the stream's fields.
        const CommandResult probe =
            RunCommand("ffprobe -v error -select_streams v:0 -count_frames -show_entries "
                       "packet=flags:stream=codec_name,profile,pix_fmt,width,height,nb_read_frames -of default=nw=1 '" +
                       stream + "'");
        ASSERT_EQ(probe.status, 0) << probe.output;
        std::string keys, fields;
        std::istringstream lines(probe.output);
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("flags=", 0) == 0)
                keys += line.size() > 6 && line[6] == 'K' ? 'K' : '_';
            else
                fields += line + "\n";
        }
        EXPECT_EQ(fields, std::string("codec_name=") + row.codec + "\nprofile=" + row.profile +
                              "\nwidth=128\nheight=96\npix_fmt=" + pixFmt +
                              "\nnb_read_frames=" + std::to_string(kFrames) + "\n");
        // Packets in decode order: the first and the forced one are key pictures.
        ASSERT_EQ(keys.size(), size_t(kFrames)) << probe.output;
        EXPECT_EQ(keys[0], 'K');
        EXPECT_EQ(keys.substr(kForcedKey - 1, 2), "_K") << "the forced key picture";

        const std::string decoded = files.File("decoded.yuv");
        const CommandResult decode =
            RunCommand("ffmpeg -v error -y -i '" + stream + "' -fps_mode passthrough -f rawvideo -pix_fmt " + pixFmt +
                       " '" + decoded + "'");
        ASSERT_EQ(decode.status, 0) << decode.output;
        const Bytes pixels = ReadBytes(decoded);
        ASSERT_EQ(pixels.size(), source.size());
        EXPECT_GT(Psnr(source, pixels, int(ZKGetBitResolution(row.colorFormat))), 35.0);
    }
}

TEST_F(CodecsEndToEnd, FastPresetsEncodeAndRefusedFormatsGetTheMismatchCode)
{
    for (const char* plugin : {"h264", "hevc", "vp9", "av1"}) {
        evc::Client client(Options());
        ASSERT_EQ(client.SetOutput(Preset(plugin, "fast")), 0u);
        TestPicture picture(6, kWidth, kHeight);
        picture.Draw(0);
        ASSERT_EQ(client.Begin(&picture.Record()), 0u);
        evc::EncodedFrame out;
        ASSERT_EQ(client.CompressFrame(&picture.Record(), false, true, &out), 0u);
        EXPECT_EQ(out.packets.size(), 1u);
        for (const uint32_t format : {0u, 6u, 13u, 24u, 31u, 32u}) {
            SCOPED_TRACE(std::string(plugin) + " format " + std::to_string(format));
            const auto accepts = [&](const Row& row) {
                return row.plugin == std::string(plugin) && row.colorFormat == format;
            };
            if (std::any_of(std::begin(kRows), std::end(kRows), accepts))
                continue;
            TestPicture other(format, kWidth, kHeight);
            EXPECT_EQ(client.Begin(&other.Record()), kFormatMismatch);
            out = evc::EncodedFrame();
            EXPECT_NE(client.CompressFrame(&other.Record(), false, true, &out), 0u);
            EXPECT_TRUE(out.packets.empty());
        }
    }
}

// The pass-through test bundle: its packets are the planes the plug-in
// helpers hand a codec, so every format and row order can be checked byte
// for byte.
TEST_F(CodecsEndToEnd, PluginHelpersHandTheCodecEveryFormatTopDown)
{
    const std::string preset = "<Output><VideoCompressor Manufacture4cc=\"" + std::to_string(0x45766354u) +
                               "\" Codec4cc=\"" + std::to_string(0x72617720u) +
                               "\"><StandardSettings><KeyFrameInterval Type=\"eInt\" Value=\"2\"/>"
                               "</StandardSettings></VideoCompressor></Output>";
    for (const uint32_t format : {6u, 13u, 31u, 32u, 24u}) {
        for (const bool bottomUp : {false, true}) {
            SCOPED_TRACE(std::string(PixFmt(format)) + (bottomUp ? " bottom-up" : " top-down"));
            evc::Client client(Options());
            ASSERT_EQ(client.SetOutput(preset), 0u);
            TestPicture picture(format, kWidth, kHeight, 0, bottomUp);
            ASSERT_EQ(client.Begin(&picture.Record()), 0u);
            for (int n = 0; n < 3; ++n) {
                const Bytes expected = picture.Draw(n);  // each plane's rows from the top
                evc::EncodedFrame out;
                ASSERT_EQ(client.CompressFrame(&picture.Record(), false, n == 2, &out), 0u);
                ASSERT_EQ(out.packets.size(), 1u);
                const evc::Packet& packet = out.packets[0];
                EXPECT_EQ(Bytes(packet.data.begin(), packet.data.end()), expected) << n;
                EXPECT_EQ(packet.type, n % 2 == 0 ? 1u : 0u) << n;
                EXPECT_EQ(packet.time, uint64_t(n));
                EXPECT_EQ(packet.duration, 1u);
                ASSERT_EQ(out.descriptors.size(), n == 0 ? 1u : 0u);
                if (n == 0) {
                    EXPECT_EQ(std::string(out.descriptors[0].data.begin(), out.descriptors[0].data.end()),
                              "raw " + std::to_string(format));
                }
            }
        }
    }
}

}  // namespace
