#include <gtest/gtest.h>

#include "KXAudioFile/KXLabels/KXIndex.h"
#include "KXAudioFile/KXLabels/KXLoop.h"
#include "KXAudioFile/KXLabels/KXMarker.h"
#include "KXAudioFile/KXLabels/KXRegion.h"
#include "KXAudioFile/KXLabels/KXSlice.h"
#include "KXAudioFile/KXLabels/KXTrack.h"

TEST(KXLabelPosition, SnapsWithinOneSamplePeriodAt192kHzOfZero) {
    auto marker = KXMarker::marker();
    struct Case {
        double given, stored;
    } cases[] = {{0.000005, 0.0}, {0.0000053, 0.0000053}, {-0.000004, 0.0}, {-0.5, -0.5}, {1.0 / 192000, 0.0}};
    for (const Case& c : cases) {
        marker->setPosition(c.given);
        EXPECT_EQ(marker->position(), c.stored) << c.given;
    }
    auto region = KXRegion::region();
    region->setStart(0.000001);
    region->setEnd(0.000001);  // the end is stored as given
    EXPECT_EQ(region->start(), 0.0);
    EXPECT_EQ(region->end(), 0.000001);
}

TEST(KXLabelKinds, TypesKindsAndClassLookup) {
    struct Case {
        std::int32_t type;
        const char* kind;
        std::shared_ptr<KXLabel> label;
    } cases[] = {
        {0, "Marker", KXMarker::marker()}, {1, "Slice", KXSlice::slice()}, {2, "Region", KXRegion::region()},
        {3, "Loop", KXLoop::loop()},       {4, "Track", KXTrack::track()}, {5, "Index", KXIndex::index()},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.label->type(), c.type);
        EXPECT_EQ(c.label->kind(), c.kind);
        ASSERT_TRUE(KXLabel::labelClassForType(c.type));
        EXPECT_EQ(KXLabel::labelClassForType(c.type)->make()->kind(), c.kind);
    }
    EXPECT_EQ(KXLabel::label()->type(), -1);
    EXPECT_EQ(KXLabel::label()->kind(), "Label");
    EXPECT_FALSE(KXLabel::labelClassForType(6));
    EXPECT_FALSE(KXLabel::labelClassForType(-1));
    EXPECT_EQ(KXLabel::labelClassNamed("KXRegion"), &KXRegion::labelClass());
    EXPECT_FALSE(KXLabel::labelClassNamed("KXNothing"));
}

TEST(KXLabelRanges, WithinIntersectsAndParts) {
    auto region = KXRegion::region();
    region->setRange(KXRange::rangeWithStart(1, 5));
    EXPECT_TRUE(region->isWithinRange(KXRange::rangeWithStart(0, 6)));
    EXPECT_FALSE(region->isWithinRange(KXRange::rangeWithStart(2, 6)));
    EXPECT_TRUE(region->intersectsRange(KXRange::rangeWithStart(4, 6)));
    // A span that encloses the range with both ends outside does not intersect it.
    EXPECT_FALSE(region->intersectsRange(KXRange::rangeWithStart(2, 3)));
    EXPECT_TRUE(region->isAtPosition(5));
    EXPECT_EQ(region->positionForPart(1), 5);
    EXPECT_EQ(region->positionForPart(2), 0.0);
    region->setPosition(7, 1);
    region->setPosition(9, 2);  // no such part: nothing
    EXPECT_EQ(region->end(), 7);
    EXPECT_EQ(region->objectForIdentifier("Length").doubleValue(), 6);
    region->setObject(2.5, "length");
    EXPECT_EQ(region->end(), 3.5);
    EXPECT_EQ(KXRangeWithLabel(*region), KXRange::rangeWithLocation(1, 2.5));
    auto marker = KXMarker::marker();
    marker->setPosition(3);
    EXPECT_EQ(marker->positionForPart(7), 3);
    EXPECT_EQ(KXRangeWithLabel(*marker), KXRange::rangeWithLocation(3, 0));
    EXPECT_EQ(marker->description(), "<KXMarker : position = 3.000000>\n");
    EXPECT_EQ(region->description(), "<KXRegion : start = 1.000000 : end = 3.500000>\n");
}

TEST(KXLabelCDGrid, IndexesAndTracksKeepToSeventyFifths) {
    auto index = KXIndex::index();
    index->setPosition(1.0133);
    EXPECT_EQ(index->position(), 76.0 / 75.0);
    EXPECT_EQ(index->frame(), 76u);
    auto track = KXTrack::track();
    track->setRange(KXRange::rangeWithStart(2.0061, 4.0));
    EXPECT_EQ(track->startFrame(), 150u);
    EXPECT_EQ(track->endFrame(), 300u);
    EXPECT_EQ(track->lengthInFrames(), 150u);
    track->setIsrc("USABC1234567");
    EXPECT_EQ(track->isrcAsData()->size(), 12u);
    track->setIsrc("USABC1234567890");
    EXPECT_EQ(track->isrcAsData()->size(), 13u);
    track->setIsrc("");
    EXPECT_FALSE(track->isrcAsData());
    EXPECT_FALSE(track->hasCDText());
    track->setOther("private");  // does not count
    EXPECT_FALSE(track->hasCDText());
    track->setArranger("A. Arranger");
    EXPECT_TRUE(track->hasCDText());
}

