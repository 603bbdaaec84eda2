#include "KXAudioFile/KXEditList/KXEditBlock.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "KXAudioFile/KXAudioFileWriter/KXAudioFileWriter.h"
#include "KXAudioFile/KXEditList/KXSourceReader.h"
#include "KXBase/KXConverter.h"
#include "KXBase/KXFile.h"
#include "KXBase/KXProgressDelegate.h"
#include "KXBase/KXUserDefaults.h"

namespace {

constexpr std::uint32_t kWriteChunkFrames = 30720;
constexpr std::int64_t kFrameLimit = 0xFFFFFFFFll;

// The value that setting a fade type stores; nullopt for the types that keep the current value.
std::optional<float> valueForFadeType(std::uint32_t type) {
    switch (type) {
        case 0: return 1.0f;
        case 1: return 0.5f;
        case 2: return 0.70710677f;
        case 3: return 0.5f;
        case 4: return 1.0f;
        default: return std::nullopt;
    }
}

// [start, end) clamped to the frames there are; an empty run keeps its place.
KXSampleRange framesBetween(std::int64_t start, std::int64_t end) {
    start = std::clamp<std::int64_t>(start, 0, kFrameLimit);
    end = std::clamp<std::int64_t>(end, start, kFrameLimit);
    return KXSampleRange{std::uint32_t(start), std::uint32_t(end - start)};
}

}  // namespace

KXEditBlock::KXEditBlock() {
    const auto type = std::uint32_t(KXUserDefaults::standardUserDefaults().integerForKey("Edit Fade Type"));
    setStartFadeType(type);
    setEndFadeType(type);
    setColorIndex(0);
}

std::shared_ptr<KXEditBlock> KXEditBlock::copy() const {
    auto other = editBlock();
    other->setSampleRange(sampleRange());
    other->setOriginalRange(originalRange_);
    other->setChokeRange(chokeRange());
    other->setSourcePath(sourcePath());
    other->setSourceType(sourceType_);
    other->setSourceChannel(sourceChannel_);
    other->setSourceTotalChannels(sourceTotalChannels_);
    other->setSourceOffset(sourceOffset_);
    other->setSourceEnd(sourceEnd_);
    other->setSourceLocation(sourceLocation_);
    other->setStartFadeLength(startFadeLength());
    other->setEndFadeLength(endFadeLength());
    other->setStartFadeType(startFadeType_);
    other->setStartFadeValue(startFadeValue_);
    other->setEndFadeType(endFadeType_);
    other->setEndFadeValue(endFadeValue_);
    other->setGain(gain_);
    other->setInvertPhase(invertPhase_);
    other->setReverse(reverse_);
    other->setActive(active_);
    other->setName(name_);
    other->setColorIndex(colorIndex_);
    other->setTopBarBounds(topBarBounds_);
    other->setBottomBarBounds(bottomBarBounds_);
    other->setLocked(locked_);
    return other;
}

// --- Locked fields

KXSampleRange KXEditBlock::sampleRange() const {
    std::shared_lock<std::shared_mutex> lock(lock_);
    return sampleRange_;
}

void KXEditBlock::setSampleRange(const KXSampleRange& range) {
    std::lock_guard<std::shared_mutex> lock(lock_);
    sampleRange_ = range;
}

void KXEditBlock::setLocation(std::uint32_t location) {
    std::lock_guard<std::shared_mutex> lock(lock_);
    sampleRange_.location = location;
}

void KXEditBlock::setLength(std::uint32_t length) {
    std::lock_guard<std::shared_mutex> lock(lock_);
    sampleRange_.length = length;
}

void KXEditBlock::setStartSample(std::uint32_t start) {
    std::lock_guard<std::shared_mutex> lock(lock_);
    sampleRange_.length += sampleRange_.location - start;
    sampleRange_.location = start;
}

void KXEditBlock::setEndSample(std::uint32_t end) {
    std::lock_guard<std::shared_mutex> lock(lock_);
    sampleRange_.length = end - sampleRange_.location;
}

KXSampleRange KXEditBlock::chokeRange() const {
    std::shared_lock<std::shared_mutex> lock(lock_);
    return chokeRange_;
}

