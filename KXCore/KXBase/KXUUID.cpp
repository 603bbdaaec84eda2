#include "KXBase/KXUUID.h"

#include <random>

KXUUID KXUUID::uuid() {
    static thread_local std::mt19937_64 generator{std::random_device{}()};
    Bytes bytes;
    for (std::size_t i = 0; i < bytes.size(); i += 8) {
        const std::uint64_t word = generator();
        for (std::size_t j = 0; j < 8; ++j) bytes[i + j] = std::uint8_t(word >> (8 * j));
    }
    bytes[6] = std::uint8_t((bytes[6] & 0x0F) | 0x40);  // version 4
    bytes[8] = std::uint8_t((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
    return KXUUID(bytes);
}

KXUUID KXUUID::cafAnalysisUUID() {
    return KXUUID({0xB1, 0xCB, 0x79, 0x4B, 0x55, 0x8D, 0x4B, 0x1F, 0x9F, 0x8C, 0x95, 0x66, 0xF2, 0x3F, 0xE6, 0x1F});
}

std::optional<KXUUID> KXUUID::fromData(const std::uint8_t* data, std::size_t length) {
    if (!data || length < 16) return std::nullopt;
    Bytes bytes;
    std::copy(data, data + 16, bytes.begin());
    return KXUUID(bytes);
}

std::optional<KXUUID> KXUUID::fromString(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    Bytes bytes;
    std::size_t out = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i++] != '-') return std::nullopt;
            continue;
        }
        int value = 0;
        for (int k = 0; k < 2; ++k, ++i) {
            const char c = text[i];
            int nibble;
            if (c >= '0' && c <= '9') nibble = c - '0';
            else if (c >= 'a' && c <= 'f') nibble = c - 'a' + 10;
            else if (c >= 'A' && c <= 'F') nibble = c - 'A' + 10;
            else return std::nullopt;
            value = value * 16 + nibble;
        }
        bytes[out++] = std::uint8_t(value);
    }
    return KXUUID(bytes);
}

std::string KXUUID::stringValue() const {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += kHex[bytes_[i] >> 4];
        text += kHex[bytes_[i] & 15];
    }
    return text;
}
