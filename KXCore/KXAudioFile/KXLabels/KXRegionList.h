#pragma once
// KXRegionList: regions, with IDs and default names "Region N" (N one more than the number of
// regions already in the list).

#include "KXAudioFile/KXLabels/KXLabelList.h"
#include "KXAudioFile/KXLabels/KXRegion.h"

class KXRegionList : public KXLabelList {
public:
    KXRegionList() : KXLabelList(KXRegion::labelClass()) {}
    static std::shared_ptr<KXRegionList> regionList() { return std::make_shared<KXRegionList>(); }
    std::string archiveClassName() const override { return "KXRegionList"; }

    std::shared_ptr<KXRegion> regionAtIndex(std::size_t index) const;
    std::uint32_t nextRegionID() const { return nextLabelID(); }
    std::shared_ptr<KXRegion> regionWithID(std::uint32_t regionID) const;

    // Each refuses (nullptr) a range whose location is negative.
    std::shared_ptr<KXRegion> addRegionWithID(std::uint32_t regionID, const KXRange& range, std::uint32_t sync,
                                              std::uint64_t timeStamp, std::optional<std::string> name);
    std::shared_ptr<KXRegion> addRegionWithID(std::uint32_t regionID, const KXRange& range);
    std::shared_ptr<KXRegion> addRegionWithRange(const KXRange& range, std::optional<std::string> name);
    std::shared_ptr<KXRegion> addRegionWithRange(const KXRange& range, std::uint32_t sync, std::uint64_t timeStamp,
                                                 std::optional<std::string> name);
    // From the first label's position to the second's.
    std::shared_ptr<KXRegion> addRegionWithStartMarker(const KXLabel& start, const KXLabel& end,
                                                       std::optional<std::string> name);

    // Skips points; appends regions as they are; turns other spans into regions with their ID,
    // range, name and lock.
    void addLabels(const KXLabelList& other) override;

protected:
    std::shared_ptr<KXLabelList> makeEmpty() const override { return regionList(); }
};
