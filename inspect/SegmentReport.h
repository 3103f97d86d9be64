// What evc-inspect prints about an intermediate segment file: the header, then
// one block per frame element (times, geometry, sizes, every packet), the way
// mkvinfo lists a Matroska file.
#pragma once

#include <ostream>
#include <string>

namespace evc {

// Writes the report of the file at path to out. Returns "" when the whole
// file was read, else what is wrong with it (the report then holds the
// elements before the fault). Never throws for a bad file.
std::string ReportSegment(const std::string& path, std::ostream& out);

}  // namespace evc
