#pragma once
// What every subcommand shares: printing refusals and warnings, codes as text.

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <memory>
#include <string>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXBase/KXError.h"
#include "KXBase/KXProgressDelegate.h"
#include "KXBase/KXValue.h"

namespace kxaudio {

using Json = nlohmann::ordered_json;

// Exit status of a refused command.
constexpr int kRefused = 1;

// Four-character codes as text; bytes outside printable ASCII appear as "\xNN".
std::string codeText(std::uint32_t code);
// The error as JSON; with the file's path, a "hint" of what to do where there is one.
Json errorJSON(const KXError& error, const std::string& path = {});
// What to do about an error with the file at `path`: for a declared size past the file's end
// (-4), the repair command that recovers a recording cut short; "" for the rest.
std::string hintFor(const KXError& error, const std::string& path);
// 44100 as "44,100".
std::string groupedNumber(std::int64_t value);
// Seconds as "h:mm:ss.mmm".
std::string durationText(double seconds);
// Sets the subcommand's help footer to its example (shown by --help and in the manual page).
void addExample(CLI::App& command, const std::string& example);

// Text for JSON: the library's strings are UTF-8 already; paths and other bytes from outside may
// not be, and what is not valid becomes U+FFFD.
std::string jsonString(const std::string& bytes);
// JSON as text, indented; never throws, whatever the values hold.
std::string jsonText(const Json& json, int indent = 2);
// A property-list value as JSON: data as a hex string, dates as seconds since 1970.
Json valueJSON(const KXValue& value);
// "kxaudio: <action>: <reason> (code N)" and the hint on stderr, or {"error":{…}} on stdout
// with --json.
int refuse(const KXError& error, bool json, const std::string& path = {});

// What the commands that write a file (convert, process) share: OUT and how it is written.
struct WriteOptions {
    std::string output, format, exists = "replace";
    int depth = 0;
    bool floatingPoint = false, split = false, noDither = false, noAnalysis = false, noArchive = false;
};
// OUT's options: --format, --depth, --float, --split, --no-dither, --exists, --no-analysis,
// --no-archive.
void addWriteOptions(CLI::App& command, WriteOptions& options);
// A writer of `file`'s kind (labels, metadata, sample format) turned into what OUT's extension and
// the options ask for, its files made beside OUT so that saving is a rename; nullptr, with
// `refusal` saying why, when OUT's extension names no format this tool writes.
std::shared_ptr<KXAudioFileWriter> writerForOutput(const KXAudioFile& file, const WriteOptions& options,
                                                   std::string& refusal);
// Saves a writer whose write has ended as OUT; false, with the new files deleted, when it cannot.
bool saveOutput(KXAudioFileWriter& writer, const WriteOptions& options, KXError* error);

// Progress of long work as "<title> NN%" on stderr, when stderr is a terminal; silent otherwise.
class TerminalProgress : public KXProgressDelegate {
public:
    TerminalProgress();
    ~TerminalProgress() override;
    void setTitle(const std::string& title) override;
    std::int32_t update(double fraction) override;

private:
    bool shown_;
    std::string title_;
    int percent_ = -1;
};

}  // namespace kxaudio
