/// @file
/// Plain records describing one raw or encoded picture and one block of raw or
/// encoded audio, as the host hands them to compressor plug-ins by pointer.
/// Plug-ins are compiled apart from the host, so the byte layout of every record
/// below (64-bit, little-endian, natural alignment) is part of the binary
/// contract: never reorder, resize or insert a field. The static_asserts at the
/// end of this file hold the layout in place.
///
/// This header depends on nothing but the standard library and IPacket.h, so a
/// plug-in author can include it alone.
#pragma once

#include <cstddef>
#include <cstdint>

#include "evc/IPacket.h"

/// Pixel layouts. The numeric values are the contract; several values have no
/// meaning in this system beyond their size properties and carry neutral names.
enum EColorFormats : uint32_t {
    eColorFormatRGB24 = 0,         ///< 3 bytes per pixel
    eColorFormatARGB32 = 1,        ///< 4 bytes per pixel
    eColorFormatBGR24 = 2,         ///< 3 bytes per pixel
    eColorFormatBGRA32 = 3,        ///< 4 bytes per pixel, components in the reverse order of 1
    eColorFormatRGB16A = 4,        ///< 2 bytes per pixel
    eColorFormatRGB16B = 5,        ///< 2 bytes per pixel
    eColorFormatYUV420Planar = 6,  ///< 8-bit 4:2:0, three planes and an optional alpha plane
    eColorFormat7 = 7,
    eColorFormat8 = 8,
    eColorFormatYUV422PackedA = 9,  ///< 2 bytes per pixel, one plane
    eColorFormat10 = 10,
    eColorFormatYUV422PackedB = 11,  ///< 2 bytes per pixel, one plane
    eColorFormat12 = 12,
    eColorFormatYUV444Planar = 13,  ///< 8-bit, three full planes
    eColorFormatPlanarYUV14 = 14,
    eColorFormatPlanarYUV15 = 15,
    eColorFormatPlanarYUV16 = 16,
    eColorFormatNoPixels = 17,      ///< one plane whose frame size is 0
    eColorFormatARGB64Bits10 = 18,  ///< 8 bytes per pixel
    eColorFormatARGB64Bits12 = 19,
    eColorFormatARGB64Bits16 = 20,
    eColorFormatBGRA64Bits10 = 21,  ///< components in the reverse order of 18
    eColorFormatBGRA64Bits12 = 22,
    eColorFormatBGRA64Bits16 = 23,
    eColorFormatYUV444Planar10 = 24,  ///< 16-bit samples, three full planes
    eColorFormatPlanarYUV25 = 25,
    eColorFormatPlanarYUV26 = 26,
    eColorFormatPlanarYUV27 = 27,
    eColorFormatPlanarYUV28 = 28,
    eColorFormatPlanarYUV29 = 29,
    eColorFormatYUV422Packed10 = 30,  ///< 48 pixels packed into every 128 bytes, one plane
    eColorFormatYUV420Planar10 = 31,  ///< 16-bit samples, 4:2:0, three planes
    eColorFormatYUV422Planar10 = 32,  ///< 16-bit samples, 4:2:2, three planes
    eColorFormatCount = 33            // not a format: one past the last valid value
};

/// Stored in ZKImage_t::colorRange. Every initialiser sets eColorRangeDefault;
/// no other value is interpreted by the host.
enum ColorRanges_e : uint32_t { eColorRangeUnspecified = 0, eColorRangeDefault = 1 };

/// Sample encodings of raw audio. Only their sample sizes matter to the host.
enum EAudioFormatType : uint32_t {
    eAudioFormat8Bit = 0,        ///< 1 byte per sample
    eAudioFormat16BitA = 1,      ///< 2 bytes per sample
    eAudioFormat16Bit = 2,       ///< 2 bytes per sample; the default of a new audio frame
    eAudioFormat24Bit = 3,       ///< 3 bytes per sample
    eAudioFormat32BitA = 4,      ///< 4 bytes per sample
    eAudioFormat32BitB = 5,      ///< 4 bytes per sample
    eAudioFormat8BitAlt = 6,     ///< 1 byte per sample
    eAudioFormat16BitAltA = 7,   ///< 2 bytes per sample
    eAudioFormat16BitAltB = 8,   ///< 2 bytes per sample
    eAudioFormat24BitAlt = 9,    ///< 3 bytes per sample
    eAudioFormat32BitAltA = 10,  ///< 4 bytes per sample
    eAudioFormat32BitAltB = 11,  ///< 4 bytes per sample
    eAudioFormatUnsized = 12     // block size not derived from samples
};

/// Speaker arrangements; the name of each is given by ZKGetChannelModeName.
enum EChannelMode : int32_t {
    eChannelModeUndefined = 0,
    eChannelModeMono = 1,
    eChannelModeStereo = 2,
    eChannelModeJointStereo = 3,
    eChannelModeDualChannel = 4,
    eChannelMode4_1 = 5,
    eChannelMode5_1 = 6,
    eChannelMode6_1 = 7,
    eChannelMode7_1 = 8,
    eChannelMode2_1 = 9,
    eChannelModeQuad = 10,
    eChannelMode2Channel = 11,
    eChannelMode4Channel = 12,
    eChannelMode6Channel = 13,
    eChannelMode8Channel = 14
};

