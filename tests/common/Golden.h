// Golden bytes: little-endian numbers written piece by piece, and hand-written hex files.
#pragma once

#include "common/TempDir.h"

#include <string>

namespace evctest {

// Appends value as n little-endian bytes.
void PutLe(Bytes& to, uint64_t value, size_t n);
// Bytes from pairs of hex digits ("1A45 DFA3"); blanks between pairs are ignored.
Bytes Hex(const std::string& digits);
// Hex bytes separated by blanks; '#' starts a comment running to the end of the line.
Bytes ReadHexFile(const std::string& path);

}  // namespace evctest
