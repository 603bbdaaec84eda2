#pragma once
// The instructions of KXAudioFile's processing operations (KXAudioFile_Process.cpp). Each field
// carries the name of its key; an absent field takes the default the operation names.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "KXBase/KXIndexSet.h"
#include "KXBase/KXRange.h"

// The frames an operation works on: "start" (0) to "end" (the file's frame count, exclusive), or
// "range" in seconds at the file's rate in place of both.
struct KXFrameSelection {
    std::optional<std::uint32_t> start, end;
    std::optional<KXRange> range;
};

// Frames and channels: "channels" (the file's channels) go to the writer's channels 0, 1 … in
// ascending order; channels the file does not have are left out.
struct KXProcessSelection : KXFrameSelection {
    std::optional<KXIndexSet> channels;
};

// changeAmplitude: "gain", a linear factor (1.0).
struct KXAmplitudeInstructions : KXProcessSelection {
    std::optional<float> gain;
};

// fade (through an automation entry): "startValue" and "endValue" (0.0), "type" (the entry's
// control type, 0) and "controlPoints" ("{time, value}" with the time from 0 to 1 over the faded
// frames). Every channel is faded.
struct KXFadeInstructions : KXFrameSelection {
    std::optional<float> startValue, endValue;
    std::optional<std::int32_t> type;
    std::optional<std::vector<std::string>> controlPoints;
};

// convertRate: "rate" (frames a second of the result, required) and "quality".
struct KXRateInstructions : KXProcessSelection {
    enum class Quality { quick, low, medium, high, veryHigh };
    std::uint32_t rate = 0;
    // Very high is what sox's `rate -v` uses: a passband to 95 % of the lower Nyquist frequency
    // with 175 dB of stopband rejection; quick is a cubic interpolation.
    Quality quality = Quality::veryHigh;
};

// stretch: "factor" (the result's length over the selection's, 1.0) and "semitones" (a pitch
// change, 0.0), each without changing the other.
struct KXStretchInstructions : KXProcessSelection {
    double factor = 1.0;
    double semitones = 0.0;
};

// A channel matrix: row o gives output channel o as the weighted sum of the selected input
// channels (column i the weight of the i-th selected channel; missing columns weigh 0).
using KXChannelMatrix = std::vector<std::vector<float>>;
