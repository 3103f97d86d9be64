#include "media/ZKUtils.h"

#include <cassert>
#include <cmath>

namespace ZKUtils {

uint64_t truncateToUInt64(double value)
{
    // 2^64 is exactly representable; anything at or above it does not fit.
    constexpr double kTwoTo64 = 18446744073709551616.0;
    if (!(value > 0.0))  // also catches NaN
        return 0;
    if (value >= kTwoTo64)
        return UINT64_MAX;
    return static_cast<uint64_t>(value);
}

uint64_t rebaseTime(uint64_t t, uint64_t from, uint64_t to)
{
    if (from == to)
        return t;
    assert(from != 0);
    return truncateToUInt64(static_cast<double>(t) * static_cast<double>(to) / static_cast<double>(from) + 0.5);
}

}  // namespace ZKUtils

bool ZKCloseEnough(float a, float b, float tolerance)
{
    return std::fabs(a - b) <= tolerance;
}

bool ZKCloseEnough(double a, double b, double tolerance)
{
    return std::fabs(a - b) <= tolerance;
}
