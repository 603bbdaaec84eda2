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

int refuse(const KXError& error, bool json) {
    if (json) std::cout << Json{{"error", errorJSON(error)}}.dump(2) << "\n";
    else std::cerr << "kxaudio: " << error.description() << "\n";
    return kRefused;
}

}  // namespace kxaudio
