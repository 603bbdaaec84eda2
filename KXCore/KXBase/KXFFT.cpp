#include "KXBase/KXFFT.h"

#include <kissfft/kiss_fftr.h>

#include <cmath>
#include <numbers>

struct KXFFT::Plan {
    kiss_fftr_cfg config = nullptr;
    std::vector<kiss_fft_cpx> bins;
    ~Plan() { kiss_fftr_free(config); }
};

KXFFT::KXFFT(std::uint32_t size) : size_(size), window_(size), work_(size), plan_(std::make_unique<Plan>()) {
    for (std::uint32_t i = 0; i < size; ++i)
        window_[i] = float(0.5 * (1.0 - std::cos(2.0 * std::numbers::pi * double(i) / double(size))));
    plan_->config = kiss_fftr_alloc(int(size), 0, nullptr, nullptr);
    plan_->bins.resize(size / 2 + 1);
}

KXFFT::~KXFFT() = default;

void KXFFT::addWindowedMagnitudes(const float* samples, float* magnitudes) {
    for (std::uint32_t i = 0; i < size_; ++i) work_[i] = samples[i] * window_[i];
    kiss_fftr(plan_->config, work_.data(), plan_->bins.data());
    for (std::uint32_t k = 0; k < size_ / 2; ++k)
        magnitudes[k] += std::sqrt(plan_->bins[k].r * plan_->bins[k].r + plan_->bins[k].i * plan_->bins[k].i);
}
