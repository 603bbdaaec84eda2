#include "KXBase/KXBiquadFilter.h"

#include <algorithm>
#include <cmath>
#include <numbers>

void KXBiquadFilter::setSampleRate(double rate) {
    sampleRate_ = rate;
    updateCoefficients();
}

void KXBiquadFilter::setFrequency(float frequency) {
    frequency_ = frequency;
    updateCoefficients();
}

void KXBiquadFilter::setBandwidth(float octaves) {
    bandwidth_ = octaves;
    updateCoefficients();
}

void KXBiquadFilter::updateCoefficients() {
    // A frequency at or past Nyquist, or a rate of nothing, leaves the signal as it is.
    if (!(sampleRate_ > 0) || !(frequency_ > 0) || frequency_ >= sampleRate_ / 2) {
        b0_ = 1, b1_ = b2_ = a1_ = a2_ = 0;
        return;
    }
    const double w0 = 2 * std::numbers::pi * double(frequency_) / sampleRate_;
    const double cosine = std::cos(w0), sine = std::sin(w0);
    const double alpha = bandwidth_ > 0 ? sine * std::sinh(std::numbers::ln2 / 2 * double(bandwidth_) * w0 / sine)
                                        : sine / std::numbers::sqrt2;  // sin w0 / 2Q, Q = 1/√2
    const double a0 = 1 + alpha;
    const double gain = response_ == Response::lowpass ? (1 - cosine) / 2 : (1 + cosine) / 2;
    b0_ = gain / a0;
    b1_ = (response_ == Response::lowpass ? 2 * gain : -2 * gain) / a0;
    b2_ = gain / a0;
    a1_ = -2 * cosine / a0;
    a2_ = (1 - alpha) / a0;
}

void KXBiquadFilter::filter(KXNativeAudioBuffer& buffer) {
    if (!active_) return;
    states_.resize(std::max<std::size_t>(states_.size(), buffer.numberOfChannels()));
    for (std::uint32_t c = 0; c < buffer.numberOfChannels(); ++c) {
        float* samples = buffer.channel(c);
        State& s = states_[c];
        for (std::uint32_t i = 0; i < buffer.frames(); ++i) {
            const double x = samples[i];
            const double y = b0_ * x + b1_ * s.x1 + b2_ * s.x2 - a1_ * s.y1 - a2_ * s.y2;
            s.x2 = s.x1, s.x1 = x, s.y2 = s.y1, s.y1 = y;
            samples[i] = float(y);
        }
    }
}
