#pragma once
// KXVector: the vector routines of the overviews, the channel statistics and the measuring code
// (reductions over float samples; sums in double precision). The reductions run four samples at a
// time where SSE2 is there; a NaN sample is passed over by the maxima, as the scalar forms do.

#include <cstdint>

namespace KXVector {
float maximumMagnitude(const float* samples, std::uint32_t count);
// The first index of the largest magnitude (0 for no samples).
std::uint32_t maximumMagnitudeIndex(const float* samples, std::uint32_t count);
double sumOfSquares(const float* samples, std::uint32_t count);
double sumOfMagnitudes(const float* samples, std::uint32_t count);
// All three in one pass, each exactly as its own routine computes it.
struct Statistics {
    float maximumMagnitude;
    double sumOfSquares, sumOfMagnitudes;
};
Statistics statistics(const float* samples, std::uint32_t count);
// The largest and the smallest sample, each at its first index, and the plain sum (double).
struct Extremes {
    float maximum, minimum;
    std::uint32_t maximumIndex, minimumIndex;
    double sum;
};
Extremes extremes(const float* samples, std::uint32_t count);
}  // namespace KXVector
