// kxaudio edit IN --save DOC.tess [--op "OPERATION" …] [--ops FILE.json] [--channels LIST]
//                 [--separate] [--extra S] [--json]
// Non-destructive editing from a shell: IN's edit list is changed by the operations, in order,
// and saved as an editor document (a folder "DOC.tess" holding "DOC.info" and the parts it
// plays). IN itself is never changed. Times are seconds; operations act on --channels (all).
//   cut START END            the range to the pasteboard, then taken out and closed up
//   copy START END           the range to the pasteboard
//   copy FILE START END      a range of another file to the pasteboard
//   paste AT [END]           the pasteboard's material at AT (in place of AT–END when given)
//   silence AT LENGTH        silence inserted
//   delete START END         the range taken out and closed up
//   remove START END         the range taken out, leaving silence
//   crop START END           only the range kept
//   fade AT IN OUT           the blocks playing at AT faded in over their first IN seconds and
//                            out over their last OUT seconds
//   gain AT DB               the blocks playing at AT made DB decibels louder
// --ops names a JSON array of such operations, each a string or an array of its words.

#include <cmath>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "Commands.h"
#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXBase/KXFile.h"
#include "Output.h"

namespace kxaudio {
namespace {

struct Options {
    std::string input, save, opsFile, channels;
    std::vector<std::string> ops;
    bool separate = false, json = false;
    double extra = 0;
};

using Words = std::vector<std::string>;

Words wordsOf(const std::string& text) {
    std::istringstream stream(text);
    Words words;
    for (std::string word; stream >> word;) words.push_back(word);
    return words;
}

KXError usage(const std::string& why) {
    KXError error = KXAudioFileError::errorWithCode(KXAudioFileErrorUndefined, "Editing");
    return KXError(error.domain(), error.code(), "Editing", why);
}

// The channels "1,3" (counted from 1) of a file; all without a list.
std::optional<KXIndexSet> channelsOf(const std::string& list, std::uint32_t count) {
    if (list.empty()) return KXIndexSet::indexSetWithIndexesInRange(0, count);
    KXIndexSet set;
    std::istringstream stream(list);
    for (std::string item; std::getline(stream, item, ',');) {
        char* end = nullptr;
        const long channel = std::strtol(item.c_str(), &end, 10);
        if (end == item.c_str() || *end || channel < 1 || std::uint64_t(channel) > count) return std::nullopt;
        set.addIndex(std::uint32_t(channel - 1));
    }
    return set;
}

// Applies the operations to `file`; the first that cannot be done answers why.
class Editor {
public:
    Editor(KXAudioFile& file, KXIndexSet channels) : file_(file), channels_(std::move(channels)) {}

    std::optional<KXError> apply(const Words& words) {
        if (words.empty()) return usage("an empty operation");
        const std::string& op = words[0];
        const std::string text = describe(words);
        try {
            if ((op == "cut" || op == "delete" || op == "remove" || op == "crop" || op == "copy") && words.size() == 3) {
                const KXSampleRange range = rangeOf(words[1], words[2]);
                if (op == "cut" || op == "copy") file_.copyFrom(range, channels_);
                if (op == "cut" || op == "delete") file_.deleteRange(range, channels_);
                if (op == "remove") file_.removeRange(range, channels_);
                if (op == "crop") file_.cropRange(range, channels_, false);
            } else if (op == "copy" && words.size() == 4) {
                KXError error;
                auto other = KXAudioFile::audioFileWithPath(words[1], &error);
                if (!other) return error;
                other->copyFrom(KXSampleRange{frameOf(words[2], other->rate()),
                                              framesBetween(words[2], words[3], other->rate())},
                                other->channelSet());
            } else if (op == "paste" && (words.size() == 2 || words.size() == 3)) {
                const KXSampleRange range = words.size() == 3 ? rangeOf(words[1], words[2])
                                                              : KXSampleRange{frameOf(words[1]), 0};
                KXError error;
                if (!file_.pasteFromPasteboard(range, channels_, false, &error)) return error;
            } else if (op == "silence" && words.size() == 3) {
                file_.insertSilence({frameOf(words[1]), lengthOf(words[2])}, channels_);
            } else if ((op == "fade" && words.size() == 4) || (op == "gain" && words.size() == 3)) {
                const std::uint32_t at = frameOf(words[1]);
                bool any = false;
                channels_.enumerateIndexes([&](std::uint32_t c) {
                    for (const auto& block : file_.editList()->blocksForChannel(c)) {
                        if (!block->sampleInBlock(at)) continue;
                        any = true;
                        if (op == "fade") block->fadeWithin(lengthOf(words[2]), lengthOf(words[3]));
                        else block->setGain(block->gain() * float(std::pow(10.0, number(words[2]) / 20.0)));
                    }
                    return true;
                });
                if (!any) return usage(text + ": no block plays at " + words[1] + " s");
                // The blocks changed under the file: what it had read and measured of them is gone.
                file_.resetBuffers();
                file_.channelsList()->removeAnalysisForChannels(channels_);
            } else {
                return usage("not an operation: " + text);
            }
        } catch (const std::invalid_argument&) {
            return usage("not a time: " + text);
        } catch (const std::range_error&) {
            return usage("the range ends before it starts: " + text);
        }
        return std::nullopt;
    }

private:
    static std::string describe(const Words& words) {
        std::string text;
        for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
        return text;
    }
    static double number(const std::string& word) {
        char* end = nullptr;
        const double value = std::strtod(word.c_str(), &end);
        if (end == word.c_str() || *end || !std::isfinite(value)) throw std::invalid_argument(word);
        return value;
    }
    // Seconds as frames at the rate, from 0 up to the model's 2^32 − 1.
    static std::uint32_t framesOf(double seconds, std::uint32_t rate) {
        if (seconds < 0) throw std::invalid_argument("negative");
        return std::uint32_t(std::min(std::llround(seconds * rate), 0xFFFFFFFFLL));
    }
    std::uint32_t frameOf(const std::string& word, std::uint32_t rate = 0) const {
        return framesOf(number(word), rate ? rate : file_.rate());
    }
    std::uint32_t lengthOf(const std::string& word) const { return frameOf(word); }
    std::uint32_t framesBetween(const std::string& start, const std::string& end, std::uint32_t rate) const {
        const std::uint32_t first = frameOf(start, rate), last = frameOf(end, rate);
        if (last < first) throw std::range_error("backwards");
        return last - first;
    }
    KXSampleRange rangeOf(const std::string& start, const std::string& end) const {
        return {frameOf(start), framesBetween(start, end, file_.rate())};
    }

