// Unity, fixed and makeup gain, NEON: eight samples per step (unity through
// the narrowing kernel).
#if defined(__ARM_NEON) && defined(__aarch64__)

#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"

namespace tvl::neon {

void no_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride) {
    // Consecutive mode is move_from_q33p31_to_q1p31(), sample for sample.
    if (stride == 2) {
        scalar::no_limiter(src, dst, count, stride);  // every-second-sample mode
        return;
    }
    move_from_q33p31_to_q1p31(src, dst, count);
}

void apply_fix_gain(int32_t gain, const int64_t* src, int32_t* dst, int32_t count, int32_t stride) {
    if (count < 1 || stride != 1 || overlaps(src, size_t(count) * 8, dst, size_t(count) * 4)) {
        scalar::apply_fix_gain(gain, src, dst, count, stride);
        return;
    }
    const int32x4_t g = vdupq_n_s32(gain);
    const int32_t whole = count & ~7;
    for (int32_t i = 0; i < whole; i += 8) lanes::scale_eight(src, dst, size_t(i), g, g);
    scalar::apply_fix_gain(gain, src + whole, dst + whole, count - whole, 1);
}

void apply_makeup_gain(int32_t* samples, uint32_t count, int32_t gain) {
    // In place, each lane reading and writing its own sample: always safe.
    const int32x4_t g = vdupq_n_s32(int16_t(uint16_t(uint32_t(gain))));  // low 16 bits, sign-extended
    const uint32x4_t keep = vdupq_n_u32(~1u);
    const uint32_t whole = count & ~3u;
    for (uint32_t i = 0; i < whole; i += 4) {
        uint8_t* p = at(samples, i, 4);
        const int32x4_t x = vreinterpretq_s32_u8(vld1q_u8(p));
        const int64x2_t p01 = vmull_s32(vget_low_s32(x), vget_low_s32(g));                       // x * g, exact
        const int64x2_t p23 = vmull_high_s32(x, g);
        const int32x4_t y = vshrn_high_n_s64(vshrn_n_s64(p01, 15), p23, 15);        // low 32 bits of p >> 15
        vst1q_u8(p, vreinterpretq_u8_u32(vandq_u32(vreinterpretq_u32_s32(y), keep)));  // bit 0 cleared
    }
    scalar::apply_makeup_gain(samples + whole, count - whole, gain);
}

}  // namespace tvl::neon

#endif
