#pragma once
// The layout of CAF (Core Audio Format) chunks, shared by the CAF reader and the CAF header
// writer: the file header, field offsets and record sizes (every number big-endian, 64-bit chunk
// sizes, no pad bytes), and the tables that map CAF values to the model's, each once and used in
// both directions.

#include <cstdint>

#include "KXBase/KXFourCC.h"

namespace KXCAFLayout {

// "caff", version 1, flags 0.
constexpr std::uint16_t kFileVersion = 1;
constexpr std::uint64_t kFileHeaderSize = 8;
constexpr std::uint64_t kChunkHeaderSize = 12;
// A 'data' size of all ones: the samples run to the end of the file.
constexpr std::uint64_t kSizeToEnd = ~std::uint64_t(0);

// --- 'desc'
constexpr std::uint32_t kDescRate = 0;  // 64-bit float
constexpr std::uint32_t kDescFormatID = 8;
constexpr std::uint32_t kDescFlags = 12;
constexpr std::uint32_t kDescBytesPerPacket = 16, kDescFramesPerPacket = 20;
constexpr std::uint32_t kDescChannels = 24, kDescBitsPerChannel = 28;
constexpr std::uint32_t kFlagFloat = 1, kFlagLittleEndian = 2;
// The format IDs read and written, each the name of the model's encoding of its samples.
// Deliberate: G.711 ('ulaw', 'alaw': one byte a sample, whatever the bits per channel say) as
// well as linear PCM.
constexpr std::uint32_t kFormatIDs[] = {KXFourCC("lpcm"), KXFourCC("ulaw"), KXFourCC("alaw")};

// --- 'data': a 32-bit edit count, then the samples.
constexpr std::uint32_t kDataEditCountSize = 4;

// --- 'chan': a layout tag, a channel bitmap (whose bits are those of the WAVE channel mask) and
// a count of channel descriptions.
constexpr std::uint32_t kChannelLayoutTag = 0, kChannelBitmap = 4;
constexpr std::uint32_t kLayoutTagUseBitmap = 0x10000;

// --- 'inst'
constexpr std::uint32_t kInstBaseNote = 0;  // 32-bit float, the fraction is the detune
constexpr std::uint32_t kInstLowNote = 4, kInstHighNote = 5, kInstLowVelocity = 6, kInstHighVelocity = 7;
constexpr std::uint32_t kInstGain = 8;  // 32-bit float, decibels
constexpr std::uint32_t kInstSize = 28;  // with four region and instrument IDs that stay 0

// --- 'mark': SMPTE time type and count, then 28-byte markers.
constexpr std::uint32_t kMarkersCount = 4, kMarkersStart = 8, kMarkerSize = 28;
constexpr std::uint32_t kMarkerType = 0, kMarkerPosition = 4 /* 64-bit float frames */, kMarkerID = 12;
constexpr std::uint32_t kMarkerGeneric = 0;

// --- 'regn': SMPTE time type and count, then regions of an ID, flags, a marker count and that
// many markers. Deliberate: they are read as if each held exactly two markers (68 bytes), which is
// what the writer writes.
constexpr std::uint32_t kRegionsCount = 4, kRegionsStart = 8, kRegionSize = 68;
constexpr std::uint32_t kRegionID = 0, kRegionFlags = 4, kRegionMarkerCount = 8, kRegionFirstMarker = 12;
constexpr std::uint32_t kRegionSecondMarker = kRegionFirstMarker + kMarkerSize;
// The first marker's type names what the region is.
constexpr std::uint32_t kMarkerRegionStart = KXFourCC("rbeg"), kMarkerRegionEnd = KXFourCC("rend");
constexpr std::uint32_t kMarkerSustainLoopStart = KXFourCC("slbg"), kMarkerSustainLoopEnd = KXFourCC("slen");
constexpr std::uint32_t kMarkerReleaseLoopStart = KXFourCC("rlbg"), kMarkerReleaseLoopEnd = KXFourCC("rlen");

// Region flags and the loop types they mean: loop forward, alternate, backward.
struct LoopFlags {
    std::uint32_t flags;
    std::uint32_t loopType;
};
constexpr LoopFlags kLoopFlags[] = {{3, 0}, {7, 1}, {5, 2}};

// --- 'strg': a 32-bit count, then entries of a 32-bit ID and a 64-bit offset into the strings
// that follow, each NUL-terminated UTF-8.
constexpr std::uint32_t kStringEntrySize = 12;

// --- 'info': a 32-bit count, then key and value texts, each NUL-terminated; the keys translate
// through KXMetadata::keyForInfoDictionaryFormatKey.
constexpr std::uint32_t kInfoEntries = 4;

// --- The label and metadata chunks: what the header update puts in place anew, keeping every
// other chunk as it is.
constexpr std::uint32_t kTagChunks[] = {KXFourCC("inst"), KXFourCC("mark"), KXFourCC("regn"),
                                        KXFourCC("strg"), KXFourCC("info"), KXFourCC("KXmd")};

}  // namespace KXCAFLayout
