#include "KXBase/KXVector.h"

#if defined(__GNUC__) && !defined(__clang__)
// GCC 12's AVX-512 intrinsics start from a register left undefined on purpose, and warn of it.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace KXVector {

namespace {

Instructions widestAvailable() {
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
    if (__builtin_cpu_supports("avx512f")) return Instructions::avx512;
    if (__builtin_cpu_supports("avx2")) return Instructions::avx2;
#endif
    return Instructions::sse2;
}

std::atomic<Instructions> gLimit{Instructions::avx512};

// Whether the routines may use `wanted`: the processor has it and no limit forbids it.
bool uses(Instructions wanted) {
    static const Instructions available = widestAvailable();
    return wanted <= available && wanted <= gLimit.load(std::memory_order_relaxed);
}

}  // namespace

void limitInstructions(Instructions widest) {
    gLimit.store(widest, std::memory_order_relaxed);
}

float maximumMagnitude(const float* samples, std::uint32_t count) {
    float largest = 0.0f;
    std::uint32_t i = 0;
#if defined(__SSE2__)
    const __m128 magnitudeMask = _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF));
    // Four running maxima, so that no maxps waits on the one before it.
    __m128 lanes[4] = {_mm_setzero_ps(), _mm_setzero_ps(), _mm_setzero_ps(), _mm_setzero_ps()};
    // maxps answers its second operand when either is NaN: the running maximum goes second.
    for (; i + 16 <= count; i += 16)
        for (int q = 0; q < 4; ++q)
            lanes[q] = _mm_max_ps(_mm_and_ps(_mm_loadu_ps(samples + i + 4 * q), magnitudeMask), lanes[q]);
    for (; i + 4 <= count; i += 4)
        lanes[0] = _mm_max_ps(_mm_and_ps(_mm_loadu_ps(samples + i), magnitudeMask), lanes[0]);
    alignas(16) float lane[4];
    _mm_store_ps(lane, _mm_max_ps(_mm_max_ps(lanes[0], lanes[1]), _mm_max_ps(lanes[2], lanes[3])));
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

// --- Sums: runs of 256 samples, each summed in sixteen single-precision lanes (lane k adding
// samples 16j + k of the run in order, a square rounded to single precision before it is added),
// the lanes then widened and added as t_k = (l_k + l_k+8) + (l_k+4 + l_k+12) for k = 0…3 and
// (t_0 + t_2) + (t_1 + t_3); the samples of a run past its last whole group are added one by one
// in double precision, and the runs' sums are added in order. An overview entry is one run. The
// SSE2 and AVX2 loops keep exactly these lanes, so every processor gives the same sums; the lanes
// keep the adders busy, and single precision does twice the work of double in each instruction
// while a run is too short for its rounding to show in a single-precision result.

