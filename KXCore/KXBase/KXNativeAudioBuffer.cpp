#include "KXBase/KXNativeAudioBuffer.h"

#include <algorithm>

KXNativeAudioBuffer::KXNativeAudioBuffer(std::uint32_t channels, std::uint32_t capacity)
    : channels_(channels, std::vector<float>(capacity, 0.0f)),
      capacity_(capacity),
      enabled_(KXIndexSet::indexSetWithIndexesInRange(0, channels)) {}

void KXNativeAudioBuffer::setFrames(std::uint32_t frames) { frames_ = std::min(frames, capacity_); }

float* KXNativeAudioBuffer::channel(std::uint32_t index) {
    return index < channels_.size() ? channels_[index].data() : nullptr;
}

const float* KXNativeAudioBuffer::channel(std::uint32_t index) const {
    return index < channels_.size() ? channels_[index].data() : nullptr;
}

void KXNativeAudioBuffer::setChannelEnabled(std::uint32_t index, bool enabled) {
    if (enabled) enabled_.addIndex(index);
    else enabled_.removeIndex(index);
}
