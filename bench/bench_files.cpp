// Reading whole files into channel arrays and writing channel floats to files, beside
// libsndfile doing the same work in the same run: sf_readf_float in 30,720-frame pieces, each
// split into channel arrays; interleaving then sf_writef_float and sf_write_sync (the writer
// synchronises its files when it ends, so the peer does too).
//
// The files are WAVE and CAF files that libsndfile writes once into the temporary folder (a
// 10-minute stereo 16-bit file and a 10-minute 6-channel 24-bit file at 44.1 kHz of each); each
// side opens and reads the whole file in every iteration.

#include <benchmark/benchmark.h>
#include <sndfile.h>
#include <sys/resource.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBase/KXDirectories.h"
#include "KXBase/KXFile.h"

namespace {

constexpr std::uint32_t kRate = 44100;
constexpr std::uint32_t kReadFrames = kRate * 600;   // ten minutes
constexpr std::uint32_t kWriteFrames = kRate * 60;   // one minute
constexpr std::uint32_t kPiece = KXAudioFile::kReadBufferFrames;

struct SampleFile {
    const char* name;
    std::uint32_t channels;
    std::uint32_t bits;
    int sndfileFormat;
    const char* extension;
};

const SampleFile kStereo16{"stereo 16-bit WAVE", 2, 16, SF_FORMAT_WAV | SF_FORMAT_PCM_16, "wav"};
const SampleFile kSix24{"6-channel 24-bit WAVE", 6, 24, SF_FORMAT_WAV | SF_FORMAT_PCM_24, "wav"};
const SampleFile kStereo16CAF{"stereo 16-bit CAF", 2, 16, SF_FORMAT_CAF | SF_FORMAT_PCM_16, "caf"};
const SampleFile kSix24CAF{"6-channel 24-bit CAF", 6, 24, SF_FORMAT_CAF | SF_FORMAT_PCM_24, "caf"};

std::string pathFor(const SampleFile& f) {
    return KXFile::pathByAppendingComponent(KXDirectories::temporaryDirectory(), "kxaudio-bench-" + std::to_string(f.channels) +
                                                                                     "x" + std::to_string(f.bits) + "." +
                                                                                     f.extension);
}

float testSample(std::uint64_t frame, std::uint32_t channel) {
    return 0.7f * std::sin(float(frame % 100000) * 0.01f * float(channel + 1));
}

// Makes the file once (the same samples every run), a piece at a time.
void makeFile(const SampleFile& f) {
    const std::string path = pathFor(f);
    const std::uint64_t dataBytes = std::uint64_t(kReadFrames) * f.channels * (f.bits / 8);
    if (KXFile::lengthOfFileAtPath(path) > dataBytes) return;
    SF_INFO info{};
    info.samplerate = kRate;
    info.channels = int(f.channels);
    info.format = f.sndfileFormat;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) return;
    std::vector<float> piece(std::size_t(kPiece) * f.channels);
    for (std::uint32_t start = 0; start < kReadFrames; start += kPiece) {
        const std::uint32_t count = std::min(kPiece, kReadFrames - start);
        for (std::uint32_t i = 0; i < count; ++i)
            for (std::uint32_t c = 0; c < f.channels; ++c) piece[std::size_t(i) * f.channels + c] = testSample(start + i, c);
        sf_writef_float(file, piece.data(), count);
    }
    sf_close(file);
}

double peakMemoryMiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0;
}

// --- Reading

void readOurs(benchmark::State& state, const SampleFile& f) {
    makeFile(f);
    const double before = peakMemoryMiB();
    for (auto _ : state) {
        auto file = KXAudioFile::audioFileWithPath(pathFor(f));
        if (!file) {
            state.SkipWithError("the file does not open");
            break;
        }
        KXNativeAudioBuffer channels(f.channels, kPiece);
        for (std::uint32_t start = 0; start < file->frames(); start += kPiece)
            benchmark::DoNotOptimize(file->readSamplesToBuffer(channels, start));
        benchmark::DoNotOptimize(channels.channel(0)[0]);
    }
    state.counters["peak MiB growth"] = peakMemoryMiB() - before;
    state.SetItemsProcessed(std::int64_t(state.iterations()) * kReadFrames);
}

void readLibsndfile(benchmark::State& state, const SampleFile& f) {
    makeFile(f);
    std::vector<float> interleaved(std::size_t(kPiece) * f.channels);
    std::vector<std::vector<float>> channels(f.channels, std::vector<float>(kPiece));
    for (auto _ : state) {
        SF_INFO info{};
        SNDFILE* file = sf_open(pathFor(f).c_str(), SFM_READ, &info);
        if (!file) {
            state.SkipWithError(sf_strerror(nullptr));
            break;
        }
        for (;;) {
            const sf_count_t got = sf_readf_float(file, interleaved.data(), kPiece);
            if (got <= 0) break;
            for (sf_count_t i = 0; i < got; ++i)
                for (std::uint32_t c = 0; c < f.channels; ++c) channels[c][std::size_t(i)] = interleaved[std::size_t(i) * f.channels + c];
            benchmark::DoNotOptimize(channels[0][0]);
        }
        sf_close(file);
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()) * kReadFrames);
}

// --- Writing