TEST(KXLabelNames, KindsWithoutNames) {
    auto slice = KXSlice::slice();
    slice->setName("ignored");
    EXPECT_FALSE(slice->name());
    auto loop = KXLoop::loop();
    loop->setState({{"Name", "ignored"}, {"Start Name", "Intro"}});
    EXPECT_EQ(loop->name(), "Intro");  // only "Start Name" reaches a loop
    EXPECT_FALSE(loop->copy()->name());
}

TEST(KXLabelState, KeysAliasesAndRoundTrip) {
    auto marker = KXMarker::marker();
    marker->setState({{"Position", 2.5}, {"ID", 7}, {"Name", "Verse"}, {"Lock", true}, {"Selected", true}});
    EXPECT_EQ(marker->position(), 2.5);
    EXPECT_EQ(marker->labelID(), 7u);
    EXPECT_EQ(marker->name(), "Verse");
    EXPECT_TRUE(marker->locked());
    EXPECT_FALSE(marker->selected());  // "selected" has no alias
    marker->setState({{"position", 3.0}});  // absent keys keep their values
    EXPECT_EQ(marker->labelID(), 7u);
    EXPECT_EQ(marker->state().keys(), (std::vector<std::string>{"class", "position", "id", "locked", "selected", "name"}));
    EXPECT_EQ(marker->state().objectForKey("class").string(), "KXMarker");

    auto region = KXRegion::region();
    region->setState({{"Start", 1.0}, {"End", 2.0}, {"Sync Frame", 44}, {"Time Stamp MS", 1}, {"Time Stamp LS", 2}});
    EXPECT_EQ(region->timeStamp(), 0x0000000100000002ull);
    region->setState({{"Time Stamp LS", 4}});  // OR-ed, not assigned
    EXPECT_EQ(region->timeStamp(), 0x0000000100000006ull);
    EXPECT_EQ(region->sync(), 44u);
    EXPECT_EQ(region->state().keys(),
              (std::vector<std::string>{"class", "start", "end", "id", "locked", "syncFrame", "timeStamp"}));
    auto restored = KXRegion::region();
    restored->setState(region->state());
    EXPECT_EQ(restored->state(), region->state());

    auto loop = KXLoop::loop();
    loop->setState({{"Type", "Forward-Backward"}});
    EXPECT_EQ(loop->loopType(), KXLoop::kForwardBackward);
    loop->setState({{"Type", "Sideways"}});  // unknown: unchanged
    EXPECT_EQ(loop->loopType(), KXLoop::kForwardBackward);
    loop->setState({{"type", 2}, {"playback", true}, {"crossfadeLength", 0.25}});
    EXPECT_EQ(loop->loopType(), KXLoop::kBackward);
    EXPECT_TRUE(loop->playback());
    loop->setState({{"Type", "None"}});
    EXPECT_EQ(loop->loopType(), KXLoop::kNone);

    auto track = KXTrack::track();
    track->setState({{"performer", "P"}, {"Performer", "ignored alias"}, {"scms", true}});
    EXPECT_EQ(track->performer(), "P");
    EXPECT_FALSE(track->state().contains("composer"));  // a missing string leaves its key out
    EXPECT_TRUE(track->state().objectForKey("scms").boolValue());
}

TEST(KXLabelDetails, RowsAppendToTheirBase) {
    auto keys = [](const KXArray& rows) {
        std::vector<std::string> all;
        for (const KXValue& row : rows) all.push_back(row.dictionary().objectForKey("key").string());
        return all;
    };
    EXPECT_EQ(keys(KXMarker::marker()->details()), (std::vector<std::string>{"locked", "id", "position", "name"}));
    EXPECT_EQ(keys(KXLoop::loop()->details()), (std::vector<std::string>{"locked", "id", "start", "end", "type"}));
    EXPECT_EQ(KXTrack::track()->details().size(), 15u);
    EXPECT_FALSE(KXMarker::marker()->details()[1].dictionary().objectForKey("editable").boolValue());
    EXPECT_EQ(KXLoop::loop()->details()[4].dictionary().objectForKey("title").string(), "Playback Type");
}

TEST(KXLabelCopy, EachKindCopiesWhatItShould) {
    auto region = KXRegion::region();
    region->setRange(KXRange::rangeWithStart(1, 2));
    region->setLabelID(3);
    region->setName("R");
    region->setSync(9);
    region->select();
    auto regionCopy = std::dynamic_pointer_cast<KXRegion>(region->copy());
    ASSERT_TRUE(regionCopy);
    EXPECT_EQ(regionCopy->state(), region->state());
    EXPECT_FALSE(regionCopy->selected());

    auto loop = KXLoop::loop();
    loop->setLoopType(KXLoop::kBackward);
    loop->setPlayback(true);
    loop->setCrossfadeEnabled(true);
    auto loopCopy = std::dynamic_pointer_cast<KXLoop>(loop->copy());
    EXPECT_EQ(loopCopy->loopType(), KXLoop::kBackward);
    EXPECT_FALSE(loopCopy->playback());
    EXPECT_FALSE(loopCopy->isCrossfadeEnabled());

    auto track = KXTrack::track();
    track->setRange(KXRange::rangeWithStart(1, 2));
    track->setLabelID(4);
    track->setName("Song");
    track->setIsrc("X");
    track->setLocked(true);
    auto trackCopy = std::dynamic_pointer_cast<KXTrack>(track->copy());
    EXPECT_EQ(trackCopy->end(), 2);
    EXPECT_TRUE(trackCopy->locked());
    EXPECT_EQ(trackCopy->labelID(), 0u);
    EXPECT_FALSE(trackCopy->name());
    EXPECT_FALSE(trackCopy->isrc());
}
