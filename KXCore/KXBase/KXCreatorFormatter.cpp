#include "KXBase/KXCreatorFormatter.h"

#include "KXBase/KXFourCC.h"

namespace KXCreatorFormatter {

std::string stringForCode(std::uint32_t code) { return code == 0 ? std::string() : KXFourCCString(code); }

std::optional<std::uint32_t> codeForString(const std::string& text) {
    if (text.empty() || text.size() > 4) return std::nullopt;
    std::uint32_t code = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        const char c = i < text.size() ? text[i] : ' ';
        if (c < 0x20 || c > 0x7E) return std::nullopt;
        code = (code << 8) | std::uint8_t(c);
    }
    return code;
}

}  // namespace KXCreatorFormatter
