#pragma once
// Loading and storing integers of a stated byte order. Bytes are assembled with shifts, never by
// casting a byte pointer to a wider type, so alignment and the host's order never matter.

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

enum class KXByteOrder : std::uint8_t { little, big };

// Files and chunks carry their order as a number: 1 is little-endian, anything else big-endian.
constexpr std::uint32_t KXByteOrderLittleValue = 1;
constexpr std::uint32_t KXByteOrderBigValue = 2;
constexpr KXByteOrder KXByteOrderFromValue(std::uint32_t value) {
    return value == KXByteOrderLittleValue ? KXByteOrder::little : KXByteOrder::big;
}

namespace kx {

// The compilers' byte-swap builtins: one instruction, also where shifts around them would hide
// the pattern from the optimiser.
constexpr std::uint32_t byteSwap32(std::uint32_t v) { return __builtin_bswap32(v); }

constexpr std::uint16_t load16(const std::uint8_t* p, KXByteOrder order) {
    return order == KXByteOrder::big ? std::uint16_t((p[0] << 8) | p[1])
                                     : std::uint16_t((p[1] << 8) | p[0]);
}

constexpr std::uint32_t load32(const std::uint8_t* p, KXByteOrder order) {
    return order == KXByteOrder::big
               ? (std::uint32_t(p[0]) << 24) | (std::uint32_t(p[1]) << 16) |
                     (std::uint32_t(p[2]) << 8) | p[3]
               : (std::uint32_t(p[3]) << 24) | (std::uint32_t(p[2]) << 16) |
                     (std::uint32_t(p[1]) << 8) | p[0];
}

constexpr std::uint64_t load64(const std::uint8_t* p, KXByteOrder order) {
    const std::uint64_t first = load32(p, order), second = load32(p + 4, order);
    return order == KXByteOrder::big ? (first << 32) | second : (second << 32) | first;
}

// Stores go through one memcpy of the value in the wanted order, which compilers turn into a
// single store (the byte-by-byte form is kept for constant evaluation).
inline constexpr bool kHostIsBig = std::endian::native == std::endian::big;

constexpr std::uint16_t byteSwap16(std::uint16_t v) { return __builtin_bswap16(v); }
constexpr std::uint64_t byteSwap64(std::uint64_t v) { return __builtin_bswap64(v); }

constexpr void store16(std::uint8_t* p, std::uint16_t v, KXByteOrder order) {
    if (!std::is_constant_evaluated()) {
        const std::uint16_t ordered = (order == KXByteOrder::big) == kHostIsBig ? v : byteSwap16(v);
        std::memcpy(p, &ordered, sizeof ordered);
        return;
    }
    const bool big = order == KXByteOrder::big;
    p[0] = std::uint8_t(big ? v >> 8 : v);
    p[1] = std::uint8_t(big ? v : v >> 8);
}

constexpr void store32(std::uint8_t* p, std::uint32_t v, KXByteOrder order) {
    if (!std::is_constant_evaluated()) {
        const std::uint32_t ordered = (order == KXByteOrder::big) == kHostIsBig ? v : byteSwap32(v);
        std::memcpy(p, &ordered, sizeof ordered);
        return;
    }
    for (int i = 0; i < 4; ++i) p[i] = std::uint8_t(v >> (order == KXByteOrder::big ? 24 - 8 * i : 8 * i));
}

constexpr void store64(std::uint8_t* p, std::uint64_t v, KXByteOrder order) {
    if (!std::is_constant_evaluated()) {
        const std::uint64_t ordered = (order == KXByteOrder::big) == kHostIsBig ? v : byteSwap64(v);
        std::memcpy(p, &ordered, sizeof ordered);
        return;
    }
    for (int i = 0; i < 8; ++i) p[i] = std::uint8_t(v >> (order == KXByteOrder::big ? 56 - 8 * i : 8 * i));
}

}  // namespace kx
