// Release step, NEON: eight samples per pass (four stereo frames or eight mono
// samples), the gains of four frames formed at once in 32-bit lanes.
#if defined(__ARM_NEON) && defined(__aarch64__)

#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"

namespace tvl::neon {

int32_t apply_step_gain_without_saturation(int32_t is_stereo, int32_t start_gain, int32_t step,
                                           const int64_t* src, int32_t* dst, uint32_t count, int32_t stride) {
    const size_t samples = is_stereo ? size_t(count) * 2 : size_t(count);
    // The vector loop keeps the gains in 32-bit lanes, and the scalar kernel
    // finishes from a 32-bit start gain. Both are exact when the gain of the
    // last frame fits in 32 bits: every frame's gain then lies between
    // start_gain and that last gain, so it fits too, and advancing a lane by
    // 4 * step modulo 2^32 lands on the true 32-bit value.
    if (count < 4 || (!is_stereo && stride == 2) || overlaps(src, samples * 8, dst, samples * 4)) {
        return scalar::apply_step_gain_without_saturation(is_stereo, start_gain, step, src, dst, count, stride);
    }
    const int64_t last = release_gain(start_gain, step, count - 1);
    if (last < INT32_MIN || last > INT32_MAX) {
        return scalar::apply_step_gain_without_saturation(is_stereo, start_gain, step, src, dst, count, stride);
    }
    auto pass = [&](size_t first, int32x4_t ga, int32x4_t gb) { lanes::scale_eight(src, dst, first, ga, gb); };
    const uint32_t done = lanes::walk_frames(is_stereo, count, lanes::release_gains(start_gain, step), pass);
    const size_t skip = is_stereo ? size_t(done) * 2 : size_t(done);
    // The gain reached after `done` frames, start + done * step, lies between
    // start_gain and the last gain, so it fits in 32 bits.
    const int32_t reached = int32_t(uint32_t(start_gain) + uint32_t(done) * uint32_t(step));
    return scalar::apply_step_gain_without_saturation(is_stereo, reached, step, src + skip, dst + skip, count - done,
                                                      stride);
}

}  // namespace tvl::neon

#endif
