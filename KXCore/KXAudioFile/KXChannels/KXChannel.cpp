#include "KXAudioFile/KXChannels/KXChannel.h"
#include "KXBase/KXVector.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct TableKey {
    KXWaveform::Type type;
    const char* key;
};
constexpr TableKey kTableKeys[] = {
    {KXWaveform::kMax, "Magnitude Maxima"},
    {KXWaveform::kRMS, "Root Mean Squares"},
    {KXWaveform::kMean, "Magnitude Means"},
};

}  // namespace

void KXGrowAnalysisRange(std::optional<KXSampleRange>& range, std::uint64_t& extraFrames,
                         const KXNativeAudioBuffer& buffer) {
    const KXSampleRange& added = buffer.range();
    if (added.length == 0) {
        extraFrames += buffer.frames();
    } else if (!range) {
        range = added;
    } else {
        const std::uint64_t start = std::min(range->location, added.location);
        const std::uint64_t end = std::max<std::uint64_t>(std::uint64_t(range->location) + range->length,
                                                          std::uint64_t(added.location) + added.length);
        range = KXSampleRange{std::uint32_t(start), std::uint32_t(std::min<std::uint64_t>(end - start, 0xFFFFFFFFu))};
    }
}

KXChannel::KXChannel() : rms_(std::numeric_limits<float>::quiet_NaN()) {
    for (KXWaveform::Type type : {KXWaveform::kMax, KXWaveform::kRMS, KXWaveform::kMean})
        waveforms_.push_back(KXWaveform::waveformOfType(type));
}

std::shared_ptr<KXChannel> KXChannel::channelWithState(const KXDictionary& state) {
    auto channel = KXChannel::channel();
    channel->setState(state);
    return channel;
}

std::shared_ptr<KXChannel> KXChannel::copy() const {
    auto other = std::make_shared<KXChannel>(*this);
    for (auto& waveform : other->waveforms_) waveform = waveform->copy();
    return other;
}

std::shared_ptr<KXWaveform> KXChannel::waveformForType(std::int32_t type) const {
    for (const auto& waveform : waveforms_)
        if (waveform->type() == type && type != KXWaveform::kNoType) return waveform;
    return nullptr;
}

void KXChannel::addWaveform(std::shared_ptr<KXWaveform> waveform) {
    if (!waveform) return;
    for (auto& existing : waveforms_) {
        if (existing->type() == waveform->type()) {
            existing = std::move(waveform);
            return;
        }
    }
    waveforms_.push_back(std::move(waveform));
}

// --- Analysis

void KXChannel::beginAnalysis(bool partial) {
    aMax_ = aSumOfSquares_ = partial ? kNaN : 0.0;
    aClipped_ = -1;
    aRange_.reset();
    aFrames_ = 0;
    for (const auto& waveform : waveforms_) waveform->beginAnalysis();
}

bool KXChannel::analyzeBuffer(const KXNativeAudioBuffer& buffer, std::uint32_t channel, std::uint16_t* negatives) {
    const float* samples = buffer.channel(channel);
    const std::uint32_t frames = buffer.frames();
    float loudest = 0.0f;
    double squares = 0.0;
    bool signs = false;
    const auto maxima = waveformForType(KXWaveform::kMax), squared = waveformForType(KXWaveform::kRMS),
               means = waveformForType(KXWaveform::kMean);
    if (samples && waveforms_.size() == 3 && maxima && squared && means && buffer.range().length >= frames) {
        // The usual case: the buffer's frames are all placed, and one pass gives every overview
        // entry and the channel's statistics.
        const std::uint64_t end = std::uint64_t(buffer.range().location) + frames;
        for (KXWaveform* table : {maxima.get(), squared.get()})
            if (end > table->sampleLength()) table->setSampleLength(end);
        const std::span<float> maximumEntries = maxima->mutableEntries(), rmsEntries = squared->mutableEntries();
        const auto enter = [&](std::size_t entry, const KXVector::Statistics& s, std::uint32_t count) {
            maximumEntries[entry] = s.maximumMagnitude;
            rmsEntries[entry] = float(std::sqrt(s.sumOfSquares / count));
            means->mutableEntries()[entry] = float(s.sumOfMagnitudes / count);
            loudest = std::max(loudest, s.maximumMagnitude);
            squares += s.sumOfSquares;
        };
        // Sign bits go sixteen samples a word from the buffer's start, so every entry's part
        // must start on a word: the buffer starts on an entry.
        signs = negatives && buffer.range().location % KXWaveform::kSamplesPerEntry == 0;
        const auto signsOf = [&](const float* part) { return signs ? negatives + (part - samples) / 16 : nullptr; };
        means->forEachEntryOfBuffer(
            buffer, samples,
            [&](std::size_t entry, const float* part, std::uint32_t count) {
                enter(entry, KXVector::statistics(part, count), count);
                if (signs) KXVector::negativeBits(part, count, signsOf(part));
            },
            [&](std::size_t entry, const float* part, std::uint32_t entries) {
                // Whole entries many at a time: one call, and a constant divisor.
                KXVector::Statistics batch[128];
                for (std::uint32_t done = 0; done < entries;) {
                    const std::uint32_t n = std::min<std::uint32_t>(entries - done, 128);
                    const float* first = part + std::size_t(done) * KXWaveform::kSamplesPerEntry;
                    KXVector::statisticsOfRuns(first, n, batch, signsOf(first));
                    for (std::uint32_t k = 0; k < n; ++k) enter(entry + done + k, batch[k], KXWaveform::kSamplesPerEntry);
                    done += n;
                }
            });
    } else {
        for (const auto& waveform : waveforms_) waveform->analyzeBuffer(buffer, channel);
        if (!samples) return false;
        loudest = KXVector::maximumMagnitude(samples, frames);
        squares = KXVector::sumOfSquares(samples, frames);
    }
    if (!std::isnan(aMax_)) aMax_ = std::max<double>(aMax_, loudest);
    if (loudest >= kClipLevel && aClipped_ != -1) {
        // The scan starts at the (first) loudest sample. A run longer than kClipRunAllowed
        // counts each further sample; runs do not carry across buffers.
        std::uint32_t run = 0;
        for (std::uint32_t i = KXVector::maximumMagnitudeIndex(samples, frames); i < frames; ++i) {
            if (std::fabs(samples[i]) >= kClipLevel) {
                if (++run > kClipRunAllowed && aClipped_ < std::numeric_limits<std::int32_t>::max()) ++aClipped_;
            } else {
                run = 0;
            }
        }
    }
    if (!std::isnan(aSumOfSquares_)) {
        aSumOfSquares_ += squares;
        KXGrowAnalysisRange(aRange_, aFrames_, buffer);
    }
    return signs;
}

