#include "KXBase/KXNativeAudioBuffer.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>

KXNativeAudioBuffer::KXNativeAudioBuffer(std::uint32_t channels, std::uint32_t frames)
    : channels_(channels, std::vector<float>(frames, 0.0f)),
      capacity_(frames),
      frames_(frames),
      enabled_(KXIndexSet::indexSetWithIndexesInRange(0, channels)) {}

void KXNativeAudioBuffer::growCapacity(std::uint32_t capacity) {
    if (capacity <= capacity_) return;
    for (auto& samples : channels_) samples.resize(capacity);
    capacity_ = frames_ = capacity;
}

void KXNativeAudioBuffer::setFrames(std::uint32_t frames) { frames_ = std::min(frames, capacity_); }

float KXNativeAudioBuffer::sampleValueAtIndex(std::uint32_t index, std::uint32_t channel) const {
    return channel < channels_.size() && index < capacity_ ? channels_[channel][index] : 0.0f;
}

void KXNativeAudioBuffer::setSampleValue(float value, std::uint32_t index, std::uint32_t channel) {
    if (channel < channels_.size() && index < capacity_) channels_[channel][index] = value;
}

void KXNativeAudioBuffer::setChannelEnabled(std::uint32_t index, bool enabled) {
    if (enabled) enabled_.addIndex(index);
    else enabled_.removeIndex(index);
}

bool KXNativeAudioBuffer::copyFrames(const KXSampleRange& range, const KXNativeAudioBuffer& source,
                                     std::uint32_t position, KXError* error) {
    if (std::uint64_t(range.location) + range.length > source.capacity_ ||
        std::uint64_t(position) + range.length > capacity_) {
        KXSetError(error, KXError::posixError(EINVAL, "Copying samples"));
        return false;
    }
    const std::size_t channels = std::min(channels_.size(), source.channels_.size());
    for (std::size_t c = 0; c < channels; ++c)
        std::memmove(channels_[c].data() + position, source.channels_[c].data() + range.location,
                     std::size_t(range.length) * sizeof(float));
    return true;
}

void KXNativeAudioBuffer::clear() {
    for (auto& samples : channels_) std::fill_n(samples.begin(), frames_, 0.0f);
}

void KXNativeAudioBuffer::clearChannel(std::uint32_t channel) {
    if (channel < channels_.size()) std::fill_n(channels_[channel].begin(), frames_, 0.0f);
}

void KXNativeAudioBuffer::scale(float gain) {
    for (auto& samples : channels_)
        for (std::uint32_t i = 0; i < frames_; ++i) samples[i] *= gain;
}

void KXNativeAudioBuffer::reverse() {
    for (auto& samples : channels_) std::reverse(samples.begin(), samples.begin() + frames_);
}

float KXNativeAudioBuffer::energy() const {
    double sum = 0;
    std::uint64_t count = 0;
    enabled_.enumerateIndexes([&](std::uint32_t c) {
        if (c >= channels_.size()) return false;
        const float* samples = channels_[c].data();
        double partial = 0;
        for (std::uint32_t i = 0; i < frames_; ++i) partial += double(samples[i]) * samples[i];
        sum += partial;
        count += frames_;
        return true;
    });
    return count ? float(sum / double(count)) : 0.0f;
}

std::uint32_t KXNativeAudioBuffer::positionOfSampleGreaterThanOrEqualToMagnitude(float magnitude,
                                                                                 bool backwards) const {
    std::uint32_t found = kNotFound;
    enabled_.enumerateIndexes([&](std::uint32_t c) {
        if (c >= channels_.size()) return false;
        const float* samples = channels_[c].data();
        if (backwards) {
            for (std::uint32_t i = frames_; i-- > 0;) {
                if (found != kNotFound && i <= found) break;
                if (std::fabs(samples[i]) >= magnitude) {
                    found = i;
                    break;
                }
            }
        } else {
            const std::uint32_t end = found == kNotFound ? frames_ : found;
            for (std::uint32_t i = 0; i < end; ++i)
                if (std::fabs(samples[i]) >= magnitude) {
                    found = i;
                    break;
                }
        }
        return true;
    });
    return found;
}
