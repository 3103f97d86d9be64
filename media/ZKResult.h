// 32-bit result codes of the media and frame operations.
#pragma once

#include <cstdint>

constexpr uint32_t kZKNoErr = 0;
constexpr uint32_t kZKErrGeneral = 0x80010001;         // any other failure
constexpr uint32_t kZKErrBadArgument = 0x80010002;     // missing or unusable argument
constexpr uint32_t kZKErrFormatMismatch = 0x800F0007;  // format or size mismatch
