// What the library measures agrees with what the tools measure on the same files: ffmpeg's
// ebur128 filter (integrated loudness and true peak) and sox's stat effect (levels).

#include <gtest/gtest.h>

#include <cmath>
#include <regex>
#include <string>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "interop/KXInteropSupport.h"
#include "support/KXTestSupport.h"

using namespace KXInterop;

namespace {

// The number after `label` in ffmpeg's ebur128 summary.
double summaryValue(const std::string& summary, const std::string& label) {
    std::smatch match;
    const std::regex pattern(label + R"(\s+(-?[0-9.]+))");
    return std::regex_search(summary, match, pattern) ? std::stod(match[1]) : NAN;
}

}  // namespace

TEST(KXInteropMeasuring, LoudnessAgreesWithFfmpegsEbur128Filter) {
    KXTemporaryFolder folder;
    // True peaks are compared on tones only: two oversampling filters disagree on noise by a few
    // tenths of a dB, as they may.
    const struct {
        const char* name;
        const char* synth;
        bool tonal;
    } signals[] = {
        {"tone.wav", "-c 2 -r 48000 -b 24 %s synth 12 sine 1000 gain -18", true},
        {"noise.wav", "-c 2 -r 44100 -b 16 %s synth 12 pinknoise gain -12", false},
        {"sweep.wav", "-c 1 -r 48000 -b 24 %s synth 12 sine 100-8000 gain -6", true},
        {"surround.wav", "-c 6 -r 48000 -b 24 %s synth 12 pinknoise gain -20", false},
    };
    for (const auto& signal : signals) {
        SCOPED_TRACE(signal.name);
        const std::string path = folder.pathFor(signal.name);
        char command[256];
        std::snprintf(command, sizeof command, signal.synth, quoted(path).c_str());
        ASSERT_TRUE(run("sox -R -n " + std::string(command)));  // -R: the same noise every run
        const std::string log =
            output("(ffmpeg -nostats -hide_banner -i " + quoted(path) + " -af ebur128=peak=true -f null - 2>&1)");
        const std::string summary = log.substr(std::min(log.find("Summary:"), log.size()));
        auto file = KXAudioFile::audioFileWithPath(path);
        ASSERT_TRUE(file);
        const auto loudness = file->loudnessForRange(KXRange::rangeWithAllTime(), file->channelSet());
        ASSERT_TRUE(loudness);
        EXPECT_NEAR(loudness->integrated, summaryValue(summary, "I:"), 0.1);
        if (signal.tonal) EXPECT_NEAR(loudness->maxTruePeak, summaryValue(summary, "Peak:"), 0.2);
        else EXPECT_NEAR(loudness->maxTruePeak, summaryValue(summary, "Peak:"), 0.6);
    }
}

TEST(KXInteropMeasuring, LevelsAgreeWithSoxStat) {
    KXTemporaryFolder folder;
    const std::string path = folder.pathFor("levels.wav");
    ASSERT_TRUE(run("sox -n -c 1 -r 44100 -b 16 " + quoted(path) + " synth 3 sine 300 gain -9 dcshift 0.05"));
    const std::string stat = output("(sox " + quoted(path) + " -n stat 2>&1)");
    auto file = KXAudioFile::audioFileWithPath(path);
    ASSERT_TRUE(file);
    const auto report = file->statisticsForRange(KXRange::rangeWithAllTime(), file->channelSet());
    ASSERT_TRUE(report);
    const auto first = [&](const char* key) { return report->objectForKey(key).array().front().doubleValue(); };
    EXPECT_NEAR(first("\004Positive Max"), summaryValue(stat, "Maximum amplitude:"), 1e-4);
    EXPECT_NEAR(first("\006Negative Max"), summaryValue(stat, "Minimum amplitude:"), 1e-4);
    EXPECT_NEAR(first("\003RMS Power"), summaryValue(stat, "RMS     amplitude:"), 1e-4);
    EXPECT_NEAR(first("\010DC Offset"), summaryValue(stat, "Mean    amplitude:"), 1e-4);
}