void KXChannel::endAnalysis() {
    for (const auto& waveform : waveforms_) waveform->endAnalysis();
    if (!std::isnan(aMax_)) {
        max_ = float(aMax_);
    } else {
        const auto maxima = waveformForType(KXWaveform::kMax);
        std::span<const float> entries = maxima ? maxima->entries() : std::span<const float>();
        max_ = entries.empty() ? 0.0f : *std::max_element(entries.begin(), entries.end());
    }
    clipped_ = aClipped_;
    const double covered = double(aRange_ ? aRange_->length : 0) + double(aFrames_);
    // NaN says "not analysed": a pass over no frames measured silence.
    rms_ = std::isnan(aSumOfSquares_) ? std::numeric_limits<float>::quiet_NaN()
           : covered == 0             ? 0.0f
                                      : float(std::sqrt(aSumOfSquares_ / covered));
}

int KXChannel::analysisState() const {
    const bool hasMax = max_ != -1.0f, hasClipped = clipped_ != -1;
    if (hasMax && hasClipped) return 1;
    return hasMax || hasClipped ? -1 : 0;
}

void KXChannel::removeAnalysis() {
    for (const auto& waveform : waveforms_) waveform->removeTable();
    max_ = -1.0f;
    clipped_ = -1;
    rms_ = std::numeric_limits<float>::quiet_NaN();
}

// --- State

KXDictionary KXChannel::state() const {
    KXDictionary state{{"Name", name_},   {"Abbreviation", abbreviation_}, {"Extension", extension_},
                       {"Max", max_},     {"Clipped", clipped_},           {"RMS", rms_}};
    for (const TableKey& table : kTableKeys) {
        const auto waveform = waveformForType(table.type);
        if (auto bytes = waveform ? waveform->table() : std::nullopt) state.setObject(std::move(*bytes), table.key);
    }
    return state;
}

void KXChannel::setState(const KXDictionary& state) {
    if (const KXValue* v = state.find("Name")) name_ = v->stringValue();
    if (const KXValue* v = state.find("Abbreviation")) abbreviation_ = v->stringValue();
    if (const KXValue* v = state.find("Extension")) extension_ = v->stringValue();
    if (const KXValue* v = state.find("Max")) max_ = v->floatValue();
    if (const KXValue* v = state.find("Clipped")) clipped_ = v->intValue();
    if (const KXValue* v = state.find("RMS")) rms_ = v->floatValue();
    for (const TableKey& table : kTableKeys)
        if (const KXValue* v = state.find(table.key); v && v->type() == KXValue::Type::data)
            addWaveform(KXWaveform::waveformWithTable(table.type, v->data()));
}

void KXChannel::encodeWithCoder(KXCoder& coder) const {
    coder.encodeString(name_);
    coder.encodeString(abbreviation_);
    coder.encodeString(extension_);
    coder.encodeFloat(max_);
    coder.encodeUnsignedInt(std::uint32_t(clipped_));
    coder.encodeFloat(rms_);
    coder.encodeArray(KXCodingArray(waveforms_.begin(), waveforms_.end()));
}

void KXChannel::initWithCoder(KXDecoder& decoder) {
    name_ = decoder.decodeString().value_or("");
    abbreviation_ = decoder.decodeString().value_or("");
    extension_ = decoder.decodeString().value_or("");
    max_ = decoder.decodeFloat();
    clipped_ = std::int32_t(decoder.decodeUnsignedInt());
    rms_ = decoder.decodeFloat();
    KXWaveformArray waveforms;
    for (auto& object : decoder.decodeArray()) {
        auto waveform = std::dynamic_pointer_cast<KXWaveform>(object);
        if (!waveform) return decoder.markDamaged();
        waveforms.push_back(std::move(waveform));
    }
    waveforms_ = std::move(waveforms);
}
