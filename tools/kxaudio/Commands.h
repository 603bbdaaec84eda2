#pragma once
// The subcommands, each in its own file.

#include <CLI/CLI.hpp>

#include <string>

namespace kxaudio {
// Each adds its subcommand to `app` and answers the exit status through `status` when run.
void addInfoCommand(CLI::App& app, int& status);
void addChunksCommand(CLI::App& app, int& status);
void addCatCommand(CLI::App& app, int& status);
void addConvertCommand(CLI::App& app, int& status);
void addProcessCommand(CLI::App& app, int& status);
void addRepairCommand(CLI::App& app, int& status);
void addStatsCommand(CLI::App& app, int& status);
void addOnsetsCommand(CLI::App& app, int& status);
void addAnalyzeCommand(CLI::App& app, int& status);
void addWaveformCommand(CLI::App& app, int& status);
void addPlayCommand(CLI::App& app, int& status);
void addTagCommand(CLI::App& app, int& status);
void addEditCommand(CLI::App& app, int& status);
// The manual page (roff) of every subcommand's help.
std::string manualPage(CLI::App& app);
}  // namespace kxaudio