namespace {

constexpr std::uint32_t kLanes = 16;
constexpr std::uint32_t kRun = 256;

struct RunSums {
    float largest;
    double squares, magnitudes;
};

#if defined(__SSE2__)
// The lane reduction of four registers holding lanes 0–3, 4–7, 8–11 and 12–15.
double addLanesSSE2(__m128 l0, __m128 l4, __m128 l8, __m128 l12) {
    const __m128d low =
        _mm_add_pd(_mm_add_pd(_mm_cvtps_pd(l0), _mm_cvtps_pd(l8)), _mm_add_pd(_mm_cvtps_pd(l4), _mm_cvtps_pd(l12)));
    const __m128d high =
        _mm_add_pd(_mm_add_pd(_mm_cvtps_pd(_mm_movehl_ps(l0, l0)), _mm_cvtps_pd(_mm_movehl_ps(l8, l8))),
                   _mm_add_pd(_mm_cvtps_pd(_mm_movehl_ps(l4, l4)), _mm_cvtps_pd(_mm_movehl_ps(l12, l12))));
    // low holds t_0, t_1 and high t_2, t_3.
    const __m128d pair = _mm_add_pd(low, high);
    return _mm_cvtsd_f64(_mm_add_sd(pair, _mm_unpackhi_pd(pair, pair)));
}

// One run's whole groups of sixteen; answers how many samples they took. With kSigns, also the
// sign bits of those samples, one word a group.
template <bool kSigns>
std::uint32_t runSSE2(const float* samples, std::uint32_t count, RunSums* run, std::uint16_t* negatives) {
    RunSums& sums = *run;
    const __m128 magnitudeMask = _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF));
    // Every sum and maximum its own register: no instruction waits on the one before it.
    __m128 largest[4], squares[4], magnitudes[4];
    for (int q = 0; q < 4; ++q) largest[q] = squares[q] = magnitudes[q] = _mm_setzero_ps();
    std::uint32_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        unsigned signs = 0;
        for (int q = 0; q < 4; ++q) {
            const __m128 v = _mm_loadu_ps(samples + i + 4 * q);
            const __m128 magnitude = _mm_and_ps(v, magnitudeMask);
            // maxps answers its second operand when either is NaN: the running maximum goes second.
            largest[q] = _mm_max_ps(magnitude, largest[q]);
            squares[q] = _mm_add_ps(squares[q], _mm_mul_ps(v, v));
            magnitudes[q] = _mm_add_ps(magnitudes[q], magnitude);
            if constexpr (kSigns) signs |= unsigned(_mm_movemask_ps(_mm_cmplt_ps(v, _mm_setzero_ps()))) << (4 * q);
        }
        if constexpr (kSigns) negatives[i / kLanes] = std::uint16_t(signs);
    }
    alignas(16) float lane[4];
    _mm_store_ps(lane, _mm_max_ps(_mm_max_ps(largest[0], largest[1]), _mm_max_ps(largest[2], largest[3])));
    sums.largest = std::max(std::max(lane[0], lane[1]), std::max(lane[2], lane[3]));
    sums.squares = addLanesSSE2(squares[0], squares[1], squares[2], squares[3]);
    sums.magnitudes = addLanesSSE2(magnitudes[0], magnitudes[1], magnitudes[2], magnitudes[3]);
    return i;
}
#endif

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define KX_VECTOR_AVX2 1
// The lane reduction of two registers holding lanes 0–7 and 8–15.
__attribute__((target("avx2"))) double addLanesAVX2(__m256 l0, __m256 l8) {
    const __m256d t = _mm256_add_pd(
        _mm256_add_pd(_mm256_cvtps_pd(_mm256_castps256_ps128(l0)), _mm256_cvtps_pd(_mm256_castps256_ps128(l8))),
        _mm256_add_pd(_mm256_cvtps_pd(_mm256_extractf128_ps(l0, 1)), _mm256_cvtps_pd(_mm256_extractf128_ps(l8, 1))));
    const __m128d pair = _mm_add_pd(_mm256_castpd256_pd128(t), _mm256_extractf128_pd(t, 1));
    return _mm_cvtsd_f64(_mm_add_sd(pair, _mm_unpackhi_pd(pair, pair)));
}

// kRuns runs side by side (run r at samples + 256r, its sign words at negatives + 16r), each of
// `count` samples: their additions are independent, so the adders never wait on a running sum.
template <bool kSigns, int kRuns>
__attribute__((target("avx2"))) std::uint32_t runsAVX2(const float* samples, std::uint32_t count, RunSums* sums,
                                                       std::uint16_t* negatives) {
    const __m256 magnitudeMask = _mm256_castsi256_ps(_mm256_set1_epi32(0x7FFFFFFF));
    // A maximum waits less on the one before it than a sum does: one running maximum a run
    // leaves registers for the sums.
    __m256 largest[kRuns], squares[kRuns][2], magnitudes[kRuns][2];
    for (int r = 0; r < kRuns; ++r) {
        largest[r] = _mm256_setzero_ps();
        for (int h = 0; h < 2; ++h) squares[r][h] = magnitudes[r][h] = _mm256_setzero_ps();
    }
    std::uint32_t i = 0;
    for (; i + kLanes <= count; i += kLanes)
        for (int r = 0; r < kRuns; ++r) {
            unsigned signs = 0;
            for (int h = 0; h < 2; ++h) {
                const __m256 v = _mm256_loadu_ps(samples + std::size_t(r) * kRun + i + 8 * h);
                const __m256 magnitude = _mm256_and_ps(v, magnitudeMask);
                largest[r] = _mm256_max_ps(magnitude, largest[r]);
                // Multiplied, then added: a fused multiply-add would round differently from SSE2.
                squares[r][h] = _mm256_add_ps(squares[r][h], _mm256_mul_ps(v, v));
                magnitudes[r][h] = _mm256_add_ps(magnitudes[r][h], magnitude);
                if constexpr (kSigns)
                    signs |= unsigned(_mm256_movemask_ps(_mm256_cmp_ps(v, _mm256_setzero_ps(), _CMP_LT_OQ))) << (8 * h);
            }
            if constexpr (kSigns) negatives[std::size_t(r) * (kRun / kLanes) + i / kLanes] = std::uint16_t(signs);
        }
    for (int r = 0; r < kRuns; ++r) {
        // The lanes hold no NaN (the maxima passed them over), so they fold in any order.
        __m128 folded = _mm_max_ps(_mm256_castps256_ps128(largest[r]), _mm256_extractf128_ps(largest[r], 1));
        folded = _mm_max_ps(folded, _mm_movehl_ps(folded, folded));
        sums[r].largest = _mm_cvtss_f32(_mm_max_ss(folded, _mm_shuffle_ps(folded, folded, 1)));
        sums[r].squares = addLanesAVX2(squares[r][0], squares[r][1]);
        sums[r].magnitudes = addLanesAVX2(magnitudes[r][0], magnitudes[r][1]);
    }
    return i;
}
#endif

