#pragma once
// Commands over many files. Each file is worked on by one of N threads (-j, default one per core),
// what each prints comes out whole and in the files' order, one progress bar stands for the batch
// on a terminal, and --json prints one array of entries whatever the number of files: an entry is
// {"path": …, …} for a file done and {"path": …, "error": {…}} for a file refused.

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

#include "KXBase/KXError.h"
#include "KXBase/KXProgressDelegate.h"
#include "Output.h"

namespace kxaudio {

// What working on one file came to.
struct FileReport {
    Json entry;       // the file's JSON entry
    std::string out;  // text for stdout (without --json)
    std::string err;  // text for stderr: refusals, warnings
    bool failed = false;
};

struct BatchOptions {
    std::vector<std::string> files;
    bool json = false;
    unsigned jobs = 0;  // 0: one per core
};

// FILE… (required, unless `withFiles` is false: the command names its own), --json and -j/--jobs.
void addBatchOptions(CLI::App& command, BatchOptions& options, bool withFiles = true);

// A refused file: {"path", "error"} (with the hint where there is one), and
// "kxaudio: PATH: <action>: <reason> (code N)" and the hint for stderr.
FileReport refusedReport(const std::string& path, const KXError& error);

// Works on one file; long work reports to `progress`. Runs on a worker thread.
using FileWork = std::function<FileReport(const std::string& path, KXProgressDelegate& progress)>;

// Runs `work` on every file; answers 0 when every file succeeded, kRefused when any failed.
int runBatch(const BatchOptions& options, const FileWork& work);

}  // namespace kxaudio
