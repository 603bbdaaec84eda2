#include "KXBase/KXVector.h"

#include <algorithm>
#include <cmath>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace KXVector {

float maximumMagnitude(const float* samples, std::uint32_t count) {
    float largest = 0.0f;
    std::uint32_t i = 0;
#if defined(__SSE2__)
    const __m128 magnitudeMask = _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF));
    __m128 lanes = _mm_setzero_ps();
    // maxps answers its second operand when either is NaN: the running maximum goes second.
    for (; i + 4 <= count; i += 4) lanes = _mm_max_ps(_mm_and_ps(_mm_loadu_ps(samples + i), magnitudeMask), lanes);
    alignas(16) float lane[4];
    _mm_store_ps(lane, lanes);
    largest = std::max(std::max(lane[0], lane[1]), std::max(lane[2], lane[3]));
#endif
    for (; i < count; ++i) largest = std::max(largest, std::fabs(samples[i]));
    return largest;
}

std::uint32_t maximumMagnitudeIndex(const float* samples, std::uint32_t count) {
    std::uint32_t index = 0;
    float largest = -1.0f;
    for (std::uint32_t i = 0; i < count; ++i) {
        const float magnitude = std::fabs(samples[i]);
        if (magnitude > largest) largest = magnitude, index = i;
    }
    return index;
}

double sumOfSquares(const float* samples, std::uint32_t count) {
    double sum = 0;
    std::uint32_t i = 0;
#if defined(__SSE2__)
    __m128d low = _mm_setzero_pd(), high = _mm_setzero_pd();
    for (; i + 4 <= count; i += 4) {
        const __m128 v = _mm_loadu_ps(samples + i);
        const __m128d a = _mm_cvtps_pd(v), b = _mm_cvtps_pd(_mm_movehl_ps(v, v));
        low = _mm_add_pd(low, _mm_mul_pd(a, a));
        high = _mm_add_pd(high, _mm_mul_pd(b, b));
    }
    alignas(16) double lane[4];
    _mm_store_pd(lane, low);
    _mm_store_pd(lane + 2, high);
    sum = (lane[0] + lane[1]) + (lane[2] + lane[3]);
#endif
    for (; i < count; ++i) sum += double(samples[i]) * samples[i];
    return sum;
}

double sumOfMagnitudes(const float* samples, std::uint32_t count) {
    double sum = 0;
    std::uint32_t i = 0;
#if defined(__SSE2__)
    const __m128 magnitudeMask = _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF));
    __m128d low = _mm_setzero_pd(), high = _mm_setzero_pd();
    for (; i + 4 <= count; i += 4) {
        const __m128 v = _mm_and_ps(_mm_loadu_ps(samples + i), magnitudeMask);
        low = _mm_add_pd(low, _mm_cvtps_pd(v));
        high = _mm_add_pd(high, _mm_cvtps_pd(_mm_movehl_ps(v, v)));
    }
    alignas(16) double lane[4];
    _mm_store_pd(lane, low);
    _mm_store_pd(lane + 2, high);
    sum = (lane[0] + lane[1]) + (lane[2] + lane[3]);
#endif
    for (; i < count; ++i) sum += std::fabs(samples[i]);
    return sum;
}

Statistics statistics(const float* samples, std::uint32_t count) {
    Statistics result{0.0f, 0.0, 0.0};
    std::uint32_t i = 0;
#if defined(__SSE2__)
    // The lanes of the three routines above, side by side.
    const __m128 magnitudeMask = _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF));
    __m128 largest = _mm_setzero_ps();
    __m128d squaresLow = _mm_setzero_pd(), squaresHigh = _mm_setzero_pd();
    __m128d magnitudesLow = _mm_setzero_pd(), magnitudesHigh = _mm_setzero_pd();
    for (; i + 4 <= count; i += 4) {
        const __m128 v = _mm_loadu_ps(samples + i);
        const __m128 magnitude = _mm_and_ps(v, magnitudeMask);
        largest = _mm_max_ps(magnitude, largest);
        const __m128d a = _mm_cvtps_pd(v), b = _mm_cvtps_pd(_mm_movehl_ps(v, v));
        squaresLow = _mm_add_pd(squaresLow, _mm_mul_pd(a, a));
        squaresHigh = _mm_add_pd(squaresHigh, _mm_mul_pd(b, b));
        magnitudesLow = _mm_add_pd(magnitudesLow, _mm_cvtps_pd(magnitude));
        magnitudesHigh = _mm_add_pd(magnitudesHigh, _mm_cvtps_pd(_mm_movehl_ps(magnitude, magnitude)));
    }
    alignas(16) float lane[4];
    _mm_store_ps(lane, largest);
    result.maximumMagnitude = std::max(std::max(lane[0], lane[1]), std::max(lane[2], lane[3]));
    alignas(16) double sums[4];
    _mm_store_pd(sums, squaresLow);
    _mm_store_pd(sums + 2, squaresHigh);
    result.sumOfSquares = (sums[0] + sums[1]) + (sums[2] + sums[3]);
    _mm_store_pd(sums, magnitudesLow);
    _mm_store_pd(sums + 2, magnitudesHigh);
    result.sumOfMagnitudes = (sums[0] + sums[1]) + (sums[2] + sums[3]);
#endif
    for (; i < count; ++i) {
        const float magnitude = std::fabs(samples[i]);
        result.maximumMagnitude = std::max(result.maximumMagnitude, magnitude);
        result.sumOfSquares += double(samples[i]) * samples[i];
        result.sumOfMagnitudes += magnitude;
    }
    return result;
}

Extremes extremes(const float* samples, std::uint32_t count) {
    Extremes result{0.0f, 0.0f, 0, 0, 0.0};
    if (count == 0) return result;
    result.maximum = result.minimum = samples[0];
    // Two independent passes the compiler can vectorise better than one with both branches.
    for (std::uint32_t i = 1; i < count; ++i)
        if (samples[i] > result.maximum) result.maximum = samples[i], result.maximumIndex = i;
    for (std::uint32_t i = 1; i < count; ++i)
        if (samples[i] < result.minimum) result.minimum = samples[i], result.minimumIndex = i;
    double sum = 0;
    for (std::uint32_t i = 0; i < count; ++i) sum += samples[i];
    result.sum = sum;
    return result;
}

}  // namespace KXVector