void KXEditBlock::setChokeRange(const KXSampleRange& range) {
    std::lock_guard<std::shared_mutex> lock(lock_);
    chokeRange_ = range;
}

std::uint32_t KXEditBlock::startFadeLength() const {
    std::shared_lock<std::shared_mutex> lock(lock_);
    return startFadeLength_;
}

void KXEditBlock::setStartFadeLength(std::uint32_t length) {
    std::lock_guard<std::shared_mutex> lock(lock_);
    startFadeLength_ = length;
}

std::uint32_t KXEditBlock::endFadeLength() const {
    std::shared_lock<std::shared_mutex> lock(lock_);
    return endFadeLength_;
}

void KXEditBlock::setEndFadeLength(std::uint32_t length) {
    std::lock_guard<std::shared_mutex> lock(lock_);
    endFadeLength_ = length;
}

KXSampleRange KXEditBlock::startFadeRange() const {
    std::shared_lock<std::shared_mutex> lock(lock_);
    return framesBetween(std::int64_t(sampleRange_.location) - startFadeLength_, sampleRange_.location);
}

KXSampleRange KXEditBlock::endFadeRange() const {
    std::shared_lock<std::shared_mutex> lock(lock_);
    return framesBetween(std::int64_t(sampleRange_.end()), std::int64_t(sampleRange_.end()) + endFadeLength_);
}

KXSampleRange KXEditBlock::extent() const {
    std::shared_lock<std::shared_mutex> lock(lock_);
    return framesBetween(std::int64_t(sampleRange_.location) - startFadeLength_,
                         std::int64_t(sampleRange_.end()) + endFadeLength_);
}

std::optional<std::string> KXEditBlock::sourcePath() const {
    std::shared_lock<std::shared_mutex> lock(lock_);
    return sourcePath_;
}

void KXEditBlock::setSourcePath(std::optional<std::string> path) {
    std::lock_guard<std::shared_mutex> lock(lock_);
    sourcePath_ = std::move(path);
}

// --- Plain fields

void KXEditBlock::setOriginalStartSample(std::uint32_t start) {
    originalRange_.length += originalRange_.location - start;
    originalRange_.location = start;
}

void KXEditBlock::setOriginalEndSample(std::uint32_t end) { originalRange_.length = end - originalRange_.location; }

void KXEditBlock::setStartFadeType(std::uint32_t type) {
    startFadeType_ = type;
    if (const auto value = valueForFadeType(type)) startFadeValue_ = *value;
}

void KXEditBlock::setEndFadeType(std::uint32_t type) {
    endFadeType_ = type;
    if (const auto value = valueForFadeType(type)) endFadeValue_ = *value;
}

KXColor KXEditBlock::colorForIndex(std::uint32_t index) {
    switch (index) {
        case 1: return KXColor::redColor();
        case 2: return KXColor::magentaColor();
        case 3: return KXColor::orangeColor();
        case 4: return KXColor::yellowColor();
        case 5: return KXColor::greenColor();
        case 6: return KXColor::cyanColor();
        case 7: return KXColor::blueColor();
        case 8: return KXColor::purpleColor();
        case 9: return KXColor::brownColor();
        default: return KXColor::whiteColor(0.75f, 1.0f);
    }
}

void KXEditBlock::setColorIndex(std::uint32_t index) {
    colorIndex_ = index;
    color_ = colorForIndex(index);
}

// --- Comparisons

int KXEditBlock::positionCompare(const KXEditBlock& other) const {
    const std::uint32_t mine = startSample(), theirs = other.startSample();
    return mine < theirs ? -1 : mine > theirs ? 1 : 0;
}

bool KXEditBlock::frameIsEqualToBlockFrame(const KXEditBlock& other) const {
    return sampleRange() == other.sampleRange() && startFadeLength() == other.startFadeLength() &&
           endFadeLength() == other.endFadeLength();
}

bool KXEditBlock::isEqualToBlock(const KXEditBlock& other) const {
    return frameIsEqualToBlockFrame(other) && startFadeType_ == other.startFadeType_ &&
           endFadeType_ == other.endFadeType_ && gain_ == other.gain_ && name_ == other.name_;
}