KXNativeAudioBuffer writeSource(std::uint32_t channels) {
    KXNativeAudioBuffer buffer(channels, kPiece);
    for (std::uint32_t c = 0; c < channels; ++c)
        for (std::uint32_t i = 0; i < kPiece; ++i) buffer.channel(c)[i] = testSample(i, c);
    return buffer;
}

// What each write case produces: our writer's format and depth (and thread), libsndfile's format.
struct WriteCase {
    std::uint32_t format;
    std::int32_t depth;
    bool asynchronous;
    int sndfileFormat;
    const char* peerFile;
};

const WriteCase kRawFloat{KXFourCC("RAW "), 32, false, SF_FORMAT_RAW | SF_FORMAT_FLOAT | SF_ENDIAN_BIG, "kxaudio-bench-sndfile.raw"};
const WriteCase kRawFloatThreaded{KXFourCC("RAW "), 32, true, 0, nullptr};
const WriteCase kWave16{KXFourCC("WAVE"), 16, false, SF_FORMAT_WAV | SF_FORMAT_PCM_16, "kxaudio-bench-sndfile.wav"};
const WriteCase kWave24{KXFourCC("WAVE"), 24, false, SF_FORMAT_WAV | SF_FORMAT_PCM_24, "kxaudio-bench-sndfile.wav"};
const WriteCase kCAF16{KXFourCC("CAFF"), 16, false, SF_FORMAT_CAF | SF_FORMAT_PCM_16, "kxaudio-bench-sndfile.caf"};
const WriteCase kCAF24{KXFourCC("CAFF"), 24, false, SF_FORMAT_CAF | SF_FORMAT_PCM_24, "kxaudio-bench-sndfile.caf"};

// Float channels through the writer (which also analyses every block of a non-raw file for the
// overview it stores with it).
void writeOurs(benchmark::State& state, const WriteCase& c) {
    const KXNativeAudioBuffer source = writeSource(2);
    for (auto _ : state) {
        KXAudioFileWriter writer;
        writer.setFormat(c.format);
        writer.setDepth(c.depth);
        writer.setChannels(2);
        writer.setRate(kRate);
        writer.setWriteAsynchronous(c.asynchronous);
        if (!writer.beginWrite()) {
            state.SkipWithError("beginWrite failed");
            break;
        }
        for (std::uint32_t start = 0; start < kWriteFrames; start += kPiece)
            writer.writeBuffer(source, {0, std::min(kPiece, kWriteFrames - start)});
        if (!writer.endWrite()) state.SkipWithError("endWrite failed");
        writer.deleteFiles();
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()) * kWriteFrames);
}

void writeLibsndfile(benchmark::State& state, const WriteCase& c) {
    const KXNativeAudioBuffer source = writeSource(2);
    std::vector<float> interleaved(std::size_t(kPiece) * 2);
    const std::string path = KXFile::pathByAppendingComponent(KXDirectories::temporaryDirectory(), c.peerFile);
    for (auto _ : state) {
        SF_INFO info{};
        info.samplerate = kRate;
        info.channels = 2;
        info.format = c.sndfileFormat;
        SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
        if (!file) {
            state.SkipWithError(sf_strerror(nullptr));
            break;
        }
        for (std::uint32_t start = 0; start < kWriteFrames; start += kPiece) {
            const std::uint32_t count = std::min(kPiece, kWriteFrames - start);
            for (std::uint32_t i = 0; i < count; ++i)
                for (std::uint32_t ch = 0; ch < 2; ++ch) interleaved[std::size_t(i) * 2 + ch] = source.channel(ch)[i];
            sf_writef_float(file, interleaved.data(), count);
        }
        sf_write_sync(file);
        sf_close(file);
        std::remove(path.c_str());
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()) * kWriteFrames);
}

}  // namespace

// Registered from the benchmark program's main (bench_converter.cpp).
void registerFileBenchmarks() {
    for (const SampleFile* f : {&kStereo16, &kSix24, &kStereo16CAF, &kSix24CAF}) {
        const std::string name = std::string("read 10 min ") + f->name;
        benchmark::RegisterBenchmark((name + "/KXAudioFile").c_str(), readOurs, *f)->Unit(benchmark::kMillisecond)->UseRealTime();
        benchmark::RegisterBenchmark((name + "/libsndfile").c_str(), readLibsndfile, *f)->Unit(benchmark::kMillisecond)->UseRealTime();
    }
    const auto add = [](const std::string& name, auto function, const WriteCase& c) {
        benchmark::RegisterBenchmark(name.c_str(), function, c)->Unit(benchmark::kMillisecond)->UseRealTime();
    };
    add("write 1 min stereo float/KXAudioFile", writeOurs, kRawFloat);
    add("write 1 min stereo float/KXAudioFile (writer thread)", writeOurs, kRawFloatThreaded);
    add("write 1 min stereo float/libsndfile", writeLibsndfile, kRawFloat);
    for (const WriteCase* c : {&kWave16, &kWave24, &kCAF16, &kCAF24}) {
        const std::string name = std::string("write 1 min stereo ") + (c->format == KXFourCC("CAFF") ? "CAF " : "WAVE ") +
                                 std::to_string(c->depth) + "-bit";
        add(name + "/KXAudioFile", writeOurs, *c);
        add(name + "/libsndfile", writeLibsndfile, *c);
    }
}
