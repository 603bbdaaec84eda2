// kxaudio analyze FILE… [--write] [--json] [-j N]: the analysis pass (per-channel peak, RMS, clipped
// samples and waveform overviews); with --write the analysis is stored where the format keeps
// it (a chunk of the file, the resource fork, else the overview cache), and where it went is said.

#include <sstream>
#include <memory>
#include <string>
#include <vector>

#include "Batch.h"
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
    auto options = std::make_shared<BatchOptions>();
    auto write = std::make_shared<bool>(false);
    addBatchOptions(*command, *options);
    command->add_flag("--write", *write, "Store the analysis with the file (or in the overview cache)");
    addExample(*command, "kxaudio analyze --write -j 4 library/*.wav");
    command->callback([options, write, &status] {
        status = runBatch(*options, [write](const std::string& path, KXProgressDelegate& progress) {
            KXError error;
            auto file = KXAudioFile::audioFileWithPath(path, &error);
            if (!file) return refusedReport(path, error);
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
            std::ostringstream out;
            out << jsonString(path) << (stored ? " (analysed before)" : "") << "\n";
            for (const auto& channel : channels)
                out << "  " << channel["name"].get<std::string>() << ": max " << channel["max"].get<double>() << ", RMS "
                    << channel["rms"].get<double>() << ", clipped " << channel["clipped"].get<int>() << "\n";
            if (*write) out << "  stored in the " << result["storedIn"].get<std::string>() << "\n";
            FileReport report;
            report.entry = std::move(result);
            report.out = out.str();
            return report;
        });
    });
}

}  // namespace kxaudio
