#pragma once
// What the benchmarks that run peers as processes share.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "KXBase/KXDirectories.h"
#include "KXBase/KXFile.h"

namespace KXBench {

inline std::string quoted(const std::string& path) { return "'" + path + "'"; }

// A file in the temporary directory that sox makes once (`sox -n <format> FILE <effects>`), kept
// between runs while it holds at least `bytes`.
inline std::string soxFile(const std::string& name, const std::string& format, const std::string& effects,
                           std::uint64_t bytes) {
    const std::string file = KXFile::pathByAppendingComponent(KXDirectories::temporaryDirectory(), name);
    if (KXFile::lengthOfFileAtPath(file) < bytes)
        (void)std::system(("sox -n " + format + " " + quoted(file) + " " + effects + " 2>/dev/null").c_str());
    return file;
}

// Times a shell command (its output thrown away); the benchmark fails when the command does.
inline void runCommand(benchmark::State& state, const std::string& command) {
    const std::string line = command + " 2>/dev/null >/dev/null";
    for (auto _ : state)
        if (std::system(line.c_str()) != 0) {
            state.SkipWithError(("failed: " + command).c_str());
            break;
        }
}

}  // namespace KXBench
