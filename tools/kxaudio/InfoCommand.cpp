// kxaudio info [--json] [--verbose] [-j N] FILE…: what opening a file makes of it. The text reads
// like soxi: duration as h:mm:ss.mmm, the sample format in words, labels in frames and seconds,
// loop types and metadata keys by name; the fields the library keeps for itself (byte orders,
// interleaving, creator, codes) only with --verbose. The JSON has every field.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>

#include "Batch.h"
#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXRegion.h"
#include "KXBase/KXFourCC.h"
#include "KXBase/KXMetadata.h"
#include "Output.h"

namespace kxaudio {
namespace {

const char* orderText(std::int32_t order) {
    return order == 1 ? "little" : "big";
}

// "16-bit signed integer PCM", "32-bit floating point", "8-bit µ-law" …
std::string sampleFormatText(const KXAudioFile& file) {
    const std::string bits = std::to_string(file.depth()) + "-bit ";
    if (file.encoding() == KXFourCC("ulaw")) return bits + "\xC2\xB5-law";
    if (file.encoding() == KXFourCC("alaw")) return bits + "A-law";
    if (file.isFloatingPoint()) return bits + "floating point";
    return bits + (file.sourceDescription().isSignedInteger() || file.depth() > 8 ? "signed" : "unsigned") +
           " integer PCM";
}

Json describe(const KXAudioFile& file, const std::string& path, const KXError& warning) {
    const double rate = file.rate() ? double(file.rate()) : 1.0;
    Json info = {
        {"path", jsonString(path)},
        {"name", file.displayName()},
        {"format", codeText(file.format())},
        {"encoding", codeText(file.encoding())},
        {"sampleFormat", sampleFormatText(file)},
        {"rate", file.rate()},
        {"depth", file.depth()},
        {"channels", file.numberOfChannels()},
        {"frames", file.frames()},
        {"duration", double(file.frames()) / rate},
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
        return Json{{"id", region.labelID()}, {"start", region.start()},
                    {"end", region.end()},    {"name", region.name().value_or("")},
                    {"sync", region.sync()},  {"timeStamp", region.timeStamp()}};
    });
    info["loops"] = labels(*file.loopList(), [](const KXLabel& label) {
        const auto& loop = static_cast<const KXLoop&>(label);
        return Json{{"id", loop.labelID()},
                    {"type", loop.loopType()},
                    {"typeName", KXLoop::nameForLoopType(loop.loopType()).value_or("")},
                    {"start", loop.start()},
                    {"end", loop.end()}};
    });
    info["slices"] = labels(*file.sliceList(), [](const KXLabel& slice) {
        return Json{{"position", slice.position()}};
    });
    info["metadata"] = valueJSON(file.metadata());
    Json unused = Json::array();
    if (file.unusedChunkList())
        for (const auto& chunk : *file.unusedChunkList())
            unused.push_back({{"type", codeText(chunk->type())}, {"length", chunk->length()}});
    info["unusedChunks"] = unused;
    return info;
}

// "1.4 MB", "705.6 kB", "512 bytes".
std::string sizeText(double bytes) {
    char text[32];
    if (bytes < 1000)
        std::snprintf(text, sizeof text, "%.0f bytes", bytes);
    else if (bytes < 1e6)
        std::snprintf(text, sizeof text, "%.1f kB", bytes / 1e3);
    else if (bytes < 1e9)
        std::snprintf(text, sizeof text, "%.1f MB", bytes / 1e6);
    else
        std::snprintf(text, sizeof text, "%.2f GB", bytes / 1e9);
    return text;
}

std::string quotedName(const Json& name) {
    const std::string text = name.get<std::string>();
    return text.empty() ? std::string() : "  \"" + text + "\"";
}

std::string text(const Json& info, bool verbose) {
    std::ostringstream out;
    const double rate = std::max(1.0, info["rate"].get<double>());
    const auto field = [&](const std::string& title) -> std::ostringstream& {
        out << "  " << title << std::string(title.size() < 16 ? 16 - title.size() : 1, ' ');
        return out;
    };
    // Label positions are in seconds; the frames are those at the file's rate.
    // Positions come from the file: whatever they hold, the frame is a number in range.
    const auto frameAt = [&](double seconds) {
        const double frame = seconds * rate;
        return groupedNumber(std::isfinite(frame) ? std::llround(std::clamp(frame, -9e18, 9e18)) : 0);
    };
    const auto at = [&](double seconds) { return durationText(seconds) + "  frame " + frameAt(seconds); };
    const auto span = [&](double start, double end) {
        return durationText(start) + "\xE2\x80\x93" + durationText(end) + "  frames " + frameAt(start) +
               "\xE2\x80\x93" + frameAt(end);
    };
    out << info["path"].get<std::string>() << "\n";
    field("Format") << info["format"].get<std::string>() << "\n";
    // One-byte samples (8-bit PCM, G.711) have no byte order.
    field("Sample format") << info["sampleFormat"].get<std::string>();
    if (info["depth"].get<std::int64_t>() > 8 && info["encoding"].get<std::string>() == "lpcm")
        out << ", " << info["audioDataByteOrder"].get<std::string>() << "-endian";
    out << "\n";
    field("Channels") << info["channels"].get<std::int64_t>();
    if (!info["channelNames"].empty()) {
        out << " (";
        for (std::size_t i = 0; i < info["channelNames"].size(); ++i)
            out << (i ? ", " : "") << info["channelNames"][i].get<std::string>();
        out << ")";
    }
    out << "\n";
    field("Sample rate") << groupedNumber(info["rate"].get<std::int64_t>()) << " Hz\n";
    field("Duration") << durationText(info["duration"].get<double>()) << " = "
                      << groupedNumber(info["frames"].get<std::int64_t>()) << " frames\n";
    field("File size") << sizeText(info["fileSize"].get<double>()) << "\n";
    // Bits a second of the samples as stored (compressed encodings are 8 bits deep here).
    const double bitRate = info["rate"].get<double>() * info["depth"].get<double>() * info["channels"].get<double>();
    char bits[32];
    std::snprintf(bits, sizeof bits, bitRate >= 1e6 ? "%.2f Mb/s" : "%.1f kb/s",
                  bitRate >= 1e6 ? bitRate / 1e6 : bitRate / 1e3);
    field("Bit rate") << bits << "\n";
    if (!info["markers"].empty()) {
        field("Markers") << info["markers"].size() << "\n";
        for (const auto& marker : info["markers"])
            out << "    #" << marker["id"].get<std::int64_t>() << "  " << at(marker["position"].get<double>())
                << quotedName(marker["name"]) << "\n";
    }
    if (!info["regions"].empty()) {
        field("Regions") << info["regions"].size() << "\n";
        for (const auto& region : info["regions"])
            out << "    #" << region["id"].get<std::int64_t>() << "  "
                << span(region["start"].get<double>(), region["end"].get<double>()) << quotedName(region["name"])
                << "\n";
    }
    if (!info["loops"].empty()) {
        field("Loops") << info["loops"].size() << "\n";
        for (const auto& loop : info["loops"]) {
            const std::string type = loop["typeName"].get<std::string>();
            out << "    #" << loop["id"].get<std::int64_t>() << "  "
                << (type.empty() ? "type " + std::to_string(loop["type"].get<std::int64_t>()) : type) << "  "
                << span(loop["start"].get<double>(), loop["end"].get<double>()) << "\n";
        }
    }
    if (!info["slices"].empty()) {
        field("Slices") << info["slices"].size() << "\n";
        for (const auto& slice : info["slices"]) out << "    " << at(slice["position"].get<double>()) << "\n";
    }
    if (!info["metadata"].empty()) {
        out << "  Metadata\n";
        for (const auto& [key, value] : info["metadata"].items()) {
            const std::string title = KXMetadata::titleForKey(key);
            out << "    " << title << std::string(title.size() < 22 ? 22 - title.size() : 1, ' ')
                << (value.is_string() ? value.get<std::string>() : jsonText(value, -1)) << "\n";
        }
    }
    if (!info["unusedChunks"].empty()) {
        field("Kept chunks");
        for (std::size_t i = 0; i < info["unusedChunks"].size(); ++i)
            out << (i ? ", " : "") << "'" << info["unusedChunks"][i]["type"].get<std::string>() << "' ("
                << groupedNumber(info["unusedChunks"][i]["length"].get<std::int64_t>()) << " bytes)";
        out << "\n";
    }
    if (verbose) {
        const std::pair<const char*, const char*> fields[] = {{"Display name", "name"},
                                                              {"Encoding", "encoding"},
                                                              {"Bits", "depth"},
                                                              {"Floating point", "floatingPoint"},
                                                              {"Interleaved", "interleaved"},
                                                              {"Size order", "blockSizeByteOrder"},
                                                              {"Sample order", "audioDataByteOrder"},
                                                              {"Creator", "creator"}};
        for (const auto& [title, key] : fields) {
            const Json& value = info[key];
            field(title) << (value.is_string() ? value.get<std::string>() : jsonText(value, -1)) << "\n";
        }
    }
    return out.str();
}

}  // namespace

void addInfoCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("info", "Open files and print what they hold");
    auto options = std::make_shared<BatchOptions>();
    auto verbose = std::make_shared<bool>(false);
    addBatchOptions(*command, *options);
    command->add_flag("-v,--verbose", *verbose, "Also the fields the library keeps for itself");
    addExample(*command, "kxaudio info take.wav\n  kxaudio info --json *.wav > info.json");
    command->callback([options, verbose, &status] {
        status = runBatch(*options, [verbose](const std::string& path, KXProgressDelegate&) {
            KXError error;
            auto file = KXAudioFile::audioFileWithPath(path, &error);
            if (!file) return refusedReport(path, error);
            FileReport report;
            report.entry = describe(*file, path, error);
            report.out = text(report.entry, *verbose);
            if (error.code() == KXAudioFileErrorFileSizeAdjusted)
                report.err = "kxaudio: " + jsonString(path) + ": warning: " + error.description() + "\n";
            return report;
        });
    });
}

}  // namespace kxaudio
