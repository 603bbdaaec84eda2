// kxaudio stats FILE… [--start S] [--end S] [--channels LIST] [--json]: the statistics report
// of a range per channel (peak and its position, RMS, positive and negative maxima and their
// positions, DC offset, clipped samples, pitch), levels also in dBFS, the file's loudest point,
// and the loudness of the range (EBU R128). Channels are numbered from 1.

#include <cmath>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "Batch.h"
#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXBase/KXMusicalFormatters.h"
#include "Output.h"

namespace kxaudio {
namespace {

struct Options : BatchOptions {
    double start = 0;
    double end = -1;  // the end of the file
    std::vector<std::uint32_t> channels;
};

// A level as decibels relative to full scale; null (silence) below any level.
Json decibels(double linear) {
    if (!(linear > 0)) return nullptr;
    return std::round(20.0 * std::log10(linear) * 100.0) / 100.0;
}
Json finite(double value) { return std::isfinite(value) ? Json(std::round(value * 100.0) / 100.0) : Json(nullptr); }

// Note numbers name their pitch class and octave: 57 is A4 (440 Hz), 48 C4.
std::string noteName(std::int64_t note) {
    const std::int64_t octave = note >= 0 ? note / 12 : -((11 - note) / 12);
    return KXKeyFormatter::stringForObjectValue(std::int32_t(note - octave * 12)) + std::to_string(octave);
}

Json measure(KXAudioFile& file, const Options& options, const KXIndexSet& channels) {
    const double end = options.end < 0 ? double(file.frames()) / file.rate() : options.end;
    const KXRange range = KXRange::rangeWithStart(options.start, end);
    Json result = {{"path", jsonString(file.path())}, {"start", options.start}, {"end", end}};
    const std::optional<KXDictionary> report = file.statisticsForRange(range, channels);
    if (!report) return result;
    const auto values = [&](const char* key) { return report->objectForKey(key).array(); };
    Json perChannel = Json::array();
    const KXArray& names = report->objectForKey("Channels").array();
    for (std::size_t i = 0; i < names.size(); ++i) {
        const auto number = [&](const char* key) { return values(key)[i].doubleValue(); };
        const double rms = number("\003RMS Power"), peak = number("\001Peak");
        const std::int64_t pitch = values("Pitch")[i].intValue();
        perChannel.push_back({
            {"name", names[i].stringValue()},
            {"peak", peak},
            {"peakDBFS", decibels(peak)},
            {"peakPosition", number("\002Peak Position")},
            {"rms", rms},
            {"rmsDBFS", decibels(rms)},
            {"positiveMax", number("\004Positive Max")},
            {"positiveMaxPosition", number("\005Positive Max Position")},
            {"negativeMax", number("\006Negative Max")},
            {"negativeMaxPosition", number("\007Negative Max Position")},
            {"dcOffset", number("\010DC Offset")},
            {"clipped", values("Clipped")[i].intValue()},
            // Silence has no pitch (the estimate would name the lowest bin's note).
            {"pitch", peak > 0 ? Json{{"note", pitch}, {"name", noteName(pitch)}} : Json(nullptr)},
        });
    }
    result["channels"] = perChannel;
    const KXDictionary loudest = file.maximumStatistics();
    const double value = loudest.objectForKey("value").doubleValue();
    const auto frame = loudest.objectForKey("frame").intValue();
    result["loudestPoint"] = {{"value", value},
                              {"dBFS", decibels(value)},
                              {"frame", frame},
                              {"position", double(frame) / file.rate()},
                              {"channel", loudest.objectForKey("channel").intValue() + 1}};
    if (const auto loudness = file.loudnessForRange(range, channels))
        result["loudness"] = {{"integrated", finite(loudness->integrated)},
                              {"range", finite(loudness->range)},
                              {"maxMomentary", finite(loudness->maxMomentary)},
                              {"maxShortTerm", finite(loudness->maxShortTerm)},
                              {"maxTruePeak", finite(loudness->maxTruePeak)}};
    return result;
}

std::string text(const Json& value, int precision = 4) {
    if (value.is_null()) return "-inf";
    std::ostringstream out;
    out << std::fixed << std::setprecision(precision) << value.get<double>();
    return out.str();
}

std::string printText(const Json& result) {
    std::ostringstream out;
    out << result["path"].get<std::string>() << "  " << text(result["start"], 3) << " s to "
              << text(result["end"], 3) << " s\n";
    for (const auto& channel : result["channels"]) {
        out << "  " << channel["name"].get<std::string>() << "\n"
                  << "    peak          " << text(channel["peak"]) << " (" << text(channel["peakDBFS"], 2)
                  << " dBFS) at " << text(channel["peakPosition"], 6) << " s\n"
                  << "    RMS           " << text(channel["rms"]) << " (" << text(channel["rmsDBFS"], 2) << " dBFS)\n"
                  << "    positive max  " << text(channel["positiveMax"]) << " at " << text(channel["positiveMaxPosition"], 6)
                  << " s\n"
                  << "    negative max  " << text(channel["negativeMax"]) << " at " << text(channel["negativeMaxPosition"], 6)
                  << " s\n"
                  << "    DC offset     " << text(channel["dcOffset"], 6) << "\n"
                  << "    clipped       " << channel["clipped"].get<std::int64_t>() << "\n"
                  << "    pitch         "
                  << (channel["pitch"].is_null() ? std::string("none (silence)")
                                                 : channel["pitch"]["name"].get<std::string>() + " (note " +
                                                       std::to_string(channel["pitch"]["note"].get<std::int64_t>()) + ")")
                  << "\n";
    }
    const Json& loudest = result["loudestPoint"];
    out << "  loudest point   " << text(loudest["value"]) << " (" << text(loudest["dBFS"], 2) << " dBFS) at "
              << text(loudest["position"], 6) << " s in channel " << loudest["channel"].get<std::int64_t>() << "\n";
    if (result.contains("loudness")) {
        const Json& loudness = result["loudness"];
        out << "  loudness        " << text(loudness["integrated"], 1) << " LUFS integrated, range "
                  << text(loudness["range"], 1) << " LU, momentary max " << text(loudness["maxMomentary"], 1)
                  << " LUFS, short-term max " << text(loudness["maxShortTerm"], 1) << " LUFS, true peak "
                  << text(loudness["maxTruePeak"], 1) << " dBTP\n";
    }
    return out.str();
}

}  // namespace

void addStatsCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("stats", "Measure the samples of files: levels, clipping, pitch, loudness");
    auto options = std::make_shared<Options>();
    addBatchOptions(*command, *options);
    command->add_option("--start", options->start, "Start of the range, seconds (default 0)")->check(CLI::NonNegativeNumber);
    command->add_option("--end", options->end, "End of the range, seconds (default: the end)")->check(CLI::NonNegativeNumber);
    command->add_option("--channels", options->channels, "Channels to measure, from 1 (default: all)")
        ->delimiter(',')
        ->check(CLI::PositiveNumber);
    addExample(*command, "kxaudio stats --start 10 --end 20 --channels 1 mix.wav\n  kxaudio stats --json stems/*.wav");
    command->callback([options, &status] {
        status = runBatch(*options, [options](const std::string& path, KXProgressDelegate& progress) {
            KXError error;
            auto file = KXAudioFile::audioFileWithPath(path, &error);
            if (!file) return refusedReport(path, error);
            KXIndexSet channels;
            for (std::uint32_t channel : options->channels) channels.addIndex(channel - 1);
            if (options->channels.empty()) channels = file->channelSet();
            file->setProgressDelegate(&progress);
            FileReport report;
            report.entry = measure(*file, *options, channels);
            file->setProgressDelegate(nullptr);
            report.entry["path"] = jsonString(path);
            if (!report.entry.contains("channels")) {
                report.failed = true;
                report.entry["error"] = errorJSON(KXAudioFileError::errorWithCode(KXAudioFileErrorUndefined, "Measuring the samples"), path);
                report.err = "kxaudio: " + jsonString(path) + ": nothing to measure in that range or those channels\n";
                return report;
            }
            report.out = printText(report.entry);
            return report;
        });
    });
}

}  // namespace kxaudio
