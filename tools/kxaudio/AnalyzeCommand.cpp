// kxaudio analyze FILE… [--write] [--json]: the analysis pass (per-channel peak, RMS, clipped
// samples and waveform overviews); with --write the analysis is stored where the format keeps
// it (a chunk of the file, the resource fork, else the overview cache), and where it went is said.

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "Output.h"

namespace kxaudio {
namespace {

const char* placeText(KXAudioFile::KXAnalysisPlace place) {
    switch (place) {
        case KXAudioFile::KXAnalysisPlace::file: return "file";
        case KXAudioFile::KXAnalysisPlace::resourceFork: return "resource fork";
        case KXAudioFile::KXAnalysisPlace::cache: return "cache";
        case KXAudioFile::KXAnalysisPlace::nowhere: break;
    }
    return "nowhere";
}

}  // namespace

void addAnalyzeCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("analyze", "Run the analysis pass: peaks, RMS, clipping and overviews");
    auto files = std::make_shared<std::vector<std::string>>();
    auto write = std::make_shared<bool>(false);
    auto json = std::make_shared<bool>(false);
    command->add_option("FILE", *files, "Audio files")->required();
    command->add_flag("--write", *write, "Store the analysis with the file (or in the overview cache)");
    command->add_flag("--json", *json, "Print JSON");
    command->callback([files, write, json, &status] {
        Json all = Json::array();
        TerminalProgress progress;
        for (const std::string& path : *files) {
            auto file = openForCommand(path, *json, all, status);
            if (!file) continue;
            file->setProgressDelegate(&progress);
            // A stored analysis is read when the file opens; the pass runs for the rest.
            const bool stored = file->channelsList()->analysisState() == 1;
            (void)file->analyze(false);
            file->setProgressDelegate(nullptr);
            Json result = {{"path", jsonString(path)}, {"alreadyAnalysed", stored}};
            if (*write) result["storedIn"] = placeText(file->writeAnalysisHeader());
            Json channels = Json::array();
            for (const auto& channel : file->channelsList()->list())
                channels.push_back({{"name", channel->name()}, {"max", channel->max()}, {"rms", channel->rms()},
                                    {"clipped", channel->clipped()}});
            result["channels"] = channels;
            all.push_back(result);
            if (*json) continue;
            std::cout << path << (stored ? " (analysed before)" : "") << "\n";
            for (const auto& channel : channels)
                std::cout << "  " << channel["name"].get<std::string>() << ": max " << channel["max"].get<double>()
                          << ", RMS " << channel["rms"].get<double>() << ", clipped " << channel["clipped"].get<int>() << "\n";
            if (*write) std::cout << "  stored in the " << result["storedIn"].get<std::string>() << "\n";
        }
        if (*json) std::cout << jsonText(files->size() == 1 ? all.front() : all) << "\n";
    });
}

}  // namespace kxaudio
