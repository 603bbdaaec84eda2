#include <gtest/gtest.h>

#include "KXAudioFile/KXLabels/KXIndexList.h"
#include "KXAudioFile/KXLabels/KXLoopList.h"
#include "KXAudioFile/KXLabels/KXMarkerList.h"
#include "KXAudioFile/KXLabels/KXRegionList.h"
#include "KXAudioFile/KXLabels/KXSliceList.h"
#include "KXAudioFile/KXLabels/KXTrackList.h"

namespace {

std::shared_ptr<KXMarkerList> markersAt(std::initializer_list<double> positions) {
    auto list = KXMarkerList::markerList();
    for (double p : positions) list->addMarkerWithPosition(p, std::nullopt);
    return list;
}

std::vector<double> positionsOf(const KXLabelList& list) {
    std::vector<double> all;
    for (const auto& label : list.list()) all.push_back(label->position());
    return all;
}

}  // namespace

TEST(KXLabelListQueries, NearestAfterBeforeFirstLast) {
    auto list = markersAt({4, 6});
    EXPECT_EQ(list->positionNearestTo(5), 4);  // a tie keeps the earlier label
    list->markerAtIndex(0)->setModifying(true);
    EXPECT_EQ(list->positionNearestTo(5), 6);
    EXPECT_EQ(list->positionAfter(4.5), 6);    // after and before do not skip modified labels
    EXPECT_EQ(list->positionBefore(5.5), 4);
    EXPECT_EQ(list->positionAfter(6), -1.0);
    EXPECT_EQ(KXMarkerList().positionNearestTo(5), -1.0);
    EXPECT_EQ(KXMarkerList().firstPosition(), 0.0);

    auto regions = KXRegionList::regionList();
    regions->addRegionWithRange(KXRange::rangeWithStart(2, 9), std::nullopt);
    regions->addRegionWithRange(KXRange::rangeWithStart(1, 3), std::nullopt);
    EXPECT_EQ(regions->firstPosition(), 1);
    EXPECT_EQ(regions->lastPosition(), 9);
    EXPECT_EQ(regions->positionNearestTo(8.9), 9);  // span ends count
    EXPECT_EQ(regions->positionBefore(2.5), 2);
    EXPECT_EQ(markersAt({-3})->lastPosition(), 0.0);
    KXLabelArray within;
    regions->addLabelsInRange(KXRange::rangeWithStart(0, 5), within);
    EXPECT_EQ(within.size(), 1u);
}

TEST(KXLabelListEditing, ShiftKeepsZeroAndLockedLabels) {
    auto list = markersAt({0.0, 0.1, 2.0});
    list->markerAtIndex(2)->setLocked(true);
    list->shift(1.0);
    EXPECT_EQ(positionsOf(*list), (std::vector<double>{0.0, 1.1, 2.0}));
}

TEST(KXLabelListEditing, ScaleShiftsWhatWasScaledPastTheEnd) {
    // Factor 2 over [1, 2): 1.6 → 2.2, past the end, then 2.2 and 3 shift by the 1 s the range grew.
    auto list = markersAt({1.6, 3.0, 0.5});
    list->scale(2.0f, KXRange::rangeWithStart(1, 2));
    EXPECT_EQ(positionsOf(*list)[2], 0.5);
    EXPECT_DOUBLE_EQ(positionsOf(*list)[0], 3.2);
    EXPECT_EQ(positionsOf(*list)[1], 4.0);
    // A label scaled exactly onto the end is not strictly after it and stays.
    auto onEnd = markersAt({1.5});
    onEnd->scale(2.0f, KXRange::rangeWithStart(1, 2));
    EXPECT_EQ(positionsOf(*onEnd)[0], 2.0);
    auto everything = markersAt({1.0, 2.0});
    everything->scale(0.5f);
    EXPECT_EQ(positionsOf(*everything), (std::vector<double>{0.5, 1.0}));
}

TEST(KXLabelListEditing, ReverseTurnsSpansRound) {
    auto regions = KXRegionList::regionList();
    auto region = regions->addRegionWithRange(KXRange::rangeWithStart(1, 2), std::nullopt);
    regions->reverseRange(KXRange::rangeWithStart(0, 4));
    EXPECT_EQ(region->start(), 2);
    EXPECT_EQ(region->end(), 3);
}

