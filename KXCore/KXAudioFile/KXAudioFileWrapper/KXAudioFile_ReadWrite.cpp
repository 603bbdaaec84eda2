// Sample reading: reads are served from the read buffer, a span of 30,720 frames of every channel
// that the edit list fills (and so the converter, straight into the channel arrays), or — for a
// request of whole channels that the buffer does not hold — rendered straight into the caller's
// arrays, the same frames without the copy.

#include <algorithm>
#include <cstring>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"

namespace {
// The read buffers of all channels together may not pass this.
constexpr std::uint64_t kMaximumReadBufferBytes = std::uint64_t(1) << 26;
// Wide files read in whole steps of the analysis's overview tables.
constexpr std::uint32_t kReadStep = 256;
}  // namespace

std::uint32_t KXAudioFile::readBufferFrames() const {
    const std::uint64_t fit = kMaximumReadBufferBytes / (sizeof(float) * std::max<std::uint64_t>(numberOfChannels_, 1));
    if (fit >= kReadBufferFrames) return kReadBufferFrames;
    return std::max(kReadStep, std::uint32_t(fit) / kReadStep * kReadStep);
}

void KXAudioFile::createReadBuffers() {
    readBuffer_ = std::make_unique<KXNativeAudioBuffer>(numberOfChannels_, readBufferFrames());
}

void KXAudioFile::resetBuffers() {
    if (readBuffer_) {
        if (readBuffer_->numberOfChannels() != numberOfChannels_) createReadBuffers();
        readBuffer_->clear();
        readBuffer_->setRange({0, 0});
    }
    // The play buffers are made anew when missing or of another channel count.
    if (playBuffers_.numberOfChannels() != numberOfChannels_ || !playBuffers_.exist()) {
        destroyPlayBuffers();
        createPlayBuffers();
    }
    playBuffers_.reset();
}

// --- Loading

KXSampleRange KXAudioFile::loadBuffer(KXNativeAudioBuffer& buffer, std::int64_t frame, bool reverse) {
    frame = std::max<std::int64_t>(frame, 0);
    if (format_ == KXFourCC("REX2")) return loadBufferFromREX2Source(frame, buffer, reverse);
    return loadBufferFromPCMSource(frame, buffer, reverse);
}

KXSampleRange KXAudioFile::loadBufferFromPCMSource(std::int64_t frame, KXNativeAudioBuffer& buffer, bool reverse) {
    return renderSpan(*editList_, fileConverter_.get(), frames_, frame, buffer, reverse);
}

KXSampleRange KXAudioFile::renderSpan(KXEditList& editList, const KXConverter* converter, std::uint32_t frames,
                                      std::int64_t frame, KXNativeAudioBuffer& buffer, bool reverse) {
    const std::int64_t capacity = buffer.capacity();
    // Forward, the buffer ends at the file's end where it can, so that it is full; for a file
    // shorter than the buffer the start is the frame itself. Reversed, it ends at the frame.
    std::int64_t start = reverse ? frame - capacity + 1 : frames >= capacity ? std::min<std::int64_t>(frame, frames - capacity) : frame;
    start = std::clamp<std::int64_t>(start, 0, 0xFFFFFFFF);
    const KXSampleRange range{std::uint32_t(start), std::uint32_t(capacity)};
    if (converter) {
        editList.fillBuffer(buffer, range, *converter);
    } else {
        buffer.clear();
    }
    return range;
}

KXSampleRange KXAudioFile::loadReadBufferFrom(std::int64_t frame, bool reverse) {
    if (!readBuffer_) createReadBuffers();
    return loadBuffer(*readBuffer_, frame, reverse);
}

// --- Reading

float KXAudioFile::readSample(std::int64_t frame, std::uint32_t channel) {
    if (frame < 0 || frame >= std::int64_t(frames_) || channel >= numberOfChannels_) return 0.0f;
    if (!readBuffer_) createReadBuffers();
    KXSampleRange range = readBuffer_->range();
    if (!range.containsFrame(std::uint32_t(frame))) {
        // Stepping backwards loads a buffer that ends at the frame, forwards one that starts there.
        range = loadReadBufferFrom(frame, std::uint32_t(frame) < range.location);
        readBuffer_->setRange(range);
    }
    return readBuffer_->sampleValueAtIndex(std::uint32_t(frame) - range.location, channel);
}

