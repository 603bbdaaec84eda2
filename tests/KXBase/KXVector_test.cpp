#include "KXBase/KXVector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace {

// The sums' rule written out once more: runs of 256 samples, each in sixteen single-precision
// lanes (lane k adding samples 16j + k of the run), the lanes widened and added as
// t_k = (l_k + l_k+8) + (l_k+4 + l_k+12), then (t_0 + t_2) + (t_1 + t_3); a run's samples past its
// last whole group added one by one in double; the runs' sums added in order.
double referenceSum(const std::vector<float>& samples, bool squares) {
    double sum = 0.0;
    for (std::size_t run = 0; run < samples.size(); run += 256) {
        const std::size_t end = std::min(samples.size(), run + 256), whole = run + (end - run) / 16 * 16;
        float lanes[16] = {};
        for (std::size_t i = run; i < whole; ++i) {
            const float x = samples[i];
            const volatile float term = squares ? x * x : std::fabs(x);  // rounded before it is added
            lanes[(i - run) % 16] += term;
        }
        double t[4];
        for (int k = 0; k < 4; ++k)
            t[k] = (double(lanes[k]) + double(lanes[k + 8])) + (double(lanes[k + 4]) + double(lanes[k + 12]));
        double runSum = (t[0] + t[2]) + (t[1] + t[3]);
        for (std::size_t i = whole; i < end; ++i) {
            const double x = samples[i];
            runSum += squares ? x * x : std::fabs(x);
        }
        sum += runSum;
    }
    return sum;
}

}  // namespace

// Runs a check once with every instruction set (the processor's widest, then narrower ones: on a
// processor without them the routines fall back and the check runs again on what it has).
template <typename Check>
void forEachInstructionSet(Check check) {
    for (const auto set :
         {KXVector::Instructions::avx512, KXVector::Instructions::avx2, KXVector::Instructions::sse2}) {
        SCOPED_TRACE(int(set));
        KXVector::limitInstructions(set);
        check();
    }
    KXVector::limitInstructions(KXVector::Instructions::avx512);
}

std::vector<float> differentSizes(std::size_t count, std::uint32_t seed) {
    std::vector<float> samples(count);
    for (float& x : samples) {
        seed = seed * 1664525u + 1013904223u;
        // Values of very different sizes, so that the order of the additions shows.
        x = float(std::int32_t(seed)) * std::ldexp(1.0f, int(seed % 40) - 50);
    }
    return samples;
}

TEST(KXVectorSums, RunsOfSixteenSingleLanesInAFixedOrderWhateverTheLengthAndInstructions) {
    forEachInstructionSet([] {
        for (const std::size_t count : {0, 1, 15, 16, 17, 31, 255, 256, 257, 271, 1000, 30720}) {
            SCOPED_TRACE(count);
            const std::vector<float> samples = differentSizes(count, 99);
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
        // Whole runs many at a time (in pairs and alone) give each run's own statistics, and
        // with them the sign bits, −0.0 among the samples (NaN: KXVectorSigns).
        for (const std::uint32_t runs : {1u, 2u, 3u, 7u}) {
            SCOPED_TRACE(runs);
            std::vector<float> samples = differentSizes(runs * 256, runs);
            samples[5] = -0.0f, samples[18] = 0.0f;
            std::vector<KXVector::Statistics> results(runs);
            std::vector<std::uint16_t> signs(runs * 16, 0xAAAA), expected(runs * 16);
            KXVector::statisticsOfRuns(samples.data(), runs, results.data());
            for (std::uint32_t r = 0; r < runs; ++r) {
                const std::vector<float> run(samples.begin() + r * 256, samples.begin() + (r + 1) * 256);
                EXPECT_EQ(results[r].sumOfSquares, referenceSum(run, true));
                EXPECT_EQ(results[r].sumOfMagnitudes, referenceSum(run, false));
                EXPECT_EQ(results[r].maximumMagnitude, KXVector::statistics(run.data(), 256).maximumMagnitude);
            }
            std::vector<KXVector::Statistics> again(runs);
            KXVector::statisticsOfRuns(samples.data(), runs, again.data(), signs.data());
            KXVector::negativeBits(samples.data(), runs * 256, expected.data());
            for (std::uint32_t r = 0; r < runs; ++r) EXPECT_EQ(again[r].sumOfSquares, results[r].sumOfSquares);
            EXPECT_EQ(signs, expected);
            EXPECT_EQ(expected[0] & 0x0020, 0) << "−0.0 is not below 0.0";
        }
    });
    // Single-precision lanes lose nothing a single-precision result shows: a minute of a sine.
    std::vector<float> sine(2646000);
    double exact = 0.0;
    for (std::size_t i = 0; i < sine.size(); ++i) {
        sine[i] = float(0.7 * std::sin(0.0123 * double(i)));
        exact += double(sine[i]) * sine[i];
    }
    EXPECT_NEAR(KXVector::sumOfSquares(sine.data(), std::uint32_t(sine.size())) / exact, 1.0, 1e-7);
    // A NaN sample is passed over by the maximum, wherever it lies.
    std::vector<float> withNaN(40, 0.25f);
    withNaN[3] = std::numeric_limits<float>::quiet_NaN();
    withNaN[38] = std::numeric_limits<float>::quiet_NaN();
    withNaN[20] = -0.5f;
    forEachInstructionSet([&] { EXPECT_EQ(KXVector::statistics(withNaN.data(), 40).maximumMagnitude, 0.5f); });
}

TEST(KXVectorSigns, FramesWithAnOddCountOfNegativeSamples) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    // −0.0 and NaN (of either sign) are not below 0.0.
    const std::vector<float> a0 = {-1, -0.0f, nan, -nan, 1, -2, -3, 0, -1, 2, -1, -1, 5, -5, -0.0f, -7, -1, -1, -1};
    const std::vector<float> b0 = {1, -1, -1, 1, -0.0f, -2, 3, nan, -1, 2, 1, -1, -5, 5, -0.0f, -7, 1, -1, 1};
    const std::vector<float> c0 = {-1, -1, -1, -1, -1, -1, -1, -1, -1, 1, 1, 1, 1, 1, 1, 1, -1, 1, -1};
    // Five times over (95 frames), the channels shifted against each other, so that the wide
    // loops (8 and 64 frames at a time) and what is left after them all count.
    std::vector<float> a, b, c;
    for (int k = 0; k < 5; ++k) {
        a.insert(a.end(), a0.begin(), a0.end());
        b.insert(b.end(), b0.begin() + k, b0.end()), b.insert(b.end(), b0.begin(), b0.begin() + k);
        c.insert(c.end(), c0.rbegin(), c0.rend());
    }
    const float* channels[] = {a.data(), b.data(), c.data()};
    forEachInstructionSet([&] {
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
                std::vector<std::uint16_t> bits[3];
                const std::uint16_t* words[3];
                for (std::uint32_t ch = 0; ch < count; ++ch) {
                    bits[ch].resize((frames + 15) / 16);
                    KXVector::negativeBits(channels[ch], frames, bits[ch].data());
                    words[ch] = bits[ch].data();
                }
                EXPECT_EQ(KXVector::framesWithOddNegatives(words, count, frames), expected)
                    << count << " channels' sign bits, " << frames << " frames";
            }
    });
}
