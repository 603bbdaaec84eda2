#include <gtest/gtest.h>

#include "KXAudioFile/KXEditList/KXEditList.h"

namespace {

std::shared_ptr<KXEditBlock> blockAt(std::uint32_t location, std::uint32_t length, std::uint64_t sourceLocation = 0) {
    auto b = KXEditBlock::editBlock();
    b->setSourcePath("/source.raw");
    b->setSourceTotalChannels(1);
    b->setSampleRange({location, length});
    b->setSourceLocation(sourceLocation);
    return b;
}

// Each block of a channel as (start, length, source location).
std::vector<std::array<std::uint64_t, 3>> layout(const KXEditList& list, std::uint32_t channel) {
    std::vector<std::array<std::uint64_t, 3>> out;
    for (const auto& b : list.blocksForChannel(channel))
        out.push_back({b->startSample(), b->sampleRange().length, b->sourceLocation()});
    return out;
}

using Layout = std::vector<std::array<std::uint64_t, 3>>;

}  // namespace

TEST(KXEditBlockEditing, SplittingKeepsTheSourceFrameAtEachFrameAndDropsTheCutSidesFades) {
    auto block = blockAt(1000, 500, 200);
    block->setStartFadeLength(30);
    block->setEndFadeLength(40);
    EXPECT_FALSE(block->splitAt(1000));
    EXPECT_FALSE(block->splitAt(1500));
    auto piece = block->splitAt(1200);
    ASSERT_TRUE(piece);
    EXPECT_EQ(block->sampleRange(), (KXSampleRange{1000, 200}));
    EXPECT_EQ(block->sourceLocation(), 200u);
    EXPECT_EQ(block->startFadeLength(), 30u);
    EXPECT_EQ(block->endFadeLength(), 0u);
    EXPECT_EQ(piece->sampleRange(), (KXSampleRange{1200, 300}));
    EXPECT_EQ(piece->originalRange(), (KXSampleRange{1200, 300}));
    EXPECT_EQ(piece->sourceLocation(), 400u);
    EXPECT_EQ(piece->startFadeLength(), 0u);
    EXPECT_EQ(piece->endFadeLength(), 40u);
    // Reversed, the earlier frames play the later source frames.
    auto reversed = blockAt(1000, 500, 200);
    reversed->setReverse(true);
    auto later = reversed->splitAt(1200);
    EXPECT_EQ(reversed->sourceLocation(), 500u);
    EXPECT_EQ(later->sourceLocation(), 200u);
    // A fade within the block leaves the material where it played.
    auto faded = blockAt(1000, 500, 200);
    faded->fadeWithin(100, 50);
    EXPECT_EQ(faded->sampleRange(), (KXSampleRange{1100, 350}));
    EXPECT_EQ(faded->sourceLocation(), 300u);
    EXPECT_EQ(faded->extent(), (KXSampleRange{1000, 500}));
}

TEST(KXEditListEditing, InsertingOpensAGapAndSilenceFillsIt) {
    auto list = KXEditList::editListWithChannelCount(2);
    list->addBlock(blockAt(0, 1000), 0);
    list->addBlock(blockAt(0, 1000), 1);
    list->insertSilence({400, 100}, KXIndexSet{0});
    EXPECT_EQ(layout(*list, 0), (Layout{{0, 400, 0}, {400, 100, 0}, {500, 600, 400}}));
    EXPECT_EQ(list->blockAtIndex(1, 0)->name(), "Silence");
    EXPECT_FALSE(list->blockAtIndex(1, 0)->sourcePath());
    EXPECT_EQ(layout(*list, 1), (Layout{{0, 1000, 0}}));  // the other channel is untouched
    EXPECT_EQ(list->length(), 1100u);
    // A block starting at the insertion point moves whole.
    list->insertRange({500, 10}, 0u);
    EXPECT_EQ(layout(*list, 0), (Layout{{0, 400, 0}, {400, 100, 0}, {510, 600, 400}}));
}

