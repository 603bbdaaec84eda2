#pragma once
// KXChannelsList: the channels of an audio file, in channel order, with how alike they are
// (the difference): 0 for identical signs, about 100 for unrelated signals, negative values
// approaching 0 from below as the channels become exact inversions, and −2.0 when there was
// nothing to compare (one channel, or a partial pass).
//
// A full analysis pass counts clipped samples: beginAnalysis(false) starts every channel's count
// at 0. A partial pass leaves the counts unset (−1), so its channels are half analysed.

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "KXAudioFile/KXChannels/KXChannel.h"
#include "KXBase/KXIndexSet.h"

class KXChannelsList : public KXCoding {
public:
    static constexpr float kNoDifference = -2.0f;

    KXChannelsList() = default;
    ~KXChannelsList() override = default;
    static std::shared_ptr<KXChannelsList> channelsList() { return std::make_shared<KXChannelsList>(); }
    static std::shared_ptr<KXChannelsList> channelsListWithChannelCount(std::uint32_t count);
    // Channels named after a layout, each with its abbreviation as file-name extension too.
    static std::shared_ptr<KXChannelsList> channelsListWithSplitFileExtensions(const std::string& layout);
    // A deep copy (initWithChannelsList:).
    std::shared_ptr<KXChannelsList> copy() const;

    std::uint32_t count() const { return std::uint32_t(list_.size()); }
    std::shared_ptr<KXChannel> channel(std::uint32_t index) const;
    const std::vector<std::shared_ptr<KXChannel>>& list() const { return list_; }

    // --- Editing the channels
    // A channel "New Channel", abbreviated "N"; an index past the end appends.
    void addChannelAtIndex(std::uint32_t index);
    // A copy named "<name> copy" right after the channel.
    void duplicateChannelAtIndex(std::uint32_t index);
    void removeChannelAtIndex(std::uint32_t index);
    // Takes the channels out, in their order, and puts them back before the channel that was at
    // `index` (or at the end when that channel moves too or the index is past the end).
    void moveChannels(const KXIndexSet& channels, std::uint32_t index);
    void removeAllChannels() { list_.clear(); }

    // --- Analysis
    void beginAnalysis(bool partial);
    // Room in every overview table for `frames` frames, allocated at once (a hint).
    void reserveAnalysisFrames(std::uint64_t frames);
    // Every channel enabled in the buffer analyses it; with several channels the signs are
    // compared frame by frame for the difference.
    void analyzeBuffer(const KXNativeAudioBuffer& buffer);
    void endAnalysis();
    // 1 every channel analysed (also for no channels), 0 none, −1 anything between.
    int analysisState() const;
    void removeAnalysisForChannels(const KXIndexSet& channels);
    void removeAnalysis();

    // --- Statistics
    // The largest max of the channels (−1.0 when none is analysed).
    float maxOfChannels(const KXIndexSet& channels) const;
    // The power mean of the channels' RMS: the square root of the mean of their squares.
    float rmsOfChannels(const KXIndexSet& channels) const;
    float max() const { return maxOfChannels(allChannels()); }
    float rms() const { return rmsOfChannels(allChannels()); }
    // The clipped samples of all channels; −1 for an empty list.
    std::int32_t clip() const;
    float difference() const { return difference_; }
    void setDifference(float difference) { difference_ = difference; }

    // --- Overviews
    bool hasWaveforms() const;
    std::vector<KXWaveformArray> waveforms() const;
    bool hasWaveformsOfType(std::int32_t type) const;
    KXWaveformArray waveformsForType(std::int32_t type) const;
    // Gives the i-th overview to channel i.
    void addWaveforms(const KXWaveformArray& waveforms);

    // --- Names
    bool hasNames() const;
    // The layout's names and abbreviations; without a layout "Channel N" and "N".
    void loadDefaultNamesForFormat(std::uint32_t format);
    std::optional<std::string> bundleExtensionForFormat(std::uint32_t format) const;

    // --- Speakers (the WAVE channel mask)
    // Gives the channels the mask's speakers in bit order (the channels past them none). When
    // the mask names every channel, the channels take the names of the channel count's WAVE
    // layout when it is that layout's mask, else the speakers' names and abbreviations.
    void setSpeakerMask(std::uint32_t mask);
    // The same for speakers in any order (each a single mask bit), one a channel from the
    // first: channels named in another order than a mask's are named by their speakers too.
    void setSpeakers(std::span<const std::uint32_t> speakers);
    // The channels' speakers as a mask: 0 unless every channel has one and they rise in
    // channel order, as a WAVE file must list them.
    std::uint32_t speakerMask() const;

    // --- State: the channels' state dictionaries, in order.
    KXArray state() const;
    void setState(const KXArray& state);

    // Archive: the channels, then the difference.
    std::string archiveClassName() const override { return "KXChannelsList"; }
    void encodeWithCoder(KXCoder& coder) const override;
    void initWithCoder(KXDecoder& decoder) override;
    // Makes the channel, list and overview classes named in archives.
    static std::shared_ptr<KXCoding> archiveObjectForClassName(const std::string& name);

private:
    KXIndexSet allChannels() const { return KXIndexSet::indexSetWithIndexesInRange(0, count()); }

    std::vector<std::shared_ptr<KXChannel>> list_;
    float difference_ = kNoDifference;
    double aSignProductAccumulator_ = 0;
    std::optional<KXSampleRange> aRange_;
    std::uint64_t aFrames_ = 0;
    std::vector<std::uint16_t> negatives_;  // the channels' sign bits of the buffer being analysed
};
