// Measuring a file's samples: the statistics report of a range, the loudest point, the maximum,
// RMS and pitch of a range, the pitch of a magnitude spectrum, and loudness (EBU R128 / ITU-R
// BS.1770, through libebur128). Everything reads through the read path, one channel at a time.

#include <ebur128.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXChannels/KXChannelLayouts.h"
#include "KXAudioFile/KXChannels/KXWaveform.h"
#include "KXBase/KXFFT.h"
#include "KXBase/KXVector.h"

namespace {

constexpr std::uint32_t kSpectrumBlock = 4096;  // frames per transform
constexpr std::uint32_t kSpectrumBins = kSpectrumBlock / 2;
constexpr std::uint32_t kLevelBlock = 1024;     // frames per block of the maximum and RMS
constexpr std::uint32_t kOverviewBlock = 256;   // frames per entry of an overview table

// One block's extremes, each at its first index.
struct BlockExtremes {
    float maximum = 0, minimum = 0, magnitude = 0;
    std::uint32_t maximumAt = 0, minimumAt = 0, magnitudeAt = 0;
    double sum = 0, sumOfSquares = 0;
};

BlockExtremes extremesOf(const float* samples, std::uint32_t count) {
    BlockExtremes block;
    if (count == 0) return block;
    const KXVector::Extremes extremes = KXVector::extremes(samples, count);
    block.maximum = extremes.maximum, block.maximumAt = extremes.maximumIndex;
    block.minimum = extremes.minimum, block.minimumAt = extremes.minimumIndex;
    block.magnitudeAt = KXVector::maximumMagnitudeIndex(samples, count);
    block.magnitude = std::fabs(samples[block.magnitudeAt]);
    block.sum = extremes.sum;
    block.sumOfSquares = KXVector::sumOfSquares(samples, count);
    return block;
}

// What the report keeps of one channel.
struct ChannelStatistics {
    float positiveMax = 0, negativeMax = 0, peak = 0;
    std::uint64_t positiveMaxFrame = 0, negativeMaxFrame = 0, peakFrame = 0;
    double sumOfSquares = 0, sum = 0;
    std::uint32_t clipRun = 0;
    std::int64_t clipped = 0;
    std::vector<float> spectrum = std::vector<float>(kSpectrumBins, 0.0f);

    void add(const float* samples, std::uint32_t count, std::uint64_t blockStart, float clipLevel) {
        const BlockExtremes block = extremesOf(samples, count);
        if (block.maximum > positiveMax) positiveMax = block.maximum, positiveMaxFrame = blockStart + block.maximumAt;
        if (block.minimum < negativeMax) negativeMax = block.minimum, negativeMaxFrame = blockStart + block.minimumAt;
        if (block.magnitude > peak) peak = block.magnitude, peakFrame = blockStart + block.magnitudeAt;
        // Clipping: from the block's peak on, the third and every later sample of a run at the clip
        // level counts; a run goes on into the next block only when that block's peak is its
        // first sample. Samples before the peak are not scanned (deliberate, as designed).
        if (count > 0 && block.magnitude >= clipLevel) {
            if (block.magnitudeAt != 0) clipRun = 0;
            for (std::uint32_t i = block.magnitudeAt; i < count; ++i) {
                clipRun = std::fabs(samples[i]) >= clipLevel ? clipRun + 1 : 0;
                if (clipRun > 2) ++clipped;
            }
        }
        sumOfSquares += block.sumOfSquares;
        sum += block.sum;
    }
};

// Frames [from, to) within the file's `frames` (a range past the end measures what is there).
std::pair<std::uint64_t, std::uint64_t> framesWithin(std::int64_t from, std::int64_t to, std::uint32_t frames) {
    const std::uint64_t first = std::min<std::uint64_t>(std::uint64_t(std::max<std::int64_t>(from, 0)), frames);
    return {first, std::clamp<std::uint64_t>(std::uint64_t(std::max<std::int64_t>(to, 0)), first, frames)};
}

std::pair<std::uint64_t, std::uint64_t> framesOf(KXRange range, std::uint32_t rate, std::uint32_t frames) {
    range.setRate(rate);
    return framesWithin(range.sampleStart(), range.sampleEnd(), frames);
}

KXArray arrayOf(const std::vector<ChannelStatistics>& all, const auto& value) {
    KXArray values;
    for (const ChannelStatistics& channel : all) values.emplace_back(value(channel));
    return values;
}

// The loudness weighting of a channel by its speaker: the low-frequency channel counts for
// nothing, the surrounds for +1.5 dB; a channel without a speaker takes its place in the
// default layout of the channel count.
int loudnessChannel(std::uint32_t speaker) {
    switch (speaker) {
        case KXChannelLayouts::kSpeakerFrontLeft: return EBUR128_LEFT;
        case KXChannelLayouts::kSpeakerFrontRight: return EBUR128_RIGHT;
        case KXChannelLayouts::kSpeakerFrontCenter: return EBUR128_CENTER;
        case KXChannelLayouts::kSpeakerLowFrequency: return EBUR128_UNUSED;
        case KXChannelLayouts::kSpeakerBackLeft:
        case KXChannelLayouts::kSpeakerSideLeft: return EBUR128_LEFT_SURROUND;
        case KXChannelLayouts::kSpeakerBackRight:
        case KXChannelLayouts::kSpeakerSideRight: return EBUR128_RIGHT_SURROUND;
        default: return EBUR128_LEFT;  // any other speaker counts as a front channel
    }
}

}  // namespace

