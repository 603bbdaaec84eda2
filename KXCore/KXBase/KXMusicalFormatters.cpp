#include "KXBase/KXMusicalFormatters.h"

#include <span>

#include "KXBase/KXString.h"

namespace {

struct Name {
    const char* text;
    std::int32_t value;
};

constexpr Name kKeys[] = {{"C", 0},  {"C#", 1}, {"D", 2},   {"D#", 3}, {"E", 4},   {"F", 5},  {"F#", 6},
                          {"G", 7},  {"G#", 8}, {"A", 9},   {"A#", 10}, {"B", 11}, {"Db", 1}, {"Eb", 3},
                          {"Gb", 6}, {"Ab", 8}, {"Bb", 10}, {"Cb", 11}, {"E#", 5}, {"Fb", 4}, {"B#", 0}};
constexpr Name kScales[] = {{"Minor", 1}, {"Major", 2}, {"Neither", 3}, {"Both", 4}};
constexpr Name kPlaybackTypes[] = {{"Loop", 1}, {"One Shot", 2}};

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::string textFor(std::span<const Name> names, std::int32_t value) {
    for (const Name& name : names)
        if (name.value == value) return name.text;
    return {};
}

KXFormatterResult parse(std::span<const Name> names, const std::string& text) {
    const std::string wanted = trimmed(text);
    for (const Name& name : names)
        if (KXString::equalIgnoringCase(wanted, name.text)) return {true, name.value};
    return {};
}

}  // namespace

std::string KXKeyFormatter::stringForObjectValue(std::int32_t key) {
    const std::string text = textFor(kKeys, key);
    return text.empty() ? "None" : text;
}

KXFormatterResult KXKeyFormatter::getObjectValue(const std::string& text) {
    const std::string wanted = trimmed(text);
    if (wanted.empty() || KXString::equalIgnoringCase(wanted, "None")) return {true, std::nullopt};
    return parse(kKeys, wanted);
}

std::string KXScaleFormatter::stringForObjectValue(std::int32_t scale) { return textFor(kScales, scale); }
KXFormatterResult KXScaleFormatter::getObjectValue(const std::string& text) { return parse(kScales, text); }

std::string KXPlaybackTypeFormatter::stringForObjectValue(std::int32_t type) { return textFor(kPlaybackTypes, type); }
KXFormatterResult KXPlaybackTypeFormatter::getObjectValue(const std::string& text) { return parse(kPlaybackTypes, text); }
