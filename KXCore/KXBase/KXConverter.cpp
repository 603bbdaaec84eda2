#include "KXBase/KXConverter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <vector>

#include "KXBase/KXG711.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace {

using Encoding = KXConverter::Encoding;

constexpr std::size_t sampleSize(Encoding encoding) {
    switch (encoding) {
        case Encoding::int8:
        case Encoding::uint8:
        case Encoding::ulaw:
        case Encoding::alaw: return 1;
        case Encoding::int16: return 2;
        case Encoding::int24: return 3;
        case Encoding::int32:
        case Encoding::float32: return 4;
        case Encoding::float64: return 8;
    }
    return 0;
}

template <Encoding E>
constexpr std::size_t kSampleSize = sampleSize(E);

// --- G.711 through tables built once

struct G711Tables {
    std::array<float, 256> ulawToFloat, alawToFloat;
    std::array<std::uint8_t, 65536> linearToUlaw, linearToAlaw;  // indexed by the 16-bit value + 32768
    G711Tables() {
        for (int code = 0; code < 256; ++code) {
            ulawToFloat[std::size_t(code)] = float(KXG711::ulawToLinear(std::uint8_t(code))) / 32768.0f;
            alawToFloat[std::size_t(code)] = float(KXG711::alawToLinear(std::uint8_t(code))) / 32768.0f;
        }
        for (int value = -32768; value < 32768; ++value) {
            linearToUlaw[std::size_t(value + 32768)] = KXG711::linearToUlaw(std::int16_t(value));
            linearToAlaw[std::size_t(value + 32768)] = KXG711::linearToAlaw(std::int16_t(value));
        }
    }
};

const G711Tables& g711() {
    static const G711Tables kTables;
    return kTables;
}

// --- One stored sample

template <KXByteOrder O>
inline std::int32_t load24(const std::uint8_t* p) {
    const std::uint32_t u = O == KXByteOrder::big ? (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[2]) << 8)
                                                  : (std::uint32_t(p[2]) << 24) | (std::uint32_t(p[1]) << 16) | (std::uint32_t(p[0]) << 8);
    return std::int32_t(u) >> 8;  // sign-extends the top byte
}

template <KXByteOrder O>
inline void store24(std::uint8_t* p, std::int32_t v) {
    const auto u = std::uint32_t(v);
    if (O == KXByteOrder::big) {
        p[0] = std::uint8_t(u >> 16), p[1] = std::uint8_t(u >> 8), p[2] = std::uint8_t(u);
    } else {
        p[0] = std::uint8_t(u), p[1] = std::uint8_t(u >> 8), p[2] = std::uint8_t(u >> 16);
    }
}

// A 24-bit sample in a 32-bit write: the three sample bytes, then one byte that the next
// sample's write replaces. Only for samples written in address order, never the last one.
template <KXByteOrder O>
inline void store24Wide(std::uint8_t* p, std::int32_t v) {
    const auto u = std::uint32_t(v);
    kx::store32(p, O == KXByteOrder::big ? u << 8 : u & 0xFFFFFF, O);
}

// A 24-bit sample read with one 32-bit load; the sample must have a byte after it.
template <KXByteOrder O>
inline float decode24Wide(const std::uint8_t* p) {
    const std::uint32_t word = kx::load32(p, O);
    const std::int32_t value = O == KXByteOrder::big ? std::int32_t(word) >> 8 : std::int32_t(word << 8) >> 8;
    return float(value) * (1.0f / 8388608.0f);
}

template <Encoding E, KXByteOrder O>
inline float decodeOne(const std::uint8_t* p, const G711Tables& tables) {
    if constexpr (E == Encoding::int8) return float(std::int8_t(p[0])) * (1.0f / 128.0f);
    if constexpr (E == Encoding::uint8) return float(int(p[0]) - 128) * (1.0f / 128.0f);
    if constexpr (E == Encoding::int16) return float(std::int16_t(kx::load16(p, O))) * (1.0f / 32768.0f);
    if constexpr (E == Encoding::int24) return float(load24<O>(p)) * (1.0f / 8388608.0f);
    if constexpr (E == Encoding::int32) return float(double(std::int32_t(kx::load32(p, O))) * (1.0 / 2147483648.0));
    if constexpr (E == Encoding::float32) return std::bit_cast<float>(kx::load32(p, O));
    if constexpr (E == Encoding::float64) return float(std::bit_cast<double>(kx::load64(p, O)));
    if constexpr (E == Encoding::ulaw) return tables.ulawToFloat[p[0]];
    if constexpr (E == Encoding::alaw) return tables.alawToFloat[p[0]];
}

// x · scale rounded to nearest and saturated to [low, high]; NaN gives 0.
inline std::int32_t quantise(float x, float scale, float low, float high) {
    float v = x * scale;
    v = v == v ? v : 0.0f;
    v = v < low ? low : v;
    v = v > high ? high : v;
    return std::int32_t(std::lrintf(v));
}

