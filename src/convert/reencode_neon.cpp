// Re-encoding in place, NEON: the two same-width conversions, sixteen samples
// per step, each step reading its 64 bytes before writing them. The four that
// change the element size walk one sample at a time (the scalar kernels).
#if defined(__ARM_NEON) && defined(__aarch64__)

#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"

namespace tvl::neon {

namespace {

// (float)w * 2^-27 of four words: the fixed-point SCVTF rounds w / 2^27 once,
// the same value as rounding w and scaling it exactly (no result is subnormal).
inline uint8x16_t q5p27_to_float32_x4(uint8x16_t in) {
    return vreinterpretq_u8_f32(vcvtq_n_f32_s32(vreinterpretq_s32_u8(in), 27));
}

// trunc(x * 2^27 + 0.5) of four floats, computed in double as (x + 2^-28)
// rounded, then scaled by 2^27 inside the conversion (the reasoning of
// lanes::widen_float32 in kernels_neon.h: the two roundings agree), which
// saturates to 64 bits; SQXTN then clamps to 32 bits. Truncating first and
// clamping after gives what truncate_to_int32() gives: every v >= 2^31
// truncates to 2^31 or more, every v <= -2^31 - 1 to -2^31 - 1 or less, and
// NaN to 0.
inline uint8x16_t float32_to_q5p27_x4(uint8x16_t in, float64x2_t half_lsb) {
    const float32x4_t f = vreinterpretq_f32_u8(in);
    const int64x2_t lo = vcvtq_n_s64_f64(vaddq_f64(vcvt_f64_f32(vget_low_f32(f)), half_lsb), 27);
    const int64x2_t hi = vcvtq_n_s64_f64(vaddq_f64(vcvt_high_f64_f32(f), half_lsb), 27);
    return vreinterpretq_u8_s32(vqmovn_high_s64(vqmovn_s64(lo), hi));  // clamped to 32 bits
}

}  // namespace

void convert_from_q5p27_to_float32(void* samples, uint32_t count) {
    const uint32_t whole = count & ~15u;
    uint8_t* p = at(samples, 0, 4);
    for (uint8_t* const end = p + size_t(whole) * 4; p != end; p += 64) {
        uint8x16x4_t v = vld1q_u8_x4(p);
        v.val[0] = q5p27_to_float32_x4(v.val[0]);
        v.val[1] = q5p27_to_float32_x4(v.val[1]);
        v.val[2] = q5p27_to_float32_x4(v.val[2]);
        v.val[3] = q5p27_to_float32_x4(v.val[3]);
        vst1q_u8_x4(p, v);
    }
    scalar::convert_from_q5p27_to_float32(at(samples, whole, 4), count - whole);
}

void convert_from_float32_to_q5p27(void* samples, uint32_t count) {
    const float64x2_t half_lsb = vdupq_n_f64(0x1p-28);  // 0.5 / 2^27
    const uint32_t whole = count & ~15u;
    uint8_t* p = at(samples, 0, 4);
    for (uint8_t* const end = p + size_t(whole) * 4; p != end; p += 64) {
        uint8x16x4_t v = vld1q_u8_x4(p);
        v.val[0] = float32_to_q5p27_x4(v.val[0], half_lsb);
        v.val[1] = float32_to_q5p27_x4(v.val[1], half_lsb);
        v.val[2] = float32_to_q5p27_x4(v.val[2], half_lsb);
        v.val[3] = float32_to_q5p27_x4(v.val[3], half_lsb);
        vst1q_u8_x4(p, v);
    }
    scalar::convert_from_float32_to_q5p27(at(samples, whole, 4), count - whole);
}

}  // namespace tvl::neon

#endif
