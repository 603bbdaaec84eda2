#pragma once
// Four-character codes: a 32-bit value whose most significant byte is the first character,
// so KXFourCC("AIFF") == 0x41494646. Formats, encodings, chunk types, file types and creators
// are all held this way.

#include <cstdint>
#include <string>

constexpr std::uint32_t KXFourCC(const char (&code)[5]) {
    return (std::uint32_t(std::uint8_t(code[0])) << 24) | (std::uint32_t(std::uint8_t(code[1])) << 16) |
           (std::uint32_t(std::uint8_t(code[2])) << 8) | std::uint32_t(std::uint8_t(code[3]));
}

// The four characters of a code, first character first, bytes as they are.
std::string KXFourCCString(std::uint32_t code);