bool KXEditBlock::sampleInBlock(std::uint32_t frame, bool includingFades) const {
    if (!includingFades) return sampleRange().containsFrame(frame);
    return extent().containsFrame(frame);
}

bool KXEditBlock::sampleWithinBlock(std::uint32_t frame) const {
    const KXSampleRange range = sampleRange();
    return frame > range.location && frame < range.end();
}

std::int64_t KXEditBlock::positionOfEdgeNearestTo(std::int32_t position) const {
    std::int64_t location, start, end, finish;
    {
        std::shared_lock<std::shared_mutex> lock(lock_);
        location = sampleRange_.location;
        start = location - std::int64_t(startFadeLength_);
        end = std::int64_t(sampleRange_.end());
        finish = end + endFadeLength_;
    }
    std::int64_t best = location;
    for (std::int64_t edge : {start, end, finish})
        if (std::llabs(edge - position) < std::llabs(best - position)) best = edge;
    return best;
}

// --- Rendering

float KXEditBlock::fadeGain(std::uint32_t type, float value, float fraction) {
    switch (type) {
        case 0:
        case 1:
        case 5: return std::pow(fraction, value);
        case 2:
        case 3:
        case 4:
        case 6: return value;
        default: return 1.0f;
    }
}

KXSampleRange KXEditBlock::renderedRangeLocked(const KXSampleRange& range) const {
    const KXSampleRange extent =
        framesBetween(std::int64_t(sampleRange_.location) - startFadeLength_, std::int64_t(sampleRange_.end()) + endFadeLength_);
    return extent.intersection(range).intersection(chokeRange_);
}

bool KXEditBlock::renderLocked(float* samples, const KXSampleRange& rendered, const KXSampleRange& range,
                               const KXConverter& converter, KXSourceReader& reader) const {
    const std::uint64_t bytesPerSample = converter.bytesPerSample();
    const std::uint64_t channels = sourceTotalChannels_;
    if (!sourcePath_ || channels == 0 || sourceChannel_ >= channels) return false;
    // The source frame that plays at the first rendered frame (the last, reversed).
    const std::int64_t offset = reverse_ ? std::int64_t(sampleRange_.end()) - std::int64_t(rendered.end())
                                         : std::int64_t(rendered.location) - sampleRange_.location;
    const std::int64_t first = std::int64_t(sourceLocation_) + offset;
    // Frames before the source's first frame are silence.
    const std::uint64_t silent = first < 0 ? std::min<std::uint64_t>(std::uint64_t(-first), rendered.length) : 0;
    const std::uint64_t count = rendered.length - silent;
    std::fill_n(samples, silent, 0.0f);
    if (count > 0) {
        const std::uint64_t frameBytes = bytesPerSample * channels;
        const std::uint64_t position = (std::uint64_t(first) + silent) * frameBytes + sourceOffset_;
        const std::uint8_t* bytes = reader.bytesAtPath(*sourcePath_, position, std::size_t(count * frameBytes));
        if (!bytes) return false;
        converter.decodeChannel(bytes + sourceChannel_ * bytesPerSample, std::size_t(frameBytes), samples + silent,
                                std::size_t(count));
    }
    if (effectsEnabled_) {
        if (reverse_) std::reverse(samples, samples + rendered.length);
        if (gain_ != 1.0f)
            for (std::uint32_t i = 0; i < rendered.length; ++i) samples[i] *= gain_;
    }
    const KXSampleRange audible = range.intersection(chokeRange_);
    if (startFadeLength_ != 0) {
        const std::int64_t fadeStart = std::int64_t(sampleRange_.location) - startFadeLength_;
        const KXSampleRange fade = audible.intersection(framesBetween(fadeStart, sampleRange_.location));
        const float length = float(startFadeLength_);
        for (std::uint64_t i = fade.location; i < fade.end(); ++i)
            samples[i - rendered.location] *= fadeGain(startFadeType_, startFadeValue_, float(std::int64_t(i) - fadeStart) / length);
    }
    if (endFadeLength_ != 0) {
        const std::int64_t fadeStart = std::int64_t(sampleRange_.end());
        const KXSampleRange fade = audible.intersection(framesBetween(fadeStart, fadeStart + endFadeLength_));
        const float length = float(endFadeLength_);
        for (std::uint64_t i = fade.location; i < fade.end(); ++i)
            samples[i - rendered.location] *=
                fadeGain(endFadeType_, endFadeValue_, 1.0f - float(std::int64_t(i) - fadeStart) / length);
    }
    return true;
}

