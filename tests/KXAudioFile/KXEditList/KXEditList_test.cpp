#include <gtest/gtest.h>

#include "KXAudioFile/KXAudioFileWrapper/KXAudioFile.h"
#include "KXAudioFile/KXEditList/KXEditList.h"
#include "support/KXTestSupport.h"

namespace {

std::shared_ptr<KXEditBlock> blockAt(std::uint32_t location, std::uint32_t length, std::uint32_t fadeIn = 0,
                                     std::uint32_t fadeOut = 0) {
    auto b = KXEditBlock::editBlock();
    b->setSourcePath("/nowhere.raw");
    b->setSampleRange({location, length});
    b->setStartFadeLength(fadeIn);
    b->setEndFadeLength(fadeOut);
    return b;
}

}  // namespace

TEST(KXEditListQueries, ExtentStatesAndNearestEdges) {
    auto list = KXEditList::editListWithChannelCount(2);
    EXPECT_EQ(list->range(), (KXSampleRange{0, 0}));
    // An empty list is all active but neither locked nor selected.
    EXPECT_EQ(list->activeState(), 1);
    EXPECT_EQ(list->lockedState(), 0);
    EXPECT_EQ(list->selectedState(), 0);
    list->mutableBlocksForChannel(0) = {blockAt(1000, 500, 100, 0), blockAt(100, 100)};
    list->mutableBlocksForChannel(1) = {blockAt(200, 1500, 0, 50)};
    // Length looks at each channel's last block only: unsorted, channel 0 ends at 200.
    EXPECT_EQ(list->length(), 1700u);
    list->sort();
    EXPECT_EQ(list->blockAtIndex(0, 0)->startSample(), 100u);
    EXPECT_EQ(list->range(), (KXSampleRange{100, 1650}));
    EXPECT_EQ(list->rangeOfChannel(0, true), (KXSampleRange{100, 1400}));
    EXPECT_EQ(list->rangeOfChannel(1, false), (KXSampleRange{200, 1500}));
    EXPECT_EQ(list->rangeOfChannel(7, false), (KXSampleRange{0, 0}));
    list->blockAtIndex(1, 0)->setActive(false);
    EXPECT_EQ(list->activeState(), -1);
    EXPECT_EQ(list->activeRangeOfChannel(0), (KXSampleRange{100, 100}));
    EXPECT_EQ(list->positionOfEditNearestTo(880, KXIndexSet{0, 1}), 900u);
    EXPECT_EQ(list->positionOfEditNearestTo(880, KXIndexSet{}), KXEditList::kNotFound);
    list->blockAtIndex(1, 0)->setModifying(true);
    EXPECT_EQ(list->positionOfEditNearestTo(880, KXIndexSet{0}), 200u);
    EXPECT_FALSE(list->isContiguous());
    EXPECT_FALSE(list->hasLocalOverlap());
    EXPECT_EQ(list->crossfadeLengthForBlock(*list->blockAtIndex(1, 0)), 0u);
}

TEST(KXEditListQueries, SubListsCopiesAndContiguity) {
    auto list = KXEditList::editListWithChannelCount(2);
    list->mutableBlocksForChannel(0) = {blockAt(0, 100), blockAt(100, 100)};
    list->mutableBlocksForChannel(1) = {blockAt(0, 50), blockAt(50, 150)};
    EXPECT_TRUE(list->isContiguous());
    EXPECT_TRUE(list->isSlicedAt(100, KXIndexSet{0}));
    EXPECT_FALSE(list->isSlicedAt(100, KXIndexSet{0, 1}));
    list->blockAtIndex(1, 1)->setSelected(true);
    EXPECT_EQ(list->indexesOfSelectedBlocksForChannel(1), (KXIndexSet{1}));
    auto selected = list->editListWithSelectedBlocks();
    EXPECT_EQ(selected->numberOfChannels(), 2u);
    EXPECT_EQ(selected->blockCount(), 1u);
    EXPECT_NE(selected->blockAtIndex(0, 1).get(), list->blockAtIndex(1, 1).get());
    EXPECT_EQ(list->editListWithBlocksPreceding(100, false)->blockCount(), 2u);
    EXPECT_EQ(list->editListWithBlocksPreceding(100, true)->blockCount(), 4u);
    EXPECT_EQ(list->editListWithBlocksFollowing(100, false)->blockCount(), 1u);
    // A range cut keeps the part inside, moved to frame 0, its source advanced.
    auto cut = list->editListFromRange({75, 50}, KXIndexSet{1});
    ASSERT_EQ(cut->numberOfChannels(), 1u);
    ASSERT_EQ(cut->blockCount(), 1u);
    EXPECT_EQ(cut->blockAtIndex(0, 0)->sampleRange(), (KXSampleRange{0, 50}));
    EXPECT_EQ(cut->blockAtIndex(0, 0)->sourceLocation(), 25u);
    list->mutableBlocksForChannel(0)[1]->setSampleRange({90, 110});
    EXPECT_TRUE(list->hasLocalOverlap());
    EXPECT_EQ(list->crossfadeLengthForBlock(*list->blockAtIndex(1, 0)), 10u);

    // Copies leave selection behind.
    EXPECT_EQ(list->copy()->selectedState(), 0);
    list->deselectBlocks();
    EXPECT_EQ(list->copy()->state(), list->state());
    auto restored = KXEditList::editList();
    restored->setState(list->state());
    EXPECT_EQ(restored->state(), list->state());
    auto decoded = std::dynamic_pointer_cast<KXEditList>(KXDecoder::unarchiveObjectWithData(
        KXCoder::archivedDataWithRootObject(*list), KXEditList::archiveObjectForClassName));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->state(), list->state());
    // An archive with another class where a block belongs is damaged.
    KXCoder coder;
    coder.encodeObject(list.get());
    KXData bytes = coder.data();
    EXPECT_EQ(KXDecoder::unarchiveObjectWithData(bytes, [](const std::string&) { return KXEditList::editList(); }),
              nullptr);

    list->moveChannels(KXIndexSet{1}, 0);
    EXPECT_EQ(list->blockAtIndex(1, 0)->startSample(), 50u);
    list->duplicateChannelAtIndex(0);
    EXPECT_EQ(list->numberOfChannels(), 3u);
    list->removeChannelAtIndex(0);
    EXPECT_EQ(list->numberOfChannels(), 2u);
}

