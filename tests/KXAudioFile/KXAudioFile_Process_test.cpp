#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <functional>
#include <numbers>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBase/KXAutomationEntry.h"
#include "KXBase/KXFFT.h"
#include "support/KXTestSupport.h"

namespace {

using Signal = std::function<float(std::uint32_t frame, std::uint32_t channel)>;
using Channels = std::vector<std::vector<float>>;

std::shared_ptr<KXAudioFile> fileOf(const KXTemporaryFolder& folder, std::uint32_t channels, std::uint32_t frames,
                                    const Signal& signal, std::uint32_t rate = 44100) {
    static int count = 0;
    auto file = KXAudioFile::audioFileWithPath(KXTestSamples::writeSignalFile(
        folder, "in" + std::to_string(count++) + ".wav", channels, rate, frames, true, signal));
    EXPECT_TRUE(file);
    return file;
}

using KXTestSamples::samplesOf;

// A float WAVE writer of `channels` channels (the operations that set the count change it).
std::shared_ptr<KXAudioFileWriter> floatWriter(const KXTemporaryFolder& folder, std::int32_t channels,
                                               std::int32_t rate = 44100) {
    auto writer = KXAudioFileWriter::writer();
    writer->setTempDirectory(folder.path());
    writer->setFormat(KXFourCC("WAVE"));
    writer->setIsFloatingPoint(true);
    writer->setDepth(32);
    writer->setRate(rate);
    writer->setChannels(channels);
    return writer;
}

// What the writer was given, saved and read back; its rate too.
struct Result {
    std::int32_t status;
    Channels samples;
    std::uint32_t rate = 0;
};

Result render(const KXTemporaryFolder& folder, KXAudioFileWriter& writer,
              const std::function<std::int32_t(KXAudioFileWriter&)>& operation) {
    static int count = 0;
    Result result{operation(writer), {}};
    const std::string path = folder.pathFor("out" + std::to_string(count++) + ".wav");
    EXPECT_TRUE(writer.saveToPath(path));
    auto file = KXAudioFile::audioFileWithPath(path);
    if (!file) return result;
    result.samples = samplesOf(*file);
    result.rate = file->rate();
    return result;
}

class Stopping : public KXProgressDelegate {
public:
    explicit Stopping(int after, std::int32_t answer = kStop) : after_(after), answer_(answer) {}
    void reset() override { ++resets; }
    std::int32_t update(double fraction) override {
        fractions.push_back(fraction);
        return int(fractions.size()) >= after_ ? answer_ : kGoOn;
    }
    std::vector<double> fractions;
    int resets = 0;

private:
    int after_;
    std::int32_t answer_;
};

Signal constant(float value) {
    return [=](std::uint32_t, std::uint32_t) { return value; };
}
Signal ramp() {
    return [](std::uint32_t f, std::uint32_t c) { return float(f % 1000) / 1000.0f - 0.5f + 0.01f * float(c); };
}

}  // namespace

TEST(KXAudioFileProcess, GainCopiesWithoutAGainAndStopsAfterTheFirstBuffer) {
    KXTemporaryFolder folder;
    auto file = fileOf(folder, 3, 70000, ramp());
    const Channels source = samplesOf(*file);

    auto copy = floatWriter(folder, 7);
    const Result copied = render(folder, *copy, [&](KXAudioFileWriter& w) { return file->changeAmplitude({}, w); });
    EXPECT_EQ(copied.status, KXProgressDelegate::kGoOn);
    EXPECT_EQ(copied.samples, source);

    KXAmplitudeInstructions half;
    half.gain = 0.5f, half.start = 100, half.end = 40000, half.channels = KXIndexSet{0, 2, 9};
    auto writer = floatWriter(folder, 1);
    const Result halved = render(folder, *writer, [&](KXAudioFileWriter& w) { return file->changeAmplitude(half, w); });
    ASSERT_EQ(halved.samples.size(), 2u);  // channels 0 and 2, packed; 9 is not the file's
    ASSERT_EQ(halved.samples[1].size(), 39900u);
    EXPECT_EQ(halved.samples[1][0], source[2][100] * 0.5f);
    EXPECT_EQ(halved.samples[0][39899], source[0][39999] * 0.5f);

    // A delegate that stops after the first buffer: one buffer written, the write ended.
    Stopping stop(1);
    file->setProgressDelegate(&stop);
    auto stopped = floatWriter(folder, 3);
    const Result partial = render(folder, *stopped, [&](KXAudioFileWriter& w) { return file->changeAmplitude({}, w); });
    EXPECT_EQ(partial.status, KXProgressDelegate::kStop);
    EXPECT_EQ(stop.resets, 1);
    ASSERT_EQ(partial.samples.size(), 3u);
    EXPECT_EQ(partial.samples[0].size(), file->readBufferFrames());

    // An end past the file stops at the file's end rather than reading nothing forever.
    KXAmplitudeInstructions beyond;
    beyond.end = 1000000;
    auto past = floatWriter(folder, 3);
    file->setProgressDelegate(file.get());
    EXPECT_EQ(render(folder, *past, [&](KXAudioFileWriter& w) { return file->changeAmplitude(beyond, w); }).samples[0].size(),
              70000u);
    // An end before the start reads one buffer from the start (the frame count is unsigned).
    KXAmplitudeInstructions backwards;
    backwards.start = 100, backwards.end = 50;
    auto once = floatWriter(folder, 3);
    const Result one = render(folder, *once, [&](KXAudioFileWriter& w) { return file->changeAmplitude(backwards, w); });
    ASSERT_EQ(one.samples[0].size(), file->readBufferFrames());
    EXPECT_EQ(one.samples[2][0], source[2][100]);
}