void KXAudioFile::readSamplesToBuffer(float* destination, std::int64_t start, std::int32_t& size, std::uint32_t channel) {
    const std::int32_t requested = std::max(size, 0);
    std::int32_t copied = 0;
    if (start >= 0 && start < std::int64_t(frames_) && size > 0 && std::uint32_t(size) <= kReadBufferBytes) {
        if (start + size >= std::int64_t(frames_)) size = std::int32_t(frames_ - std::uint32_t(start));
        if (!readBuffer_) createReadBuffers();
        KXSampleRange range = readBuffer_->range();
        if (!range.containsFrame(std::uint32_t(start)) || !range.containsFrame(std::uint32_t(start) + size - 1)) {
            range = loadReadBufferFrom(start, false);
            readBuffer_->setRange(range);
        }
        // Channel 1 of a one-channel file reads channel 0 (channel 1 only, deliberately).
        if (channel == 1 && numberOfChannels_ == 1) channel = 0;
        const std::uint32_t offset = std::uint32_t(start) - range.location;
        if (std::uint64_t(offset) + std::uint32_t(size) > range.length) size = std::int32_t(range.length - offset);
        if (const float* samples = readBuffer_->channel(channel)) {
            std::memcpy(destination, samples + offset, std::size_t(size) * sizeof(float));
            copied = size;
        }
    } else {
        size = 0;
    }
    // The destination is always wholly defined: what was not copied is silence.
    std::fill(destination + copied, destination + requested, 0.0f);
}

bool KXAudioFile::renderStraight(float* const* channels, std::int64_t start, std::int32_t& size) {
    if (format_ == KXFourCC("REX2") || !fileConverter_ || !editList_ || start < 0 || start >= std::int64_t(frames_) ||
        size <= 0 || std::uint32_t(size) > kReadBufferBytes)
        return false;
    // As many frames as the read buffer would have given.
    const auto count = std::uint32_t(std::min<std::int64_t>({size, std::int64_t(frames_) - start, readBufferFrames()}));
    const KXSampleRange range{std::uint32_t(start), count};
    if (readBuffer_ && readBuffer_->range().intersection(range) == range) return false;
    editList_->renderChannels(channels, numberOfChannels_, range, *fileConverter_);
    // As the channel-by-channel reads leave them: the first channel's cut sets the size of the
    // later ones, so only the first is silenced past the frames read.
    float* const* first = std::find_if(channels, channels + numberOfChannels_, [](const float* c) { return c != nullptr; });
    if (first != channels + numberOfChannels_) std::fill(*first + count, *first + size, 0.0f);
    size = std::int32_t(count);
    return true;
}

std::int32_t KXAudioFile::readSamplesToBuffer(KXNativeAudioBuffer& destination, std::int64_t start) {
    // One size for every channel: a cut by the first read applies to the later ones.
    std::int32_t size = std::int32_t(std::min<std::uint32_t>(destination.frames(), 0x7FFFFFFF));
    if (destination.numberOfChannels() == numberOfChannels_) {
        std::vector<float*> channels(numberOfChannels_);
        for (std::uint32_t c = 0; c < numberOfChannels_; ++c) channels[c] = destination.channel(c);
        if (renderStraight(channels.data(), start, size)) return size;
    }
    for (std::uint32_t c = 0; c < destination.numberOfChannels(); ++c)
        readSamplesToBuffer(destination.channel(c), start, size, c);
    return size;
}

std::int32_t KXAudioFile::readSamplesToBuffer(KXNativeAudioBuffer& destination, std::int64_t start,
                                              const KXIndexSet& channels) {
    if (channels.count() != destination.numberOfChannels()) return 0;
    std::int32_t size = std::int32_t(std::min<std::uint32_t>(destination.frames(), 0x7FFFFFFF));
    if (channels.count() > 0 && *channels.lastIndex() < numberOfChannels_) {
        std::vector<float*> targets(numberOfChannels_, nullptr);
        std::uint32_t target = 0;
        channels.enumerateIndexes([&](std::uint32_t channel) {
            targets[channel] = destination.channel(target++);
            return true;
        });
        if (renderStraight(targets.data(), start, size)) return size;
    }
    std::uint32_t target = 0;
    channels.enumerateIndexes([&](std::uint32_t channel) {
        readSamplesToBuffer(destination.channel(target++), start, size, channel);
        return true;
    });
    return size;
}

std::uint32_t KXAudioFile::offsetInBufferForRange(const KXSampleRange& range) {
    if (!readBuffer_) createReadBuffers();
    if (range.end() > frames_ || range.length > readBuffer_->capacity()) return 0;
    KXSampleRange held = readBuffer_->range();
    if (range.intersection(held).length < range.length) {
        held = loadReadBufferFrom(range.location, false);
        readBuffer_->setRange(held);
    }
    return range.location - held.location;
}