    KXAudioFile& file_;
    KXIndexSet channels_;
};

// The operations of a JSON file: strings, or arrays of words.
std::optional<std::vector<Words>> operationsInFile(const std::string& path, std::string& why) {
    std::ifstream stream(path);
    if (!stream) {
        why = "cannot read " + path;
        return std::nullopt;
    }
    const Json json = Json::parse(stream, nullptr, false);
    if (!json.is_array()) {
        why = path + " is not a JSON array of operations";
        return std::nullopt;
    }
    std::vector<Words> operations;
    for (const Json& item : json) {
        if (item.is_string()) {
            operations.push_back(wordsOf(item.get<std::string>()));
            continue;
        }
        Words words;
        for (const Json& word : item.is_array() ? item : Json::array()) {
            if (word.is_string()) words.push_back(word.get<std::string>());
            else if (word.is_number()) words.push_back(word.dump());
        }
        if (words.empty()) {
            why = path + ": an operation is neither a string nor an array of words";
            return std::nullopt;
        }
        operations.push_back(std::move(words));
    }
    return operations;
}

int edit(const Options& options) {
    KXError error;
    auto file = KXAudioFile::audioFileWithPath(options.input, &error);
    if (!file) return refuse(error, options.json, options.input);
    TerminalProgress progress;
    file->setProgressDelegate(&progress);
    const std::optional<KXIndexSet> channels = channelsOf(options.channels, file->numberOfChannels());
    if (!channels) return refuse(usage("no such channels: " + options.channels), options.json);

    std::vector<Words> operations;
    for (const std::string& op : options.ops) operations.push_back(wordsOf(op));
    if (!options.opsFile.empty()) {
        std::string why;
        const auto more = operationsInFile(options.opsFile, why);
        if (!more) return refuse(usage(why), options.json);
        operations.insert(operations.end(), more->begin(), more->end());
    }
    Editor editor(*file, *channels);
    for (const Words& words : operations)
        if (const auto failure = editor.apply(words)) {
            file->removeTempFiles();
            return refuse(*failure, options.json, options.input);
        }

    // "Song.tess" holds "Song.info" and the parts.
    std::string folder = options.save;
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    if (KXFile::pathExtension(folder) != "tess") folder += ".tess";
    std::string stem = KXFile::lastPathComponent(folder);
    stem.resize(stem.size() - 5);
    const std::string base = KXFile::pathByAppendingComponent(folder, stem);
    const KXDictionary operation{{"contiguous", !options.separate}, {"extra", options.extra}};
    const bool saved = file->writeToTessaroFile(base, operation, &error);
    file->removeTempFiles();
    if (!saved) return refuse(error, options.json, options.save);

    Json result = {{"path", jsonString(folder)},
                   {"header", jsonString(base + ".info")},
                   {"frames", file->frames()},
                   {"seconds", file->length()},
                   {"channels", file->numberOfChannels()},
                   {"blocks", file->editList()->blockCount()}};
    if (options.json) {
        std::cout << jsonText(result) << "\n";
    } else {
        std::cout << folder << ": " << durationText(file->length()) << ", " << file->numberOfChannels() << " channels, "
                  << file->editList()->blockCount() << " blocks\n";
    }
    return 0;
}

}  // namespace

void addEditCommand(CLI::App& app, int& status) {
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("edit", "Edit a file without changing it and save the edits as a document");
    command->add_option("IN", options->input, "The file (or document) to edit")->required();
    command->add_option("--save", options->save, "The document to write (a folder DOC.tess)")->required();
    command->add_option("--op", options->ops,
                        "An operation, in order: cut|copy|delete|remove|crop START END, copy FILE START END, "
                        "paste AT [END], silence AT LENGTH, fade AT IN OUT, gain AT DB (seconds)")
        // One operation an --op, so that IN may follow it.
        ->allow_extra_args(false);
    command->add_option("--ops", options->opsFile, "A JSON array of operations, done after the --op ones");
    command->add_option("--channels", options->channels, "The channels edited, counted from 1 (default all)");
    command->add_flag("--separate", options->separate, "One part a block, with handles, instead of one a channel");
    command->add_option("--extra", options->extra, "Seconds of handle around each block of --separate (0)")
        ->check(CLI::NonNegativeNumber);
    command->add_flag("--json", options->json, "Machine-readable output");
    addExample(*command,
               "kxaudio edit take.wav --save Take.tess --op \"cut 1.5 2.5\" --op \"paste 10\" \\\n"
               "      --op \"copy drums.aif 0 4\" --op \"paste 0\" --op \"fade 0 0.5 0\"");
    command->callback([options, &status] { status = edit(*options); });
}

}  // namespace kxaudio
