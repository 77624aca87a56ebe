// Attack ramp on x86-64: the ramp gains of four frames at once in 32-bit
// lanes, eight samples per pass (four stereo frames or eight mono samples) by
// the level's scale_eight() (common/simd_x86.h).
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

int32_t apply_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int64_t* src, int32_t* dst,
                        const int32_t* ramp_table, uint32_t count, int32_t stride) {
    const size_t samples = frame_samples(is_stereo, count);
    if ((!is_stereo && stride == 2) || overlaps(src, samples * 8, dst, samples * 4) ||
        overlaps(ramp_table, size_t(count) * 4, dst, samples * 4)) {
        return scalar::apply_targ_gain(is_stereo, start_gain, end_gain, src, dst, ramp_table, count, stride);
    }
    const uint32_t done = walk_frames(is_stereo, count, RampGains<ForScale>(is_stereo, ramp_table, start_gain, end_gain),
                                      [&](size_t first, Gains4 ga, Gains4 gb) { scale_eight(src, dst, first, ga, gb); });
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::apply_targ_gain(is_stereo, start_gain, end_gain, src + skip, dst + skip, ramp_table + done,
                                   count - done, stride);
}

}  // namespace tvl::x86

#endif  // __x86_64__
