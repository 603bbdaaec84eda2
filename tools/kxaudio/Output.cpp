#include "Output.h"

#include "KXBase/KXFile.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
#include "KXREX/KXREX.h"
#include "KXBase/KXString.h"

namespace kxaudio {

std::string codeText(std::uint32_t code) {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto c = std::uint8_t(code >> shift);
        if (c >= 0x20 && c < 0x7F && c != '\\') {
            text += char(c);
        } else {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
            text += escaped;
        }
    }
    return text;
}

Json errorJSON(const KXError& error, const std::string& path) {
    Json json = {{"code", error.code()}, {"domain", error.domain()}, {"action", jsonString(error.action())},
                 {"reason", jsonString(error.reason())}};
    if (const std::string hint = hintFor(error, path); !hint.empty()) json["hint"] = hint;
    return json;
}

std::string hintFor(const KXError& error, const std::string& path) {
    if (path.empty() || error.domain() != KXAudioFileError::domain) return {};
    // A REX2 loop needs the REX shared library, which is the user's to install.
    if (error.code() == KXAudioFileErrorUnsupportedFormat && error.action() == "Parsing the ReCycle file" &&
        !KXREX::isLoaded()) {
        std::string hint = "REX2 loops are decoded by the REX shared library, and none was found; looked for";
        const auto& names = KXREX::libraryNames();
        for (std::size_t i = 0; i < names.size(); ++i)
            hint += (i ? i + 1 == names.size() ? " or \"" : ", \"" : " \"") + names[i] + ".bundle\" or .so";
        hint += " in";
        const auto folders = KXREX::searchFolders();
        for (std::size_t i = 0; i < folders.size(); ++i) hint += (i ? ", " : " ") + jsonString(folders[i]);
        return hint;
    }
    if (error.code() != KXAudioFileErrorIncorrectFileSize) return {};
    return "a recording cut short? \"kxaudio repair '" + jsonString(path) + "'\" keeps the whole frames it holds";
}

std::string jsonString(const std::string& bytes) { return KXString::validUTF8(bytes); }

std::string jsonText(const Json& json, int indent) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

std::string groupedNumber(std::int64_t value) {
    std::string digits = std::to_string(value < 0 ? 0 - std::uint64_t(value) : std::uint64_t(value));
    for (std::size_t i = digits.size(); i > 3; i -= 3) digits.insert(i - 3, ",");
    return value < 0 ? "-" + digits : digits;
}

std::string durationText(double seconds) {
    if (!(seconds >= 0) || seconds > 1e12) seconds = 0;
    const auto milliseconds = std::int64_t(std::llround(seconds * 1000.0));
    char text[48];
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld.%03lld", static_cast<long long>(milliseconds / 3600000),
                  static_cast<long long>(milliseconds / 60000 % 60), static_cast<long long>(milliseconds / 1000 % 60),
                  static_cast<long long>(milliseconds % 1000));
    return text;
}

void addExample(CLI::App& command, const std::string& example) { command.footer("\nExample:\n  " + example); }

Json valueJSON(const KXValue& value) {
    switch (value.type()) {
        case KXValue::Type::null: return nullptr;
        case KXValue::Type::boolean: return value.boolValue();
        case KXValue::Type::integer: return value.longLongValue();
        case KXValue::Type::unsignedInteger: return value.unsignedLongLongValue();
        case KXValue::Type::real: return value.doubleValue();
        case KXValue::Type::string: return value.string();
        case KXValue::Type::date: return value.date().secondsSince1970;
        case KXValue::Type::data: {
            std::string hex;
            char digits[3];
            for (std::uint8_t byte : value.data()) std::snprintf(digits, sizeof digits, "%02x", byte), hex += digits;
            return hex;
        }
        case KXValue::Type::array: {
            Json items = Json::array();
            for (const KXValue& item : value.array()) items.push_back(valueJSON(item));
            return items;
        }
        case KXValue::Type::dictionary: {
            // The keys are distinct already: appended without the ordered map's linear search.
            Json entries = Json::object();
            auto& pairs = static_cast<Json::object_t::Container&>(entries.get_ref<Json::object_t&>());
            const KXDictionary& dictionary = value.dictionary();
            pairs.reserve(dictionary.count());
            for (std::size_t i = 0; i < dictionary.count(); ++i)
                pairs.emplace_back(dictionary.keys()[i], valueJSON(dictionary.valueAtIndex(i)));
            return entries;
        }
    }
    return nullptr;
}

int refuse(const KXError& error, bool json, const std::string& path) {
    if (json) {
        std::cout << jsonText(Json{{"error", errorJSON(error, path)}}) << "\n";
        return kRefused;
    }
    std::cerr << "kxaudio: " << error.description() << "\n";
    if (const std::string hint = hintFor(error, path); !hint.empty()) std::cerr << "kxaudio: " << hint << "\n";
    return kRefused;
}


