#pragma once
// KXEditBlock: one piece of an edit list — a run of frames of one channel of a source file,
// placed at a frame of the edited channel, with a fade-in before it and a fade-out after it, a
// gain, polarity inversion and reversal.
//
// Rendering adds the block's samples into a float buffer, so blocks whose fades reach into each
// other mix (a crossfade). The fade-in covers the startFadeLength frames before `location` and
// the fade-out the endFadeLength frames after the block's end; the source is read for those
// frames too (the block plays its handles). A fade range that would start before frame 0 starts
// at frame 0, its gain still counted from where it would have begun.
//
// Fade types and the value that setting a type stores (the value setters may change it later):
//   0  1.0         power curve, the value the exponent (linear)
//   1  0.5         power curve (square-root shape)
//   2  0.70710677  constant gain: the value
//   3  0.5         constant gain: the value
//   4  1.0         constant gain: the value
//   5  unchanged   power curve with the current value
//   6  unchanged   constant gain: the current value
//   7… unchanged   no fade (gain 1)
//
// With effectsEnabled false, `active`, `gain`, `reverse` and `invertPhase` are ignored.
//
// Threads: the range, fade-length, choke-range and source-path setters, their getters and
// rendering take the block's own lock, so a render on a playback thread sees a consistent block
// while an editor changes it. Other fields are plain.
//
// View state (colour, bar rectangles and images, drag positions, selection) is kept for an editor
// and never interpreted here.

#include <cstdint>
#include <memory>
#include <shared_mutex>
#include <optional>
#include <string>

#include "KXBase/KXCoder.h"
#include "KXBase/KXColor.h"
#include "KXBase/KXError.h"
#include "KXBase/KXRange.h"
#include "KXBase/KXRect.h"
#include "KXBase/KXValue.h"

class KXAudioFileWriter;
class KXConverter;
class KXProgressDelegate;
class KXSourceReader;

class KXEditBlock : public KXCoding {
public:
    static constexpr std::uint32_t kAllFrames = 0xFFFFFFFF;

    // A new block (editBlock): empty ranges, choke range everything, both fade types from the
    // user default "Edit Fade Type", gain 1, name "Edit", colour 0, active, effects enabled.
    KXEditBlock();
    ~KXEditBlock() override = default;
    static std::shared_ptr<KXEditBlock> editBlock() { return std::make_shared<KXEditBlock>(); }
    std::shared_ptr<KXEditBlock> copy() const;

    // --- Where the block lies (locked)
    KXSampleRange sampleRange() const;
    void setSampleRange(const KXSampleRange& range);
    void setLocation(std::uint32_t location);
    void setLength(std::uint32_t length);
    // Moves the start and keeps the end.
    void setStartSample(std::uint32_t start);
    void setEndSample(std::uint32_t end);
    std::uint32_t startSample() const { return sampleRange().location; }
    std::uint32_t endSample() const { return std::uint32_t(sampleRange().end()); }
    bool isEmpty() const { return sampleRange().length == 0; }
    KXSampleRange chokeRange() const;
    void setChokeRange(const KXSampleRange& range);
    std::uint32_t startFadeLength() const;
    void setStartFadeLength(std::uint32_t length);
    std::uint32_t endFadeLength() const;
    void setEndFadeLength(std::uint32_t length);
    // (location − startFadeLength, startFadeLength) and (end, endFadeLength).
    KXSampleRange startFadeRange() const;
    KXSampleRange endFadeRange() const;
    // From the fade-in's start to the fade-out's end.
    KXSampleRange extent() const;

    // --- Where the block lay when it was made (not locked, not used by rendering)
    const KXSampleRange& originalRange() const { return originalRange_; }
    void setOriginalRange(const KXSampleRange& range) { originalRange_ = range; }
    void setOriginalLocation(std::uint32_t location) { originalRange_.location = location; }
    void setOriginalLength(std::uint32_t length) { originalRange_.length = length; }
    void setOriginalStartSample(std::uint32_t start);
    void setOriginalEndSample(std::uint32_t end);
    std::uint32_t originalStartSample() const { return originalRange_.location; }
    std::uint32_t originalEndSample() const { return std::uint32_t(originalRange_.end()); }

    // --- The source
    std::optional<std::string> sourcePath() const;  // locked
    void setSourcePath(std::optional<std::string> path);
    std::uint32_t sourceType() const { return sourceType_; }
    void setSourceType(std::uint32_t type) { sourceType_ = type; }
    std::uint32_t sourceChannel() const { return sourceChannel_; }
    void setSourceChannel(std::uint32_t channel) { sourceChannel_ = channel; }
    std::uint32_t sourceTotalChannels() const { return sourceTotalChannels_; }
    void setSourceTotalChannels(std::uint32_t channels) { sourceTotalChannels_ = channels; }
    std::uint64_t sourceLocation() const { return sourceLocation_; }
    void setSourceLocation(std::uint64_t location) { sourceLocation_ = location; }
    std::uint64_t sourceOffset() const { return sourceOffset_; }
    void setSourceOffset(std::uint64_t offset) { sourceOffset_ = offset; }
    std::uint64_t sourceEnd() const { return sourceEnd_; }
    void setSourceEnd(std::uint64_t end) { sourceEnd_ = end; }

