// Release step, NEON: eight samples per pass (four stereo frames or eight mono
// samples), the gains of four frames formed at once in 32-bit lanes.
#if defined(__ARM_NEON) && defined(__aarch64__)

#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"

namespace tvl::neon {

int32_t apply_step_gain_without_saturation(int32_t is_stereo, int32_t start_gain, int32_t step,
                                           const int64_t* src, int32_t* dst, uint32_t count, int32_t stride) {
    const size_t samples = frame_samples(is_stereo, count);
    if (count < 4 || (!is_stereo && stride == 2) || overlaps(src, samples * 8, dst, samples * 4) ||
        !release_step_fits(start_gain, step, count)) {
        return scalar::apply_step_gain_without_saturation(is_stereo, start_gain, step, src, dst, count, stride);
    }
    auto pass = [&](size_t first, int32x4_t ga, int32x4_t gb) { lanes::scale_eight(src, dst, first, ga, gb); };
    const uint32_t done = lanes::walk_frames(is_stereo, count, lanes::release_gains(start_gain, step), pass);
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::apply_step_gain_without_saturation(is_stereo, release_gain_reached(start_gain, step, done), step,
                                                      src + skip, dst + skip, count - done, stride);
}

}  // namespace tvl::neon

#endif
