// The frame walk shared by the kernels that scale frame by frame with a
// changing gain (release step, attack ramp, fades): which samples frame i
// covers, in one place.
//
// Stereo (is_stereo non-zero): frame i is positions 2i and 2i + 1, stride
// unread. Mono: frame i is position 2i with a stride of 2 (every second
// sample), position i with any other stride.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "common/sample_rules.h"

namespace tvl {

// Samples in `frames` frames of consecutive samples: two per stereo frame.
constexpr size_t frame_samples(int32_t is_stereo, uint32_t frames) {
    return is_stereo ? size_t(frames) * 2 : size_t(frames);
}

// Calls visit(frame, position) for every sample of frames 0..count-1, in
// ascending order.
template <typename Visit>
inline void for_each_frame_sample(int32_t is_stereo, uint32_t count, int32_t stride, Visit visit) {
    if (is_stereo) {
        for (uint32_t i = 0; i < count; ++i) {
            visit(i, ptrdiff_t(i) * 2);
            visit(i, ptrdiff_t(i) * 2 + 1);
        }
    } else {
        const ptrdiff_t step = stride == 2 ? 2 : 1;
        for (uint32_t i = 0; i < count; ++i) visit(i, ptrdiff_t(i) * step);
    }
}

// Whether the release gains of a call of count frames all fit in 32 bits: they
// lie between the first and the last, so it is enough that the last does.
// Then a walk in 32-bit lanes, and a scalar kernel started from the gain
// reached (start + done * step, also between), give the reference's gains.
inline bool release_step_fits(int32_t start_gain, int32_t step, uint32_t count) {
    if (count == 0) return false;
    const int64_t last = release_gain(start_gain, step, count - 1);
    return last >= INT32_MIN && last <= INT32_MAX;
}
inline int32_t release_gain_reached(int32_t start_gain, int32_t step, uint32_t frames) {
    return int32_t(uint32_t(start_gain) + frames * uint32_t(step));
}

}  // namespace tvl