// The integer encodings (G.711 through 16-bit linear): their scale and limits.
template <Encoding E>
constexpr bool kQuantised = E == Encoding::int8 || E == Encoding::uint8 || E == Encoding::int16 ||
                            E == Encoding::int24 || E == Encoding::ulaw || E == Encoding::alaw;
template <Encoding E>
constexpr float kScale = E == Encoding::int8 || E == Encoding::uint8 ? 128.0f : E == Encoding::int24 ? 8388608.0f : 32768.0f;
template <Encoding E>
constexpr float kHigh = kScale<E> - 1.0f;

// One quantised sample (already rounded and saturated) in its stored form.
template <Encoding E, KXByteOrder O>
inline void storeQuantised(std::int32_t q, std::uint8_t* p, const G711Tables& tables) {
    if constexpr (E == Encoding::int8) p[0] = std::uint8_t(q);
    if constexpr (E == Encoding::uint8) p[0] = std::uint8_t(q + 128);
    if constexpr (E == Encoding::int16) kx::store16(p, std::uint16_t(q), O);
    if constexpr (E == Encoding::int24) store24<O>(p, q);
    if constexpr (E == Encoding::ulaw) p[0] = tables.linearToUlaw[std::size_t(q + 32768)];
    if constexpr (E == Encoding::alaw) p[0] = tables.linearToAlaw[std::size_t(q + 32768)];
}

template <Encoding E, KXByteOrder O>
inline void encodeOne(float x, std::uint8_t* p, const G711Tables& tables) {
    if constexpr (kQuantised<E>) storeQuantised<E, O>(quantise(x, kScale<E>, -kScale<E>, kHigh<E>), p, tables);
    if constexpr (E == Encoding::int32) {
        // 2^31 − 1 has no float: the 32-bit path works in double.
        double v = double(x) * 2147483648.0;
        v = v == v ? v : 0.0;
        v = v < -2147483648.0 ? -2147483648.0 : v > 2147483647.0 ? 2147483647.0 : v;
        kx::store32(p, std::uint32_t(std::int32_t(std::lrint(v))), O);
    }
    if constexpr (E == Encoding::float32) kx::store32(p, std::bit_cast<std::uint32_t>(x), O);
    if constexpr (E == Encoding::float64) kx::store64(p, std::bit_cast<std::uint64_t>(double(x)), O);
}

#if defined(__SSE2__)
// Four samples quantised at once, by the rules of quantise(): NaN lanes masked to 0, clamped, then
// cvtps2dq, which rounds to nearest (ties to even) as lrintf does in the default rounding mode.
inline __m128i quantiseFour(const float* samples, float scale, float low, float high) {
    __m128 v = _mm_mul_ps(_mm_loadu_ps(samples), _mm_set1_ps(scale));
    v = _mm_and_ps(v, _mm_cmpord_ps(v, v));
    v = _mm_min_ps(_mm_max_ps(v, _mm_set1_ps(low)), _mm_set1_ps(high));
    return _mm_cvtps_epi32(v);
}

// Quantises four samples and stores each in its encoding, `stride` bytes apart. With `Wide`, a
// 24-bit sample is stored with one 32-bit write whose fourth byte the caller overwrites later.
template <Encoding E, KXByteOrder O, bool Wide = false>
inline void encodeFour(const float* samples, std::uint8_t* stored, std::size_t stride, const G711Tables& tables) {
    alignas(16) std::int32_t q[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(q), quantiseFour(samples, kScale<E>, -kScale<E>, kHigh<E>));
    for (int k = 0; k < 4; ++k) {
        if constexpr (Wide) store24Wide<O>(stored + std::size_t(k) * stride, q[k]);
        else storeQuantised<E, O>(q[k], stored + std::size_t(k) * stride, tables);
    }
}
#endif

// --- The loops: one per (encoding, order) — contiguous, strided, and frame by frame over
// interleaved channels (reading the stored bytes in order once, rather than once per channel).

template <Encoding E, KXByteOrder O, bool Contiguous>
void decodeLoop(const std::uint8_t* stored, std::size_t stride, float* samples, std::size_t count) {
    if constexpr (Contiguous) stride = kSampleSize<E>;
    const G711Tables& tables = g711();
    if constexpr (E == Encoding::int24) {
        // Every sample but the last has a byte after it: one 32-bit load and a sign-extending
        // shift instead of three byte loads.
        std::size_t i = 0;
        for (; i + 1 < count; ++i) samples[i] = decode24Wide<O>(stored + i * stride);
        if (i < count) samples[i] = decodeOne<E, O>(stored + i * stride, tables);
        return;
    }
    for (std::size_t i = 0; i < count; ++i) samples[i] = decodeOne<E, O>(stored + i * stride, tables);
}

#if defined(__SSE2__)
// 16-bit little-endian encoding packs whole vectors: 8 mono samples or 4 stereo frames a store.
// Each answers how many it did; the caller does the rest. (Scalar quantise() needs one lrintf a
// sample and does not vectorise; the benchmark shows these kernels paying for themselves.)
inline __m128i quantise16x4(const float* samples) { return quantiseFour(samples, 32768.0f, -32768.0f, 32767.0f); }