TEST(KXLabelListEditing, RemovalsKeepTheSurvivorsOrder) {
    auto list = markersAt({1, 2, 1, 3, 1});
    list->removeDuplicates();
    EXPECT_EQ(positionsOf(*list), (std::vector<double>{1, 2, 3}));
    EXPECT_EQ(list->markerAtIndex(0)->name(), "Marker 1");  // the earlier label survives
    list->cropRange(KXRange::rangeWithStart(1.5, 3));
    EXPECT_EQ(positionsOf(*list), (std::vector<double>{2, 3}));
    list->removeAtPosition(3);
    EXPECT_EQ(positionsOf(*list), (std::vector<double>{2}));

    auto regions = KXRegionList::regionList();
    regions->addRegionWithRange(KXRange::rangeWithStart(1, 5), "enclosing");
    regions->addRegionWithRange(KXRange::rangeWithStart(3, 6), "overlapping");
    regions->addRegionWithRange(KXRange::rangeWithStart(1, 5), "same span");
    regions->addRegionWithRange(KXRange::rangeWithStart(1, 4), "same start");
    regions->removeDuplicates();
    EXPECT_EQ(regions->count(), 3u);
    regions->removeRange(KXRange::rangeWithStart(2, 3.5));
    ASSERT_EQ(regions->count(), 2u);  // the enclosing span does not intersect the range
    EXPECT_EQ(regions->regionAtIndex(0)->name(), "enclosing");
}

TEST(KXLabelListSelection, StateRangeShiftAndFront) {
    auto list = markersAt({1, 2, 3});
    EXPECT_EQ(KXMarkerList().selectedState(), 0);
    EXPECT_EQ(list->selectedState(), 0);
    EXPECT_FALSE(list->selectedRange());
    list->markerAtIndex(2)->select();
    EXPECT_EQ(list->selectedState(), -1);
    list->markerAtIndex(0)->select();
    EXPECT_EQ(list->selectedRange(), KXRange::rangeWithStart(1, 3));
    list->markerAtIndex(0)->setLocked(true);
    list->shiftSelected(0.5);  // locks do not count here
    EXPECT_EQ(positionsOf(*list), (std::vector<double>{1.5, 2, 3.5}));
    list->bringSelectedToFront();
    EXPECT_EQ(positionsOf(*list), (std::vector<double>{1.5, 3.5, 2}));
    list->selectAllLabels();
    EXPECT_EQ(list->selectedState(), 1);
    EXPECT_EQ(list->numberOfSelectedLabels(), 3u);
    list->deselectAllLabels();
    list->markerAtIndex(1)->select();
    list->removeSelectedLabels();
    EXPECT_EQ(positionsOf(*list), (std::vector<double>{1.5, 2}));
}

TEST(KXLabelListSort, ByIdentifierKeepsEqualKeysInOrder) {
    auto list = KXMarkerList::markerList();
    list->addMarkerWithID(1, 3.0, "c");
    list->addMarkerWithID(2, 1.0, "b");
    list->addMarkerWithID(3, 3.0, "a");
    list->sortBy("position");
    EXPECT_EQ(list->markerAtIndex(0)->labelID(), 2u);
    EXPECT_EQ(list->markerAtIndex(1)->labelID(), 1u);
    EXPECT_EQ(list->markerAtIndex(2)->labelID(), 3u);
    list->sortBy("name");
    EXPECT_EQ(list->markerAtIndex(0)->name(), "a");
}

TEST(KXLabelListKinds, DefaultNamesAndIDs) {
    auto markers = KXMarkerList::markerList();
    EXPECT_EQ(markers->addMarkerWithPosition(0, std::nullopt)->name(), "Marker 1");
    markers->removeAllLabels();
    for (const char* name : {"Marker 2", "Intro", "Verse 7", "A1"}) markers->addMarkerWithPosition(1, name);
    EXPECT_EQ(markers->addMarkerWithPosition(2, std::nullopt)->name(), "Marker 8");

    auto ids = KXMarkerList::markerList();
    for (std::uint32_t id : {1u, 2u, 4u}) ids->addMarkerWithID(id, 0);
    EXPECT_EQ(ids->addMarkerWithPosition(0, "x")->labelID(), 3u);
    EXPECT_EQ(ids->nextMarkerID(), 5u);
    ids->addMarkerWithID(2, 9.0, "twin");  // IDs need not be unique: lookups find the earlier
    EXPECT_EQ(ids->markerWithID(2)->position(), 0.0);
    ids->removeMarkerWithID(2);
    EXPECT_EQ(ids->markerWithID(2)->name(), "twin");

    auto regions = KXRegionList::regionList();
    regions->addRegionWithRange(KXRange::rangeWithStart(0, 1), "Region 3");
    regions->addRegionWithRange(KXRange::rangeWithStart(0, 1), "Other");
    EXPECT_EQ(regions->addRegionWithRange(KXRange::rangeWithStart(0, 1), std::nullopt)->name(), "Region 3");

    auto tracks = KXTrackList::trackList();
    EXPECT_EQ(tracks->addTrackWithRange(KXRange::rangeWithStart(0, 1))->name(), "Track 01");
    while (tracks->count() < 99) ASSERT_TRUE(tracks->addTrackWithRange(KXRange::rangeWithStart(0, 1)));
    EXPECT_EQ(tracks->trackAtIndex(98)->name(), "Track 99");
    EXPECT_FALSE(tracks->addTrackWithName("one too many", KXRange::rangeWithStart(0, 1)));
    EXPECT_EQ(tracks->count(), 99u);
}