void addWriteOptions(CLI::App& command, WriteOptions& options) {
    command.add_option("--format", options.format, "Output format (default: from OUT's extension, else IN's format)")
        ->check(CLI::IsMember({"wav", "rf64", "bw64", "au", "aif", "caf", "sd2", "sd", "raw"}));
    command.add_option("--depth", options.depth, "Bits per sample")->check(CLI::IsMember({8, 16, 24, 32}));
    command.add_flag("--float", options.floatingPoint, "Floating-point samples (32-bit)");
    command.add_flag("--split", options.split, "One file per channel");
    command.add_flag("--no-dither", options.noDither,
                     "Round without dither when writing fewer bits than the samples carry (default: TPDF dither)");
    command.add_option("--exists", options.exists, "When OUT exists")->check(CLI::IsMember({"replace", "number", "keep"}));
    command.add_flag("--no-analysis", options.noAnalysis,
                     "Leave out the stored analysis (peaks and overviews: 16 MB an hour of stereo)");
    command.add_flag("--no-archive", options.noArchive,
                     "Leave out the archive of metadata the format has no field for ('KXmd')");
}

std::shared_ptr<KXAudioFileWriter> writerForOutput(const KXAudioFile& file, const WriteOptions& options,
                                                   std::string& refusal) {
    auto writer = KXAudioFileWriter::writerWithAudioFile(file);
    const std::string extension = KXFile::pathExtension(options.output);
    // RF64 and BW64 are WAVE files in a container for large sizes, whatever their size.
    const bool large = options.format == "rf64" || options.format == "bw64";
    const std::optional<std::uint32_t> named = KXAudioFileWriter::formatForExtension(
        large ? std::string("wav") : options.format.empty() ? extension : options.format);
    // An extension that names no format this tool writes would give a file of another format
    // under that name: refused unless --format says what to write.
    if (options.format.empty() && !extension.empty() && !named) {
        refusal = jsonString(options.output) + ": the extension \"" + jsonString(extension) +
                  "\" names no format kxaudio writes; choose one with --format (wav, aif, au, caf, sd2, sd, raw)";
        return nullptr;
    }
    if (named) {
        const std::int32_t depth = writer->depth();
        const bool floatingPoint = writer->isFloatingPoint();
        // Loop-library data goes into the loop-library dialect of the target format.
        const std::uint32_t source = writer->format();
        const bool loops = source == KXFourCC("APLL") || source == KXFourCC("ACID");
        std::uint32_t target = *named;
        if (loops && target == KXFourCC("AIFF")) target = KXFourCC("APLL");
        if (loops && target == KXFourCC("WAVE")) target = KXFourCC("ACID");
        if (target != source) {
            const std::uint32_t encoding = writer->encoding();
            writer->setFormat(target);
            // A new format keeps the source's sample format where it can hold it.
            writer->setDepth(depth);
            writer->setIsFloatingPoint(floatingPoint);
            if (KXAudioFileWriter::formatHoldsEncoding(target, encoding)) writer->setEncoding(encoding);
            // G.711 carries 13 or 14 bits: where the target cannot hold it, 16-bit integers do.
            else writer->setDepth(16);
        }
    }
    if (large) writer->setWAVEContainer(options.format == "rf64" ? KXFourCC("RF64") : KXFourCC("BW64"));
    if (options.depth) {
        writer->setDepth(options.depth);
        writer->setEncoding(KXFourCC("lpcm"));
    }
    if (options.floatingPoint) {
        writer->setDepth(32);
        writer->setIsFloatingPoint(true);
    }
    if (options.split) writer->setInterleaved(false);
    writer->setDither(!options.noDither);
    writer->setWriteAnalysis(!options.noAnalysis);
    writer->setWriteArchive(!options.noArchive);
    const std::string directory = KXFile::directoryOfPath(options.output);
    writer->setTempDirectory(directory.empty() ? "." : directory);
    return writer;
}

bool saveOutput(KXAudioFileWriter& writer, const WriteOptions& options, KXError* error) {
    KXDictionary instructions{{"path", options.output},
                              {"existsAction", options.exists == "replace" ? 0 : options.exists == "number" ? 1 : 2}};
    if (const std::string extension = KXFile::pathExtension(options.output); !extension.empty())
        instructions.setObject(extension, "forcedExtension");
    if (writer.saveWithInstructions(instructions, error)) return true;
    writer.deleteFiles();
    return false;
}

TerminalProgress::TerminalProgress() : shown_(isatty(STDERR_FILENO) == 1) {}

TerminalProgress::~TerminalProgress() {
    if (shown_ && percent_ >= 0) std::cerr << "\r\033[K" << std::flush;
}

void TerminalProgress::setTitle(const std::string& title) {
    title_ = title;
    percent_ = -1;
}

std::int32_t TerminalProgress::update(double fraction) {
    const int percent = int(fraction * 100.0);
    if (shown_ && percent != percent_) {
        percent_ = percent;
        std::cerr << "\r\033[K" << title_ << " " << percent << "%" << std::flush;
    }
    return kGoOn;
}

}  // namespace kxaudio
