// Copying, flipping and repacking the pixels that ZKImage_t records describe.
// The records are trusted to describe their buffers; nothing here allocates.
#pragma once

#include <cstdint>

#include "evc/ZKImage.h"

// Copies the original time always (when both records have a first plane, or
// the source has no rows), and the data packets and pixels only when format,
// width and height agree. deep gives the destination a clone of the source's
// data packets, otherwise the destination shares the source's pointer. Rows are
// written in reverse order when the bottom-up flags differ; each row copies
// the narrower of the two strides. Formats 0 to 3, 9, 11, 18 to 23, 30 and 6
// (with its alpha plane when both have one) copy pixels; others copy none.
void CopyZKImage(const ZKImage_t* source, ZKImage_t* destination, bool deep);

// A shallow copy that turns the picture upside down: the destination's
// bottom-up flag becomes the opposite of the source's. kZKErrFormatMismatch
// when format or dimensions differ, kZKErrBadArgument for a null record.
uint32_t FlipZKImage(const ZKImage_t* source, ZKImage_t* destination);

// Copies the first width 16-bit samples of each source row with their two
// bytes swapped, reading the source bottom row first when the bottom-up flags
// differ. kZKErrBadArgument when a record or first plane is missing or a row
// of either side holds fewer than width samples; kZKErrFormatMismatch when the
// destination has fewer rows than the source.
uint32_t ProResb64aPacking(const ZKImage_t* source, ZKImage_t* destination);
