#include "KXAudioFile/KXChannels/KXChannelsList.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "KXAudioFile/KXChannels/KXChannelLayouts.h"
#include "KXBase/KXDirectories.h"
#include "KXBase/KXFourCC.h"

namespace {

// A buffer of `channels` channels at file frame `location`; sample (c, i) = f(c, location + i).
template <typename F>
KXNativeAudioBuffer bufferOf(std::uint32_t channels, std::uint32_t location, std::uint32_t frames, F f) {
    KXNativeAudioBuffer buffer(channels, frames);
    buffer.setFrames(frames);
    buffer.setRange({location, frames});
    for (std::uint32_t c = 0; c < channels; ++c)
        for (std::uint32_t i = 0; i < frames; ++i) buffer.channel(c)[i] = f(c, location + i);
    return buffer;
}

float sine(std::uint32_t frame) { return float(std::sin(frame * 0.05)); }

// A full pass over `frames` frames in buffers of 256.
template <typename F>
void analyse(KXChannelsList& list, std::uint32_t frames, F f, bool partial = false) {
    list.beginAnalysis(partial);
    for (std::uint32_t at = 0; at < frames; at += 256)
        list.analyzeBuffer(bufferOf(list.count(), at, std::min(256u, frames - at), f));
    list.endAnalysis();
}

}  // namespace

TEST(KXChannelAnalysis, FullPassMaxClipsAndRMS) {
    auto list = KXChannelsList::channelsListWithChannelCount(1);
    EXPECT_EQ(list->analysisState(), 0);
    // Frames 100 … 104 at full scale: a run of five, of which the last three count.
    auto signal = [](std::uint32_t, std::uint32_t f) { return f >= 100 && f < 105 ? -1.0f : 0.5f * sine(f); };
    analyse(*list, 1000, signal);
    const auto& channel = *list->channel(0);
    EXPECT_EQ(channel.max(), 1.0f);
    EXPECT_EQ(channel.clipped(), 3);
    double squares = 0;
    for (std::uint32_t f = 0; f < 1000; ++f) squares += double(signal(0, f)) * signal(0, f);
    EXPECT_NEAR(channel.rms(), std::sqrt(squares / 1000), 1e-6);
    EXPECT_EQ(channel.analysisState(), 1);
    EXPECT_EQ(list->analysisState(), 1);
    EXPECT_EQ(list->clip(), 3);
    EXPECT_EQ(list->difference(), KXChannelsList::kNoDifference);  // one channel
    EXPECT_EQ(channel.waveformForType(KXWaveform::kMax)->numberOfEntries(), 4u);
    EXPECT_FALSE(channel.waveformForType(3));

    list->channel(0)->removeAnalysis();
    EXPECT_EQ(list->analysisState(), 0);
    EXPECT_TRUE(std::isnan(list->channel(0)->rms()));
    EXPECT_FALSE(list->hasWaveforms());

    // A pass over no frames (a file of no samples) measured silence; NaN would say "not analysed".
    analyse(*list, 0, signal);
    EXPECT_EQ(list->channel(0)->rms(), 0.0f);
    EXPECT_EQ(list->channel(0)->max(), 0.0f);
    EXPECT_EQ(list->analysisState(), 1);
}

TEST(KXChannelAnalysis, PartialPassTakesMaxFromTheOverview) {
    auto list = KXChannelsList::channelsListWithChannelCount(2);
    analyse(*list, 600, [](std::uint32_t c, std::uint32_t f) { return c ? 0.25f : 0.5f * sine(f); }, true);
    EXPECT_FLOAT_EQ(list->channel(1)->max(), 0.25f);
    EXPECT_TRUE(std::isnan(list->channel(1)->rms()));
    EXPECT_EQ(list->channel(1)->clipped(), -1);
    EXPECT_EQ(list->analysisState(), -1);  // half analysed
    EXPECT_EQ(list->difference(), KXChannelsList::kNoDifference);
}

TEST(KXChannelsListDifference, IdenticalIndependentAndInverted) {
    struct Case {
        const char* name;
        float (*right)(std::uint32_t);
        float low, high;
    } cases[] = {
        {"identical", [](std::uint32_t f) { return sine(f); }, 0.0f, 0.0f},
        {"inverted", [](std::uint32_t f) { return -sine(f) - 1e-3f; }, -1e-3f, 0.0f},
        // An unrelated signal: signs agree about half the time.
        {"independent", [](std::uint32_t f) { return float(std::sin(f * 0.7711 + 1.3)); }, 90.0f, 110.0f},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto list = KXChannelsList::channelsListWithChannelCount(2);
        analyse(*list, 4096, [&](std::uint32_t ch, std::uint32_t f) { return ch ? c.right(f) : sine(f); });
        EXPECT_GE(list->difference(), c.low);
        EXPECT_LE(list->difference(), c.high);
    }
}

TEST(KXChannelsListDifference, SameFromBuffersOnAndOffEntryBoundaries) {
    // Buffers that start on an overview entry take their sign bits from the statistics pass,
    // the others from the samples: both count alike, −0.0 and NaN (not below 0.0) included.
    const auto f = [](std::uint32_t c, std::uint32_t frame) {
        if (frame % 97 == 3) return c == 1 ? -0.0f : std::numeric_limits<float>::quiet_NaN();
        return float(std::sin(frame * (0.05 + 0.013 * c) + c));
    };
    for (const std::uint32_t channels : {2u, 3u}) {
        SCOPED_TRACE(channels);
        float differences[2];
        for (const std::uint32_t offset : {0u, 100u}) {
            auto list = KXChannelsList::channelsListWithChannelCount(channels);
            list->beginAnalysis(false);
            list->analyzeBuffer(bufferOf(channels, 0, offset, f));
            for (std::uint32_t at = offset; at < 20000; at += 4096)
                list->analyzeBuffer(bufferOf(channels, at, std::min(4096u, 20000 - at), f));
            list->endAnalysis();
            differences[offset ? 1 : 0] = list->difference();
        }
        EXPECT_EQ(differences[0], differences[1]);
        EXPECT_GT(differences[0], 10.0f);
    }
}