void KXEditBlock::fillBuffer(float* buffer, const KXSampleRange& range, const KXConverter& converter,
                             KXSourceReader* reader) {
    if (!buffer || (effectsEnabled_ && !active_)) return;
    std::shared_lock<std::shared_mutex> lock(lock_);
    if (!sourcePath_) return;
    const KXSampleRange rendered = renderedRangeLocked(range);
    if (rendered.length == 0) return;
    std::optional<KXSourceReader> ownReader;
    KXSourceReader& source = reader ? *reader : ownReader.emplace();
    float* samples = source.scratch(rendered.length);
    if (!renderLocked(samples, rendered, range, converter, source)) return;
    float* target = buffer + (rendered.location - range.location);
    if (invertPhase_ && effectsEnabled_) {
        for (std::uint32_t i = 0; i < rendered.length; ++i) target[i] -= samples[i];
    } else {
        for (std::uint32_t i = 0; i < rendered.length; ++i) target[i] += samples[i];
    }
}

void KXEditBlock::renderBuffer(float* buffer, const KXSampleRange& range, const KXConverter& converter,
                               KXSourceReader* reader) {
    if (!buffer) return;
    std::shared_lock<std::shared_mutex> lock(lock_);
    const KXSampleRange rendered =
        (effectsEnabled_ && !active_) || !sourcePath_ ? KXSampleRange{} : renderedRangeLocked(range);
    // Only what the block does not reach is cleared; the rest is decoded straight in.
    const std::uint32_t before = rendered.length ? rendered.location - range.location : range.length;
    std::fill_n(buffer, before, 0.0f);
    std::fill(buffer + before + rendered.length, buffer + range.length, 0.0f);
    if (rendered.length == 0) return;
    std::optional<KXSourceReader> ownReader;
    float* target = buffer + before;
    if (!renderLocked(target, rendered, range, converter, reader ? *reader : ownReader.emplace())) {
        std::fill_n(target, rendered.length, 0.0f);
        return;
    }
    if (invertPhase_ && effectsEnabled_)
        for (std::uint32_t i = 0; i < rendered.length; ++i) target[i] = -target[i];
}

std::optional<KXEditBlock::PlainSpan> KXEditBlock::plainSpan(const KXSampleRange& range, std::uint32_t bytesPerSample) const {
    std::shared_lock<std::shared_mutex> lock(lock_);
    if (!sourcePath_ || sourceTotalChannels_ == 0 || sourceChannel_ >= sourceTotalChannels_) return std::nullopt;
    if (effectsEnabled_ && (!active_ || reverse_ || gain_ != 1.0f || invertPhase_)) return std::nullopt;
    const KXSampleRange rendered = renderedRangeLocked(range);
    // Fades lie outside the sample range: frames within it play as stored.
    if (rendered.length == 0 || rendered.intersection(sampleRange_) != rendered) return std::nullopt;
    const std::int64_t first = std::int64_t(sourceLocation_) + (std::int64_t(rendered.location) - sampleRange_.location);
    if (first < 0) return std::nullopt;
    const std::uint64_t frameBytes = std::uint64_t(bytesPerSample) * sourceTotalChannels_;
    return PlainSpan{rendered, *sourcePath_, std::uint64_t(first) * frameBytes + sourceOffset_, sourceChannel_,
                     sourceTotalChannels_};
}

bool KXEditBlock::writeToWriter(KXAudioFileWriter& writer, std::int32_t extra, const KXConverter& converter,
                                KXProgressDelegate* progress, KXError* error) {
    writer.setFormat(KXFourCC("RAW "));
    const KXSampleRange range = sampleRange();
    const std::int64_t first = std::max<std::int64_t>(0, std::int64_t(sourceLocation_) - startFadeLength() - extra);
    const std::int64_t last = std::min<std::int64_t>(
        std::int64_t(sourceEnd_), std::int64_t(sourceLocation_) + range.length + endFadeLength() + extra);
    return writeSourceFramesToWriter(writer, first, last, converter, progress, error);
}