std::size_t encodeMono16LittleSSE2(const float* samples, std::uint8_t* stored, std::size_t count) {
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m128i packed = _mm_packs_epi32(quantise16x4(samples + i), quantise16x4(samples + i + 4));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(stored + 2 * i), packed);
    }
    return i;
}

std::size_t encodeStereo16LittleSSE2(const float* left, const float* right, std::uint8_t* stored, std::size_t frames) {
    std::size_t i = 0;
    for (; i + 4 <= frames; i += 4) {
        const __m128i l = _mm_packs_epi32(quantise16x4(left + i), _mm_setzero_si128());
        const __m128i r = _mm_packs_epi32(quantise16x4(right + i), _mm_setzero_si128());
        _mm_storeu_si128(reinterpret_cast<__m128i*>(stored + 4 * i), _mm_unpacklo_epi16(l, r));
    }
    return i;
}
#endif

template <Encoding E, KXByteOrder O>
constexpr bool kHasSSE2Encoder =
#if defined(__SSE2__)
    E == Encoding::int16 && O == KXByteOrder::little && std::endian::native == std::endian::little;
#else
    false;
#endif

template <Encoding E, KXByteOrder O, bool Contiguous>
void encodeLoop(const float* samples, std::uint8_t* stored, std::size_t stride, std::size_t count) {
    if constexpr (Contiguous) stride = kSampleSize<E>;
#if defined(__SSE2__)
    if constexpr (Contiguous && kHasSSE2Encoder<E, O>) {
        const std::size_t done = encodeMono16LittleSSE2(samples, stored, count);
        samples += done, stored += done * stride, count -= done;
    } else if constexpr (Contiguous && E == Encoding::int24) {
        // Samples follow one another: all but the last group may be written wide.
        const G711Tables& tables = g711();
        for (; count > 4; count -= 4, samples += 4, stored += 4 * stride) encodeFour<E, O, true>(samples, stored, stride, tables);
    } else if constexpr (kQuantised<E>) {
        const G711Tables& tables = g711();
        for (; count >= 4; count -= 4, samples += 4, stored += 4 * stride) encodeFour<E, O>(samples, stored, stride, tables);
    }
#endif
    const G711Tables& tables = g711();
    for (std::size_t i = 0; i < count; ++i) encodeOne<E, O>(samples[i], stored + i * stride, tables);
}

template <Encoding E, KXByteOrder O>
void decodeFrames(const std::uint8_t* stored, std::uint32_t channels, float* const* samples, std::size_t frames) {
    const G711Tables& tables = g711();
    if (channels == 2) {  // the common case, unrolled
        float* left = samples[0];
        float* right = samples[1];
        std::size_t i = 0;
        if constexpr (E == Encoding::int24) {
            // Every frame but the last has bytes after both of its samples.
            for (; i + 1 < frames; ++i, stored += 6) {
                left[i] = decode24Wide<O>(stored);
                right[i] = decode24Wide<O>(stored + 3);
            }
        }
        for (; i < frames; ++i, stored += 2 * kSampleSize<E>) {
            left[i] = decodeOne<E, O>(stored, tables);
            right[i] = decodeOne<E, O>(stored + kSampleSize<E>, tables);
        }
        return;
    }
    for (std::size_t i = 0; i < frames; ++i)
        for (std::uint32_t c = 0; c < channels; ++c, stored += kSampleSize<E>) samples[c][i] = decodeOne<E, O>(stored, tables);
}

template <Encoding E, KXByteOrder O>
void encodeFrames(const float* const* samples, std::uint32_t channels, std::uint8_t* stored, std::size_t frames) {
    const G711Tables& tables = g711();
    if (channels == 2) {
        const float* left = samples[0];
        const float* right = samples[1];
        std::size_t i = 0;
#if defined(__SSE2__)
        if constexpr (kHasSSE2Encoder<E, O>) {
            i = encodeStereo16LittleSSE2(left, right, stored, frames);
            stored += i * 2 * kSampleSize<E>;
        } else if constexpr (E == Encoding::int24) {
            // Written in address order, left then right of each frame, so every group but the
            // last may go wide: each write's fourth byte is the next sample's first.
            for (; i + 4 < frames; i += 4, stored += 24) {
                alignas(16) std::int32_t l[4], r[4];
                _mm_store_si128(reinterpret_cast<__m128i*>(l), quantiseFour(left + i, kScale<E>, -kScale<E>, kHigh<E>));
                _mm_store_si128(reinterpret_cast<__m128i*>(r), quantiseFour(right + i, kScale<E>, -kScale<E>, kHigh<E>));
                for (int k = 0; k < 4; ++k) {
                    store24Wide<O>(stored + 6 * k, l[k]);
                    store24Wide<O>(stored + 6 * k + 3, r[k]);
                }
            }
        } else if constexpr (kQuantised<E>) {
            for (; i + 4 <= frames; i += 4, stored += 8 * kSampleSize<E>) {
                encodeFour<E, O>(left + i, stored, 2 * kSampleSize<E>, tables);
                encodeFour<E, O>(right + i, stored + kSampleSize<E>, 2 * kSampleSize<E>, tables);
            }
        }
#endif
        for (; i < frames; ++i, stored += 2 * kSampleSize<E>) {
            encodeOne<E, O>(left[i], stored, tables);
            encodeOne<E, O>(right[i], stored + kSampleSize<E>, tables);
        }
        return;
    }
    for (std::size_t i = 0; i < frames; ++i)
        for (std::uint32_t c = 0; c < channels; ++c, stored += kSampleSize<E>) encodeOne<E, O>(samples[c][i], stored, tables);
}

