// kxaudio_speed: reading, writing and the analysis pass timed beside libsndfile, the reading
// ceiling (`pread` of the same bytes) and sndfile-convert, in one process with the rounds
// interleaved, so that the ratios it prints compare runs made under the same load.
//
//   kxaudio_speed [--rounds N] [--only read|write|analysis|convert] [--folder DIR]
//                 [--widest sse2|avx2|avx512]
//
// The inputs are 10-minute files that libsndfile writes once into the folder (the temporary
// folder by default; the writer's temporary files go there too): WAVE 16-bit stereo 44.1 kHz, AIFF 24-bit stereo 48 kHz, WAVE float stereo
// 48 kHz and WAVE-extensible 24-bit 6 channels 48 kHz. Every case reads or writes the whole file
// in 30,720-frame blocks into (or from) one float array per channel, and every run is checked:
// the first round compares our samples with libsndfile's, sample for sample, and each timed run
// compares a fingerprint of every block with that round's.
//
// `--only convert` (not part of the default run: it writes gigabytes) times `kxaudio convert` of
// a 1-hour 24-bit stereo WAVE file to AIFF against sndfile-convert, as processes, with their
// peak memory.
//
// `--widest` keeps the vector routines (the analysis) to that instruction set or a narrower one,
// as on a processor without the wider ones.
//
// Printed: the median time of each case, then the ratios the project's targets are stated in.

#include <fcntl.h>
#include <sndfile.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBase/KXDirectories.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXVector.h"

namespace {

constexpr std::uint32_t kBlock = KXAudioFile::kReadBufferFrames;
constexpr std::uint32_t kSeconds = 600;

std::string gFolder;

struct Input {
    const char* name;
    std::uint32_t rate, channels, bytesPerSample;
    int sndfileFormat;
    const char* file;
};

const Input kInputs[] = {
    {"wav16 2ch", 44100, 2, 2, SF_FORMAT_WAV | SF_FORMAT_PCM_16, "kxaudio-speed-wav16.wav"},
    {"aiff24 2ch", 48000, 2, 3, SF_FORMAT_AIFF | SF_FORMAT_PCM_24, "kxaudio-speed-aiff24.aif"},
    {"wavf32 2ch", 48000, 2, 4, SF_FORMAT_WAV | SF_FORMAT_FLOAT, "kxaudio-speed-wavf32.wav"},
    {"wav24 6ch", 48000, 6, 3, SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, "kxaudio-speed-wav24x6.wav"},
};

std::string pathFor(const char* name) { return KXFile::pathByAppendingComponent(gFolder, name); }

std::uint64_t framesOf(const Input& input) { return std::uint64_t(input.rate) * kSeconds; }

// A signal that uses every bit of the samples: a sine and a little noise, different per channel.
float sampleAt(std::uint64_t frame, std::uint32_t channel) {
    std::uint32_t x = std::uint32_t(frame * 2654435761u) ^ (channel * 0x9E3779B9u);
    x ^= x >> 15, x *= 0x2C1B3C6Du, x ^= x >> 12;
    const float noise = float(x & 0xFFFF) / 65536.0f - 0.5f;
    return 0.6f * std::sin(float(frame % 96000) * 0.0131f * float(channel + 1)) + 0.05f * noise;
}

void makeInput(const Input& input) {
    const std::string path = pathFor(input.file);
    if (KXFile::lengthOfFileAtPath(path) >= framesOf(input) * input.channels * input.bytesPerSample) return;
    SF_INFO info{};
    info.samplerate = int(input.rate);
    info.channels = int(input.channels);
    info.format = input.sndfileFormat;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) {
        std::fprintf(stderr, "cannot write %s: %s\n", path.c_str(), sf_strerror(nullptr));
        std::exit(1);
    }
    std::vector<float> block(std::size_t(kBlock) * input.channels);
    for (std::uint64_t start = 0; start < framesOf(input); start += kBlock) {
        const auto count = std::uint32_t(std::min<std::uint64_t>(kBlock, framesOf(input) - start));
        for (std::uint32_t i = 0; i < count; ++i)
            for (std::uint32_t c = 0; c < input.channels; ++c) block[std::size_t(i) * input.channels + c] = sampleAt(start + i, c);
        sf_writef_float(file, block.data(), count);
    }
    sf_close(file);
}

// --- Checking: a fingerprint of every block (three samples of each channel, as bits)

