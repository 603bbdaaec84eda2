#include "KXAudioFile/KXChannels/KXWaveform.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "KXBase/KXByteOrder.h"
#include "KXBase/KXVector.h"

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
    // Copied, not zeroed and then copied: a long file's tables are megabytes.
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(table_->data());
    return KXData(bytes, bytes + table_->size() * sizeof(float));
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

void KXWaveform::reserveSampleLength(std::uint64_t frames) {
    if (!table_) table_.emplace();
    table_->reserve(std::size_t((frames + kSamplesPerEntry - 1) / kSamplesPerEntry));
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