#if defined(KX_VECTOR_AVX2)
// With AVX-512 a group of sixteen is one register, and its sign bits one mask.
__attribute__((target("avx512f"))) double addLanesAVX512(__m512 lanes) {
    // l_k + l_k+8 for k = 0…7, then t_k = that + the same for k + 4.
    const __m512d pairs =
        _mm512_add_pd(_mm512_cvtps_pd(_mm512_castps512_ps256(lanes)),
                      _mm512_cvtps_pd(_mm256_castpd_ps(_mm512_extractf64x4_pd(_mm512_castps_pd(lanes), 1))));
    const __m256d t = _mm256_add_pd(_mm512_castpd512_pd256(pairs), _mm512_extractf64x4_pd(pairs, 1));
    const __m128d pair = _mm_add_pd(_mm256_castpd256_pd128(t), _mm256_extractf128_pd(t, 1));
    return _mm_cvtsd_f64(_mm_add_sd(pair, _mm_unpackhi_pd(pair, pair)));
}

template <bool kSigns, int kRuns>
__attribute__((target("avx512f"))) std::uint32_t runsAVX512(const float* samples, std::uint32_t count, RunSums* sums,
                                                            std::uint16_t* negatives) {
    __m512 largest[kRuns], squares[kRuns], magnitudes[kRuns];
    for (int r = 0; r < kRuns; ++r) largest[r] = squares[r] = magnitudes[r] = _mm512_setzero_ps();
    std::uint32_t i = 0;
    for (; i + kLanes <= count; i += kLanes)
        for (int r = 0; r < kRuns; ++r) {
            const __m512 v = _mm512_loadu_ps(samples + std::size_t(r) * kRun + i);
            const __m512 magnitude = _mm512_abs_ps(v);
            largest[r] = _mm512_max_ps(magnitude, largest[r]);
            // A multiplication of its own (the rounding form is one instruction the compiler
            // does not fuse with the addition), then the addition.
            squares[r] = _mm512_add_ps(squares[r], _mm512_mul_round_ps(v, v, _MM_FROUND_CUR_DIRECTION));
            magnitudes[r] = _mm512_add_ps(magnitudes[r], magnitude);
            if constexpr (kSigns)
                negatives[std::size_t(r) * (kRun / kLanes) + i / kLanes] =
                    std::uint16_t(_mm512_cmp_ps_mask(v, _mm512_setzero_ps(), _CMP_LT_OQ));
        }
    for (int r = 0; r < kRuns; ++r) {
        // The lanes hold no NaN (the maxima passed them over), so they fold in any order.
        sums[r].largest = _mm512_reduce_max_ps(largest[r]);
        sums[r].squares = addLanesAVX512(squares[r]);
        sums[r].magnitudes = addLanesAVX512(magnitudes[r]);
    }
    return i;
}
#endif

