#pragma once
// KXAudioStreamDescription: how samples are stored — rate, encoding, flags and bits per sample.
// The flag values are those of Core Audio's stream descriptions.

#include <cstdint>

#include "KXBase/KXFourCC.h"

class KXAudioStreamDescription {
public:
    static constexpr std::uint32_t kFlagIsFloat = 1;
    static constexpr std::uint32_t kFlagIsBigEndian = 2;
    static constexpr std::uint32_t kFlagIsSignedInteger = 4;
    static constexpr std::uint32_t kFlagIsNonInterleaved = 32;

    // The library's own sample format: 32-bit native floats, one array per channel.
    static KXAudioStreamDescription description();

    double rate() const { return rate_; }
    void setRate(double rate) { rate_ = rate; }
    std::uint32_t format() const { return format_; }
    void setFormat(std::uint32_t format) { format_ = format; }
    std::uint32_t flags() const { return flags_; }
    void setFlags(std::uint32_t flags) { flags_ = flags; }
    // Bits per sample.
    std::uint32_t range() const { return range_; }
    void setRange(std::uint32_t bits) { range_ = bits; }
    std::uint32_t channels() const { return channels_; }
    void setChannels(std::uint32_t channels) { channels_ = channels; }

    bool isFloat() const { return flags_ & kFlagIsFloat; }
    bool isBigEndian() const { return flags_ & kFlagIsBigEndian; }
    bool isSignedInteger() const { return flags_ & kFlagIsSignedInteger; }
    bool isNonInterleaved() const { return flags_ & kFlagIsNonInterleaved; }
    // Whether this is the library's own format (32-bit native floats, one array per channel),
    // whatever the rate and channel count.
    bool isNative() const;

    friend bool operator==(const KXAudioStreamDescription&, const KXAudioStreamDescription&) = default;

private:
    double rate_ = 0;
    std::uint32_t format_ = KXFourCC("lpcm");
    std::uint32_t flags_ = 0;
    std::uint32_t range_ = 0;
    std::uint32_t channels_ = 1;
};
