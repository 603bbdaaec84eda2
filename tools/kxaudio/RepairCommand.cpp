// kxaudio repair [--json] [-j N] FILE…: recovers WAVE and AIFF recordings cut short, which opening refuses
// because a declared size runs past the file's end: the sizes are mended and the samples cut to
// the whole frames there are, in place of the file.

#include <memory>
#include <string>
#include <vector>

#include "Batch.h"
#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "Output.h"

namespace kxaudio {

void addRepairCommand(CLI::App& app, int& status) {
    auto* command = app.add_subcommand("repair", "Recover WAVE and AIFF recordings that were cut short");
    auto options = std::make_shared<BatchOptions>();
    addBatchOptions(*command, *options);
    addExample(*command, "kxaudio repair interrupted-take.wav");
    command->callback([options, &status] {
        status = runBatch(*options, [](const std::string& path, KXProgressDelegate&) {
            KXError error;
            const bool changed = KXAudioFile::recoverAtPath(path, &error);
            if (!changed && error.code() != 0) return refusedReport(path, error);
            FileReport report;
            report.entry = {{"path", jsonString(path)}, {"recovered", changed}};
            if (!changed) {
                report.out = jsonString(path) + ": nothing to mend\n";
                return report;
            }
            auto file = KXAudioFile::audioFileWithPath(path, &error);
            report.out = jsonString(path) + ": recovered";
            if (file) {
                report.entry["frames"] = file->frames();
                report.out += ", " + std::to_string(file->frames()) + " frames";
            }
            report.out += "\n";
            return report;
        });
    });
}

}  // namespace kxaudio
