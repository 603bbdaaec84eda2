// kxaudio convert IN… OUT [--format wav|rf64|bw64|aif|au|caf|sd2|sd|raw] [--depth N] [--float] [--split]
//                         [--no-dither] [--no-analysis] [--no-archive] [--loudness]
//                         [--exists replace|number|keep] [--json] [-j N]
// Writes each IN's samples, labels, metadata and kept chunks through the library's writer, in the
// format --format names, else the output's extension, else (no extension) IN's format. OUT is the
// output file for one IN; for several it is a folder (IN's name, with --format's extension or
// IN's) or a name pattern in which {name} stands for IN's name without its extension, {ext} for
// its extension and {dir} for its folder.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "Batch.h"
#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBase/KXFile.h"
#include "Output.h"

namespace kxaudio {
namespace {

struct Options : WriteOptions, BatchOptions {
    bool loudness = false;
};

std::string replaceAll(std::string text, const std::string& token, const std::string& value) {
    for (std::size_t at = text.find(token); at != std::string::npos; at = text.find(token, at + value.size()))
        text.replace(at, token.size(), value);
    return text;
}

// Where IN goes: OUT itself, IN's name inside the folder OUT, or the pattern filled in;
// nullopt when several inputs have one plain OUT.
std::optional<std::string> outputFor(const std::string& input, const std::string& out, const std::string& format,
                                     bool several) {
    const std::string name = KXFile::lastPathComponent(input);
    const std::string extension = KXFile::pathExtension(input);
    const std::string stem = extension.empty() ? name : name.substr(0, name.size() - extension.size() - 1);
    if (out.find("{name}") != std::string::npos) {
        const std::string folder = KXFile::directoryOfPath(input);
        return replaceAll(replaceAll(replaceAll(out, "{name}", stem), "{ext}", extension), "{dir}",
                          folder.empty() ? "." : folder);
    }
    std::error_code error;
    if (std::filesystem::is_directory(out, error) || (!out.empty() && out.back() == '/')) {
        const std::string wanted = format == "rf64" || format == "bw64" ? "wav" : format.empty() ? extension : format;
        return (out.back() == '/' ? out : out + "/") + stem + (wanted.empty() ? "" : "." + wanted);
    }
    if (several) return std::nullopt;
    return out;
}

FileReport convertFile(const std::string& input, const Options& options, const std::string& output,
                       KXProgressDelegate& progress) {
    KXError error;
    auto file = KXAudioFile::audioFileWithPath(input, &error);
    if (!file) return refusedReport(input, error);
    WriteOptions target = options;
    target.output = output;
    std::string refusal;
    auto writer = writerForOutput(*file, target, refusal);
    if (!writer) {
        FileReport report =
            refusedReport(input, KXAudioFileError::errorWithCode(KXAudioFileErrorUndefined, "Choosing the format"));
        report.entry["error"]["reason"] = refusal;
        report.err = "kxaudio: " + refusal + "\n";
        return report;
    }
    // The loudness values as metadata keys (LUFS, LU, dBTP); what cannot be measured is left out.
    if (options.loudness) {
        if (const auto loudness = file->loudnessForRange(KXRange::rangeWithAllTime(), file->channelSet())) {
            const std::pair<const char*, double> values[] = {{"loudnessValue", loudness->integrated},
                                                             {"loudnessRange", loudness->range},
                                                             {"maxTruePeakLevel", loudness->maxTruePeak},
                                                             {"maxMomentaryLoudness", loudness->maxMomentary},
                                                             {"maxShortTermLoudness", loudness->maxShortTerm}};
            for (const auto& [key, value] : values)
                if (std::isfinite(value)) writer->addMetadataObject(value, key);
        }
    }
    const auto failed = [&](const KXError& reason) {
        writer->deleteFiles();
        return refusedReport(
            input, reason.code() ? reason : KXAudioFileError::errorWithCode(KXAudioFileErrorUndefined, "Writing"));
    };
    writer->setExpectedFrames(file->frames());
    if (!writer->beginWrite(&error)) return failed(error);
    KXNativeAudioBuffer buffer(file->numberOfChannels(),
                               std::clamp<std::uint32_t>(file->frames(), 1, file->readBufferFrames()));
    for (std::uint64_t frame = 0; frame < file->frames();) {
        const std::int32_t read = file->readSamplesToBuffer(buffer, frame);
        if (read <= 0) break;
        writer->writeBuffer(buffer, {0, std::uint32_t(read)});
        frame += std::uint32_t(read);
        progress.update(double(frame) / double(file->frames()));
    }
    if (!writer->endWrite(&error)) return failed(error);
    if (!saveOutput(*writer, target, &error)) return refusedReport(input, error);
    FileReport report;
    Json written = Json::array();
    for (const std::string& path : writer->filePaths()) {
        written.push_back(jsonString(path));
        report.out += jsonString(path) + "\n";
    }
    report.entry = {{"path", jsonString(input)}, {"output", written}};
    return report;
}

}  // namespace

void addConvertCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("convert", "Write files' samples, labels and metadata to other files");
    auto options = std::make_shared<Options>();
    command
        ->add_option("IN… OUT", options->files, "Audio files to read, then the file, folder or name pattern to write")
        ->required()
        ->expected(2, -1);
    addBatchOptions(*command, *options, false);
    addWriteOptions(*command, *options);
    command->add_flag("--loudness", options->loudness,
                      "Measure IN's loudness (EBU R128) and store it (in WAVE files, 'bext' version 2)");
    addExample(*command,
               "kxaudio convert take.wav take.aif\n"
               "  kxaudio convert --format caf --depth 24 -j 8 sessions/*.wav converted/\n"
               "  kxaudio convert *.aif '{dir}/{name}-16.wav' --depth 16");
    command->callback([options, &status] {
        const std::string out = options->files.back();
        options->files.pop_back();
        const bool several = options->files.size() > 1;
        // Every input has its own output (the same output twice is refused), so inputs are distinct.
        std::set<std::string> taken;
        auto outputs = std::make_shared<std::map<std::string, std::string>>();
        for (const std::string& input : options->files) {
            const std::optional<std::string> output = outputFor(input, out, options->format, several);
            if (!output)
                throw CLI::ValidationError("OUT", "several files convert into a folder or a name pattern with {name}");
            if (!taken.insert(*output).second)
                throw CLI::ValidationError("OUT", "two files would be written as " + jsonString(*output));
            (*outputs)[input] = *output;
        }
        status = runBatch(*options, [options, outputs](const std::string& input, KXProgressDelegate& progress) {
            return convertFile(input, *options, outputs->at(input), progress);
        });
    });
}

}  // namespace kxaudio
