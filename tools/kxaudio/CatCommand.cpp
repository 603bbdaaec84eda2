// kxaudio cat [--f32|--s16] [--start FRAME] [--frames N] FILE: the samples, read through the
// library's read path, as interleaved little-endian frames on stdout (32-bit float by default).

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXBase/KXConverter.h"
#include "Output.h"

namespace kxaudio {

void addCatCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("cat", "Write a file's samples to stdout as interleaved little-endian frames");
    addExample(*command, "kxaudio cat --s16 take.wav | aplay -f S16_LE -c 2 -r 44100");
    struct Options {
        std::string path;
        bool f32 = false, s16 = false;
        std::int64_t start = 0;
        std::int64_t frames = -1;
    };
    auto options = std::make_shared<Options>();
    auto* f32 = command->add_flag("--f32", options->f32, "32-bit float samples (the default)");
    command->add_flag("--s16", options->s16, "16-bit integer samples, rounded and saturated")->excludes(f32);
    command->add_option("--start", options->start, "First frame")->check(CLI::NonNegativeNumber);
    command->add_option("--frames", options->frames, "Frames to write (default: to the end)")->check(CLI::NonNegativeNumber);
    command->add_option("FILE", options->path, "Audio file")->required();
    command->callback([options, &status] {
        KXError error;
        auto file = KXAudioFile::audioFileWithPath(options->path, &error);
        if (!file) {
            status = refuse(error, false, options->path);
            return;
        }
        const std::uint32_t channels = file->numberOfChannels();
        KXAudioStreamDescription stored;
        stored.setChannels(channels);
        stored.setRange(options->s16 ? 16 : 32);
        stored.setFlags(options->s16 ? KXAudioStreamDescription::kFlagIsSignedInteger : KXAudioStreamDescription::kFlagIsFloat);
        auto encoder = KXConverter::converterWithSourceFormat(KXAudioStreamDescription::description(), stored);
        const std::int64_t end = options->frames < 0 ? file->frames()
                                                     : std::min<std::int64_t>(file->frames(), options->start + options->frames);
        // Buffers follow the frames there are: a wide header over a short file asks for little.
        KXNativeAudioBuffer buffer(channels, std::uint32_t(std::clamp<std::int64_t>(end - options->start, 1, file->readBufferFrames())));
        KXAudioBuffer bytes(1, std::size_t(buffer.capacity()) * channels * encoder->bytesPerSample());
        for (std::int64_t frame = options->start; frame < end;) {
            buffer.setFrames(std::uint32_t(std::min<std::int64_t>(buffer.capacity(), end - frame)));
            const std::int32_t read = file->readSamplesToBuffer(buffer, frame);
            if (read <= 0) break;
            buffer.setFrames(std::uint32_t(read));
            encoder->convertNativeBuffer(buffer, bytes);
            std::fwrite(bytes.bufferAtIndex(0), 1, std::size_t(read) * channels * encoder->bytesPerSample(), stdout);
            frame += read;
        }
        if (std::fflush(stdout) != 0) status = kRefused;
    });
}

}  // namespace kxaudio
