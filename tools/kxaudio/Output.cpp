#include "Output.h"

#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFileError.h"
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
    if (path.empty() || error.domain() != KXAudioFileError::domain || error.code() != KXAudioFileErrorIncorrectFileSize)
        return {};
    return "a recording cut short? \"kxaudio repair '" + jsonString(path) + "'\" keeps the whole frames it holds";
}

std::string jsonString(const std::string& bytes) { return KXString::validUTF8(bytes); }

std::string jsonText(const Json& json, int indent) {
    return json.dump(indent, ' ', false, Json::error_handler_t::replace);
}

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

std::shared_ptr<KXAudioFile> openForCommand(const std::string& path, bool json, Json& all, int& status,
                                            KXError* warning) {
    KXError error;
    auto file = KXAudioFile::audioFileWithPath(path, &error);
    if (file) {
        if (warning) *warning = error;
        return file;
    }
    status = kRefused;
    if (json) {
        all.push_back({{"path", jsonString(path)}, {"error", errorJSON(error, path)}});
    } else {
        std::cerr << "kxaudio: " << jsonString(path) << ": " << error.description() << "\n";
        if (const std::string hint = hintFor(error, path); !hint.empty()) std::cerr << "kxaudio: " << hint << "\n";
    }
    return nullptr;
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
