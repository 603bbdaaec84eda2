#pragma once
// KXBiquadFilter: a second-order low- or high-pass filter (the audio-EQ cookbook's biquads),
// applied in place to every channel of a KXNativeAudioBuffer, each channel keeping its state
// between calls so that consecutive buffers filter as one signal.
//
// Bandwidth is in octaves between the −3 dB points, as the cookbook defines it for shelving and
// pass filters (Q = 1 / (2 sinh(ln 2 / 2 × bandwidth × w0 / sin w0))); a filter whose bandwidth was
// never set is a Butterworth filter (Q = 1/√2). An inactive filter passes its input unchanged.
// Changing a setting keeps the state.

#include <cstdint>
#include <vector>

#include "KXBase/KXNativeAudioBuffer.h"

class KXBiquadFilter {
public:
    virtual ~KXBiquadFilter() = default;

    bool isActive() const { return active_; }
    void setActive(bool active) { active_ = active; }
    double sampleRate() const { return sampleRate_; }
    void setSampleRate(double rate);
    float frequency() const { return frequency_; }
    void setFrequency(float frequency);
    float bandwidth() const { return bandwidth_; }
    void setBandwidth(float octaves);

    // Filters the buffer's frames in place, every channel.
    void filter(KXNativeAudioBuffer& buffer);

protected:
    enum class Response { lowpass, highpass };
    explicit KXBiquadFilter(Response response) : response_(response) { updateCoefficients(); }

private:
    void updateCoefficients();

    struct State {
        double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
    };
    Response response_;
    bool active_ = false;
    double sampleRate_ = 44100;
    float frequency_ = 1000;
    float bandwidth_ = 0;  // 0: Butterworth
    double b0_ = 1, b1_ = 0, b2_ = 0, a1_ = 0, a2_ = 0;
    std::vector<State> states_;
};
