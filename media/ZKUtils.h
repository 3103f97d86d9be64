// Small numeric helpers shared by the time values and the image records.
#pragma once

#include <cstdint>

namespace ZKUtils {

// t expressed in the time scale `to` instead of `from`, rounded to the nearest
// unit (halves up). Equal scales return t bit for bit. `from` must not be 0.
uint64_t rebaseTime(uint64_t t, uint64_t from, uint64_t to);

// Truncation toward zero of a double to an unsigned count. Values the count
// cannot hold saturate (negative and NaN give 0) instead of being undefined.
uint64_t truncateToUInt64(double value);

}  // namespace ZKUtils

// |a - b| <= tolerance.
bool ZKCloseEnough(float a, float b, float tolerance);
bool ZKCloseEnough(double a, double b, double tolerance);