    // --- Fades and effects
    std::uint32_t startFadeType() const { return startFadeType_; }
    void setStartFadeType(std::uint32_t type);
    float startFadeValue() const { return startFadeValue_; }
    void setStartFadeValue(float value) { startFadeValue_ = value; }
    std::uint32_t endFadeType() const { return endFadeType_; }
    void setEndFadeType(std::uint32_t type);
    float endFadeValue() const { return endFadeValue_; }
    void setEndFadeValue(float value) { endFadeValue_ = value; }
    bool active() const { return active_; }
    void setActive(bool active) { active_ = active; }
    float gain() const { return gain_; }
    void setGain(float gain) { gain_ = gain; }
    bool invertPhase() const { return invertPhase_; }
    void setInvertPhase(bool invert) { invertPhase_ = invert; }
    bool reverse() const { return reverse_; }
    void setReverse(bool reverse) { reverse_ = reverse; }
    bool effectsEnabled() const { return effectsEnabled_; }
    void setEffectsEnabled(bool enabled) { effectsEnabled_ = enabled; }

    // --- Editor state
    const std::optional<std::string>& name() const { return name_; }
    void setName(std::optional<std::string> name) { name_ = std::move(name); }
    const KXColor& color() const { return color_; }
    void setColor(const KXColor& color) { color_ = color; }
    std::uint32_t colorIndex() const { return colorIndex_; }
    // Stores the index and sets the colour: 1 red, 2 magenta, 3 orange, 4 yellow, 5 green,
    // 6 cyan, 7 blue, 8 purple, 9 brown; 0 and any other a light grey (white 0.75).
    void setColorIndex(std::uint32_t index);
    static KXColor colorForIndex(std::uint32_t index);
    const KXRect& topBarBounds() const { return topBarBounds_; }
    void setTopBarBounds(const KXRect& bounds) { topBarBounds_ = bounds; }
    const KXRect& bottomBarBounds() const { return bottomBarBounds_; }
    void setBottomBarBounds(const KXRect& bounds) { bottomBarBounds_ = bounds; }
    KXRect bounds() const { return topBarBounds_.unionWith(bottomBarBounds_); }
    // Images a view cached for the bars; opaque here.
    const std::shared_ptr<const void>& topBarImage() const { return topBarImage_; }
    void setTopBarImage(std::shared_ptr<const void> image) { topBarImage_ = std::move(image); }
    const std::shared_ptr<const void>& bottomBarImage() const { return bottomBarImage_; }
    void setBottomBarImage(std::shared_ptr<const void> image) { bottomBarImage_ = std::move(image); }
    float startPos() const { return startPos_; }
    void setStartPos(float position) { startPos_ = position; }
    float endPos() const { return endPos_; }
    void setEndPos(float position) { endPos_ = position; }
    bool selected() const { return selected_; }
    void setSelected(bool selected) { selected_ = selected; }
    bool locked() const { return locked_; }
    void setLocked(bool locked) { locked_ = locked; }
    bool modifying() const { return modifying_; }
    void setModifying(bool modifying) { modifying_ = modifying; }
    bool dragging() const { return dragging_; }
    void setDragging(bool dragging) { dragging_ = dragging; }

    // --- Editing
    // Cuts the block at `frame` (location < frame < end): this block keeps the frames before it,
    // the piece answered the rest, each playing the source frames it played (for a reversed
    // block the earlier piece plays the later source frames). The cut sides lose their fades;
    // each piece's original range is its new range. nullptr, nothing changed, for a frame that
    // is not within the block.
    std::shared_ptr<KXEditBlock> splitAt(std::uint32_t frame);
    // Makes the block's first `fadeIn` and last `fadeOut` frames its fades (the block shrinks by
    // them and its fades cover them), so that the same material plays where it did, faded. The
    // lengths are cut to the block's; fades it had are replaced.
    void fadeWithin(std::uint32_t fadeIn, std::uint32_t fadeOut);
    // Moves the block (its fades with it) by `frames`, without changing what it plays.
    void moveBy(std::int64_t frames);
    // Whether two blocks play the same frames of the same source at the same place: how a copy
    // of a block (a sub-list, the pasteboard) finds the block it was made from.
    bool isSameEdit(const KXEditBlock& other) const;

