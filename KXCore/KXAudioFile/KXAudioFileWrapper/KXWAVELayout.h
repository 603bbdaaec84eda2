#pragma once
// The layout of WAVE (RIFF) chunks, shared by the WAVE reader and the WAVE header writer: chunk
// types, field offsets and record sizes (every number little-endian), and the tables that map
// chunks and fields to metadata keys, each once and used in both directions. Wave64 files lay
// out 'fmt ' the same way.

#include <array>
#include <cstdint>

#include "KXBase/KXFourCC.h"

namespace KXWAVELayout {

// --- RF64 and BW64: the container and 'data' sizes read 0xFFFFFFFF and the first chunk, 'ds64',
// holds them in 64 bits (then a sample count and an empty table of other chunks). A file being
// written reserves its place with a 'JUNK' chunk of the same size.
constexpr std::uint32_t kLargeSize = 0xFFFFFFFFu;
constexpr std::uint64_t kLargeSizesPosition = 12;
constexpr std::uint32_t kLargeSizesSize = 28;

// --- 'fmt '
constexpr std::uint32_t kFormatTag = 0;             // 16-bit
constexpr std::uint32_t kFormatChannels = 2;        // 16-bit
constexpr std::uint32_t kFormatRate = 4;            // 32-bit
constexpr std::uint32_t kFormatBitsPerSample = 14;  // 16-bit; the container width when extensible
constexpr std::uint32_t kFormatSize = 16;
// WAVE_FORMAT_EXTENSIBLE: 22 more bytes after a 16-bit size of them.
constexpr std::uint32_t kFormatExtensionSize = 22;
constexpr std::uint32_t kFormatChannelMask = 20;  // 32-bit
constexpr std::uint32_t kFormatSubFormat = 24;    // a 16-byte GUID
constexpr std::uint32_t kSubFormatSize = 16;

constexpr std::uint16_t kFormatPCM = 1, kFormatFloat = 3, kFormatALaw = 6, kFormatMuLaw = 7;
constexpr std::uint16_t kFormatExtensible = 0xFFFE;
// The sub-format GUIDs of plain PCM and IEEE float, xxxx0000-0000-0010-8000-00AA00389B71, as
// stored: the tag in the first two bytes (little-endian), then these.
constexpr std::array<std::uint8_t, 14> kSubFormatTail = {0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80,
                                                         0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};

// --- 'data': an odd payload is followed by a pad byte.

// --- 'cue ': a count, then records of ID, position, 'data', chunk start, block start, offset.
constexpr std::uint32_t kCueRecordsStart = 4;
constexpr std::uint32_t kCueRecordSize = 24;

// --- 'LIST'/'adtl' sub-chunks: 'labl' (cue ID, name), 'ltxt' (cue ID, frames, purpose …).
constexpr std::uint32_t kSubChunkHeaderSize = 8;
constexpr std::uint32_t kLabelCueID = 8, kLabelText = 12;  // offsets from the sub-chunk's header
constexpr std::uint32_t kLabelledTextFrames = 12;
constexpr std::uint32_t kLabelledTextSize = 20;

// --- 'smpl': nine 32-bit fields, then loop records of cue ID, type, start, end, fraction, count.
constexpr std::uint32_t kSamplerLoopCount = 28;
constexpr std::uint32_t kSamplerLoopsStart = 36;
constexpr std::uint32_t kSamplerLoopSize = 24;
constexpr std::uint32_t kSamplerLoopType = 4, kSamplerLoopStart = 8, kSamplerLoopEnd = 12;

// --- 'inst': seven signed bytes (base note, detune, gain, low and high note, low and high
// velocity) and a pad byte.

// --- 'acid'
constexpr std::uint32_t kAcidFlags = 0, kAcidBeats = 12, kAcidMeterNumerator = 16, kAcidMeterDenominator = 18,
                        kAcidTempo = 20;

// --- 'strc': a header of seven 32-bit values, then 32-byte slice records.
constexpr std::uint32_t kSliceCount = 4;
constexpr std::uint32_t kSlicesStart = 28;
constexpr std::uint32_t kSliceSize = 32;
constexpr std::uint32_t kSliceKind = 0, kSlicePosition = 8, kSliceFlag = 16;

// --- 'bext' (Broadcast WAVE)
struct BroadcastText {
    const char* key;
    std::uint32_t offset, size;
    bool terminated;  // a C string in its field (else exactly `size` characters)
};
constexpr BroadcastText kBroadcastTexts[] = {
    {"description", 0, 256, true},       {"originator", 256, 32, true},      {"originatorReference", 288, 32, true},
    {"originationDate", 320, 10, false}, {"originationTime", 330, 8, false},
};
constexpr std::uint32_t kBroadcastTimeReference = 338;  // 64-bit
constexpr std::uint32_t kBroadcastVersion = 346;        // 16-bit
constexpr std::uint32_t kBroadcastUMID = 348;
constexpr std::uint32_t kBroadcastUMIDSize = 64;
constexpr std::uint32_t kBroadcastReservedSize = 190;
// Version 2: five 16-bit loudness values in hundredths (KXMetadata::kLoudnessKeys, in order), then
// 180 reserved bytes.
constexpr std::uint32_t kBroadcastLoudness = 412;
constexpr std::uint32_t kBroadcastLoudnessReservedSize = 180;
constexpr std::uint32_t kBroadcastCodingHistory = 602;

// The BEXT element of an iXML document: its elements and the metadata keys they hold, in the
// order they are written. The time reference is written as two 32-bit halves.
struct IXMLBroadcastField {
    const char* key;
    const char* element;
};
constexpr IXMLBroadcastField kIXMLBroadcastFields[] = {
    {"description", "bwf_description"},
    {"originator", "bwf_originator"},
    {"originatorReference", "bwf_originator_reference"},
    {"originationDate", "bwf_origination_date"},
    {"originationTime", "bwf_origination_time"},
    {"timeReference", nullptr},
    {"smpteUMID", "bwf_umid"},
    {"codingHistory", "bwf_coding_history"},
};
constexpr const char* kIXMLTimeReferenceLow = "bwf_time_reference_low";
constexpr const char* kIXMLTimeReferenceHigh = "bwf_time_reference_high";

// --- 'LIST'/'INFO': text sub-chunks and their metadata keys, in the order they are written.
struct InfoKey {
    std::uint32_t id;
    const char* key;
};
constexpr InfoKey kInfoKeys[] = {
    {KXFourCC("INAM"), "metaName"},
    {KXFourCC("IGNR"), "genre"},
    {KXFourCC("IKEY"), "keywords"},
    {KXFourCC("IAUT"), "author"},
    {KXFourCC("IART"), "originalArtist"},
    {KXFourCC("IMED"), "originalMedium"},
    {KXFourCC("IDIM"), "originalDimensions"},
    {KXFourCC("ISRF"), "digitizationSource"},
    {KXFourCC("ICMS"), "commissionedBy"},
    {KXFourCC("ISRC"), "sourceSupplier"},
    {KXFourCC("IENG"), "engineers"},
    {KXFourCC("ITCH"), "digitizer"},
    {KXFourCC("ICRP"), "cropped"},
    {KXFourCC("IARL"), "archivalLocation"},
    {KXFourCC("IPRD"), "product"},
    {KXFourCC("ICOP"), "copyright"},
    {KXFourCC("ISFT"), "softwarePackage"},
    {KXFourCC("ICRD"), "creationDate"},
    {KXFourCC("ICMT"), "comments"},
    {KXFourCC("IANN"), "annotation"},
    {KXFourCC("ISBJ"), "subject"},
};

// --- The label and metadata chunks ({type, subtype}, a subtype of 0 matching any): what the
// header update puts in place anew, keeping every other chunk as it is.
constexpr std::uint32_t kTagChunks[][2] = {
    {KXFourCC("bext"), 0}, {KXFourCC("smpl"), 0}, {KXFourCC("inst"), 0}, {KXFourCC("cue "), 0},
    {KXFourCC("LIST"), KXFourCC("adtl")}, {KXFourCC("LIST"), KXFourCC("INFO")}, {KXFourCC("iXML"), 0},
    {KXFourCC("acid"), 0}, {KXFourCC("strc"), 0}, {KXFourCC("KXmd"), 0}};

}  // namespace KXWAVELayout
