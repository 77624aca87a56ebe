// Attack ramp, NEON: the ramp gains of four frames at once in 32-bit lanes,
// eight samples per pass (four stereo frames or eight mono samples).
#if defined(__ARM_NEON) && defined(__aarch64__)

#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"

namespace tvl::neon {

int32_t apply_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int64_t* src, int32_t* dst,
                        const int32_t* ramp_table, uint32_t count, int32_t stride) {
    const size_t samples = frame_samples(is_stereo, count);
    if ((!is_stereo && stride == 2) || overlaps(src, samples * 8, dst, samples * 4) ||
        overlaps(ramp_table, size_t(count) * 4, dst, samples * 4)) {
        return scalar::apply_targ_gain(is_stereo, start_gain, end_gain, src, dst, ramp_table, count, stride);
    }
    auto pass = [&](size_t first, int32x4_t ga, int32x4_t gb) { lanes::scale_eight(src, dst, first, ga, gb); };
    const uint32_t done = lanes::ramp_walk(is_stereo, start_gain, end_gain, ramp_table, count, pass);
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::apply_targ_gain(is_stereo, start_gain, end_gain, src + skip, dst + skip, ramp_table + done,
                                   count - done, stride);
}

}  // namespace tvl::neon

#endif