TEST(KXLabelListKinds, NegativePositionsAreRefused) {
    EXPECT_FALSE(KXMarkerList().addMarkerWithPosition(-0.5, "m"));
    EXPECT_FALSE(KXSliceList().addSliceWithPosition(-1));
    EXPECT_FALSE(KXIndexList().addIndexWithPosition(-1));
    KXRegionList regions;
    EXPECT_FALSE(regions.addRegionWithRange(KXRange::rangeWithStart(-1, 2), "r"));
    EXPECT_EQ(regions.count(), 0u);
    EXPECT_FALSE(KXLoopList().addLoopWithType(0, KXRange::rangeWithStart(-1, 2)));
    EXPECT_FALSE(KXTrackList().addTrackWithRange(KXRange::rangeWithStart(-1, 2)));
}

TEST(KXLabelListKinds, LoopsAndConversions) {
    auto loops = KXLoopList::loopList();
    auto markers = markersAt({1, 3});
    auto fromMarkers = loops->addLoopWithType(KXLoop::kBackward, *markers->markerAtIndex(0), *markers->markerAtIndex(1));
    EXPECT_EQ(fromMarkers->range(), KXRange::rangeWithStart(1, 3));
    EXPECT_FALSE(fromMarkers->name());  // the name call has no effect on a loop
    loops->addLoopWithLength(2)->setLoopType(KXLoop::kNone);
    EXPECT_EQ(loops->loopAtIndex(1)->labelID(), 2u);
    EXPECT_EQ(loops->countValid(), 1u);
    EXPECT_FALSE(loops->playbackLoop());
    loops->loopAtIndex(1)->setPlayback(true);
    EXPECT_EQ(loops->playbackLoop(), loops->loopAtIndex(1));

    auto regions = KXRegionList::regionList();
    regions->addLabels(*loops);  // spans become regions with their ID and range
    regions->addLabels(*markers);  // points are skipped
    ASSERT_EQ(regions->count(), 2u);
    EXPECT_EQ(regions->regionAtIndex(0)->range(), KXRange::rangeWithStart(1, 3));
    EXPECT_EQ(regions->regionAtIndex(0)->labelID(), 1u);

    auto slices = KXSliceList::sliceList();
    slices->addSliceWithPosition(0.5)->setLocked(true);
    auto more = KXMarkerList::markerList();
    more->addLabels(*slices);
    more->addLabels(*regions);
    ASSERT_EQ(more->count(), 1u);
    EXPECT_TRUE(more->markerAtIndex(0)->locked());
    EXPECT_EQ(more->markerAtIndex(0)->owner(), more.get());
}

TEST(KXLabelListState, RestoredLabelsTakeTheListsOwnClass) {
    auto markers = markersAt({1, 2});
    auto restored = KXMarkerList::markerList();
    restored->setState(markers->state());
    ASSERT_EQ(restored->count(), 2u);
    EXPECT_TRUE(restored->markerAtIndex(1));  // "class" is written, "Class" is read
    EXPECT_EQ(restored->markerAtIndex(1)->name(), "Marker 2");
    EXPECT_EQ(restored->markerAtIndex(1)->owner(), restored.get());
    // A "Class" entry picks the class.
    restored->appendState({KXDictionary{{"Class", "KXIndex"}, {"position", 1.0133}}});
    EXPECT_EQ(restored->labelAtIndex(2)->kind(), "Index");
    EXPECT_EQ(restored->labelAtIndex(2)->position(), 76.0 / 75.0);
    // A copy of a list copies its labels.
    auto copy = std::dynamic_pointer_cast<KXMarkerList>(markers->copy());
    ASSERT_TRUE(copy);
    copy->markerAtIndex(0)->setPosition(9);
    EXPECT_EQ(markers->markerAtIndex(0)->position(), 1);
    EXPECT_EQ(markers->description(), "KXMarkerList : 2 items\n<KXMarker : position = 1.000000>\n"
                                      "<KXMarker : position = 2.000000>\n");
}
