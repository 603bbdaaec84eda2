// The point kinds: markers, slices and CD indexes.

#include <cmath>

#include "KXAudioFile/KXLabels/KXIndex.h"
#include "KXAudioFile/KXLabels/KXMarker.h"
#include "KXAudioFile/KXLabels/KXSlice.h"

const KXLabelClass& KXMarker::labelClass() {
    static const KXLabelClass kClass{"KXMarker", 0, "Marker", &KXMakeLabel<KXMarker>};
    return kClass;
}

KXArray KXMarker::details() const {
    KXArray rows = KXLabel::details();
    rows.push_back(detail("position", "Position", true));
    rows.push_back(detail("name", "Name", true));
    return rows;
}

const KXLabelClass& KXSlice::labelClass() {
    static const KXLabelClass kClass{"KXSlice", 1, "Slice", &KXMakeLabel<KXSlice>};
    return kClass;
}

KXArray KXSlice::details() const {
    KXArray rows = KXLabel::details();
    rows.push_back(detail("position", "Position", true));
    return rows;
}

double KXCDFrameTime(double seconds) {
    return std::round(seconds * KXIndex::kCDFramesPerSecond) / KXIndex::kCDFramesPerSecond;
}

std::uint32_t KXCDFrame(double seconds) {
    return std::uint32_t(std::lround(seconds * KXIndex::kCDFramesPerSecond));
}

const KXLabelClass& KXIndex::labelClass() {
    static const KXLabelClass kClass{"KXIndex", 5, "Index", &KXMakeLabel<KXIndex>};
    return kClass;
}

void KXIndex::setPosition(double position) { KXLabel::setPosition(KXCDFrameTime(position)); }

std::uint32_t KXIndex::frame() const { return KXCDFrame(position_); }

KXArray KXIndex::details() const {
    KXArray rows = KXLabel::details();
    rows.push_back(detail("position", "Position", true));
    return rows;
}
