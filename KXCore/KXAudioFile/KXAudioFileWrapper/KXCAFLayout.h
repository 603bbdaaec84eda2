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

// The layout tags read (a tag's low 16 bits are its channel count) and the speaker of each
// channel, as WAVE mask bits. The surrounds take the bitmap's bits (Ls BL, Rs BR, Cs BC, Lc FLC,
// Rc FRC); in a layout that also has rear surrounds (Rls, Rrs) those are BL and BR and the
// surrounds SL and SR, as WAVE 7.1 files have them. Tags with speakers that WAVE masks do not
// name (wide, height, matrix) are not read.
namespace Speaker {
constexpr std::uint32_t L = 0x1, R = 0x2, C = 0x4, LFE = 0x8, Ls = 0x10, Rs = 0x20, Lc = 0x40, Rc = 0x80,
                        Cs = 0x100, Ts = 0x800;
// With rear surrounds.
constexpr std::uint32_t Lss = 0x200, Rss = 0x400, Rls = 0x10, Rrs = 0x20;
}  // namespace Speaker
struct LayoutTag {
    std::uint32_t tag;
    std::uint32_t speakers[8];
};
constexpr std::uint32_t layoutTag(std::uint32_t number, std::uint32_t channels) { return number << 16 | channels; }
namespace S = Speaker;
constexpr LayoutTag kLayoutTags[] = {
    {layoutTag(100, 1), {S::C}},                                          // Mono
    {layoutTag(101, 2), {S::L, S::R}},                                    // Stereo
    {layoutTag(102, 2), {S::L, S::R}},                                    // StereoHeadphones
    {layoutTag(108, 4), {S::L, S::R, S::Ls, S::Rs}},                      // Quadraphonic
    {layoutTag(109, 5), {S::L, S::R, S::Ls, S::Rs, S::C}},                // Pentagonal
    {layoutTag(110, 6), {S::L, S::R, S::Ls, S::Rs, S::C, S::Cs}},         // Hexagonal
    {layoutTag(113, 3), {S::L, S::R, S::C}},                              // MPEG_3_0_A
    {layoutTag(114, 3), {S::C, S::L, S::R}},                              // MPEG_3_0_B
    {layoutTag(115, 4), {S::L, S::R, S::C, S::Cs}},                       // MPEG_4_0_A
    {layoutTag(116, 4), {S::C, S::L, S::R, S::Cs}},                       // MPEG_4_0_B
    {layoutTag(117, 5), {S::L, S::R, S::C, S::Ls, S::Rs}},                // MPEG_5_0_A
    {layoutTag(118, 5), {S::L, S::R, S::Ls, S::Rs, S::C}},                // MPEG_5_0_B
    {layoutTag(119, 5), {S::L, S::C, S::R, S::Ls, S::Rs}},                // MPEG_5_0_C
    {layoutTag(120, 5), {S::C, S::L, S::R, S::Ls, S::Rs}},                // MPEG_5_0_D
    {layoutTag(121, 6), {S::L, S::R, S::C, S::LFE, S::Ls, S::Rs}},        // MPEG_5_1_A
    {layoutTag(122, 6), {S::L, S::R, S::Ls, S::Rs, S::C, S::LFE}},        // MPEG_5_1_B
    {layoutTag(123, 6), {S::L, S::C, S::R, S::Ls, S::Rs, S::LFE}},        // MPEG_5_1_C
    {layoutTag(124, 6), {S::C, S::L, S::R, S::Ls, S::Rs, S::LFE}},        // MPEG_5_1_D
    {layoutTag(125, 7), {S::L, S::R, S::C, S::LFE, S::Ls, S::Rs, S::Cs}}, // MPEG_6_1_A
    {layoutTag(126, 8), {S::L, S::R, S::C, S::LFE, S::Ls, S::Rs, S::Lc, S::Rc}},      // MPEG_7_1_A
    {layoutTag(127, 8), {S::C, S::Lc, S::Rc, S::L, S::R, S::Ls, S::Rs, S::LFE}},      // MPEG_7_1_B
    {layoutTag(128, 8), {S::L, S::R, S::C, S::LFE, S::Lss, S::Rss, S::Rls, S::Rrs}},  // MPEG_7_1_C
    {layoutTag(129, 8), {S::L, S::R, S::Ls, S::Rs, S::C, S::LFE, S::Lc, S::Rc}},      // Emagic_Default_7_1
    {layoutTag(131, 3), {S::L, S::R, S::Cs}},                             // ITU_2_1
    {layoutTag(132, 4), {S::L, S::R, S::Ls, S::Rs}},                      // ITU_2_2
    {layoutTag(133, 3), {S::L, S::R, S::LFE}},                            // DVD_4
    {layoutTag(134, 4), {S::L, S::R, S::LFE, S::Cs}},                     // DVD_5
    {layoutTag(135, 5), {S::L, S::R, S::LFE, S::Ls, S::Rs}},              // DVD_6
    {layoutTag(136, 4), {S::L, S::R, S::C, S::LFE}},                      // DVD_10
    {layoutTag(137, 5), {S::L, S::R, S::C, S::LFE, S::Cs}},               // DVD_11
    {layoutTag(138, 5), {S::L, S::R, S::Ls, S::Rs, S::LFE}},              // DVD_18
    {layoutTag(139, 6), {S::L, S::R, S::Ls, S::Rs, S::C, S::Cs}},         // AudioUnit_6_0
    {layoutTag(140, 7), {S::L, S::R, S::Lss, S::Rss, S::C, S::Rls, S::Rrs}},          // AudioUnit_7_0
    {layoutTag(141, 6), {S::C, S::L, S::R, S::Ls, S::Rs, S::Cs}},         // AAC_6_0
    {layoutTag(142, 7), {S::C, S::L, S::R, S::Ls, S::Rs, S::Cs, S::LFE}}, // AAC_6_1
    {layoutTag(143, 7), {S::C, S::L, S::R, S::Lss, S::Rss, S::Rls, S::Rrs}},          // AAC_7_0
    {layoutTag(144, 8), {S::C, S::L, S::R, S::Lss, S::Rss, S::Rls, S::Rrs, S::Cs}},   // AAC_Octagonal
    {layoutTag(148, 7), {S::L, S::R, S::Ls, S::Rs, S::C, S::Lc, S::Rc}},  // AudioUnit_7_0_Front
    {layoutTag(149, 2), {S::C, S::LFE}},                                  // AC3_1_0_1
    {layoutTag(150, 3), {S::L, S::C, S::R}},                              // AC3_3_0
    {layoutTag(151, 4), {S::L, S::C, S::R, S::Cs}},                       // AC3_3_1
    {layoutTag(152, 4), {S::L, S::C, S::R, S::LFE}},                      // AC3_3_0_1
    {layoutTag(153, 4), {S::L, S::R, S::Cs, S::LFE}},                     // AC3_2_1_1
    {layoutTag(154, 5), {S::L, S::C, S::R, S::Cs, S::LFE}},               // AC3_3_1_1
    {layoutTag(155, 6), {S::L, S::C, S::R, S::Ls, S::Rs, S::Cs}},         // EAC_6_0_A
    {layoutTag(156, 7), {S::L, S::C, S::R, S::Lss, S::Rss, S::Rls, S::Rrs}},          // EAC_7_0_A
    {layoutTag(157, 7), {S::L, S::C, S::R, S::Ls, S::Rs, S::LFE, S::Cs}}, // EAC3_6_1_A
    {layoutTag(158, 7), {S::L, S::C, S::R, S::Ls, S::Rs, S::LFE, S::Ts}}, // EAC3_6_1_B
    {layoutTag(160, 8), {S::L, S::C, S::R, S::Lss, S::Rss, S::LFE, S::Rls, S::Rrs}},  // EAC3_7_1_A
    {layoutTag(161, 8), {S::L, S::C, S::R, S::Ls, S::Rs, S::LFE, S::Lc, S::Rc}},      // EAC3_7_1_B
    {layoutTag(165, 8), {S::L, S::C, S::R, S::Ls, S::Rs, S::LFE, S::Cs, S::Ts}},      // EAC3_7_1_F
    {layoutTag(168, 4), {S::C, S::L, S::R, S::LFE}},                      // DTS_3_1
    {layoutTag(169, 5), {S::C, S::L, S::R, S::Cs, S::LFE}},               // DTS_4_1
    {layoutTag(182, 7), {S::C, S::L, S::R, S::Ls, S::Rs, S::LFE, S::Cs}}, // DTS_6_1_D
    {layoutTag(183, 8), {S::C, S::L, S::R, S::Lss, S::Rss, S::Rls, S::Rrs, S::LFE}},  // AAC_7_1_B
};

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
