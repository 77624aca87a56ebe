// The gain probe: reads the gain a limiter instance applies, frame by frame,
// from a second instance, stereo Q33.31, switched and fed in step with it.
//
// Each probe frame carries on its left the largest magnitude of the audio
// frame once widened to Q33.31 (by the library's copy kernels, so exactly as
// the audio instance sees it), on its right a constant 2^30, half of full
// scale, which never needs reduction. The gain of a block depends only on its
// largest magnitude (and every magnitude of 2^46 and more gets 0, so -2^63 may
// stand as 2^63 - 1), so the probe's gain follows the audio's and its right
// channel leaves scaled exactly as the audio: as gain * 2^15 once shifted
// right by 15, 32768 for a frame passed unscaled.
//
// Nothing here allocates: the caller owns the instance memory and buffers.
#pragma once

#include <taviklimiter.h>

#include <cstddef>
#include <cstdint>

namespace gain_probe {

constexpr int64_t kProbeWord = int64_t{1} << 30;  // 0.5 in Q33.31
constexpr int32_t kUnscaled = 32768;              // factor of a frame passed unscaled

// Opens a probe, limiting, in LMTR_INSTANCE_SIZE bytes of memory; returns
// Limiter_Open's result code.
inline int32_t open(LimiterHandle** probe, void* memory) {
    const LimiterConfig config{2, 0, LMTR_PCM_Q33P31, LMTR_STATE_LIMITING};
    return Limiter_Open(probe, memory, &config);
}

// Writes frames probe frames (2 words each) to dst from frames of channels
// interleaved Q33.31 samples.
inline void fill(const int64_t* wide, uint32_t channels, size_t frames, int64_t* dst) {
    for (size_t f = 0; f < frames; ++f) {
        int64_t peak = 0;
        for (uint32_t c = 0; c < channels; ++c) {
            const int64_t v = wide[f * channels + c];
            const int64_t m = v >= 0 ? v : (v == INT64_MIN ? INT64_MAX : -v);
            peak = m > peak ? m : peak;
        }
        dst[2 * f] = peak;
        dst[2 * f + 1] = kProbeWord;
    }
}

// The Q15 gain factor of frame f of the probe's Q1.31 output (2 words a
// frame): kUnscaled where nothing was reduced.
inline int32_t factor(const int32_t* out, size_t f) { return out[2 * f + 1] >> 15; }

}  // namespace gain_probe
