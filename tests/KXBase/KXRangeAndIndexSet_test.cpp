#include <gtest/gtest.h>

#include "KXBase/KXIndexSet.h"
#include "KXBase/KXRange.h"

TEST(KXRange, SecondsAndFramesAtARate) {
    KXRange range = KXRange::rangeWithStart(1.0, 2.5);
    EXPECT_EQ(range.length(), 1.5);
    EXPECT_EQ(range.sampleStart(), 0u);  // no rate yet
    range.setRate(48000);
    EXPECT_EQ(range.sampleStart(), 48000u);
    EXPECT_EQ(range.sampleEnd(), 120000u);
    EXPECT_EQ(range.sampleRange(), (KXSampleRange{48000, 72000}));
    range.setSampleEnd(96000);
    EXPECT_EQ(range.end(), 2.0);
    range.setSampleLocation(24000);
    EXPECT_EQ(range.start(), 0.5);
    EXPECT_EQ(range.end(), 2.0);  // the end stays
    // Frames round to nearest.
    EXPECT_EQ(KXRange::rangeWithLocation(1.0 / 44100 * 10.6, 0).sampleStart(), 0u);
    KXRange rounding = KXRange::rangeWithLocation(10.6 / 44100, 0);
    rounding.setRate(44100);
    EXPECT_EQ(rounding.sampleStart(), 11u);
    const KXRange exact = KXRange::rangeWithSampleStart(100, 300, 100);
    EXPECT_EQ(exact.start(), 1.0);
    EXPECT_EQ(exact.end(), 3.0);
}

TEST(KXRange, InclusionUnionAndAllTime) {
    const KXRange range = KXRange::rangeWithLocation(2, 0);
    EXPECT_TRUE(range.includesLocation(2));  // both ends are inside
    EXPECT_FALSE(range.includesLocation(2.0001));
    KXRange grown = KXRange::rangeWithStart(1, 2);
    grown.includeRange(KXRange::rangeWithStart(4, 5));
    EXPECT_EQ(grown, KXRange::rangeWithStart(1, 5));
    EXPECT_TRUE(grown.intersectsRange(KXRange::rangeWithStart(5, 6)));
    EXPECT_FALSE(grown.intersectsRange(KXRange::rangeWithStart(5.5, 6)));
    KXRange all = KXRange::rangeWithAllTime();
    EXPECT_TRUE(all.isAllTime());
    EXPECT_TRUE(all.includesLocation(0));
    EXPECT_TRUE(all.includesLocation(1e300));
    EXPECT_FALSE(all.includesLocation(-1));
    all.setRate(44100);
    EXPECT_EQ(all.sampleStart(), 0u);
    EXPECT_EQ(all.sampleEnd(), 0xFFFFFFFFu);
}

TEST(KXIndexSet, RunsMergeSplitAndEnumerate) {
    KXIndexSet set = KXIndexSet::indexSetWithIndexesInRange(0, 4);
    set.addIndex(6);
    set.addIndex(5);
    set.addIndex(4);  // joins the two runs
    EXPECT_EQ(set.indexes(), (std::vector<std::uint32_t>{0, 1, 2, 3, 4, 5, 6}));
    set.removeIndex(3);
    EXPECT_FALSE(set.containsIndex(3));
    EXPECT_TRUE(set.containsIndex(4));
    EXPECT_EQ(set.count(), 6u);
    EXPECT_EQ(set.firstIndex(), 0u);
    EXPECT_EQ(set.lastIndex(), 6u);
    EXPECT_EQ(set.indexGreaterThanIndex(2), 4u);
    EXPECT_FALSE(set.indexGreaterThanIndex(6));
    EXPECT_TRUE(set.containsIndexes(KXIndexSet{0, 5}));
    EXPECT_FALSE(set.containsIndexes(KXIndexSet{3}));

    KXIndexSet huge = KXIndexSet::indexSetWithIndexesInRange(0xFFFFFFF0u, 100);  // clamps at the top
    EXPECT_EQ(huge.count(), 16u);
    EXPECT_EQ(huge.lastIndex(), 0xFFFFFFFFu);
    EXPECT_TRUE(KXIndexSet().empty());
    EXPECT_FALSE(KXIndexSet().firstIndex());
}