TEST(KXAudioFileProcess, CurveFadesFollowTheirFormulasAndNeverReachFullGain) {
    KXTemporaryFolder folder;
    auto file = fileOf(folder, 2, 1000, constant(1.0f));
    const auto faded = [&](std::int32_t type, float curve) {
        auto writer = floatWriter(folder, 9);
        return render(folder, *writer, [&](KXAudioFileWriter& w) {
            return file->fade(w, 200, 600, KXIndexSet{1}, type, curve);
        });
    };
    const Result linearIn = faded(0, 0.5f), linearOut = faded(1, 0.5f), square = faded(0, 1.0f), hump = faded(0, 0.0f);
    ASSERT_EQ(linearIn.samples.size(), 1u);
    ASSERT_EQ(linearIn.samples[0].size(), 400u);
    EXPECT_EQ(linearIn.samples[0][0], 0.0f);
    EXPECT_FLOAT_EQ(linearIn.samples[0][399], 399.0f / 400.0f);
    for (std::uint32_t i : {0u, 1u, 100u, 250u, 399u}) {
        const float t = float(i) / 400.0f;
        EXPECT_FLOAT_EQ(linearIn.samples[0][i], t) << i;
        EXPECT_FLOAT_EQ(linearOut.samples[0][i], 1 - t) << i;
        EXPECT_FLOAT_EQ(square.samples[0][i], t * t) << i;
        EXPECT_FLOAT_EQ(hump.samples[0][i], 2 * t - t * t) << i;
    }
    // Any other type writes nothing and answers the first frame.
    const Result other = faded(2, 0.5f);
    EXPECT_EQ(other.status, 200);
    EXPECT_TRUE(other.samples.empty() || other.samples[0].empty());

    // Progress is t after every frame; a stop keeps the frames up to the one that stopped it.
    Stopping stop(10);
    file->setProgressDelegate(&stop);
    auto writer = floatWriter(folder, 1);
    const Result cut = render(folder, *writer, [&](KXAudioFileWriter& w) { return file->fade(w, 0, 1000, KXIndexSet{0}, 0, 0.5f); });
    EXPECT_EQ(cut.status, KXProgressDelegate::kStop);
    EXPECT_EQ(cut.samples[0].size(), 10u);
    EXPECT_EQ(stop.fractions.front(), 0.0);
    EXPECT_FLOAT_EQ(float(stop.fractions.back()), 9.0f / 1000.0f);
}

