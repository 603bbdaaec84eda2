#include "Output.h"

#include <cstdio>
#include <iostream>

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

Json errorJSON(const KXError& error) {
    return {{"code", error.code()}, {"domain", error.domain()}, {"action", error.action()},
            {"reason", error.reason()}};
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
            Json entries = Json::object();
            const KXDictionary& dictionary = value.dictionary();
            for (std::size_t i = 0; i < dictionary.count(); ++i)
                entries[dictionary.keys()[i]] = valueJSON(dictionary.valueAtIndex(i));
            return entries;
        }
    }
    return nullptr;
}

int refuse(const KXError& error, bool json) {
    if (json) std::cout << Json{{"error", errorJSON(error)}}.dump(2) << "\n";
    else std::cerr << "kxaudio: " << error.description() << "\n";
    return kRefused;
}

}  // namespace kxaudio
