// The properties of an audio file: derived values, the summary entry, the state dictionary and
// the musical and MIDI metadata with their clamps.

#include <algorithm>
#include <cmath>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXBase/KXMetadata.h"

namespace {

struct ExtensionRule {
    std::uint32_t format;
    const char* extension;
};
// A REX1 file is presented as AIFF, deliberately.
constexpr ExtensionRule kExtensions[] = {
    {KXFourCC("AIFF"), "aif"}, {KXFourCC("APLL"), "aif"}, {KXFourCC("REX1"), "aif"}, {KXFourCC("REX2"), "rx2"},
    {KXFourCC("RCY "), "rcy"}, {KXFourCC("CAFF"), "caf"}, {KXFourCC("WAVE"), "wav"}, {KXFourCC("ACID"), "wav"},
    {KXFourCC("WV64"), "w64"}, {KXFourCC("SDII"), "sd2"}, {KXFourCC("SFIL"), "sd"},  {KXFourCC("ULAW"), "au"},
    {KXFourCC("TESS"), "tess"},
};

// Stores the program key; 0 removes the program key and the display key.
void storeOrRemove(KXDictionary& metadata, const KXMetadata::KeyPair& keys, KXValue value, bool remove) {
    if (remove) {
        metadata.removeObjectForKey(keys.program);
        if (keys.display) metadata.removeObjectForKey(keys.display);
        return;
    }
    metadata.setObject(std::move(value), keys.program);
}

void storeClamped(KXDictionary& metadata, const KXMetadata::KeyPair& keys, std::int32_t value, std::int32_t low,
                  std::int32_t high) {
    storeOrRemove(metadata, keys, std::clamp(value, low, high), value == 0);
}

}  // namespace

void KXAudioFile::setEditList(std::shared_ptr<KXEditList> list) {
    editList_ = list ? std::move(list) : KXEditList::editList();
    if (progressDelegate_ != this) editList_->setProgressDelegate(progressDelegate_);
}

std::optional<std::string> KXAudioFile::formatExtension() const {
    for (const ExtensionRule& rule : kExtensions)
        if (rule.format == format_) return rule.extension;
    return std::nullopt;
}

KXRange KXAudioFile::range() const {
    KXRange range = KXRange::rangeWithLength(length());
    range.setRate(rate_);
    return range;
}

float KXAudioFile::difference() const {
    return numberOfChannels_ == 1 ? KXChannelsList::kNoDifference : channelsList_->difference();
}

float KXAudioFile::clipAsPercentage() const {
    const std::int32_t clipped = channelsList_->clip();
    if (clipped < 0) return float(clipped);
    if (frames_ == 0 || numberOfChannels_ == 0) return 0.0f;
    // The sample count is taken as 32 bits, deliberately.
    const std::uint32_t samples = frames_ * numberOfChannels_;
    return float(clipped) * 100.0f / float(samples);
}

float KXAudioFile::tempoGuess() const {
    const std::int32_t numerator = meterNumerator(), denominator = meterDenominator(), beats8 = eighthBeats();
    if (denominator == 0 || beats8 == 0 || rate_ == 0 || frames_ == 0) return 0.0f;
    const std::int32_t perBar = (8 / denominator) * numerator;
    if (perBar == 0 || denominator / 4 == 0) return 0.0f;
    const std::int32_t bars = beats8 / perBar;
    const std::int32_t beats = (beats8 - perBar * bars) / (8 / denominator) + bars * numerator;
    const std::int32_t quarters = beats / (denominator / 4);
    if (quarters == 0) return 0.0f;
    float tempo = float(60.0 / ((double(frames_) / double(rate_)) / double(quarters)));
    if (!(tempo > 0.0f) || !std::isfinite(tempo)) return 0.0f;
    while (tempo < 60.0f) tempo *= 2.0f;
    while (tempo > 240.0f) tempo /= 2.0f;
    return tempo;
}

void KXAudioFile::setPlaybackRepeatRange(KXRange range, std::int32_t direction) {
    range.setRate(rate_);
    playbackRepeatStart_ = std::int32_t(range.sampleStart());
    playbackRepeatEnd_ = std::int32_t(range.sampleEnd());
    playbackRepeatDirectionType_ = direction;
}

// --- Summary and state

KXDictionary KXAudioFile::fileEntry() const {
    KXDictionary entry{{"name", displayName()},
                       {"fileSize", std::int32_t(std::uint32_t(fileSize_))},
                       {"format", format_},
                       {"creator", creator_},
                       {"range", depth_},
                       {"rate", rate_},
                       {"channels", numberOfChannels_},
                       {"samples", frames_},
                       {"length", float(length())},
                       {"markers", markerList_->count()},
                       {"regions", regionList_->count()},
                       {"slices", sliceList_->count()},
                       {"loops", loopList_->count()}};
    if (channelsList_->analysisState() != 0) {
        entry.setObject(max(), "max");
        entry.setObject(difference(), "difference");
        entry.setObject(clipAsPercentage(), "clipped");
        entry.setObject(rms(), "rms");
    }
    entry.addEntriesFromDictionary(metadata_);
    return entry;
}

