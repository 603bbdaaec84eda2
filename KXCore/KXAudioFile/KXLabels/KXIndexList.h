#pragma once
// KXIndexList: CD indexes, without IDs or names.

#include "KXAudioFile/KXLabels/KXIndex.h"
#include "KXAudioFile/KXLabels/KXLabelList.h"

class KXIndexList : public KXLabelList {
public:
    KXIndexList() : KXLabelList(KXIndex::labelClass()) {}
    static std::shared_ptr<KXIndexList> indexList() { return std::make_shared<KXIndexList>(); }
    std::string archiveClassName() const override { return "KXIndexList"; }

    std::shared_ptr<KXIndex> indexAtIndex(std::size_t index) const;
    // Refuses (nullptr) a negative position.
    std::shared_ptr<KXIndex> addIndexWithPosition(double position);

protected:
    std::shared_ptr<KXLabelList> makeEmpty() const override { return indexList(); }
};
