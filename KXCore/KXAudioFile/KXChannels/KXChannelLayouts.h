#pragma once
// Channel layouts: which layout a channel count makes, and each layout's default channel names
// and abbreviations. The library ships them as XML property-list arrays of strings,
// "KXChannelNames/<layout>.name" and "KXChannelAbbreviations/<layout>.abbr" in its data folder;
// the same lists are compiled in and used when a file is missing or unreadable.
//
//   channels  layout   order
//   1         mono     M
//   2         stereo   L R
//   4         quad     L R LS RS        (WAVE files)
//   4         lcrs     L C R S          (other formats)
//   6         5_1      L R C LFE LS RS
//   7         6_1      L R C LFE LS RS CS
//   8         7_1      L R C LFE LSB RSB LS RS
//   12        10_2     L R C LFE LS RS CS LW RW LH RH LFE2

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace KXChannelLayouts {

// The layout name of a channel count in a file format; nullopt when there is none.
std::optional<std::string> bundleExtensionForFormat(std::uint32_t format, std::uint32_t channels);
// The names and abbreviations of a layout, from the data folder, else compiled in; empty for an
// unknown layout.
std::vector<std::string> namesForLayout(const std::string& layout);
std::vector<std::string> abbreviationsForLayout(const std::string& layout);
// Every layout name, in the order of the table above.
const std::vector<std::string>& layoutNames();
// The compiled-in lists (what the shipped files hold).
std::vector<std::string> builtInNames(const std::string& layout);
std::vector<std::string> builtInAbbreviations(const std::string& layout);
// Reads a list file: an XML or binary property-list array of strings; nullopt otherwise.
std::optional<std::vector<std::string>> readStringList(const std::string& path);

}  // namespace KXChannelLayouts
