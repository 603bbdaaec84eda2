#pragma once
// The layout of a Sound Designer II file, shared by its reader and its header writer: the data
// fork holds nothing but big-endian samples; the resource fork holds the description, each
// resource walked into a chunk (type, ID, name, payload; numbers big-endian).
//
//   'STR ' 1000/1001/1002  Pascal strings of decimal numbers: bytes per sample, rate (its
//                          leading integer: "44100.000000"), channels
//   'STR ' <title>         text metadata, found by name (kTextTitles)
//   'sdML'                 markers, 'ddRL' regions, 'sdLL' loops (below)
//   'KXAn' / 'anal'        analysis; 'KXmd' archived metadata; 'iXML'

#include <cstdint>

#include "KXBase/KXFourCC.h"

namespace KXSDIILayout {

constexpr std::uint32_t kStringType = KXFourCC("STR ");
constexpr std::int16_t kBytesPerSampleID = 1000, kRateID = 1001, kChannelsID = 1002;
// The ID of every other resource the writer writes, and of the first text resource (each text
// resource takes its title's place in kTextTitles after it).
constexpr std::int16_t kResourceID = 1000;
constexpr std::int16_t kFirstTextID = 2000;

// --- 'sdML': a 16-bit count at 6 (the walk runs only when it is above 0, then while the record
// offset is below the payload's length); records from 8 of a 32-bit frame at +4 and a 32-bit
// name length n at +16, the name at +20; the next record follows the name.
constexpr std::uint32_t kMarkerCount = 6, kMarkersStart = 8;
constexpr std::uint32_t kMarkerPosition = 4, kMarkerNameLength = 16, kMarkerName = 20;

// --- 'ddRL': 56-byte records from 18 while the record offset is below the payload's length:
// 32-bit start, end and sync frames at +4, +8 and +12, a 64-bit time stamp at +16 and a Pascal
// name of at most 31 characters at +24. The count at 6 is written only.
constexpr std::uint32_t kRegionCount = 6, kRegionsStart = 18, kRegionSize = 56;
constexpr std::uint32_t kRegionStart = 4, kRegionEnd = 8, kRegionSync = 12, kRegionTimeStamp = 16, kRegionName = 24;
constexpr std::uint32_t kRegionNameLength = 31;

// --- 'sdLL': a 16-bit count at 6 (walked as 'sdML'); 14-byte records from 8 of a 32-bit start
// and end frame and a 16-bit loop mode at +10, the loop type + 117.
constexpr std::uint32_t kLoopCount = 6, kLoopsStart = 8, kLoopSize = 14;
constexpr std::uint32_t kLoopStart = 0, kLoopEnd = 4, kLoopMode = 10;
constexpr std::int16_t kLoopModeBase = 117;

// The walks stop after this many records each, the most a 16-bit signed count holds: a fork of
// tiny records could otherwise make millions of labels.
constexpr std::uint32_t kMaximumRecords = 0x7FFF;

// The text resources' names, in reading order; each is stored under KXMetadata::keyForTitle.
constexpr const char* kTextTitles[] = {
    "Name",          "Genre",           "Keywords",          "Author",          "Original Artist",
    "Original Medium", "Original Dimensions", "Digitization Source", "Commissioned By", "Source Supplier",
    "Engineers",     "Digitizer",       "Cropped",           "Archival Location", "Product",
    "Copyright",     "Software Package", "Creation Date",    "Comments",        "Annotation",
    "Subject",
};

}  // namespace KXSDIILayout
