// kxaudio tag FILE… [--set KEY=VALUE]… [--remove KEY]… [--add-marker SECONDS[:NAME]]…
//                   [--remove-marker ID]… [--add-loop A:B[:TYPE]]… [--clear-labels] [--json] [-j N]
// Changes the metadata and labels of files without touching their samples: the label and
// metadata chunks are rewritten in place where they fit (padding chunks absorb growth), else the
// file is written anew beside itself and renamed over the old one. Keys are taken in their
// program spelling ("originalArtist") or their display spelling ("Original Artist").

#include <cmath>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "Batch.h"
#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXMarker.h"
#include "KXBase/KXMetadata.h"
#include "Output.h"

namespace kxaudio {
namespace {

constexpr const char* kTagAction = "Updating the header";

struct Options : BatchOptions {
    std::vector<std::string> set, remove, addMarker, addLoop;
    std::vector<std::uint32_t> removeMarker;
    bool clearLabels = false;
};

struct MarkerToAdd {
    double position;
    std::optional<std::string> name;
};
struct LoopToAdd {
    double start, end;
    std::uint32_t type;
};

// "SECONDS[:NAME]".
MarkerToAdd parseMarker(const std::string& text) {
    const std::size_t colon = text.find(':');
    std::size_t used = 0;
    const std::string number = text.substr(0, colon);
    double position = -1;
    try {
        position = std::stod(number, &used);
    } catch (const std::exception&) {
    }
    if (used != number.size() || !(position >= 0) || !std::isfinite(position))
        throw CLI::ValidationError("--add-marker", "not seconds: " + text);
    return {position, colon == std::string::npos ? std::nullopt : std::optional(text.substr(colon + 1))};
}

// "A:B[:TYPE]", TYPE forward (the default), alternate or backward, or the loop type's name.
LoopToAdd parseLoop(const std::string& text) {
    std::vector<std::string> parts;
    std::stringstream stream(text);
    for (std::string part; std::getline(stream, part, ':');) parts.push_back(part);
    if (parts.size() < 2 || parts.size() > 3) throw CLI::ValidationError("--add-loop", "not A:B[:TYPE]: " + text);
    double start = 0, end = 0;
    try {
        start = std::stod(parts[0]);
        end = std::stod(parts[1]);
    } catch (const std::exception&) {
        throw CLI::ValidationError("--add-loop", "not seconds: " + text);
    }
    if (!(start >= 0) || !(end > start) || !std::isfinite(end))
        throw CLI::ValidationError("--add-loop", "the end must follow the start: " + text);
    std::uint32_t type = KXLoop::kForward;
    if (parts.size() == 3) {
        const std::string& name = parts[2];
        if (name == "forward")
            type = KXLoop::kForward;
        else if (name == "alternate")
            type = KXLoop::kForwardBackward;
        else if (name == "backward")
            type = KXLoop::kBackward;
        else if (const auto named = KXLoop::loopTypeForName(name))
            type = *named;
        else
            throw CLI::ValidationError("--add-loop", "no loop type \"" + name + "\" (forward, alternate, backward)");
    }
    return {start, end, type};
}

// The metadata key a user names, and the key as the file may hold it in the other spelling.
std::vector<std::string> spellingsOf(const std::string& name) {
    const std::string key = KXMetadata::keyForName(name);
    std::vector<std::string> keys{key};
    if (const std::string title = KXMetadata::titleForKey(key); title != key) keys.push_back(title);
    return keys;
}

// The writer's four label lists.
std::vector<KXLabelList*> labelListsOf(const KXAudioFileWriter& writer) {
    return {writer.markerList().get(), writer.regionList().get(), writer.loopList().get(), writer.sliceList().get()};
}

std::uint32_t nextLabelID(const KXAudioFileWriter& writer) {
    std::uint32_t highest = 0;
    for (const KXLabelList* list : labelListsOf(writer))
        for (const auto& label : list->list()) highest = std::max(highest, label->labelID());
    return highest + 1;
}

FileReport tagFile(const std::string& path, const Options& options, const std::vector<MarkerToAdd>& markers,
                   const std::vector<LoopToAdd>& loops) {
    KXError error;
    auto file = KXAudioFile::audioFileWithPath(path, &error);
    if (!file) return refusedReport(path, error);
    auto writer = KXAudioFileWriter::writerWithAudioFile(*file);
    if (options.clearLabels)
        for (KXLabelList* list : labelListsOf(*writer)) list->removeAllLabels();
    for (std::uint32_t id : options.removeMarker) {
        const auto marker = writer->markerList()->markerWithID(id);
        if (!marker) {
            FileReport report =
                refusedReport(path, KXAudioFileError::errorWithCode(KXAudioFileErrorUndefined, kTagAction));
            report.entry["error"]["reason"] = "the file has no marker " + std::to_string(id) + ".";
            report.err = "kxaudio: " + jsonString(path) + ": the file has no marker " + std::to_string(id) + "\n";
            return report;
        }
        writer->markerList()->removeLabel(marker.get());
    }
    for (const MarkerToAdd& add : markers) {
        auto marker = KXMarker::marker();
        marker->setPosition(add.position);
        marker->setName(add.name);
        marker->setLabelID(nextLabelID(*writer));
        writer->markerList()->addLabel(marker);
    }
    for (const LoopToAdd& add : loops) {
        auto loop = KXLoop::loop();
        loop->setStart(add.start);
        loop->setEnd(add.end);
        loop->setLoopType(add.type);
        loop->setLabelID(nextLabelID(*writer));
        writer->loopList()->addLabel(loop);
    }
    for (const std::string& name : options.remove)
        for (const std::string& key : spellingsOf(name)) writer->mutableMetadata().removeObjectForKey(key);
    for (const std::string& assignment : options.set) {
        const std::size_t equals = assignment.find('=');
        const std::vector<std::string> keys = spellingsOf(assignment.substr(0, equals));
        for (const std::string& key : keys) writer->mutableMetadata().removeObjectForKey(key);
        writer->mutableMetadata().setObject(assignment.substr(equals + 1), keys.front());
    }
    const auto how = writer->updateHeaderOfFile(path, &error);
    if (!how) return refusedReport(path, error);
    const char* done = *how == KXAudioFileWriter::HeaderUpdate::inPlace ? "in place" : "rewritten";
    FileReport report;
    report.entry = {{"path", jsonString(path)}, {"updated", done}};
    report.out = jsonString(path) + ": header updated " + done + "\n";
    return report;
}

}  // namespace

void addTagCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("tag", "Change files' metadata and labels without touching their samples");
    auto options = std::make_shared<Options>();
    addBatchOptions(*command, *options);
    command->add_option("--set", options->set, "Set metadata: KEY=VALUE (program or display spelling)")
        ->check([](const std::string& text) { return text.find('=') == std::string::npos ? "not KEY=VALUE" : ""; });
    command->add_option("--remove", options->remove, "Remove a metadata key");
    command->add_option("--add-marker", options->addMarker, "Add a marker: SECONDS[:NAME]");
    command->add_option("--remove-marker", options->removeMarker, "Remove the marker with this ID (as info shows it)");
    command->add_option("--add-loop", options->addLoop, "Add a loop: A:B[:forward|alternate|backward] in seconds");
    command->add_flag("--clear-labels", options->clearLabels, "Remove every marker, region, loop and slice first");
    addExample(*command,
               "kxaudio tag take.wav --set \"Original Artist=The Band\" --add-marker 12.5:Chorus "
               "--add-loop 1:3:alternate");
    command->callback([options, &status] {
        auto markers = std::make_shared<std::vector<MarkerToAdd>>();
        auto loops = std::make_shared<std::vector<LoopToAdd>>();
        for (const std::string& text : options->addMarker) markers->push_back(parseMarker(text));
        for (const std::string& text : options->addLoop) loops->push_back(parseLoop(text));
        status = runBatch(*options, [options, markers, loops](const std::string& path, KXProgressDelegate&) {
            return tagFile(path, *options, *markers, *loops);
        });
    });
}

}  // namespace kxaudio
