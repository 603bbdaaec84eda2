#include "KXAudioFile/KXChannels/KXChannelLayouts.h"

#include "KXBase/KXDirectories.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXFourCC.h"
#include "KXBase/KXPropertyList.h"

namespace {

constexpr std::size_t kMaximumListFileSize = 64 * 1024;

struct Layout {
    const char* name;
    std::uint32_t channels;
    std::vector<std::string> names;
    std::vector<std::string> abbreviations;
};

const std::vector<Layout>& layouts() {
    static const std::vector<Layout> kLayouts = {
        {"mono", 1, {"Mono"}, {"M"}},
        {"stereo", 2, {"Left", "Right"}, {"L", "R"}},
        {"quad", 4, {"Left", "Right", "Left Surround", "Right Surround"}, {"L", "R", "LS", "RS"}},
        {"lcrs", 4, {"Left", "Center", "Right", "Surround"}, {"L", "C", "R", "S"}},
        {"5_1", 6, {"Left", "Right", "Center", "LFE", "Left Surround", "Right Surround"},
         {"L", "R", "C", "LFE", "LS", "RS"}},
        {"6_1", 7, {"Left", "Right", "Center", "LFE", "Left Surround", "Right Surround", "Center Surround"},
         {"L", "R", "C", "LFE", "LS", "RS", "CS"}},
        {"7_1", 8,
         {"Left", "Right", "Center", "LFE", "Left Surround Back", "Right Surround Back", "Left Surround",
          "Right Surround"},
         {"L", "R", "C", "LFE", "LSB", "RSB", "LS", "RS"}},
        {"10_2", 12,
         {"Left", "Right", "Center", "LFE 1", "Left Surround", "Right Surround", "Center Surround", "Left Wide",
          "Right Wide", "Left High", "Right High", "LFE 2"},
         {"L", "R", "C", "LFE", "LS", "RS", "CS", "LW", "RW", "LH", "RH", "LFE2"}},
    };
    return kLayouts;
}

const Layout* layoutNamed(const std::string& name) {
    for (const Layout& layout : layouts())
        if (name == layout.name) return &layout;
    return nullptr;
}

std::vector<std::string> listFromData(const std::string& folder, const std::string& layout, const char* type,
                                      std::vector<std::string> builtIn) {
    const std::string data = KXDirectories::libraryDataDirectory();
    if (data.empty()) return builtIn;
    auto list = KXChannelLayouts::readStringList(data + "/" + folder + "/" + layout + "." + type);
    return list && !list->empty() ? *list : builtIn;
}

}  // namespace

namespace KXChannelLayouts {

std::uint32_t maskOfSpeakers(std::span<const std::uint32_t> speakers) {
    std::uint32_t mask = 0;
    for (const std::uint32_t speaker : speakers) {
        if (speaker == 0 || speaker <= mask) return 0;
        mask |= speaker;
    }
    return mask;
}

std::vector<std::uint32_t> speakersOfMask(std::uint32_t mask) {
    std::vector<std::uint32_t> speakers;
    for (std::uint32_t remaining = mask; remaining; remaining &= remaining - 1) speakers.push_back(remaining & (~remaining + 1));
    return speakers;
}

std::optional<std::string> bundleExtensionForFormat(std::uint32_t format, std::uint32_t channels) {
    if (channels == 4) return format == KXFourCC("WAVE") ? "quad" : "lcrs";
    for (const Layout& layout : layouts())
        if (layout.channels == channels) return layout.name;
    return std::nullopt;
}

const std::vector<std::string>& layoutNames() {
    static const std::vector<std::string> kNames = [] {
        std::vector<std::string> names;
        for (const Layout& layout : layouts()) names.push_back(layout.name);
        return names;
    }();
    return kNames;
}

std::vector<std::string> builtInNames(const std::string& layout) {
    const Layout* found = layoutNamed(layout);
    return found ? found->names : std::vector<std::string>();
}

std::vector<std::string> builtInAbbreviations(const std::string& layout) {
    const Layout* found = layoutNamed(layout);
    return found ? found->abbreviations : std::vector<std::string>();
}

std::vector<std::string> namesForLayout(const std::string& layout) {
    return listFromData("KXChannelNames", layout, "name", builtInNames(layout));
}

std::vector<std::string> abbreviationsForLayout(const std::string& layout) {
    return listFromData("KXChannelAbbreviations", layout, "abbr", builtInAbbreviations(layout));
}

std::uint32_t speakerMaskForChannelCount(std::uint32_t channels) {
    static constexpr std::uint32_t kMasks[] = {0, 0x4, 0x3, 0, 0x33, 0, 0x3F, 0x13F, 0x63F};
    return channels < std::size(kMasks) ? kMasks[channels] : 0;
}

std::optional<std::pair<std::string, std::string>> speakerName(std::uint32_t bit) {
    static constexpr std::pair<const char*, const char*> kSpeakers[] = {
        {"Left", "L"},
        {"Right", "R"},
        {"Center", "C"},
        {"LFE", "LFE"},
        {"Left Surround Back", "LSB"},
        {"Right Surround Back", "RSB"},
        {"Left Center", "LC"},
        {"Right Center", "RC"},
        {"Center Surround", "CS"},
        {"Left Surround", "LS"},
        {"Right Surround", "RS"},
        {"Top Center", "TC"},
        {"Left High", "LH"},
        {"Center High", "CH"},
        {"Right High", "RH"},
        {"Top Back Left", "TBL"},
        {"Top Back Center", "TBC"},
        {"Top Back Right", "TBR"},
    };
    if (bit >= std::size(kSpeakers)) return std::nullopt;
    return std::pair<std::string, std::string>(kSpeakers[bit].first, kSpeakers[bit].second);
}

std::optional<std::vector<std::string>> readStringList(const std::string& path) {
    auto file = KXFile::fileWithPath(path);
    if (!file || file->length() > kMaximumListFileSize) return std::nullopt;
    auto value = KXPropertyList::propertyListFromData(file->readDataOfLengthAtPosition(std::size_t(file->length()), 0));
    if (!value || value->type() != KXValue::Type::array) return std::nullopt;
    std::vector<std::string> strings;
    for (const KXValue& item : value->array()) {
        if (!item.isString()) return std::nullopt;
        strings.push_back(item.string());
    }
    return strings;
}

}  // namespace KXChannelLayouts
