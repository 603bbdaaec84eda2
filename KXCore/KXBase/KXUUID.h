#pragma once
// A 16-byte UUID value, as stored in CAF 'uuid' chunks and Wave64 chunk headers.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "KXBase/KXData.h"

class KXUUID {
public:
    using Bytes = std::array<std::uint8_t, 16>;

    KXUUID() = default;  // all zero
    explicit KXUUID(const Bytes& bytes) : bytes_(bytes) {}

    // A new random (version 4) UUID.
    static KXUUID uuid();
    // The fixed UUID of the CAF 'uuid' chunk that holds the library's analysis:
    // B1CB794B-558D-4B1F-9F8C-9566F23FE61F.
    static KXUUID cafAnalysisUUID();
    // From the first 16 bytes of `data`; nullopt when there are fewer.
    static std::optional<KXUUID> fromData(const std::uint8_t* data, std::size_t length);
    // From the canonical text "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx" (either case).
    static std::optional<KXUUID> fromString(std::string_view text);

    const Bytes& bytes() const { return bytes_; }
    KXData dataValue() const { return KXData(bytes_.begin(), bytes_.end()); }
    // Upper-case canonical text.
    std::string stringValue() const;

    friend bool operator==(const KXUUID&, const KXUUID&) = default;

private:
    Bytes bytes_{};
};
