// kxaudio info [--json] FILE…: what opening a file makes of it.

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXRegion.h"
#include "Output.h"

namespace kxaudio {
namespace {

const char* orderText(std::int32_t order) { return order == 1 ? "little" : "big"; }

Json describe(const KXAudioFile& file, const std::string& path, const KXError& warning) {
    Json info = {
        {"path", jsonString(path)},
        {"name", file.displayName()},
        {"format", codeText(file.format())},
        {"encoding", codeText(file.encoding())},
        {"rate", file.rate()},
        {"depth", file.depth()},
        {"channels", file.numberOfChannels()},
        {"frames", file.frames()},
        {"floatingPoint", file.isFloatingPoint()},
        {"interleaved", file.isInterleaved()},
        {"blockSizeByteOrder", orderText(file.blockSizeByteOrder())},
        {"audioDataByteOrder", orderText(file.audioDataByteOrder())},
        {"fileSize", file.fileSize()},
        {"creator", file.creator()},
    };
    if (warning.code() == KXAudioFileErrorFileSizeAdjusted) info["warning"] = errorJSON(warning);
    Json channels = Json::array();
    for (const auto& channel : file.channelsList()->list()) channels.push_back(channel->name());
    info["channelNames"] = channels;
    const auto labels = [](const KXLabelList& list, auto describeLabel) {
        Json items = Json::array();
        for (std::size_t i = 0; i < list.count(); ++i) items.push_back(describeLabel(*list.labelAtIndex(i)));
        return items;
    };
    info["markers"] = labels(*file.markerList(), [](const KXLabel& marker) {
        return Json{{"id", marker.labelID()}, {"position", marker.position()}, {"name", marker.name().value_or("")}};
    });
    info["regions"] = labels(*file.regionList(), [](const KXLabel& label) {
        const auto& region = static_cast<const KXRegion&>(label);
        return Json{{"id", region.labelID()}, {"start", region.start()}, {"end", region.end()},
                    {"name", region.name().value_or("")}, {"sync", region.sync()}, {"timeStamp", region.timeStamp()}};
    });
    info["loops"] = labels(*file.loopList(), [](const KXLabel& label) {
        const auto& loop = static_cast<const KXLoop&>(label);
        return Json{{"id", loop.labelID()}, {"type", loop.loopType()}, {"start", loop.start()}, {"end", loop.end()}};
    });
    info["slices"] = labels(*file.sliceList(), [](const KXLabel& slice) { return Json{{"position", slice.position()}}; });
    info["metadata"] = valueJSON(file.metadata());
    Json unused = Json::array();
    if (file.unusedChunkList())
        for (const auto& chunk : *file.unusedChunkList())
            unused.push_back({{"type", codeText(chunk->type())}, {"length", chunk->length()}});
    info["unusedChunks"] = unused;
    return info;
}

void printText(const Json& info) {
    std::cout << info["path"].get<std::string>() << "\n";
    for (const auto& [key, value] : info.items()) {
        if (key == "path" || (value.is_structured() && value.empty())) continue;
        std::cout << "  " << key << ": ";
        if (key == "warning") std::cout << value["action"].get<std::string>() << ": " << value["reason"].get<std::string>();
        else if (value.is_string()) std::cout << value.get<std::string>();
        else std::cout << jsonText(value, -1);
        std::cout << "\n";
    }
}

}  // namespace

void addInfoCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("info", "Open files and print what they hold");
    auto files = std::make_shared<std::vector<std::string>>();
    auto json = std::make_shared<bool>(false);
    command->add_flag("--json", *json, "Print JSON");
    command->add_option("FILE", *files, "Audio files")->required();
    command->callback([files, json, &status] {
        Json all = Json::array();
        for (const std::string& path : *files) {
            KXError error;
            auto file = openForCommand(path, *json, all, status, &error);
            if (!file) continue;
            all.push_back(describe(*file, path, error));
            if (!*json) printText(all.back());
        }
        if (!*json) return;
        // One file prints its object (or its refusal alone); several print an array.
        if (files->size() == 1) {
            const auto& only = all.front();
            std::cout << jsonText(only.contains("error") ? Json{{"error", only["error"]}} : only) << "\n";
        } else {
            std::cout << jsonText(all) << "\n";
        }
    });
}

}  // namespace kxaudio
