// Processing a 10-minute stereo 16-bit file (pink noise, 44.1 kHz, made once by sox) beside sox
// doing the same job, both as the command a user runs, in the same run: a gain (`kxaudio process
// --gain` against `sox vol`) and a rate conversion to 48 kHz (`kxaudio process --rate` against
// `sox rate -v`, the same libsoxr recipe). Both dither their 16-bit results.
//
// The conversions' quality is measured once and shown as counters of the rate benchmarks: the
// passband ripple (the spread in dB of the levels of sines from 20 Hz to 20 kHz, converted from
// 48 kHz to 44.1 kHz) and the alias rejection (the level in dB, below the tone, of what sines
// above the new Nyquist frequency leave at their alias frequencies).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <string>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBenchSupport.h"

namespace {

using KXBench::quoted;

const std::string& noiseFile() {
    static const std::string path = KXBench::soxFile("kxaudio-bench-noise.wav", "-r 44100 -c 2 -b 16",
                                                     "synth 600 pinknoise gain -6", 44100ull * 600 * 4);
    return path;
}

std::string outputPath(const std::string& name) {
    return KXFile::pathByAppendingComponent(KXDirectories::temporaryDirectory(), "kxaudio-bench-" + name);
}

// Half a second of each tone at 48 kHz, in float samples; the first ones in the passband of a
// conversion to 44.1 kHz, the last two above its Nyquist frequency.
constexpr double kPassband[] = {20, 100, 1000, 5000, 10000, 15000, 18000, 19000, 20000};
constexpr double kAbove[] = {23000, 23900};

const std::string& toneFile() {
    static const std::string path = [] {
        const std::string file = outputPath("tones.wav");
        KXAudioFileWriter writer;
        writer.setTempDirectory(KXDirectories::temporaryDirectory());
        writer.setFormat(KXFourCC("WAVE"));
        writer.setIsFloatingPoint(true);
        writer.setRate(48000);
        writer.setChannels(1);
        if (!writer.beginWrite()) return file;
        std::vector<double> tones(std::begin(kPassband), std::end(kPassband));
        tones.insert(tones.end(), std::begin(kAbove), std::end(kAbove));
        for (double frequency : tones)
            for (int i = 0; i < 24000; ++i) writer.writeSample(float(0.5 * std::sin(2 * std::numbers::pi * frequency * i / 48000)), 0);
        if (writer.endWrite()) (void)writer.saveToPath(file);
        return file;
    }();
    return path;
}

// The level (dB re the tone's 0.5) at `frequency` in tone k's segment of a 44.1 kHz result:
// a Hann-windowed transform at exactly that frequency over the segment's settled middle.
double levelOf(const std::vector<float>& samples, int k, double frequency) {
    const int start = int(44100 * (0.5 * k + 0.1)), length = int(44100 * 0.3);
    std::complex<double> sum = 0;
    double weights = 0;
    for (int i = 0; i < length && start + i < int(samples.size()); ++i) {
        const double w = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * i / length);
        sum += w * double(samples[std::size_t(start + i)]) * std::polar(1.0, -2 * std::numbers::pi * frequency * i / 44100);
        weights += w;
    }
    // Floored at -200 dB: below that float samples hold nothing (sox writes zeros there).
    return 20 * std::log10(std::max(2 * std::abs(sum) / weights / 0.5, 1e-10));
}

struct Quality {
    double ripple = NAN, aliasRejection = NAN;
};

// Runs `command` (which converts toneFile() into `result` at 44.1 kHz, as floats) and measures it.
Quality qualityOf(const std::string& command, const std::string& result) {
    if (std::system((command + " 2>/dev/null >/dev/null").c_str()) != 0) return {};
    auto file = KXAudioFile::audioFileWithPath(result);
    if (!file || file->rate() != 44100) return {};
    std::vector<float> samples(file->frames());
    for (std::uint32_t done = 0; done < file->frames();) {
        std::int32_t size = std::int32_t(std::min(file->frames() - done, KXAudioFile::kReadBufferFrames));
        file->readSamplesToBuffer(samples.data() + done, done, size, 0);
        if (size <= 0) break;
        done += std::uint32_t(size);
    }
    Quality quality;
    double low = HUGE_VAL, high = -HUGE_VAL, alias = -HUGE_VAL;
    int k = 0;
    for (double frequency : kPassband) {
        const double level = levelOf(samples, k++, frequency);
        low = std::min(low, level), high = std::max(high, level);
    }
    for (double frequency : kAbove) alias = std::max(alias, levelOf(samples, k++, 44100 - frequency));
    quality.ripple = high - low;
    quality.aliasRejection = -alias;
    return quality;
}

const std::string kTool = KXAUDIO_TOOL;

void rate(benchmark::State& state, const std::string& command, const Quality& quality) {
    KXBench::runCommand(state, command);
    state.counters["ripple mdB"] = quality.ripple * 1000;
    state.counters["alias rejection dB"] = quality.aliasRejection;
}

}  // namespace

void registerProcessBenchmarks() {
    const auto add = [](const std::string& name, auto function) {
        benchmark::RegisterBenchmark(name.c_str(), function)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(1);
    };
    const std::string in = quoted(noiseFile());
    add("gain 10 min stereo/KXAudioFile kxaudio process", [in](benchmark::State& state) {
        KXBench::runCommand(state, kTool + " process " + in + " " + quoted(outputPath("gain.wav")) + " --gain -6");
    });
    add("gain 10 min stereo/sox vol",
        [in](benchmark::State& state) { KXBench::runCommand(state, "sox " + in + " " + quoted(outputPath("gain-sox.wav")) + " vol -6dB"); });
    add("rate 10 min stereo/KXAudioFile kxaudio process", [in](benchmark::State& state) {
        static const Quality quality = qualityOf(
            kTool + " process " + quoted(toneFile()) + " " + quoted(outputPath("tones-ours.wav")) + " --rate 44100 --float",
            outputPath("tones-ours.wav"));
        rate(state, kTool + " process " + in + " " + quoted(outputPath("rate.wav")) + " --rate 48000", quality);
    });
    add("rate 10 min stereo/sox rate -v", [in](benchmark::State& state) {
        static const Quality quality = qualityOf("sox " + quoted(toneFile()) + " -e float -b 32 " +
                                                     quoted(outputPath("tones-sox.wav")) + " rate -v 44100",
                                                 outputPath("tones-sox.wav"));
        rate(state, "sox " + in + " " + quoted(outputPath("rate-sox.wav")) + " rate -v 48000", quality);
    });
}
