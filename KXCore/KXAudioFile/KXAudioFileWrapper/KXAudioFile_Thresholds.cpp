// Finding positions in the sound: where it first and last reaches a level, the zero crossing
// next to a frame, the ranges in which it stays above an attack level, and onsets from jumps in
// short-term energy (over the whole spectrum, or in a low and a high band). Level searches work
// on the 256-frame maximum overview and read at most one block of samples per channel; only a
// channel without an overview is scanned, in 30,720-frame pieces.

#include <algorithm>
#include <cmath>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXChannels/KXWaveform.h"
#include "KXBase/KXHighpassFilter.h"
#include "KXBase/KXLowpassFilter.h"

namespace {

constexpr std::uint32_t kBlock = 256;            // frames per overview entry
constexpr std::uint32_t kScanPiece = 30720;      // frames per piece of a scan without an overview
constexpr std::uint32_t kEnergyStep = 512;       // frames per energy measurement
constexpr double kOnsetGap = 0.075;              // seconds between onsets
constexpr std::uint32_t kNone = 0xFFFFFFFF;

// The first (or, backwards, the last) index of `samples` whose magnitude reaches `level`.
std::optional<std::uint32_t> firstAtLevel(const float* samples, std::uint32_t count, float level, bool backwards) {
    for (std::uint32_t k = 0; k < count; ++k) {
        const std::uint32_t i = backwards ? count - 1 - k : k;
        if (std::fabs(samples[i]) >= level) return i;
    }
    return std::nullopt;
}

}  // namespace

// --- Levels

std::vector<std::uint32_t> KXAudioFile::channelsIn(const KXIndexSet& wanted) const {
    std::vector<std::uint32_t> channels;
    for (std::uint32_t c : wanted.indexes())
        if (c < numberOfChannels_) channels.push_back(c);
    return channels;
}

std::span<const float> KXAudioFile::maximumOverview(std::uint32_t channel) const {
    const auto entry = channelsList_->channel(channel);
    const auto waveform = entry ? entry->waveformForType(KXWaveform::kMax) : nullptr;
    return waveform ? waveform->entries() : std::span<const float>();
}

std::uint32_t KXAudioFile::startAtThreshold(float magnitude, const KXIndexSet& wanted) {
    std::uint32_t result = kNone;
    std::vector<float> piece(kScanPiece);
    for (std::uint32_t c : channelsIn(wanted)) {
        const std::span<const float> overview = maximumOverview(c);
        if (!overview.empty()) {
            const auto block = std::find_if(overview.begin(), overview.end(), [&](float v) { return v >= magnitude; });
            if (block == overview.end()) continue;
            const std::uint64_t start = std::uint64_t(block - overview.begin()) * kBlock;
            std::int32_t read = kBlock;
            readSamplesToBuffer(piece.data(), std::int64_t(start), read, c);
            if (const auto at = firstAtLevel(piece.data(), std::uint32_t(std::max(read, 0)), magnitude, false))
                result = std::min<std::uint64_t>(result, start + *at);
            continue;
        }
        for (std::uint64_t start = 0; start < frames_ && start < result; start += kScanPiece) {
            std::int32_t read = std::int32_t(std::min<std::uint64_t>(frames_ - start, kScanPiece));
            readSamplesToBuffer(piece.data(), std::int64_t(start), read, c);
            if (const auto at = firstAtLevel(piece.data(), std::uint32_t(std::max(read, 0)), magnitude, false)) {
                result = std::min<std::uint64_t>(result, start + *at);
                break;
            }
        }
    }
    return result;
}

std::uint32_t KXAudioFile::endAtThreshold(float magnitude, const KXIndexSet& wanted) {
    std::uint32_t result = 0;
    std::vector<float> piece(kScanPiece);
    for (std::uint32_t c : channelsIn(wanted)) {
        const std::span<const float> overview = maximumOverview(c);
        if (!overview.empty()) {
            const auto block = std::find_if(overview.rbegin(), overview.rend(), [&](float v) { return v >= magnitude; });
            if (block == overview.rend()) continue;
            const std::uint64_t start = std::uint64_t(overview.rend() - block - 1) * kBlock;
            std::int32_t read = kBlock;
            readSamplesToBuffer(piece.data(), std::int64_t(start), read, c);
            if (const auto at = firstAtLevel(piece.data(), std::uint32_t(std::max(read, 0)), magnitude, true))
                result = std::max<std::uint64_t>(result, start + *at + 1);
            continue;
        }
        for (std::uint64_t end = frames_; end > result;) {
            const std::uint64_t start = end - std::min<std::uint64_t>(end, kScanPiece);
            std::int32_t read = std::int32_t(end - start);
            readSamplesToBuffer(piece.data(), std::int64_t(start), read, c);
            if (const auto at = firstAtLevel(piece.data(), std::uint32_t(std::max(read, 0)), magnitude, true)) {
                result = std::max<std::uint64_t>(result, start + *at + 1);
                break;
            }
            end = start;
        }
    }
    return result;
}