struct Fingerprint {
    std::uint64_t value = 0;
    void add(const float* samples, std::uint32_t count) {
        if (count == 0) return;
        for (const std::uint32_t i : {0u, count / 2, count - 1}) {
            std::uint32_t bits;
            std::memcpy(&bits, samples + i, 4);
            value = value * 1099511628211ull + bits;
        }
    }
};

// --- Timing

using Clock = std::chrono::steady_clock;

double secondsOf(const std::function<void()>& work) {
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t n = values.size();
    return n == 0 ? 0 : n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

std::map<std::string, std::vector<double>> gTimes;
bool gFailed = false;

void fail(const std::string& what) {
    std::fprintf(stderr, "CHECK FAILED: %s\n", what.c_str());
    gFailed = true;
}

// --- Reading

struct Channels {
    std::vector<std::vector<float>> arrays;
    Channels(std::uint32_t channels, std::uint32_t frames) : arrays(channels, std::vector<float>(frames)) {}
};

// Ours: open, then the whole file in blocks into one array per channel.
std::uint64_t readOurs(const Input& input, std::vector<std::vector<float>>* everything) {
    auto file = KXAudioFile::audioFileWithPath(pathFor(input.file));
    if (!file || file->frames() != framesOf(input)) {
        fail(std::string("KXAudioFile opens ") + input.name);
        return 0;
    }
    KXNativeAudioBuffer buffer(input.channels, kBlock);
    Fingerprint print;
    for (std::uint32_t start = 0; start < file->frames(); start += kBlock) {
        buffer.setFrames(std::min(kBlock, file->frames() - start));
        const std::int32_t got = file->readSamplesToBuffer(buffer, start);
        for (std::uint32_t c = 0; c < input.channels; ++c) {
            print.add(buffer.channel(c), std::uint32_t(got));
            if (everything) (*everything)[c].insert((*everything)[c].end(), buffer.channel(c), buffer.channel(c) + got);
        }
    }
    return print.value;
}

// libsndfile: sf_readf_float in the same blocks, each split into the channel arrays.
std::uint64_t readSndfile(const Input& input, std::vector<std::vector<float>>* everything) {
    SF_INFO info{};
    SNDFILE* file = sf_open(pathFor(input.file).c_str(), SFM_READ, &info);
    if (!file) {
        fail(std::string("libsndfile opens ") + input.name);
        return 0;
    }
    std::vector<float> interleaved(std::size_t(kBlock) * input.channels);
    Channels channels(input.channels, kBlock);
    Fingerprint print;
    for (;;) {
        const sf_count_t got = sf_readf_float(file, interleaved.data(), kBlock);
        if (got <= 0) break;
        for (std::uint32_t c = 0; c < input.channels; ++c) {
            float* out = channels.arrays[c].data();
            for (sf_count_t i = 0; i < got; ++i) out[i] = interleaved[std::size_t(i) * input.channels + c];
            print.add(out, std::uint32_t(got));
            if (everything) (*everything)[c].insert((*everything)[c].end(), out, out + got);
        }
    }
    sf_close(file);
    return print.value;
}

// The ceiling: the sample bytes read with pread in the same blocks, nothing else done.
std::uint64_t readBytes(const Input& input) {
    const std::string path = pathFor(input.file);
    const std::uint64_t frameBytes = std::uint64_t(input.channels) * input.bytesPerSample;
    const std::uint64_t dataBytes = framesOf(input) * frameBytes;
    const std::uint64_t offset = KXFile::lengthOfFileAtPath(path) - dataBytes;  // libsndfile puts the samples last
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    std::vector<std::uint8_t> bytes(kBlock * frameBytes);
    std::uint64_t sum = 0;
    for (std::uint64_t done = 0; done < dataBytes;) {
        const std::size_t length = std::size_t(std::min<std::uint64_t>(bytes.size(), dataBytes - done));
        if (::pread(fd, bytes.data(), length, off_t(offset + done)) != ssize_t(length)) break;
        sum += bytes[0] + bytes[length - 1];
        done += length;
    }
    ::close(fd);
    return sum;
}

void verifyRead(const Input& input, std::uint64_t& ours, std::uint64_t& theirs) {
    std::vector<std::vector<float>> a(input.channels), b(input.channels);
    ours = readOurs(input, &a);
    theirs = readSndfile(input, &b);
    for (std::uint32_t c = 0; c < input.channels; ++c)
        if (a[c].size() != framesOf(input) || std::memcmp(a[c].data(), b[c].data(), a[c].size() * 4) != 0)
            fail(std::string("our samples equal libsndfile's: ") + input.name + " channel " + std::to_string(c));
    if (ours != theirs) fail(std::string("fingerprints agree: ") + input.name);
}

// --- Writing: 10 minutes of 24-bit stereo WAVE at 48 kHz from float channel arrays

constexpr std::uint32_t kWriteRate = 48000;
constexpr std::uint64_t kWriteFrames = std::uint64_t(kWriteRate) * kSeconds;

const KXNativeAudioBuffer& writeSource() {
    static const KXNativeAudioBuffer source = [] {
        KXNativeAudioBuffer buffer(2, kBlock);
        for (std::uint32_t c = 0; c < 2; ++c)
            for (std::uint32_t i = 0; i < kBlock; ++i) buffer.channel(c)[i] = sampleAt(i, c);
        return buffer;
    }();
    return source;
}

// Ours: the writer with its analysis, saved into place (one fsync, then the rename).
bool writeOurs(const std::string& path) {
    KXAudioFileWriter writer;
    writer.setFormat(KXFourCC("WAVE"));
    writer.setDepth(24);
    writer.setChannels(2);
    writer.setRate(kWriteRate);
    if (!writer.beginWrite()) return false;
    for (std::uint64_t start = 0; start < kWriteFrames; start += kBlock)
        writer.writeBuffer(writeSource(), {0, std::uint32_t(std::min<std::uint64_t>(kBlock, kWriteFrames - start))});
    if (!writer.endWrite()) return false;
    return writer.saveToPath(path);
}

bool writeSndfile(const std::string& path, bool synchronise) {
    SF_INFO info{};
    info.samplerate = kWriteRate;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_24;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) return false;
    std::vector<float> interleaved(std::size_t(kBlock) * 2);
    const KXNativeAudioBuffer& source = writeSource();
    for (std::uint64_t start = 0; start < kWriteFrames; start += kBlock) {
        const auto count = std::uint32_t(std::min<std::uint64_t>(kBlock, kWriteFrames - start));
        for (std::uint32_t i = 0; i < count; ++i) {
            interleaved[2 * i] = source.channel(0)[i];
            interleaved[2 * i + 1] = source.channel(1)[i];
        }
        sf_writef_float(file, interleaved.data(), count);
    }
    if (synchronise) sf_write_sync(file);
    return sf_close(file) == 0;
}

