#include "KXBase/KXString.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

// Unicode code points of the Mac OS Roman bytes 0x80 to 0xFF.
constexpr char16_t kMacRomanHigh[128] = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1,
    0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5, 0x00E7, 0x00E9, 0x00E8,
    0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3,
    0x00F2, 0x00F4, 0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC,
    0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6, 0x00DF,
    0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8,
    0x221E, 0x00B1, 0x2264, 0x2265, 0x00A5, 0x00B5, 0x2202, 0x2211,
    0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8,
    0x00BF, 0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB,
    0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5, 0x0152, 0x0153,
    0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA,
    0x00FF, 0x0178, 0x2044, 0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02,
    0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1,
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4,
    0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9, 0x0131, 0x02C6, 0x02DC,
    0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7};

void appendUTF8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out += char(cp);
    } else if (cp < 0x800) {
        out += char(0xC0 | (cp >> 6));
        out += char(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += char(0xE0 | (cp >> 12));
        out += char(0x80 | ((cp >> 6) & 0x3F));
        out += char(0x80 | (cp & 0x3F));
    } else {
        out += char(0xF0 | (cp >> 18));
        out += char(0x80 | ((cp >> 12) & 0x3F));
        out += char(0x80 | ((cp >> 6) & 0x3F));
        out += char(0x80 | (cp & 0x3F));
    }
}

// Decodes one code point at `i`, advancing it; malformed input answers U+FFFD.
char32_t nextCodePoint(std::string_view s, std::size_t& i) {
    const auto lead = std::uint8_t(s[i++]);
    if (lead < 0x80) return lead;
    int extra;
    char32_t cp;
    if ((lead & 0xE0) == 0xC0) extra = 1, cp = lead & 0x1F;
    else if ((lead & 0xF0) == 0xE0) extra = 2, cp = lead & 0x0F;
    else if ((lead & 0xF8) == 0xF0) extra = 3, cp = lead & 0x07;
    else return 0xFFFD;
    for (int k = 0; k < extra; ++k) {
        if (i >= s.size() || (std::uint8_t(s[i]) & 0xC0) != 0x80) return 0xFFFD;
        cp = (cp << 6) | (std::uint8_t(s[i++]) & 0x3F);
    }
    return cp;
}

// The length of the well-formed UTF-8 sequence at `i`, or 0 with `consumed` set to the bytes of
// the maximal ill-formed prefix (at least 1), following Unicode's "maximal subpart" practice.
std::size_t wellFormedLength(std::string_view s, std::size_t i, std::size_t& consumed) {
    const auto byte = [&](std::size_t k) { return std::uint8_t(s[k]); };
    const std::uint8_t lead = byte(i);
    consumed = 1;
    if (lead < 0x80) return 1;
    std::size_t length;
    std::uint8_t low = 0x80, high = 0xBF;  // the range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) length = 2;
    else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;       // no overlong forms
        else if (lead == 0xED) high = 0x9F;  // no surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        else if (lead == 0xF4) high = 0x8F;  // nothing past U+10FFFF
    } else {
        return 0;
    }
    for (std::size_t k = 1; k < length; ++k) {
        if (i + k >= s.size()) return 0;
        const std::uint8_t b = byte(i + k);
        if (k == 1 ? (b < low || b > high) : (b & 0xC0) != 0x80) return 0;
        consumed = k + 1;
    }
    return length;
}

// Unicode code points of the Windows-1252 bytes 0x80 to 0x9F; the five bytes it leaves
// undefined read as the C1 controls of the same value. 0xA0 to 0xFF are Latin-1.
constexpr char16_t kWindows1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

// Bytes of an 8-bit encoding as UTF-8: ASCII as it is, the bytes above it through `high`.
template <typename High>
std::string decodeEightBit(std::string_view bytes, High high) {
    std::string out;
    out.reserve(bytes.size());
    for (char c : bytes) {
        const auto b = std::uint8_t(c);
        if (b < 0x80) out += c;
        else appendUTF8(out, high(b));
    }
    return out;
}

bool hasNonASCII(std::string_view bytes) {
    return std::any_of(bytes.begin(), bytes.end(), [](char c) { return std::uint8_t(c) >= 0x80; });
}