#if !defined(__SSE2__)
template <bool kSigns>
std::uint32_t runScalar(const float* samples, std::uint32_t count, RunSums* run, std::uint16_t* negatives) {
    RunSums& sums = *run;
    float squares[kLanes] = {}, magnitudes[kLanes] = {};
    sums.largest = 0.0f;
    std::uint32_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        unsigned signs = 0;
        for (std::uint32_t k = 0; k < kLanes; ++k) {
            const float magnitude = std::fabs(samples[i + k]);
            if (magnitude > sums.largest) sums.largest = magnitude;
            const float square = samples[i + k] * samples[i + k];
            squares[k] += square;
            magnitudes[k] += magnitude;
            signs |= unsigned(samples[i + k] < 0.0f) << k;
        }
        if constexpr (kSigns) negatives[i / kLanes] = std::uint16_t(signs);
    }
    const auto add = [](const float* l) {
        double t[4];
        for (int k = 0; k < 4; ++k) t[k] = (double(l[k]) + double(l[k + 8])) + (double(l[k + 4]) + double(l[k + 12]));
        return (t[0] + t[2]) + (t[1] + t[3]);
    };
    sums.squares = add(squares);
    sums.magnitudes = add(magnitudes);
    return i;
}

#endif

// A run's whole groups of sixteen; answers how many samples they took.
std::uint32_t sumGroups(const float* samples, std::uint32_t count, RunSums& sums) {
#if defined(KX_VECTOR_AVX2)
    if (uses(Instructions::avx2)) return runsAVX2<false, 1>(samples, count, &sums, nullptr);
#endif
#if defined(__SSE2__)
    return runSSE2<false>(samples, count, &sums, nullptr);
#else
    return runScalar<false>(samples, count, &sums, nullptr);
#endif
}

RunSums sumRun(const float* samples, std::uint32_t count) {
    RunSums sums;
    std::uint32_t i = sumGroups(samples, count, sums);
    for (; i < count; ++i) {
        const float magnitude = std::fabs(samples[i]);
        sums.largest = std::max(sums.largest, magnitude);
        sums.squares += double(samples[i]) * samples[i];
        sums.magnitudes += magnitude;
    }
    return sums;
}

using RunsFunction = std::uint32_t (*)(const float*, std::uint32_t, RunSums*, std::uint16_t*);

// Whole runs, each result as sumRun gives it, and their sign bits where `negatives` is not null
// (the kernels without sign bits take null): kWide runs a call (the kernel `Wide`), those left
// over one at a time.
template <std::uint32_t kWide, RunsFunction Wide, RunsFunction Single>
inline void wholeRuns(const float* samples, std::uint32_t runs, Statistics* results, std::uint16_t* negatives) {
    for (std::uint32_t r = 0; r < runs;) {
        const std::uint32_t n = runs - r >= kWide ? kWide : 1;
        RunSums sums[kWide];
        std::uint16_t* signs = negatives ? negatives + std::size_t(r) * (kRun / kLanes) : nullptr;
        if (n == kWide)
            Wide(samples + std::size_t(r) * kRun, kRun, sums, signs);
        else
            Single(samples + std::size_t(r) * kRun, kRun, sums, signs);
        for (std::uint32_t k = 0; k < n; ++k) results[r + k] = {sums[k].largest, sums[k].squares, sums[k].magnitudes};
        r += n;
    }
}

#if defined(KX_VECTOR_AVX2)
__attribute__((target("avx2"))) void wholeRunsAVX2(const float* samples, std::uint32_t runs, Statistics* results,
                                                   std::uint16_t* negatives) {
    if (negatives)
        wholeRuns<2, runsAVX2<true, 2>, runsAVX2<true, 1>>(samples, runs, results, negatives);
    else
        wholeRuns<2, runsAVX2<false, 2>, runsAVX2<false, 1>>(samples, runs, results, nullptr);
}

__attribute__((target("avx512f"))) void wholeRunsAVX512(const float* samples, std::uint32_t runs, Statistics* results,
                                                        std::uint16_t* negatives) {
    if (negatives)
        wholeRuns<2, runsAVX512<true, 2>, runsAVX512<true, 1>>(samples, runs, results, negatives);
    else
        wholeRuns<2, runsAVX512<false, 2>, runsAVX512<false, 1>>(samples, runs, results, nullptr);
}
#endif

}  // namespace

double sumOfSquares(const float* samples, std::uint32_t count) {
    return statistics(samples, count).sumOfSquares;
}

double sumOfMagnitudes(const float* samples, std::uint32_t count) {
    return statistics(samples, count).sumOfMagnitudes;
}

Statistics statistics(const float* samples, std::uint32_t count) {
    Statistics result{0.0f, 0.0, 0.0};
    for (std::uint32_t i = 0; i < count; i += kRun) {
        const RunSums run = sumRun(samples + i, std::min(kRun, count - i));
        result.maximumMagnitude = std::max(result.maximumMagnitude, run.largest);
        result.sumOfSquares += run.squares;
        result.sumOfMagnitudes += run.magnitudes;
    }
    return result;
}

