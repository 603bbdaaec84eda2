// Measuring a 10-minute stereo 16-bit file (pink noise, 44.1 kHz, made once by sox) beside the
// tools that do the same job, in the same run: the statistics report against sox's `stats`
// effect and ffmpeg's `astats` filter, EBU R128 loudness against ffmpeg's `ebur128` filter, and
// the analysis pass against a plain read of the same file (the target: at most 1.3 × the read).
// The peers run as processes reading the same file from the page cache.

#include <benchmark/benchmark.h>

#include <string>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXBenchSupport.h"

namespace {

const std::string& measuredFile() {
    static const std::string path = KXBench::soxFile("kxaudio-bench-noise.wav", "-r 44100 -c 2 -b 16",
                                                     "synth 600 pinknoise gain -6", 44100ull * 600 * 4);
    return path;
}

template <typename Measure>
void ours(benchmark::State& state, Measure measure) {
    for (auto _ : state) {
        auto file = KXAudioFile::audioFileWithPath(measuredFile());
        if (!file) {
            state.SkipWithError("the file does not open");
            break;
        }
        measure(*file);
    }
}

void peer(benchmark::State& state, const std::string& command) { KXBench::runCommand(state, command); }

using KXBench::quoted;

}  // namespace

void registerMeasuringBenchmarks() {
    const auto add = [](const std::string& name, auto function) {
        benchmark::RegisterBenchmark(name.c_str(), function)->Unit(benchmark::kMillisecond)->UseRealTime();
    };
    add("statistics 10 min stereo/KXAudioFile", [](benchmark::State& state) {
        ours(state, [](KXAudioFile& file) {
            benchmark::DoNotOptimize(file.statisticsForRange(KXRange::rangeWithAllTime(), file.channelSet()));
        });
    });
    add("statistics 10 min stereo/sox stats",
        [](benchmark::State& state) { peer(state, "sox " + quoted(measuredFile()) + " -n stats"); });
    add("statistics 10 min stereo/ffmpeg astats", [](benchmark::State& state) {
        peer(state, "ffmpeg -v error -i " + quoted(measuredFile()) + " -af astats -f null -");
    });
    add("loudness 10 min stereo/KXAudioFile", [](benchmark::State& state) {
        ours(state, [](KXAudioFile& file) {
            benchmark::DoNotOptimize(file.loudnessForRange(KXRange::rangeWithAllTime(), file.channelSet()));
        });
    });
    add("loudness 10 min stereo/ffmpeg ebur128", [](benchmark::State& state) {
        peer(state, "ffmpeg -v error -i " + quoted(measuredFile()) + " -af ebur128=peak=true -f null -");
    });
    add("analysis pass 10 min stereo/KXAudioFile", [](benchmark::State& state) {
        ours(state, [](KXAudioFile& file) { benchmark::DoNotOptimize(file.analyzeRange(KXRange::rangeWithAllTime(), file.channelSet())); });
    });
    add("analysis pass 10 min stereo/plain read", [](benchmark::State& state) {
        ours(state, [](KXAudioFile& file) {
            KXNativeAudioBuffer buffer(file.numberOfChannels(), KXAudioFile::kReadBufferFrames);
            for (std::uint32_t start = 0; start < file.frames(); start += buffer.capacity())
                benchmark::DoNotOptimize(file.readSamplesToBuffer(buffer, start));
        });
    });
}