TEST(KXAudioFileProcess, AnchoredFadesKeepTheAnchorAtFullGain) {
    KXTemporaryFolder folder;
    auto file = fileOf(folder, 2, 1000, constant(0.5f));
    // The anchored fade does not set the writer's channels: the caller gives it the file's.
    auto out = floatWriter(folder, 2);
    const Result fadeOut = render(folder, *out, [&](KXAudioFileWriter& w) { return file->fade(w, 1, 600, 0.5f); });
    ASSERT_EQ(fadeOut.samples.size(), 2u);
    ASSERT_EQ(fadeOut.samples[1].size(), 1000u);
    EXPECT_EQ(fadeOut.samples[1][0], 0.5f);
    EXPECT_EQ(fadeOut.samples[1][600], 0.5f);
    EXPECT_FLOAT_EQ(fadeOut.samples[1][601], 0.5f * (1 - 1.0f / 400.0f));
    EXPECT_FLOAT_EQ(fadeOut.samples[0][999], 0.5f * (1 - 399.0f / 400.0f));

    auto in = floatWriter(folder, 2);
    const Result fadeIn = render(folder, *in, [&](KXAudioFileWriter& w) { return file->fade(w, 0, 200, 1.0f); });
    EXPECT_EQ(fadeIn.samples[0][0], 0.0f);
    EXPECT_FLOAT_EQ(fadeIn.samples[0][100], 0.5f * 0.25f);
    EXPECT_EQ(fadeIn.samples[0][200], 0.5f);
    auto other = floatWriter(folder, 2);
    EXPECT_EQ(render(folder, *other, [&](KXAudioFileWriter& w) { return file->fade(w, 5, 200, 1.0f); }).samples[0],
              std::vector<float>(1000, 0.5f));
}

TEST(KXAutomationEntry, CurvesBetweenPointsByControlType) {
    KXAutomationEntry entry;
    entry.setStart(0.0, 1.0);
    entry.setStartValue(0.0f);
    entry.setEndValue(1.0f);
    EXPECT_FLOAT_EQ(entry.valueAtTime(0.25), 0.25f);
    EXPECT_EQ(entry.valueAtTime(-1), 0.0f);
    EXPECT_EQ(entry.valueAtTime(2), 1.0f);
    entry.addControlPoint(KXPoint::pointFromString("{0.5, 0.8}"));
    EXPECT_FLOAT_EQ(entry.valueAtTime(0.25), 0.4f);
    EXPECT_FLOAT_EQ(entry.valueAtTime(0.75), 0.9f);
    entry.setControlType(KXAutomationEntry::hold);
    EXPECT_FLOAT_EQ(entry.valueAtTime(0.49), 0.0f);
    EXPECT_FLOAT_EQ(entry.valueAtTime(0.5), 0.8f);
    entry.setControlType(KXAutomationEntry::smooth);
    EXPECT_FLOAT_EQ(entry.valueAtTime(0.25), 0.4f);  // the S-curve's middle is the straight line's
    EXPECT_LT(entry.valueAtTime(0.1), 0.8f * 0.2f);
    entry.setControlType(KXAutomationEntry::exponential);
    EXPECT_FLOAT_EQ(entry.valueAtTime(0.75), std::sqrt(0.8f));  // 0.8 → 1: equal ratios
    EXPECT_FLOAT_EQ(entry.valueAtTime(0.25), 0.4f);             // from 0: a straight line
    EXPECT_EQ(KXPoint::pointFromString("{-0.5e-1, .25}"), (KXPoint{-0.05f, 0.25f}));
    EXPECT_EQ(KXPoint::pointFromString("{7}"), (KXPoint{7, 0}));
}

TEST(KXAudioFileProcess, AutomationFadeWritesEveryChannelOfTheFadedFrames) {
    KXTemporaryFolder folder;
    auto file = fileOf(folder, 2, 2000, constant(1.0f));
    KXFadeInstructions instructions;
    instructions.start = 1000, instructions.end = 1500;
    instructions.endValue = 1.0f;
    instructions.controlPoints = std::vector<std::string>{"{0.5, 0.1}"};
    auto writer = floatWriter(folder, 9);
    const Result result = render(folder, *writer, [&](KXAudioFileWriter& w) { return file->fade(instructions, w); });
    ASSERT_EQ(result.samples.size(), 2u);
    ASSERT_EQ(result.samples[0].size(), 500u);
    EXPECT_EQ(result.samples[1][0], 0.0f);
    EXPECT_FLOAT_EQ(result.samples[1][125], 0.05f);
    EXPECT_FLOAT_EQ(result.samples[0][250], 0.1f);
    EXPECT_FLOAT_EQ(result.samples[0][375], 0.55f);
}

