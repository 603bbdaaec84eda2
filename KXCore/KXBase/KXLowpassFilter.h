#pragma once
// KXLowpassFilter: the second-order low-pass KXBiquadFilter.

#include "KXBase/KXBiquadFilter.h"

class KXLowpassFilter : public KXBiquadFilter {
public:
    KXLowpassFilter() : KXBiquadFilter(Response::lowpass) {}
};
