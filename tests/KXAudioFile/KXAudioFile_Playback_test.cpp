#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "support/KXTestSupport.h"

namespace {

using KXTestSamples::sample;
constexpr std::uint32_t kSpan = KXAudioFile::kReadBufferFrames;

// A destination of `channels` float channels of `frames` frames.
struct Destination {
    KXAudioBuffer buffer;
    Destination(std::uint32_t channels, std::uint32_t frames) : buffer(channels, std::size_t(frames) * sizeof(float)) {}
    float at(std::uint32_t frame, std::uint32_t channel) const {
        float value;
        std::memcpy(&value, buffer.bufferAtIndex(channel) + std::size_t(frame) * sizeof(float), sizeof value);
        return value;
    }
};

struct KXAudioFilePlayback : ::testing::Test {
    KXTemporaryFolder folder;
    std::shared_ptr<KXAudioFile> open(std::uint32_t channels, std::uint32_t frames, bool threaded = false) {
        const std::string name = "play" + std::to_string(channels) + "_" + std::to_string(frames) + ".wav";
        auto file = KXAudioFile::audioFileWithPath(
            KXTestSamples::writeSignalFile(folder, name, channels, 44100, frames, false, sample));
        file->setUseThreadedPlayBufferLoading(threaded);
        return file;
    }
    static void setRepeat(KXAudioFile& file, std::uint32_t start, std::uint32_t end, std::int32_t type) {
        file.setPlaybackRepeatRange(KXRange::rangeWithStart(start / 44100.0, end / 44100.0), type);
        ASSERT_EQ(file.playbackRepeatStart(), std::int32_t(start));
        ASSERT_EQ(file.playbackRepeatEnd(), std::int32_t(end));
    }
};

// Pulls `block`-frame pieces from `from` towards `to` (backwards when `to` < `from`) through
// the play buffers and checks every sample against the file's pattern; answers the frames played.
std::uint64_t playAndCheck(KXAudioFile& file, std::int64_t from, std::int64_t to, std::uint32_t block, bool settle = false) {
    const std::uint32_t channels = file.numberOfChannels();
    const bool backwards = to < from;
    Destination destination(channels, block);
    std::uint64_t played = 0;
    for (std::int64_t at = from; backwards ? at > to : at < to;) {
        std::int32_t n = std::int32_t(std::min<std::int64_t>(block, backwards ? at - to : to - at));
        Destination piece(channels, std::uint32_t(n));
        file.playSamplesToBuffers(piece.buffer, 0, at, n, backwards);
        EXPECT_GT(n, 0) << "at " << at;
        if (n <= 0) return played;
        for (std::int32_t i = 0; i < n; ++i) {
            for (std::uint32_t c = 0; c < channels; ++c) {
                // Backwards, the piece holds frames at … at − n reversed, at its end.
                const std::uint32_t slot = backwards ? std::uint32_t(piece.buffer.frames() - n + i) : std::uint32_t(i);
                const auto frame = std::uint32_t(backwards ? at - 1 - i : at + i);
                if (piece.at(slot, c) != sample(frame, c)) {
                    ADD_FAILURE() << "frame " << frame << " channel " << c;
                    return played;
                }
            }
        }
        at += backwards ? -n : n;
        played += std::uint64_t(n);
        if (settle) file.waitForPlayBufferLoader();
    }
    return played;
}

}  // namespace

TEST_F(KXAudioFilePlayback, PrimingPredictsTheNextSpanAndASwitchNeedsNoLoad) {
    auto file = open(2, 200000);
    file->primePlayBuffersWithHintStart(0);
    EXPECT_EQ(file->currentPlayBufferIndex(), 0);
    EXPECT_EQ(file->playBufferRange(0), (KXSampleRange{0, kSpan}));
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{kSpan, kSpan}));
    EXPECT_EQ(file->playSample(kSpan - 1, 1), sample(kSpan - 1, 1));
    EXPECT_EQ(file->playSample(kSpan, 1), sample(kSpan, 1));
    EXPECT_EQ(file->currentPlayBufferIndex(), 1);
    // The switch found the span ready and predicted the one after it into buffer 0.
    EXPECT_EQ(file->playBufferStatistics().switches, 1u);
    EXPECT_EQ(file->playBufferStatistics().readerLoads, 0u);
    EXPECT_EQ(file->playBufferRange(0), (KXSampleRange{2 * kSpan, kSpan}));
    // Priming at a frame a buffer already holds makes that buffer current and loads nothing new.
    const auto loads = file->playBufferStatistics().predictedLoads;
    file->primePlayBuffersWithHintStart(2 * kSpan + 5);
    EXPECT_EQ(file->currentPlayBufferIndex(), 0);
    EXPECT_EQ(file->playBufferStatistics().predictedLoads, loads + 1);  // 3 × span onwards, into buffer 1
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{3 * kSpan, kSpan}));

    // With no repeat range, a prediction simply goes on in the current direction.
    file->setCurrentPlaybackDirection(1);
    file->predictNextPlayBuffer();
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{kSpan, kSpan}));
}

