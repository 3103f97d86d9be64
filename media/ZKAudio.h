// Sample sizes, block sizes and channel modes of raw audio records.
#pragma once

#include <cstdint>

#include "evc/ZKImage.h"

// Bytes per sample of an EAudioFormatType; 0 for 12 and anything above.
uint32_t BytesPerSample(uint32_t format);
// Bytes per sample x channels x samples (32-bit arithmetic); 0 for format 12.
uint32_t CalcFrameSize(const ZKAudio_t& audio);
// Zeroes the bytes after the samples up to the record's data size.
void ZKPadAudioBufferWithSilence(ZKAudio_t* audio);

// Channels of a mode, 0 for an unknown mode.
int ZKGetNumberChannels(int32_t mode);
// The mode's name ("Mono", "5.1", ...), "undefined" for an unknown mode.
const char* ZKGetChannelModeName(int32_t mode);
// The mode whose name is exactly `name` (case-sensitive), 0 when none is.
EChannelMode ZKGetChannelMode(const char* name);
// The usual mode for a channel count, 0 when there is none.
EChannelMode ZKGetChannelMode(int channels);