// --- AVX2 kernels, chosen at run time where the processor has AVX2 (the rest of the library is
// built for the baseline). Each converts samples that follow one another, as many as its vector
// loop takes, and answers how many; the scalar loop above does the rest, by the same rules.
// Interleaved frames are converted a chunk at a time, in order, through a small buffer that
// stays in the first-level cache: decoded into it and dealt out to the channels, or gathered
// from the channels into it and encoded.

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define KX_AVX2_KERNELS 1
#define KX_AVX2 __attribute__((target("avx2")))

// The byte order of each 32-bit word of a vector reversed, as a shuffle (big-endian floats).
KX_AVX2 inline __m256i swap32AVX2() {
    return _mm256_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12,  //
                            3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12);
}

template <KXByteOrder O>
KX_AVX2 std::size_t int16ToFloatAVX2(const std::uint8_t* stored, float* samples, std::size_t count) {
    const __m256 scale = _mm256_set1_ps(1.0f / 32768.0f);
    const __m128i swap = _mm_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14);
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(stored + 2 * i));
        if constexpr (O == KXByteOrder::big) v = _mm_shuffle_epi8(v, swap);
        _mm256_storeu_ps(samples + i, _mm256_mul_ps(_mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(v)), scale));
    }
    return i;
}

// Eight samples from one 32-byte load (24 bytes of samples): dwords 0–2 go to the low lane and
// 3–5 to the high one, then each sample's three bytes to the top of its dword, shifted down
// with the sign.
template <KXByteOrder O>
KX_AVX2 std::size_t int24ToFloatAVX2(const std::uint8_t* stored, float* samples, std::size_t count) {
    const __m256 scale = _mm256_set1_ps(1.0f / 8388608.0f);
    const __m256i spread = _mm256_setr_epi32(0, 1, 2, 0, 3, 4, 5, 0);
    const __m256i place = O == KXByteOrder::big
                              ? _mm256_setr_epi8(-1, 2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9,  //
                                                 -1, 2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9)
                              : _mm256_setr_epi8(-1, 0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11,  //
                                                 -1, 0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11);
    std::size_t i = 0;
    for (; i + 11 <= count; i += 8) {  // the load reaches 8 bytes past the eighth sample
        __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(stored + 3 * i));
        v = _mm256_shuffle_epi8(_mm256_permutevar8x32_epi32(v, spread), place);
        _mm256_storeu_ps(samples + i, _mm256_mul_ps(_mm256_cvtepi32_ps(_mm256_srai_epi32(v, 8)), scale));
    }
    return i;
}

template <KXByteOrder O>
KX_AVX2 std::size_t int32ToFloatAVX2(const std::uint8_t* stored, float* samples, std::size_t count) {
    const __m256d scale = _mm256_set1_pd(1.0 / 2147483648.0);
    const __m128i swap = _mm_setr_epi8(3, 2, 1, 0, 7, 6, 5, 4, 11, 10, 9, 8, 15, 14, 13, 12);
    std::size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(stored + 4 * i));
        if constexpr (O == KXByteOrder::big) v = _mm_shuffle_epi8(v, swap);
        _mm_storeu_ps(samples + i, _mm256_cvtpd_ps(_mm256_mul_pd(_mm256_cvtepi32_pd(v), scale)));
    }
    return i;
}

template <KXByteOrder O>
KX_AVX2 std::size_t float32ToFloatAVX2(const std::uint8_t* stored, float* samples, std::size_t count) {
    if constexpr (O == KXByteOrder::little) {
        if (count) std::memcpy(samples, stored, count * 4);  // an empty buffer may be null
        return count;
    }
    const __m256i swap = swap32AVX2();
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(stored + 4 * i));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(samples + i), _mm256_shuffle_epi8(v, swap));
    }
    return i;
}

template <KXByteOrder O>
KX_AVX2 std::size_t float64ToFloatAVX2(const std::uint8_t* stored, float* samples, std::size_t count) {
    const __m256i swap = _mm256_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8,  //
                                          7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8);
    std::size_t i = 0;
    for (; i + 4 <= count; i += 4) {
        __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(stored + 8 * i));
        if constexpr (O == KXByteOrder::big) v = _mm256_shuffle_epi8(v, swap);
        _mm_storeu_ps(samples + i, _mm256_cvtpd_ps(_mm256_castsi256_pd(v)));
    }
    return i;
}

