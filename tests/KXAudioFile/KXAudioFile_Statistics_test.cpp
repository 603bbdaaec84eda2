#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "support/KXTestSupport.h"

namespace {

using Signal = std::function<float(std::uint32_t frame, std::uint32_t channel)>;

// A WAVE file of the signal, opened.
std::shared_ptr<KXAudioFile> fileOf(const KXTemporaryFolder& folder, std::uint32_t channels, std::uint32_t rate,
                                    std::uint32_t frames, bool floats, const Signal& signal) {
    static int count = 0;
    auto file = KXAudioFile::audioFileWithPath(KXTestSamples::writeSignalFile(
        folder, "signal" + std::to_string(count++) + ".wav", channels, rate, frames, floats, signal));
    EXPECT_TRUE(file);
    return file;
}

// A tone of four harmonics (amplitudes 1, 1/2, 1/3, 1/4), as instruments have them.
Signal tone(double frequency, std::uint32_t rate) {
    return [=](std::uint32_t frame, std::uint32_t) {
        double x = 0;
        for (int k = 1; k <= 4; ++k) x += std::sin(2 * std::numbers::pi * frequency * k * frame / rate) / k;
        return float(0.4 * x);
    };
}

std::vector<double> numbers(const KXDictionary& report, const char* key) {
    std::vector<double> values;
    for (const KXValue& value : report.objectForKey(key).array()) values.push_back(value.doubleValue());
    return values;
}

class Answering : public KXProgressDelegate {
public:
    explicit Answering(std::int32_t answer) : answer_(answer) {}
    std::int32_t update(double) override { return ++updates, answer_; }
    int updates = 0;

private:
    std::int32_t answer_;
};

}  // namespace

TEST(KXAudioFileStatistics, SilenceAndAnAllNegativeSignal) {
    KXTemporaryFolder folder;
    auto silent = fileOf(folder, 1, 44100, 10000, false, [](std::uint32_t, std::uint32_t) { return 0.0f; });
    const auto report = silent->statisticsForRange(KXRange::rangeWithAllTime(), silent->channelSet());
    ASSERT_TRUE(report);
    for (const char* key : {"\001Peak", "\002Peak Position", "\003RMS Power", "\004Positive Max", "\005Positive Max Position",
                            "\006Negative Max", "\007Negative Max Position", "\010DC Offset", "Clipped"})
        EXPECT_EQ(numbers(*report, key), std::vector<double>{0.0}) << key;
    EXPECT_EQ(report->objectForKey("Channels").array().front().string(), silent->channelsList()->channel(0)->name());

    // Below zero throughout: the positive maximum stays 0; the negative one is at its frame.
    auto negative = fileOf(folder, 2, 8000, 9000, true, [](std::uint32_t f, std::uint32_t c) {
        return f == 5000 + c ? -0.75f : -0.25f - 0.1f * float(c);
    });
    const auto low = negative->statisticsForRange(KXRange::rangeWithAllTime(), negative->channelSet());
    ASSERT_TRUE(low);
    EXPECT_EQ(numbers(*low, "\004Positive Max"), (std::vector<double>{0.0, 0.0}));
    EXPECT_EQ(numbers(*low, "\006Negative Max"), (std::vector<double>{-0.75, -0.75}));
    EXPECT_EQ(numbers(*low, "\007Negative Max Position"), (std::vector<double>{5000.0 / 8000, 5001.0 / 8000}));
    EXPECT_EQ(numbers(*low, "\002Peak Position"), (std::vector<double>{double(float(5000.0 / 8000)), double(float(5001.0 / 8000))}));
    EXPECT_NEAR(numbers(*low, "\010DC Offset")[1], -0.35, 1e-4);
    EXPECT_NEAR(numbers(*low, "\003RMS Power")[0], 0.25, 1e-3);

    // Positions count from the file's start, not the range's.
    const auto part = negative->statisticsForRange(KXRange::rangeWithStart(0.5, 1.0), KXIndexSet{1});
    EXPECT_EQ(numbers(*part, "\007Negative Max Position"), std::vector<double>{5001.0 / 8000});
    EXPECT_DOUBLE_EQ(part->objectForKey("Start").doubleValue(), 0.5);
}

