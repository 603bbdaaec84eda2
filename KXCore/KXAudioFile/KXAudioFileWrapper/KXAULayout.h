#pragma once
// The layout of an AU (".snd") file, shared by its reader and its header writer: a 24-byte
// big-endian header, then the samples.
//
//   0 ".snd"   4 data offset   8 data size   12 encoding   16 rate   20 channels

#include <cstdint>

#include "KXBase/KXFourCC.h"

namespace KXAULayout {

constexpr std::uint32_t kDataOffset = 4, kDataSize = 8, kEncoding = 12, kRate = 16, kChannels = 20;
constexpr std::uint32_t kHeaderSize = 24;

// The encodings read and written (everything else is refused): the sample format of each. The
// writer finds G.711 by its encoding alone, everything else by depth and kind.
struct Encoding {
    std::uint32_t code;
    std::uint32_t depth;
    std::uint32_t encoding;
    bool floatingPoint;
};
constexpr Encoding kEncodings[] = {
    {1, 8, KXFourCC("ulaw"), false},  {2, 8, KXFourCC("lpcm"), false},  {3, 16, KXFourCC("lpcm"), false},
    {4, 24, KXFourCC("lpcm"), false}, {5, 32, KXFourCC("lpcm"), false}, {6, 32, KXFourCC("lpcm"), true},
    // Deliberate: 64-bit floats, which sox, ffmpeg and libsndfile write and read.
    {7, 64, KXFourCC("lpcm"), true},  {27, 8, KXFourCC("alaw"), false},
};

}  // namespace KXAULayout
