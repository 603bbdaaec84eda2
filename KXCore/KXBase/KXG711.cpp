#include "KXBase/KXG711.h"

namespace {

// The upper end of each of the eight segments of the companded scale: μ-law on a 14-bit
// magnitude with its bias added, A-law on a 13-bit magnitude.
constexpr std::int32_t kUlawSegmentEnds[8] = {0x3F, 0x7F, 0xFF, 0x1FF, 0x3FF, 0x7FF, 0xFFF, 0x1FFF};
constexpr std::int32_t kAlawSegmentEnds[8] = {0x1F, 0x3F, 0x7F, 0xFF, 0x1FF, 0x3FF, 0x7FF, 0xFFF};
constexpr std::int32_t kUlawBias = 0x84;
constexpr std::int32_t kUlawClip = 8159;

int segmentOf(std::int32_t magnitude, const std::int32_t (&ends)[8]) {
    int segment = 0;
    while (segment < 8 && magnitude > ends[segment]) ++segment;
    return segment;
}

}  // namespace

namespace KXG711 {

std::int16_t ulawToLinear(std::uint8_t code) {
    const std::uint8_t inverted = std::uint8_t(~code);
    std::int32_t magnitude = ((inverted & 0x0F) << 3) + kUlawBias;
    magnitude <<= (inverted & 0x70) >> 4;
    return std::int16_t((inverted & 0x80) ? kUlawBias - magnitude : magnitude - kUlawBias);
}

std::uint8_t linearToUlaw(std::int16_t sample) {
    std::int32_t value = sample >> 2;  // 14 significant bits
    std::uint8_t mask = 0xFF;
    if (value < 0) {
        value = -value;
        mask = 0x7F;
    }
    if (value > kUlawClip) value = kUlawClip;
    value += kUlawBias >> 2;
    const int segment = segmentOf(value, kUlawSegmentEnds);
    if (segment >= 8) return std::uint8_t(0x7F ^ mask);
    return std::uint8_t(((segment << 4) | ((value >> (segment + 1)) & 0x0F)) ^ mask);
}

std::int16_t alawToLinear(std::uint8_t code) {
    const std::uint8_t value = code ^ 0x55;
    std::int32_t magnitude = (value & 0x0F) << 4;
    const int segment = (value & 0x70) >> 4;
    if (segment == 0) magnitude += 8;
    else magnitude = (magnitude + 0x108) << (segment - 1);
    return std::int16_t((value & 0x80) ? magnitude : -magnitude);
}

std::uint8_t linearToAlaw(std::int16_t sample) {
    std::int32_t value = sample >> 3;  // 13 significant bits
    std::uint8_t mask = 0xD5;
    if (value < 0) {
        mask = 0x55;
        value = -value - 1;
    }
    const int segment = segmentOf(value, kAlawSegmentEnds);
    if (segment >= 8) return std::uint8_t(0x7F ^ mask);
    const std::int32_t quantised = segment < 2 ? (value >> 1) & 0x0F : (value >> segment) & 0x0F;
    return std::uint8_t(((segment << 4) | quantised) ^ mask);
}

}  // namespace KXG711