std::uint32_t KXAudioFile::startAtThreshold(float magnitude) { return startAtThreshold(magnitude, channelSet()); }
std::uint32_t KXAudioFile::endAtThreshold(float magnitude) { return endAtThreshold(magnitude, channelSet()); }
double KXAudioFile::firstPositionOverThreshold(float magnitude, const KXIndexSet& channels) {
    return startAtThreshold(magnitude, channels) / double(rate_);
}
double KXAudioFile::firstPositionOverThreshold(float magnitude) { return firstPositionOverThreshold(magnitude, channelSet()); }
double KXAudioFile::lastPositionOverThreshold(float magnitude, const KXIndexSet& channels) {
    return endAtThreshold(magnitude, channels) / double(rate_);
}
double KXAudioFile::lastPositionOverThreshold(float magnitude) { return lastPositionOverThreshold(magnitude, channelSet()); }

// --- Zero crossings

namespace {

int signOf(float sample) { return sample > 0.0f ? 1 : sample < 0.0f ? -1 : 0; }

}  // namespace

std::uint32_t KXAudioFile::nextZeroCross(std::uint32_t frame, const KXIndexSet& wanted) {
    if (frames_ == 0 || frame >= frames_ - 1) return frames_;
    const std::vector<std::uint32_t> channels = channelsIn(wanted);
    std::vector<int> signs;
    for (std::uint32_t c : channels) signs.push_back(signOf(readSample(frame, c)));
    for (std::uint64_t p = std::uint64_t(frame) + 1; p < frames_; ++p)
        for (std::size_t i = 0; i < channels.size(); ++i) {
            const int sign = signOf(readSample(std::int64_t(p), channels[i]));
            // Deliberate: a crossing at the very last frame answers the frame count.
            if (sign == 0 || sign != signs[i]) return p == frames_ - 1 ? frames_ : std::uint32_t(p);
        }
    return frames_;
}

std::uint32_t KXAudioFile::previousZeroCross(std::uint32_t frame, const KXIndexSet& wanted) {
    if (frame < 1 || frames_ == 0) return 0;
    const std::uint32_t from = std::min(frame == frames_ ? frame - 1 : frame, frames_ - 1);
    const std::vector<std::uint32_t> channels = channelsIn(wanted);
    std::vector<int> signs;
    for (std::uint32_t c : channels) signs.push_back(signOf(readSample(from, c)));
    for (std::uint32_t p = from; p >= 1; --p)
        for (std::size_t i = 0; i < channels.size(); ++i) {
            const int sign = signOf(readSample(p, channels[i]));
            if (sign == 0 || sign != signs[i]) return p + 1;  // the first frame after the crossing
        }
    return 0;
}

std::uint32_t KXAudioFile::nearestZeroCross(std::uint32_t frame, const KXIndexSet& channels) {
    const std::uint32_t previous = previousZeroCross(frame, channels), next = nextZeroCross(frame, channels);
    // A tie goes to the next crossing.
    return std::int64_t(frame) - previous < std::int64_t(next) - frame ? previous : next;
}

std::uint32_t KXAudioFile::nextZeroCross(std::uint32_t frame) { return nextZeroCross(frame, channelSet()); }
std::uint32_t KXAudioFile::previousZeroCross(std::uint32_t frame) { return previousZeroCross(frame, channelSet()); }
std::uint32_t KXAudioFile::nearestZeroCross(std::uint32_t frame) { return nearestZeroCross(frame, channelSet()); }

double KXAudioFile::positionOfZeroCrossingAfter(double seconds, const KXIndexSet& channels) {
    return nextZeroCross(std::uint32_t(std::clamp<long>(std::lround(seconds * rate_), 0, 0xFFFFFFFF)), channels) / double(rate_);
}
double KXAudioFile::positionOfZeroCrossingBefore(double seconds, const KXIndexSet& channels) {
    return previousZeroCross(std::uint32_t(std::clamp<long>(std::lround(seconds * rate_), 0, 0xFFFFFFFF)), channels) /
           double(rate_);
}
double KXAudioFile::positionOfZeroCrossingNearestTo(double seconds, const KXIndexSet& channels) {
    return nearestZeroCross(std::uint32_t(std::clamp<long>(std::lround(seconds * rate_), 0, 0xFFFFFFFF)), channels) /
           double(rate_);
}
double KXAudioFile::positionOfZeroCrossingAfter(double seconds) { return positionOfZeroCrossingAfter(seconds, channelSet()); }
double KXAudioFile::positionOfZeroCrossingBefore(double seconds) { return positionOfZeroCrossingBefore(seconds, channelSet()); }
double KXAudioFile::positionOfZeroCrossingNearestTo(double seconds) {
    return positionOfZeroCrossingNearestTo(seconds, channelSet());
}

