#pragma once
// KXAudioBuffer: stored samples on their way to or from a file — one byte buffer per output
// file (a single one for interleaved frames, one per channel for split files), all of one length.
//
// A player's destination is one too: each buffer then holds one channel of 32-bit floats, and
// the frame operations below count in those.

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "KXBase/KXError.h"
#include "KXBase/KXNativeAudioBuffer.h"

class KXAudioBuffer {
public:
    // initWithNumberOfBuffers:length:
    KXAudioBuffer(std::uint32_t count, std::size_t length) : buffers_(count, std::vector<std::uint8_t>(length)) {}

    std::uint32_t count() const { return std::uint32_t(buffers_.size()); }
    std::size_t length() const { return buffers_.empty() ? 0 : buffers_[0].size(); }
    // nullptr for a buffer this one does not have.
    std::uint8_t* bufferAtIndex(std::uint32_t index) { return index < buffers_.size() ? buffers_[index].data() : nullptr; }
    const std::uint8_t* bufferAtIndex(std::uint32_t index) const {
        return index < buffers_.size() ? buffers_[index].data() : nullptr;
    }

    // --- As a destination of float channels
    std::uint32_t frames() const { return std::uint32_t(std::min<std::size_t>(length() / sizeof(float), 0xFFFFFFFF)); }
    // Copies `range` of channel `sourceChannel` of `source` to `position` of buffer `channel`;
    // false with EINVAL and nothing copied when either side lacks the channel or the frames.
    bool copyFrames(const KXSampleRange& range, std::uint32_t sourceChannel, const KXNativeAudioBuffer& source,
                    std::uint32_t position, std::uint32_t channel, KXError* error = nullptr) {
        const float* from = source.channel(sourceChannel);
        if (!from || channel >= count() || range.end() > source.capacity() || std::uint64_t(position) + range.length > frames()) {
            KXSetError(error, KXError::posixError(EINVAL, "Copying samples"));
            return false;
        }
        std::memcpy(buffers_[channel].data() + std::size_t(position) * sizeof(float), from + range.location,
                    std::size_t(range.length) * sizeof(float));
        return true;
    }
    // Reverses the order of the frames of every buffer.
    void reverse() {
        const std::size_t n = frames();
        for (auto& buffer : buffers_) {
            std::uint8_t* bytes = buffer.data();
            for (std::size_t i = 0; i < n / 2; ++i) {
                const std::size_t j = n - 1 - i;
                std::uint8_t sample[sizeof(float)];
                std::memcpy(sample, bytes + i * sizeof(float), sizeof(float));
                std::memcpy(bytes + i * sizeof(float), bytes + j * sizeof(float), sizeof(float));
                std::memcpy(bytes + j * sizeof(float), sample, sizeof(float));
            }
        }
    }

private:
    std::vector<std::vector<std::uint8_t>> buffers_;
};
