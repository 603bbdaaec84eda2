#pragma once
// KXMetadata: the metadata key vocabularies and the typed readers that the audio-file object and
// the writer share. Many keys have a program spelling ("baseNote") and a display spelling
// ("MIDI Base Note"); a reader takes the program key first.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "KXBase/KXValue.h"

namespace KXMetadata {

struct KeyPair {
    const char* program;
    const char* display;  // nullptr when the key has none
};

// MIDI: base note, detune, gain, low and high note, low and high velocity.
inline constexpr KeyPair kBaseNote{"baseNote", "MIDI Base Note"};
inline constexpr KeyPair kDetune{"detune", "Detune"};
inline constexpr KeyPair kGain{"gain", "Gain"};
inline constexpr KeyPair kLowNote{"lowNote", "MIDI Low Note"};
inline constexpr KeyPair kHighNote{"highNote", "MIDI High Note"};
inline constexpr KeyPair kLowVelocity{"lowVelocity", "MIDI Low Velocity"};
inline constexpr KeyPair kHighVelocity{"highVelocity", "MIDI High Velocity"};
inline constexpr std::array<KeyPair, 7> kMIDIKeys = {kBaseNote, kDetune,  kGain,        kLowNote,
                                                     kHighNote, kLowVelocity, kHighVelocity};

// Musical.
inline constexpr KeyPair kTempo{"tempo", "Tempo"};
inline constexpr KeyPair kKey{"key", "Key"};
inline constexpr KeyPair kScale{"scale", "Scale"};
inline constexpr KeyPair kPlaybackType{"playbackType", "Playback Type"};
inline constexpr const char* kTimeSignature = "timeSignature";
inline constexpr const char* kBarsBeats = "barsBeats";
inline constexpr std::array<const char*, 9> kMusicalProgramKeys = {
    "tempo", "timeSignature", "barsBeats", "key", "scale", "playbackType", "eighthBeats", "meterNumerator",
    "meterDenominator"};
inline constexpr std::array<const char*, 7> kMusicalDisplayKeys = {
    "Tempo", "Eighth Beats", "Meter Numerator", "Meter Denominator", "Key", "Scale", "Playback Type"};

inline constexpr std::array<const char*, 4> kAppleLoopKeys = {"instrumentCategory", "instrument", "genre",
                                                              "descriptors"};
// The Broadcast WAVE keys; the last five are the loudness values of a version 2 'bext' chunk
// (LUFS, LU and dBTP, in hundredths on disk).
inline constexpr std::array<const char*, 13> kBroadcastWaveKeys = {
    "description",     "originator",       "originatorReference",  "originationDate",     "originationTime",
    "timeReference",   "smpteUMID",        "codingHistory",        "loudnessValue",       "loudnessRange",
    "maxTruePeakLevel", "maxMomentaryLoudness", "maxShortTermLoudness"};
inline constexpr std::array<const char*, 5> kLoudnessKeys = {"loudnessValue", "loudnessRange", "maxTruePeakLevel",
                                                             "maxMomentaryLoudness", "maxShortTermLoudness"};
inline constexpr std::array<const char*, 14> kIXMLKeys = {
    "circled", "file_set", "file_uid", "history", "note", "project", "scene",
    "speed", "sync_point_list", "take", "tape", "track_list", "ubits", "user"};

// The program key's value, else the display key's; null when neither is present.
const KXValue& valueForKeys(const KXDictionary& metadata, const KeyPair& keys);
// As an integer, 0 when absent.
std::int32_t integerForKeys(const KXDictionary& metadata, const KeyPair& keys);
float floatForKeys(const KXDictionary& metadata, const KeyPair& keys);
bool containsAnyKey(const KXDictionary& metadata, std::initializer_list<std::string_view> keys);
template <std::size_t N>
bool containsAnyKey(const KXDictionary& metadata, const std::array<const char*, N>& keys) {
    for (const char* key : keys)
        if (metadata.contains(key)) return true;
    return false;
}
template <std::size_t N>
void removeKeys(KXDictionary& metadata, const std::array<const char*, N>& keys) {
    for (const char* key : keys) metadata.removeObjectForKey(key);
}

// A present "Key" parsed with the key formatter: its value, −1 when it parses to nothing, the
// text as an integer when it does not parse; else "key" as an integer, −1 when absent.
std::int32_t key(const KXDictionary& metadata);
// A present display key parsed with its formatter, else the text as an integer; else the program
// key as an integer (0 when absent).
std::int32_t scaleType(const KXDictionary& metadata);
std::int32_t playbackType(const KXDictionary& metadata);

// Meter and beats: "timeSignature" holds numerator × 256 + denominator, "barsBeats" bars × 256
// + beats. Eighth beats: 0 without a denominator, else bars × ((8 ÷ denominator) × numerator)
// + beats × 2, in integers.
std::int32_t meterNumerator(const KXDictionary& metadata);
std::int32_t meterDenominator(const KXDictionary& metadata);
std::int32_t eighthBeats(const KXDictionary& metadata);

// CAF information-dictionary keys and the metadata keys they stand for, both ways: "title"
// metaName, "artist" originalArtist, "composer" author, "comments", "copyright", "genre",
// "encoding application" softwarePackage, "recorded date" creationDate, "source encoder"
// digitizer, "keywords", "subject". nullptr for a key without a counterpart.
const char* keyForInfoDictionaryFormatKey(std::string_view infoKey);
const char* infoDictionaryFormatKeyForKey(std::string_view key);
// The metadata keys that have an information-dictionary key, in the table's order.
std::vector<const char*> infoDictionaryKeys();

// The metadata key of a display title: "Name" is "metaName"; any other title is its words run
// together with the first letter lowered ("Original Artist" → "originalArtist").
std::string keyForTitle(std::string_view title);
// The display title of a metadata key: the display spelling where the key has one ("baseNote" →
// "MIDI Base Note"), "Name" for "metaName", else the key's words split at their capitals with the
// first raised ("originalArtist" → "Original Artist", "ICMT" stays "ICMT").
std::string titleForKey(std::string_view key);
// The program key a user names in either spelling: a display spelling ("MIDI Base Note", "Tempo")
// is its program key, a title ("Original Artist", "Comments") the key keyForTitle makes, anything
// else ("ICMT", "originalArtist") itself.
std::string keyForName(std::string_view name);

}  // namespace KXMetadata
