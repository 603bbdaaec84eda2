#pragma once
// KXLoop: a loop span (type 3, "Loop") with a playback type and crossfade settings. Loops take
// no name through setName(); a name comes only from the state key "Start Name" or an archive.

#include "KXAudioFile/KXLabels/KXRangeLabel.h"

class KXLoop : public KXRangeLabel {
public:
    static constexpr std::uint32_t kForward = 0;
    static constexpr std::uint32_t kForwardBackward = 1;
    static constexpr std::uint32_t kBackward = 2;
    static constexpr std::uint32_t kNone = 0xFFFFFFFF;  // not a valid loop

    static const KXLabelClass& labelClass();
    const KXLabelClass& classOfLabel() const override { return labelClass(); }
    static std::shared_ptr<KXLoop> loop() { return std::make_shared<KXLoop>(); }
    // The span and the loop type only; playback and crossfade settings are not copied (deliberate).
    std::shared_ptr<KXLabel> copy() const override;
    // Deliberately does nothing.
    void setName(std::optional<std::string>) override {}

    std::uint32_t loopType() const { return loopType_; }
    void setLoopType(std::uint32_t loopType) { loopType_ = loopType; }
    bool playback() const { return playback_; }
    void setPlayback(bool playback) { playback_ = playback; }
    bool isCrossfadeEnabled() const { return crossfadeEnabled_; }
    void setCrossfadeEnabled(bool enabled) { crossfadeEnabled_ = enabled; }
    std::uint32_t crossfadeType() const { return crossfadeType_; }
    void setCrossfadeType(std::uint32_t type) { crossfadeType_ = type; }
    double crossfadeLength() const { return crossfadeLength_; }
    void setCrossfadeLength(double seconds) { crossfadeLength_ = seconds; }
    float crossfadeCurve() const { return crossfadeCurve_; }
    void setCrossfadeCurve(float curve) { crossfadeCurve_ = curve; }
    void clearCrossfade();

    // "Forward", "Forward-Backward", "Backward", "None"; nullopt for other values and names.
    static std::optional<std::string> nameForLoopType(std::uint32_t loopType);
    static std::optional<std::uint32_t> loopTypeForName(const std::string& name);

    KXDictionary state() const override;
    void setState(const KXDictionary& state) override;
    KXValue objectForIdentifier(const std::string& identifier) const override;
    void setObject(const KXValue& value, const std::string& identifier) override;
    KXArray details() const override;
    // Archive: the span's, then type and crossfade (enabled, type, length, curve); not playback.
    void encodeWithCoder(KXCoder& coder) const override;
    void initWithCoder(KXDecoder& decoder) override;

private:
    std::uint32_t loopType_ = kForward;
    bool playback_ = false;
    bool crossfadeEnabled_ = false;
    std::uint32_t crossfadeType_ = 0;
    double crossfadeLength_ = 0;
    float crossfadeCurve_ = 0;
};
