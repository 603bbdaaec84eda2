// Playback buffering: two play buffers take turns — the player reads one while the span it
// will need next is predicted and loaded into the other — so that the player rarely waits for
// the edit list. Loads use the same sources as the read buffer.

#include <algorithm>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXBase/KXUserInterface.h"

namespace {
constexpr std::int32_t kForwards = 0, kBackwards = 1;
// Repeat types.
constexpr std::int32_t kLoopForwards = 0, kAlternate = 1, kLoopBackwards = 2;
}  // namespace

void KXAudioFile::createPlayBuffers() { playBuffers_.create(numberOfChannels_, readBufferFrames()); }

void KXAudioFile::destroyPlayBuffers() { playBuffers_.destroy(); }

KXPlayBuffers::Render KXAudioFile::playBufferRender(std::int64_t frame) {
    // REX2 loops render through the REX library, on the reading thread only.
    if (format_ == KXFourCC("REX2"))
        return [this, frame](KXNativeAudioBuffer& buffer) { return loadBuffer(buffer, frame, false); };
    // The render owns what it reads from, so that a load on the loader thread stays valid when
    // the file changes its edit list or converter meanwhile.
    return [list = editList_, converter = fileConverter_, frames = frames_, frame](KXNativeAudioBuffer& buffer) {
        return renderSpan(*list, converter.get(), frames, std::max<std::int64_t>(frame, 0), buffer, false);
    };
}

void KXAudioFile::loadPlayBuffer(std::int32_t index, std::int64_t frame) {
    createPlayBuffers();
    playBuffers_.load(std::clamp(index, 0, 1), playBufferRender(frame), false);
}

void KXAudioFile::loadPlayBuffer(std::int64_t indexAndFrame) {
    const auto index = std::int32_t(indexAndFrame >> 32);
    loadPlayBuffer(std::clamp(index, 0, 1), std::int64_t(std::uint32_t(indexAndFrame & 0xFFFFFFFF)));
}

void KXAudioFile::primePlayBuffersWithHintStart(std::int64_t frame) {
    createPlayBuffers();
    currentPlaybackDirection_ = kForwards;
    const bool held = frame >= 0 && (playBuffers_.makeCurrentIfHolding(0, std::uint64_t(frame)) ||
                                     playBuffers_.makeCurrentIfHolding(1, std::uint64_t(frame)));
    if (!held) playBuffers_.load(0, playBufferRender(frame), true);
    predictNextPlayBuffer();
}

void KXAudioFile::predictNextPlayBuffer() {
    if (!playBuffers_.exist()) return;
    const std::int64_t span = playBuffers_.frames();
    const KXSampleRange current = playBuffers_.currentRange();
    std::int64_t next = currentPlaybackDirection_ == kBackwards ? std::int64_t(current.location) - span
                                                                : std::int64_t(current.end());
    const std::int64_t frames = frames_, repeatStart = playbackRepeatStart_, repeatEnd = playbackRepeatEnd_;
    if (repeatStart != repeatEnd) {
        switch (playbackRepeatDirectionType_) {
        case kLoopForwards:
            if (next >= repeatEnd || next >= frames) next = repeatStart;
            break;
        case kAlternate:
            // Turning at the end predicts the frame count, so that nothing loads at that step.
            if (next >= repeatEnd) {
                next = frames;
                currentPlaybackDirection_ = kBackwards;
            }
            if (currentPlaybackDirection_ == kBackwards && next <= repeatStart) {
                currentPlaybackDirection_ = kForwards;
                next = repeatStart;
            }
            break;
        case kLoopBackwards:
            if (next >= repeatEnd) {
                next = frames;
                currentPlaybackDirection_ = kBackwards;
            }
            if (currentPlaybackDirection_ == kBackwards && next + span <= repeatStart) next = repeatEnd - span;
            break;
        default:
            break;
        }
    }
    next = std::max<std::int64_t>(next, 0);
    if (next >= frames) return;
    const auto frame = std::uint64_t(next);
    if (playBuffers_.range(0).containsFrame(frame) || playBuffers_.range(1).containsFrame(frame)) return;
    const std::int32_t other = 1 - playBuffers_.currentIndex();
    playBuffers_.countPredictedLoad();
    if (useThreadedPlayBufferLoading_ && format_ != KXFourCC("REX2")) {
        playBuffers_.prefetch(other, playBufferRender(next));
    } else {
        playBuffers_.load(other, playBufferRender(next), false);
    }
}

