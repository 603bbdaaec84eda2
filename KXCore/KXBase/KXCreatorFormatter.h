#pragma once
// KXCreatorFormatter: HFS type and creator codes as text and back.
//
// A code reads as its four characters ("KXAF"); code 0 reads as the empty text. Text parses
// when it is 1 to 4 printable ASCII characters; shorter text is padded with spaces ("sd" is
// 'sd  '). Anything else does not parse.

#include <cstdint>
#include <optional>
#include <string>

namespace KXCreatorFormatter {
std::string stringForCode(std::uint32_t code);
std::optional<std::uint32_t> codeForString(const std::string& text);
}  // namespace KXCreatorFormatter
