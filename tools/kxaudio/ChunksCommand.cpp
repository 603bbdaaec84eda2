// kxaudio chunks [--json] FILE: every chunk of a file, walked by the container its first four
// bytes name.

#include <iomanip>
#include <iostream>
#include <memory>
#include <string>

#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWrapper/KXChunkList.h"
#include "KXBase/KXFile.h"
#include "Output.h"

namespace kxaudio {

void addChunksCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("chunks", "List the chunks of a file");
    auto path = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    command->add_flag("--json", *json, "Print JSON");
    command->add_option("FILE", *path, "An audio file")->required();
    command->callback([path, json, &status] {
        KXError error;
        auto file = KXFile::fileWithPath(*path, KXFile::Mode::read, &error);
        if (!file) {
            status = refuse(error, *json);
            return;
        }
        const auto kind = KXAudioFile::containerKindForLeadingBytes(file->readIntValueAtPosition(0, KXByteOrder::big));
        auto audioFile = KXAudioFile::audioFile();
        audioFile->setPath(*path);
        audioFile->setFormat(kind.format);
        audioFile->setBlockSizeByteOrder(kind.blockSizeByteOrder);
        audioFile->setFileSize(file->length());
        file.reset();

        Json result = {{"path", jsonString(*path)}, {"container", kind.name}, {"format", codeText(kind.format)}};
        Json chunks = Json::array();
        if (kind.hasChunks) {
            auto list = KXChunkList::chunkListForAudioFile(*audioFile, &error);
            if (!list) {
                status = refuse(error, *json, *path);
                return;
            }
            for (std::size_t f = 0; f < list->chunks().size(); ++f) {
                for (const auto& chunk : list->chunks()[f]) {
                    Json entry = {{"type", codeText(chunk->type())},
                                            {"position", chunk->position()},
                                            {"length", chunk->length()},
                                            {"loaded", chunk->storedLength() == KXChunk::kLengthNotSet}};
                    if (chunk->subtype()) entry["subtype"] = codeText(chunk->subtype());
                    if (chunk->uuid()) entry["uuid"] = chunk->uuid()->stringValue();
                    if (chunk->format() == KXFourCC("SDII")) entry["id"] = chunk->chunkID();
                    if (chunk->name()) entry["name"] = *chunk->name();
                    if (list->chunks().size() > 1) entry["file"] = f;
                    chunks.push_back(std::move(entry));
                }
            }
        }
        result["fileSize"] = audioFile->fileSize();
        result["chunks"] = chunks;
        const bool warned = error.code() == KXAudioFileErrorFileSizeAdjusted;
        if (warned) result["warning"] = errorJSON(error);
        if (*json) {
            std::cout << jsonText(result) << "\n";
            return;
        }
        std::cout << *path << ": " << kind.name << ", " << chunks.size() << " chunks\n";
        for (const auto& chunk : chunks) {
            std::cout << "  '" << chunk["type"].get<std::string>() << "'";
            if (chunk.contains("subtype")) std::cout << " '" << chunk["subtype"].get<std::string>() << "'";
            // Resources have an ID and maybe a name, not a place in the file.
            if (chunk.contains("id")) {
                std::cout << " " << chunk["id"];
                if (chunk.contains("name")) std::cout << " " << chunk["name"];
                std::cout << ", ";
            } else {
                std::cout << " at " << chunk["position"] << ", ";
            }
            std::cout << chunk["length"] << " bytes"
                      << (chunk["loaded"].get<bool>() ? "" : " (not loaded)") << "\n";
        }
        if (warned) std::cerr << "kxaudio: warning: " << error.description() << "\n";
    });
}

}  // namespace kxaudio
