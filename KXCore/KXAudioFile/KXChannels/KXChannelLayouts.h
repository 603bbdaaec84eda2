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
//
// WAVE files of more than two channels name their speakers in a channel mask (one bit per
// speaker, the channels in the order of the bits). The layouts above that WAVE files use have
// these masks: mono FC, stereo FL FR, quad FL FR BL BR, 5_1 FL FR FC LFE BL BR, 6_1 the same and
// BC, 7_1 FL FR FC LFE BL BR SL SR; 10_2 has none.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace KXChannelLayouts {

// WAVE speaker bits (of a channel mask) that the library gives a meaning.
constexpr std::uint32_t kSpeakerFrontLeft = 0x1, kSpeakerFrontRight = 0x2, kSpeakerFrontCenter = 0x4,
                        kSpeakerLowFrequency = 0x8, kSpeakerBackLeft = 0x10, kSpeakerBackRight = 0x20,
                        kSpeakerSideLeft = 0x200, kSpeakerSideRight = 0x400;

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
// The WAVE channel mask of the layout of a channel count (0 where that layout has none).
std::uint32_t speakerMaskForChannelCount(std::uint32_t channels);
// Speakers (single mask bits, one a channel) as a mask: 0 unless every channel has one and they
// rise in channel order, as a WAVE file must list them.
std::uint32_t maskOfSpeakers(std::span<const std::uint32_t> speakers);
// A mask's speakers in bit order.
std::vector<std::uint32_t> speakersOfMask(std::uint32_t mask);
// The name and abbreviation of the WAVE speaker at a mask bit (0 FL … 17 TBR); nullopt for
// the bits past them.
std::optional<std::pair<std::string, std::string>> speakerName(std::uint32_t bit);
// Reads a list file: an XML or binary property-list array of strings; nullopt otherwise.
std::optional<std::vector<std::string>> readStringList(const std::string& path);

}  // namespace KXChannelLayouts
