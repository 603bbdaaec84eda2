#pragma once
// The library's analysis chunk, 'KXAn': one archived dictionary (a binary property list; readers
// take the XML form too) holding
//   "Channels"            array of channel state dictionaries (KXChannel::state), in order
//   "Difference"          float, the channels list's difference
//   "Date"                when it was written
//   "TablesAreBigEndian"  written false (tables in host order); absent means big-endian
// The older 'anal' chunk is read only:
//   0  float   largest magnitude          4  float  difference
//   8  int32   clipped-sample count       12 …      maximum-overview entries, big-endian floats
// (numbers in the chunk's order, big-endian: an 'anal' chunk is big-endian in every format).

#include <cstdint>
#include <optional>

#include "KXAudioFile/KXAudioFileWrapper/KXChunk.h"
#include "KXAudioFile/KXChannels/KXChannelsList.h"
#include "KXBase/KXIndexSet.h"

namespace KXAnalysisChunk {

// In Sound Designer files the analysis is the resource 'KXAn' of this ID.
constexpr std::int16_t kResourceID = 1000;

// The 'KXAn' contents for the given channels of the list.
KXData contentsForChannels(const KXChannelsList& list, const KXIndexSet& channels);
// The same contents before they are encoded (a binary property list of this value).
KXValue analysisForChannels(const KXChannelsList& list, const KXIndexSet& channels);

// Gives the j-th channel state of `contents` to channel firstChannel + j. With `readGlobals`
// the difference is set too. Answers whether the tables are big-endian ("TablesAreBigEndian"
// true or absent), or nullopt when the contents do not unarchive.
std::optional<bool> applyContents(KXChannelsList& list, const KXData& contents, std::uint32_t firstChannel,
                                  bool readGlobals);

// Brings every overview of the list from big-endian storage into host order (or from host order
// to big-endian): a byte swap on a little-endian host, nothing on a big-endian one.
void tablesFromBigEndian(KXChannelsList& list);

// Reads an 'anal' chunk that holds every channel, entries alternating; the clipped count is
// divided among the channels (integer division).
void applyInterleavedAnal(KXChannelsList& list, const KXChunk& chunk);

}  // namespace KXAnalysisChunk
