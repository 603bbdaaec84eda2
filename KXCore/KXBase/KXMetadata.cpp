#include "KXBase/KXMetadata.h"

#include <string>

#include "KXBase/KXMusicalFormatters.h"

namespace KXMetadata {

const KXValue& valueForKeys(const KXDictionary& metadata, const KeyPair& keys) {
    if (const KXValue* value = metadata.find(keys.program)) return *value;
    return keys.display ? metadata.objectForKey(keys.display) : metadata.objectForKey(keys.program);
}

std::int32_t integerForKeys(const KXDictionary& metadata, const KeyPair& keys) {
    return valueForKeys(metadata, keys).intValue();
}

float floatForKeys(const KXDictionary& metadata, const KeyPair& keys) {
    return valueForKeys(metadata, keys).floatValue();
}

bool containsAnyKey(const KXDictionary& metadata, std::initializer_list<std::string_view> keys) {
    for (std::string_view key : keys)
        if (metadata.contains(std::string(key))) return true;
    return false;
}

std::int32_t key(const KXDictionary& metadata) {
    if (const KXValue* text = metadata.find(kKey.display)) {
        const KXFormatterResult parsed = KXKeyFormatter::getObjectValue(text->stringValue());
        if (!parsed.parsed) return text->intValue();
        return parsed.value.value_or(-1);
    }
    const KXValue* value = metadata.find(kKey.program);
    return value ? value->intValue() : -1;
}

namespace {
template <typename Parse>
std::int32_t parsedOrProgram(const KXDictionary& metadata, const KeyPair& keys, Parse parse) {
    if (const KXValue* text = metadata.find(keys.display)) {
        const KXFormatterResult parsed = parse(text->stringValue());
        return parsed.parsed && parsed.value ? *parsed.value : text->intValue();
    }
    return metadata.objectForKey(keys.program).intValue();
}
}  // namespace

std::int32_t scaleType(const KXDictionary& metadata) {
    return parsedOrProgram(metadata, kScale, KXScaleFormatter::getObjectValue);
}

std::int32_t playbackType(const KXDictionary& metadata) {
    return parsedOrProgram(metadata, kPlaybackType, KXPlaybackTypeFormatter::getObjectValue);
}

std::int32_t meterNumerator(const KXDictionary& metadata) {
    return std::int32_t(metadata.objectForKey(kTimeSignature).unsignedIntValue() >> 8);
}

std::int32_t meterDenominator(const KXDictionary& metadata) {
    return std::int32_t(metadata.objectForKey(kTimeSignature).unsignedIntValue() & 0xFF);
}

std::int32_t eighthBeats(const KXDictionary& metadata) {
    const std::int32_t denominator = meterDenominator(metadata);
    if (denominator == 0) return 0;
    const std::int32_t barsBeats = metadata.objectForKey(kBarsBeats).intValue();
    return (barsBeats >> 8) * ((8 / denominator) * meterNumerator(metadata)) + (barsBeats & 0xFF) * 2;
}

namespace {

struct InfoKey {
    const char* infoKey;
    const char* key;
};
constexpr InfoKey kInfoKeys[] = {
    {"title", "metaName"},
    {"artist", "originalArtist"},
    {"composer", "author"},
    {"comments", "comments"},
    {"copyright", "copyright"},
    {"genre", "genre"},
    {"encoding application", "softwarePackage"},
    {"recorded date", "creationDate"},
    {"source encoder", "digitizer"},
    {"keywords", "keywords"},
    {"subject", "subject"},
};

}  // namespace

const char* keyForInfoDictionaryFormatKey(std::string_view infoKey) {
    for (const InfoKey& entry : kInfoKeys)
        if (infoKey == entry.infoKey) return entry.key;
    return nullptr;
}

const char* infoDictionaryFormatKeyForKey(std::string_view key) {
    for (const InfoKey& entry : kInfoKeys)
        if (key == entry.key) return entry.infoKey;
    return nullptr;
}

std::vector<const char*> infoDictionaryKeys() {
    std::vector<const char*> keys;
    for (const InfoKey& entry : kInfoKeys) keys.push_back(entry.key);
    return keys;
}

std::string keyForTitle(std::string_view title) {
    if (title == "Name") return "metaName";
    std::string key;
    for (char c : title)
        if (c != ' ') key.push_back(key.empty() && c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c);
    return key;
}

namespace {
constexpr std::array<KeyPair, 11> kDisplayedKeys = {kBaseNote, kDetune,    kGain,  kLowNote, kHighNote,   kLowVelocity,
                                                    kHighVelocity, kTempo, kKey, kScale, kPlaybackType};
}  // namespace

std::string titleForKey(std::string_view key) {
    for (const KeyPair& pair : kDisplayedKeys)
        if (key == pair.program) return pair.display;
    if (key == "metaName") return "Name";
    const bool camel = !key.empty() && key[0] >= 'a' && key[0] <= 'z';
    if (!camel) return std::string(key);
    std::string title;
    for (char c : key) {
        if (title.empty()) c = char(c - 'a' + 'A');
        else if (c >= 'A' && c <= 'Z' && title.back() >= 'a' && title.back() <= 'z') title.push_back(' ');
        title.push_back(c);
    }
    return title;
}

std::string keyForName(std::string_view name) {
    for (const KeyPair& pair : kDisplayedKeys)
        if (name == pair.display) return pair.program;
    // A title has words or a capital before lower-case letters ("Comments"); a code such as
    // "ICMT" and a program key stay as they are.
    const bool title = name.find(' ') != std::string_view::npos ||
                       (!name.empty() && name[0] >= 'A' && name[0] <= 'Z' &&
                        name.find_first_of("abcdefghijklmnopqrstuvwxyz") != std::string_view::npos);
    return title ? keyForTitle(name) : std::string(name);
}

}  // namespace KXMetadata