// Our file read back through libsndfile holds the source rounded to 24 bits.
void verifyWrite(const std::string& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file || info.frames != sf_count_t(kWriteFrames) || info.channels != 2) {
        if (file) sf_close(file);
        return fail("our written file reads in libsndfile");
    }
    std::vector<int> block(std::size_t(kBlock) * 2);
    const KXNativeAudioBuffer& source = writeSource();
    for (std::uint64_t start = 0; start < kWriteFrames; start += kBlock) {
        const sf_count_t got = sf_readf_int(file, block.data(), kBlock);
        for (sf_count_t i = 0; i < got; ++i)
            for (std::uint32_t c = 0; c < 2; ++c) {
                const long expected = std::lrint(double(source.channel(c)[i]) * 8388608.0);
                if ((block[std::size_t(i) * 2 + c] >> 8) != expected) {
                    sf_close(file);
                    return fail("our written samples are the source rounded to 24 bits");
                }
            }
    }
    sf_close(file);
}

// --- Converting: a 1-hour 24-bit stereo WAVE, as processes, with their peak memory

struct ProcessRun {
    double seconds = 0;
    double peakMiB = 0;
    bool ok = false;
};

ProcessRun runProcess(const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    ProcessRun run;
    const auto start = Clock::now();
    const pid_t child = fork();
    if (child == 0) {
        const int null = ::open("/dev/null", O_WRONLY);
        dup2(null, 1), dup2(null, 2);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    run.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    run.peakMiB = double(usage.ru_maxrss) / 1024.0;
    run.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return run;
}

// --- Rounds

void record(const std::string& name, double seconds) { gTimes[name].push_back(seconds); }

void rotate(std::vector<std::function<void()>>& cases, std::size_t round) {
    std::rotate(cases.begin(), cases.begin() + std::ptrdiff_t(round % cases.size()), cases.end());
}

void readRound(std::size_t round, const std::map<std::string, std::uint64_t>& reference) {
    for (const Input& input : kInputs) {
        const std::uint64_t expected = reference.at(input.name);
        std::vector<std::function<void()>> cases = {
            [&] {
                std::uint64_t print = 0;
                record(std::string("read ") + input.name + " ours", secondsOf([&] { print = readOurs(input, nullptr); }));
                if (print != expected) fail(std::string("our read of ") + input.name + " matches the first round");
            },
            [&] {
                std::uint64_t print = 0;
                record(std::string("read ") + input.name + " libsndfile", secondsOf([&] { print = readSndfile(input, nullptr); }));
                if (print != expected) fail(std::string("libsndfile's read of ") + input.name + " matches the first round");
            },
            [&] { record(std::string("read ") + input.name + " pread", secondsOf([&] { readBytes(input); })); },
        };
        rotate(cases, round);
        for (auto& c : cases) c();
    }
}

void analysisRound(std::size_t round) {
    const Input& input = kInputs[0];
    std::vector<std::function<void()>> cases = {
        [&] {
            record("analysis pass wav16 2ch", secondsOf([&] {
                       auto file = KXAudioFile::audioFileWithPath(pathFor(input.file));
                       if (!file || !file->analyzeRange(KXRange::rangeWithAllTime(), file->channelSet())) fail("the analysis pass");
                   }));
        },
        [&] { record("analysis plain read wav16 2ch", secondsOf([&] { readOurs(input, nullptr); })); },
    };
    rotate(cases, round);
    for (auto& c : cases) c();
}

void writeRound(std::size_t round) {
    const std::string ours = pathFor("kxaudio-speed-written.wav"), theirs = pathFor("kxaudio-speed-sndfile.wav");
    std::vector<std::function<void()>> cases = {
        [&] {
            record("write wav24 2ch ours (fsync)", secondsOf([&] {
                       if (!writeOurs(ours)) fail("our writer");
                   }));
            if (round == 0) verifyWrite(ours);
            std::remove(ours.c_str());
        },
        [&] {
            record("write wav24 2ch libsndfile (sf_write_sync)", secondsOf([&] {
                       if (!writeSndfile(theirs, true)) fail("libsndfile's writer");
                   }));
            std::remove(theirs.c_str());
        },
        [&] {
            record("write wav24 2ch libsndfile (no sync)", secondsOf([&] {
                       if (!writeSndfile(theirs, false)) fail("libsndfile's writer");
                   }));
            std::remove(theirs.c_str());
        },
    };
    rotate(cases, round);
    for (auto& c : cases) c();
}

std::map<std::string, std::vector<double>> gPeaks;

void convertRound(std::size_t round, const std::string& tool) {
    const Input hour{"wav24 2ch 1 h", 48000, 2, 3, SF_FORMAT_WAV | SF_FORMAT_PCM_24, "kxaudio-speed-hour.wav"};
    const std::string source = pathFor(hour.file);
    if (round == 0 && KXFile::lengthOfFileAtPath(source) < 3600ull * 48000 * 6) {
        // Six copies of the 10-minute pattern, written by libsndfile.
        SF_INFO info{};
        info.samplerate = 48000;
        info.channels = 2;
        info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_24;
        SNDFILE* file = sf_open(source.c_str(), SFM_WRITE, &info);
        std::vector<float> block(std::size_t(kBlock) * 2);
        for (std::uint64_t start = 0; file && start < 3600ull * 48000; start += kBlock) {
            const auto count = std::uint32_t(std::min<std::uint64_t>(kBlock, 3600ull * 48000 - start));
            for (std::uint32_t i = 0; i < count; ++i)
                for (std::uint32_t c = 0; c < 2; ++c) block[std::size_t(i) * 2 + c] = sampleAt(start + i, c);
            sf_writef_float(file, block.data(), count);
        }
        if (file) sf_close(file);
    }
    const std::string ours = pathFor("kxaudio-speed-converted.aif"), theirs = pathFor("kxaudio-speed-converted-sf.aif");
    std::vector<std::function<void()>> cases = {
        [&] {
            const ProcessRun run = runProcess({tool, "convert", source, ours});
            if (!run.ok) fail("kxaudio convert");
            record("convert 1 h wav24 → aiff kxaudio", run.seconds);
            gPeaks["kxaudio convert"].push_back(run.peakMiB);
            std::remove(ours.c_str());
        },
        [&] {
            const ProcessRun run = runProcess({"sndfile-convert", "-pcm24", source, theirs});
            if (!run.ok) fail("sndfile-convert");
            record("convert 1 h wav24 → aiff sndfile-convert", run.seconds);
            gPeaks["sndfile-convert"].push_back(run.peakMiB);
            std::remove(theirs.c_str());
        },
    };
    rotate(cases, round);
    for (auto& c : cases) c();
}

double med(const std::string& name) { return median(gTimes[name]); }

void ratio(const char* what, double value, double target, bool atLeast) {
    const bool met = atLeast ? value >= target : value <= target;
    std::printf("  %-62s %6.2f  (target %s %.2f: %s)\n", what, value, atLeast ? "≥" : "≤", target, met ? "met" : "NOT met");
}

}  // namespace

