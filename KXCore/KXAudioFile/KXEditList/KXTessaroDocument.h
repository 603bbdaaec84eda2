#pragma once
// The Tessaro document, the editor's own format: a folder "<name>.tess" holding the header
// "<name>.info" — an XML property list — beside the sample files that its edit list plays.
// This unit is the layout shared by the document's reader (KXAudioFile_ParseTessaro.cpp), its
// writer (KXAudioFile::writeToTessaroFile) and the audio file writer's 'TESS' format: the header
// keys, the names of the sample files, and the header dictionary itself.
//
// Header keys, in the order they are written:
//   "Channels"            the channels list's state (names and analysis); required
//   "Difference"          how alike the channels are (float)
//   "Date"                when the header was written
//   "TablesAreBigEndian"  written false (overview tables in host order); true on reading swaps them
//   "Rate"                frames a second, written as a float, read as an integer
//   "Edit List"           per channel, the blocks' state dictionaries; paths of the document's own
//                         files are bare names, relative to the header's folder
//   "Markers", "Slices", "Regions", "Loops"   the label lists' states, each only when not empty
//
// Sample files, beside the header (base = the header's path less ".info"):
//   base + "_0000." + "%.2d" channel   contiguous parts: one rendered file per channel
//   base + "_%.4d" block number         separate parts: one file per block, with handles
//   base + "." + "%.2d" channel         one file per channel, 32-bit big-endian floats, when the
//                                       header has no edit list (what the writer's 'TESS' writes)

#include <cstdint>
#include <optional>
#include <string>

#include "KXBase/KXError.h"
#include "KXBase/KXValue.h"

class KXChannelsList;
class KXLabelList;

namespace KXTessaroDocument {

inline constexpr const char* kExtension = "tess";
inline constexpr const char* kHeaderExtension = "info";

inline constexpr const char* kChannelsKey = "Channels";
inline constexpr const char* kDifferenceKey = "Difference";
inline constexpr const char* kDateKey = "Date";
inline constexpr const char* kTablesAreBigEndianKey = "TablesAreBigEndian";
inline constexpr const char* kRateKey = "Rate";
inline constexpr const char* kEditListKey = "Edit List";
// The four label lists, in the order of the header and of labelLists below.
inline constexpr const char* kLabelKeys[4] = {"Markers", "Slices", "Regions", "Loops"};

// What a header holds. Absent label lists and a null edit list leave their keys out; an absent
// difference too (the writer's, when it measured none).
struct Contents {
    const KXChannelsList* channels = nullptr;
    std::optional<float> difference;
    double rate = 0;
    const KXArray* editList = nullptr;
    const KXLabelList* labelLists[4] = {nullptr, nullptr, nullptr, nullptr};  // markers, slices, regions, loops
};
KXDictionary header(const Contents& contents);
// The header as an XML property list at `path`.
[[nodiscard]] bool writeHeader(const KXDictionary& header, const std::string& path, KXError* error = nullptr);

// The largest header the reader takes: the analysis of every channel is in it (about 11 MB an
// hour of a channel at 48 kHz).
inline constexpr std::uint64_t kMaximumHeaderBytes = std::uint64_t(1) << 31;

// "base.info", "base_0000.05", "base_0012", "base.05".
std::string headerPath(const std::string& base);
std::string contiguousPartPath(const std::string& base, std::uint32_t channel);
std::string separatePartPath(const std::string& base, std::uint32_t block);
std::string channelFilePath(const std::string& base, std::uint32_t channel);
// The header inside a document folder: "Song.tess" → "Song.tess/Song.info". nullopt for a path
// that is not a folder, or a folder without that header.
std::optional<std::string> headerPathInFolder(const std::string& folder);
// The size of every plain file in the folder.
std::uint64_t sizeOfFolder(const std::string& folder);

}  // namespace KXTessaroDocument
