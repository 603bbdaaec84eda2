// kxaudio: inspect audio files from the command line.

#include <CLI/CLI.hpp>

#include <iostream>

#include "Commands.h"
#include "KXBase/KXVersion.h"
#include "KXREX/KXREX.h"

namespace {
// Exit statuses: 0 when every file succeeded, 1 when any failed, 2 for a usage error.
constexpr int kUsageError = 2;
}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"kxaudio: open, inspect, measure, convert and repair audio files"};
    app.require_subcommand(0, 1);
    bool version = false;
    app.add_flag("--version", version, "Print the version and exit");
    bool manual = false;
    app.add_flag("--manual", manual, "Print the manual page (roff)")->group("");
    int status = 0;
    kxaudio::addInfoCommand(app, status);
    kxaudio::addChunksCommand(app, status);
    kxaudio::addCatCommand(app, status);
    kxaudio::addConvertCommand(app, status);
    kxaudio::addProcessCommand(app, status);
    kxaudio::addRepairCommand(app, status);
    kxaudio::addStatsCommand(app, status);
    kxaudio::addOnsetsCommand(app, status);
    kxaudio::addAnalyzeCommand(app, status);
    kxaudio::addWaveformCommand(app, status);
    kxaudio::addPlayCommand(app, status);
    kxaudio::addTagCommand(app, status);
    kxaudio::addEditCommand(app, status);
    // REX2 loops open when the user has the REX shared library installed.
    const bool rex = REXLoadDLL() == kREXError_NoError;
    struct Unload {
        bool loaded;
        ~Unload() {
            if (loaded) REXUnloadDLL();
        }
    } unload{rex};
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // --help answers 0; a usage error is reported by CLI11 and answers 2.
        const int printed = app.exit(e);
        return printed == 0 ? 0 : kUsageError;
    }
    if (manual) {
        std::cout << kxaudio::manualPage(app);
        return 0;
    }
    if (version) {
        std::cout << "kxaudio " << KX_VERSION << "\n";
        return 0;
    }
    if (app.get_subcommands().empty()) {
        std::cout << app.help();
        return kUsageError;
    }
    return status;
}
