#include "KXBase/KXVector.h"

#include <algorithm>
#include <cmath>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__)
#include <immintrin.h>
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

// --- Sums: sixteen lanes of doubles, lane k adding samples 16j + k in order, the lanes then
// added pairwise (0+1, 2+3 …, then those pairs …) and the samples past the last whole group
// one by one. The SSE2 and AVX2 loops keep exactly these lanes, so every processor gives the
// same sums; many lanes keep the adders busy instead of waiting on one running total.

namespace {

constexpr std::uint32_t kLanes = 16;

// Written whole by fillLanes (left uninitialised here: this runs once every 256 samples).
struct Lanes {
    alignas(32) double squares[kLanes];
    alignas(32) double magnitudes[kLanes];
    float largest;
};

double addLanes(const double* lane) {
    double pairs[kLanes / 2];
    for (std::uint32_t k = 0; k < kLanes / 2; ++k) pairs[k] = lane[2 * k] + lane[2 * k + 1];
    const double quads[4] = {pairs[0] + pairs[1], pairs[2] + pairs[3], pairs[4] + pairs[5], pairs[6] + pairs[7]};
    return (quads[0] + quads[1]) + (quads[2] + quads[3]);
}

#if defined(__SSE2__)
std::uint32_t lanesSSE2(const float* samples, std::uint32_t count, Lanes& lanes) {
    const __m128 magnitudeMask = _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF));
    __m128 largest = _mm_setzero_ps();
    __m128d squares[8], magnitudes[8];
    for (int k = 0; k < 8; ++k) squares[k] = magnitudes[k] = _mm_setzero_pd();
    std::uint32_t i = 0;
    for (; i + kLanes <= count; i += kLanes)
        for (int q = 0; q < 4; ++q) {
            const __m128 v = _mm_loadu_ps(samples + i + 4 * q);
            const __m128 magnitude = _mm_and_ps(v, magnitudeMask);
            // maxps answers its second operand when either is NaN: the running maximum goes second.
            largest = _mm_max_ps(magnitude, largest);
            const __m128d a = _mm_cvtps_pd(v), b = _mm_cvtps_pd(_mm_movehl_ps(v, v));
            squares[2 * q] = _mm_add_pd(squares[2 * q], _mm_mul_pd(a, a));
            squares[2 * q + 1] = _mm_add_pd(squares[2 * q + 1], _mm_mul_pd(b, b));
            magnitudes[2 * q] = _mm_add_pd(magnitudes[2 * q], _mm_cvtps_pd(magnitude));
            magnitudes[2 * q + 1] = _mm_add_pd(magnitudes[2 * q + 1], _mm_cvtps_pd(_mm_movehl_ps(magnitude, magnitude)));
        }
    for (int k = 0; k < 8; ++k) {
        _mm_store_pd(lanes.squares + 2 * k, squares[k]);
        _mm_store_pd(lanes.magnitudes + 2 * k, magnitudes[k]);
    }
    alignas(16) float lane[4];
    _mm_store_ps(lane, largest);
    lanes.largest = std::max(std::max(lane[0], lane[1]), std::max(lane[2], lane[3]));
    return i;
}
#endif

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define KX_VECTOR_AVX2 1
__attribute__((target("avx2"))) std::uint32_t lanesAVX2(const float* samples, std::uint32_t count, Lanes& lanes) {
    const __m256 magnitudeMask = _mm256_castsi256_ps(_mm256_set1_epi32(0x7FFFFFFF));
    const __m256d wideMagnitudeMask = _mm256_castsi256_pd(_mm256_set1_epi64x(0x7FFFFFFFFFFFFFFF));
    __m256 largest = _mm256_setzero_ps();
    __m256d squares[4], magnitudes[4];
    for (int k = 0; k < 4; ++k) squares[k] = magnitudes[k] = _mm256_setzero_pd();
    std::uint32_t i = 0;
    for (; i + kLanes <= count; i += kLanes)
        for (int h = 0; h < 2; ++h) {
            const __m256 v = _mm256_loadu_ps(samples + i + 8 * h);
            largest = _mm256_max_ps(_mm256_and_ps(v, magnitudeMask), largest);
            const __m128 low = _mm256_castps256_ps128(v), high = _mm256_extractf128_ps(v, 1);
            const __m256d a = _mm256_cvtps_pd(low), b = _mm256_cvtps_pd(high);
            // Multiplied, then added: a fused multiply-add would round differently from SSE2.
            squares[2 * h] = _mm256_add_pd(squares[2 * h], _mm256_mul_pd(a, a));
            squares[2 * h + 1] = _mm256_add_pd(squares[2 * h + 1], _mm256_mul_pd(b, b));
            // The magnitude of the widened sample is the widened magnitude, exactly.
            magnitudes[2 * h] = _mm256_add_pd(magnitudes[2 * h], _mm256_and_pd(a, wideMagnitudeMask));
            magnitudes[2 * h + 1] = _mm256_add_pd(magnitudes[2 * h + 1], _mm256_and_pd(b, wideMagnitudeMask));
        }
    for (int k = 0; k < 4; ++k) {
        _mm256_store_pd(lanes.squares + 4 * k, squares[k]);
        _mm256_store_pd(lanes.magnitudes + 4 * k, magnitudes[k]);
    }
    alignas(32) float lane[8];
    _mm256_store_ps(lane, largest);
    lanes.largest = 0.0f;
    for (const float x : lane) lanes.largest = std::max(lanes.largest, x);
    return i;
}
#endif