bool KXEditBlock::writeSourceFramesToWriter(KXAudioFileWriter& writer, std::int64_t first, std::int64_t last,
                                            const KXConverter& converter, KXProgressDelegate* progress, KXError* error) {
    const std::optional<std::string> path = sourcePath();
    if (!path) return false;
    const std::shared_ptr<KXFile> file = KXSourceReader::sharedFileAtPath(*path);
    if (!file) return false;
    writer.setChannels(1);
    if (!writer.beginWrite(error)) return false;
    if (progress) progress->reset();

    const std::uint64_t channels = std::max<std::uint32_t>(sourceTotalChannels_, 1);
    const std::uint64_t frameBytes = converter.bytesPerSample() * channels;
    const std::uint32_t channel = sourceChannel_ < channels ? sourceChannel_ : 0;
    const auto chunk = std::uint32_t(std::clamp<std::int64_t>(last - first, 1, kWriteChunkFrames));
    KXNativeAudioBuffer samples(1, chunk);
    std::vector<std::uint8_t> bytes;
    for (std::int64_t frame = std::max<std::int64_t>(first, 0); frame < last;) {
        const auto count = std::uint32_t(std::min<std::int64_t>(chunk, last - frame));
        bytes.assign(std::size_t(count * frameBytes), 0);
        file->readBytes(bytes.data(), bytes.size(), std::uint64_t(frame) * frameBytes + sourceOffset_);
        converter.decodeChannel(bytes.data() + channel * converter.bytesPerSample(), std::size_t(frameBytes),
                                samples.channel(0), count);
        samples.setFrames(count);
        writer.writeBuffer(samples);
        frame += count;
        if (progress) progress->update(double(frame - first) / double(last - first));
    }
    return writer.endWrite(error);
}

// --- Editing

std::shared_ptr<KXEditBlock> KXEditBlock::splitAt(std::uint32_t frame) {
    const KXSampleRange range = sampleRange();
    if (frame <= range.location || frame >= range.end()) return nullptr;
    const std::uint32_t before = frame - range.location, after = std::uint32_t(range.end()) - frame;
    // A reversed block reads its source from the end, whether or not its effects are on.
    const bool reversed = reverse_;
    auto piece = copy();
    piece->setEffectsEnabled(effectsEnabled_);
    piece->setSampleRange({frame, after});
    piece->setOriginalRange({frame, after});
    piece->setStartFadeLength(0);
    piece->setSourceLocation(reversed ? sourceLocation_ : sourceLocation_ + before);
    setSampleRange({range.location, before});
    setOriginalRange({range.location, before});
    setEndFadeLength(0);
    if (reversed) setSourceLocation(sourceLocation_ + after);
    return piece;
}

void KXEditBlock::fadeWithin(std::uint32_t fadeIn, std::uint32_t fadeOut) {
    const KXSampleRange range = sampleRange();
    fadeIn = std::min(fadeIn, range.length);
    fadeOut = std::min(fadeOut, range.length - fadeIn);
    setSampleRange({range.location + fadeIn, range.length - fadeIn - fadeOut});
    setStartFadeLength(fadeIn);
    setEndFadeLength(fadeOut);
    setSourceLocation(sourceLocation_ + (reverse_ ? fadeOut : fadeIn));
}

void KXEditBlock::moveBy(std::int64_t frames) {
    const KXSampleRange range = sampleRange();
    setLocation(std::uint32_t(std::clamp<std::int64_t>(std::int64_t(range.location) + frames, 0, kAllFrames)));
}

bool KXEditBlock::isSameEdit(const KXEditBlock& other) const {
    return sampleRange() == other.sampleRange() && sourcePath() == other.sourcePath() &&
           sourceLocation_ == other.sourceLocation_ && sourceChannel_ == other.sourceChannel_;
}

// --- Description, state and archive

