#pragma once
// KXNativeAudioBuffer: samples in the library's own format — one contiguous array of 32-bit
// floats per channel, full scale 1.0 — with the frames they hold, where those frames lie in the
// file (the range; empty for samples with no file position) and which channels are in use.

#include <cstdint>
#include <vector>

#include "KXBase/KXIndexSet.h"
#include "KXBase/KXRange.h"

class KXNativeAudioBuffer {
public:
    // A buffer of `channels` arrays of `capacity` frames each, all enabled, holding nothing yet.
    KXNativeAudioBuffer(std::uint32_t channels, std::uint32_t capacity);

    std::uint32_t numberOfChannels() const { return std::uint32_t(channels_.size()); }
    std::uint32_t capacity() const { return capacity_; }
    // The frames that hold samples (at most the capacity).
    std::uint32_t frames() const { return frames_; }
    void setFrames(std::uint32_t frames);
    // Where the frames lie in the file.
    const KXSampleRange& range() const { return range_; }
    void setRange(const KXSampleRange& range) { range_ = range; }

    // The channel's samples; nullptr for a channel the buffer does not have.
    float* channel(std::uint32_t index);
    const float* channel(std::uint32_t index) const;
    bool isChannelEnabled(std::uint32_t index) const { return enabled_.containsIndex(index); }
    void setChannelEnabled(std::uint32_t index, bool enabled);
    const KXIndexSet& enabledChannels() const { return enabled_; }

private:
    std::vector<std::vector<float>> channels_;
    std::uint32_t capacity_;
    std::uint32_t frames_ = 0;
    KXSampleRange range_;
    KXIndexSet enabled_;
};
