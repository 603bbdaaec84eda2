#pragma once
// A made-up loop format that the tests' stand-in REX library decodes: "CAT " "FAKE", then
// little-endian 32-bit fields — the answer REXCreate gives (1 to open), channels, rate, tempo
// (thousandths of a beat per minute), length in ticks, meter numerator and denominator, depth,
// slice count — then each slice's tick position and length in frames. The samples are computed:
// sliceSample() of the slice's frame, negated in channel 1 (16-bit values, so that they survive
// a 16-bit file exactly).

#include <cstdint>
#include <cstring>
#include <vector>

namespace KXFakeREXLoop {

struct Slice {
    std::int32_t ticks, frames;
};

struct Loop {
    std::int32_t answer = 1, channels = 2, rate = 44100, tempo = 120000, ticks = 122880, numerator = 4,
                 denominator = 4, depth = 16;
    std::vector<Slice> slices;
};

inline float sliceSample(std::int32_t slice, std::int32_t frame, std::int32_t channel) {
    const float value = float((slice * 101 + frame * 3) % 4096 - 2048) / 32768.0f;
    return channel == 1 ? -value : value;
}

inline std::vector<char> encode(const Loop& loop) {
    std::vector<char> bytes = {'C', 'A', 'T', ' ', 'F', 'A', 'K', 'E'};
    const auto put = [&bytes](std::int32_t value) {
        for (int b = 0; b < 4; ++b) bytes.push_back(char(std::uint32_t(value) >> (8 * b)));
    };
    for (std::int32_t value : {loop.answer, loop.channels, loop.rate, loop.tempo, loop.ticks, loop.numerator,
                               loop.denominator, loop.depth, std::int32_t(loop.slices.size())})
        put(value);
    for (const Slice& slice : loop.slices) put(slice.ticks), put(slice.frames);
    return bytes;
}

// Nothing when the bytes are not a whole loop.
inline bool decode(const char* bytes, std::size_t size, Loop& loop) {
    if (size < 8 + 9 * 4 || std::memcmp(bytes, "CAT FAKE", 8) != 0) return false;
    std::size_t at = 8;
    const auto get = [&] {
        std::uint32_t value = 0;
        for (int b = 0; b < 4; ++b) value |= std::uint32_t(std::uint8_t(bytes[at++])) << (8 * b);
        return std::int32_t(value);
    };
    for (std::int32_t* field : {&loop.answer, &loop.channels, &loop.rate, &loop.tempo, &loop.ticks, &loop.numerator,
                                &loop.denominator, &loop.depth})
        *field = get();
    const std::int32_t count = get();
    if (count < 0 || std::size_t(count) > (size - at) / 8) return false;
    loop.slices.resize(std::size_t(count));
    for (Slice& slice : loop.slices) slice.ticks = get(), slice.frames = get();
    return true;
}

}  // namespace KXFakeREXLoop
