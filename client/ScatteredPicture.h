// Pictures whose planes lie apart (a decoder's frame: each plane in its own
// buffer, rows padded) rather than one after the other as InitZKImage lays
// them out. Such a picture cannot be written into the segment as it is; it is
// copied straight into a picture the client lends over the segment, so that
// it still costs one copy.
#pragma once

#include "evc/Client.h"
#include "evc/ZKImage.h"

namespace evc {

// False when the planes lie as InitZKImage lays them out over the first one
// with the record's row bytes, or when there are no pixels.
bool IsScattered(const ZKEncImage_t& picture);

// The picture lent by client with picture's pixels copied in, row by row, and
// its times and fields. Throws UsageError when a plane is missing or its rows
// are shorter than the format's.
ZKEncImage_t GatherIntoSegment(Client& client, const ZKEncImage_t& picture);

}  // namespace evc