TEST(KXAudioFileStatistics, ClippedSamplesCountFromTheThirdOfARunAfterTheBlocksPeak) {
    KXTemporaryFolder folder;
    // From frame 100 on, runs of 5 samples of -32768 (the block's peak, 1.0) alternate with 5 of
    // silence: 3 of each run count. Before them a run at the clip level (32767) that the scan
    // never sees: it starts at the block's peak.
    auto file = fileOf(folder, 1, 44100, 4096, false, [](std::uint32_t f, std::uint32_t) {
        if (f >= 10 && f < 20) return 1.0f;
        if (f < 100 || f >= 100 + 10 * 20) return 0.0f;
        return (f - 100) % 10 < 5 ? -1.0f : 0.0f;
    });
    const auto report = file->statisticsForRange(KXRange::rangeWithAllTime(), file->channelSet());
    ASSERT_TRUE(report);
    EXPECT_EQ(numbers(*report, "\001Peak"), std::vector<double>{1.0});
    EXPECT_EQ(numbers(*report, "\002Peak Position"), std::vector<double>{double(float(100.0 / 44100))});
    EXPECT_EQ(numbers(*report, "Clipped"), std::vector<double>{3.0 * 20});

    // A run carries into the next block only when that block's peak is its first sample.
    auto across = fileOf(folder, 1, 44100, 8192, false, [](std::uint32_t f, std::uint32_t) {
        return f >= 4094 && f < 4098 ? -1.0f : 0.0f;
    });
    const auto carried = across->statisticsForRange(KXRange::rangeWithAllTime(), across->channelSet());
    EXPECT_EQ(numbers(*carried, "Clipped"), std::vector<double>{2.0});  // the 3rd and 4th samples
}

TEST(KXAudioFileStatistics, MaximumRMSAndTheLoudestPoint) {
    KXTemporaryFolder folder;
    auto file = fileOf(folder, 2, 48000, 6000, true, [](std::uint32_t f, std::uint32_t c) {
        if (c == 1 && f == 4321) return -0.9f;
        return 0.5f * float(std::sin(f * 0.05));
    });
    const KXIndexSet both{0, 1};
    const float one = file->rmsFrom(0, 6000, KXIndexSet{0});
    EXPECT_NEAR(one, 0.5 / std::sqrt(2.0), 1e-3);
    // Deliberate: divided by frames, not frames × channels.
    auto twins = fileOf(folder, 2, 48000, 6000, true, [](std::uint32_t f, std::uint32_t) { return 0.5f * float(std::sin(f * 0.05)); });
    EXPECT_NEAR(twins->rmsFrom(0, 6000, both), std::sqrt(2.0f) * twins->rmsFrom(0, 6000, KXIndexSet{0}), 1e-5);
    EXPECT_FLOAT_EQ(file->maximumFrom(0, 6000, both), 0.9f);
    EXPECT_FLOAT_EQ(file->maximumFrom(0, 4321, both), file->maximumFrom(0, 4321, KXIndexSet{0}));
    EXPECT_FLOAT_EQ(file->maximumOfRange(KXRange::rangeWithAllTime(), KXIndexSet{1}), 0.9f);

    const KXDictionary loudest = file->maximumStatistics();
    EXPECT_FLOAT_EQ(loudest.objectForKey("value").floatValue(), 0.9f);
    EXPECT_EQ(loudest.objectForKey("frame").intValue(), 4321);
    EXPECT_EQ(loudest.objectForKey("channel").intValue(), 1);
}

TEST(KXAudioFileStatistics, PitchOfTonesOverSeveralOctaves) {
    KXTemporaryFolder folder;
    // A (55 … 880 Hz) is 21, 33, 45, 57, 69; C4 (261.6 Hz) is 48; E (164.8 Hz) is 40.
    for (const auto& [frequency, note] : {std::pair{55.0, 21}, {110.0, 33}, {220.0, 45}, {440.0, 57}, {880.0, 69},
                                          {261.63, 48}, {164.81, 40}}) {
        SCOPED_TRACE(frequency);
        auto file = fileOf(folder, 1, 44100, 44100, true, tone(frequency, 44100));
        EXPECT_EQ(file->pitchFrom(0, 44100, file->channelSet()), note);
        const auto report = file->statisticsForRange(KXRange::rangeWithAllTime(), file->channelSet());
        EXPECT_EQ(numbers(*report, "Pitch"), std::vector<double>{double(note)});
    }
}

