// Converting stored samples to channel floats and back, in memory, beside libsndfile doing the
// same: its raw-format reader over a memory buffer (sf_readf_float) then splitting into channel
// arrays, and interleaving then sf_writef_float into a memory sink. Each case runs both and the
// closing table reports libsndfile's time over ours (above 1.0: we are faster).

#include <benchmark/benchmark.h>
#include <sndfile.h>

#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "KXBase/KXConverter.h"

namespace {

constexpr std::uint32_t kChannels = 2;
constexpr std::size_t kFrames = 48000 * 10;  // ten seconds of stereo at 48 kHz

struct Encoding {
    const char* name;
    const char* format;
    std::uint32_t bits;
    std::uint32_t flags;
    int sndfileFormat;
};

const Encoding kEncodings[] = {
    {"16-bit LE", "lpcm", 16, KXAudioStreamDescription::kFlagIsSignedInteger, SF_FORMAT_RAW | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE},
    {"24-bit BE", "lpcm", 24, KXAudioStreamDescription::kFlagIsSignedInteger | KXAudioStreamDescription::kFlagIsBigEndian,
     SF_FORMAT_RAW | SF_FORMAT_PCM_24 | SF_ENDIAN_BIG},
    {"24-bit LE", "lpcm", 24, KXAudioStreamDescription::kFlagIsSignedInteger, SF_FORMAT_RAW | SF_FORMAT_PCM_24 | SF_ENDIAN_LITTLE},
    {"float", "lpcm", 32, KXAudioStreamDescription::kFlagIsFloat, SF_FORMAT_RAW | SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE},
    {"u-law", "ulaw", 8, 0, SF_FORMAT_RAW | SF_FORMAT_ULAW},
};

KXAudioStreamDescription storedDescription(const Encoding& e) {
    KXAudioStreamDescription d;
    d.setFormat(e.format[0] == 'u' ? KXFourCC("ulaw") : KXFourCC("lpcm"));
    d.setRange(e.bits);
    d.setFlags(e.flags);
    d.setChannels(kChannels);
    d.setRate(48000);
    return d;
}

std::vector<std::vector<float>> testSignal() {
    std::vector<std::vector<float>> channels(kChannels, std::vector<float>(kFrames));
    for (std::uint32_t c = 0; c < kChannels; ++c)
        for (std::size_t i = 0; i < kFrames; ++i) channels[c][i] = 0.8f * float(std::sin(i * 0.013 * (c + 1)));
    return channels;
}

// --- libsndfile over memory

struct Memory {
    std::vector<std::uint8_t> bytes;
    sf_count_t position = 0;
};

sf_count_t memoryLength(void* user) { return sf_count_t(static_cast<Memory*>(user)->bytes.size()); }
sf_count_t memorySeek(sf_count_t offset, int whence, void* user) {
    auto* m = static_cast<Memory*>(user);
    m->position = whence == SEEK_SET ? offset : whence == SEEK_CUR ? m->position + offset : sf_count_t(m->bytes.size()) + offset;
    return m->position;
}
sf_count_t memoryRead(void* out, sf_count_t count, void* user) {
    auto* m = static_cast<Memory*>(user);
    const sf_count_t available = std::max<sf_count_t>(0, sf_count_t(m->bytes.size()) - m->position);
    count = std::min(count, available);
    std::memcpy(out, m->bytes.data() + m->position, std::size_t(count));
    m->position += count;
    return count;
}
sf_count_t memoryWrite(const void* in, sf_count_t count, void* user) {
    auto* m = static_cast<Memory*>(user);
    if (m->bytes.size() < std::size_t(m->position + count)) m->bytes.resize(std::size_t(m->position + count));
    std::memcpy(m->bytes.data() + m->position, in, std::size_t(count));
    m->position += count;
    return count;
}
sf_count_t memoryTell(void* user) { return static_cast<Memory*>(user)->position; }
SF_VIRTUAL_IO kMemoryIO = {memoryLength, memorySeek, memoryRead, memoryWrite, memoryTell};

SNDFILE* openMemory(Memory& memory, int mode, int format) {
    SF_INFO info{};
    info.samplerate = 48000;
    info.channels = kChannels;
    info.format = format;
    return sf_open_virtual(&kMemoryIO, mode, &info, &memory);
}

// The stored bytes of the test signal in an encoding.
std::vector<std::uint8_t> storedBytes(const Encoding& e) {
    const auto channels = testSignal();
    auto encoder = KXConverter::converterWithSourceFormat(KXAudioStreamDescription::description(), storedDescription(e));
    std::vector<std::uint8_t> bytes(kFrames * kChannels * encoder->bytesPerSample());
    const float* in[] = {channels[0].data(), channels[1].data()};
    std::uint8_t* out[] = {bytes.data()};
    encoder->encode(in, out, kFrames);
    return bytes;
}

// --- The cases

void decodeOurs(benchmark::State& state, const Encoding& e) {
    const auto bytes = storedBytes(e);
    auto decoder = KXConverter::converterWithSourceFormat(storedDescription(e), KXAudioStreamDescription::description());
    std::vector<std::vector<float>> channels(kChannels, std::vector<float>(kFrames));
    for (auto _ : state) {
        const std::uint8_t* in[] = {bytes.data()};
        float* out[] = {channels[0].data(), channels[1].data()};
        decoder->decode(in, out, kFrames);
        benchmark::DoNotOptimize(channels[1][kFrames - 1]);
    }
    state.SetItemsProcessed(std::int64_t(state.iterations() * kFrames));
}

void decodeLibsndfile(benchmark::State& state, const Encoding& e) {
    Memory memory{storedBytes(e)};
    std::vector<float> interleaved(kFrames * kChannels);
    std::vector<std::vector<float>> channels(kChannels, std::vector<float>(kFrames));
    for (auto _ : state) {
        memory.position = 0;
        SNDFILE* file = openMemory(memory, SFM_READ, e.sndfileFormat);
        if (!file || sf_readf_float(file, interleaved.data(), sf_count_t(kFrames)) != sf_count_t(kFrames)) {
            state.SkipWithError(sf_strerror(file));
            break;
        }
        sf_close(file);
        for (std::size_t i = 0; i < kFrames; ++i)
            for (std::uint32_t c = 0; c < kChannels; ++c) channels[c][i] = interleaved[i * kChannels + c];
        benchmark::DoNotOptimize(channels[1][kFrames - 1]);
    }
    state.SetItemsProcessed(std::int64_t(state.iterations() * kFrames));
}

void encodeOurs(benchmark::State& state, const Encoding& e) {
    const auto channels = testSignal();
    auto encoder = KXConverter::converterWithSourceFormat(KXAudioStreamDescription::description(), storedDescription(e));
    std::vector<std::uint8_t> bytes(kFrames * kChannels * encoder->bytesPerSample());
    for (auto _ : state) {
        const float* in[] = {channels[0].data(), channels[1].data()};
        std::uint8_t* out[] = {bytes.data()};
        encoder->encode(in, out, kFrames);
        benchmark::DoNotOptimize(bytes.back());
    }
    state.SetItemsProcessed(std::int64_t(state.iterations() * kFrames));
}

void encodeLibsndfile(benchmark::State& state, const Encoding& e) {
    const auto channels = testSignal();
    std::vector<float> interleaved(kFrames * kChannels);
    Memory memory;
    memory.bytes.reserve(kFrames * kChannels * 4);
    for (auto _ : state) {
        for (std::size_t i = 0; i < kFrames; ++i)
            for (std::uint32_t c = 0; c < kChannels; ++c) interleaved[i * kChannels + c] = channels[c][i];
        memory.position = 0;
        SNDFILE* file = openMemory(memory, SFM_WRITE, e.sndfileFormat);
        if (!file || sf_writef_float(file, interleaved.data(), sf_count_t(kFrames)) != sf_count_t(kFrames)) {
            state.SkipWithError(sf_strerror(file));
            break;
        }
        sf_close(file);
        benchmark::DoNotOptimize(memory.bytes.back());
    }
    state.SetItemsProcessed(std::int64_t(state.iterations() * kFrames));
}

// Prints the usual console table, then libsndfile's time over ours for every case.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        // The median of the repetitions (or the single run when there are none).
        for (const Run& run : runs) {
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (median || (run.run_type == Run::RT_Iteration && run.repetitions <= 1))
                times_[run.run_name.str()] = run.GetAdjustedRealTime();
        }
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\npeer time / KXAudioFile time (above 1.0: KXAudioFile is faster)\n");
        // "<case>/KXAudioFile[ variant][/real_time]" against every "<case>/<peer>[/real_time]".
        for (const auto& [name, ours] : times_) {
            const auto at = name.find("/KXAudioFile");
            if (at == std::string::npos) continue;
            const bool realTime = name.ends_with("/real_time");
            const std::string prefix = name.substr(0, at + 1);
            std::string label = name.substr(0, realTime ? name.size() - 10 : name.size());
            label.replace(at, 12, "");
            for (const auto& [other, theirs] : times_) {
                if (!other.starts_with(prefix) || other.find("/KXAudioFile") != std::string::npos ||
                    other.ends_with("/real_time") != realTime)
                    continue;
                std::string peer = other.substr(prefix.size());
                if (realTime) peer.resize(peer.size() - 10);
                std::printf("  %-44s vs %-18s %6.2fx\n", label.c_str(), peer.c_str(), theirs / ours);
            }
        }
    }

private:
    std::map<std::string, double> times_;
};

}  // namespace

void registerFileBenchmarks();     // bench_files.cpp
void registerHostileBenchmarks();  // bench_hostile.cpp
void registerMeasuringBenchmarks();  // bench_measuring.cpp
void registerProcessBenchmarks();    // bench_process.cpp

int main(int argc, char** argv) {
    for (const Encoding& e : kEncodings) {
        const std::string name = e.name;
        benchmark::RegisterBenchmark(("decode " + name + "/KXAudioFile").c_str(), decodeOurs, e)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("decode " + name + "/libsndfile").c_str(), decodeLibsndfile, e)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("encode " + name + "/KXAudioFile").c_str(), encodeOurs, e)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("encode " + name + "/libsndfile").c_str(), encodeLibsndfile, e)->Unit(benchmark::kMillisecond);
    }
    registerFileBenchmarks();
    registerHostileBenchmarks();
    registerMeasuringBenchmarks();
    registerProcessBenchmarks();
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
