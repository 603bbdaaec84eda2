#pragma once
// ITU-T G.711 μ-law and A-law, to and from 16-bit linear samples.

#include <cstdint>

namespace KXG711 {
std::int16_t ulawToLinear(std::uint8_t code);
std::uint8_t linearToUlaw(std::int16_t sample);
std::int16_t alawToLinear(std::uint8_t code);
std::uint8_t linearToAlaw(std::int16_t sample);
}  // namespace KXG711
