#pragma once
// KXLoopList: loops, with IDs.

#include "KXAudioFile/KXLabels/KXLabelList.h"
#include "KXAudioFile/KXLabels/KXLoop.h"

class KXLoopList : public KXLabelList {
public:
    KXLoopList() : KXLabelList(KXLoop::labelClass()) {}
    static std::shared_ptr<KXLoopList> loopList() { return std::make_shared<KXLoopList>(); }
    std::string archiveClassName() const override { return "KXLoopList"; }

    std::shared_ptr<KXLoop> loopAtIndex(std::size_t index) const;
    std::uint32_t nextLoopID() const { return nextLabelID(); }
    std::shared_ptr<KXLoop> loopWithID(std::uint32_t loopID) const;

    // Each refuses (nullptr) a negative location. A name is accepted and has no effect: loops
    // take no name.
    std::shared_ptr<KXLoop> addLoopWithID(std::uint32_t loopID, std::uint32_t loopType, const KXRange& range,
                                          std::optional<std::string> name);
    std::shared_ptr<KXLoop> addLoopWithID(std::uint32_t loopID, std::uint32_t loopType, const KXRange& range);
    std::shared_ptr<KXLoop> addLoopWithType(std::uint32_t loopType, const KXRange& range);
    std::shared_ptr<KXLoop> addLoopWithType(std::uint32_t loopType, const KXRange& range,
                                            std::optional<std::string> name);
    // From the first label's position to the second's, named after the first.
    std::shared_ptr<KXLoop> addLoopWithType(std::uint32_t loopType, const KXLabel& start, const KXLabel& end);
    // A forward loop from 0.
    std::shared_ptr<KXLoop> addLoopWithLength(double length);

    // Loops whose type is not kNone.
    std::size_t countValid() const;
    // The first loop whose playback is set.
    std::shared_ptr<KXLoop> playbackLoop() const;

protected:
    std::shared_ptr<KXLabelList> makeEmpty() const override { return loopList(); }
};
