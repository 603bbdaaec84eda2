#pragma once
// KXFFT: the real transform of a fixed even size (KissFFT's real FFT) with the Hann window, for
// the magnitude spectra that the statistics report and the pitch estimate sum up.
//
// Window: the unnormalised Hann window w[i] = 0.5 × (1 − cos(2πi / size)), i = 0 … size − 1.
// Magnitudes: |X[k]| = sqrt(re² + im²) of bins k = 0 … size/2 − 1 of the unscaled transform
// (the Nyquist bin is left out; bin 0 is the DC term alone).

#include <cstdint>
#include <memory>
#include <vector>

class KXFFT {
public:
    explicit KXFFT(std::uint32_t size);
    ~KXFFT();
    KXFFT(const KXFFT&) = delete;
    KXFFT& operator=(const KXFFT&) = delete;

    std::uint32_t size() const { return size_; }
    const std::vector<float>& window() const { return window_; }
    // Windows size() `samples`, transforms them and adds each bin's magnitude to `magnitudes`
    // (size() / 2 of them).
    void addWindowedMagnitudes(const float* samples, float* magnitudes);

private:
    struct Plan;
    std::uint32_t size_;
    std::vector<float> window_;
    std::vector<float> work_;
    std::unique_ptr<Plan> plan_;
};
