#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "KXBase/KXHighpassFilter.h"
#include "KXBase/KXLowpassFilter.h"

namespace {

// The RMS gain of a filter on a steady sine, after it has settled.
double gainAt(KXBiquadFilter& filter, double frequency, double rate = 48000) {
    KXNativeAudioBuffer buffer(1, 48000);
    for (std::uint32_t i = 0; i < 48000; ++i) buffer.channel(0)[i] = float(std::sin(2 * std::numbers::pi * frequency * i / rate));
    filter.filter(buffer);
    double in = 0, out = 0;
    for (std::uint32_t i = 24000; i < 48000; ++i) {
        in += std::pow(std::sin(2 * std::numbers::pi * frequency * i / rate), 2);
        out += double(buffer.channel(0)[i]) * buffer.channel(0)[i];
    }
    return std::sqrt(out / in);
}

}  // namespace

TEST(KXBiquadFilter, ButterworthResponsesAndTheStateBetweenCalls) {
    KXLowpassFilter lowpass;
    lowpass.setSampleRate(48000);
    lowpass.setFrequency(100);
    EXPECT_NEAR(gainAt(lowpass, 1000), 1.0, 1e-6);  // inactive: unchanged (float samples)
    lowpass.setActive(true);
    EXPECT_NEAR(gainAt(lowpass, 100), std::sqrt(0.5), 0.01);        // −3 dB at the corner
    EXPECT_NEAR(20 * std::log10(gainAt(lowpass, 1000)), -40, 0.5);  // 12 dB per octave
    EXPECT_NEAR(gainAt(lowpass, 10), 1.0, 0.01);

    KXHighpassFilter highpass;
    highpass.setActive(true);
    highpass.setSampleRate(48000);
    highpass.setFrequency(8000);
    EXPECT_NEAR(gainAt(highpass, 8000), std::sqrt(0.5), 0.01);
    EXPECT_LT(gainAt(highpass, 500), 0.01);
    // A narrow bandwidth (in octaves) peaks at the corner.
    highpass.setBandwidth(0.16666667f);
    EXPECT_GT(gainAt(highpass, 8000), 5.0);

    // Two halves filtered one after the other equal the whole filtered at once.
    KXLowpassFilter whole, halves;
    for (KXBiquadFilter* filter : {static_cast<KXBiquadFilter*>(&whole), static_cast<KXBiquadFilter*>(&halves)}) {
        filter->setActive(true);
        filter->setSampleRate(8000);
        filter->setFrequency(300);
    }
    KXNativeAudioBuffer all(2, 1000), first(2, 500), second(2, 500);
    for (std::uint32_t c = 0; c < 2; ++c)
        for (std::uint32_t i = 0; i < 1000; ++i) {
            const float x = float(std::sin(i * 0.7 + c));
            all.channel(c)[i] = x;
            (i < 500 ? first : second).channel(c)[i % 500] = x;
        }
    whole.filter(all);
    halves.filter(first);
    halves.filter(second);
    for (std::uint32_t c = 0; c < 2; ++c)
        for (std::uint32_t i = 0; i < 1000; ++i)
            ASSERT_EQ(all.channel(c)[i], (i < 500 ? first : second).channel(c)[i % 500]) << c << " " << i;
}
