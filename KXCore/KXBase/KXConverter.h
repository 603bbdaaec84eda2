#pragma once
// KXConverter: stored samples to the library's own format (32-bit floats, full scale 1.0, one
// array per channel) and back. One side of a converter is the native description; the other
// says how samples are stored:
//   format 'lpcm' with the float flag: 32- or 64-bit IEEE floats;
//   format 'lpcm' without it: integers of 8 (signed, or unsigned without the signed flag), 16, 24
//   (three packed bytes) or 32 bits; other depths take the container of ceil(bits / 8) bytes;
//   format 'ulaw' or 'alaw': one G.711 byte per sample;
//   the big-endian flag gives the byte order, the non-interleaved flag one buffer per channel.
//
// Rules (they make integer → float → integer lossless for 8, 16 and 24 bits):
//   decoding   a signed n-bit integer x becomes x / 2^(n−1); an unsigned 8-bit one (x − 128) / 128;
//              G.711 goes through 16-bit linear;
//   encoding   round to nearest of x · 2^(n−1), saturated to [−2^(n−1), 2^(n−1) − 1]; NaN → 0.
//
// The loop for the stored format is chosen once, when the converter is made: there is no
// per-sample branching on the format.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "KXBase/KXAudioBuffer.h"
#include "KXBase/KXAudioStreamDescription.h"
#include "KXBase/KXByteOrder.h"
#include "KXBase/KXError.h"
#include "KXBase/KXNativeAudioBuffer.h"

class KXConverter {
public:
    enum class Encoding { int8, uint8, int16, int24, int32, float32, float64, ulaw, alaw };

    // nullptr (and EINVAL) when neither side is native or the stored side is not one of the above.
    static std::unique_ptr<KXConverter> converterWithSourceFormat(const KXAudioStreamDescription& source,
                                                                  const KXAudioStreamDescription& destination,
                                                                  KXError* error = nullptr);

    // Whether this converter reads stored samples (its source is the stored side).
    bool decodes() const { return decodes_; }
    Encoding encoding() const { return encoding_; }
    std::uint32_t bytesPerSample() const { return bytesPerSample_; }
    bool isInterleaved() const { return !storedFormat().isNonInterleaved(); }
    std::uint32_t channels() const { return storedFormat().channels(); }

    // `stored` holds one buffer of interleaved frames, or one buffer per channel; `channels` one
    // float array per channel.
    void decode(const std::uint8_t* const* stored, float* const* channels, std::size_t frames) const;
    void encode(const float* const* channels, std::uint8_t* const* stored, std::size_t frames) const;
    // An encoding converter: the first `frames` frames of every channel of `buffer` into `stored`
    // (one buffer, or one per channel). Answers the frames converted; 0 and EINVAL when the
    // buffers do not match the stored description (too few channels, buffers or bytes).
    std::uint32_t convertNativeBuffer(const KXNativeAudioBuffer& buffer, KXAudioBuffer& stored,
                                      KXError* error = nullptr);
    // Triangular (TPDF) dither — the sum of two independent uniform values, ±1 step of the stored
    // integer at most — added to every sample that convertNativeBuffer rounds. Only integer
    // encodings of 8 to 24 bits take it; off by default. The noise is the same on every run. A
    // channel's block whose samples all lie on the stored integers' grid already (digital
    // silence, or material of this depth that went through floats) is left as it is.
    void setDither(bool dither);
    bool dithers() const { return ditherStep_ != 0; }
    // Interleaved frames of `channels` stored samples each into one array per channel.
    void decodeFrames(const std::uint8_t* stored, std::uint32_t channels, float* const* samples, std::size_t frames) const {
        decodeFrames_(stored, channels, samples, frames);
    }
    // One channel: `stride` bytes from one stored sample to the next.
    void decodeChannel(const std::uint8_t* stored, std::size_t stride, float* samples, std::size_t count) const;

    using DecodeFunction = void (*)(const std::uint8_t*, std::size_t, float*, std::size_t);
    using EncodeFunction = void (*)(const float*, std::uint8_t*, std::size_t, std::size_t);
    using DecodeFramesFunction = void (*)(const std::uint8_t*, std::uint32_t, float* const*, std::size_t);
    using EncodeFramesFunction = void (*)(const float* const*, std::uint32_t, std::uint8_t*, std::size_t);

private:
    KXConverter() = default;
    const KXAudioStreamDescription& storedFormat() const { return decodes_ ? source_ : destination_; }

    KXAudioStreamDescription source_, destination_;
    bool decodes_ = true;
    Encoding encoding_ = Encoding::int16;
    std::uint32_t bytesPerSample_ = 2;
    // Loops for samples one after another, and for samples a stride apart.
    DecodeFunction decodeContiguous_ = nullptr, decodeStrided_ = nullptr;
    EncodeFunction encodeContiguous_ = nullptr;
    // Loops over interleaved frames.
    DecodeFramesFunction decodeFrames_ = nullptr;
    EncodeFramesFunction encodeFrames_ = nullptr;
    // One step of the stored integer as a native sample (0: no dither), the noise generator's
    // state and the dithered copy of one block.
    static constexpr std::uint32_t kDitherLanes = 8;
    float ditherStep_ = 0;
    std::uint32_t ditherLanes_[kDitherLanes] = {0x9E3779B9u, 0x7F4A7C15u, 0x85EBCA6Bu, 0xC2B2AE35u,
                                                0x27D4EB2Fu, 0x165667B1u, 0xD3A2646Cu, 0xFD7046C5u};
    std::vector<float> dithered_;
};
