#pragma once
// KXTrackList: CD tracks, at most 99, with IDs and default names "Track NN" (NN one more than
// the largest number that ends a track name, in two digits).

#include "KXAudioFile/KXLabels/KXLabelList.h"
#include "KXAudioFile/KXLabels/KXTrack.h"

class KXTrackList : public KXLabelList {
public:
    static constexpr std::size_t kMaximumTracks = 99;

    KXTrackList() : KXLabelList(KXTrack::labelClass()) {}
    static std::shared_ptr<KXTrackList> trackList() { return std::make_shared<KXTrackList>(); }
    std::string archiveClassName() const override { return "KXTrackList"; }

    std::shared_ptr<KXTrack> trackAtIndex(std::size_t index) const;
    std::uint32_t nextTrackID() const { return nextLabelID(); }
    std::shared_ptr<KXTrack> trackWithID(std::uint32_t trackID) const;

    // Each refuses (nullptr) a negative location, and a 100th track.
    std::shared_ptr<KXTrack> addTrackWithID(std::uint32_t trackID, const KXRange& range,
                                            std::optional<std::string> name);
    std::shared_ptr<KXTrack> addTrackWithRange(const KXRange& range);
    std::shared_ptr<KXTrack> addTrackWithName(std::optional<std::string> name, const KXRange& range);

    bool hasCDText() const;

protected:
    std::shared_ptr<KXLabelList> makeEmpty() const override { return trackList(); }
};