void KXAudioFile::switchPlayBufferTo(std::int64_t key, std::int64_t end) {
    const KXSampleRange previous = playBuffers_.currentRange();
    if (previous.containsFrame(std::uint64_t(key))) return;
    const std::int32_t other = 1 - playBuffers_.currentIndex();
    const bool held = playBuffers_.makeCurrentIfHolding(other, std::uint64_t(key));
    if (!held) {
        // Stepping back before the buffer that was current loads a buffer that ends at `end`;
        // anything else one that starts at the key.
        const std::int64_t from = key < std::int64_t(previous.location) ? end - (std::int64_t(playBuffers_.frames()) - 1) : key;
        playBuffers_.load(other, playBufferRender(from), true);
    }
    playBuffers_.countSwitch(!held);
    predictNextPlayBuffer();
}

float KXAudioFile::playSample(std::int64_t frame, std::uint32_t channel) {
    if (frame < 0 || frame >= std::int64_t(frames_)) return 0.0f;
    if (channel == 1 && numberOfChannels_ == 1) channel = 0;
    if (channel >= numberOfChannels_) return 0.0f;
    createPlayBuffers();
    switchPlayBufferTo(frame, frame);
    const KXNativeAudioBuffer* buffer = playBuffers_.current();
    const std::int64_t index = frame - playBuffers_.currentRange().location;
    return buffer && index >= 0 ? buffer->sampleValueAtIndex(std::uint32_t(index), channel) : 0.0f;
}

void KXAudioFile::playSamplesToBuffers(KXAudioBuffer& destination, std::uint32_t position, std::int64_t start,
                                       std::int32_t& frames, bool reverse) {
    const std::int64_t total = frames_;
    std::int64_t n = frames, at = position;
    if (!reverse) {
        if (start >= total || start + n < 0) return;
        if (start + n > total) n = total - start;
        if (start < 0) {
            at -= start;
            n += start;
            start = 0;
        }
    } else {
        // `start` is the frame after the last one wanted. A request reaching before the file's
        // first frame is cut there; one wholly past its end copies nothing.
        if (start < 0 || start - n >= total) return;
        if (start < n) n = start;
        if (start > total) {
            // Deliberate: the file's last frame is not played in this call.
            at += start - total;
            n -= start - total;
            start = total - 1;
        }
    }
    if (n <= 0) {
        frames = 0;
        return;
    }

    createPlayBuffers();
    switchPlayBufferTo(reverse ? start - 1 : start, start);
    const KXNativeAudioBuffer* buffer = playBuffers_.current();
    const KXSampleRange range = playBuffers_.currentRange();
    const std::int64_t offset = start - std::int64_t(range.location);
    n = reverse ? std::min(n, offset) : std::min(n, std::int64_t(range.length) - offset);
    n = std::min(n, std::int64_t(destination.frames()) - at);
    n = std::max<std::int64_t>(n, 0);
    frames = std::int32_t(n);

    if (buffer && n > 0) {
        const KXSampleRange copied{std::uint32_t(reverse ? offset - n : offset), std::uint32_t(n)};
        for (std::uint32_t i = 0; i < destination.count(); ++i) {
            const std::uint32_t channel = i == 1 && numberOfChannels_ == 1 ? 0 : i;
            if (channel >= numberOfChannels_) continue;
            KXError error;
            if (!destination.copyFrames(copied, channel, *buffer, std::uint32_t(at), i, &error))
                KXUserInterface::shared().presentError(error);
        }
    }
    if (reverse) destination.reverse();
}
