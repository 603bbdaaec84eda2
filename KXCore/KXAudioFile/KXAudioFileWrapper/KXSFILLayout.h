#pragma once
// The layout of a Sound Designer I file, shared by its reader and its header writer: a fixed
// 1336-byte big-endian header in the data fork, then mono samples. Positions in the header are
// byte offsets into the sample data. The library's own analysis and metadata live as resources
// in the resource fork ('KXAn' or 'anal', 'KXmd').

#include <cstdint>

namespace KXSFILLayout {

constexpr std::uint32_t kHeaderSize = 1336;  // also the first two bytes (05 38)
constexpr std::uint16_t kHeaderVersion = 32; // the second two
constexpr std::uint32_t kDataSize = 184;     // 32-bit count of sample bytes

// Ten 40-byte marker records from 348; a record is taken only when its first byte is 0 (an
// unused one has 1), with a 32-bit position at +2 and a Pascal name at +6 of at most 33
// characters.
constexpr std::uint32_t kMarkers = 348;
constexpr std::uint32_t kMarkerSize = 40;
constexpr std::uint32_t kMarkerCount = 10;
constexpr std::uint8_t kMarkerUsed = 0, kMarkerUnused = 1;
constexpr std::uint32_t kMarkerPosition = 2, kMarkerName = 6;
constexpr std::uint32_t kMarkerNameLength = 33;

// Two loops of a 32-bit start and end; a start of all ones is no loop. Both take their type
// from the loop mode byte at 1332 (mode − 1); the second loop's mode at 1333 is written only.
constexpr std::uint32_t kFirstLoop = 752;
constexpr std::uint32_t kSecondLoop = 1324;
constexpr std::uint32_t kNoLoop = 0xFFFFFFFF;
constexpr std::uint32_t kLoopModes = 1332;

constexpr std::uint32_t kRate = 1020;          // 32-bit
constexpr std::uint32_t kSamplePeriod = 1024;  // 32-bit microseconds, written only
constexpr std::uint32_t kDepth = 1028;         // 16-bit signed

}  // namespace KXSFILLayout
