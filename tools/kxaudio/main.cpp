// kxaudio: inspect audio files from the command line.

#include <CLI/CLI.hpp>

#include <iostream>

#include "Commands.h"
#include "KXBase/KXVersion.h"
#include "KXREX/KXREX.h"

int main(int argc, char** argv) {
    CLI::App app{"kxaudio: open, inspect, measure, convert and repair audio files"};
    app.require_subcommand(0, 1);
    bool version = false;
    app.add_flag("--version", version, "Print the version and exit");
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
        return app.exit(e);
    }
    if (version) {
        std::cout << "kxaudio " << KX_VERSION << "\n";
        return 0;
    }
    if (app.get_subcommands().empty()) {
        std::cout << app.help();
        return 2;
    }
    return status;
}