// --- The statistics report

std::optional<KXDictionary> KXAudioFile::statisticsForRange(KXRange range, const KXIndexSet& wanted) {
    KXDictionary report{{"Start", range.start()}, {"End", range.end()}};
    const auto [first, end] = framesOf(range, rate_, frames_);
    const std::uint64_t length = end - first;
    const std::vector<std::uint32_t> channels = channelsIn(wanted);
    std::vector<ChannelStatistics> statistics(channels.size());
    const float fullScale = std::exp2(float(depth_) - 1.0f);
    const float clipLevel = (fullScale - 1.0f) / fullScale;
    KXFFT fft(kSpectrumBlock);
    std::vector<float> work(kSpectrumBlock, 0.0f);

    progressDelegate_->setTitle("Analyzing");
    progressDelegate_->setIsStoppable(true);
    bool stopped = false;
    for (std::uint64_t position = first; position < end && !stopped;) {
        const auto frames = std::int32_t(std::min<std::uint64_t>(end - position, kSpectrumBlock));
        for (std::size_t i = 0; i < channels.size(); ++i) {
            std::int32_t read = frames;
            readSamplesToBuffer(work.data(), std::int64_t(position), read, channels[i]);
            statistics[i].add(work.data(), std::uint32_t(std::max(read, 0)), position, clipLevel);
            fft.addWindowedMagnitudes(work.data(), statistics[i].spectrum.data());
        }
        const double done = double(position - first) / double(length);
        position += std::uint64_t(frames);
        // Deliberate: only an explicit stop stops the report.
        stopped = progressDelegate_->update(done) == KXProgressDelegate::kStop;
    }
    if (stopped) return std::nullopt;

    const double frames = double(length);
    KXArray names;
    for (std::uint32_t c : channels) {
        const auto channel = channelsList_->channel(c);
        names.emplace_back(channel ? channel->name() : std::string());
    }
    report.setObject(std::move(names), "Channels");
    const double rate = double(rate_);
    report.setObject(arrayOf(statistics, [](const auto& s) { return double(s.peak); }), "\001Peak");
    report.setObject(arrayOf(statistics, [&](const auto& s) { return double(float(double(s.peakFrame) / rate)); }),
                     "\002Peak Position");
    report.setObject(arrayOf(statistics, [&](const auto& s) {
                         return frames > 0 ? double(float(std::sqrt(s.sumOfSquares / frames))) : 0.0;
                     }),
                     "\003RMS Power");
    report.setObject(arrayOf(statistics, [](const auto& s) { return double(s.positiveMax); }), "\004Positive Max");
    report.setObject(arrayOf(statistics, [&](const auto& s) { return double(s.positiveMaxFrame) / rate; }),
                     "\005Positive Max Position");
    report.setObject(arrayOf(statistics, [](const auto& s) { return double(s.negativeMax); }), "\006Negative Max");
    report.setObject(arrayOf(statistics, [&](const auto& s) { return double(s.negativeMaxFrame) / rate; }),
                     "\007Negative Max Position");
    report.setObject(arrayOf(statistics, [&](const auto& s) { return frames > 0 ? double(float(s.sum / frames)) : 0.0; }),
                     "\010DC Offset");
    report.setObject(arrayOf(statistics, [](const auto& s) { return s.clipped; }), "Clipped");
    KXArray pitches;
    for (ChannelStatistics& channel : statistics)
        pitches.emplace_back(std::int64_t(pitchForFFT(channel.spectrum.data(), kSpectrumBins)));
    report.setObject(std::move(pitches), "Pitch");
    return report;
}

// --- The loudest point