// The longest prefix of valid UTF-8 text of at most `limit` bytes that ends between characters.
std::string utf8Prefix(std::string text, std::size_t limit) {
    if (text.size() <= limit) return text;
    std::size_t cut = limit;
    while (cut > 0 && (std::uint8_t(text[cut]) & 0xC0) == 0x80) --cut;
    text.resize(cut);
    return text;
}

}  // namespace

namespace KXString {

std::string stringFromMacRoman(std::string_view bytes) {
    return decodeEightBit(bytes, [](std::uint8_t b) { return char32_t(kMacRomanHigh[b - 0x80]); });
}

std::string macRomanFromString(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    for (std::size_t i = 0; i < utf8.size();) {
        const char32_t cp = nextCodePoint(utf8, i);
        if (cp < 0x80) {
            out += char(cp);
            continue;
        }
        const auto* found = std::find(std::begin(kMacRomanHigh), std::end(kMacRomanHigh), cp);
        out += found == std::end(kMacRomanHigh) ? '?' : char(0x80 + (found - std::begin(kMacRomanHigh)));
    }
    return out;
}

std::string stringFromWindows1252(std::string_view bytes) {
    return decodeEightBit(bytes, [](std::uint8_t b) {
        return b < 0xA0 ? char32_t(kWindows1252High[b - 0x80]) : char32_t(b);  // 0xA0 on: Latin-1
    });
}

std::string stringFromFileText(std::string_view bytes, KXTextEncoding legacy) {
    if (isValidUTF8(bytes)) return std::string(bytes);
    return legacy == KXTextEncoding::macRoman ? stringFromMacRoman(bytes) : stringFromWindows1252(bytes);
}

std::string fileTextFromString(std::string_view utf8, KXTextEncoding legacy, std::size_t limit) {
    const std::string text = validUTF8(utf8);
    if (legacy == KXTextEncoding::macRoman && hasNonASCII(text)) {
        std::string roman = macRomanFromString(text);
        // Mac OS Roman holds the text only when it reads back as the same text: no character
        // became "?", and the bytes do not happen to form UTF-8.
        if (!isValidUTF8(roman) && stringFromMacRoman(roman) == text) {
            if (roman.size() > limit) roman.resize(limit);
            if (!isValidUTF8(roman) || !hasNonASCII(roman)) return roman;
        }
    }
    return utf8Prefix(text, limit);
}

bool isValidUTF8(std::string_view bytes) {
    for (std::size_t i = 0, consumed = 0; i < bytes.size();) {
        // ASCII runs are the common case; skip them eight bytes at a time.
        while (i + 8 <= bytes.size()) {
            std::uint64_t word;
            std::memcpy(&word, bytes.data() + i, 8);
            if (word & 0x8080808080808080ull) break;
            i += 8;
        }
        if (i >= bytes.size()) break;
        const std::size_t length = wellFormedLength(bytes, i, consumed);
        if (length == 0) return false;
        i += length;
    }
    return true;
}

std::string validUTF8(std::string_view bytes) {
    if (isValidUTF8(bytes)) return std::string(bytes);
    std::string out;
    out.reserve(bytes.size() + 16);
    for (std::size_t i = 0, consumed = 0; i < bytes.size();) {
        const std::size_t length = wellFormedLength(bytes, i, consumed);
        if (length == 0) {
            appendUTF8(out, 0xFFFD);
            i += consumed;
        } else {
            out.append(bytes.substr(i, length));
            i += length;
        }
    }
    return out;
}

std::string stringFromUTF16(const char16_t* units, std::size_t count) {
    std::string out;
    out.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const char16_t unit = units[i];
        if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < count && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF) {
            appendUTF8(out, 0x10000 + ((char32_t(unit) - 0xD800) << 10) + (char32_t(units[i + 1]) - 0xDC00));
            ++i;
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            appendUTF8(out, 0xFFFD);
        } else {
            appendUTF8(out, unit);
        }
    }
    return out;
}

std::size_t utf16Length(std::string_view utf8) {
    std::size_t units = 0;
    for (std::size_t i = 0; i < utf8.size();) units += nextCodePoint(utf8, i) >= 0x10000 ? 2 : 1;
    return units;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i], y = b[i];
        if (x >= 'A' && x <= 'Z') x = char(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z') y = char(y - 'A' + 'a');
        if (x != y) return false;
    }
    return true;
}

}  // namespace KXString
