// A held float32 block leaving as float32, NEON: four samples per register in
// 32-bit lanes, the Q33.31 word never formed whole.
//
// The widening rule forms u + 0.5 in double, u = x * 2^31 (exact). For the
// |u| < 2^46 taken here that sum is exact too when |u| >= 1/4: u is a whole
// number from 2^23 on and a multiple of 2^-25 below, so the sum needs at most
// 49 bits. For |u| < 1/4 it lies in (1/4, 3/4), where any rounding truncates
// to 0 as the exact sum does. So X = trunc(u + 0.5) of the exact sum, in every
// rounding mode. With a = u rounded to nearest, ties away from zero (FCVTAS),
// X = a + (a < 0): for u >= 0, trunc(u + 0.5) = floor(u + 0.5) is a; for
// u <= -1/2 it is ceil(u + 0.5), one more than a; for -1/2 < u < 0 both are 0.
//
// The result, a Q1.31 word R, becomes float32 by the fixed-point SCVTF, which
// rounds R / 2^31 once: copy_q1p31_to_float32() exactly (see
// block_copies_neon.cpp).
//
// Buffers apart: the vector steps write every sample and gather the
// magnitudes they met; when one lay beyond the lanes' reach (|x| at or beyond
// the limit of its form, a power of two; infinities; NaN too, though the
// lanes would give its 0), the call goes through the scalar kernel of the same
// name whole, from the source that is still intact. Buffers that overlap take
// the scalar kernel.
#if defined(__ARM_NEON) && defined(__aarch64__)

#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"

