// Text to number the way a formatted stream extraction reads it: leading white
// space skipped, optional sign, decimal digits up to the first other
// character. Text without digits, or a number out of range, gives 0.
#pragma once

#include <sstream>
#include <string>

template <typename T>
T ZKConvertToScalar(const char* text)
{
    std::istringstream stream(std::string(text != nullptr ? text : ""));
    T result = 0;
    stream >> result;
    // A failed or overflowing extraction leaves 0 or the clamped limit; both
    // mean "no usable number" here.
    if (stream.fail())
        return 0;
    return result;
}
