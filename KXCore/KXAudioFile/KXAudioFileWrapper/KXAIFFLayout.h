#pragma once
// The layout of AIFF and AIFF-C chunks, shared by the AIFF reader and the AIFF header writer:
// field offsets and record sizes (every number big-endian) and the text-chunk table, once and
// used in both directions.

#include <cstdint>

#include "KXBase/KXFourCC.h"

namespace KXAIFFLayout {

// --- 'COMM'
constexpr std::uint32_t kCommonChannels = 0;       // 16-bit
constexpr std::uint32_t kCommonFrames = 2;         // 32-bit
constexpr std::uint32_t kCommonBitsPerSample = 6;  // 16-bit
constexpr std::uint32_t kCommonRate = 8;           // 80-bit extended
constexpr std::uint32_t kCommonRateSize = 10;
constexpr std::uint32_t kCommonCompression = 18;  // AIFF-C only
// From the end of a written 'COMM' chunk back to its frame count: the rate, the sample size and
// the count itself, and for AIFF-C the compression type and an empty name.
constexpr std::uint32_t kCommonFramesFromEnd = 16;
constexpr std::uint32_t kCommonCompressionSize = 6;

// The compression types read (everything else is refused): the encoding, byte order and float
// width of their samples. The writer writes the first of each kind.
struct Compression {
    std::uint32_t type;
    std::uint32_t encoding;
    bool littleEndian;
    std::uint16_t floatDepth;  // 0 for integers
};
constexpr Compression kCompressions[] = {
    {KXFourCC("NONE"), KXFourCC("lpcm"), false, 0},
    // Big-endian integers under other names, read as 'NONE'.
    {KXFourCC("twos"), KXFourCC("lpcm"), false, 0},
    {KXFourCC("in24"), KXFourCC("lpcm"), false, 0},
    {KXFourCC("in32"), KXFourCC("lpcm"), false, 0},
    {KXFourCC("sowt"), KXFourCC("lpcm"), true, 0},
    {KXFourCC("fl32"), KXFourCC("lpcm"), false, 32},
    {KXFourCC("FL32"), KXFourCC("lpcm"), false, 32},
    {KXFourCC("fl64"), KXFourCC("lpcm"), false, 64},
    {KXFourCC("FL64"), KXFourCC("lpcm"), false, 64},
    {KXFourCC("ulaw"), KXFourCC("ulaw"), false, 0},
    {KXFourCC("ULAW"), KXFourCC("ulaw"), false, 0},
    {KXFourCC("alaw"), KXFourCC("alaw"), false, 0},
    {KXFourCC("ALAW"), KXFourCC("alaw"), false, 0},
};

// --- 'SSND': offset and block size (32-bit each), then the samples.
constexpr std::uint32_t kSoundDataHeaderSize = 8;
// From the end of the written 'SSND' header back to its size field.
constexpr std::uint32_t kSoundDataSizeFromEnd = 12;

// --- 'MARK': a 16-bit count, then records of a 16-bit ID, a 32-bit position and a Pascal name
// whose count byte and text together are even.
constexpr std::uint32_t kMarkersStart = 2;
constexpr std::uint32_t kMarkerPosition = 2, kMarkerName = 6;

// --- 'INST': six signed bytes (base note, detune, low and high note, low and high velocity),
// a 16-bit gain, then two loops of play mode, begin and end marker ID (16-bit each).
constexpr std::uint32_t kInstrumentGain = 6;
constexpr std::uint32_t kSustainLoop = 8, kReleaseLoop = 14;

// --- 'APPL'/'auFM' regions: a 16-bit count, then records of a 16-bit number, a Pascal name
// without padding, the start and end marker IDs and 8 zero bytes.
constexpr std::uint32_t kRegionsStart = 2;
constexpr std::uint32_t kRegionName = 2;
constexpr std::uint32_t kRegionTrailerSize = 12;  // the two IDs and the zero bytes

// --- 'APPL'/'REX ': beats at 6, slice count at 10, tempo at 12; 12-byte slice records from
// 1016 whose positions count from 242 frames before the first sample.
constexpr std::uint32_t kREXBeats = 6, kREXSliceCount = 10, kREXTempo = 12;
constexpr std::uint32_t kREXSlicesStart = 1016, kREXSliceSize = 12;
constexpr double kREXSliceOffset = 242.0;

// --- 'APPL'/'ReCy': meter at 6 and 7, bars and beats at 8 and 9, tempo at 10, sensitivity at
// 20; 8-byte slice records from 162 (position × 256, then the level at +4), their count at 158.
constexpr std::uint32_t kReCycleMeter = 6, kReCycleBars = 8, kReCycleTempo = 10, kReCycleSensitivity = 20;
constexpr std::uint32_t kReCycleSliceCount = 158, kReCycleSlicesStart = 162, kReCycleSliceSize = 8;
constexpr std::uint32_t kReCycleSliceLevel = 4;

// --- 'basc'
constexpr std::uint32_t kBeatsCount = 4, kBeatsKey = 8, kBeatsScale = 10, kBeatsMeterNumerator = 12,
                        kBeatsMeterDenominator = 14, kBeatsPlayback = 16;
constexpr std::uint32_t kBeatsPaddingSize = 66;
// --- 'trns': the slice count at 72, then 24-byte records from 80 with the position first.
constexpr std::uint32_t kTransientCount = 72, kTransientsStart = 80, kTransientSize = 24;
constexpr std::uint32_t kTransientHeaderPadding = 60, kTransientPadding = 16;
// --- 'cate': three 50-byte texts from 4, then the descriptor count at 220 and 50-byte
// descriptors from 222.
constexpr std::uint32_t kCategoryTextSize = 50;
constexpr std::uint32_t kCategoryTexts = 4;
constexpr std::uint32_t kCategoryPaddingSize = 66;
constexpr std::uint32_t kDescriptorCount = 220, kDescriptorsStart = 222;
constexpr const char* kCategoryKeys[] = {"instrumentCategory", "instrument", "genre"};

// --- 'COMT': the first comment's time stamp, marker ID, text length at 8 and text at 10.
constexpr std::uint32_t kCommentLength = 8, kCommentText = 10;
constexpr std::uint32_t kCommentMaximumLength = 0xFFFF;

// --- Text chunks and their metadata keys, in reading order; `writtenAs` is the place among the
// chunks that the writer writes (0: read only).
struct TextChunk {
    std::uint32_t type;
    const char* key;
    int writtenAs;
};
constexpr TextChunk kTextChunks[] = {
    {KXFourCC("NAME"), "metaName", 1},
    {KXFourCC("GENR"), "genre", 0},
    {KXFourCC("KEYW"), "keywords", 0},
    {KXFourCC("AUTH"), "author", 3},
    {KXFourCC("OART"), "originalArtist", 0},
    {KXFourCC("OMED"), "originalMedium", 0},
    {KXFourCC("ODIM"), "originalDimensions", 0},
    {KXFourCC("DIGS"), "digitizationSource", 0},
    {KXFourCC("CMSB"), "commissionedBy", 0},
    {KXFourCC("SRCS"), "sourceSupplier", 0},
    {KXFourCC("ENGS"), "engineers", 0},
    {KXFourCC("DGTZ"), "digitizer", 0},
    {KXFourCC("CRPD"), "cropped", 0},
    {KXFourCC("ARCH"), "archivalLocation", 0},
    {KXFourCC("PROD"), "product", 0},
    {KXFourCC("(c) "), "copyright", 2},
    {KXFourCC("SOFT"), "softwarePackage", 0},
    {KXFourCC("CRED"), "creationDate", 0},
    {KXFourCC("ANNO"), "annotation", 4},
    {KXFourCC("SUBJ"), "subject", 0},
};
constexpr int kWrittenTextChunks = 4;

// --- The label and metadata chunks ({type, subtype}, a subtype of 0 matching any) besides the text
// chunks above: what the header update puts in place anew, keeping every other chunk as it is.
constexpr std::uint32_t kTagChunks[][2] = {
    {KXFourCC("INST"), 0}, {KXFourCC("MARK"), 0}, {KXFourCC("APPL"), KXFourCC("auFM")}, {KXFourCC("basc"), 0},
    {KXFourCC("trns"), 0}, {KXFourCC("cate"), 0}, {KXFourCC("COMT"), 0}, {KXFourCC("iXML"), 0},
    {KXFourCC("KXmd"), 0}};

}  // namespace KXAIFFLayout