template <Encoding E, KXByteOrder O>
constexpr auto kVectorDecoder = E == Encoding::int16     ? &int16ToFloatAVX2<O>
                                : E == Encoding::int24   ? &int24ToFloatAVX2<O>
                                : E == Encoding::int32   ? &int32ToFloatAVX2<O>
                                : E == Encoding::float32 ? &float32ToFloatAVX2<O>
                                                         : &float64ToFloatAVX2<O>;

template <Encoding E, KXByteOrder O>
void decodeContiguousAVX2(const std::uint8_t* stored, std::size_t, float* samples, std::size_t count) {
    const std::size_t done = kVectorDecoder<E, O>(stored, samples, count);
    decodeLoop<E, O, true>(stored + done * kSampleSize<E>, kSampleSize<E>, samples + done, count - done);
}

// Frames of floats dealt out to their channels: stereo eight frames at a time with shuffles,
// other counts channel by channel, with the stride a constant where it is a common one (faster
// here than gathering).
template <std::uint32_t N>
KX_AVX2 void deinterleaveChannels(const float* frames, std::uint32_t channels, float* const* samples, std::size_t offset,
                          std::size_t count) {
    const std::uint32_t stride = N ? N : channels;
    for (std::uint32_t c = 0; c < stride; ++c) {
        float* out = samples[c] + offset;
        const float* in = frames + c;
        for (std::size_t i = 0; i < count; ++i) out[i] = in[i * stride];
    }
}

KX_AVX2 void deinterleaveAVX2(const float* frames, std::uint32_t channels, float* const* samples, std::size_t offset,
                              std::size_t count) {
    switch (channels) {
        case 3: return deinterleaveChannels<3>(frames, channels, samples, offset, count);
        case 4: return deinterleaveChannels<4>(frames, channels, samples, offset, count);
        case 5: return deinterleaveChannels<5>(frames, channels, samples, offset, count);
        case 6: return deinterleaveChannels<6>(frames, channels, samples, offset, count);
        case 8: return deinterleaveChannels<8>(frames, channels, samples, offset, count);
        default:
            if (channels != 2) return deinterleaveChannels<0>(frames, channels, samples, offset, count);
    }
    float* left = samples[0] + offset;
    float* right = samples[1] + offset;
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m256 a = _mm256_loadu_ps(frames + 2 * i), b = _mm256_loadu_ps(frames + 2 * i + 8);
        const __m256 even = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
        const __m256 odd = _mm256_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
        _mm256_storeu_ps(left + i, _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(even), _MM_SHUFFLE(3, 1, 2, 0))));
        _mm256_storeu_ps(right + i, _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(odd), _MM_SHUFFLE(3, 1, 2, 0))));
    }
    for (; i < count; ++i) left[i] = frames[2 * i], right[i] = frames[2 * i + 1];
}

template <Encoding E, KXByteOrder O>
void decodeFramesAVX2(const std::uint8_t* stored, std::uint32_t channels, float* const* samples, std::size_t frames) {
    constexpr std::size_t kChunkSamples = 4096;
    if (channels == 1) return decodeContiguousAVX2<E, O>(stored, kSampleSize<E>, samples[0], frames);
    if (channels > kChunkSamples / 8) return decodeFrames<E, O>(stored, channels, samples, frames);
    if constexpr (E == Encoding::float32 && O == KXByteOrder::little) {
        // Stored floats in the host's order are dealt out as they lie.
        if (reinterpret_cast<std::uintptr_t>(stored) % alignof(float) == 0)
            return deinterleaveAVX2(reinterpret_cast<const float*>(stored), channels, samples, 0, frames);
    }
    alignas(32) float chunk[kChunkSamples];
    const std::size_t chunkFrames = kChunkSamples / channels;
    for (std::size_t done = 0; done < frames;) {
        const std::size_t count = std::min(chunkFrames, frames - done);
        decodeContiguousAVX2<E, O>(stored + done * channels * kSampleSize<E>, kSampleSize<E>, chunk, count * channels);
        deinterleaveAVX2(chunk, channels, samples, done, count);
        done += count;
    }
}

// Encoding: the same rules as quantise() eight samples at a time.
KX_AVX2 inline __m256i quantiseEightAVX2(const float* samples, float scale, float low, float high) {
    __m256 v = _mm256_mul_ps(_mm256_loadu_ps(samples), _mm256_set1_ps(scale));
    v = _mm256_and_ps(v, _mm256_cmp_ps(v, v, _CMP_ORD_Q));
    v = _mm256_min_ps(_mm256_max_ps(v, _mm256_set1_ps(low)), _mm256_set1_ps(high));
    return _mm256_cvtps_epi32(v);
}

