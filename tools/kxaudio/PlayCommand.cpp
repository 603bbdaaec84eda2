// kxaudio play FILE [--start S] [--repeat A:B --mode forward|alternate|backward] [--reverse]
//                   [--block N] [--threaded] [--seconds T] [--statistics]
//
// Pulls the file through its play buffers as a player does — blocks of N frames, forwards or
// backwards, turning at the repeat range — and writes the stream to stdout as interleaved
// little-endian 32-bit floats (`| aplay -f FLOAT_LE -c CH -r RATE`, `| sox -t f32 -c CH -r RATE - …`).
//
// Without a repeat range playback ends at the file's end (its start when reversed); with one it
// goes on until --seconds of output or a closed pipe. The repeat modes: forward plays A → B over
// and over; alternate plays A → B → A …; backward plays up to B, then B → A over and over.

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "Output.h"

namespace kxaudio {
namespace {

enum class Mode { forward = 0, alternate = 1, backward = 2 };

struct Options {
    std::string path;
    std::optional<double> start;
    std::string repeat;
    Mode mode = Mode::forward;
    bool reverse = false;
    std::uint32_t block = 512;
    bool threaded = false;
    std::optional<double> seconds;
    bool statistics = false;
};

// "A:B" in seconds, B after A; nothing for anything else.
std::optional<std::pair<double, double>> repeatRange(const std::string& text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos) return std::nullopt;
    char* end = nullptr;
    const double a = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + colon) return std::nullopt;
    const double b = std::strtod(text.c_str() + colon + 1, &end);
    if (*end != '\0' || !(a >= 0) || !(b > a)) return std::nullopt;
    return std::make_pair(a, b);
}

// Interleaves `frames` frames of the destination from frame `first` into little-endian bytes.
void appendFrames(const KXAudioBuffer& destination, std::uint32_t first, std::uint32_t frames, std::vector<std::uint8_t>& bytes) {
    const std::uint32_t channels = destination.count();
    bytes.resize(std::size_t(frames) * channels * sizeof(float));
    std::uint8_t* out = bytes.data();
    for (std::uint32_t f = first; f < first + frames; ++f)
        for (std::uint32_t c = 0; c < channels; ++c) {
            std::uint32_t bits;
            std::memcpy(&bits, destination.bufferAtIndex(c) + std::size_t(f) * sizeof(float), sizeof bits);
            for (int b = 0; b < 4; ++b) *out++ = std::uint8_t(bits >> (8 * b));
        }
}

int play(const Options& options) {
    KXError error;
    auto file = KXAudioFile::audioFileWithPath(options.path, &error);
    if (!file) return refuse(error, false, options.path);
    const std::int64_t frames = file->frames();
    const double rate = file->rate() > 0 ? file->rate() : 44100;
    const auto frameAt = [&](double seconds) { return std::clamp<std::int64_t>(std::llround(seconds * rate), 0, frames); };

    std::int64_t repeatStart = 0, repeatEnd = 0;
    if (const auto range = repeatRange(options.repeat)) {
        repeatStart = frameAt(range->first), repeatEnd = frameAt(range->second);
        file->setPlaybackRepeatRange(KXRange::rangeWithStart(double(repeatStart) / rate, double(repeatEnd) / rate),
                                     std::int32_t(options.mode));
    }
    const bool repeating = repeatEnd > repeatStart;
    file->setUseThreadedPlayBufferLoading(options.threaded);

    bool backwards = options.reverse;
    std::int64_t position = options.start ? frameAt(*options.start) : backwards ? frames : 0;
    std::int64_t remaining = options.seconds ? std::llround(*options.seconds * rate) : INT64_MAX;
    file->primePlayBuffersWithHintStart(position);
    if (backwards) {
        file->setCurrentPlaybackDirection(1);
        file->predictNextPlayBuffer();
    }

    KXAudioBuffer destination(file->numberOfChannels(), std::size_t(options.block) * sizeof(float));
    std::vector<std::uint8_t> bytes;
    int status = 0;
    while (remaining > 0) {
        // At the repeat edge ahead: turn, or jump to the other edge.
        if (repeating && position == (backwards ? repeatStart : repeatEnd)) {
            if (!backwards) {
                if (options.mode == Mode::forward) position = repeatStart;
                else backwards = true;
            } else {
                if (options.mode == Mode::alternate) backwards = false;
                else position = repeatEnd;
            }
            continue;
        }
        // Where this stretch ends: the repeat edge ahead, else the file's edge.
        const std::int64_t limit = backwards ? (repeating && position > repeatStart ? repeatStart : 0)
                                             : (repeating && position < repeatEnd ? repeatEnd : frames);
        if (position == limit) break;
        auto n = std::int32_t(std::min<std::int64_t>({options.block, std::llabs(limit - position), remaining}));
        file->playSamplesToBuffers(destination, 0, position, n, backwards);
        if (n <= 0) break;
        // Backwards, the frames lie at the destination's end, already in playing order.
        appendFrames(destination, backwards ? options.block - std::uint32_t(n) : 0, std::uint32_t(n), bytes);
        if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size()) {
            status = kRefused;
            break;
        }
        position += backwards ? -n : n;
        remaining -= n;
    }
    if (std::fflush(stdout) != 0) status = kRefused;
    if (options.statistics) {
        file->waitForPlayBufferLoader();
        const KXPlayBufferStatistics s = file->playBufferStatistics();
        std::cerr << "buffer switches: " << s.switches << "\nloaded by the player: " << s.readerLoads
                  << "\npredicted loads: " << s.predictedLoads << "\nprefetched on the loader thread: " << s.prefetchedLoads
                  << "\ndropped prefetches: " << s.droppedPrefetches << "\n";
    }
    return status;
}

}  // namespace

void addPlayCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("play", "Pull a file through the play buffers as a player does; raw float32 frames to stdout");
    addExample(*command, "kxaudio play loop.wav --repeat 1:3 --mode alternate --seconds 10 | aplay -f FLOAT_LE -c 2 -r 44100");
    auto options = std::make_shared<Options>();
    command->add_option("FILE", options->path, "Audio file")->required();
    command->add_option("--start", options->start, "Where to start, seconds (default: the start, or the end with --reverse)")
        ->check(CLI::NonNegativeNumber);
    command->add_option("--repeat", options->repeat, "Repeat range START:END, seconds")
        ->check([](const std::string& text) { return repeatRange(text) ? std::string() : "START:END in seconds, END after START"; });
    command->add_option("--mode", options->mode, "How the repeat range plays: forward, alternate or backward")
        ->transform(CLI::CheckedTransformer(std::map<std::string, Mode>{
            {"forward", Mode::forward}, {"alternate", Mode::alternate}, {"backward", Mode::backward}}));
    command->add_flag("--reverse", options->reverse, "Play backwards");
    command->add_option("--block", options->block, "Frames a pull asks for (default 512)")->check(CLI::Range(1, 1 << 20));
    command->add_flag("--threaded", options->threaded, "Load the next buffer on a thread of its own");
    command->add_option("--seconds", options->seconds, "Stop after this much output, seconds")->check(CLI::NonNegativeNumber);
    command->add_flag("--statistics", options->statistics, "Report on stderr how the play buffers were loaded");
    command->callback([options, &status] { status = play(*options); });
}

}  // namespace kxaudio