void statisticsOfRuns(const float* samples, std::uint32_t runs, Statistics* results, std::uint16_t* negatives) {
#if defined(KX_VECTOR_AVX2)
    if (uses(Instructions::avx512)) return wholeRunsAVX512(samples, runs, results, negatives);
    if (uses(Instructions::avx2)) return wholeRunsAVX2(samples, runs, results, negatives);
#endif
#if defined(__SSE2__)
    if (negatives)
        wholeRuns<1, runSSE2<true>, runSSE2<true>>(samples, runs, results, negatives);
    else
        wholeRuns<1, runSSE2<false>, runSSE2<false>>(samples, runs, results, nullptr);
#else
    if (negatives)
        wholeRuns<1, runScalar<true>, runScalar<true>>(samples, runs, results, negatives);
    else
        wholeRuns<1, runScalar<false>, runScalar<false>>(samples, runs, results, nullptr);
#endif
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
            parity =
                _mm256_xor_ps(parity, _mm256_cmp_ps(_mm256_loadu_ps(channels[c] + i), _mm256_setzero_ps(), _CMP_LT_OQ));
        odd += std::uint32_t(__builtin_popcount(unsigned(_mm256_movemask_ps(parity))));
    }
    return i;
}
#endif

}  // namespace

std::uint32_t framesWithOddNegatives(const float* const* channels, std::uint32_t channelCount, std::uint32_t frames) {
    std::uint32_t odd = 0, i = 0;
#if defined(KX_VECTOR_AVX2)
    if (uses(Instructions::avx2)) i = oddNegativesAVX2(channels, channelCount, frames, odd);
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

void negativeBits(const float* samples, std::uint32_t count, std::uint16_t* negatives) {
    for (std::uint32_t w = 0; w < (count + kLanes - 1) / kLanes; ++w) {
        unsigned signs = 0;
        for (std::uint32_t k = 0; k < kLanes && w * kLanes + k < count; ++k)
            signs |= unsigned(samples[w * kLanes + k] < 0.0f) << k;
        negatives[w] = std::uint16_t(signs);
    }
}

namespace {

// Four words at a time as one 64-bit word; answers the words taken.
template <typename Count>
std::uint32_t oddNegativeWords(const std::uint16_t* const* negatives, std::uint32_t channelCount, std::uint32_t words,
                               std::uint32_t& odd, Count count) {
    std::uint32_t w = 0;
    for (; w + 4 <= words; w += 4) {
        std::uint64_t parity = 0;
        for (std::uint32_t c = 0; c < channelCount; ++c) {
            std::uint64_t bits;
            std::memcpy(&bits, negatives[c] + w, sizeof bits);
            parity ^= bits;
        }
        odd += count(parity);
    }
    return w;
}

#if defined(KX_VECTOR_AVX2)
// Every processor with AVX2 counts bits in one instruction.
__attribute__((target("avx2,popcnt"))) std::uint32_t oddNegativeWordsPOPCNT(const std::uint16_t* const* negatives,
                                                                            std::uint32_t channelCount,
                                                                            std::uint32_t words, std::uint32_t& odd) {
    return oddNegativeWords(negatives, channelCount, words, odd,
                            [](std::uint64_t parity) { return std::uint32_t(__builtin_popcountll(parity)); });
}
#endif

}  // namespace

std::uint32_t framesWithOddNegatives(const std::uint16_t* const* negatives, std::uint32_t channelCount,
                                     std::uint32_t frames) {
    const std::uint32_t words = (frames + kLanes - 1) / kLanes;
    std::uint32_t odd = 0, w = 0;
#if defined(KX_VECTOR_AVX2)
    if (uses(Instructions::avx2))
        w = oddNegativeWordsPOPCNT(negatives, channelCount, words, odd);
    else
#endif
        w = oddNegativeWords(negatives, channelCount, words, odd,
                             [](std::uint64_t parity) { return std::uint32_t(std::popcount(parity)); });
    for (; w < words; ++w) {
        unsigned parity = 0;
        for (std::uint32_t c = 0; c < channelCount; ++c) parity ^= negatives[c][w];
        odd += std::uint32_t(std::popcount(parity));
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
