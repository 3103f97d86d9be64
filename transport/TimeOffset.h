// The time offset that frame and packet elements add to every time they
// write or read: converted to the time base of the thing being moved. An
// offset of 0 units changes nothing (not even through rounding).
#pragma once

#include "media/CATime.h"

#include <cstdint>

inline uint64_t ZKAddTimeOffset(uint64_t time, uint64_t timeBase, const CATime& offset)
{
    if (offset.GetTime() == 0)
        return time;
    return time + offset.GetTime(timeBase);
}
