// The standard video frame rates: 1, 3, 5, 8, 10, 12, 15, 23.976, 24, 25,
// 29.97, 30, 50, 59.94, 60, 119.88, 120, 239.76 and 240.
#pragma once

// The standard rate nearest to `rate` (the lower one on a tie) when it lies
// within `tolerance`, else 0.0. `difference`, when given, always receives
// nearest - rate.
double ZKFindClosestStdFrameRate(double rate, double tolerance, double* difference);
// The first standard rate from 3 upward that `rate` does not exceed by 0.02
// or more; `rate` itself when it lies above them all.
double ZKFindNextStdFrameRate(double rate);
