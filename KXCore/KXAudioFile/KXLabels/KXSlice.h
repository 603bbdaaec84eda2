#pragma once
// KXSlice: an unnamed point where a loop is cut (type 1, "Slice"). Slices take no name.

#include "KXAudioFile/KXLabels/KXLabel.h"

class KXSlice : public KXLabel {
public:
    static const KXLabelClass& labelClass();
    const KXLabelClass& classOfLabel() const override { return labelClass(); }
    static std::shared_ptr<KXSlice> slice() { return std::make_shared<KXSlice>(); }
    // Deliberately does nothing.
    void setName(std::optional<std::string>) override {}
    KXArray details() const override;
};
