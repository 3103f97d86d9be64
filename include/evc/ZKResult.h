/// @file
/// The 32-bit result codes that compressors, the frame operations and the
/// service answer, and that the client hands back to its host. Every layer
/// takes them from here; none spells the numbers again.
#pragma once

#include <cstdint>

constexpr uint32_t kZKNoErr = 0;                       ///< success
constexpr uint32_t kZKErrGeneral = 0x80010001;         ///< any other failure
constexpr uint32_t kZKErrBadArgument = 0x80010002;     ///< missing or unusable argument
constexpr uint32_t kZKErrFormatMismatch = 0x800F0007;  ///< colour format or size differs
/// Answered by the service on its own behalf.
constexpr uint32_t kZKErrFrameTooLarge = 0x800300E6;  ///< a frame element did not fit the payload area
constexpr uint32_t kZKErrNoCompressor = 0x800300E9;   ///< no compressor for the requested codes, or none yet
/// the preset is unreadable, has no root "Output", nests too deep or gives a
/// setting a kind its compressor does not declare
constexpr uint32_t kZKErrBadPreset = 0x800300EA;
