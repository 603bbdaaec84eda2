#pragma once
// KXVector: the vector routines of the overviews, the channel statistics and the measuring code
// (reductions over float samples; sums in runs of 256 samples, each in sixteen single-precision
// lanes added in a fixed order, the runs in double precision, so that every processor gives the
// same sums). The reductions run with SSE2, AVX2 or AVX-512, the widest the processor has; a NaN
// sample is passed over by the maxima, as the scalar forms do.

#include <cstdint>

namespace KXVector {
// The instruction sets the routines choose from, the widest the processor has; every one gives
// the same results. A limit makes them use no wider set (the tests compare the sets).
enum class Instructions { sse2, avx2, avx512 };
void limitInstructions(Instructions widest);

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
// `runs` whole runs of 256 samples, one result a run, each as `statistics` gives it for those
// 256 samples (an overview entry's values, many entries a call); with `negatives`, also the
// samples' sign bits (16 words a run) as `negativeBits` gives them, from the same pass.
void statisticsOfRuns(const float* samples, std::uint32_t runs, Statistics* results,
                      std::uint16_t* negatives = nullptr);
// Sign bits, ceil(count / 16) words: bit k of word w is set when sample 16w + k is below 0.0
// (−0.0 and NaN are not); the bits past `count` are clear.
void negativeBits(const float* samples, std::uint32_t count, std::uint16_t* negatives);
// The frames (of `channelCount` arrays of `frames` samples) whose count of samples below 0.0 is
// odd; −0.0 and NaN are not below 0.0.
std::uint32_t framesWithOddNegatives(const float* const* channels, std::uint32_t channelCount, std::uint32_t frames);
// The same from the channels' sign bits.
std::uint32_t framesWithOddNegatives(const std::uint16_t* const* negatives, std::uint32_t channelCount,
                                     std::uint32_t frames);
// The largest and the smallest sample, each at its first index, and the plain sum (double).
struct Extremes {
    float maximum, minimum;
    std::uint32_t maximumIndex, minimumIndex;
    double sum;
};
Extremes extremes(const float* samples, std::uint32_t count);
}  // namespace KXVector
