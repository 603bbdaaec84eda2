#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "support/KXTestSupport.h"

namespace {

using Signal = std::function<float(std::uint32_t, std::uint32_t)>;

std::shared_ptr<KXAudioFile> fileOf(const KXTemporaryFolder& folder, std::uint32_t channels, std::uint32_t frames,
                                    const Signal& signal, std::uint32_t rate = 8000) {
    static int count = 0;
    auto file = KXAudioFile::audioFileWithPath(KXTestSamples::writeSignalFile(
        folder, "s" + std::to_string(count++) + ".wav", channels, rate, frames, true, signal));
    EXPECT_TRUE(file);
    return file;
}

std::vector<std::pair<std::uint32_t, std::uint32_t>> framesOf(const std::vector<KXRange>& ranges) {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> frames;
    for (const KXRange& range : ranges) frames.emplace_back(range.sampleStart(), range.sampleEnd());
    return frames;
}

// Bursts of a 0.8 sine between `on` and `off` frames (several pairs), silence elsewhere.
Signal bursts(std::vector<std::pair<std::uint32_t, std::uint32_t>> spans) {
    return [spans](std::uint32_t f, std::uint32_t) {
        for (const auto& [on, off] : spans)
            if (f >= on && f < off) return 0.8f * float(std::sin(f * 0.3));
        return 0.0f;
    };
}

}  // namespace

TEST(KXAudioFileThresholds, LevelsWithAndWithoutOverviews) {
    KXTemporaryFolder folder;
    auto silent = fileOf(folder, 1, 5000, [](std::uint32_t, std::uint32_t) { return 0.0f; });
    EXPECT_EQ(silent->startAtThreshold(0.1f), 4294967295u);
    EXPECT_EQ(silent->endAtThreshold(0.1f), 0u);

    const Signal signal = [](std::uint32_t f, std::uint32_t c) {
        if (c == 0 && (f == 1000 || f == 3999)) return 0.5f;
        if (c == 1 && (f == 1500 || f == 4500)) return -0.6f;
        return 0.1f;
    };
    for (const bool analysed : {false, true}) {
        SCOPED_TRACE(analysed);
        auto file = fileOf(folder, 2, 50000, signal);
        if (analysed) {
            ASSERT_TRUE(file->analyze(false));
        }
        EXPECT_EQ(file->startAtThreshold(0.5f), 1000u);
        EXPECT_EQ(file->startAtThreshold(0.55f), 1500u);
        EXPECT_EQ(file->startAtThreshold(0.5f, KXIndexSet{1}), 1500u);
        EXPECT_EQ(file->endAtThreshold(0.5f), 4501u);
        EXPECT_EQ(file->endAtThreshold(0.5f, KXIndexSet{0}), 4000u);
        EXPECT_DOUBLE_EQ(file->firstPositionOverThreshold(0.5f), 1000.0 / 8000);
        EXPECT_DOUBLE_EQ(file->lastPositionOverThreshold(0.7f), 0.0);
    }
}

TEST(KXAudioFileThresholds, ZeroCrossingsAtTheEdges) {
    KXTemporaryFolder folder;
    // + + + 0 + + - - - +: a zero at 3, a sign change at 6 and at the last frame.
    const float values[] = {0.5f, 0.4f, 0.3f, 0.0f, 0.2f, 0.1f, -0.1f, -0.2f, -0.3f, 0.4f};
    auto file = fileOf(folder, 1, 10, [&](std::uint32_t f, std::uint32_t) { return values[f]; });
    EXPECT_EQ(file->nextZeroCross(0), 3u);  // an exact 0.0 is a crossing by itself
    EXPECT_EQ(file->nextZeroCross(4), 6u);
    EXPECT_EQ(file->nextZeroCross(6), 10u);  // the only crossing is the last frame: the frame count
    EXPECT_EQ(file->nextZeroCross(9), 10u);  // at the last frame
    EXPECT_EQ(file->previousZeroCross(0), 0u);
    EXPECT_EQ(file->previousZeroCross(8), 6u);   // the frame after the crossing at 5/6
    EXPECT_EQ(file->previousZeroCross(10), 9u);  // from the frame count: starts at the last frame
    EXPECT_EQ(file->previousZeroCross(2), 0u);
    EXPECT_EQ(file->nearestZeroCross(5), 6u);  // 5 − 5 (previous) against 6 − 5: next is closer
    EXPECT_EQ(file->nearestZeroCross(1), 0u);
    EXPECT_DOUBLE_EQ(file->positionOfZeroCrossingAfter(4.0 / 8000), 6.0 / 8000);
    // With two channels, a crossing on either counts.
    auto pair = fileOf(folder, 2, 10, [&](std::uint32_t f, std::uint32_t c) { return c == 0 ? 0.5f : (f < 7 ? 0.3f : -0.3f); });
    EXPECT_EQ(pair->nextZeroCross(0), 7u);
    EXPECT_EQ(pair->nextZeroCross(0, KXIndexSet{0}), 10u);
}

