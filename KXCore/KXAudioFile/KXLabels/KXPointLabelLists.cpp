// The lists of the point kinds.

#include "KXAudioFile/KXLabels/KXIndexList.h"
#include "KXAudioFile/KXLabels/KXMarkerList.h"
#include "KXAudioFile/KXLabels/KXSliceList.h"

std::shared_ptr<KXMarker> KXMarkerList::markerAtIndex(std::size_t index) const {
    return std::dynamic_pointer_cast<KXMarker>(labelAtIndex(index));
}

std::shared_ptr<KXMarker> KXMarkerList::markerWithID(std::uint32_t markerID) const {
    return std::dynamic_pointer_cast<KXMarker>(labelWithID(markerID));
}

void KXMarkerList::removeMarkerWithID(std::uint32_t markerID) {
    if (auto marker = labelWithID(markerID)) removeLabel(marker.get());
}

std::shared_ptr<KXMarker> KXMarkerList::addMarkerWithID(std::uint32_t markerID, double position,
                                                        std::optional<std::string> name) {
    if (position < 0) return nullptr;
    if (!name) name = "Marker " + std::to_string(largestTrailingNumber() + 1);
    auto marker = KXMarker::marker();
    marker->setLabelID(markerID);
    marker->setPosition(position);
    marker->setName(std::move(name));
    addLabel(marker);
    return marker;
}

std::shared_ptr<KXMarker> KXMarkerList::addMarkerWithID(std::uint32_t markerID, double position) {
    return addMarkerWithID(markerID, position, std::nullopt);
}

std::shared_ptr<KXMarker> KXMarkerList::addMarkerWithPosition(double position, std::optional<std::string> name) {
    return addMarkerWithID(nextMarkerID(), position, std::move(name));
}

void KXMarkerList::addLabels(const KXLabelList& other) {
    const KXLabelArray labels = other.list();
    for (const auto& label : labels) {
        if (label->isRangeLabel()) continue;
        if (std::dynamic_pointer_cast<KXMarker>(label)) {
            addLabel(label);
            continue;
        }
        auto marker = KXMarker::marker();
        marker->setLabelID(label->labelID());
        marker->setPosition(label->position());
        marker->setName(label->name());
        marker->setLocked(label->locked());
        addLabel(std::move(marker));
    }
}

std::shared_ptr<KXSlice> KXSliceList::sliceAtIndex(std::size_t index) const {
    return std::dynamic_pointer_cast<KXSlice>(labelAtIndex(index));
}

std::shared_ptr<KXSlice> KXSliceList::addSliceWithPosition(double position) {
    if (position < 0) return nullptr;
    auto slice = KXSlice::slice();
    slice->setPosition(position);
    addLabel(slice);
    return slice;
}

std::shared_ptr<KXIndex> KXIndexList::indexAtIndex(std::size_t index) const {
    return std::dynamic_pointer_cast<KXIndex>(labelAtIndex(index));
}

std::shared_ptr<KXIndex> KXIndexList::addIndexWithPosition(double position) {
    if (position < 0) return nullptr;
    auto index = KXIndex::index();
    index->setPosition(position);
    addLabel(index);
    return index;
}