template <KXByteOrder O>
KX_AVX2 std::size_t floatToInt16AVX2(const float* samples, std::uint8_t* stored, std::size_t count) {
    const __m256i swap = _mm256_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14,  //
                                          1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14);
    std::size_t i = 0;
    for (; i + 16 <= count; i += 16) {
        const __m256i a = quantiseEightAVX2(samples + i, 32768.0f, -32768.0f, 32767.0f);
        const __m256i b = quantiseEightAVX2(samples + i + 8, 32768.0f, -32768.0f, 32767.0f);
        // packs works within lanes: a0–3 b0–3 a4–7 b4–7, put back in order.
        __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(a, b), _MM_SHUFFLE(3, 1, 2, 0));
        if constexpr (O == KXByteOrder::big) packed = _mm256_shuffle_epi8(packed, swap);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(stored + 2 * i), packed);
    }
    return i;
}

// Eight samples packed to 24 bytes: each lane's four samples to its first 12 bytes, stored with
// two 16-byte writes whose last four bytes the next write replaces (so never the last group).
template <KXByteOrder O>
KX_AVX2 std::size_t floatToInt24AVX2(const float* samples, std::uint8_t* stored, std::size_t count) {
    const __m256i pack = O == KXByteOrder::big
                             ? _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1,  //
                                                2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1)
                             : _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1,  //
                                                0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
    std::size_t i = 0;
    for (; i + 10 <= count; i += 8) {  // the second write reaches 4 bytes past the eighth sample
        const __m256i q = _mm256_shuffle_epi8(quantiseEightAVX2(samples + i, 8388608.0f, -8388608.0f, 8388607.0f), pack);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(stored + 3 * i), _mm256_castsi256_si128(q));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(stored + 3 * i + 12), _mm256_extracti128_si256(q, 1));
    }
    return i;
}

template <KXByteOrder O>
KX_AVX2 std::size_t floatToFloat32AVX2(const float* samples, std::uint8_t* stored, std::size_t count) {
    if constexpr (O == KXByteOrder::little) {
        if (count) std::memcpy(stored, samples, count * 4);  // an empty buffer may be null
        return count;
    }
    const __m256i swap = swap32AVX2();
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m256i v = _mm256_castps_si256(_mm256_loadu_ps(samples + i));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(stored + 4 * i), _mm256_shuffle_epi8(v, swap));
    }
    return i;
}

template <Encoding E, KXByteOrder O>
constexpr auto kVectorEncoder = E == Encoding::int16 ? &floatToInt16AVX2<O> : E == Encoding::int24 ? &floatToInt24AVX2<O>
                                                                                                     : &floatToFloat32AVX2<O>;

template <Encoding E, KXByteOrder O>
void encodeContiguousAVX2(const float* samples, std::uint8_t* stored, std::size_t, std::size_t count) {
    const std::size_t done = kVectorEncoder<E, O>(samples, stored, count);
    encodeLoop<E, O, true>(samples + done, stored + done * kSampleSize<E>, kSampleSize<E>, count - done);
}

// The channels' samples gathered into frames: stereo eight frames at a time with unpacks, other
// counts channel by channel.
template <std::uint32_t N>
KX_AVX2 void interleaveChannels(const float* const* samples, std::uint32_t channels, std::size_t offset, std::size_t count,
                                float* frames) {
    const std::uint32_t stride = N ? N : channels;
    for (std::uint32_t c = 0; c < stride; ++c) {
        const float* in = samples[c] + offset;
        float* out = frames + c;
        for (std::size_t i = 0; i < count; ++i) out[i * stride] = in[i];
    }
}

KX_AVX2 void interleaveAVX2(const float* const* samples, std::uint32_t channels, std::size_t offset, std::size_t count,
                            float* frames) {
    switch (channels) {
        case 3: return interleaveChannels<3>(samples, channels, offset, count, frames);
        case 4: return interleaveChannels<4>(samples, channels, offset, count, frames);
        case 6: return interleaveChannels<6>(samples, channels, offset, count, frames);
        case 8: return interleaveChannels<8>(samples, channels, offset, count, frames);
        default:
            if (channels != 2) return interleaveChannels<0>(samples, channels, offset, count, frames);
    }
    const float* left = samples[0] + offset;
    const float* right = samples[1] + offset;
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m256 l = _mm256_loadu_ps(left + i), r = _mm256_loadu_ps(right + i);
        const __m256 low = _mm256_unpacklo_ps(l, r), high = _mm256_unpackhi_ps(l, r);
        _mm256_storeu_ps(frames + 2 * i, _mm256_permute2f128_ps(low, high, 0x20));
        _mm256_storeu_ps(frames + 2 * i + 8, _mm256_permute2f128_ps(low, high, 0x31));
    }
    for (; i < count; ++i) frames[2 * i] = left[i], frames[2 * i + 1] = right[i];
}

