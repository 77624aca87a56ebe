// Gain derivation, NEON: sixteen samples per step for derive_gain, sixteen
// words per step for the block minimum; the engine's block peaks.
#if defined(__ARM_NEON) && defined(__aarch64__)

#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"

namespace tvl::neon {

namespace {

// Gains of four samples above the threshold (reduced_gain() of each), given as
// two registers of two Q33.31 samples; c (at least 0) is the ceiling in every
// lane.
//
// d = m >> 15 in 64 bits, converted to double exactly (d < 2^49). From
// m = 2^46 on, d is at least 2^31 and the quotient below is 0, as
// reduced_gain() gives. A d of 0 is raised to 1, so that nothing divides by
// zero; only a sample of magnitude below 2^15 has d = 0, and above the
// threshold such a sample occurs only for a ceiling of 0 or below (for
// c >= 1 the threshold is at least 65534): with c = 0 its gain c * q >> 15 is 0
// whatever q is, and the caller keeps negative ceilings away.
//
// The division runs in double precision and is exact after truncation: for
// 1 <= d < 2^31 and N = 2144993280, let N / d = n + r / d with 0 <= r < d.
// When r > 0 the quotient lies at least 1 / d from both n and n + 1, while the
// rounding error of the division is at most 2^-52 * N / d < 2^-21 / d, in any
// rounding mode; so the rounded quotient lies strictly between n and n + 1
// (or is n exactly when r = 0), and truncation gives n, the truncated 32-bit
// quotient. q < 2^31: the conversion never saturates, and the low 32-bit
// words are q itself.
inline uint32x4_t reduced_gains(int64x2_t x01, int64x2_t x23, int32x4_t c) {
    const float64x2_t one = vdupq_n_f64(1.0);
    const float64x2_t target = vdupq_n_f64(double(kTargetLevel));
    const uint64x2_t d01 = vshrq_n_u64(vreinterpretq_u64_s64(vabsq_s64(x01)), 15);  // |x| >> 15; -2^63 -> 2^48
    const uint64x2_t d23 = vshrq_n_u64(vreinterpretq_u64_s64(vabsq_s64(x23)), 15);
    const float64x2_t q01 = vdivq_f64(target, vmaxq_f64(vcvtq_f64_u64(d01), one));  // N / max(d, 1)
    const float64x2_t q23 = vdivq_f64(target, vmaxq_f64(vcvtq_f64_u64(d23), one));
    const int32x4_t q = vreinterpretq_s32_u32(vuzp1q_u32(vreinterpretq_u32_s64(vcvtq_s64_f64(q01)),  // truncated
                                                         vreinterpretq_u32_s64(vcvtq_s64_f64(q23))));
    const int64x2_t p01 = vmull_s32(vget_low_s32(q), vget_low_s32(c));                     // c * q, exact
    const int64x2_t p23 = vmull_high_s32(q, c);
    const int32x4_t g = vshrn_high_n_s64(vshrn_n_s64(p01, 15), p23, 15);                   // (c * q) >> 15
    return vbicq_u32(vreinterpretq_u32_s32(g), vdupq_n_u32(1));                             // bit 0 cleared
}

// |x| of four samples, as unsigned 32-bit lanes, after saturating each sample
// to 32 bits. Comparing it with the threshold gives the same answer as
// comparing the 64-bit magnitude: a sample outside the 32-bit range becomes
// -2^31 or 2^31 - 1, whose magnitudes (2^31 and 2^31 - 1) still exceed every
// threshold (at most 2^31 - 2), and |-2^31| read unsigned is 2^31.
inline uint32x4_t clamped_magnitude(uint8x16_t s01, uint8x16_t s23) {
    const int32x4_t s = vqmovn_high_s64(vqmovn_s64(vreinterpretq_s64_u8(s01)), vreinterpretq_s64_u8(s23));  // clamp
    return vreinterpretq_u32_s32(vabsq_s32(s));                                                            // |x|
}

// Gains of four samples: 32767 where the magnitude lies below first_over
// (the threshold plus 1), else reduced_gain().
inline uint8x16_t gains_of(uint8x16_t s01, uint8x16_t s23, uint32x4_t first_over, int32x4_t c) {
    const uint32x4_t over = vcgeq_u32(clamped_magnitude(s01, s23), first_over);  // m > threshold
    const uint32x4_t g = reduced_gains(vreinterpretq_s64_u8(s01), vreinterpretq_s64_u8(s23), c);
    return vreinterpretq_u8_u32(vbslq_u32(over, g, vdupq_n_u32(kUnityGain)));
}

// Gains of the sixteen samples at in, of which at least one lies above the
// threshold.
inline uint8x16x4_t gains_of_sixteen(const uint8_t* in, uint32_t first_over, int32_t c) {
    const uint32x4_t first_over_u32x4 = vdupq_n_u32(first_over);
    const int32x4_t c_s32x4 = vdupq_n_s32(c);
    const uint8x16x4_t x0 = vld1q_u8_x4(in), x1 = vld1q_u8_x4(in + 64);
    uint8x16x4_t g;
    g.val[0] = gains_of(x0.val[0], x0.val[1], first_over_u32x4, c_s32x4);
    g.val[1] = gains_of(x0.val[2], x0.val[3], first_over_u32x4, c_s32x4);
    g.val[2] = gains_of(x1.val[0], x1.val[1], first_over_u32x4, c_s32x4);
    g.val[3] = gains_of(x1.val[2], x1.val[3], first_over_u32x4, c_s32x4);
    return g;
}

// The largest clamped magnitude of the sixteen samples at in.
inline uint32_t peak_of_sixteen(const uint8_t* in) {
    const uint8x16x4_t x0 = vld1q_u8_x4(in), x1 = vld1q_u8_x4(in + 64);
    const uint32x4_t m0 = vmaxq_u32(clamped_magnitude(x0.val[0], x0.val[1]), clamped_magnitude(x0.val[2], x0.val[3]));
    const uint32x4_t m1 = vmaxq_u32(clamped_magnitude(x1.val[0], x1.val[1]), clamped_magnitude(x1.val[2], x1.val[3]));
    return vmaxvq_u32(vmaxq_u32(m0, m1));
}

// The larger of the vector loop's peak and that of the samples it left, out
// of line: a whole block returns without setting up a call.
__attribute__((noinline)) uint64_t with_rest(uint64_t vector_peak, const float* rest, uint32_t count) {
    const uint64_t rest_peak = scalar::peak_float32(rest, count);
    return rest_peak > vector_peak ? rest_peak : vector_peak;
}

}  // namespace

void derive_gain(const int64_t* src, int32_t* gains, uint32_t count, int32_t ceiling, int32_t stride) {
    const int32_t c = ceiling_q15(ceiling);
    if (stride != 1 || c < 0 || overlaps(src, size_t(count) * 8, gains, size_t(count) * 4)) {
        scalar::derive_gain(src, gains, count, ceiling, stride);
        return;
    }
    const int64_t threshold = gain_threshold(c);
    const uint32_t first_over = uint32_t(threshold) + 1;  // c >= 0: 0 <= threshold <= 2^31 - 2
    const uint8x16_t unity_u8x16 = vreinterpretq_u8_u32(vdupq_n_u32(kUnityGain));
    const uint32_t whole = count & ~15u;
    const uint8_t* in = at(src, 0, 8);
    uint8_t* out = at(gains, 0, 4);
    for (const uint8_t* const end = in + size_t(whole) * 8; in != end; in += 128, out += 64) {
        if (peak_of_sixteen(in) < first_over) {
            // The usual case: one comparison for all sixteen.
            vst1q_u8(out, unity_u8x16);
            vst1q_u8(out + 16, unity_u8x16);
            vst1q_u8(out + 32, unity_u8x16);
            vst1q_u8(out + 48, unity_u8x16);
        } else {
            vst1q_u8_x4(out, gains_of_sixteen(in, first_over, c));
        }
    }
    scalar::derive_gain(src + whole, gains + whole, count - whole, ceiling, 1);
}

// The peaks: a block's largest and smallest samples, widened, give its
// largest magnitude once widened, every widening being monotonic.

uint64_t peak_q33p31(const int64_t* src, uint32_t count) {
    // |x| as unsigned 64-bit lanes (vabsq_s64 leaves -2^63 as 2^63), and an
    // unsigned running maximum by compare and select.
    const uint32_t whole = count & ~7u;
    uint64x2_t m0 = vdupq_n_u64(0), m1 = vdupq_n_u64(0);
    const uint8_t* in = at(src, 0, 8);
    for (const uint8_t* const end = in + size_t(whole) * 8; in != end; in += 64) {
        const uint8x16x4_t x = vld1q_u8_x4(in);
        const uint64x2_t a0 = vreinterpretq_u64_s64(vabsq_s64(vreinterpretq_s64_u8(x.val[0])));
        const uint64x2_t a1 = vreinterpretq_u64_s64(vabsq_s64(vreinterpretq_s64_u8(x.val[1])));
        const uint64x2_t a2 = vreinterpretq_u64_s64(vabsq_s64(vreinterpretq_s64_u8(x.val[2])));
        const uint64x2_t a3 = vreinterpretq_u64_s64(vabsq_s64(vreinterpretq_s64_u8(x.val[3])));
        const uint64x2_t b0 = vbslq_u64(vcgtq_u64(a2, a0), a2, a0);
        const uint64x2_t b1 = vbslq_u64(vcgtq_u64(a3, a1), a3, a1);
        m0 = vbslq_u64(vcgtq_u64(b0, m0), b0, m0);
        m1 = vbslq_u64(vcgtq_u64(b1, m1), b1, m1);
    }
    const uint64x2_t m = vbslq_u64(vcgtq_u64(m1, m0), m1, m0);
    const uint64_t a = vgetq_lane_u64(m, 0), b = vgetq_lane_u64(m, 1);
    const uint64_t rest = scalar::peak_q33p31(src + whole, count - whole), vector_peak = a > b ? a : b;
    return rest > vector_peak ? rest : vector_peak;
}

uint64_t peak_float32(const float* src, uint32_t count) {
    // FMAX and FMIN answer NaN whenever either operand is one, so a NaN sample
    // anywhere reaches the final extremes and the block takes the scalar loop
    // whole (there a NaN widens to 0). FMAXNM would not do: it answers a
    // signalling NaN with a quiet one, which the next FMAXNM passes over,
    // losing the other operand of the first. The extremes start at 0.
    const uint32_t whole = count & ~15u;
    float32x4_t hi0 = vdupq_n_f32(0.0f), hi1 = hi0, lo0 = hi0, lo1 = hi0;
    const uint8_t* in = at(src, 0, 4);
    for (const uint8_t* const end = in + size_t(whole) * 4; in != end; in += 64) {
        const uint8x16x4_t x = vld1q_u8_x4(in);
        const float32x4_t x0 = vreinterpretq_f32_u8(x.val[0]), x1 = vreinterpretq_f32_u8(x.val[1]);
        const float32x4_t x2 = vreinterpretq_f32_u8(x.val[2]), x3 = vreinterpretq_f32_u8(x.val[3]);
        hi0 = vmaxq_f32(hi0, vmaxq_f32(x0, x2));
        hi1 = vmaxq_f32(hi1, vmaxq_f32(x1, x3));
        lo0 = vminq_f32(lo0, vminq_f32(x0, x2));
        lo1 = vminq_f32(lo1, vminq_f32(x1, x3));
    }
    const float hi = vmaxvq_f32(vmaxq_f32(hi0, hi1)), lo = vminvq_f32(vminq_f32(lo0, lo1));
    if (hi != hi || lo != lo) return scalar::peak_float32(src, count);
    // The two extremes widened together (lanes::widen_float32), then their
    // magnitudes: vabsq_s64 leaves -2^63 as 2^63 read unsigned.
    const float64x2_t extremes = vcvt_f64_f32(vset_lane_f32(lo, vdup_n_f32(hi), 1));  // exact
    const uint64x2_t m = vreinterpretq_u64_s64(vabsq_s64(lanes::widen_float32(extremes)));
    const uint64_t top = vgetq_lane_u64(m, 0), bottom = vgetq_lane_u64(m, 1);
    const uint64_t vector_peak = top > bottom ? top : bottom;
    return whole == count ? vector_peak : with_rest(vector_peak, src + whole, count - whole);
}

uint64_t peak_q5p27(const int32_t* src, uint32_t count) {
    const uint32_t whole = count & ~7u;
    uint32x4_t m = vdupq_n_u32(0);
    const uint8_t* in = at(src, 0, 4);
    // vabsq_s32 leaves -2^31 as 0x80000000, which read unsigned is its
    // magnitude; the widening multiplies every magnitude by 16.
    for (const uint8_t* const end = in + size_t(whole) * 4; in != end; in += 32) {
        const uint8x16x2_t x = vld1q_u8_x2(in);
        m = vmaxq_u32(m, vmaxq_u32(vreinterpretq_u32_s32(vabsq_s32(vreinterpretq_s32_u8(x.val[0]))),
                                   vreinterpretq_u32_s32(vabsq_s32(vreinterpretq_s32_u8(x.val[1])))));
    }
    const uint64_t rest = scalar::peak_q5p27(src + whole, count - whole), vector_peak = uint64_t(vmaxvq_u32(m)) << 4;
    return rest > vector_peak ? rest : vector_peak;
}

int32_t calculate_block_min_gain(int32_t is_stereo, const int32_t* gains, int32_t count, int32_t stride) {
    // The minimum does not depend on the order of the words, so a stereo block
    // (two consecutive words a frame) and a mono one with stride 1 are both a
    // plain run of words.
    if (count < 1 || (!is_stereo && stride != 1)) return scalar::calculate_block_min_gain(is_stereo, gains, count, stride);
    const size_t words = frame_samples(is_stereo, count);
    const size_t whole = words & ~size_t(15);
    int32x4_t min_s32x4 = vdupq_n_s32(kUnityGain);
    const uint8_t* in = at(gains, 0, 4);
    for (const uint8_t* const end = in + whole * 4; in != end; in += 64) {
        const uint8x16x4_t w = vld1q_u8_x4(in);
        const int32x4_t a = vminq_s32(vreinterpretq_s32_u8(w.val[0]), vreinterpretq_s32_u8(w.val[1]));
        const int32x4_t b = vminq_s32(vreinterpretq_s32_u8(w.val[2]), vreinterpretq_s32_u8(w.val[3]));
        min_s32x4 = vminq_s32(min_s32x4, vminq_s32(a, b));  // r = min(r, w)
    }
    // whole is even, so the words left over are whole frames in stereo.
    const int32_t rest_words = int32_t(words - whole);
    const int32_t rest = scalar::calculate_block_min_gain(is_stereo, gains + whole,
                                                          is_stereo ? rest_words / 2 : rest_words, 1);
    const int32_t vector_min = vminvq_s32(min_s32x4);
    return rest < vector_min ? rest : vector_min;
}

}  // namespace tvl::neon

#endif
