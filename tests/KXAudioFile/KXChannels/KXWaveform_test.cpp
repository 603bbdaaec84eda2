#include "KXAudioFile/KXChannels/KXWaveform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "KXAudioFile/KXChannels/KXChannel.h"

namespace {

// A one-channel buffer of `frames` samples at file frame `location`, sample i = f(location + i).
template <typename F>
KXNativeAudioBuffer bufferAt(std::uint32_t location, std::uint32_t frames, F f) {
    KXNativeAudioBuffer buffer(1, frames);
    buffer.setFrames(frames);
    buffer.setRange({location, frames});
    for (std::uint32_t i = 0; i < frames; ++i) buffer.channel(0)[i] = f(location + i);
    return buffer;
}

float ramp(std::uint32_t frame) { return float(frame % 300) / 300.0f - 0.5f; }

}  // namespace

TEST(KXWaveformTable, SampleLengthRoundsUpToBlocksAndKeepsEntries) {
    auto waveform = KXWaveform::waveformOfType(KXWaveform::kMax);
    EXPECT_FALSE(waveform->hasTable());
    for (auto [frames, entries] : {std::pair{1u, 1u}, {256u, 1u}, {257u, 2u}, {0u, 0u}}) {
        waveform->setSampleLength(frames);
        EXPECT_EQ(waveform->numberOfEntries(), entries) << frames;
    }
    waveform->setSampleLength(512);
    waveform->mutableEntries()[1] = 0.75f;
    waveform->setSampleLength(1024);
    EXPECT_EQ(waveform->sampleLength(), 1024u);
    EXPECT_EQ(waveform->length(), 16u);
    EXPECT_EQ(waveform->entries()[1], 0.75f);
    EXPECT_EQ(waveform->entries()[3], 0.0f);
    // A table of a length that is no whole number of entries keeps its whole entries.
    waveform->setTable(KXData(9, 0));
    EXPECT_EQ(waveform->numberOfEntries(), 2u);
    waveform->setTable({});
    EXPECT_FALSE(waveform->hasTable());
}

TEST(KXWaveformTable, SwapTwiceRestores) {
    auto waveform = KXWaveform::waveformWithTable(KXWaveform::kRMS, KXData{0x00, 0x00, 0x80, 0x3F, 1, 2, 3, 4});
    const KXData before = *waveform->table();
    waveform->swap();
    EXPECT_EQ(*waveform->table(), (KXData{0x3F, 0x80, 0x00, 0x00, 4, 3, 2, 1}));
    waveform->swap();
    EXPECT_EQ(*waveform->table(), before);
}

TEST(KXWaveformAnalysis, ThousandFramesGiveThreeFullEntriesAndOnePartial) {
    const KXNativeAudioBuffer buffer = bufferAt(0, 1000, ramp);
    for (auto type : {KXWaveform::kMax, KXWaveform::kRMS, KXWaveform::kMean}) {
        SCOPED_TRACE(type);
        auto waveform = KXWaveform::waveformOfType(type);
        waveform->analyzeBuffer(buffer, 0);
        ASSERT_EQ(waveform->numberOfEntries(), 4u);
        for (std::uint32_t entry = 0; entry < 4; ++entry) {
            const std::uint32_t first = entry * 256, count = entry < 3 ? 256 : 232;
            double max = 0, squares = 0, magnitudes = 0;
            for (std::uint32_t f = first; f < first + count; ++f) {
                max = std::max(max, double(std::fabs(ramp(f))));
                squares += double(ramp(f)) * ramp(f);
                magnitudes += std::fabs(ramp(f));
            }
            const double expected = type == KXWaveform::kMax   ? max
                                    : type == KXWaveform::kRMS ? std::sqrt(squares / count)
                                                               : magnitudes / count;
            EXPECT_NEAR(waveform->entries()[entry], expected, 1e-6) << entry;
        }
    }
}

TEST(KXWaveformAnalysis, UnalignedBuffersOverwriteTheBlocksTheyTouch) {
    auto waveform = KXWaveform::waveformOfType(KXWaveform::kMax);
    waveform->analyzeBuffer(bufferAt(0, 512, [](std::uint32_t) { return 0.5f; }), 0);
    // Frames 300 … 599: head 300–511 overwrites entry 1; 512–599 is the tail in entry 2.
    waveform->analyzeBuffer(bufferAt(300, 300, [](std::uint32_t) { return -0.25f; }), 0);
    ASSERT_EQ(waveform->numberOfEntries(), 3u);
    EXPECT_EQ(waveform->entries()[0], 0.5f);
    EXPECT_EQ(waveform->entries()[1], 0.25f);
    EXPECT_EQ(waveform->entries()[2], 0.25f);
    // A buffer inside one block is all head.
    waveform->analyzeBuffer(bufferAt(10, 5, [](std::uint32_t) { return 0.125f; }), 0);
    EXPECT_EQ(waveform->entries()[0], 0.125f);
    EXPECT_EQ(waveform->numberOfEntries(), 3u);
}

TEST(KXWaveformArchive, RoundTripKeepsKindAndTable) {
    auto waveform = KXWaveform::waveformWithTable(KXWaveform::kMean, KXData{0, 0, 0x80, 0x3F});
    const KXData archive = KXCoder::archivedDataWithRootObject(*waveform);
    auto back = std::dynamic_pointer_cast<KXWaveform>(
        KXDecoder::unarchiveObjectWithData(archive, &KXWaveform::archiveObjectForClassName));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->type(), KXWaveform::kMean);
    EXPECT_EQ(back->entries()[0], 1.0f);
    EXPECT_EQ(waveform->copy()->table(), waveform->table());
}

TEST(KXWaveformAnalysis, AChannelsOnePassGivesWhatEachOverviewGivesAlone) {
    // Unaligned buffers, a NaN, silence and full scale: entry for entry, bit for bit.
    const auto signal = [](std::uint32_t frame) {
        if (frame == 700) return std::numeric_limits<float>::quiet_NaN();
        return frame % 1000 < 50 ? 0.0f : std::sin(float(frame) * 0.37f) * (frame % 3 ? 1.0f : 0.01f);
    };
    KXChannel channel;
    auto maxima = KXWaveform::waveformOfType(KXWaveform::kMax), squares = KXWaveform::waveformOfType(KXWaveform::kRMS),
         means = KXWaveform::waveformOfType(KXWaveform::kMean);
    channel.beginAnalysis(false);
    for (const auto& [location, frames] : {std::pair{0u, 1000u}, {1000u, 77u}, {1077u, 3001u}, {4078u, 5u}}) {
        const KXNativeAudioBuffer buffer = bufferAt(location, frames, signal);
        channel.analyzeBuffer(buffer, 0);
        for (const auto& waveform : {maxima, squares, means}) waveform->analyzeBuffer(buffer, 0);
    }
    channel.endAnalysis();
    for (const auto& alone : {maxima, squares, means}) {
        const auto entries = channel.waveformForType(alone->type())->entries();
        ASSERT_EQ(entries.size(), alone->entries().size());
        for (std::size_t i = 0; i < entries.size(); ++i)
            ASSERT_EQ(std::bit_cast<std::uint32_t>(entries[i]), std::bit_cast<std::uint32_t>(alone->entries()[i]))
                << "type " << alone->type() << " entry " << i;
    }
    // The channel's largest magnitude is the largest entry; the NaN sample is passed over.
    EXPECT_EQ(channel.max(), *std::max_element(maxima->entries().begin(), maxima->entries().end()));
}