TEST(KXAudioFileProcess, PhaseDCAndChannelSums) {
    KXTemporaryFolder folder;
    auto silent = fileOf(folder, 1, 100, constant(0.0f));
    auto inverted = floatWriter(folder, 1);
    const Result flipped = render(folder, *inverted, [&](KXAudioFileWriter& w) { return silent->invertPhase(w); });
    ASSERT_EQ(flipped.samples[0].size(), 100u);
    for (float x : flipped.samples[0]) EXPECT_TRUE(x == 0.0f && std::signbit(x));

    // A constant input: c at the first frame, then decaying by R each frame.
    auto steady = fileOf(folder, 2, 100, constant(0.25f));
    auto filtered = floatWriter(folder, 1);
    Stopping counting(1000000);
    steady->setProgressDelegate(&counting);
    const Result dc = render(folder, *filtered, [&](KXAudioFileWriter& w) { return steady->filterDCOffset(w, 10, 60, KXIndexSet{1}); });
    const auto r = float(1.0 - 126.0 / 44100.0);
    EXPECT_FLOAT_EQ(r, 0.9971429f);
    ASSERT_EQ(dc.samples[0].size(), 50u);
    EXPECT_EQ(dc.samples[0][0], 0.25f);
    float expected = 0.25f;
    for (std::uint32_t i = 1; i < 50; ++i) EXPECT_EQ(dc.samples[0][i], expected = r * expected) << i;
    EXPECT_EQ(counting.fractions.front(), 0.0);
    EXPECT_DOUBLE_EQ(counting.fractions.back(), 49.0 / 50.0);

    // Sums and differences: one selected channel is itself; two equal channels average to one.
    auto pair = fileOf(folder, 3, 500, [](std::uint32_t f, std::uint32_t c) { return c == 2 ? 0.125f : float(f) / 1000.0f; });
    const auto one = [&](const std::function<std::int32_t(KXAudioFileWriter&)>& operation) {
        auto writer = floatWriter(folder, 1);
        return render(folder, *writer, operation).samples.at(0);
    };
    const Channels source = samplesOf(*pair);
    EXPECT_EQ(one([&](KXAudioFileWriter& w) { return pair->subtractChannels(KXIndexSet{1}, false, w); }), source[1]);
    EXPECT_EQ(one([&](KXAudioFileWriter& w) { return pair->sumChannels(KXIndexSet{0, 1}, true, w); }), source[0]);
    const std::vector<float> difference = one([&](KXAudioFileWriter& w) { return pair->subtractChannels(KXIndexSet{0, 1, 2}, false, w); });
    EXPECT_FLOAT_EQ(difference[400], -0.125f);
    // Progress: the absolute frame over the length, past 1 for a range that does not start at 0.
    Stopping sums(1000000);
    pair->setProgressDelegate(&sums);
    EXPECT_EQ(one([&](KXAudioFileWriter& w) { return pair->sumChannels(KXIndexSet{2}, false, KXSampleRange{300, 200}, w); }).size(),
              200u);
    EXPECT_DOUBLE_EQ(sums.fractions.front(), 1.5);
}

TEST(KXAudioFileProcess, BalanceReversalMatrixAndSnip) {
    KXTemporaryFolder folder;
    auto file = fileOf(folder, 2, 40000, ramp());
    const Channels source = samplesOf(*file);
    const auto run = [&](const std::function<std::int32_t(KXAudioFileWriter&)>& operation) {
        auto writer = floatWriter(folder, 1);
        return render(folder, *writer, operation).samples;
    };

    const Channels right = run([&](KXAudioFileWriter& w) { return file->changeBalance(0.25f, {}, w); });
    EXPECT_FLOAT_EQ(right[0][1234], source[0][1234] * 0.75f);
    EXPECT_EQ(right[1], source[1]);
    EXPECT_EQ(run([&](KXAudioFileWriter& w) { return file->changeBalance(0.0f, {}, w); }), source);
    KXError error;
    auto refused = floatWriter(folder, 2);
    EXPECT_EQ(file->changeBalance(1.5f, {}, *refused, &error), KXAudioFile::kProcessFailed);
    EXPECT_EQ(error.code(), EINVAL);

    KXProcessSelection part;
    part.start = 30000, part.end = 35000, part.channels = KXIndexSet{1};
    const Channels reversed = run([&](KXAudioFileWriter& w) { return file->reverse(part, w); });
    ASSERT_EQ(reversed.size(), 1u);
    ASSERT_EQ(reversed[0].size(), 5000u);
    for (std::uint32_t i : {0u, 1u, 2500u, 4999u}) EXPECT_EQ(reversed[0][i], source[1][34999 - i]);
    const Channels whole = run([&](KXAudioFileWriter& w) { return file->reverse({}, w); });
    EXPECT_EQ(whole[0][0], source[0][39999]);
    EXPECT_EQ(whole[1][39999], source[1][0]);

    // Swap, mix down and up-mix.
    const Channels swapped = run([&](KXAudioFileWriter& w) { return file->mixChannels({{0, 1}, {1, 0}}, {}, w); });
    EXPECT_EQ(swapped[0], source[1]);
    EXPECT_EQ(swapped[1], source[0]);
    const Channels mono = run([&](KXAudioFileWriter& w) { return file->mixChannels({{0.5f, 0.5f}}, {}, w); });
    EXPECT_FLOAT_EQ(mono[0][777], 0.5f * (source[0][777] + source[1][777]));
    KXProcessSelection left;
    left.channels = KXIndexSet{0};
    const Channels up = run([&](KXAudioFileWriter& w) { return file->mixChannels({{1}, {1}, {0}}, left, w); });
    ASSERT_EQ(up.size(), 3u);
    EXPECT_EQ(up[1], source[0]);
    EXPECT_EQ(up[2], std::vector<float>(40000, 0.0f));
    // More output channels than a writer can hold: refused by the writer, nothing allocated for them.
    auto wide = floatWriter(folder, 1);
    EXPECT_EQ(file->mixChannels(KXChannelMatrix(1000000, {1.0f}), {}, *wide, &error), KXAudioFile::kProcessFailed);

    KXFrameSelection cut;
    cut.range = KXRange::rangeWithStart(0.5, 0.75);  // frames 22050 to 33075
    const Channels snipped = run([&](KXAudioFileWriter& w) { return file->snip(cut, w); });
    ASSERT_EQ(snipped[0].size(), 40000u - 11025u);
    EXPECT_EQ(snipped[0][22049], source[0][22049]);
    EXPECT_EQ(snipped[1][22050], source[1][33075]);
}

