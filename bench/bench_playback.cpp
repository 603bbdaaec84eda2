// A player pulling 512-frame blocks forwards through the play buffers of a one-minute stereo
// 16-bit file (pink noise, 44.1 kHz, made once by sox), with the next buffer loaded at once or on
// the loader thread, unpaced and paced at 10×, 100× and 1000× real time (a busy wait until each
// block's moment, so that the pace holds at any speed). The counters say how often the player
// moved to the next buffer and how often it found that buffer not ready and loaded it itself —
// with threaded loading at a player's pace, that should be (nearly) never — and, unpaced, how
// fast the play path delivers frames.

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXBenchSupport.h"

namespace {

constexpr std::uint32_t kBlock = 512;

const std::string& minuteFile() {
    static const std::string path = KXBench::soxFile("kxaudio-bench-minute.wav", "-r 44100 -c 2 -b 16",
                                                     "synth 60 pinknoise gain -6", 44100ull * 60 * 4);
    return path;
}

// `pace` × real time; 0 pulls as fast as it can.
void playForwards(benchmark::State& state, bool threaded, double pace) {
    auto file = KXAudioFile::audioFileWithPath(minuteFile());
    if (!file) {
        state.SkipWithError("no test file (is sox installed?)");
        return;
    }
    file->setUseThreadedPlayBufferLoading(threaded);
    KXAudioBuffer destination(file->numberOfChannels(), kBlock * sizeof(float));
    const std::int64_t frames = file->frames();
    const auto blockTime = std::chrono::duration<double>(pace > 0 ? kBlock / (file->rate() * pace) : 0);
    KXPlayBufferStatistics total;
    for (auto _ : state) {
        file->resetBuffers();
        const KXPlayBufferStatistics before = file->playBufferStatistics();
        file->primePlayBuffersWithHintStart(0);
        const auto start = std::chrono::steady_clock::now();
        std::int64_t block = 0;
        for (std::int64_t at = 0; at < frames; ++block) {
            if (pace > 0)
                while (std::chrono::steady_clock::now() < start + block * blockTime) {
                }
            auto n = std::int32_t(std::min<std::int64_t>(kBlock, frames - at));
            file->playSamplesToBuffers(destination, 0, at, n, false);
            if (n <= 0) break;
            at += n;
        }
        benchmark::DoNotOptimize(destination.bufferAtIndex(0));
        file->waitForPlayBufferLoader();
        const KXPlayBufferStatistics after = file->playBufferStatistics();
        total.switches += after.switches - before.switches;
        total.readerLoads += after.readerLoads - before.readerLoads;
        total.prefetchedLoads += after.prefetchedLoads - before.prefetchedLoads;
        total.droppedPrefetches += after.droppedPrefetches - before.droppedPrefetches;
    }
    state.SetItemsProcessed(state.iterations() * frames);
    state.counters["switches"] = benchmark::Counter(double(total.switches), benchmark::Counter::kAvgIterations);
    state.counters["player loads"] = benchmark::Counter(double(total.readerLoads), benchmark::Counter::kAvgIterations);
    state.counters["prefetched"] = benchmark::Counter(double(total.prefetchedLoads), benchmark::Counter::kAvgIterations);
    state.counters["dropped"] = benchmark::Counter(double(total.droppedPrefetches), benchmark::Counter::kAvgIterations);
}

const int registered = [] {
    for (const bool threaded : {false, true})
        for (const double pace : {0.0, 1000.0, 100.0, 10.0}) {
            const std::string name = std::string("play 1 min/") + (threaded ? "threaded" : "at once") + "/" +
                                     (pace > 0 ? std::to_string(int(pace)) + "x real time" : "unpaced");
            auto* benchmark = benchmark::RegisterBenchmark(name.c_str(), [threaded, pace](benchmark::State& state) {
                playForwards(state, threaded, pace);
            });
            benchmark->Unit(benchmark::kMillisecond)->UseRealTime();
            if (pace > 0) benchmark->Iterations(1);
        }
    return 0;
}();

}  // namespace
