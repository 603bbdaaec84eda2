// kxaudio repair FILE…: recovers WAVE and AIFF recordings cut short, which opening refuses
// because a declared size runs past the file's end: the sizes are mended and the samples cut to
// the whole frames there are, in place of the file.

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "Output.h"

namespace kxaudio {

void addRepairCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("repair", "Recover WAVE and AIFF recordings that were cut short");
    auto files = std::make_shared<std::vector<std::string>>();
    command->add_option("FILE", *files, "Audio files")->required();
    command->callback([files, &status] {
        for (const std::string& path : *files) {
            KXError error;
            const bool changed = KXAudioFile::recoverAtPath(path, &error);
            if (!changed && error.code() != 0) {
                std::cerr << "kxaudio: " << jsonString(path) << ": " << error.description() << "\n";
                status = kRefused;
                continue;
            }
            if (!changed) {
                std::cout << jsonString(path) << ": nothing to mend\n";
                continue;
            }
            auto file = KXAudioFile::audioFileWithPath(path, &error);
            std::cout << jsonString(path) << ": recovered";
            if (file) std::cout << ", " << file->frames() << " frames";
            std::cout << "\n";
        }
    });
}

}  // namespace kxaudio
