#include "KXBase/KXConverter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "KXBase/KXG711.h"
#include "support/KXTestSupport.h"

namespace {

KXAudioStreamDescription stored(const char* format, std::uint32_t bits, std::uint32_t flags, std::uint32_t channels = 1) {
    KXAudioStreamDescription description;
    description.setFormat(fourCC(format));
    description.setRange(bits);
    description.setFlags(flags);
    description.setChannels(channels);
    return description;
}

constexpr std::uint32_t kFloat = KXAudioStreamDescription::kFlagIsFloat;
constexpr std::uint32_t kBig = KXAudioStreamDescription::kFlagIsBigEndian;
constexpr std::uint32_t kSigned = KXAudioStreamDescription::kFlagIsSignedInteger;
constexpr std::uint32_t kSplit = KXAudioStreamDescription::kFlagIsNonInterleaved;

struct Pair {
    std::unique_ptr<KXConverter> decoder, encoder;
};

std::int32_t load24(const std::uint8_t* p) { return std::int32_t(p[0] | (p[1] << 8) | (std::int8_t(p[2]) * 65536)); }

Pair convertersFor(const KXAudioStreamDescription& description) {
    const KXAudioStreamDescription native = KXAudioStreamDescription::description();
    return {KXConverter::converterWithSourceFormat(description, native),
            KXConverter::converterWithSourceFormat(native, description)};
}

}  // namespace