TEST(KXEditListRendering, ChannelsMixTheirBlocksAndEmptyChannelsAreSilent) {
    KXTemporaryFolder folder;
    const std::string path = KXTestSamples::writeFile(folder, "stereo.raw", 2, 3000, 44);
    auto file = KXAudioFile::audioFile();
    file->setPath(path);
    file->setNumberOfChannels(2);
    file->setFrames(3000);
    file->setDepth(16);
    file->setRate(44100);
    file->setIsInterleaved(true);
    file->setEncoding(KXFourCC("lpcm"));
    file->setAudioDataByteOrder(1);
    file->setUpAudioConverter();
    auto list = KXEditList::editListWithAudioFile(*file, 44);
    ASSERT_EQ(list->numberOfChannels(), 2u);
    EXPECT_EQ(list->blockAtIndex(0, 1)->sourceChannel(), 1u);
    EXPECT_EQ(list->blockAtIndex(0, 1)->sourceTotalChannels(), 2u);

    KXNativeAudioBuffer buffer(3, 1000);
    buffer.channel(2)[5] = 1.0f;
    list->fillBuffer(buffer, {2500, 1000}, *file->fileConverter());
    for (std::uint32_t i = 0; i < 1000; ++i) {
        const std::uint32_t frame = 2500 + i;
        ASSERT_EQ(buffer.channel(0)[i], frame < 3000 ? KXTestSamples::sample(frame, 0) : 0.0f) << i;
        ASSERT_EQ(buffer.channel(1)[i], frame < 3000 ? KXTestSamples::sample(frame, 1) : 0.0f) << i;
        ASSERT_EQ(buffer.channel(2)[i], 0.0f);
    }
    // A second block on channel 0 mixes in: the channel is no longer rendered in place.
    auto echo = list->blockAtIndex(0, 0)->copy();
    echo->setSampleRange({2600, 100});
    echo->setSourceLocation(0);
    list->mutableBlocksForChannel(0).push_back(echo);
    list->fillBuffer(buffer, {2500, 1000}, *file->fileConverter());
    EXPECT_EQ(buffer.channel(0)[150], KXTestSamples::sample(2650, 0) + KXTestSamples::sample(50, 0));
    EXPECT_EQ(buffer.channel(0)[99], KXTestSamples::sample(2599, 0));
}

TEST(KXEditListRendering, TheWholeChannelIsClearedNotOnlyTheFramesRendered) {
    KXTemporaryFolder folder;
    auto file = KXAudioFile::audioFile();
    file->setPath(KXTestSamples::writeFile(folder, "mono.raw", 1, 3000, 0));
    file->setNumberOfChannels(1);
    file->setFrames(3000);
    file->setDepth(16);
    file->setRate(44100);
    file->setIsInterleaved(true);
    file->setEncoding(KXFourCC("lpcm"));
    file->setAudioDataByteOrder(KXByteOrderLittleValue);
    file->setUpAudioConverter();
    auto list = KXEditList::editListWithAudioFile(*file, 0);
    KXNativeAudioBuffer buffer(1, 1000);
    for (const bool lone : {true, false}) {
        if (!lone) {
            auto second = list->blockAtIndex(0, 0)->copy();
            second->setSampleRange({0, 10});
            list->mutableBlocksForChannel(0).push_back(second);
        }
        std::fill_n(buffer.channel(0), buffer.capacity(), 1.0f);
        list->fillBuffer(buffer, {0, 100}, *file->fileConverter());
        EXPECT_EQ(buffer.channel(0)[99], KXTestSamples::sample(99, 0)) << lone;
        for (std::uint32_t i = 100; i < buffer.capacity(); ++i) ASSERT_EQ(buffer.channel(0)[i], 0.0f) << i << " " << lone;
    }
}

TEST(KXEditListPaths, TessaroHeaderOfAPartFile) {
    EXPECT_EQ(KXEditList::tessaroHeaderPathFromAudioPath("a/Song_0003.aif"), "a/Song.info");
    EXPECT_EQ(KXEditList::tessaroHeaderPathFromAudioPath("a/Song_003.aif"), "a/Song_003.info");
    EXPECT_EQ(KXEditList::tessaroHeaderPathFromAudioPath("a/Take_12ab.wav"), "a/Take_12ab.info");
    EXPECT_EQ(KXEditList::tessaroHeaderPathFromAudioPath("a/Mix_0001_L.aif"), "a/Mix.info");
    EXPECT_EQ(KXEditList::tessaroHeaderPathFromAudioPath("Mix.wav"), "Mix.info");
    EXPECT_EQ(KXEditList::tessaroHeaderPathFromAudioPath("/Mix_0001.wav"), "/Mix.info");
    KXTemporaryFolder folder;
    folder.write("Song.info", bytesOf("<plist/>"));
    EXPECT_TRUE(KXEditList::isTessaroAudioPath(folder.pathFor("Song_0002.aif")));
    EXPECT_FALSE(KXEditList::isTessaroAudioPath(folder.pathFor("Other_0002.aif")));
}
