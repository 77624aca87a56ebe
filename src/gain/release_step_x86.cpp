// Release step on x86-64: the gains of four frames at once in 32-bit lanes,
// eight samples per pass (four stereo frames or eight mono samples) by the
// level's scale_eight() (common/simd_x86.h).
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

int32_t apply_step_gain_without_saturation(int32_t is_stereo, int32_t start_gain, int32_t step, const int64_t* src,
                                           int32_t* dst, uint32_t count, int32_t stride) {
    const size_t samples = frame_samples(is_stereo, count);
    if ((!is_stereo && stride == 2) || overlaps(src, samples * 8, dst, samples * 4) ||
        !release_step_fits(start_gain, step, count)) {
        return scalar::apply_step_gain_without_saturation(is_stereo, start_gain, step, src, dst, count, stride);
    }
    const uint32_t done = walk_frames(is_stereo, count, StepGains<ForScale>(is_stereo, start_gain, step),
                                      [&](size_t first, Gains4 ga, Gains4 gb) { scale_eight(src, dst, first, ga, gb); });
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::apply_step_gain_without_saturation(is_stereo, release_gain_reached(start_gain, step, done), step,
                                                      src + skip, dst + skip, count - done, stride);
}

}  // namespace tvl::x86

#endif  // __x86_64__
