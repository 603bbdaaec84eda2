// kxaudio onsets FILE… [-j N] [--method threshold|energy|bands] [--sensitivity X | --attack A --release R
// --interval S] [--zero-cross] [--start S] [--end S] [--json]: where the sound starts. The
// threshold method gives the ranges in which the level stays above the attack level (from the
// maximum overview, which a file without one is analysed for); the energy methods give onsets,
// over the whole spectrum or in a low (below 100 Hz) and a high band (above 8 kHz).

#include <iomanip>
#include <sstream>
#include <memory>
#include <string>

#include "Batch.h"
#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "Output.h"

namespace kxaudio {
namespace {

struct Options : BatchOptions {
    std::string method = "energy";
    std::optional<double> sensitivity, attack, release, interval, start, end;
    bool zeroCross = false;
};

FileReport findOnsets(const std::string& path, const Options& options, KXProgressDelegate& progress, bool heading) {
    KXError error;
    auto file = KXAudioFile::audioFileWithPath(path, &error);
    if (!file) return refusedReport(path, error);
    file->setProgressDelegate(&progress);
    KXDictionary instructions{{"atZeroCross", options.zeroCross}};
    if (options.sensitivity) instructions.setObject(*options.sensitivity, "sensitivity");
    if (options.attack) instructions.setObject(*options.attack, "attack");
    if (options.release) instructions.setObject(*options.release, "release");
    if (options.interval) instructions.setObject(*options.interval, "interval");
    if (options.start || options.end)
        instructions.setObject(KXArray{options.start.value_or(0.0), options.end.value_or(double(file->frames()) / file->rate())},
                               "range");
    std::vector<KXRange> ranges;
    if (options.method == "threshold") {
        (void)file->analyze(false);  // the levels come from the maximum overview
        ranges = file->rangesForThresholdsWithInstructions(instructions);
    } else if (options.method == "energy") {
        ranges = file->rangesForEnergyWithInstructions(instructions);
    } else {
        ranges = file->rangesForEnergyBandsWithInstructions(instructions);
    }
    file->setProgressDelegate(nullptr);
    const bool spans = options.method == "threshold";
    Json found = Json::array();
    std::ostringstream out;
    out << std::fixed << std::setprecision(6);
    if (heading) out << jsonString(path) << ":\n";
    for (const KXRange& range : ranges) {
        if (spans) {
            found.push_back({{"start", range.start()}, {"end", range.end()}, {"startFrame", range.sampleStart()},
                             {"endFrame", range.sampleEnd()}});
            out << range.start() << "\t" << range.end() << "\n";
        } else {
            found.push_back({{"position", range.start()}, {"frame", range.sampleStart()}});
            out << range.start() << "\n";
        }
    }
    FileReport report;
    report.entry = {{"path", jsonString(path)}, {"method", options.method}, {spans ? "ranges" : "onsets", found}};
    report.out = out.str();
    return report;
}

}  // namespace

void addOnsetsCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("onsets", "Find where sounds start: threshold ranges or energy onsets");
    auto options = std::make_shared<Options>();
    addBatchOptions(*command, *options);
    command->add_option("--method", options->method, "threshold, energy (default) or bands")
        ->check(CLI::IsMember({"threshold", "energy", "bands"}));
    auto* sensitivity = command->add_option("--sensitivity", options->sensitivity, "0 (least) to 1 (most sensitive)")
                            ->check(CLI::Range(0.0, 1.0));
    auto* attack = command->add_option("--attack", options->attack, "Level that opens a range (linear, threshold)");
    command->add_option("--release", options->release, "Level under which a range closes (linear, threshold)")
        ->needs(attack);
    command->add_option("--interval", options->interval, "Seconds the level stays down before a range closes")
        ->needs(attack);
    attack->excludes(sensitivity);
    command->add_option("--start", options->start, "Start of the search, seconds")->check(CLI::NonNegativeNumber);
    command->add_option("--end", options->end, "End of the search, seconds")->check(CLI::NonNegativeNumber);
    command->add_flag("--zero-cross", options->zeroCross, "Move every position to the nearest zero crossing");
    addExample(*command, "kxaudio onsets --method bands --sensitivity 0.7 --zero-cross drums.wav");
    command->callback([options, &status] {
        // Several files: each file's positions under its name.
        const bool headings = options->files.size() > 1;
        status = runBatch(*options, [options, headings](const std::string& path, KXProgressDelegate& progress) {
            return findOnsets(path, *options, progress, headings);
        });
    });
}

}  // namespace kxaudio