namespace {

// The level in dB of a sine of `frequency` in a signal, by its spectrum's peak near that bin
// (Hann-windowed, so the peak bin of a full-scale sine is about -6 dB).
double levelAt(const std::vector<float>& signal, std::uint32_t start, double frequency, double rate) {
    KXFFT fft(4096);
    std::vector<float> spectrum(2048, 0.0f);
    fft.addWindowedMagnitudes(signal.data() + start, spectrum.data());
    const auto bin = std::uint32_t(std::lround(frequency / rate * 4096));
    float peak = 0;
    for (std::uint32_t b = bin > 2 ? bin - 2 : 0; b <= std::min(bin + 2, 2047u); ++b) peak = std::max(peak, spectrum[b]);
    return 20 * std::log10(peak / 1024.0 + 1e-30);
}

Signal sine(double frequency, double rate, float amplitude = 0.5f) {
    return [=](std::uint32_t f, std::uint32_t) { return amplitude * float(std::sin(2 * std::numbers::pi * frequency * f / rate)); };
}

}  // namespace

TEST(KXAudioFileProcess, RateConversionKeepsThePassbandAndRejectsAliases) {
    KXTemporaryFolder folder;
    // 1 kHz and 19 kHz pass from 44.1 to 48 kHz; 22 kHz, above the new Nyquist frequency of a
    // conversion to 32 kHz, must not fold back to 10 kHz.
    auto mixed = fileOf(folder, 2, 44100, [](std::uint32_t f, std::uint32_t c) {
        return c == 0 ? sine(1000, 44100)(f, 0) : sine(19000, 44100)(f, 0);
    });
    KXRateInstructions up;
    up.rate = 48000;
    auto writer = floatWriter(folder, 1);
    const Result upper = render(folder, *writer, [&](KXAudioFileWriter& w) { return mixed->convertRate(up, w); });
    EXPECT_EQ(upper.status, KXProgressDelegate::kGoOn);
    EXPECT_EQ(upper.rate, 48000u);
    ASSERT_EQ(upper.samples.size(), 2u);
    EXPECT_EQ(upper.samples[0].size(), 48000u);
    std::vector<float> direct(48000);
    for (std::uint32_t i = 0; i < direct.size(); ++i) direct[i] = sine(1000, 48000)(i, 0);
    const double reference = levelAt(direct, 20000, 1000, 48000);
    EXPECT_NEAR(levelAt(upper.samples[0], 20000, 1000, 48000), reference, 0.01);
    EXPECT_NEAR(levelAt(upper.samples[1], 20000, 19000, 48000), reference, 0.05);
    // The delay is compensated: a sine's zero crossing stays where it was in time.
    EXPECT_NEAR(upper.samples[0][48], 0.5f * std::sin(2 * std::numbers::pi * 1000 * 48 / 48000.0), 1e-3);

    auto high = fileOf(folder, 1, 44100, sine(22000, 44100));
    KXRateInstructions down;
    down.rate = 32000;
    auto lower = floatWriter(folder, 1);
    const Result folded = render(folder, *lower, [&](KXAudioFileWriter& w) { return high->convertRate(down, w); });
    EXPECT_EQ(folded.samples[0].size(), 32000u);
    EXPECT_LT(levelAt(folded.samples[0], 10000, 10000, 32000) - reference, -140.0);

    KXError error;
    KXRateInstructions none;
    EXPECT_EQ(high->convertRate(none, *lower, &error), KXAudioFile::kProcessFailed);
    EXPECT_EQ(error.code(), EINVAL);
}