template <Encoding E, KXByteOrder O>
void encodeFramesAVX2(const float* const* samples, std::uint32_t channels, std::uint8_t* stored, std::size_t frames) {
    constexpr std::size_t kChunkSamples = 4096;
    if (channels == 1) return encodeContiguousAVX2<E, O>(samples[0], stored, kSampleSize<E>, frames);
    if (channels > kChunkSamples / 8) return encodeFrames<E, O>(samples, channels, stored, frames);
    alignas(32) float chunk[kChunkSamples];
    const std::size_t chunkFrames = kChunkSamples / channels;
    for (std::size_t done = 0; done < frames;) {
        const std::size_t count = std::min(chunkFrames, frames - done);
        interleaveAVX2(samples, channels, done, count, chunk);
        encodeContiguousAVX2<E, O>(chunk, stored + done * channels * kSampleSize<E>, kSampleSize<E>, count * channels);
        done += count;
    }
}

template <Encoding E, KXByteOrder O>
constexpr bool kHasAVX2Encoder = E == Encoding::int16 || E == Encoding::int24 || E == Encoding::float32;

template <Encoding E, KXByteOrder O>
constexpr bool kHasAVX2Decoder = E == Encoding::int16 || E == Encoding::int24 || E == Encoding::int32 ||
                                 E == Encoding::float32 || E == Encoding::float64;
#endif

struct Loops {
    KXConverter::DecodeFunction decodeContiguous, decodeStrided;
    KXConverter::EncodeFunction encodeContiguous;
    KXConverter::DecodeFramesFunction decodeFrames;
    KXConverter::EncodeFramesFunction encodeFrames;
};

template <Encoding E, KXByteOrder O>
Loops loopsFor() {
    Loops loops{&decodeLoop<E, O, true>, &decodeLoop<E, O, false>, &encodeLoop<E, O, true>, &decodeFrames<E, O>,
                &encodeFrames<E, O>};
#if defined(KX_AVX2_KERNELS)
    if constexpr (kHasAVX2Decoder<E, O>) {
        static const bool kAVX2 = __builtin_cpu_supports("avx2");
        if (kAVX2) {
            loops.decodeContiguous = &decodeContiguousAVX2<E, O>;
            loops.decodeFrames = &decodeFramesAVX2<E, O>;
        }
    }
    if constexpr (kHasAVX2Encoder<E, O>) {
        static const bool kAVX2 = __builtin_cpu_supports("avx2");
        if (kAVX2) {
            loops.encodeContiguous = &encodeContiguousAVX2<E, O>;
            loops.encodeFrames = &encodeFramesAVX2<E, O>;
        }
    }
#endif
    return loops;
}

template <Encoding E>
Loops loopsFor(KXByteOrder order) {
    return order == KXByteOrder::big ? loopsFor<E, KXByteOrder::big>() : loopsFor<E, KXByteOrder::little>();
}

Loops loopsFor(Encoding encoding, KXByteOrder order) {
    switch (encoding) {
        case Encoding::int8: return loopsFor<Encoding::int8>(order);
        case Encoding::uint8: return loopsFor<Encoding::uint8>(order);
        case Encoding::int16: return loopsFor<Encoding::int16>(order);
        case Encoding::int24: return loopsFor<Encoding::int24>(order);
        case Encoding::int32: return loopsFor<Encoding::int32>(order);
        case Encoding::float32: return loopsFor<Encoding::float32>(order);
        case Encoding::float64: return loopsFor<Encoding::float64>(order);
        case Encoding::ulaw: return loopsFor<Encoding::ulaw>(order);
        case Encoding::alaw: return loopsFor<Encoding::alaw>(order);
    }
    return loopsFor<Encoding::int16>(order);
}

// The stored encoding a description names, and its sample size; false when there is none.
bool storedEncoding(const KXAudioStreamDescription& stored, Encoding& encoding, std::uint32_t& size) {
    const std::uint32_t bits = stored.range();
    if (stored.format() == KXFourCC("ulaw") || stored.format() == KXFourCC("alaw")) {
        encoding = stored.format() == KXFourCC("ulaw") ? Encoding::ulaw : Encoding::alaw;
        size = 1;
        return true;
    }
    if (stored.format() != KXFourCC("lpcm") || bits == 0) return false;
    if (stored.isFloat()) {
        if (bits != 32 && bits != 64) return false;
        encoding = bits == 32 ? Encoding::float32 : Encoding::float64;
        size = bits / 8;
        return true;
    }
    size = (bits + 7) / 8;
    switch (size) {
        case 1: encoding = stored.isSignedInteger() ? Encoding::int8 : Encoding::uint8; return true;
        case 2: encoding = Encoding::int16; return stored.isSignedInteger();
        case 3: encoding = Encoding::int24; return stored.isSignedInteger();
        case 4: encoding = Encoding::int32; return stored.isSignedInteger();
        default: return false;
    }
}

}  // namespace