int main(int argc, char** argv) {
    std::size_t rounds = 9;
    std::string only;
    gFolder = KXDirectories::temporaryDirectory();
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--rounds") rounds = std::max<std::size_t>(1, std::strtoul(argv[i + 1], nullptr, 10));
        else if (option == "--only") only = argv[i + 1];
        else if (option == "--folder") {
            // The writer's temporary file goes beside its destination, so that saving stays a
            // rename and does not become a copy from one file system to another.
            gFolder = argv[i + 1];
            KXDirectories::setTemporaryDirectory(gFolder);
        }
        else if (option == "--widest")
            KXVector::limitInstructions(std::string(argv[i + 1]) == "sse2"   ? KXVector::Instructions::sse2
                                        : std::string(argv[i + 1]) == "avx2" ? KXVector::Instructions::avx2
                                                                             : KXVector::Instructions::avx512);
    }
    const auto wanted = [&](const char* part) { return only.empty() || only == part; };
    const std::string tool = KXAUDIO_TOOL;

    std::map<std::string, std::uint64_t> reference;
    if (wanted("read") || wanted("analysis")) {
        for (const Input& input : kInputs) {
            makeInput(input);
            std::uint64_t ours = 0, theirs = 0;
            verifyRead(input, ours, theirs);  // also brings the file into the page cache
            reference[input.name] = theirs;
        }
    }
    for (std::size_t round = 0; round < rounds; ++round) {
        if (wanted("read")) readRound(round, reference);
        if (wanted("analysis")) analysisRound(round);
        if (wanted("write")) writeRound(round);
        if (wanted("convert") && !only.empty()) convertRound(round, tool);
        std::fprintf(stderr, "round %zu of %zu\n", round + 1, rounds);
    }

    std::printf("medians of %zu rounds (seconds)\n", rounds);
    for (const auto& [name, times] : gTimes) std::printf("  %-50s %8.4f\n", name.c_str(), median(times));
    std::printf("ratios\n");
    if (wanted("read")) {
        for (const Input& input : kInputs) {
            const std::string base = std::string("read ") + input.name;
            const double ours = med(base + " ours");
            const bool isFloat = (input.sndfileFormat & SF_FORMAT_SUBMASK) == SF_FORMAT_FLOAT;
            ratio((base + ": libsndfile time ÷ ours").c_str(), med(base + " libsndfile") / ours, isFloat ? 1.5 : 2.5, true);
            ratio((base + ": pread time ÷ ours").c_str(), med(base + " pread") / ours, 0.4, true);
        }
    }
    if (wanted("analysis"))
        ratio("analysis pass ÷ plain read", med("analysis pass wav16 2ch") / med("analysis plain read wav16 2ch"), 1.3, false);
    if (wanted("write")) {
        const double ours = med("write wav24 2ch ours (fsync)");
        ratio("write: libsndfile with sf_write_sync ÷ ours", med("write wav24 2ch libsndfile (sf_write_sync)") / ours, 2.0, true);
        ratio("write: libsndfile without sync ÷ ours", med("write wav24 2ch libsndfile (no sync)") / ours, 1.5, true);
    }
    if (!gPeaks.empty()) {
        ratio("convert 1 h: kxaudio ÷ sndfile-convert",
              med("convert 1 h wav24 → aiff kxaudio") / med("convert 1 h wav24 → aiff sndfile-convert"), 1.0, false);
        for (const auto& [name, peaks] : gPeaks) std::printf("  peak memory %-24s %8.1f MiB\n", name.c_str(), median(peaks));
    }
    if (gFailed) std::printf("SOME CHECKS FAILED\n");
    return gFailed ? 1 : 0;
}
