#include "KXBase/KXVector.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace {

// The sums' rule written out once more: sixteen lanes, lane k adding samples 16j + k, the lanes
// added pairwise, then the samples past the last whole group one by one.
double referenceSum(const std::vector<float>& samples, bool squares) {
    const std::size_t whole = samples.size() / 16 * 16;
    double lanes[16] = {};
    for (std::size_t i = 0; i < whole; ++i) {
        const double x = samples[i];
        lanes[i % 16] += squares ? x * x : std::fabs(x);
    }
    double pairs[8];
    for (int k = 0; k < 8; ++k) pairs[k] = lanes[2 * k] + lanes[2 * k + 1];
    const double quads[4] = {pairs[0] + pairs[1], pairs[2] + pairs[3], pairs[4] + pairs[5], pairs[6] + pairs[7]};
    double sum = (quads[0] + quads[1]) + (quads[2] + quads[3]);
    for (std::size_t i = whole; i < samples.size(); ++i) {
        const double x = samples[i];
        sum += squares ? x * x : std::fabs(x);
    }
    return sum;
}

}  // namespace

TEST(KXVectorSums, SixteenLanesInAFixedOrderWhateverTheLength) {
    std::uint32_t state = 99;
    for (const std::size_t count : {0, 1, 15, 16, 17, 31, 255, 256, 1000}) {
        SCOPED_TRACE(count);
        std::vector<float> samples(count);
        for (float& x : samples) {
            state = state * 1664525u + 1013904223u;
            // Values of very different sizes, so that the order of the additions shows.
            x = float(std::int32_t(state)) * std::ldexp(1.0f, int(state % 40) - 50);
        }
        const KXVector::Statistics s = KXVector::statistics(samples.data(), std::uint32_t(count));
        EXPECT_EQ(s.sumOfSquares, referenceSum(samples, true));
        EXPECT_EQ(s.sumOfMagnitudes, referenceSum(samples, false));
        EXPECT_EQ(KXVector::sumOfSquares(samples.data(), std::uint32_t(count)), s.sumOfSquares);
        EXPECT_EQ(KXVector::sumOfMagnitudes(samples.data(), std::uint32_t(count)), s.sumOfMagnitudes);
        float largest = 0;
        for (const float x : samples) largest = std::max(largest, std::fabs(x));
        EXPECT_EQ(s.maximumMagnitude, largest);
        EXPECT_EQ(KXVector::maximumMagnitude(samples.data(), std::uint32_t(count)), largest);
    }
    // A NaN sample is passed over by the maximum, wherever it lies.
    std::vector<float> withNaN(40, 0.25f);
    withNaN[3] = std::numeric_limits<float>::quiet_NaN();
    withNaN[38] = std::numeric_limits<float>::quiet_NaN();
    withNaN[20] = -0.5f;
    EXPECT_EQ(KXVector::statistics(withNaN.data(), 40).maximumMagnitude, 0.5f);
}

TEST(KXVectorSigns, FramesWithAnOddCountOfNegativeSamples) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // −0.0 and NaN (of either sign) are not below 0.0.
    const std::vector<float> a = {-1, -0.0f, nan, -nan, 1, -2, -3, 0, -1, 2, -1, -1, 5, -5, -0.0f, -7, -1, -1, -1};
    const std::vector<float> b = {1, -1, -1, 1, -0.0f, -2, 3, nan, -1, 2, 1, -1, -5, 5, -0.0f, -7, 1, -1, 1};
    const std::vector<float> c = {-1, -1, -1, -1, -1, -1, -1, -1, -1, 1, 1, 1, 1, 1, 1, 1, -1, 1, -1};
    const float* channels[] = {a.data(), b.data(), c.data()};
    for (std::uint32_t count = 1; count <= 3; ++count)
        for (std::uint32_t frames = 0; frames <= a.size(); ++frames) {
            std::uint32_t expected = 0;
            for (std::uint32_t f = 0; f < frames; ++f) {
                bool odd = false;
                for (std::uint32_t ch = 0; ch < count; ++ch) odd ^= channels[ch][f] < 0.0f;
                expected += odd;
            }
            EXPECT_EQ(KXVector::framesWithOddNegatives(channels, count, frames), expected)
                << count << " channels, " << frames << " frames";
        }
}