KXDictionary KXAudioFile::stateIgnoring(std::uint32_t flags) const {
    KXDictionary state;
    if (!(flags & kStateIgnoreProperties)) {
        state.setObject(path(), "filename");
        state.setObject(fileSize_, "fileSize");
        state.setObject(format_, "format");
        state.setObject(creator_, "creator");
        state.setObject(blockSizeByteOrder_, "blockSizeByteOrder");
        state.setObject(audioDataByteOrder_, "audioDataByteOrder");
        state.setObject(depth_, "range");
        state.setObject(rate_, "rate");
        state.setObject(isFloatingPoint_, "isFloatingPoint");
        state.setObject(isInterleaved_, "isInterleaved");
        state.setObject(encoding_, "encoding");
    }
    if (!(flags & kStateIgnoreLabels)) {
        state.setObject(markerList_->state(), "markerList");
        state.setObject(sliceList_->state(), "sliceList");
        state.setObject(regionList_->state(), "regionList");
        state.setObject(loopList_->state(), "loopList");
    }
    if (!(flags & kStateIgnoreEditing)) {
        state.setObject(editList_->state(), "editList");
        state.setObject(channelsList_->state(), "channelsList");
        state.setObject(channelsList_->difference(), "difference");
    }
    return state;
}

void KXAudioFile::setState(const KXDictionary& state) {
    // "filename" is not read: a saved state does not move the object to another file unless the
    // caller adds "path".
    if (const KXValue* v = state.find("path")) setPath(v->stringValue());
    if (const KXValue* v = state.find("fileSize")) fileSize_ = v->unsignedLongLongValue();
    if (const KXValue* v = state.find("format")) format_ = v->unsignedIntValue();
    if (const KXValue* v = state.find("creator")) creator_ = v->unsignedIntValue();
    if (const KXValue* v = state.find("blockSizeByteOrder")) blockSizeByteOrder_ = v->intValue();
    if (const KXValue* v = state.find("audioDataByteOrder")) audioDataByteOrder_ = v->intValue();
    if (const KXValue* v = state.find("range")) depth_ = v->unsignedIntValue();
    if (const KXValue* v = state.find("rate")) rate_ = v->unsignedIntValue();
    if (const KXValue* v = state.find("isFloatingPoint")) isFloatingPoint_ = v->boolValue();
    if (const KXValue* v = state.find("isInterleaved")) isInterleaved_ = v->boolValue();
    if (const KXValue* v = state.find("encoding")) encoding_ = v->unsignedIntValue();
    if (const KXValue* v = state.find("editList")) editList_->setState(v->array());
    if (const KXValue* v = state.find("channelsList")) channelsList_->setState(v->array());
    if (const KXValue* v = state.find("difference")) channelsList_->setDifference(v->floatValue());
    numberOfChannels_ = channelsList_->count();
    const KXSampleRange extent = editList_->range();
    frames_ = std::uint32_t(std::min<std::uint64_t>(extent.end(), 0xFFFFFFFFu));
    resetBuffers();
    setUpAudioConverter();
    if (const KXValue* v = state.find("markerList")) markerList_->setState(v->array());
    if (const KXValue* v = state.find("sliceList")) sliceList_->setState(v->array());
    if (const KXValue* v = state.find("regionList")) regionList_->setState(v->array());
    if (const KXValue* v = state.find("loopList")) loopList_->setState(v->array());
}

// --- Metadata

std::int32_t KXAudioFile::MIDIBaseNote() const { return KXMetadata::integerForKeys(metadata_, KXMetadata::kBaseNote); }
void KXAudioFile::setMIDIBaseNote(std::int32_t note) { storeClamped(metadata_, KXMetadata::kBaseNote, note, 0, 127); }
std::int32_t KXAudioFile::MIDIHighNote() const { return KXMetadata::integerForKeys(metadata_, KXMetadata::kHighNote); }
void KXAudioFile::setMIDIHighNote(std::int32_t note) { storeClamped(metadata_, KXMetadata::kHighNote, note, 0, 127); }
std::int32_t KXAudioFile::MIDILowNote() const { return KXMetadata::integerForKeys(metadata_, KXMetadata::kLowNote); }
void KXAudioFile::setMIDILowNote(std::int32_t note) { storeClamped(metadata_, KXMetadata::kLowNote, note, 0, 127); }
std::int32_t KXAudioFile::MIDIHighVelocity() const {
    return KXMetadata::integerForKeys(metadata_, KXMetadata::kHighVelocity);
}
void KXAudioFile::setMIDIHighVelocity(std::int32_t velocity) {
    storeClamped(metadata_, KXMetadata::kHighVelocity, velocity, 0, 127);
}
std::int32_t KXAudioFile::MIDILowVelocity() const {
    return KXMetadata::integerForKeys(metadata_, KXMetadata::kLowVelocity);
}
void KXAudioFile::setMIDILowVelocity(std::int32_t velocity) {
    storeClamped(metadata_, KXMetadata::kLowVelocity, velocity, 0, 127);
}
std::int32_t KXAudioFile::detune() const { return KXMetadata::integerForKeys(metadata_, KXMetadata::kDetune); }
void KXAudioFile::setDetune(std::int32_t cents) { storeClamped(metadata_, KXMetadata::kDetune, cents, -50, 50); }
std::int32_t KXAudioFile::gain() const { return KXMetadata::integerForKeys(metadata_, KXMetadata::kGain); }
void KXAudioFile::setGain(std::int32_t gain) { storeOrRemove(metadata_, KXMetadata::kGain, gain, gain == 0); }
float KXAudioFile::tempo() const { return KXMetadata::floatForKeys(metadata_, KXMetadata::kTempo); }
void KXAudioFile::setTempo(float tempo) { storeOrRemove(metadata_, KXMetadata::kTempo, tempo, tempo == 0.0f); }