std::unique_ptr<KXConverter> KXConverter::converterWithSourceFormat(const KXAudioStreamDescription& source,
                                                                    const KXAudioStreamDescription& destination,
                                                                    KXError* error) {
    std::unique_ptr<KXConverter> converter(new KXConverter());
    converter->source_ = source;
    converter->destination_ = destination;
    converter->decodes_ = destination.isNative();
    const KXAudioStreamDescription& stored = converter->decodes_ ? source : destination;
    const bool oneSideNative = destination.isNative() || source.isNative();
    if (!oneSideNative || stored.channels() == 0 ||
        !storedEncoding(stored, converter->encoding_, converter->bytesPerSample_)) {
        KXSetError(error, KXError::posixError(EINVAL, "Creating a sample converter"));
        return nullptr;
    }
    const Loops loops = loopsFor(converter->encoding_, stored.isBigEndian() ? KXByteOrder::big : KXByteOrder::little);
    converter->decodeContiguous_ = loops.decodeContiguous;
    converter->decodeStrided_ = loops.decodeStrided;
    converter->encodeContiguous_ = loops.encodeContiguous;
    converter->decodeFrames_ = loops.decodeFrames;
    converter->encodeFrames_ = loops.encodeFrames;
    return converter;
}

void KXConverter::decodeChannel(const std::uint8_t* stored, std::size_t stride, float* samples, std::size_t count) const {
    (stride == bytesPerSample_ ? decodeContiguous_ : decodeStrided_)(stored, stride, samples, count);
}

void KXConverter::decode(const std::uint8_t* const* stored, float* const* channels, std::size_t frames) const {
    if (isInterleaved()) return decodeFrames_(stored[0], this->channels(), channels, frames);
    for (std::uint32_t c = 0; c < this->channels(); ++c) decodeContiguous_(stored[c], bytesPerSample_, channels[c], frames);
}

void KXConverter::encode(const float* const* channels, std::uint8_t* const* stored, std::size_t frames) const {
    if (isInterleaved()) return encodeFrames_(channels, this->channels(), stored[0], frames);
    for (std::uint32_t c = 0; c < this->channels(); ++c) encodeContiguous_(channels[c], stored[c], bytesPerSample_, frames);
}

namespace {

// Whether every sample is a whole number of steps already (digital silence, or material of this
// depth that went through floats).
bool liesOnGrid(const float* samples, std::uint32_t count, float steps) {
    for (std::uint32_t i = 0; i < count; ++i) {
        const float x = samples[i] * steps;
        if (x != std::nearbyint(x)) return false;
    }
    return true;
}

}  // namespace

void KXConverter::setDither(bool dither) {
    ditherStep_ = 0;
    if (!dither || decodes_) return;
    switch (encoding_) {
        case Encoding::int8:
        case Encoding::uint8: ditherStep_ = 1.0f / 128.0f; break;
        case Encoding::int16: ditherStep_ = 1.0f / 32768.0f; break;
        case Encoding::int24: ditherStep_ = 1.0f / 8388608.0f; break;
        default: break;
    }
}

std::uint32_t KXConverter::convertNativeBuffer(const KXNativeAudioBuffer& buffer, KXAudioBuffer& stored,
                                               KXError* error) {
    const std::uint32_t channels = this->channels();
    const std::uint32_t frames = buffer.frames();
    const std::uint32_t files = isInterleaved() ? 1 : channels;
    const std::size_t needed = std::size_t(frames) * bytesPerSample_ * (isInterleaved() ? channels : 1);
    if (decodes_ || frames == 0 || buffer.numberOfChannels() < channels || stored.count() < files ||
        stored.length() < needed) {
        KXSetError(error, KXError::posixError(EINVAL, "Converting samples"));
        return 0;
    }
    std::vector<const float*> samples(channels);
    for (std::uint32_t c = 0; c < channels; ++c) samples[c] = buffer.channel(c);
    if (ditherStep_ != 0) {
        dithered_.resize(std::size_t(frames) * channels);
        // Eight xorshift generators side by side (so that the loop vectorises); each step gives two
        // 16-bit uniform values, whose difference is the triangular noise.
        const float scale = ditherStep_ / 65536.0f;
        for (std::uint32_t c = 0; c < channels; ++c) {
            if (liesOnGrid(samples[c], frames, 1.0f / ditherStep_)) continue;
            float* out = dithered_.data() + std::size_t(c) * frames;
            const float* in = samples[c];
            const auto noise = [&](std::uint32_t lane) {
                std::uint32_t x = ditherLanes_[lane];
                x ^= x << 13, x ^= x >> 17, x ^= x << 5;
                ditherLanes_[lane] = x;
                return (float(x & 0xFFFF) - float(x >> 16)) * scale;
            };
            std::uint32_t i = 0;
            for (; i + kDitherLanes <= frames; i += kDitherLanes)
                for (std::uint32_t lane = 0; lane < kDitherLanes; ++lane) out[i + lane] = in[i + lane] + noise(lane);
            for (std::uint32_t lane = 0; i < frames; ++i, ++lane) out[i] = in[i] + noise(lane);
            samples[c] = out;
        }
    }
    std::vector<std::uint8_t*> outputs(files);
    for (std::uint32_t i = 0; i < files; ++i) outputs[i] = stored.bufferAtIndex(i);
    encode(samples.data(), outputs.data(), frames);
    return frames;
}