TEST(KXAudioFileProcess, StretchChangesTheLengthOrThePitchAlone) {
    KXTemporaryFolder folder;
    auto file = fileOf(folder, 1, 44100, sine(440, 44100));
    KXStretchInstructions longer;
    longer.factor = 1.5;
    auto writer = floatWriter(folder, 1);
    const Result slow = render(folder, *writer, [&](KXAudioFileWriter& w) { return file->stretch(longer, w); });
    ASSERT_EQ(slow.samples.at(0).size(), 66150u);
    // Still 440 Hz: the strongest bin of a block in the middle.
    const auto peakFrequency = [](const std::vector<float>& signal, std::uint32_t start) {
        KXFFT fft(4096);
        std::vector<float> spectrum(2048, 0.0f);
        fft.addWindowedMagnitudes(signal.data() + start, spectrum.data());
        return double(std::max_element(spectrum.begin(), spectrum.end()) - spectrum.begin()) * 44100 / 4096;
    };
    EXPECT_NEAR(peakFrequency(slow.samples[0], 30000), 440, 11);

    KXStretchInstructions fifth;
    fifth.semitones = 7;
    auto shifted = floatWriter(folder, 1);
    const Result higher = render(folder, *shifted, [&](KXAudioFileWriter& w) { return file->stretch(fifth, w); });
    ASSERT_EQ(higher.samples.at(0).size(), 44100u);
    EXPECT_NEAR(peakFrequency(higher.samples[0], 20000), 440 * std::pow(2, 7 / 12.0), 11);

    KXStretchInstructions wild;
    wild.factor = 100;
    EXPECT_EQ(file->stretch(wild, *shifted), KXAudioFile::kProcessFailed);
}

TEST(KXAudioFileWriterDither, TPDFDitherOnlyWhereTheSourceIsFiner) {
    KXTemporaryFolder folder;
    // A float source of a quiet sine: written at 16 bits it is dithered, as floats it is not.
    const std::string path = KXTestSamples::writeSignalFile(folder, "quiet.wav", 1, 44100, 44100, true, sine(1000, 44100, 0.001f));
    auto file = KXAudioFile::audioFileWithPath(path);
    ASSERT_TRUE(file);
    const auto written = [&](std::int32_t depth, bool dither) {
        auto writer = KXAudioFileWriter::writerWithAudioFile(*file);
        writer->setTempDirectory(folder.path());
        writer->setDepth(depth);
        writer->setDither(dither);
        const std::string out = folder.pathFor("q" + std::to_string(depth) + (dither ? "d" : "") + ".wav");
        EXPECT_EQ(file->changeAmplitude({}, *writer), KXProgressDelegate::kGoOn);
        EXPECT_TRUE(writer->saveToPath(out));
        return samplesOf(*KXAudioFile::audioFileWithPath(out))[0];
    };
    const std::vector<float> source = samplesOf(*file)[0];
    EXPECT_EQ(written(file->depth(), true), source);
    const std::vector<float> plain = written(16, false), dithered = written(16, true);
    double plainError = 0, ditherError = 0, ditherMean = 0;
    for (std::size_t i = 0; i < source.size(); ++i) {
        EXPECT_EQ(plain[i], std::nearbyint(source[i] * 32768.0f) / 32768.0f);
        const double e = double(dithered[i] - source[i]) * 32768;
        EXPECT_LE(std::fabs(e), 1.5);  // rounding of at most ±1 step of noise
        ditherError += e * e, ditherMean += e;
        plainError += std::pow(double(plain[i] - source[i]) * 32768, 2);
    }
    // Plain rounding leaves 1/12 of a step squared; TPDF adds 2/12 more.
    EXPECT_NEAR(plainError / source.size(), 1.0 / 12, 0.02);
    EXPECT_NEAR(ditherError / source.size(), 3.0 / 12, 0.03);
    EXPECT_NEAR(ditherMean / source.size(), 0.0, 0.02);
}