std::uint32_t KXAudioFile::timeSignature() const {
    return metadata_.objectForKey(KXMetadata::kTimeSignature).unsignedIntValue();
}
void KXAudioFile::setTimeSignature(std::uint32_t signature) {
    storeOrRemove(metadata_, {KXMetadata::kTimeSignature, nullptr}, signature, signature == 0);
}
std::uint32_t KXAudioFile::barsBeats() const { return metadata_.objectForKey(KXMetadata::kBarsBeats).unsignedIntValue(); }
void KXAudioFile::setBarsBeats(std::uint32_t barsBeats) {
    storeOrRemove(metadata_, {KXMetadata::kBarsBeats, nullptr}, barsBeats, barsBeats == 0);
}

std::int32_t KXAudioFile::scaleType() const { return KXMetadata::scaleType(metadata_); }
void KXAudioFile::setScaleType(std::int32_t scale) { storeOrRemove(metadata_, KXMetadata::kScale, scale, scale == 0); }
std::int32_t KXAudioFile::playbackType() const { return KXMetadata::playbackType(metadata_); }
void KXAudioFile::setPlaybackType(std::int32_t type) {
    storeOrRemove(metadata_, KXMetadata::kPlaybackType, type, type == 0);
}
std::int32_t KXAudioFile::key() const { return KXMetadata::key(metadata_); }
void KXAudioFile::setKey(std::int32_t key) {
    // Brought below 48 once only, deliberately.
    storeOrRemove(metadata_, KXMetadata::kKey, key >= 48 ? key - 48 : key, key <= 0);
}

std::int32_t KXAudioFile::meterNumerator() const {
    return metadata_.objectForKey(KXMetadata::kTimeSignature).intValue() >> 8;
}
std::int32_t KXAudioFile::meterDenominator() const { return KXMetadata::meterDenominator(metadata_); }

void KXAudioFile::setMeterNumerator(std::int32_t numerator) {
    if (numerator == 0) return metadata_.removeObjectForKey(KXMetadata::kTimeSignature);
    metadata_.setObject(numerator * 256 + meterDenominator(), KXMetadata::kTimeSignature);
}

void KXAudioFile::setMeterDenominator(std::int32_t denominator) {
    if (denominator == 0) return metadata_.removeObjectForKey(KXMetadata::kTimeSignature);
    metadata_.setObject(meterNumerator() * 256 + denominator, KXMetadata::kTimeSignature);
}

void KXAudioFile::setMeterNumeratorDenominator(std::int32_t numerator, std::int32_t denominator) {
    if (numerator == 0 || denominator == 0) return metadata_.removeObjectForKey(KXMetadata::kTimeSignature);
    metadata_.setObject(numerator * 256 + denominator, KXMetadata::kTimeSignature);
}

std::int32_t KXAudioFile::eighthBeats() const { return KXMetadata::eighthBeats(metadata_); }

void KXAudioFile::setEighthBeats(std::int32_t eighthBeats) {
    if (eighthBeats == 0) return metadata_.removeObjectForKey(KXMetadata::kBarsBeats);
    const std::int32_t numerator = meterNumerator(), denominator = meterDenominator();
    if (numerator == 0 || denominator == 0) return;
    const std::int32_t eighthsPerBeat = 8 / denominator;
    const std::int32_t perBar = eighthsPerBeat * numerator;
    if (perBar == 0) return;
    const std::int32_t bars = eighthBeats / perBar;
    const std::int32_t beats = (eighthBeats - perBar * bars) / eighthsPerBeat;
    metadata_.setObject(bars * 256 + beats, KXMetadata::kBarsBeats);
}

bool KXAudioFile::hasBroadcastWaveMetadata() const {
    return KXMetadata::containsAnyKey(metadata_, KXMetadata::kBroadcastWaveKeys);
}