TEST_F(KXAudioFilePlayback, SingleSamplesOutsideTheFileOrItsChannelsAndSteppingBack) {
    auto file = open(2, 200000);
    EXPECT_EQ(file->playSample(-1, 0), 0.0f);
    EXPECT_EQ(file->playSample(200000, 0), 0.0f);
    EXPECT_EQ(file->playSample(5, 2), 0.0f);
    file->primePlayBuffersWithHintStart(100000);
    EXPECT_EQ(file->playBufferRange(0), (KXSampleRange{100000, kSpan}));
    // A frame before the current buffer loads a buffer that ends at it.
    EXPECT_EQ(file->playSample(99999, 0), sample(99999, 0));
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{99999 - (kSpan - 1), kSpan}));
    EXPECT_EQ(file->playBufferStatistics().readerLoads, 1u);
    // Near the end a forward load ends at the file's end, so that the buffer is full.
    EXPECT_EQ(file->playSample(199000, 1), sample(199000, 1));
    EXPECT_EQ(file->playBufferRange(file->currentPlayBufferIndex()), (KXSampleRange{200000 - kSpan, kSpan}));

    auto mono = open(1, 5000);
    EXPECT_EQ(mono->playSample(1234, 1), sample(1234, 0));
    EXPECT_EQ(mono->playSample(1234, 2), 0.0f);
}

TEST_F(KXAudioFilePlayback, RepeatTypesPredictTheirTurns) {
    auto file = open(1, 200000);
    // Loop forwards over 1,000 … 50,000: after a buffer that ends beyond the repeat end the next
    // span starts at the repeat start …
    setRepeat(*file, 1000, 50000, 0);
    file->primePlayBuffersWithHintStart(30000);
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{1000, kSpan}));
    // … unless a buffer already holds it.
    file->resetBuffers();
    file->primePlayBuffersWithHintStart(0);
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{kSpan, kSpan}));
    const auto loads = file->playBufferStatistics().predictedLoads;
    EXPECT_EQ(file->playSample(kSpan, 0), sample(kSpan, 0));  // the switch predicts 1,000: held by buffer 0
    EXPECT_EQ(file->playBufferStatistics().predictedLoads, loads);
    EXPECT_EQ(file->playBufferRange(0), (KXSampleRange{0, kSpan}));

    // Alternate: the turn at the repeat end loads nothing (it predicts the frame count) and turns
    // backwards; going back past the repeat start turns forwards again at the start.
    setRepeat(*file, 1000, 50000, 1);
    file->resetBuffers();
    file->primePlayBuffersWithHintStart(30000);
    EXPECT_EQ(file->currentPlaybackDirection(), 1);
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{0, 0}));
    file->predictNextPlayBuffer();
    EXPECT_EQ(file->currentPlaybackDirection(), 0);
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{1000, kSpan}));

    // Loop backwards over 50,000 … 150,000: turn at the end, then step back span by span until
    // a span would end at or before the repeat start, and go on from the repeat end.
    setRepeat(*file, 50000, 150000, 2);
    file->resetBuffers();
    file->primePlayBuffersWithHintStart(130000);
    EXPECT_EQ(file->currentPlaybackDirection(), 1);
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{0, 0}));
    file->predictNextPlayBuffer();
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{130000 - kSpan, kSpan}));
    EXPECT_EQ(file->playSample(100000, 0), sample(100000, 0));
    EXPECT_EQ(file->playBufferRange(0), (KXSampleRange{130000 - 2 * kSpan, kSpan}));
    EXPECT_EQ(file->playSample(70000, 0), sample(70000, 0));
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{130000 - 3 * kSpan, kSpan}));
    EXPECT_EQ(file->playSample(40000, 0), sample(40000, 0));
    EXPECT_EQ(file->playBufferRange(0), (KXSampleRange{150000 - kSpan, kSpan}));
    EXPECT_EQ(file->playBufferStatistics().readerLoads, 0u);

    // Any other type leaves repeat handling out.
    setRepeat(*file, 1000, 50000, 7);
    file->resetBuffers();
    file->primePlayBuffersWithHintStart(30000);
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{30000 + kSpan, kSpan}));
}

