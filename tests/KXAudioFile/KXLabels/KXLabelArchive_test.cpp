#include <gtest/gtest.h>

#include "KXAudioFile/KXLabels/KXLoopList.h"
#include "KXAudioFile/KXLabels/KXMarkerList.h"
#include "KXAudioFile/KXLabels/KXRegionList.h"

namespace {

template <typename T>
std::shared_ptr<T> roundTrip(const KXCoding& object, KXError* error = nullptr) {
    const KXData archive = KXCoder::archivedDataWithRootObject(object);
    return std::dynamic_pointer_cast<T>(
        KXDecoder::unarchiveObjectWithData(archive, &KXLabelList::archiveObjectForClassName, error));
}

}  // namespace

TEST(KXLabelArchive, PointLabelsKeepPositionIDNameLockAndModifyingNotSelection) {
    auto marker = KXMarker::marker();
    marker->setPosition(1.25);
    marker->setLabelID(3);
    marker->setName("Chorus");
    marker->setLocked(true);
    marker->setModifying(true);
    marker->select();
    auto back = roundTrip<KXMarker>(*marker);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->position(), 1.25);
    EXPECT_EQ(back->labelID(), 3u);
    EXPECT_EQ(back->name(), "Chorus");
    EXPECT_TRUE(back->locked());
    EXPECT_TRUE(back->modifying());
    EXPECT_FALSE(back->selected());
}

TEST(KXLabelArchive, SpansLoseTheirIDAndName) {
    auto region = KXRegion::region();
    region->setRange(KXRange::rangeWithStart(1, 2));
    region->setLabelID(4);
    region->setName("R");
    region->setSync(100);
    region->setTimeStamp(1ull << 40);
    region->setModifying(true);
    auto back = roundTrip<KXRegion>(*region);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->end(), 2);
    EXPECT_TRUE(back->modifying());
    EXPECT_EQ(back->sync(), 100u);
    EXPECT_EQ(back->timeStamp(), 1ull << 40);
    EXPECT_EQ(back->labelID(), 0u);
    EXPECT_FALSE(back->name());

    auto loop = KXLoop::loop();
    loop->setLoopType(KXLoop::kBackward);
    loop->setCrossfadeEnabled(true);
    loop->setCrossfadeLength(0.125);
    loop->setCrossfadeCurve(0.5f);
    loop->setPlayback(true);
    auto loopBack = roundTrip<KXLoop>(*loop);
    ASSERT_TRUE(loopBack);
    EXPECT_EQ(loopBack->loopType(), KXLoop::kBackward);
    EXPECT_TRUE(loopBack->isCrossfadeEnabled());
    EXPECT_EQ(loopBack->crossfadeLength(), 0.125);
    EXPECT_EQ(loopBack->crossfadeCurve(), 0.5f);
    EXPECT_FALSE(loopBack->playback());  // not archived
}

TEST(KXLabelArchive, ListsKeepTheirClassAndTakeTheirLabels) {
    auto list = KXMarkerList::markerList();
    list->addMarkerWithPosition(1, "a");
    list->addMarkerWithPosition(2, std::nullopt);
    auto back = roundTrip<KXMarkerList>(*list);
    ASSERT_TRUE(back);
    ASSERT_EQ(back->count(), 2u);
    EXPECT_EQ(back->markerAtIndex(1)->name(), "Marker 1");  // "a" ends in no number
    EXPECT_EQ(back->markerAtIndex(0)->owner(), back.get());
}

TEST(KXLabelArchive, DamagedArchivesGiveAnErrorAtEveryCut) {
    auto list = KXRegionList::regionList();
    list->addRegionWithRange(KXRange::rangeWithStart(1, 2), 5, 6, "r");
    list->addRegionWithRange(KXRange::rangeWithStart(3, 4), "s");
    const KXData archive = KXCoder::archivedDataWithRootObject(*list);
    for (std::size_t cut = 0; cut < archive.size(); ++cut) {
        KXError error;
        const KXData truncated(archive.begin(), archive.begin() + std::ptrdiff_t(cut));
        EXPECT_FALSE(KXDecoder::unarchiveObjectWithData(truncated, &KXLabelList::archiveObjectForClassName, &error));
        EXPECT_EQ(error.domain(), KXCoderErrorDomain) << cut;
    }
    // Every single-byte change either still decodes or is refused; none may crash.
    for (std::size_t at = 0; at < archive.size(); ++at) {
        KXData changed = archive;
        changed[at] ^= 0xFF;
        KXDecoder::unarchiveObjectWithData(changed, &KXLabelList::archiveObjectForClassName);
    }
    // A list that holds something other than labels, and an unknown class, are refused.
    KXCoder coder;
    coder.encodeObject(list.get());
    KXData withList = coder.data();
    KXCoder nested;
    auto outer = KXMarkerList::markerList();
    nested.encodeObject(outer.get());
    EXPECT_TRUE(KXDecoder::unarchiveObjectWithData(nested.data(), &KXLabelList::archiveObjectForClassName));
    EXPECT_FALSE(KXDecoder::unarchiveObjectWithData(withList, [](const std::string&) { return nullptr; }));
    KXData trailing = withList;
    trailing.push_back('d');
    EXPECT_FALSE(KXDecoder::unarchiveObjectWithData(trailing, &KXLabelList::archiveObjectForClassName));
}
