#pragma once
// KXAudioBuffer: stored samples on their way to or from a file — one byte buffer per output
// file (a single one for interleaved frames, one per channel for split files), all of one length.

#include <cstdint>
#include <vector>

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

private:
    std::vector<std::vector<std::uint8_t>> buffers_;
};