// --- Threshold ranges

namespace {

// The level of each 256-frame block: the largest maximum-overview value over every channel of
// the file (not only selected ones), 0 where no channel has one.
struct BlockLevels {
    std::vector<std::span<const float>> overviews;
    float at(std::uint64_t block) const {
        float level = 0.0f;
        for (const auto& overview : overviews)
            if (block < overview.size()) level = std::max(level, overview[block]);
        return level;
    }
};

}  // namespace

std::vector<KXRange> KXAudioFile::rangesAboveLevels(const LevelRule& rule, std::uint64_t from, std::uint64_t to) {
    BlockLevels levels;
    for (std::uint32_t c = 0; c < numberOfChannels_; ++c) levels.overviews.push_back(maximumOverview(c));
    const auto place = [&](std::uint64_t frame) {
        const auto clamped = std::uint32_t(std::min<std::uint64_t>(frame, 0xFFFFFFFF));
        return rule.zeroCross ? nearestZeroCross(clamped) : clamped;
    };
    std::vector<KXRange> ranges;
    bool open = false, releasing = false;
    std::uint32_t rangeStart = 0;
    std::uint64_t releaseBlock = 0;
    for (std::uint64_t block = from / kBlock; block < (to + kBlock - 1) / kBlock; ++block) {
        const float level = levels.at(block);
        if (!open) {
            if (level >= rule.attack) open = true, releasing = false, rangeStart = place(block * kBlock);
            continue;
        }
        if (!releasing && level <= rule.release) releasing = true, releaseBlock = block;
        if (!releasing) continue;
        if (rule.cancelAtAttack ? level >= rule.attack : level > rule.attack) {
            releasing = false;
        } else if (block - releaseBlock >= rule.intervalBlocks) {
            ranges.push_back(KXRange::rangeWithSampleStart(rangeStart, place(block * kBlock), rate_));
            open = false;
        }
    }
    // A range still open at the end ends at the file's end.
    if (open) ranges.push_back(KXRange::rangeWithSampleStart(rangeStart, frames_, rate_));
    return ranges;
}

std::vector<KXRange> KXAudioFile::thresholdArrayAtAttackThreshold(float attack, float release, float interval,
                                                                  bool zeroCross, std::uint32_t from, std::uint32_t to) {
    // The interval in frames (single precision, truncated), reached after as many whole blocks.
    const auto intervalFrames = std::uint64_t(std::max(float(rate_) * interval, 0.0f));
    // Deliberate: a release is cancelled only strictly above the attack level.
    return rangesAboveLevels({attack, release, (intervalFrames + kBlock - 1) / kBlock, false, zeroCross}, from, to);
}

std::vector<KXRange> KXAudioFile::thresholdArrayAtAttackThreshold(float attack, float release, float interval,
                                                                  bool zeroCross) {
    return thresholdArrayAtAttackThreshold(attack, release, interval, zeroCross, 0, frames_);
}

namespace {

// The instructions' "range" ([start, end] in seconds), else the whole file, as frames.
std::pair<std::uint64_t, std::uint64_t> searchFrames(const KXDictionary& instructions, std::uint32_t rate,
                                                     std::uint32_t frames) {
    KXRange range = KXRange::rangeWithLength(double(frames) / rate);
    const KXArray& given = instructions.objectForKey("range").array();
    if (given.size() == 2) range = KXRange::rangeWithStart(given[0].doubleValue(), given[1].doubleValue());
    range.setRate(rate);
    return {range.sampleStart(), std::max(range.sampleEnd(), range.sampleStart())};
}

}  // namespace

std::vector<KXRange> KXAudioFile::rangesForThresholdsWithInstructions(const KXDictionary& instructions) {
    float attack = instructions.objectForKey("attack").floatValue();
    float release = instructions.objectForKey("release").floatValue();
    const KXValue* intervalValue = instructions.find("interval");
    double interval = intervalValue ? intervalValue->doubleValue() : 0.01;
    if (const KXValue* sensitivity = instructions.find("sensitivity")) {
        // 0 is -6 dB, 1 is -60 dB; the release 3 dB under the attack.
        attack = float(std::pow(10.0, (sensitivity->floatValue() * -54.0 - 6.0) / 20.0));
        release = float(attack / 1.4142135623730951);
        interval = kOnsetGap;
    }
    const auto intervalBlocks = std::uint64_t(std::max(0L, std::lround(interval * rate_ / kBlock)));
    const auto [first, end] = searchFrames(instructions, rate_, frames_);
    return rangesAboveLevels({attack, release, intervalBlocks, true, instructions.objectForKey("atZeroCross").boolValue()},
                             first, end);
}

