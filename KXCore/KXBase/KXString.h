#pragma once
// Text conversions that the file formats need.

#include <string>
#include <string_view>

// The 8-bit encoding that a file format's text was written in before UTF-8: Mac OS Roman for
// the formats of the Mac (AIFF, Sound Designer, resource forks), Windows-1252 for RIFF.
enum class KXTextEncoding { macRoman, windows1252 };

namespace KXString {

// Bytes in the system C-string encoding (Mac OS Roman) as UTF-8.
std::string stringFromMacRoman(std::string_view bytes);
// UTF-8 text in Mac OS Roman; characters it cannot hold become "?".
std::string macRomanFromString(std::string_view utf8);
// Bytes in Windows-1252 as UTF-8 (its five undefined bytes as the C1 controls of that value).
std::string stringFromWindows1252(std::string_view bytes);
// The text of a file: UTF-8 when the bytes are well-formed UTF-8 (plain ASCII included), else
// in the format's 8-bit encoding.
std::string stringFromFileText(std::string_view bytes, KXTextEncoding legacy);
// Text to store in a file, at most `limit` bytes and never cut inside a character, that
// stringFromFileText() reads back as the text (or as its beginning when cut). Mac OS Roman
// formats get Mac OS Roman bytes when that encoding holds the text, else UTF-8; RIFF formats get
// UTF-8. Ill-formed input is made valid first.
std::string fileTextFromString(std::string_view utf8, KXTextEncoding legacy, std::size_t limit = std::string::npos);
// Whether `bytes` is well-formed UTF-8: shortest forms only, no surrogates, nothing past U+10FFFF.
bool isValidUTF8(std::string_view bytes);
// `bytes` as well-formed UTF-8: every ill-formed sequence (each maximal prefix of one that could
// still have been valid, or else a single byte) becomes U+FFFD. Valid text comes back unchanged.
std::string validUTF8(std::string_view bytes);
// UTF-16 code units as UTF-8; an unpaired surrogate becomes U+FFFD.
std::string stringFromUTF16(const char16_t* units, std::size_t count);
// The length of UTF-8 text in UTF-16 code units: what a string's "character count" is to a
// platform whose strings are UTF-16.
std::size_t utf16Length(std::string_view utf8);
// Compares ASCII letters without regard to case; other bytes exactly.
bool equalIgnoringCase(std::string_view a, std::string_view b);

}  // namespace KXString
