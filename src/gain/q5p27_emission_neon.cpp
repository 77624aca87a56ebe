// A held Q5.27 block leaving straight from the input, NEON: eight samples per
// pass, every product exact in 64-bit lanes.
//
// Widened, a Q5.27 word w is the Q33.31 sample 16 * w, and the Q15 rule keeps
// bits 15..46 of 16 * w * g, that is bits 11..42 of the exact product w * g
// (|w * g| < 2^62): SMULL, then SHRN by 11 (which keeps the low 32 bits of
// the shifted product, as the narrowing to Q1.31 does), then the arithmetic
// shift by 4 back to Q5.27. At unity only the low 28 bits of w survive the
// narrowing, sign-extended: SHL by 4, then SSHR by 4.
#if defined(__ARM_NEON) && defined(__aarch64__)

#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"

namespace tvl::neon {

namespace {

inline int32x4_t scaled_x4(int32x4_t w, int32x4_t g) {
    const int64x2_t p01 = vmull_s32(vget_low_s32(w), vget_low_s32(g));  // w * g, exact
    const int64x2_t p23 = vmull_high_s32(w, g);
    return vshrq_n_s32(vshrn_high_n_s64(vshrn_n_s64(p01, 11), p23, 11), 4);
}

// Eight samples from `first`: the first four scaled by the lanes of ga, the
// next four by those of gb. Each pass loads its samples before it stores.
inline void scale_eight(const int32_t* src, int32_t* dst, size_t first, int32x4_t ga, int32x4_t gb) {
    const uint8x16x2_t x = vld1q_u8_x2(at(src, first, 4));
    uint8x16x2_t y;
    y.val[0] = vreinterpretq_u8_s32(scaled_x4(vreinterpretq_s32_u8(x.val[0]), ga));
    y.val[1] = vreinterpretq_u8_s32(scaled_x4(vreinterpretq_s32_u8(x.val[1]), gb));
    vst1q_u8_x2(at(dst, first, 4), y);
}


}  // namespace

void emit_q5p27_at_unity(const int32_t* src, int32_t* dst, uint32_t count) {
    const uint32_t whole = ascending_groups_safe(src, size_t(count) * 4, dst, size_t(count) * 4) ? count & ~7u : 0;
    for (uint32_t i = 0; i < whole; i += 8) {
        const uint8x16x2_t x = vld1q_u8_x2(at(src, i, 4));
        uint8x16x2_t y;
        for (int r = 0; r < 2; ++r) {
            const int32x4_t w = vreinterpretq_s32_u8(x.val[r]);
            y.val[r] = vreinterpretq_u8_s32(vshrq_n_s32(vshlq_n_s32(w, 4), 4));  // low 28 bits, sign-extended
        }
        vst1q_u8_x2(at(dst, i, 4), y);
    }
    scalar::emit_q5p27_at_unity(src + whole, dst + whole, count - whole);
}

void emit_q5p27_fix_gain(int32_t gain, const int32_t* src, int32_t* dst, uint32_t count) {
    const uint32_t whole = ascending_groups_safe(src, size_t(count) * 4, dst, size_t(count) * 4) ? count & ~7u : 0;
    const int32x4_t g = vdupq_n_s32(gain);
    for (uint32_t i = 0; i < whole; i += 8) scale_eight(src, dst, i, g, g);
    scalar::emit_q5p27_fix_gain(gain, src + whole, dst + whole, count - whole);
}

int32_t emit_q5p27_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int32_t* src,
                             int32_t* dst, const int32_t* ramp_table, uint32_t count) {
    const size_t bytes = frame_samples(is_stereo, count) * 4;
    if (!ascending_groups_safe(src, bytes, dst, bytes) || overlaps(ramp_table, size_t(count) * 4, dst, bytes)) {
        return scalar::emit_q5p27_targ_gain(is_stereo, start_gain, end_gain, src, dst, ramp_table, count);
    }
    auto pass = [&](size_t first, int32x4_t ga, int32x4_t gb) { scale_eight(src, dst, first, ga, gb); };
    const uint32_t done = lanes::ramp_walk(is_stereo, start_gain, end_gain, ramp_table, count, pass);
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::emit_q5p27_targ_gain(is_stereo, start_gain, end_gain, src + skip, dst + skip, ramp_table + done,
                                        count - done);
}

int32_t emit_q5p27_step_gain(int32_t is_stereo, int32_t start_gain, int32_t step, const int32_t* src, int32_t* dst,
                             uint32_t count) {
    const size_t bytes = frame_samples(is_stereo, count) * 4;
    if (!ascending_groups_safe(src, bytes, dst, bytes) || !release_step_fits(start_gain, step, count)) {
        return scalar::emit_q5p27_step_gain(is_stereo, start_gain, step, src, dst, count);
    }
    const uint32_t done = lanes::walk_frames(is_stereo, count, lanes::release_gains(start_gain, step),
                                             [&](size_t first, int32x4_t ga, int32x4_t gb) {
                                                 scale_eight(src, dst, first, ga, gb);
                                             });
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::emit_q5p27_step_gain(is_stereo, release_gain_reached(start_gain, step, done), step, src + skip,
                                        dst + skip, count - done);
}

}  // namespace tvl::neon

#endif