TEST(KXAudioFileStatistics, PitchOfASpectrumTakesTheOctaveBelowWhenItHoldsAPeak) {
    KXTemporaryFolder folder;
    auto file = fileOf(folder, 1, 44100, 10, true, [](std::uint32_t, std::uint32_t) { return 0.0f; });
    // One harmonic series on bin 41 (about 441 Hz): note 57.
    std::vector<float> spectrum(2048, 0.0f);
    spectrum[41] = spectrum[82] = spectrum[123] = 1.0f;
    EXPECT_EQ(file->pitchForFFT(spectrum.data(), 2048), 57);
    // The largest product at bin 100, with a tenth of it or more at bin 50: the octave below.
    std::vector<float> octave(2048, 1.0f);
    octave[100] = 100.0f, octave[200] = 10.0f, octave[50] = 2.0f;
    EXPECT_EQ(file->pitchForFFT(octave.data(), 2048), 60);  // bin 50, 538 Hz
    octave = std::vector<float>(2048, 1.0f);
    octave[100] = 100.0f, octave[200] = 10.0f, octave[50] = 1.05f;  // under a tenth: bin 100 stays
    EXPECT_EQ(file->pitchForFFT(octave.data(), 2048), 72);
    // Bins below 5 are never chosen.
    std::vector<float> low(2048, 0.0f);
    low[0] = low[1] = low[2] = 1000.0f;
    EXPECT_EQ(file->pitchForFFT(low.data(), 2048), std::int32_t(std::round(float(12 * std::log2(44100.0 / 4096 * 5 / 440)))) + 57);
}

TEST(KXAudioFileStatistics, OnlyAnExplicitStopStopsTheReport) {
    KXTemporaryFolder folder;
    auto file = fileOf(folder, 1, 8000, 20000, true, tone(440, 8000));
    Answering other(0);
    file->setProgressDelegate(&other);
    EXPECT_TRUE(file->statisticsForRange(KXRange::rangeWithAllTime(), file->channelSet()));
    EXPECT_EQ(other.updates, 5);  // one per 4096-frame block
    Answering stop(KXProgressDelegate::kStop);
    file->setProgressDelegate(&stop);
    EXPECT_FALSE(file->statisticsForRange(KXRange::rangeWithAllTime(), file->channelSet()));
    EXPECT_EQ(stop.updates, 1);
    // The analysis pass goes on only on kGoOn.
    file->setProgressDelegate(&other);
    EXPECT_FALSE(file->analyzeRange(KXRange::rangeWithAllTime(), file->channelSet()));
    EXPECT_NE(file->channelsList()->analysisState(), 1);
    file->setProgressDelegate(nullptr);
}

TEST(KXAudioFileStatistics, LoudnessOfTheEBUReferenceSignals) {
    KXTemporaryFolder folder;
    // A 1 kHz sine at −23 dBFS in both channels of a stereo file reads −23.0 LUFS (EBU Tech 3341,
    // case 1); at −33 dBFS, −33.0 LUFS (case 2). A steady tone has no loudness range.
    for (const double level : {-23.0, -33.0}) {
        const float amplitude = float(std::pow(10.0, level / 20));
        auto file = fileOf(folder, 2, 48000, 48000 * 20, true, [=](std::uint32_t f, std::uint32_t) {
            return amplitude * float(std::sin(2 * std::numbers::pi * 1000.0 * f / 48000));
        });
        const auto loudness = file->loudnessForRange(KXRange::rangeWithAllTime(), file->channelSet());
        ASSERT_TRUE(loudness);
        EXPECT_NEAR(loudness->integrated, level, 0.1);
        EXPECT_NEAR(loudness->maxMomentary, level, 0.1);
        EXPECT_NEAR(loudness->maxShortTerm, level, 0.1);
        EXPECT_NEAR(loudness->range, 0.0, 0.1);
        EXPECT_NEAR(loudness->maxTruePeak, level, 0.2);
    }
    // Silence has no loudness.
    auto silent = fileOf(folder, 1, 48000, 48000, true, [](std::uint32_t, std::uint32_t) { return 0.0f; });
    const auto none = silent->loudnessForRange(KXRange::rangeWithAllTime(), silent->channelSet());
    ASSERT_TRUE(none);
    EXPECT_TRUE(std::isinf(none->integrated) && none->integrated < 0);
    EXPECT_FALSE(silent->loudnessForRange(KXRange::rangeWithAllTime(), KXIndexSet{}));
}
