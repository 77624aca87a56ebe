// Block boundary copies, NEON: sixteen samples per step.
#if defined(__ARM_NEON) && defined(__aarch64__)

#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"

namespace tvl::neon {

namespace {

// float32 -> Q33.31 of four floats by lanes::widen_float32(): (double)x is exact.
inline void widen_float32_x4(uint8x16_t in, uint8x16_t& lo, uint8x16_t& hi) {
    const float32x4_t f = vreinterpretq_f32_u8(in);
    lo = vreinterpretq_u8_s64(lanes::widen_float32(vcvt_f64_f32(vget_low_f32(f))));
    hi = vreinterpretq_u8_s64(lanes::widen_float32(vcvt_high_f64_f32(f)));
}

// Q5.27 -> Q33.31 of four words: sign-extended, shifted left by 4.
inline void widen_q5p27_x4(uint8x16_t in, uint8x16_t& lo, uint8x16_t& hi) {
    const int32x4_t w = vreinterpretq_s32_u8(in);
    lo = vreinterpretq_u8_s64(vshll_n_s32(vget_low_s32(w), 4));  // (int64)w << 4
    hi = vreinterpretq_u8_s64(vshll_high_n_s32(w, 4));
}

// Q1.31 -> float32 of four words: (float)w * 2^-31 with one rounding. The
// fixed-point SCVTF rounds w / 2^31 once, the same value as rounding w and
// scaling it by 2^-31 exactly (no result is subnormal), in every rounding mode.
inline uint8x16_t q1p31_to_float32_x4(uint8x16_t in) {
    return vreinterpretq_u8_f32(vcvtq_n_f32_s32(vreinterpretq_s32_u8(in), 31));
}

// Q1.31 -> Q5.27 of four words: w >> 4, arithmetic.
inline uint8x16_t q1p31_to_q5p27_x4(uint8x16_t in) {
    return vreinterpretq_u8_s32(vshrq_n_s32(vreinterpretq_s32_u8(in), 4));
}

// Sixteen 32-bit samples per step into sixteen 64-bit ones; the remainder
// through the scalar kernel. widen(in, lo, hi) turns four words into four
// 64-bit samples. Returns the number of samples done.
template <typename Widen>
uint32_t widen_sixteen_at_a_time(const void* src, void* dst, uint32_t count, Widen widen) {
    const uint32_t whole = count & ~15u;
    const uint8_t* in = at(src, 0, 4);
    uint8_t* out = at(dst, 0, 8);
    for (const uint8_t* const end = in + size_t(whole) * 4; in != end; in += 64, out += 128) {
        const uint8x16x4_t x = vld1q_u8_x4(in);
        uint8x16x4_t y0, y1;
        widen(x.val[0], y0.val[0], y0.val[1]);
        widen(x.val[1], y0.val[2], y0.val[3]);
        widen(x.val[2], y1.val[0], y1.val[1]);
        widen(x.val[3], y1.val[2], y1.val[3]);
        vst1q_u8_x4(out, y0);
        vst1q_u8_x4(out + 64, y1);
    }
    return whole;
}

// Sixteen 32-bit samples per step into sixteen 32-bit ones, each register
// read before it is written, so dst may equal src or lie below it.
template <typename Map>
uint32_t map_sixteen_at_a_time(const void* src, void* dst, uint32_t count, Map map) {
    const uint32_t whole = count & ~15u;
    const uint8_t* in = at(src, 0, 4);
    uint8_t* out = at(dst, 0, 4);
    for (const uint8_t* const end = in + size_t(whole) * 4; in != end; in += 64, out += 64) {
        uint8x16x4_t v = vld1q_u8_x4(in);
        v.val[0] = map(v.val[0]);
        v.val[1] = map(v.val[1]);
        v.val[2] = map(v.val[2]);
        v.val[3] = map(v.val[3]);
        vst1q_u8_x4(out, v);
    }
    return whole;
}

}  // namespace

void copy_float32_to_q33p31(const float* src, int64_t* dst, uint32_t count) {
    if (overlaps(src, size_t(count) * 4, dst, size_t(count) * 8)) {
        scalar::copy_float32_to_q33p31(src, dst, count);
        return;
    }
    const uint32_t whole = widen_sixteen_at_a_time(src, dst, count, widen_float32_x4);
    scalar::copy_float32_to_q33p31(src + whole, dst + whole, count - whole);
}

void copy_q1p31_to_float32(const int32_t* src, float* dst, uint32_t count) {
    if (!ascending_groups_safe(src, size_t(count) * 4, dst, size_t(count) * 4)) {
        scalar::copy_q1p31_to_float32(src, dst, count);
        return;
    }
    const uint32_t whole = map_sixteen_at_a_time(src, dst, count, q1p31_to_float32_x4);
    scalar::copy_q1p31_to_float32(src + whole, dst + whole, count - whole);
}

void copy_q5p27_to_q33p31(const int32_t* src, int64_t* dst, uint32_t count) {
    if (overlaps(src, size_t(count) * 4, dst, size_t(count) * 8)) {
        scalar::copy_q5p27_to_q33p31(src, dst, count);
        return;
    }
    const uint32_t whole = widen_sixteen_at_a_time(src, dst, count, widen_q5p27_x4);
    scalar::copy_q5p27_to_q33p31(src + whole, dst + whole, count - whole);
}

void copy_q1p31_to_q5p27(const int32_t* src, int32_t* dst, uint32_t count) {
    if (!ascending_groups_safe(src, size_t(count) * 4, dst, size_t(count) * 4)) {
        scalar::copy_q1p31_to_q5p27(src, dst, count);
        return;
    }
    const uint32_t whole = map_sixteen_at_a_time(src, dst, count, q1p31_to_q5p27_x4);
    scalar::copy_q1p31_to_q5p27(src + whole, dst + whole, count - whole);
}

}  // namespace tvl::neon

#endif
