// kxaudio convert IN OUT [--format wav|rf64|bw64|aif|au|caf|sd2|sd|raw] [--depth N] [--float] [--split]
//                        [--loudness]
//                        [--exists replace|number|keep]
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
namespace {

std::string extensionOf(const std::string& path) {
    const std::string name = KXFile::lastPathComponent(path);
    const std::size_t dot = name.find_last_of('.');
    return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot + 1);
}

}  // namespace

void addConvertCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("convert", "Write a file's samples, labels and metadata to another file");
    struct Options {
        std::string input, output, format, exists = "replace";
        int depth = 0;
        bool floatingPoint = false, split = false, loudness = false;
    };
    auto options = std::make_shared<Options>();
    command->add_option("IN", options->input, "Audio file to read")->required();
    command->add_option("OUT", options->output, "Audio file to write")->required();
    command->add_option("--format", options->format, "Output format (default: from OUT's extension, else IN's format)")
        ->check(CLI::IsMember({"wav", "rf64", "bw64", "au", "aif", "caf", "sd2", "sd", "raw"}));
    command->add_option("--depth", options->depth, "Bits per sample")->check(CLI::IsMember({8, 16, 24, 32}));
    command->add_flag("--float", options->floatingPoint, "Floating-point samples (32-bit)");
    command->add_flag("--split", options->split, "One file per channel");
    command->add_flag("--loudness", options->loudness,
                      "Measure IN's loudness (EBU R128) and store it (in WAVE files, 'bext' version 2)");
    command->add_option("--exists", options->exists, "When OUT exists")->check(CLI::IsMember({"replace", "number", "keep"}));
    command->callback([options, &status] {
        KXError error;
        auto file = KXAudioFile::audioFileWithPath(options->input, &error);
        if (!file) {
            status = refuse(error, false, options->input);
            return;
        }
        auto writer = KXAudioFileWriter::writerWithAudioFile(*file);
        const std::string extension = extensionOf(options->output);
        // RF64 and BW64 are WAVE files in a container for large sizes, whatever their size.
        const bool large = options->format == "rf64" || options->format == "bw64";
        const std::optional<std::uint32_t> named = KXAudioFileWriter::formatForExtension(
            large ? std::string("wav") : options->format.empty() ? extension : options->format);
        // An extension that names no format this tool writes would give a file of another
        // format under that name: refused unless --format says what to write.
        if (options->format.empty() && !extension.empty() && !named) {
            std::cerr << "kxaudio: " << jsonString(options->output) << ": the extension \"" << jsonString(extension)
                      << "\" names no format kxaudio writes; choose one with --format (wav, aif, au, caf, sd2, sd, raw)\n";
            status = kRefused;
            return;
        }
        if (named) {
            const std::int32_t depth = writer->depth();
            const bool floatingPoint = writer->isFloatingPoint();
            // Loop-library data goes into the loop-library dialect of the target format.
            const std::uint32_t source = writer->format();
            const bool loops = source == KXFourCC("APLL") || source == KXFourCC("ACID");
            std::uint32_t target = *named;
            if (loops && target == KXFourCC("AIFF")) target = KXFourCC("APLL");
            if (loops && target == KXFourCC("WAVE")) target = KXFourCC("ACID");
            if (target != source) {
                const std::uint32_t encoding = writer->encoding();
                writer->setFormat(target);
                // A new format keeps the source's sample format where it can hold it.
                writer->setDepth(depth);
                writer->setIsFloatingPoint(floatingPoint);
                if (target == KXFourCC("WAVE") || target == KXFourCC("ACID") || target == KXFourCC("ULAW"))
                    writer->setEncoding(encoding);
            }
        }
        if (large) writer->setWAVEContainer(options->format == "rf64" ? KXFourCC("RF64") : KXFourCC("BW64"));
        if (options->depth) {
            writer->setDepth(options->depth);
            writer->setEncoding(KXFourCC("lpcm"));
        }
        if (options->floatingPoint) {
            writer->setDepth(32);
            writer->setIsFloatingPoint(true);
        }
        if (options->split) writer->setInterleaved(false);
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
        // The new files are made beside OUT, so that saving is a rename.
        const std::string directory = KXFile::directoryOfPath(options->output);
        writer->setTempDirectory(directory.empty() ? "." : directory);
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
        KXDictionary instructions{{"path", options->output},
                                  {"existsAction", options->exists == "replace" ? 0 : options->exists == "number" ? 1 : 2}};
        if (!extension.empty()) instructions.setObject(extension, "forcedExtension");
        if (!writer->saveWithInstructions(instructions, &error)) {
            writer->deleteFiles();
            status = refuse(error, false);
            return;
        }
        for (const std::string& path : writer->filePaths()) std::cout << path << "\n";
    });
}

}  // namespace kxaudio