TEST(KXEditListEditing, RemovingCollapsingSplicingAndCropping) {
    const auto fresh = [] {
        auto list = KXEditList::editListWithChannelCount(1);
        list->addBlock(blockAt(0, 1000), 0);
        list->addBlock(blockAt(2000, 1000, 5000), 0);
        return list;
    };
    auto list = fresh();
    list->removeRange({500, 2000}, KXIndexSet{0}, false);
    EXPECT_EQ(layout(*list, 0), (Layout{{0, 500, 0}, {2500, 500, 5500}}));
    list = fresh();
    list->removeRange({500, 2000}, KXIndexSet{0}, true);
    EXPECT_EQ(layout(*list, 0), (Layout{{0, 500, 0}, {500, 500, 5500}}));
    // Collapsing closes only the silent gap.
    list = fresh();
    list->collapseRange({0, 3000}, KXIndexSet{0});
    EXPECT_EQ(layout(*list, 0), (Layout{{0, 1000, 0}, {1000, 1000, 5000}}));
    // A fade counts as playing.
    list = fresh();
    list->blockAtIndex(1, 0)->setStartFadeLength(300);
    list->collapseRange({0, 3000}, KXIndexSet{0});
    EXPECT_EQ(list->blockAtIndex(1, 0)->startSample(), 1300u);
    list = fresh();
    list->spliceRange({800, 1400}, KXIndexSet{0}, "Chorus");
    EXPECT_EQ(layout(*list, 0), (Layout{{0, 800, 0}, {800, 200, 800}, {2000, 200, 5000}, {2200, 800, 5200}}));
    EXPECT_EQ(list->blockAtIndex(1, 0)->name(), "Chorus");
    EXPECT_EQ(list->blockAtIndex(2, 0)->name(), "Chorus");
    EXPECT_EQ(list->blockAtIndex(3, 0)->name(), "Edit");
    list = fresh();
    list->blockAtIndex(1, 0)->setEndFadeLength(500);
    list->cropRange({900, 2300}, KXIndexSet{0}, false);
    EXPECT_EQ(layout(*list, 0), (Layout{{0, 100, 900}, {1100, 1000, 5000}}));
    EXPECT_EQ(list->blockAtIndex(1, 0)->endFadeLength(), 200u);  // cut at the range's end, 3200
    list = fresh();
    list->cropRange({900, 1200}, KXIndexSet{0}, true);
    EXPECT_EQ(layout(*list, 0), (Layout{{900, 100, 900}, {2000, 100, 5000}}));
}

TEST(KXEditListEditing, CopiesNameTheBlocksTheyCameFromAndListsInsertIntoChannels) {
    auto list = KXEditList::editListWithChannelCount(2);
    list->addBlock(blockAt(0, 100), 0);
    list->addBlock(blockAt(100, 100, 100), 0);
    list->addBlock(blockAt(200, 100, 200), 0);
    auto middle = list->editListForBlock(*list->blockAtIndex(1, 0), false);
    list->removeBlocksInEditList(*middle, true);
    EXPECT_EQ(layout(*list, 0), (Layout{{0, 100, 0}, {100, 100, 200}}));

    auto clip = KXEditList::editListWithChannelCount(1);
    clip->addBlock(blockAt(0, 50, 7000), 0);
    list->insertEditList(*clip, 100, KXIndexSet{0, 1});
    EXPECT_EQ(layout(*list, 0), (Layout{{0, 100, 0}, {100, 50, 7000}, {150, 100, 200}}));
    EXPECT_EQ(layout(*list, 1), (Layout{{100, 50, 7000}}));
    // Added blocks mix with what is there; equal starts keep their order.
    list->addEditList(*clip);
    EXPECT_EQ(layout(*list, 0), (Layout{{0, 100, 0}, {0, 50, 7000}, {100, 50, 7000}, {150, 100, 200}}));
}