TEST(KXChannelsListEditing, AddDuplicateMoveAndRemove) {
    auto list = KXChannelsList::channelsListWithSplitFileExtensions("5_1");
    ASSERT_EQ(list->count(), 6u);
    EXPECT_EQ(list->channel(3)->name(), "LFE");
    EXPECT_EQ(list->channel(4)->extension(), "LS");
    list->duplicateChannelAtIndex(0);
    EXPECT_EQ(list->channel(1)->name(), "Left copy");
    list->addChannelAtIndex(100);
    EXPECT_EQ(list->channel(7)->abbreviation(), "N");
    // Move "Right" and "LFE" (indexes 2 and 4) before "Left copy" (index 1).
    list->moveChannels(KXIndexSet{2, 4}, 1);
    std::vector<std::string> names;
    for (const auto& c : list->list()) names.push_back(c->name());
    EXPECT_EQ(names, (std::vector<std::string>{"Left", "Right", "LFE", "Left copy", "Center", "Left Surround",
                                               "Right Surround", "New Channel"}));
    list->removeChannelAtIndex(0);
    EXPECT_EQ(list->channel(0)->name(), "Right");
}

TEST(KXChannelsListNames, LayoutsByChannelCountAndFormat) {
    EXPECT_EQ(KXChannelLayouts::bundleExtensionForFormat(KXFourCC("WAVE"), 4), "quad");
    EXPECT_EQ(KXChannelLayouts::bundleExtensionForFormat(KXFourCC("AIFF"), 4), "lcrs");
    EXPECT_EQ(KXChannelLayouts::bundleExtensionForFormat(KXFourCC("AIFF"), 12), "10_2");
    EXPECT_FALSE(KXChannelLayouts::bundleExtensionForFormat(KXFourCC("AIFF"), 3));
    auto three = KXChannelsList::channelsListWithChannelCount(3);
    EXPECT_FALSE(three->hasNames());
    three->loadDefaultNamesForFormat(KXFourCC("WAVE"));
    EXPECT_EQ(three->channel(2)->name(), "Channel 3");
    EXPECT_EQ(three->channel(2)->abbreviation(), "3");
    auto quad = KXChannelsList::channelsListWithChannelCount(4);
    quad->loadDefaultNamesForFormat(KXFourCC("AIFF"));
    EXPECT_EQ(quad->channel(3)->name(), "Surround");
    EXPECT_EQ(quad->channel(1)->abbreviation(), "C");
}

TEST(KXChannelsListNames, ShippedFilesMatchTheBuiltInLists) {
    const std::string data = KXDirectories::libraryDataDirectory();
    ASSERT_FALSE(data.empty());
    for (const std::string& layout : KXChannelLayouts::layoutNames()) {
        SCOPED_TRACE(layout);
        EXPECT_EQ(KXChannelLayouts::readStringList(data + "/KXChannelNames/" + layout + ".name"),
                  KXChannelLayouts::builtInNames(layout));
        EXPECT_EQ(KXChannelLayouts::readStringList(data + "/KXChannelAbbreviations/" + layout + ".abbr"),
                  KXChannelLayouts::builtInAbbreviations(layout));
        EXPECT_EQ(KXChannelLayouts::builtInNames(layout).size(), KXChannelLayouts::builtInAbbreviations(layout).size());
    }
}

TEST(KXChannelsListState, StateAndArchiveRoundTrips) {
    auto list = KXChannelsList::channelsListWithSplitFileExtensions("stereo");
    analyse(*list, 700, [](std::uint32_t c, std::uint32_t f) { return c ? sine(f) : -sine(f); });
    auto restored = KXChannelsList::channelsList();
    restored->setState(list->state());
    ASSERT_EQ(restored->count(), 2u);
    EXPECT_EQ(restored->channel(1)->state(), list->channel(1)->state());
    EXPECT_EQ(*restored->channel(0)->waveformForType(KXWaveform::kRMS)->table(),
              *list->channel(0)->waveformForType(KXWaveform::kRMS)->table());
    EXPECT_EQ(list->state()[0].dictionary().keys(),
              (std::vector<std::string>{"Name", "Abbreviation", "Extension", "Max", "Clipped", "RMS", "Magnitude Maxima",
                                        "Root Mean Squares", "Magnitude Means"}));

    const KXData archive = KXCoder::archivedDataWithRootObject(*list);
    auto back = std::dynamic_pointer_cast<KXChannelsList>(
        KXDecoder::unarchiveObjectWithData(archive, &KXChannelsList::archiveObjectForClassName));
    ASSERT_TRUE(back);
    EXPECT_EQ(back->difference(), list->difference());
    EXPECT_EQ(back->channel(0)->state(), list->channel(0)->state());
    for (std::size_t cut = 0; cut < archive.size(); cut += 7)
        EXPECT_FALSE(KXDecoder::unarchiveObjectWithData(KXData(archive.begin(), archive.begin() + std::ptrdiff_t(cut)),
                                                        &KXChannelsList::archiveObjectForClassName));
    // A copy is deep.
    auto copy = list->copy();
    copy->channel(0)->waveformForType(KXWaveform::kMax)->mutableEntries()[0] = 9.0f;
    EXPECT_NE(list->channel(0)->waveformForType(KXWaveform::kMax)->entries()[0], 9.0f);
}
