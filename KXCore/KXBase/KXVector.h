#pragma once
// KXVector: the vector routines of the overviews, the channel statistics and the measuring code
// (reductions over float samples; sums in double precision, in sixteen lanes added in a fixed
// order, so that every processor gives the same sums). The reductions run with SSE2, or AVX2
// where the processor has it; a NaN sample is passed over by the maxima, as the scalar forms do.

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
// The frames (of `channelCount` arrays of `frames` samples) whose count of samples below 0.0 is
// odd; −0.0 and NaN are not below 0.0.
std::uint32_t framesWithOddNegatives(const float* const* channels, std::uint32_t channelCount, std::uint32_t frames);
// The largest and the smallest sample, each at its first index, and the plain sum (double).
struct Extremes {
    float maximum, minimum;
    std::uint32_t maximumIndex, minimumIndex;
    double sum;
};
Extremes extremes(const float* samples, std::uint32_t count);
}  // namespace KXVector
