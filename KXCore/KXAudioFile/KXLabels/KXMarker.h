#pragma once
// KXMarker: a named point (type 0, "Marker").

#include "KXAudioFile/KXLabels/KXLabel.h"

class KXMarker : public KXLabel {
public:
    static const KXLabelClass& labelClass();
    const KXLabelClass& classOfLabel() const override { return labelClass(); }
    static std::shared_ptr<KXMarker> marker() { return std::make_shared<KXMarker>(); }
    KXArray details() const override;
};
