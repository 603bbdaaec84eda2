#pragma once
// KXChannel: one channel of an audio file — its name, abbreviation and file-name extension, its
// statistics (largest magnitude, clipped-sample count, RMS) and its three waveform overviews.
//
// Not analysed: max −1.0, clipped −1, rms NaN. An analysis pass (beginAnalysis, analyzeBuffer
// for every buffer, endAnalysis) or setState() with stored analysis fills them.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "KXAudioFile/KXChannels/KXWaveform.h"
#include "KXBase/KXValue.h"

using KXWaveformArray = std::vector<std::shared_ptr<KXWaveform>>;

class KXChannel : public KXCoding {
public:
    // A sample at or above this magnitude counts towards clipping.
    static constexpr float kClipLevel = 0.99996948242f;
    // Samples in a row at the clip level before the next ones count as clipped.
    static constexpr std::uint32_t kClipRunAllowed = 2;

    // No statistics; one empty overview of each kind: maximum, RMS, mean.
    KXChannel();
    ~KXChannel() override = default;
    static std::shared_ptr<KXChannel> channel() { return std::make_shared<KXChannel>(); }
    static std::shared_ptr<KXChannel> channelWithState(const KXDictionary& state);
    // A deep copy: the overviews are copied too.
    std::shared_ptr<KXChannel> copy() const;

    const std::string& name() const { return name_; }
    void setName(std::string name) { name_ = std::move(name); }
    const std::string& abbreviation() const { return abbreviation_; }
    void setAbbreviation(std::string abbreviation) { abbreviation_ = std::move(abbreviation); }
    const std::string& extension() const { return extension_; }
    void setExtension(std::string extension) { extension_ = std::move(extension); }
    // The WAVE speaker of the channel as its channel-mask bit (a single bit), 0 when unknown.
    std::uint32_t speaker() const { return speaker_; }
    void setSpeaker(std::uint32_t speaker) { speaker_ = speaker; }
    float max() const { return max_; }
    void setMax(float max) { max_ = max; }
    std::int32_t clipped() const { return clipped_; }
    void setClipped(std::int32_t clipped) { clipped_ = clipped; }
    float rms() const { return rms_; }
    void setRMS(float rms) { rms_ = rms; }

    const KXWaveformArray& waveforms() const { return waveforms_; }
    // 0 maximum, 1 RMS, 2 mean; nullptr for any other type.
    std::shared_ptr<KXWaveform> waveformForType(std::int32_t type) const;
    // Replaces the overview of the same kind (or adds it).
    void addWaveform(std::shared_ptr<KXWaveform> waveform);

    // A partial pass cannot complete the maximum and the RMS: their accumulators become NaN.
    // Clipped samples are counted only when the count is started (startClipCount).
    void beginAnalysis(bool partial);
    void startClipCount() { aClipped_ = 0; }
    // With `negatives`, the sign bits of the channel's samples in the buffer are written there as
    // KXVector::negativeBits gives them, from the same pass, when the pass can: answers whether
    // they were (not for a buffer that starts inside an overview entry).
    bool analyzeBuffer(const KXNativeAudioBuffer& buffer, std::uint32_t channel, std::uint16_t* negatives = nullptr);
    void endAnalysis();
    // 1 analysed (max and clipped both hold values), −1 half, 0 not analysed.
    int analysisState() const;
    void removeAnalysis();

    // "Name", "Abbreviation", "Extension", "Max", "Clipped", "RMS", and the tables as data under
    // "Magnitude Maxima", "Root Mean Squares", "Magnitude Means" (when the overview has one).
    KXDictionary state() const;
    // Sets the keys present; a table becomes a new overview of its kind.
    void setState(const KXDictionary& state);

    // Archive: name, abbreviation, extension, max, clipped, rms, then the overviews.
    std::string archiveClassName() const override { return "KXChannel"; }
    void encodeWithCoder(KXCoder& coder) const override;
    void initWithCoder(KXDecoder& decoder) override;

private:
    std::string name_, abbreviation_, extension_;
    std::uint32_t speaker_ = 0;
    float max_ = -1.0f;
    std::int32_t clipped_ = -1;
    float rms_;
    KXWaveformArray waveforms_;
    // The running pass. Sums are kept in double: a long file's mean square loses too much in float.
    double aMax_ = 0;
    double aSumOfSquares_ = 0;
    std::int32_t aClipped_ = -1;
    std::optional<KXSampleRange> aRange_;
    std::uint64_t aFrames_ = 0;
};

// The frames a pass covered: the first non-empty buffer range, joined with later ones; a buffer
// without a file position adds its frame count.
void KXGrowAnalysisRange(std::optional<KXSampleRange>& range, std::uint64_t& extraFrames,
                         const KXNativeAudioBuffer& buffer);
