#include "media/ZKFrameRates.h"

#include <cmath>
#include <iterator>

namespace {

constexpr double kStdFrameRates[] = {1,     3,  5,  8,     10, 12,     15,  23.976, 24, 25,
                                     29.97, 30, 50, 59.94, 60, 119.88, 120, 239.76, 240};

}  // namespace

double ZKFindClosestStdFrameRate(double rate, double tolerance, double* difference)
{
    double best = kStdFrameRates[0];
    for (double candidate : kStdFrameRates) {
        if (std::fabs(candidate - rate) < std::fabs(best - rate))
            best = candidate;
    }
    if (difference != nullptr)
        *difference = best - rate;
    return std::fabs(best - rate) <= tolerance ? best : 0.0;
}

double ZKFindNextStdFrameRate(double rate)
{
    // 1 fps is never a sensible "next" rate, so the search starts at 3.
    for (const double* it = kStdFrameRates + 1; it != std::end(kStdFrameRates); ++it) {
        if (rate - *it < 0.02)
            return *it;
    }
    return rate;
}