/// One raw picture. The record owns nothing: planes point into a buffer owned
/// by a frame or by the caller, and the bundle belongs to the owner of the frame.
struct ZKImage_t {
    uint32_t colorFormat;                ///< EColorFormats
    uint32_t colorRange;                 ///< ColorRanges_e
    uint32_t width;                      ///< pixels
    uint32_t height;                     ///< pixels
    uint32_t bottomUp;                   ///< 1: rows stored from the bottom row upward
    uint32_t rowBytes[4];                ///< stride of planes 0 to 3; plane 3 is alpha
    uint8_t* planes[4];                  ///< null where a plane is absent
    uint64_t time;                       ///< presentation time in units of timeScale
    uint64_t timeScale;                  ///< units per second
    uint64_t originalTime;               ///< the source's own time stamp
    uint64_t originalTimeScale;          ///< units per second of originalTime
    uint32_t originalFrameWithinSecond;  ///< the source's picture count within its second
    uint32_t dataSize;                   ///< bytes of the buffer holding all planes
    IPacketBundle* dataPackets;          ///< packets attached to the picture; may be null
};

/// One encoded picture: the raw description followed by the stream's own fields.
struct ZKEncImage_t {
    ZKImage_t image;             ///< the picture's description (and pixels, for an input)
    IPacketBundle* descriptors;  ///< codec headers and the like; may be null
    uint64_t streamValue;        ///< carried unchanged; meaning is the codec's
    uint32_t streamFlags;        ///< carried unchanged; meaning is the codec's
};

/// One block of interleaved raw audio samples.
struct ZKAudio_t {
    uint64_t time;           ///< start of the block in units of timeScale
    uint64_t timeScale;      ///< units per second
    uint64_t duration;       ///< in units of timeScale
    uint32_t format;         ///< EAudioFormatType
    uint16_t channels;       ///< interleaved in data
    uint16_t sampleSize;     ///< bits per sample
    uint32_t sampleRate;     ///< samples per second
    uint32_t numberSamples;  ///< samples per channel in the block
    uint32_t dataSize;       ///< bytes available at data
    uint32_t trackIndex;     ///< the audio track the block belongs to
    uint8_t* data;           ///< the samples; owned by whoever filled the record
};

/// One block of encoded audio.
struct ZKEncAudio_t {
    ZKAudio_t audio;             ///< the block's description
    IPacketBundle* descriptors;  ///< codec headers and the like; may be null
    IPacketBundle* dataPackets;  ///< the encoded audio; may be null
};

static_assert(sizeof(void*) == 8, "the records are laid out for 64-bit builds");

static_assert(sizeof(ZKImage_t) == 120, "ZKImage_t layout");
static_assert(offsetof(ZKImage_t, colorFormat) == 0, "ZKImage_t layout");
static_assert(offsetof(ZKImage_t, colorRange) == 4, "ZKImage_t layout");
static_assert(offsetof(ZKImage_t, width) == 8, "ZKImage_t layout");
static_assert(offsetof(ZKImage_t, height) == 12, "ZKImage_t layout");
static_assert(offsetof(ZKImage_t, bottomUp) == 16, "ZKImage_t layout");
static_assert(offsetof(ZKImage_t, rowBytes) == 20, "ZKImage_t layout");
static_assert(offsetof(ZKImage_t, planes) == 40, "ZKImage_t layout");
static_assert(offsetof(ZKImage_t, time) == 72, "ZKImage_t layout");
static_assert(offsetof(ZKImage_t, timeScale) == 80, "ZKImage_t layout");
static_assert(offsetof(ZKImage_t, originalTime) == 88, "ZKImage_t layout");
static_assert(offsetof(ZKImage_t, originalTimeScale) == 96, "ZKImage_t layout");
static_assert(offsetof(ZKImage_t, originalFrameWithinSecond) == 104, "ZKImage_t layout");
static_assert(offsetof(ZKImage_t, dataSize) == 108, "ZKImage_t layout");
static_assert(offsetof(ZKImage_t, dataPackets) == 112, "ZKImage_t layout");

static_assert(sizeof(ZKEncImage_t) == 144, "ZKEncImage_t layout");
static_assert(offsetof(ZKEncImage_t, image) == 0, "ZKEncImage_t layout");
static_assert(offsetof(ZKEncImage_t, descriptors) == 120, "ZKEncImage_t layout");
static_assert(offsetof(ZKEncImage_t, streamValue) == 128, "ZKEncImage_t layout");
static_assert(offsetof(ZKEncImage_t, streamFlags) == 136, "ZKEncImage_t layout");

static_assert(sizeof(ZKAudio_t) == 56, "ZKAudio_t layout");
static_assert(offsetof(ZKAudio_t, time) == 0, "ZKAudio_t layout");
static_assert(offsetof(ZKAudio_t, timeScale) == 8, "ZKAudio_t layout");
static_assert(offsetof(ZKAudio_t, duration) == 16, "ZKAudio_t layout");
static_assert(offsetof(ZKAudio_t, format) == 24, "ZKAudio_t layout");
static_assert(offsetof(ZKAudio_t, channels) == 28, "ZKAudio_t layout");
static_assert(offsetof(ZKAudio_t, sampleSize) == 30, "ZKAudio_t layout");
static_assert(offsetof(ZKAudio_t, sampleRate) == 32, "ZKAudio_t layout");
static_assert(offsetof(ZKAudio_t, numberSamples) == 36, "ZKAudio_t layout");
static_assert(offsetof(ZKAudio_t, dataSize) == 40, "ZKAudio_t layout");
static_assert(offsetof(ZKAudio_t, trackIndex) == 44, "ZKAudio_t layout");
static_assert(offsetof(ZKAudio_t, data) == 48, "ZKAudio_t layout");

static_assert(sizeof(ZKEncAudio_t) == 72, "ZKEncAudio_t layout");
static_assert(offsetof(ZKEncAudio_t, audio) == 0, "ZKEncAudio_t layout");
static_assert(offsetof(ZKEncAudio_t, descriptors) == 56, "ZKEncAudio_t layout");
static_assert(offsetof(ZKEncAudio_t, dataPackets) == 64, "ZKEncAudio_t layout");
