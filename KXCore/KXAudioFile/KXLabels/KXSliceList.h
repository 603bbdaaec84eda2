#pragma once
// KXSliceList: slices, without IDs or names.

#include "KXAudioFile/KXLabels/KXLabelList.h"
#include "KXAudioFile/KXLabels/KXSlice.h"

class KXSliceList : public KXLabelList {
public:
    KXSliceList() : KXLabelList(KXSlice::labelClass()) {}
    static std::shared_ptr<KXSliceList> sliceList() { return std::make_shared<KXSliceList>(); }
    std::string archiveClassName() const override { return "KXSliceList"; }

    std::shared_ptr<KXSlice> sliceAtIndex(std::size_t index) const;
    // Refuses (nullptr) a negative position.
    std::shared_ptr<KXSlice> addSliceWithPosition(double position);

protected:
    std::shared_ptr<KXLabelList> makeEmpty() const override { return sliceList(); }
};
