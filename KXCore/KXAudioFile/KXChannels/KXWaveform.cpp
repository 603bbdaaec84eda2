#include "KXAudioFile/KXChannels/KXWaveform.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "KXBase/KXByteOrder.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace KXVector {

// The reductions run four samples at a time where SSE2 is there; sums keep double precision.
// A NaN sample is passed over by the maximum, as the scalar form does.

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

}  // namespace KXVector

namespace {
struct WaveformClass {
    KXWaveform::Type type;
    const char* name;
};
constexpr WaveformClass kWaveformClasses[] = {
    {KXWaveform::kMax, "KXMaxWaveform"},
    {KXWaveform::kRMS, "KXRMSWaveform"},
    {KXWaveform::kMean, "KXMeanWaveform"},
    {KXWaveform::kNoType, "KXWaveform"},
};
}  // namespace

std::shared_ptr<KXWaveform> KXWaveform::waveformOfType(Type type) {
    switch (type) {
        case kMax: return std::make_shared<KXMaxWaveform>();
        case kRMS: return std::make_shared<KXRMSWaveform>();
        case kMean: return std::make_shared<KXMeanWaveform>();
        default: return std::make_shared<KXWaveform>();
    }
}

std::shared_ptr<KXWaveform> KXWaveform::waveformWithTable(Type type, const KXData& table) {
    auto waveform = waveformOfType(type);
    waveform->setTable(table);
    return waveform;
}

std::shared_ptr<KXWaveform> KXWaveform::copy() const {
    auto other = waveformOfType(type());
    other->table_ = table_;
    return other;
}

float KXWaveform::entryValueForBuffer(const float*, std::uint32_t) const { return 0.0f; }

float KXMaxWaveform::entryValueForBuffer(const float* samples, std::uint32_t count) const {
    return KXVector::maximumMagnitude(samples, count);
}

float KXRMSWaveform::entryValueForBuffer(const float* samples, std::uint32_t count) const {
    return count ? float(std::sqrt(KXVector::sumOfSquares(samples, count) / count)) : 0.0f;
}

float KXMeanWaveform::entryValueForBuffer(const float* samples, std::uint32_t count) const {
    return count ? float(KXVector::sumOfMagnitudes(samples, count) / count) : 0.0f;
}

std::span<const float> KXWaveform::entries() const {
    return table_ ? std::span<const float>(*table_) : std::span<const float>();
}

std::span<float> KXWaveform::mutableEntries() { return table_ ? std::span<float>(*table_) : std::span<float>(); }

std::optional<KXData> KXWaveform::table() const {
    if (!table_) return std::nullopt;
    KXData bytes(table_->size() * 4);
    if (!bytes.empty()) std::memcpy(bytes.data(), table_->data(), bytes.size());
    return bytes;
}

void KXWaveform::setTable(const KXData& table) {
    const std::size_t count = table.size() / 4;
    if (count == 0) {
        table_.reset();
        return;
    }
    table_.emplace(count);
    std::memcpy(table_->data(), table.data(), count * 4);
}

void KXWaveform::setSampleLength(std::uint64_t frames) {
    const std::uint64_t entries = (frames + kSamplesPerEntry - 1) / kSamplesPerEntry;
    if (!table_) table_.emplace();
    table_->resize(std::size_t(entries), 0.0f);
}

void KXWaveform::swap() {
    for (float& entry : mutableEntries()) entry = std::bit_cast<float>(kx::byteSwap32(std::bit_cast<std::uint32_t>(entry)));
}

void KXWaveform::analyzeBuffer(const KXNativeAudioBuffer& buffer, std::uint32_t channel) {
    const float* samples = buffer.channel(channel);
    if (!samples) return;
    forEachEntryOfBuffer(buffer, samples, [&](std::size_t entry, const float* part, std::uint32_t count) {
        mutableEntries()[entry] = entryValueForBuffer(part, count);
    });
}

std::string KXWaveform::archiveClassName() const {
    for (const WaveformClass& c : kWaveformClasses)
        if (c.type == type()) return c.name;
    return "KXWaveform";
}

void KXWaveform::encodeWithCoder(KXCoder& coder) const { coder.encodeData(table()); }

void KXWaveform::initWithCoder(KXDecoder& decoder) {
    const auto bytes = decoder.decodeData();
    if (bytes) setTable(*bytes);
    else table_.reset();
}

std::shared_ptr<KXCoding> KXWaveform::archiveObjectForClassName(const std::string& name) {
    for (const WaveformClass& c : kWaveformClasses)
        if (name == c.name) return waveformOfType(c.type);
    return nullptr;
}