KXDictionary KXAudioFile::maximumStatistics() {
    float best = 0.0f;
    std::uint32_t bestChannel = 0, bestBlock = 0;
    for (std::uint32_t c = 0; c < numberOfChannels_; ++c) {
        // The file is analysed first when it has no overview.
        if (!waveformOfType(KXWaveform::kMax, c)) continue;
        const std::span<const float> overview = maximumOverview(c);
        for (std::size_t i = 0; i < overview.size(); ++i)
            // Strictly greater: ties keep the lower channel and the earlier block.
            if (overview[i] > best) best = overview[i], bestChannel = c, bestBlock = std::uint32_t(i);
    }
    std::vector<float> block(kOverviewBlock, 0.0f);
    std::int32_t read = kOverviewBlock;
    const std::uint64_t blockStart = std::uint64_t(bestBlock) * kOverviewBlock;
    readSamplesToBuffer(block.data(), std::int64_t(blockStart), read, bestChannel);
    const BlockExtremes extremes = extremesOf(block.data(), std::uint32_t(std::max(read, 0)));
    return KXDictionary{{"value", double(best)},
                        {"frame", std::int64_t(blockStart + extremes.magnitudeAt)},
                        {"channel", std::int64_t(bestChannel)}};
}

// --- Maximum, RMS and pitch of a range

namespace {

// Steps over [from, to) in blocks of `blockFrames`, each selected channel in turn.
template <typename Body>
void forEachBlock(KXAudioFile& file, std::uint64_t from, std::uint64_t to, const std::vector<std::uint32_t>& channels,
                  std::uint32_t blockFrames, std::vector<float>& work, Body body) {
    for (std::uint64_t position = from; position < to;) {
        const auto frames = std::int32_t(std::min<std::uint64_t>(to - position, blockFrames));
        for (std::uint32_t channel : channels) {
            std::int32_t read = frames;
            file.readSamplesToBuffer(work.data(), std::int64_t(position), read, channel);
            body(work.data(), std::uint32_t(std::max(read, 0)));
        }
        position += std::uint64_t(frames);
    }
}


}  // namespace

float KXAudioFile::maximumFrom(std::int64_t from, std::int64_t to, const KXIndexSet& wanted) {
    float maximum = 0.0f;
    std::vector<float> work(kLevelBlock);
    const auto [first, end] = framesWithin(from, to, frames_);
    forEachBlock(*this, first, end, channelsIn(wanted), kLevelBlock, work,
                 [&](const float* samples, std::uint32_t count) {
                     maximum = std::max(maximum, KXVector::maximumMagnitude(samples, count));
                 });
    return maximum;
}

float KXAudioFile::maximumOfRange(KXRange range, const KXIndexSet& channels) {
    const auto [from, to] = framesOf(range, rate_, frames_);
    return maximumFrom(std::int64_t(from), std::int64_t(to), channels);
}

float KXAudioFile::rmsFrom(std::int64_t from, std::int64_t to, const KXIndexSet& wanted) {
    const auto [first, end] = framesWithin(from, to, frames_);
    double sumOfSquares = 0;
    std::vector<float> work(kLevelBlock);
    forEachBlock(*this, first, end, channelsIn(wanted), kLevelBlock, work,
                 [&](const float* samples, std::uint32_t count) { sumOfSquares += KXVector::sumOfSquares(samples, count); });
    // Deliberate: divided by the frames alone, not by frames × channels.
    return end > first ? float(std::sqrt(sumOfSquares / double(end - first))) : 0.0f;
}

float KXAudioFile::rmsOfRange(KXRange range, const KXIndexSet& channels) {
    const auto [from, to] = framesOf(range, rate_, frames_);
    return rmsFrom(std::int64_t(from), std::int64_t(to), channels);
}

std::int32_t KXAudioFile::pitchFrom(std::int64_t from, std::int64_t to, const KXIndexSet& wanted) {
    std::vector<float> spectrum(kSpectrumBins, 0.0f), work(kSpectrumBlock, 0.0f);
    KXFFT fft(kSpectrumBlock);
    const auto [first, end] = framesWithin(from, to, frames_);
    forEachBlock(*this, first, end, channelsIn(wanted), kSpectrumBlock, work,
                 [&](const float* samples, std::uint32_t) { fft.addWindowedMagnitudes(samples, spectrum.data()); });
    return pitchForFFT(spectrum.data(), kSpectrumBins);
}

float KXAudioFile::pitchOfRange(KXRange range, const KXIndexSet& channels) {
    const auto [from, to] = framesOf(range, rate_, frames_);
    return float(pitchFrom(std::int64_t(from), std::int64_t(to), channels));
}