    // --- Comparisons and hit tests
    // −1, 0 or 1 by location; edit lists sort by it.
    int positionCompare(const KXEditBlock& other) const;
    // Equal sample range, fade lengths and types, gain and name; the source is not compared.
    bool isEqualToBlock(const KXEditBlock& other) const;
    // Equal sample range and fade lengths.
    bool frameIsEqualToBlockFrame(const KXEditBlock& other) const;
    // location ≤ frame < end; with fades, from the fade-in's start to the fade-out's end.
    bool sampleInBlock(std::uint32_t frame, bool includingFades = false) const;
    // location < frame < end: the block's first frame is not within it.
    bool sampleWithinBlock(std::uint32_t frame) const;
    // Of location, location − startFadeLength, end and end + endFadeLength, the one nearest to
    // `position`; an earlier edge wins a tie.
    std::int64_t positionOfEdgeNearestTo(std::int32_t position) const;

    // --- Samples
    // Adds the block's contribution to `buffer`, whose first element is frame range.location of
    // the edited channel. `converter` decodes one channel of the source's stored samples.
    // `reader` (optional) shares reads and open files between the blocks of one render.
    void fillBuffer(float* buffer, const KXSampleRange& range, const KXConverter& converter,
                    KXSourceReader* reader = nullptr);
    // As fillBuffer onto a buffer of silence, but writes instead of adding: the block's samples
    // are decoded straight into `buffer` and the frames it does not reach are set to 0.
    void renderBuffer(float* buffer, const KXSampleRange& range, const KXConverter& converter,
                      KXSourceReader* reader = nullptr);
    // Where the block's samples for `range` lie in its source when rendering them is a plain
    // decode — the block plays, no effect or fade touches the frames it reaches and none of them
    // falls before the source's start: the frames rendered, the source's file and the byte of
    // the first of those frames' first channel. Otherwise nothing; renderBuffer then does the work.
    struct PlainSpan {
        KXSampleRange rendered;
        std::string path;
        std::uint64_t position = 0;
        std::uint32_t sourceChannel = 0, sourceChannels = 0;
    };
    std::optional<PlainSpan> plainSpan(const KXSampleRange& range, std::uint32_t bytesPerSample) const;
    // Writes the block's source material with its fades and `extra` more frames at each end
    // (as far as the source allows) to `writer` as one 'RAW ' channel. Answers whether the
    // writer ended well (false, with nothing written, without a source).
    bool writeToWriter(KXAudioFileWriter& writer, std::int32_t extra, const KXConverter& converter,
                       KXProgressDelegate* progress, KXError* error = nullptr);
    // Writes source frames [first, last) of the block's channel, decoded by `converter`, to
    // `writer` as its one channel, in the writer's format: beginWrite to endWrite.
    bool writeSourceFramesToWriter(KXAudioFileWriter& writer, std::int64_t first, std::int64_t last,
                                   const KXConverter& converter, KXProgressDelegate* progress, KXError* error = nullptr);

    std::string description() const;

    // --- State and archive: file formats of the editor document; keys and order are fixed.
    KXDictionary state() const;
    void setState(const KXDictionary& state);
    std::string archiveClassName() const override { return "KXEditBlock"; }
    void encodeWithCoder(KXCoder& coder) const override;
    void initWithCoder(KXDecoder& decoder) override;

private:
    // With the lock held: the frames a render of `range` touches, and the gain of each fade.
    KXSampleRange renderedRangeLocked(const KXSampleRange& range) const;
    // Decodes the source frames for `rendered` into `samples` and applies reversal, gain and fades.
    bool renderLocked(float* samples, const KXSampleRange& rendered, const KXSampleRange& range,
                      const KXConverter& converter, KXSourceReader& reader) const;
    static float fadeGain(std::uint32_t type, float value, float fraction);

    KXSampleRange sampleRange_;
    KXSampleRange originalRange_;
    KXSampleRange chokeRange_{0, kAllFrames};
    std::optional<std::string> sourcePath_;
    std::uint32_t sourceType_ = 0;
    std::uint32_t sourceChannel_ = 0;
    std::uint32_t sourceTotalChannels_ = 0;
    std::uint64_t sourceLocation_ = 0;
    std::uint64_t sourceOffset_ = 0;
    std::uint64_t sourceEnd_ = 0;
    std::uint32_t startFadeLength_ = 0;
    std::uint32_t startFadeType_ = 0;
    float startFadeValue_ = 1.0f;
    std::uint32_t endFadeLength_ = 0;
    std::uint32_t endFadeType_ = 0;
    float endFadeValue_ = 1.0f;
    bool active_ = true;
    float gain_ = 1.0f;
    bool invertPhase_ = false;
    bool reverse_ = false;
    std::optional<std::string> name_ = std::string("Edit");
    KXColor color_;
    std::uint32_t colorIndex_ = 0;
    KXRect topBarBounds_, bottomBarBounds_;
    std::shared_ptr<const void> topBarImage_, bottomBarImage_;
    float startPos_ = 0, endPos_ = 0;
    bool selected_ = false, locked_ = false, modifying_ = false, dragging_ = false;
    bool effectsEnabled_ = true;
    mutable std::shared_mutex lock_;  // shared by readers and renders, held alone by setters
};