// --- Onsets

namespace {

std::uint64_t onsetGap(std::uint32_t rate) { return std::uint64_t(double(rate) * kOnsetGap); }

}  // namespace

std::vector<KXRange> KXAudioFile::rangesForEnergyWithInstructions(const KXDictionary& instructions) {
    const KXValue* sensitivity = instructions.find("sensitivity");
    const float threshold = (sensitivity ? sensitivity->floatValue() : 1.0f) * -18.5f + 20.0f;
    const bool zeroCross = instructions.objectForKey("atZeroCross").boolValue();
    const std::uint64_t gap = onsetGap(rate_);
    auto [position, end] = searchFrames(instructions, rate_, frames_);
    KXNativeAudioBuffer buffer(numberOfChannels_, kEnergyStep);
    std::vector<KXRange> onsets;
    float previous = 0.0f;
    std::uint64_t lastOnset = 0;
    for (; position < end; position += kEnergyStep) {
        buffer.setFrames(kEnergyStep);
        const std::int32_t read = readSamplesToBuffer(buffer, std::int64_t(position));
        buffer.setFrames(std::uint32_t(std::max(read, 0)));
        const float energy = buffer.energy();
        // The first step's ratio is unbounded (the previous energy starts at 0).
        if (energy / previous > threshold && position > lastOnset + gap) {
            // Deliberate: the steps go on 512 frames from the moved position.
            if (zeroCross) position = nearestZeroCross(std::uint32_t(position));
            onsets.push_back(KXRange::rangeWithSampleStart(std::uint32_t(position), std::uint32_t(position), rate_));
            lastOnset = position;
        }
        previous = energy;
    }
    return onsets;
}

std::vector<KXRange> KXAudioFile::rangesForEnergyBandsWithInstructions(const KXDictionary& instructions) {
    const KXValue* sensitivityValue = instructions.find("sensitivity");
    const float sensitivity = sensitivityValue ? sensitivityValue->floatValue() : 1.0f;
    const float lowThreshold = sensitivity * -25.0f + 30.0f, highThreshold = sensitivity * -199.0f + 200.0f;
    const bool zeroCross = instructions.objectForKey("atZeroCross").boolValue();
    const std::uint64_t gap = onsetGap(rate_);
    const auto searched = searchFrames(instructions, rate_, frames_);
    std::uint64_t position = searched.first;
    const std::uint64_t end = searched.second;
    KXNativeAudioBuffer low(numberOfChannels_, kEnergyStep), high(numberOfChannels_, kEnergyStep);
    KXLowpassFilter lowpass;
    lowpass.setActive(true);
    lowpass.setSampleRate(rate_);
    lowpass.setFrequency(100.0f);
    KXHighpassFilter highpass;
    highpass.setActive(true);
    highpass.setSampleRate(rate_);
    highpass.setFrequency(8000.0f);
    highpass.setBandwidth(0.16666667f);
    std::vector<KXRange> onsets;
    float previousLow = 0.0f, previousHigh = 0.0f;
    std::uint64_t lastOnset = 0;
    const auto addOnset = [&] {
        if (zeroCross) position = nearestZeroCross(std::uint32_t(position));
        onsets.push_back(KXRange::rangeWithSampleStart(std::uint32_t(position), std::uint32_t(position), rate_));
        lastOnset = position;
    };
    for (; position < end; position += kEnergyStep) {
        for (KXNativeAudioBuffer* buffer : {&low, &high}) {
            buffer->setFrames(kEnergyStep);
            buffer->setFrames(std::uint32_t(std::max(readSamplesToBuffer(*buffer, std::int64_t(position)), 0)));
        }
        lowpass.filter(low);
        highpass.filter(high);
        const float lowEnergy = low.energy(), highEnergy = high.energy();
        bool skip = false;
        if (lowEnergy / previousLow > lowThreshold) {
            if (position > lastOnset + gap) addOnset();
            else skip = true;
        }
        if (!skip && position > lastOnset + gap && highEnergy / previousHigh > highThreshold) addOnset();
        previousLow = lowEnergy, previousHigh = highEnergy;
    }
    return onsets;
}
