// kxaudio convert IN OUT [--format wav|rf64|bw64|aif|au|caf|sd2|sd|raw] [--depth N] [--float] [--split]
//                        [--no-dither] [--loudness] [--exists replace|number|keep]
// Writes IN's samples, labels, metadata and kept chunks to OUT through the library's writer, in
// the format --format names, else OUT's extension, else (no extension) IN's format.

#include <algorithm>
#include <cmath>
#include <iostream>
#include <optional>
#include <memory>
#include <string>

#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBase/KXFile.h"
#include "Output.h"

namespace kxaudio {

void addConvertCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("convert", "Write a file's samples, labels and metadata to another file");
    struct Options : WriteOptions {
        std::string input;
        bool loudness = false;
    };
    auto options = std::make_shared<Options>();
    command->add_option("IN", options->input, "Audio file to read")->required();
    command->add_option("OUT", options->output, "Audio file to write")->required();
    addWriteOptions(*command, *options);
    command->add_flag("--loudness", options->loudness,
                      "Measure IN's loudness (EBU R128) and store it (in WAVE files, 'bext' version 2)");
    command->callback([options, &status] {
        KXError error;
        auto file = KXAudioFile::audioFileWithPath(options->input, &error);
        if (!file) {
            status = refuse(error, false, options->input);
            return;
        }
        auto writer = writerForOutput(*file, *options, status);
        if (!writer) return;
        // The loudness values as metadata keys (LUFS, LU, dBTP); what cannot be measured is left out.
        if (options->loudness) {
            if (const auto loudness = file->loudnessForRange(KXRange::rangeWithAllTime(), file->channelSet())) {
                const std::pair<const char*, double> values[] = {
                    {"loudnessValue", loudness->integrated},       {"loudnessRange", loudness->range},
                    {"maxTruePeakLevel", loudness->maxTruePeak},   {"maxMomentaryLoudness", loudness->maxMomentary},
                    {"maxShortTermLoudness", loudness->maxShortTerm}};
                for (const auto& [key, value] : values)
                    if (std::isfinite(value)) writer->addMetadataObject(value, key);
            }
        }
        if (!writer->beginWrite(&error)) {
            writer->deleteFiles();
            status = refuse(error, false);
            return;
        }
        KXNativeAudioBuffer buffer(file->numberOfChannels(),
                                   std::clamp<std::uint32_t>(file->frames(), 1, file->readBufferFrames()));
        for (std::uint64_t frame = 0; frame < file->frames();) {
            const std::int32_t read = file->readSamplesToBuffer(buffer, frame);
            if (read <= 0) break;
            writer->writeBuffer(buffer, {0, std::uint32_t(read)});
            frame += std::uint32_t(read);
        }
        if (!writer->endWrite(&error)) {
            writer->deleteFiles();
            status = refuse(error.code() ? error : KXAudioFileError::errorWithCode(KXAudioFileErrorUndefined, "Writing"), false);
            return;
        }
        saveOutput(*writer, *options, status);
    });
}

}  // namespace kxaudio