namespace tvl::neon {

namespace {

// At unity, |x| < 1: |u| < 2^31, so a and X fit in 32 bits, and R = X.
constexpr uint16_t kUnityLimit = 0x7F00;  // 1.0 as a magnitude top (below)

inline float32x4_t at_unity_x4(float32x4_t x) {
    const uint32x4_t a = vreinterpretq_u32_s32(vcvtaq_s32_f32(vmulq_n_f32(x, 0x1p31f)));  // u, ties away
    const int32x4_t r = vreinterpretq_s32_u32(vsraq_n_u32(a, a, 31));                     // X = a + (a < 0)
    return vcvtq_n_f32_s32(r, 31);
}

// By a Q15 gain g, |x| < 2^15 and -2^15 <= g < 2^15.
//
// Split u = T * 2^15 + v with T = trunc(x * 2^16), a fixed-point FCVTZS that
// is exact (|x * 2^16| < 2^31), and v = (x - T * 2^-16) * 2^31. T * 2^-16 is
// exact as a float (T < 2^24 when |x| < 2^8; beyond, x is a multiple of 2^-15
// and T = x * 2^16 holds x's 24 bits), the difference is x's bits below 2^-16
// and the scaling by 2^31 is exact: v is exact, |v| < 2^15, and T and v have
// x's sign. Then X = T * 2^15 + l, l = a + s, with a = v rounded half away:
//   T = 0: l = X by the rule above (s = (a < 0));
//   T > 0: X = floor(u + 0.5) = T * 2^15 + floor(v + 0.5), and s = 0;
//   T < 0: X = ceil(u + 0.5) = T * 2^15 + ceil(v + 0.5), one more than a for
//          every v <= 0, and s = 1;
// so s is the sign bit of (a | T), and |l| <= 2^15.
//
// |X * g| < 2^61: the 64-bit product is exact, T * g * 2^15 is a multiple of
// 2^15, and bits 15..46 of X * g are lo32(T * g) + floor(l * g / 2^15)
// (mod 2^32). The floor is SQDMULH(l, g * 2^16), (2 * l * g * 2^16) >> 32,
// which saturates only for two operands of -2^31; MLA adds T * g modulo 2^32.
constexpr uint16_t kScaledLimit = 0x8E00;  // 2^15 as a magnitude top (below)

constexpr bool gain_fits(int64_t g) { return g >= -32768 && g < 32768; }

// g16: each lane's gain times 2^16.
inline float32x4_t scaled_x4(float32x4_t x, int32x4_t g, int32x4_t g16) {
    const int32x4_t t = vcvtq_n_s32_f32(x, 16);                                  // T = trunc(x * 2^16)
    const float32x4_t below = vsubq_f32(x, vcvtq_n_f32_s32(t, 16));             // x - T * 2^-16, exact
    const int32x4_t a = vcvtaq_s32_f32(vmulq_n_f32(below, 0x1p31f));            // v, ties away
    const uint32x4_t sign = vreinterpretq_u32_s32(vorrq_s32(a, t));
    const int32x4_t l = vreinterpretq_s32_u32(vsraq_n_u32(vreinterpretq_u32_s32(a), sign, 31));  // a + s
    const int32x4_t r = vmlaq_s32(vqdmulhq_s32(l, g16), t, g);                  // floor(l * g / 2^15) + T * g
    return vcvtq_n_f32_s32(r, 31);
}

inline float32x4_t f32(uint8x16_t v) { return vreinterpretq_f32_u8(v); }
inline uint8x16_t u8(float32x4_t v) { return vreinterpretq_u8_f32(v); }

// The magnitude tops of eight floats, (bits << 1) >> 16: the exponent over the
// top eight fraction bits, the sign dropped (ADDHN of a register with itself).
// |x| >= 2^k exactly when the top is at least that of 2^k, (127 + k) << 8;
// infinities and NaN lie above every such limit.
inline uint16x8_t magnitude_tops(uint8x16_t a, uint8x16_t b) {
    const uint32x4_t ua = vreinterpretq_u32_u8(a), ub = vreinterpretq_u32_u8(b);
    return vaddhn_high_u32(vaddhn_u32(ua, ua), ub, ub);
}

// Eight samples from `first` through map_a (the first four) and map_b (the
// next four); returns their magnitude tops.
template <typename MapA, typename MapB>
inline uint16x8_t emit_eight(const float* src, float* dst, size_t first, MapA map_a, MapB map_b) {
    uint8x16x2_t v = vld1q_u8_x2(at(src, first, 4));
    const uint16x8_t tops = magnitude_tops(v.val[0], v.val[1]);
    v.val[0] = u8(map_a(f32(v.val[0])));
    v.val[1] = u8(map_b(f32(v.val[1])));
    vst1q_u8_x2(at(dst, first, 4), v);
    return tops;
}

// The loop of the emissions with one map for every sample: sixteen samples
// per step, then eight and four if as many are left. Returns the samples
// done, and in `top` the largest magnitude top among them; the caller hands
// the rest to the scalar kernel.
template <typename Map>
uint32_t emit_samples(const float* src, float* dst, uint32_t count, Map map, uint16_t& top) {
    uint16x8_t tops = vdupq_n_u16(0);
    const uint32_t sixteens = count & ~15u;
    const uint8_t* in = at(src, 0, 4);
    uint8_t* out = at(dst, 0, 4);
    for (const uint8_t* const end = in + size_t(sixteens) * 4; in != end; in += 64, out += 64) {
        uint8x16x4_t v = vld1q_u8_x4(in);
        tops = vmaxq_u16(tops, vmaxq_u16(magnitude_tops(v.val[0], v.val[1]), magnitude_tops(v.val[2], v.val[3])));
        v.val[0] = u8(map(f32(v.val[0])));
        v.val[1] = u8(map(f32(v.val[1])));
        v.val[2] = u8(map(f32(v.val[2])));
        v.val[3] = u8(map(f32(v.val[3])));
        vst1q_u8_x4(out, v);
    }
    uint32_t i = sixteens;
    if (count - i >= 8) {
        tops = vmaxq_u16(tops, emit_eight(src, dst, i, map, map));
        i += 8;
    }
    if (count - i >= 4) {
        const uint8x16_t v = vld1q_u8(at(src, i, 4));
        const uint16x4_t four = vaddhn_u32(vreinterpretq_u32_u8(v), vreinterpretq_u32_u8(v));
        tops = vmaxq_u16(tops, vcombine_u16(four, four));
        vst1q_u8(at(dst, i, 4), u8(map(f32(v))));
        i += 4;
    }
    top = vmaxvq_u16(tops);
    return i;
}

// The pass of the frame walks: eight samples from `first`, the first four by
// the gains of ga, the next four by those of gb; returns their magnitude tops.
inline uint16x8_t scaled_eight(const float* src, float* dst, size_t first, int32x4_t ga, int32x4_t gb) {
    const int32x4_t ga16 = vshlq_n_s32(ga, 16), gb16 = vshlq_n_s32(gb, 16);
    const auto scale_a = [ga, ga16](float32x4_t x) { return scaled_x4(x, ga, ga16); };
    const auto scale_b = [gb, gb16](float32x4_t x) { return scaled_x4(x, gb, gb16); };
    return emit_eight(src, dst, first, scale_a, scale_b);
}

// Whether every ramp gain of a call lies in [-2^15, 2^15): start and end in
// it and the entries of the frames the vector walk takes (count rounded down
// to fours) in [0, 2^15]. Then end - start fits in 17 bits, entry * (end -
// start) does not wrap, and each gain lies between start and end.
bool ramp_fits(int32_t start_gain, int32_t end_gain, const int32_t* ramp_table, uint32_t count) {
    if (!gain_fits(start_gain) || !gain_fits(end_gain)) return false;
    const uint32_t whole = count & ~3u;
    uint32x4_t top = vdupq_n_u32(0);  // entries read unsigned: a negative one is above 2^15
    uint32_t i = 0;
    for (; i + 16 <= whole; i += 16) {
        const uint8x16x4_t e = vld1q_u8_x4(at(ramp_table, i, 4));
        const uint32x4_t m01 = vmaxq_u32(vreinterpretq_u32_u8(e.val[0]), vreinterpretq_u32_u8(e.val[1]));
        const uint32x4_t m23 = vmaxq_u32(vreinterpretq_u32_u8(e.val[2]), vreinterpretq_u32_u8(e.val[3]));
        top = vmaxq_u32(top, vmaxq_u32(m01, m23));
    }
    for (; i < whole; i += 4) top = vmaxq_u32(top, vreinterpretq_u32_u8(vld1q_u8(at(ramp_table, i, 4))));
    return vmaxvq_u32(top) <= 32768;
}

}  // namespace

void emit_float32_at_unity(const float* src, float* dst, uint32_t count) {
    const size_t bytes = size_t(count) * 4;
    uint32_t done = 0;
    if (!overlaps(src, bytes, dst, bytes)) {
        uint16_t top;
        done = emit_samples(src, dst, count, at_unity_x4, top);
        if (top >= kUnityLimit) done = 0;  // the whole call by the rule
    }
    scalar::emit_float32_at_unity(src + done, dst + done, count - done);
}

void emit_float32_fix_gain(int32_t gain, const float* src, float* dst, uint32_t count) {
    const size_t bytes = size_t(count) * 4;
    uint32_t done = 0;
    if (gain_fits(gain) && !overlaps(src, bytes, dst, bytes)) {
        const int32x4_t g = vdupq_n_s32(gain), g16 = vshlq_n_s32(g, 16);
        uint16_t top;
        done = emit_samples(src, dst, count, [g, g16](float32x4_t x) { return scaled_x4(x, g, g16); }, top);
        if (top >= kScaledLimit) done = 0;  // the whole call by the rule
    }
    scalar::emit_float32_fix_gain(gain, src + done, dst + done, count - done);
}

int32_t emit_float32_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const float* src, float* dst,
                               const int32_t* ramp_table, uint32_t count) {
    const size_t bytes = frame_samples(is_stereo, count) * 4;
    uint32_t done = 0;  // frames
    if (!overlaps(src, bytes, dst, bytes) && !overlaps(ramp_table, size_t(count) * 4, dst, bytes) &&
        ramp_fits(start_gain, end_gain, ramp_table, count)) {
        uint16x8_t tops = vdupq_n_u16(0);
        const auto pass = [&](size_t first, int32x4_t ga, int32x4_t gb) {
            tops = vmaxq_u16(tops, scaled_eight(src, dst, first, ga, gb));
        };
        done = lanes::ramp_walk(is_stereo, start_gain, end_gain, ramp_table, count, pass);
        if (vmaxvq_u16(tops) >= kScaledLimit) done = 0;  // the whole call by the rule
    }
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::emit_float32_targ_gain(is_stereo, start_gain, end_gain, src + skip, dst + skip, ramp_table + done,
                                          count - done);
}

