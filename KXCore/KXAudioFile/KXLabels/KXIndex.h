#pragma once
// KXIndex: a CD index (type 5, "Index"), kept on the CD frame grid of 75 frames a second. Indexes
// take no name.

#include "KXAudioFile/KXLabels/KXLabel.h"

class KXIndex : public KXLabel {
public:
    static constexpr double kCDFramesPerSecond = 75.0;

    static const KXLabelClass& labelClass();
    const KXLabelClass& classOfLabel() const override { return labelClass(); }
    static std::shared_ptr<KXIndex> index() { return std::make_shared<KXIndex>(); }
    // Stores round(t × 75) / 75 (then snapped near zero like any position).
    void setPosition(double position) override;
    using KXLabel::setPosition;
    // Deliberately does nothing.
    void setName(std::optional<std::string>) override {}
    // The CD frame of the position.
    std::uint32_t frame() const;
    KXArray details() const override;
};

// Rounds seconds to the CD frame grid.
double KXCDFrameTime(double seconds);
// The CD frame number of a time (lround of t × 75).
std::uint32_t KXCDFrame(double seconds);