std::int32_t KXAudioFile::pitchForFFT(float* spectrum, std::uint32_t size) const {
    if (size <= 5) return 0;
    // The harmonic product: each bin times the means of the bins at twice and three times its index.
    for (std::uint32_t i = 0; i < size; ++i) {
        const float twice = i < size / 2 ? (spectrum[2 * i] + spectrum[2 * i + 1]) * 0.5f : 1.0f;
        const float thrice = i < size / 3 ? (spectrum[3 * i] + spectrum[3 * i + 1] + spectrum[3 * i + 2]) / 3.0f : 1.0f;
        spectrum[i] *= twice * thrice;
    }
    const auto largest = [&] { return std::uint32_t(std::max_element(spectrum + 5, spectrum + size) - spectrum); };
    const std::uint32_t first = largest();
    const float firstValue = spectrum[first];
    spectrum[first] = 0.0f;
    const std::uint32_t second = largest();
    const float secondValue = spectrum[second];
    spectrum[first] = firstValue;
    // The octave below, when it holds a peak of its own.
    const bool octaveBelow = double(second) > 0.4 * first && double(second) < 0.6 * first && secondValue / firstValue > 0.1f;
    const double frequency = double(rate_) / (2.0 * size) * (octaveBelow ? second : first);
    return std::int32_t(std::round(float(12.0 * std::log2(frequency / 440.0)))) + 57;
}

// --- Loudness

std::optional<KXLoudness> KXAudioFile::loudnessForRange(KXRange range, const KXIndexSet& wanted) {
    const auto [first, end] = framesOf(range, rate_, frames_);
    const std::vector<std::uint32_t> channels = channelsIn(wanted);
    if (channels.empty()) return std::nullopt;
    const std::unique_ptr<ebur128_state, void (*)(ebur128_state*)> state(
        ebur128_init(unsigned(channels.size()), rate_,
                     EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_M | EBUR128_MODE_S | EBUR128_MODE_TRUE_PEAK),
        [](ebur128_state* s) { ebur128_destroy(&s); });
    if (!state) return std::nullopt;
    // Speakers from the channels, else the default layout of the count (mono and stereo are fronts).
    const std::uint32_t defaultMask = KXChannelLayouts::speakerMaskForChannelCount(numberOfChannels_);
    for (std::size_t i = 0; i < channels.size(); ++i) {
        const auto channel = channelsList_->channel(channels[i]);
        std::uint32_t speaker = channel ? channel->speaker() : 0;
        if (speaker == 0) {
            std::uint32_t remaining = defaultMask;
            for (std::uint32_t k = 0; k < channels[i] && remaining; ++k) remaining &= remaining - 1;
            speaker = remaining & (~remaining + 1);
        }
        ebur128_set_channel(state.get(), unsigned(i), loudnessChannel(speaker));
    }

    // 100 ms hops: after each, the momentary (400 ms) and short-term (3 s) loudness of the
    // windows that end there, as meters show them.
    const std::uint64_t hop = std::max<std::uint64_t>(rate_ / 10, 1);
    KXLoudness loudness;
    std::vector<float> channelBlock(hop), interleaved(hop * channels.size());
    progressDelegate_->setTitle("Measuring loudness");
    for (std::uint64_t position = first; position < end;) {
        const auto frames = std::int32_t(std::min<std::uint64_t>(end - position, hop));
        for (std::size_t i = 0; i < channels.size(); ++i) {
            std::int32_t read = frames;
            std::fill(channelBlock.begin(), channelBlock.end(), 0.0f);
            readSamplesToBuffer(channelBlock.data(), std::int64_t(position), read, channels[i]);
            for (std::int32_t f = 0; f < frames; ++f) interleaved[std::size_t(f) * channels.size() + i] = channelBlock[std::size_t(f)];
        }
        ebur128_add_frames_float(state.get(), interleaved.data(), std::size_t(frames));
        position += std::uint64_t(frames);
        const std::uint64_t measured = position - first;
        double value;
        if (measured * 10 >= std::uint64_t(rate_) * 4 && ebur128_loudness_momentary(state.get(), &value) == EBUR128_SUCCESS)
            loudness.maxMomentary = std::max(loudness.maxMomentary, value);
        if (measured >= std::uint64_t(rate_) * 3 && ebur128_loudness_shortterm(state.get(), &value) == EBUR128_SUCCESS)
            loudness.maxShortTerm = std::max(loudness.maxShortTerm, value);
        if (progressDelegate_->update(double(measured) / double(end - first)) == KXProgressDelegate::kStop) return std::nullopt;
    }
    ebur128_loudness_global(state.get(), &loudness.integrated);
    ebur128_loudness_range(state.get(), &loudness.range);
    double peak = 0;
    for (std::size_t i = 0; i < channels.size(); ++i) {
        double channelPeak = 0;
        if (ebur128_true_peak(state.get(), unsigned(i), &channelPeak) == EBUR128_SUCCESS) peak = std::max(peak, channelPeak);
    }
    loudness.maxTruePeak = 20.0 * std::log10(peak);
    return loudness;
}
