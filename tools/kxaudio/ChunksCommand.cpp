// kxaudio chunks [--json] [-j N] FILE…: every chunk of each file, walked by the container its
// first four bytes name, with the 'JUNK' and 'free' chunks the walk steps over marked as skipped.

#include <algorithm>
#include <memory>
#include <sstream>
#include <string>

#include "Batch.h"
#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXBase/KXFile.h"
#include "Output.h"

namespace kxaudio {
namespace {

FileReport listChunks(const std::string& path) {
    KXError error;
    auto file = KXFile::fileWithPath(path, KXFile::Mode::read, &error);
    if (!file) return refusedReport(path, error);
    const auto kind = KXAudioFile::containerKindForLeadingBytes(file->readIntValueAtPosition(0, KXByteOrder::big));
    auto audioFile = KXAudioFile::audioFile();
    audioFile->setPath(path);
    audioFile->setFormat(kind.format);
    audioFile->setBlockSizeByteOrder(kind.blockSizeByteOrder);
    audioFile->setFileSize(file->length());
    file.reset();

    Json result = {{"path", jsonString(path)}, {"container", kind.name}, {"format", codeText(kind.format)}};
    Json chunks = Json::array();
    if (kind.hasChunks) {
        auto list = KXChunkList::chunkListForAudioFile(*audioFile, &error);
        if (!list) return refusedReport(path, error);
        for (std::size_t f = 0; f < list->chunks().size(); ++f) {
            Json inFile = Json::array();
            for (const auto& chunk : list->chunks()[f]) {
                Json entry = {{"type", codeText(chunk->type())},
                              {"position", chunk->position()},
                              {"length", chunk->length()},
                              {"loaded", chunk->storedLength() == KXChunk::kLengthNotSet}};
                if (chunk->subtype()) entry["subtype"] = codeText(chunk->subtype());
                if (chunk->uuid()) entry["uuid"] = chunk->uuid()->stringValue();
                if (chunk->format() == KXFourCC("SDII")) entry["id"] = chunk->chunkID();
                if (chunk->name()) entry["name"] = *chunk->name();
                inFile.push_back(std::move(entry));
            }
            if (f < list->skippedChunks().size())
                for (const auto& skipped : list->skippedChunks()[f])
                    inFile.push_back({{"type", codeText(skipped.type)},
                                      {"position", skipped.position},
                                      {"length", skipped.length},
                                      {"loaded", false},
                                      {"skipped", true}});
            // Resources have no place in the file and keep their order.
            std::stable_sort(inFile.begin(), inFile.end(), [](const Json& a, const Json& b) {
                return !a.contains("id") && !b.contains("id") && a["position"] < b["position"];
            });
            for (auto& entry : inFile) {
                if (list->chunks().size() > 1) entry["file"] = f;
                chunks.push_back(std::move(entry));
            }
        }
    }
    result["fileSize"] = audioFile->fileSize();
    result["chunks"] = chunks;
    FileReport report;
    if (error.code() == KXAudioFileErrorFileSizeAdjusted) {
        result["warning"] = errorJSON(error);
        report.err = "kxaudio: " + jsonString(path) + ": warning: " + error.description() + "\n";
    }
    std::ostringstream out;
    out << jsonString(path) << ": " << kind.name << ", " << chunks.size() << " chunks\n";
    for (const auto& chunk : chunks) {
        out << "  '" << chunk["type"].get<std::string>() << "'";
        if (chunk.contains("subtype")) out << " '" << chunk["subtype"].get<std::string>() << "'";
        // Resources have an ID and maybe a name, not a place in the file.
        if (chunk.contains("id")) {
            out << " " << chunk["id"];
            if (chunk.contains("name")) out << " " << chunk["name"];
            out << ", ";
        } else {
            out << " at " << chunk["position"] << ", ";
        }
        out << chunk["length"] << " bytes";
        if (chunk.contains("skipped"))
            out << " (skipped)";
        else if (!chunk["loaded"].get<bool>())
            out << " (not loaded)";
        out << "\n";
    }
    report.entry = std::move(result);
    report.out = out.str();
    return report;
}

}  // namespace

void addChunksCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("chunks", "List the chunks of files");
    auto options = std::make_shared<BatchOptions>();
    addBatchOptions(*command, *options);
    addExample(*command, "kxaudio chunks take.wav\n  kxaudio chunks --json -j 8 library/*.aif");
    command->callback([options, &status] {
        status = runBatch(*options, [](const std::string& path, KXProgressDelegate&) { return listChunks(path); });
    });
}

}  // namespace kxaudio