// The whole groups of sixteen; answers how many samples they took.
std::uint32_t fillLanes(const float* samples, std::uint32_t count, Lanes& lanes) {
#if defined(KX_VECTOR_AVX2)
    static const bool kAVX2 = __builtin_cpu_supports("avx2");
    if (kAVX2) return lanesAVX2(samples, count, lanes);
#endif
#if defined(__SSE2__)
    return lanesSSE2(samples, count, lanes);
#else
    lanes = Lanes{{}, {}, 0.0f};
    std::uint32_t i = 0;
    for (; i + kLanes <= count; i += kLanes)
        for (std::uint32_t k = 0; k < kLanes; ++k) {
            const float magnitude = std::fabs(samples[i + k]);
            lanes.largest = std::max(lanes.largest, magnitude);
            lanes.squares[k] += double(samples[i + k]) * samples[i + k];
            lanes.magnitudes[k] += magnitude;
        }
    return i;
#endif
}

}  // namespace

double sumOfSquares(const float* samples, std::uint32_t count) { return statistics(samples, count).sumOfSquares; }

double sumOfMagnitudes(const float* samples, std::uint32_t count) { return statistics(samples, count).sumOfMagnitudes; }

Statistics statistics(const float* samples, std::uint32_t count) {
    Lanes lanes;
    std::uint32_t i = fillLanes(samples, count, lanes);
    Statistics result{lanes.largest, addLanes(lanes.squares), addLanes(lanes.magnitudes)};
    for (; i < count; ++i) {
        const float magnitude = std::fabs(samples[i]);
        result.maximumMagnitude = std::max(result.maximumMagnitude, magnitude);
        result.sumOfSquares += double(samples[i]) * samples[i];
        result.sumOfMagnitudes += magnitude;
    }
    return result;
}

namespace {

#if defined(KX_VECTOR_AVX2)
__attribute__((target("avx2"))) std::uint32_t oddNegativesAVX2(const float* const* channels, std::uint32_t channelCount,
                                                                std::uint32_t frames, std::uint32_t& odd) {
    std::uint32_t i = 0;
    const __m256 zero = _mm256_setzero_ps();
    if (channelCount == 2) {
        const float* left = channels[0];
        const float* right = channels[1];
        for (; i + 8 <= frames; i += 8) {
            const __m256 parity = _mm256_xor_ps(_mm256_cmp_ps(_mm256_loadu_ps(left + i), zero, _CMP_LT_OQ),
                                                _mm256_cmp_ps(_mm256_loadu_ps(right + i), zero, _CMP_LT_OQ));
            odd += std::uint32_t(__builtin_popcount(unsigned(_mm256_movemask_ps(parity))));
        }
        return i;
    }
    for (; i + 8 <= frames; i += 8) {
        __m256 parity = _mm256_setzero_ps();
        for (std::uint32_t c = 0; c < channelCount; ++c)
            parity = _mm256_xor_ps(parity, _mm256_cmp_ps(_mm256_loadu_ps(channels[c] + i), _mm256_setzero_ps(), _CMP_LT_OQ));
        odd += std::uint32_t(__builtin_popcount(unsigned(_mm256_movemask_ps(parity))));
    }
    return i;
}
#endif

}  // namespace

std::uint32_t framesWithOddNegatives(const float* const* channels, std::uint32_t channelCount, std::uint32_t frames) {
    std::uint32_t odd = 0, i = 0;
#if defined(KX_VECTOR_AVX2)
    static const bool kAVX2 = __builtin_cpu_supports("avx2");
    if (kAVX2) i = oddNegativesAVX2(channels, channelCount, frames, odd);
#endif
#if defined(__SSE2__)
    for (; i + 4 <= frames; i += 4) {
        __m128 parity = _mm_setzero_ps();
        for (std::uint32_t c = 0; c < channelCount; ++c)
            parity = _mm_xor_ps(parity, _mm_cmplt_ps(_mm_loadu_ps(channels[c] + i), _mm_setzero_ps()));
        odd += std::uint32_t(__builtin_popcount(unsigned(_mm_movemask_ps(parity))));
    }
#endif
    for (; i < frames; ++i) {
        bool negative = false;
        for (std::uint32_t c = 0; c < channelCount; ++c) negative ^= channels[c][i] < 0.0f;
        odd += negative;
    }
    return odd;
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