TEST_F(KXAudioFilePlayback, BlockCopiesClampAndCut) {
    auto file = open(2, 200000);
    file->primePlayBuffersWithHintStart(0);
    {
        // Backwards from 10 for 20 frames: 10 frames, and the destination is reversed.
        Destination d(2, 20);
        std::int32_t n = 20;
        file->playSamplesToBuffers(d.buffer, 0, 10, n, true);
        EXPECT_EQ(n, 10);
        for (std::uint32_t i = 0; i < 10; ++i) {
            EXPECT_EQ(d.at(i, 0), 0.0f);
            EXPECT_EQ(d.at(10 + i, 1), sample(9 - i, 1));
        }
    }
    {
        // Forwards from before the file's start: the position moves on by what lies before it.
        Destination d(2, 10);
        std::int32_t n = 10;
        file->playSamplesToBuffers(d.buffer, 0, -4, n, false);
        EXPECT_EQ(n, 6);
        EXPECT_EQ(d.at(3, 0), 0.0f);
        EXPECT_EQ(d.at(4, 0), sample(0, 0));
        EXPECT_EQ(d.at(9, 1), sample(5, 1));
    }
    {
        // Past the end forwards; nothing at all for a request wholly outside the file.
        Destination d(2, 10);
        std::int32_t n = 10;
        file->playSamplesToBuffers(d.buffer, 0, 199997, n, false);
        EXPECT_EQ(n, 3);
        n = 10;
        file->playSamplesToBuffers(d.buffer, 0, 200000, n, false);
        EXPECT_EQ(n, 10);
        file->playSamplesToBuffers(d.buffer, 0, -11, n, false);
        EXPECT_EQ(n, 10);
        file->playSamplesToBuffers(d.buffer, 0, -1, n, true);
        EXPECT_EQ(n, 10);
    }
    {
        // Backwards from beyond the end: the position moves on by the overshoot and the file's
        // last frame is not played in that call.
        Destination d(2, 10);
        std::int32_t n = 10;
        file->playSamplesToBuffers(d.buffer, 0, 200005, n, true);
        EXPECT_EQ(n, 5);
        for (std::uint32_t i = 0; i < 5; ++i) EXPECT_EQ(d.at(i, 0), sample(199998 - i, 0));
        EXPECT_EQ(d.at(5, 0), 0.0f);
    }
    {
        // One call copies from one buffer: cut at the buffer's end, then at the destination's end.
        file->primePlayBuffersWithHintStart(0);
        Destination d(2, 100);
        std::int32_t n = 100;
        file->playSamplesToBuffers(d.buffer, 0, kSpan - 20, n, false);
        EXPECT_EQ(n, 20);
        n = 100;
        file->playSamplesToBuffers(d.buffer, 90, 500, n, false);
        EXPECT_EQ(n, 10);
        EXPECT_EQ(d.at(99, 1), sample(509, 1));
        n = 5;
        file->playSamplesToBuffers(d.buffer, 100, 500, n, false);
        EXPECT_EQ(n, 0);
    }
    {
        // Channel 1 of a mono file plays the mono channel; a destination channel past both is left alone.
        auto mono = open(1, 5000);
        Destination d(3, 8);
        std::int32_t n = 8;
        mono->playSamplesToBuffers(d.buffer, 0, 100, n, false);
        EXPECT_EQ(n, 8);
        EXPECT_EQ(d.at(7, 0), sample(107, 0));
        EXPECT_EQ(d.at(7, 1), sample(107, 0));
        EXPECT_EQ(d.at(7, 2), 0.0f);
    }
}

