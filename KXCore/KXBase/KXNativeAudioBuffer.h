#pragma once
// KXNativeAudioBuffer: samples in the library's own format — one contiguous array of 32-bit
// floats per channel, full scale 1.0 — with the frames they hold, where those frames lie in the
// file (the range) and which channels are in use.
//
// The capacity is fixed when the buffer is made; `frames` starts at the capacity and may be set
// lower (a last, partly filled block). The range is free for its user: readers store the file
// frames a buffer holds, the writer counts the frames gathered so far in its length.

#include <cstdint>
#include <vector>

#include "KXBase/KXError.h"
#include "KXBase/KXIndexSet.h"
#include "KXBase/KXRange.h"

class KXNativeAudioBuffer {
public:
    // `channels` arrays of `frames` frames each (initWithChannels:frames:), zeroed, all enabled.
    KXNativeAudioBuffer(std::uint32_t channels, std::uint32_t frames);
    // `count` arrays of `bytesPerChannel` bytes each (initWithNumberOfBuffers:length:).
    static KXNativeAudioBuffer bufferWithNumberOfBuffers(std::uint32_t count, std::uint32_t bytesPerChannel) {
        return KXNativeAudioBuffer(count, bytesPerChannel / sizeof(float));
    }

    std::uint32_t numberOfChannels() const { return std::uint32_t(channels_.size()); }
    std::uint32_t capacity() const { return capacity_; }
    std::uint32_t frames() const { return frames_; }
    // At most the capacity.
    void setFrames(std::uint32_t frames);
    // Raises the capacity to `capacity` frames (never lowers it), keeping every sample; the new
    // frames are zero and `frames` becomes the capacity.
    void growCapacity(std::uint32_t capacity);

    const KXSampleRange& range() const { return range_; }
    void setRange(const KXSampleRange& range) { range_ = range; }
    void resetRange() { range_ = {}; }
    void incrementRangeLength(std::uint32_t frames = 1) { range_.length += frames; }

    // The channel's samples; nullptr for a channel the buffer does not have.
    float* channel(std::uint32_t index) { return index < channels_.size() ? channels_[index].data() : nullptr; }
    const float* channel(std::uint32_t index) const {
        return index < channels_.size() ? channels_[index].data() : nullptr;
    }
    // 0.0 outside the buffer; a store outside it does nothing.
    float sampleValueAtIndex(std::uint32_t index, std::uint32_t channel) const;
    void setSampleValue(float value, std::uint32_t index, std::uint32_t channel);

    bool isChannelEnabled(std::uint32_t index) const { return enabled_.containsIndex(index); }
    void setChannelEnabled(std::uint32_t index, bool enabled);
    const KXIndexSet& enabledChannels() const { return enabled_; }
    void setEnabledChannels(const KXIndexSet& channels) { enabled_ = channels; }

    // Copies `range` of every channel that both buffers have from `source` to `position` of this
    // buffer; EINVAL and nothing copied when either side would run past its capacity.
    bool copyFrames(const KXSampleRange& range, const KXNativeAudioBuffer& source, std::uint32_t position,
                    KXError* error = nullptr);

    // The operations below act on the first `frames` frames of every channel.
    void clear();
    void clearChannel(std::uint32_t channel);
    void scale(float gain);
    void reverse();
    // The mean square of the samples of the enabled channels: 0 for silence, 1 for a full-scale square wave.
    float energy() const;
    // The first (or, backwards, the last) frame at which some enabled channel's magnitude is at
    // least `magnitude`; 2,147,483,647 when there is none.
    std::uint32_t positionOfSampleGreaterThanOrEqualToMagnitude(float magnitude, bool backwards) const;

    static constexpr std::uint32_t kNotFound = 2147483647;

private:
    std::vector<std::vector<float>> channels_;
    std::uint32_t capacity_;
    std::uint32_t frames_;
    KXSampleRange range_;
    KXIndexSet enabled_;
};
