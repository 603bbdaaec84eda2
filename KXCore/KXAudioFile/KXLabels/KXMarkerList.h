#pragma once
// KXMarkerList: markers, with IDs and default names "Marker N" (N one more than the largest
// number that ends a marker name).

#include "KXAudioFile/KXLabels/KXLabelList.h"
#include "KXAudioFile/KXLabels/KXMarker.h"

class KXMarkerList : public KXLabelList {
public:
    KXMarkerList() : KXLabelList(KXMarker::labelClass()) {}
    static std::shared_ptr<KXMarkerList> markerList() { return std::make_shared<KXMarkerList>(); }
    std::string archiveClassName() const override { return "KXMarkerList"; }

    // nullptr past the end or for a label of another kind.
    std::shared_ptr<KXMarker> markerAtIndex(std::size_t index) const;
    std::uint32_t nextMarkerID() const { return nextLabelID(); }
    std::shared_ptr<KXMarker> markerWithID(std::uint32_t markerID) const;
    void removeMarkerWithID(std::uint32_t markerID);

    // Each refuses (nullptr) a negative position; a missing name becomes the default name.
    std::shared_ptr<KXMarker> addMarkerWithID(std::uint32_t markerID, double position,
                                              std::optional<std::string> name);
    std::shared_ptr<KXMarker> addMarkerWithID(std::uint32_t markerID, double position);
    std::shared_ptr<KXMarker> addMarkerWithPosition(double position, std::optional<std::string> name);

    // Skips spans; appends markers as they are; turns other points into markers with their ID,
    // position, name and lock.
    void addLabels(const KXLabelList& other) override;

protected:
    std::shared_ptr<KXLabelList> makeEmpty() const override { return markerList(); }
};