TEST(KXConverterRoundTrip, EveryCodeOfEightSixteenAndTwentyFourBitsSurvives) {
    struct Case {
        const char* name;
        KXAudioStreamDescription description;
    } cases[] = {
        {"8-bit signed", stored("lpcm", 8, kSigned)},     {"8-bit unsigned", stored("lpcm", 8, 0)},
        {"16-bit little", stored("lpcm", 16, kSigned)},   {"16-bit big", stored("lpcm", 16, kSigned | kBig)},
        {"24-bit little", stored("lpcm", 24, kSigned)},   {"24-bit big", stored("lpcm", 24, kSigned | kBig)},
        {"u-law", stored("ulaw", 8, kSigned)},            {"A-law", stored("alaw", 8, kSigned)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Pair pair = convertersFor(c.description);
        ASSERT_TRUE(pair.decoder && pair.encoder);
        EXPECT_TRUE(pair.decoder->decodes());
        EXPECT_FALSE(pair.encoder->decodes());
        const std::size_t size = pair.decoder->bytesPerSample();
        const std::size_t codes = std::size_t(1) << (8 * size);
        std::vector<std::uint8_t> bytes(codes * size), back(codes * size);
        for (std::size_t code = 0; code < codes; ++code)
            for (std::size_t b = 0; b < size; ++b) bytes[code * size + b] = std::uint8_t(code >> (8 * b));
        std::vector<float> samples(codes);
        const std::uint8_t* in[] = {bytes.data()};
        float* out[] = {samples.data()};
        pair.decoder->decode(in, out, codes);
        const float* encodeIn[] = {samples.data()};
        std::uint8_t* encodeOut[] = {back.data()};
        pair.encoder->encode(encodeIn, encodeOut, codes);
        for (std::size_t code = 0; code < codes; ++code) {
            // μ-law has two zeros: 0x7F (−0) comes back as 0xFF (+0).
            if (c.description.format() == KXFourCC("ulaw") && code == 0x7F) {
                EXPECT_EQ(back[code], 0xFF);
                continue;
            }
            ASSERT_EQ(std::memcmp(&bytes[code * size], &back[code * size], size), 0) << "code " << code;
        }
        for (float sample : samples) ASSERT_TRUE(sample >= -1.0f && sample < 1.0f);

        // The same bytes as interleaved stereo frames: the frame loops agree with the one-channel
        // loop, sample for sample, and write the same bytes back.
        KXAudioStreamDescription stereo = c.description;
        stereo.setChannels(2);
        Pair frames = convertersFor(stereo);
        const std::size_t count = codes / 2;
        std::vector<float> left(count), right(count);
        float* split[] = {left.data(), right.data()};
        frames.decoder->decode(in, split, count);
        for (std::size_t i = 0; i < count; ++i) {
            ASSERT_EQ(left[i], samples[2 * i]) << "frame " << i;
            ASSERT_EQ(right[i], samples[2 * i + 1]) << "frame " << i;
        }
        std::vector<std::uint8_t> again(codes * size);
        const float* joined[] = {left.data(), right.data()};
        std::uint8_t* againOut[] = {again.data()};
        frames.encoder->encode(joined, againOut, count);
        ASSERT_EQ(again, back);
    }
}

TEST(KXConverterEncode, RoundsToNearestSaturatesAndZeroesNaN) {
    Pair pair = convertersFor(stored("lpcm", 16, kSigned));
    const float inputs[] = {1.0f, -1.0f, 1.5f, -7.0f, std::numeric_limits<float>::quiet_NaN(),
                            0.5f / 32768, 1.5f / 32768, -2.5f / 32768, std::numeric_limits<float>::infinity()};
    const std::int16_t expected[] = {32767, -32768, 32767, -32768, 0, 0, 2, -2, 32767};
    std::vector<std::uint8_t> bytes(sizeof inputs / sizeof inputs[0] * 2);
    const float* in[] = {inputs};
    std::uint8_t* out[] = {bytes.data()};
    pair.encoder->encode(in, out, std::size(inputs));
    for (std::size_t i = 0; i < std::size(inputs); ++i)
        EXPECT_EQ(std::int16_t(bytes[2 * i] | (bytes[2 * i + 1] << 8)), expected[i]) << i;

    // 32 bits works in double: full scale saturates to 2^31 − 1, −1.0 is exact.
    Pair wide = convertersFor(stored("lpcm", 32, kSigned | kBig));
    const float extremes[] = {1.0f, -1.0f, 0.25f};
    std::uint8_t wideBytes[12];
    const float* wideIn[] = {extremes};
    std::uint8_t* wideOut[] = {wideBytes};
    wide.encoder->encode(wideIn, wideOut, 3);
    EXPECT_EQ(kx::load32(wideBytes, KXByteOrder::big), 0x7FFFFFFFu);
    EXPECT_EQ(kx::load32(wideBytes + 4, KXByteOrder::big), 0x80000000u);
    EXPECT_EQ(kx::load32(wideBytes + 8, KXByteOrder::big), 0x20000000u);
    float decoded[3];
    const std::uint8_t* decodeIn[] = {wideBytes};
    float* decodeOut[] = {decoded};
    wide.decoder->decode(decodeIn, decodeOut, 3);
    EXPECT_EQ(decoded[1], -1.0f);
    EXPECT_EQ(decoded[2], 0.25f);
}

TEST(KXConverterFloats, ThirtyTwoAndSixtyFourBitFloatsAreExact) {
    for (auto description : {stored("lpcm", 32, kFloat | kSigned | kBig), stored("lpcm", 64, kFloat)}) {
        Pair pair = convertersFor(description);
        ASSERT_TRUE(pair.decoder);
        const float values[] = {0.0f, -0.0f, 1.0f, -1.5f, 1e-30f, 3.25f};
        std::vector<std::uint8_t> bytes(sizeof values / 4 * pair.encoder->bytesPerSample());
        const float* in[] = {values};
        std::uint8_t* out[] = {bytes.data()};
        pair.encoder->encode(in, out, std::size(values));
        float back[std::size(values)];
        const std::uint8_t* decodeIn[] = {bytes.data()};
        float* decodeOut[] = {back};
        pair.decoder->decode(decodeIn, decodeOut, std::size(values));
        for (std::size_t i = 0; i < std::size(values); ++i) EXPECT_EQ(back[i], values[i]);
    }
}

TEST(KXConverterG711, KnownCodes) {
    EXPECT_EQ(KXG711::ulawToLinear(0xFF), 0);
    EXPECT_EQ(KXG711::ulawToLinear(0x00), -32124);
    EXPECT_EQ(KXG711::ulawToLinear(0x80), 32124);
    EXPECT_EQ(KXG711::alawToLinear(0xD5), 8);
    EXPECT_EQ(KXG711::alawToLinear(0x55), -8);
    EXPECT_EQ(KXG711::alawToLinear(0xAA), 32256);
    EXPECT_EQ(KXG711::linearToUlaw(0), 0xFF);
    EXPECT_EQ(KXG711::linearToUlaw(32767), 0x80);
    EXPECT_EQ(KXG711::linearToUlaw(-32768), 0x00);
    EXPECT_EQ(KXG711::linearToAlaw(0), 0xD5);
    EXPECT_EQ(KXG711::linearToAlaw(-32768), 0x2A);
    // Both decoders are monotonic over the linear scale their codes cover.
    std::vector<int> ulaw, alaw;
    for (int code = 0; code < 256; ++code) ulaw.push_back(KXG711::ulawToLinear(std::uint8_t(code)));
    for (int value = -32768; value < 32768; value += 64)
        EXPECT_LE(KXG711::alawToLinear(KXG711::linearToAlaw(std::int16_t(value))),
                  KXG711::alawToLinear(KXG711::linearToAlaw(std::int16_t(std::min(value + 64, 32767)))));
}

TEST(KXConverterLayouts, InterleavedAndSplitChannels) {
    // Three channels of 16-bit big-endian: frames (1, 2, 3), (4, 5, 6).
    const std::uint8_t interleaved[] = {0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6};
    Pair pair = convertersFor(stored("lpcm", 16, kSigned | kBig, 3));
    float a[2], b[2], c[2];
    const std::uint8_t* in[] = {interleaved};
    float* out[] = {a, b, c};
    pair.decoder->decode(in, out, 2);
    EXPECT_EQ(b[1], 5.0f / 32768);
    EXPECT_EQ(c[0], 3.0f / 32768);
    std::uint8_t again[12];
    const float* encodeIn[] = {a, b, c};
    std::uint8_t* encodeOut[] = {again};
    pair.encoder->encode(encodeIn, encodeOut, 2);
    EXPECT_EQ(std::memcmp(again, interleaved, 12), 0);

    Pair split = convertersFor(stored("lpcm", 24, kSigned | kSplit, 2));
    EXPECT_FALSE(split.decoder->isInterleaved());
    std::uint8_t left[6], right[6];
    std::uint8_t* splitOut[] = {left, right};
    const float* splitIn[] = {a, c};
    split.encoder->encode(splitIn, splitOut, 2);
    EXPECT_EQ(load24(right), 3 << 8);  // 3/32768 at 24 bits is 3 × 256
}

TEST(KXConverterRefusals, NeitherSideNativeOrUnknownStorage) {
    KXError error;
    EXPECT_FALSE(KXConverter::converterWithSourceFormat(stored("lpcm", 16, kSigned), stored("lpcm", 24, kSigned), &error));
    EXPECT_EQ(error.code(), EINVAL);
    const auto native = KXAudioStreamDescription::description();
    EXPECT_FALSE(KXConverter::converterWithSourceFormat(stored("lpcm", 16, 0), native));      // unsigned 16-bit
    EXPECT_FALSE(KXConverter::converterWithSourceFormat(stored("lpcm", 16, kFloat), native)); // 16-bit float
    EXPECT_FALSE(KXConverter::converterWithSourceFormat(stored("lpcm", 40, kSigned), native));
    EXPECT_FALSE(KXConverter::converterWithSourceFormat(stored("MAC3", 8, 0), native));
    EXPECT_FALSE(KXConverter::converterWithSourceFormat(stored("lpcm", 16, kSigned, 0), native));
    // A 20-bit depth takes the 3-byte container.
    auto twenty = KXConverter::converterWithSourceFormat(stored("lpcm", 20, kSigned), native);
    ASSERT_TRUE(twenty);
    EXPECT_EQ(twenty->bytesPerSample(), 3u);
}

namespace {

// The encoding rule written out once more, one sample at a time, to check the converter's loops.
std::vector<std::uint8_t> referenceEncoding(const char* format, std::uint32_t bits, bool big, bool isSigned, float x) {
    const double scale = std::ldexp(1.0, int(bits) - 1);
    double v = std::isnan(x) ? 0.0 : double(x) * scale;
    v = std::clamp(v, -scale, scale - 1);
    const auto q = std::int32_t(std::nearbyint(v));
    if (format[0] == 'u') return {KXG711::linearToUlaw(std::int16_t(q))};
    if (format[0] == 'a') return {KXG711::linearToAlaw(std::int16_t(q))};
    const auto u = std::uint32_t(bits == 8 && !isSigned ? q + 128 : q);
    std::vector<std::uint8_t> bytes;
    for (std::uint32_t b = 0; b < bits / 8; ++b) bytes.push_back(std::uint8_t(u >> (8 * (big ? bits / 8 - 1 - b : b))));
    return bytes;
}

}  // namespace

TEST(KXConverterEncode, VectorLoopsMatchTheOneSampleRule) {
    // Awkward values at every position of every block: ties, limits, NaN, infinities.
    const float awkward[] = {0.5f / 32768, 1.5f / 32768, -0.5f / 32768, -2.5f / 32768, 1.0f, -1.0f, 2.0f,
                             std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                             -std::numeric_limits<float>::infinity(), 0.123456f, -0.999f, 32767.5f / 32768,
                             0.5f / 128, 1.5f / 8388608, -0.5f / 8388608};
    struct Case {
        const char* format;
        std::uint32_t bits;
        bool big, isSigned;
    } cases[] = {{"lpcm", 8, false, true},  {"lpcm", 8, false, false}, {"lpcm", 16, false, true},
                 {"lpcm", 16, true, true},  {"lpcm", 24, false, true}, {"lpcm", 24, true, true},
                 {"ulaw", 16, false, true}, {"alaw", 16, false, true}};
    for (const Case& c : cases) {
        for (std::uint32_t channels : {1u, 2u, 3u, 6u, 7u}) {
            for (std::size_t frames : {0, 1, 2, 3, 4, 5, 7, 8, 9, 10, 11, 15, 16, 17, 19, 683, 2049, 5000}) {
                SCOPED_TRACE(std::string(c.format) + " " + std::to_string(c.bits) + (c.big ? " big" : "") +
                             " channels " + std::to_string(channels) + " frames " + std::to_string(frames));
                std::vector<std::vector<float>> samples(channels, std::vector<float>(frames));
                for (std::uint32_t ch = 0; ch < channels; ++ch)
                    for (std::size_t i = 0; i < frames; ++i)
                        samples[ch][i] = awkward[(i * 5 + ch * 7) % std::size(awkward)];
                const std::uint32_t flags = (c.big ? kBig : 0) | (c.isSigned ? kSigned : 0);
                Pair pair = convertersFor(stored(c.format, c.format[0] == 'l' ? c.bits : 8, flags, channels));
                const std::size_t size = pair.encoder->bytesPerSample();
                std::vector<std::uint8_t> encoded(frames * channels * size);
                std::vector<const float*> in;
                for (auto& channel : samples) in.push_back(channel.data());
                std::uint8_t* out[] = {encoded.data()};
                pair.encoder->encode(in.data(), out, frames);
                for (std::size_t i = 0; i < frames; ++i)
                    for (std::uint32_t ch = 0; ch < channels; ++ch) {
                        const auto expected = referenceEncoding(c.format, c.bits, c.big, c.isSigned, samples[ch][i]);
                        ASSERT_EQ(std::vector<std::uint8_t>(encoded.begin() + std::ptrdiff_t((i * channels + ch) * size),
                                                            encoded.begin() + std::ptrdiff_t((i * channels + ch + 1) * size)),
                                  expected) << "frame " << i << " channel " << ch;
                    }
            }
        }
    }
}

namespace {

// The decoding rule written out once more, one sample at a time: x / 2^(n−1) for integers, the
// value itself for floats.
float referenceDecoding(const std::uint8_t* p, std::uint32_t bits, bool isFloat, bool big) {
    std::uint64_t u = 0;
    const std::uint32_t size = bits / 8;
    for (std::uint32_t b = 0; b < size; ++b) u |= std::uint64_t(p[big ? b : size - 1 - b]) << (8 * (size - 1 - b));
    if (isFloat) {
        if (bits == 64) {
            double d;
            std::memcpy(&d, &u, 8);
            return float(d);
        }
        const auto w = std::uint32_t(u);
        float f;
        std::memcpy(&f, &w, 4);
        return f;
    }
    const std::int64_t x = std::int64_t(u << (64 - bits)) >> (64 - bits);
    return float(double(x) / std::ldexp(1.0, int(bits) - 1));
}

}  // namespace

TEST(KXConverterEncode, FloatsAreStoredBitForBitInEitherOrder) {
    for (const bool big : {false, true})
        for (const std::uint32_t channels : {1u, 2u, 5u})
            for (const std::size_t frames : {std::size_t(3), std::size_t(9), std::size_t(2049)}) {
                SCOPED_TRACE(std::to_string(channels) + " channels, " + std::to_string(frames) + (big ? " big" : ""));
                Pair pair = convertersFor(stored("lpcm", 32, kFloat | (big ? kBig : 0), channels));
                std::vector<std::vector<float>> samples(channels, std::vector<float>(frames));
                std::vector<const float*> in;
                for (std::uint32_t ch = 0; ch < channels; ++ch) {
                    for (std::size_t i = 0; i < frames; ++i) samples[ch][i] = float(i) * 0.37f - float(ch) * 1.5e-6f;
                    in.push_back(samples[ch].data());
                }
                std::vector<std::uint8_t> encoded(frames * channels * 4);
                std::uint8_t* out[] = {encoded.data()};
                pair.encoder->encode(in.data(), out, frames);
                for (std::size_t i = 0; i < frames; ++i)
                    for (std::uint32_t ch = 0; ch < channels; ++ch) {
                        std::uint32_t bits;
                        std::memcpy(&bits, &samples[ch][i], 4);
                        const std::uint8_t* p = encoded.data() + (i * channels + ch) * 4;
                        for (std::uint32_t b = 0; b < 4; ++b)
                            ASSERT_EQ(p[b], std::uint8_t(bits >> (8 * (big ? 3 - b : b)))) << "frame " << i << " channel " << ch;
                    }
            }
}

TEST(KXConverterDecode, InterleavedFramesMatchTheOneSampleRuleForEveryChannelCount) {
    struct Case {
        std::uint32_t bits;
        bool isFloat;
    } cases[] = {{16, false}, {24, false}, {32, false}, {32, true}, {64, true}};
    std::uint32_t state = 12345;
    const auto random = [&] {
        state ^= state << 13, state ^= state >> 17, state ^= state << 5;
        return std::uint8_t(state >> 11);
    };
    for (const Case& c : cases)
        for (const bool big : {false, true})
            for (const std::uint32_t channels : {1u, 2u, 3u, 5u, 6u, 7u, 8u, 9u, 600u})
                for (const std::size_t frames : {std::size_t(0), std::size_t(1), std::size_t(7), std::size_t(17), std::size_t(683),
                                                 std::size_t(2049), std::size_t(5000)}) {
                    if (channels == 600 && frames > 17) continue;
                    // Misaligned starts as well: samples may begin at any byte of the staging buffer.
                    const std::size_t skew = frames % 4;
                    SCOPED_TRACE(std::to_string(c.bits) + (c.isFloat ? " float" : "") + (big ? " big" : "") + " channels " +
                                 std::to_string(channels) + " frames " + std::to_string(frames));
                    const std::uint32_t flags = (c.isFloat ? kFloat : kSigned) | (big ? kBig : 0);
                    Pair pair = convertersFor(stored("lpcm", c.bits, flags, channels));
                    ASSERT_TRUE(pair.decoder);
                    const std::size_t size = c.bits / 8;
                    std::vector<std::uint8_t> bytes(skew + frames * channels * size);
                    for (auto& b : bytes) b = random();
                    const std::uint8_t* first = bytes.data() + skew;
                    std::vector<std::vector<float>> samples(channels, std::vector<float>(frames, -7.0f));
                    std::vector<float*> out;
                    for (auto& channel : samples) out.push_back(channel.data());
                    pair.decoder->decodeFrames(first, channels, out.data(), frames);
                    for (std::size_t i = 0; i < frames; ++i)
                        for (std::uint32_t ch = 0; ch < channels; ++ch) {
                            const float expected = referenceDecoding(first + (i * channels + ch) * size, c.bits, c.isFloat, big);
                            ASSERT_EQ(std::memcmp(&samples[ch][i], &expected, 4), 0)
                                << "frame " << i << " channel " << ch << ": " << samples[ch][i] << " for " << expected;
                        }
                    // One channel of the frames, a stride apart, decodes the same samples.
                    if (channels > 1 && frames > 0) {
                        std::vector<float> one(frames);
                        pair.decoder->decodeChannel(first + size, channels * size, one.data(), frames);
                        ASSERT_EQ(std::memcmp(one.data(), samples[1].data(), frames * 4), 0);
                    }
                }
}
