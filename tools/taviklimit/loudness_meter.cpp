#include "loudness_meter.h"

#include <ebur128.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <stdexcept>

namespace taviklimit {

LoudnessMeter::LoudnessMeter(int channels, int rate)
    : state_(ebur128_init(static_cast<unsigned>(channels), static_cast<unsigned long>(rate),
                          EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK)),
      channels_(channels) {
    if (!state_) throw std::runtime_error("cannot measure loudness at this rate and layout");
}

LoudnessMeter::~LoudnessMeter() { ebur128_destroy(&state_); }

void LoudnessMeter::add(const double* frames, size_t count) {
    const auto t0 = std::chrono::steady_clock::now();
    const size_t n = count * static_cast<size_t>(channels_);
    const double* src = frames;
    if (!std::all_of(frames, frames + n, [](double x) { return std::isfinite(x); })) {
        finite_.assign(frames, frames + n);
        for (double& x : finite_) {
            if (!std::isfinite(x)) x = 0.0;
        }
        src = finite_.data();
    }
    ebur128_add_frames_double(state_, src, count);
    seconds_ += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

Loudness LoudnessMeter::result() const {
    Loudness r;
    ebur128_loudness_global(state_, &r.integrated_lufs);
    ebur128_loudness_range(state_, &r.range_lu);
    for (int c = 0; c < channels_; ++c) {
        double peak = 0.0;
        ebur128_true_peak(state_, static_cast<unsigned>(c), &peak);
        r.true_peak = std::max(r.true_peak, peak);
    }
    return r;
}

}  // namespace taviklimit