int32_t emit_float32_step_gain(int32_t is_stereo, int32_t start_gain, int32_t step, const float* src, float* dst,
                               uint32_t count) {
    const size_t bytes = frame_samples(is_stereo, count) * 4;
    // The gains of the frames run from that of the first to that of the last:
    // when both lie in [-2^15, 2^15), every one does, and 32-bit lanes
    // advanced by 4 * step modulo 2^32 land on the true gains.
    uint32_t done = 0;  // frames
    if (count > 0 && gain_fits(release_gain(start_gain, step, 0)) &&
        gain_fits(release_gain(start_gain, step, count - 1)) && !overlaps(src, bytes, dst, bytes)) {
        uint16x8_t tops = vdupq_n_u16(0);
        const auto pass = [&](size_t first, int32x4_t ga, int32x4_t gb) {
            tops = vmaxq_u16(tops, scaled_eight(src, dst, first, ga, gb));
        };
        done = lanes::walk_frames(is_stereo, count, lanes::release_gains(start_gain, step), pass);
        if (vmaxvq_u16(tops) >= kScaledLimit) done = 0;  // the whole call by the rule
    }
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::emit_float32_step_gain(is_stereo, release_gain_reached(start_gain, step, done), step, src + skip,
                                          dst + skip, count - done);
}

}  // namespace tvl::neon

#endif
