#pragma once
// Text conversions that the file formats need.

#include <string>
#include <string_view>

namespace KXString {

// UTF-8 text as ASCII, losing what ASCII cannot hold: Latin letters with accents lose the accent
// ("é" → "e"), every other character outside ASCII becomes "?", malformed bytes too.
std::string lossyASCII(std::string_view utf8);
// The lossy ASCII form with its terminating NUL, the C form a chunk appends.
std::string lossyASCIICString(std::string_view utf8);
// A count byte, then up to 255 bytes of the lossy ASCII form.
std::string lossyASCIIPascalString(std::string_view utf8);
// Bytes in the system C-string encoding (Mac OS Roman) as UTF-8.
std::string stringFromMacRoman(std::string_view bytes);
// UTF-8 text in Mac OS Roman; characters it cannot hold become "?".
std::string macRomanFromString(std::string_view utf8);
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
