#pragma once
// The formatters of musical metadata — key, scale and playback type — between their numbers
// (as loop-library chunks store them) and their text.
//
//   KXKeyFormatter           0 "C", 1 "C#", 2 "D", 3 "D#", 4 "E", 5 "F", 6 "F#", 7 "G", 8 "G#",
//                            9 "A", 10 "A#", 11 "B"; flats parse too ("Db" 1, "Bb" 10, "Cb" 11);
//                            "None" and "" parse to nothing
//   KXScaleFormatter         1 "Minor", 2 "Major", 3 "Neither", 4 "Both"
//   KXPlaybackTypeFormatter  1 "Loop", 2 "One Shot"
// Parsing ignores letter case and surrounding blanks.

#include <cstdint>
#include <optional>
#include <string>

// What parsing a text gave: nothing parsed, parsed to no value, or parsed to a value.
struct KXFormatterResult {
    bool parsed = false;
    std::optional<std::int32_t> value;
};

namespace KXKeyFormatter {
std::string stringForObjectValue(std::int32_t key);
KXFormatterResult getObjectValue(const std::string& text);
}  // namespace KXKeyFormatter

namespace KXScaleFormatter {
std::string stringForObjectValue(std::int32_t scale);
KXFormatterResult getObjectValue(const std::string& text);
}  // namespace KXScaleFormatter

namespace KXPlaybackTypeFormatter {
std::string stringForObjectValue(std::int32_t type);
KXFormatterResult getObjectValue(const std::string& text);
}  // namespace KXPlaybackTypeFormatter