TEST_F(KXAudioFilePlayback, LoadingAndResetting) {
    auto file = open(2, 100000);
    // The packed argument: the index in the high half (clamped to 0 … 1), the frame in the low.
    file->loadPlayBuffer((std::int64_t(5) << 32) | 1000);
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{1000, kSpan}));
    file->loadPlayBuffer(std::int64_t(std::uint64_t(0xFFFFFFFF) << 32) | 2000);
    EXPECT_EQ(file->playBufferRange(0), (KXSampleRange{2000, kSpan}));
    file->resetBuffers();
    EXPECT_EQ(file->playBufferRange(0), (KXSampleRange{0, 0}));
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{0, 0}));
    // Made anew for another channel count; made when missing.
    file->setNumberOfChannels(1);
    file->resetBuffers();
    file->loadPlayBuffer(0, 0);
    Destination d(2, 4);
    std::int32_t n = 4;
    file->playSamplesToBuffers(d.buffer, 0, 0, n, false);
    EXPECT_EQ(d.at(3, 1), sample(3, 0));  // one channel now: channel 1 plays channel 0
    file->destroyPlayBuffers();
    EXPECT_EQ(file->playBufferRange(0), (KXSampleRange{0, 0}));
    file->resetBuffers();
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{0, 0}));
    EXPECT_EQ(file->playSample(70000, 0), sample(70000, 0));
}

TEST_F(KXAudioFilePlayback, APlayerGetsEverySampleForwardsBackwardsAndThroughRepeats) {
    for (const bool threaded : {false, true}) {
        SCOPED_TRACE(threaded ? "threaded" : "at once");
        auto file = open(2, 6 * kSpan + 777, threaded);
        file->primePlayBuffersWithHintStart(0);
        EXPECT_EQ(playAndCheck(*file, 0, file->frames(), 512), file->frames());
        file->primePlayBuffersWithHintStart(file->frames());
        file->setCurrentPlaybackDirection(1);
        EXPECT_EQ(playAndCheck(*file, file->frames(), 0, 512), file->frames());

        // Each repeat type as a player follows it: loop forwards, alternate, loop backwards.
        const std::int64_t a = 3000, b = 3000 + 2 * kSpan + 100;
        for (const std::int32_t type : {0, 1, 2}) {
            SCOPED_TRACE(type);
            setRepeat(*file, std::uint32_t(a), std::uint32_t(b), type);
            file->primePlayBuffersWithHintStart(0);
            playAndCheck(*file, 0, b, 512);
            for (int turn = 0; turn < 3; ++turn) {
                if (type == 0) playAndCheck(*file, a, b, 512);
                if (type == 1) playAndCheck(*file, turn % 2 ? a : b, turn % 2 ? b : a, 512);
                if (type == 2) playAndCheck(*file, b, a, 512);
            }
        }
        file->waitForPlayBufferLoader();
    }
}

TEST_F(KXAudioFilePlayback, ThreadedPrefetchKeepsAheadOfARealTimePlayer) {
    auto file = open(2, 8 * kSpan, true);
    file->primePlayBuffersWithHintStart(0);
    // A player that leaves the loader time to finish (as real time does) never loads itself.
    EXPECT_EQ(playAndCheck(*file, 0, file->frames(), 512, true), file->frames());
    const KXPlayBufferStatistics statistics = file->playBufferStatistics();
    EXPECT_EQ(statistics.switches, 7u);
    EXPECT_EQ(statistics.readerLoads, 0u);
    EXPECT_EQ(statistics.prefetchedLoads, 7u);
}

TEST_F(KXAudioFilePlayback, ALoadTheReaderOvertakesIsDroppedAndNoLoaderOutlivesItsFile) {
    auto file = open(2, 8 * kSpan, true);
    file->primePlayBuffersWithHintStart(0);  // asks the loader for buffer 1
    file->loadPlayBuffer(1, 5 * kSpan);      // the reader loads buffer 1 itself meanwhile
    file->waitForPlayBufferLoader();
    EXPECT_EQ(file->playBufferRange(1), (KXSampleRange{5 * kSpan, kSpan}));
    const KXPlayBufferStatistics statistics = file->playBufferStatistics();
    EXPECT_EQ(statistics.prefetchedLoads + statistics.droppedPrefetches, 1u);
    EXPECT_EQ(file->playSample(5 * kSpan + 3, 0), sample(5 * kSpan + 3, 0));

    // Files released, reset and given a new edit list while their loader is busy.
    for (int i = 0; i < 20; ++i) {
        auto other = open(2, 4 * kSpan, true);
        other->primePlayBuffersWithHintStart(std::uint32_t(i) * 1000);
        if (i % 3 == 1) other->resetBuffers();
        if (i % 3 == 2) other->setEditList(KXEditList::editList());
    }
}