std::string KXEditBlock::description() const {
    const std::optional<std::string> path = sourcePath();
    char text[160];
    std::snprintf(text, sizeof text, " sourceChannels:%d/%d sourceLocation:%d", int(sourceChannel_),
                  int(sourceTotalChannels_), int(std::int32_t(sourceLocation_)));
    return "KXEditBlock: path:" + (path ? KXFile::lastPathComponent(*path) : std::string("(null)")) +
           " name:" + name_.value_or("(null)") + " range:" + sampleRange().string() +
           " originalRange:" + originalRange_.string() + text;
}

KXDictionary KXEditBlock::state() const {
    KXDictionary state{{"Range", sampleRange().string()},
                       {"Original Range", originalRange_.string()},
                       {"Choke Range", chokeRange().string()}};
    // The dictionary ends at the first absent value.
    const std::optional<std::string> path = sourcePath();
    if (!path) return state;
    state.setObject(*path, "Path");
    state.setObject(sourceType_, "Source Type");
    state.setObject(sourceChannel_, "Source Channel");
    state.setObject(sourceTotalChannels_, "Source Total Channels");
    state.setObject(sourceLocation_, "Source Location");
    state.setObject(sourceOffset_, "Source Offset");
    state.setObject(sourceEnd_, "Source End");
    state.setObject(startFadeLength(), "Start Fade Length");
    state.setObject(startFadeType_, "Start Fade Type");
    state.setObject(startFadeValue_, "Start Fade Value");
    state.setObject(endFadeLength(), "End Fade Length");
    state.setObject(endFadeType_, "End Fade Type");
    state.setObject(endFadeValue_, "End Fade Value");
    state.setObject(gain_, "Gain");
    state.setObject(invertPhase_, "Invert");
    state.setObject(reverse_, "Reverse");
    if (!name_) return state;
    state.setObject(*name_, "Name");
    state.setObject(colorIndex_, "Color");
    state.setObject(active_, "Active");
    state.setObject(locked_, "Locked");
    state.setObject(selected_, "Selected");
    return state;
}

void KXEditBlock::setState(const KXDictionary& state) {
    const auto range = [&](const char* key) { return KXSampleRange::rangeFromString(state.objectForKey(key).stringValue()); };
    setSampleRange(range("Range"));
    setOriginalRange(range("Original Range"));
    if (state.contains("Choke Range")) setChokeRange(range("Choke Range"));
    const KXValue& path = state.objectForKey("Path");
    setSourcePath(path.isNull() ? std::nullopt : std::optional<std::string>(path.stringValue()));
    setSourceType(state.objectForKey("Source Type").unsignedIntValue());
    setSourceChannel(state.objectForKey("Source Channel").unsignedIntValue());
    setSourceTotalChannels(state.objectForKey("Source Total Channels").unsignedIntValue());
    setSourceLocation(state.objectForKey("Source Location").unsignedLongLongValue());
    setSourceOffset(state.objectForKey("Source Offset").unsignedLongLongValue());
    setSourceEnd(state.objectForKey("Source End").unsignedLongLongValue());
    setStartFadeLength(state.objectForKey("Start Fade Length").unsignedIntValue());
    setStartFadeType(state.objectForKey("Start Fade Type").unsignedIntValue());
    if (const KXValue* value = state.find("Start Fade Value")) setStartFadeValue(value->floatValue());
    setEndFadeLength(state.objectForKey("End Fade Length").unsignedIntValue());
    setEndFadeType(state.objectForKey("End Fade Type").unsignedIntValue());
    if (const KXValue* value = state.find("End Fade Value")) setEndFadeValue(value->floatValue());
    setGain(state.objectForKey("Gain").floatValue());
    setInvertPhase(state.objectForKey("Invert").boolValue());
    setReverse(state.objectForKey("Reverse").boolValue());
    const KXValue& name = state.objectForKey("Name");
    setName(name.isNull() ? std::nullopt : std::optional<std::string>(name.stringValue()));
    setColorIndex(state.objectForKey("Color").unsignedIntValue());
    setActive(state.objectForKey("Active").boolValue());
    setLocked(state.objectForKey("Locked").boolValue());
    setSelected(state.objectForKey("Selected").boolValue());
}