TEST(KXAudioFileThresholds, ThresholdRangesOpenAtTheAttackAndCloseAfterTheInterval) {
    KXTemporaryFolder folder;
    auto file = fileOf(folder, 2, 40000, bursts({{2560, 7680}, {20480, 25600}, {35840, 40000}}));
    ASSERT_TRUE(file->analyze(false));
    // The interval of 0.1 s is 800 frames: reached after 4 blocks of silence (1024 frames).
    EXPECT_EQ(framesOf(file->thresholdArrayAtAttackThreshold(0.5f, 0.1f, 0.1f, false)),
              (std::vector<std::pair<std::uint32_t, std::uint32_t>>{{2560, 7680 + 4 * 256}, {20480, 25600 + 4 * 256},
                                                                    {35840, 40000}}));  // open at the end
    // The instructions count the interval in whole blocks: lround(3.125) = 3.
    EXPECT_EQ(framesOf(file->rangesForThresholdsWithInstructions({{"attack", 0.5}, {"release", 0.1}, {"interval", 0.1}})),
              (std::vector<std::pair<std::uint32_t, std::uint32_t>>{{2560, 7680 + 3 * 256}, {20480, 25600 + 3 * 256},
                                                                    {35840, 40000}}));
    // Sensitivity replaces the levels (0.5: -33 dB, closing after 0.075 s = 2 blocks); a range.
    const KXDictionary sensitive{{"sensitivity", 0.5}, {"attack", 2.0}, {"range", KXArray{0.0, 2.0}}};
    EXPECT_EQ(framesOf(file->rangesForThresholdsWithInstructions(sensitive)),
              (std::vector<std::pair<std::uint32_t, std::uint32_t>>{{2560, 7680 + 2 * 256}}));
    // A sound that never falls to the release level makes one range to the end of the file.
    auto loud = fileOf(folder, 1, 10000, [](std::uint32_t f, std::uint32_t) { return f < 1000 ? 0.0f : 0.9f; });
    ASSERT_TRUE(loud->analyze(false));
    EXPECT_EQ(framesOf(loud->rangesForThresholdsWithInstructions({{"attack", 0.5}, {"release", 0.1}})),
              (std::vector<std::pair<std::uint32_t, std::uint32_t>>{{768, 10000}}));
}

TEST(KXAudioFileThresholds, EnergyOnsetsKeepTheirGap) {
    KXTemporaryFolder folder;
    const std::uint32_t rate = 8000;
    // Bursts at 0 (inside the first 0.075 s: never an onset), 0.5 s, 0.52 s (within the gap) and 1 s.
    auto file = fileOf(folder, 1, rate * 2, bursts({{0, 1024}, {4096, 4100}, {4096 + 160, 6000}, {8192, 10000}}), rate);
    std::vector<std::uint32_t> onsets;
    for (const KXRange& range : file->rangesForEnergyWithInstructions({})) {
        EXPECT_EQ(range.start(), range.end());
        onsets.push_back(range.sampleStart());
    }
    EXPECT_EQ(onsets, (std::vector<std::uint32_t>{4096, 8192}));
    // At zero crossings: moved onto the crossing next to the step.
    for (const KXRange& range : file->rangesForEnergyWithInstructions({{"atZeroCross", true}}))
        EXPECT_EQ(file->nearestZeroCross(range.sampleStart()), range.sampleStart());

    // Bands: over a -60 dB noise floor, a low thump (fading out, so that its end is no click) and
    // a high click are found where they start.
    auto bands = fileOf(folder, 1, 48000 * 2, [](std::uint32_t f, std::uint32_t) {
        const float noise = 0.001f * (float((f * 1103515245u + 12345u) >> 16 & 0x7FFF) / 16384.0f - 1.0f);
        if (f >= 24576 && f < 24576 + 4800)
            return noise + 0.8f * std::min(1.0f, float(24576 + 4800 - f) / 2400.0f) *
                               float(std::sin(2 * std::numbers::pi * 60.0 * f / 48000));
        if (f >= 65536 && f < 65536 + 480) return noise + 0.5f * float(std::sin(2 * std::numbers::pi * 12000.0 * f / 48000));
        return noise;
    }, 48000);
    std::vector<std::uint32_t> found;
    for (const KXRange& range : bands->rangesForEnergyBandsWithInstructions({{"sensitivity", 0.9}}))
        found.push_back(range.sampleStart());
    EXPECT_EQ(found, (std::vector<std::uint32_t>{24576, 65536}));
    // At full sensitivity the high band takes any rise of its energy (a threshold of 1), the noise's too.
    EXPECT_GT(bands->rangesForEnergyBandsWithInstructions({}).size(), found.size());
}
