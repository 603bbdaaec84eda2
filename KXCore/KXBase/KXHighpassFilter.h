#pragma once
// KXHighpassFilter: the second-order high-pass KXBiquadFilter.

#include "KXBase/KXBiquadFilter.h"

class KXHighpassFilter : public KXBiquadFilter {
public:
    KXHighpassFilter() : KXBiquadFilter(Response::highpass) {}
};
