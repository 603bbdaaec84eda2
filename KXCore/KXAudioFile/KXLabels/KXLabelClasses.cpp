// The table of label classes: lookups by type and by name, and the archive's class resolver.

#include <memory>

#include "KXAudioFile/KXLabels/KXIndexList.h"
#include "KXAudioFile/KXLabels/KXLoopList.h"
#include "KXAudioFile/KXLabels/KXMarkerList.h"
#include "KXAudioFile/KXLabels/KXRegionList.h"
#include "KXAudioFile/KXLabels/KXSliceList.h"
#include "KXAudioFile/KXLabels/KXTrackList.h"

namespace {

const KXLabelClass* const* labelClasses() {
    static const KXLabelClass* const kClasses[] = {
        &KXMarker::labelClass(), &KXSlice::labelClass(), &KXRegion::labelClass(), &KXLoop::labelClass(),
        &KXTrack::labelClass(),  &KXIndex::labelClass(), &KXLabel::labelClass(),  &KXRangeLabel::labelClass(),
        nullptr,
    };
    return kClasses;
}

struct ListClass {
    const char* name;
    std::shared_ptr<KXLabelList> (*make)();
};
constexpr ListClass kListClasses[] = {
    {"KXLabelList", [] { return KXLabelList::labelList(); }},
    {"KXMarkerList", [] { return std::shared_ptr<KXLabelList>(KXMarkerList::markerList()); }},
    {"KXSliceList", [] { return std::shared_ptr<KXLabelList>(KXSliceList::sliceList()); }},
    {"KXIndexList", [] { return std::shared_ptr<KXLabelList>(KXIndexList::indexList()); }},
    {"KXRegionList", [] { return std::shared_ptr<KXLabelList>(KXRegionList::regionList()); }},
    {"KXLoopList", [] { return std::shared_ptr<KXLabelList>(KXLoopList::loopList()); }},
    {"KXTrackList", [] { return std::shared_ptr<KXLabelList>(KXTrackList::trackList()); }},
};

}  // namespace

const KXLabelClass* KXLabel::labelClassForType(std::int32_t type) {
    if (type < 0) return nullptr;  // the base classes answer -1 but are no kind
    for (const KXLabelClass* const* c = labelClasses(); *c; ++c)
        if ((*c)->type == type) return *c;
    return nullptr;
}

const KXLabelClass* KXLabel::labelClassNamed(const std::string& name) {
    for (const KXLabelClass* const* c = labelClasses(); *c; ++c)
        if (name == (*c)->name) return *c;
    return nullptr;
}

std::shared_ptr<KXCoding> KXLabelList::archiveObjectForClassName(const std::string& name) {
    if (const KXLabelClass* labelClass = KXLabel::labelClassNamed(name)) return labelClass->make();
    for (const ListClass& list : kListClasses)
        if (name == list.name) return list.make();
    return nullptr;
}