namespace {
void encodeRange(KXCoder& coder, const KXSampleRange& range) {
    coder.encodeUnsignedInt(range.location);
    coder.encodeUnsignedInt(range.length);
}
KXSampleRange decodeRange(KXDecoder& decoder) {
    KXSampleRange range;
    range.location = decoder.decodeUnsignedInt();
    range.length = decoder.decodeUnsignedInt();
    return range;
}
void encodeRect(KXCoder& coder, const KXRect& rect) {
    for (float value : {rect.x, rect.y, rect.width, rect.height}) coder.encodeFloat(value);
}
KXRect decodeRect(KXDecoder& decoder) {
    KXRect rect;
    for (float* value : {&rect.x, &rect.y, &rect.width, &rect.height}) *value = decoder.decodeFloat();
    return rect;
}
}  // namespace

void KXEditBlock::encodeWithCoder(KXCoder& coder) const {
    std::shared_lock<std::shared_mutex> lock(lock_);
    encodeRange(coder, sampleRange_);
    encodeRange(coder, originalRange_);
    encodeRange(coder, chokeRange_);
    coder.encodeString(sourcePath_);
    coder.encodeUnsignedInt(sourceType_);
    coder.encodeUnsignedInt(sourceChannel_);
    coder.encodeUnsignedInt(sourceTotalChannels_);
    coder.encodeUnsignedLongLong(sourceLocation_);
    coder.encodeUnsignedLongLong(sourceOffset_);
    coder.encodeUnsignedLongLong(sourceEnd_);
    coder.encodeUnsignedInt(startFadeLength_);
    coder.encodeUnsignedInt(startFadeType_);
    coder.encodeFloat(startFadeValue_);
    coder.encodeUnsignedInt(endFadeLength_);
    coder.encodeUnsignedInt(endFadeType_);
    coder.encodeFloat(endFadeValue_);
    coder.encodeFloat(gain_);
    coder.encodeChar(invertPhase_);
    coder.encodeChar(reverse_);
    coder.encodeString(name_);
    coder.encodeUnsignedInt(colorIndex_);
    encodeRect(coder, topBarBounds_);
    encodeRect(coder, bottomBarBounds_);
    coder.encodeChar(selected_);
    coder.encodeChar(locked_);
    coder.encodeChar(active_);
    coder.encodeChar(dragging_);
    coder.encodeChar(effectsEnabled_);
}

void KXEditBlock::initWithCoder(KXDecoder& decoder) {
    std::lock_guard<std::shared_mutex> lock(lock_);
    sampleRange_ = decodeRange(decoder);
    originalRange_ = decodeRange(decoder);
    chokeRange_ = decodeRange(decoder);
    sourcePath_ = decoder.decodeString();
    sourceType_ = decoder.decodeUnsignedInt();
    sourceChannel_ = decoder.decodeUnsignedInt();
    sourceTotalChannels_ = decoder.decodeUnsignedInt();
    sourceLocation_ = decoder.decodeUnsignedLongLong();
    sourceOffset_ = decoder.decodeUnsignedLongLong();
    sourceEnd_ = decoder.decodeUnsignedLongLong();
    startFadeLength_ = decoder.decodeUnsignedInt();
    startFadeType_ = decoder.decodeUnsignedInt();
    startFadeValue_ = decoder.decodeFloat();
    endFadeLength_ = decoder.decodeUnsignedInt();
    endFadeType_ = decoder.decodeUnsignedInt();
    endFadeValue_ = decoder.decodeFloat();
    gain_ = decoder.decodeFloat();
    invertPhase_ = decoder.decodeChar() != 0;
    reverse_ = decoder.decodeChar() != 0;
    name_ = decoder.decodeString();
    colorIndex_ = decoder.decodeUnsignedInt();
    color_ = colorForIndex(colorIndex_);
    topBarBounds_ = decodeRect(decoder);
    bottomBarBounds_ = decodeRect(decoder);
    selected_ = decoder.decodeChar() != 0;
    locked_ = decoder.decodeChar() != 0;
    active_ = decoder.decodeChar() != 0;
    dragging_ = decoder.decodeChar() != 0;
    effectsEnabled_ = decoder.decodeChar() != 0;
}
