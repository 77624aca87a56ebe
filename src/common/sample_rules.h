// The per-sample rules of the library, each written once.
//
// Every kernel, scalar or vector, computes exactly what these functions
// compute for one sample; the scalar kernels are plain loops over them and the
// vector tests compare against those loops. All wrap-around is spelt out with
// unsigned arithmetic (signed overflow would be undefined), right shifts of
// signed values are arithmetic (floors), and float-to-integer conversions are
// guarded so that no out-of-range conversion is ever evaluated.
#pragma once

#include <stdint.h>

namespace tvl {

constexpr int32_t kUnityGain = 32767;           // Q15 "no reduction"
constexpr int32_t kTargetLevel = 0x7FDA0000;    // Q1.31 32730/32768, about -0.0101 dBFS
constexpr int kBlockFrames = 64;

// ---- Narrowing Q33.31 (int64) to Q1.31 (int32) -----------------------------

// Keeps the low 32 bits: values outside [-2^31, 2^31 - 1] wrap.
constexpr int32_t narrow_q33p31_to_q1p31(int64_t x) { return int32_t(uint32_t(uint64_t(x))); }

// Saturates to [-2^31, 2^31 - 1]: first the larger of x and -2^31, then the
// smaller of that and 2^31 - 1.
constexpr int32_t clip_q33p31_to_q1p31(int64_t x) {
    const int64_t lo = INT32_MIN, hi = INT32_MAX;
    x = x > lo ? x : lo;
    x = x < hi ? x : hi;
    return int32_t(x);
}

// ---- Q15 gains -------------------------------------------------------------

// Q15 scaling rule: bits 15 to 46 of the 64-bit product (wrapping), that is
// floor(x * g / 32768) when it fits in 32 bits, else its low 32 bits. No
// rounding constant, no saturation. g is a gain sign-extended to 64 bits.
constexpr int32_t scale_q33p31_to_q1p31(int64_t x, int64_t g) {
    return int32_t(uint32_t((uint64_t(x) * uint64_t(g)) >> 15));
}

// The same product kept in Q33.31: arithmetic shift of the wrapped product.
constexpr int64_t scale_q33p31(int64_t x, int32_t g) {
    return int64_t(uint64_t(x) * uint64_t(int64_t(g))) >> 15;
}

// Q5.27 by a Q15 gain: exact 64-bit product (|x * g| < 2^62), floor, low 32 bits.
constexpr int32_t scale_q5p27(int32_t x, int32_t g) {
    return int32_t(uint32_t(uint64_t((int64_t(x) * g) >> 15)));
}

// float32 by a Q15 gain: two single-precision multiplies in this order, first
// by the gain, then by 2^-15 (exact unless the result is subnormal). Not
// x * (g / 32768): an intermediate beyond the float range becomes infinite.
inline float scale_float32(float x, int32_t g) {
    const float product = x * float(g);
    return product * 0x1p-15f;
}

// Output (makeup) gain on a Q1.31 sample: g is the low 16 bits of the gain,
// sign-extended; floor(x * g / 32768), low 32 bits, bit 0 cleared.
constexpr int32_t makeup_q1p31(int32_t x, int32_t gain) {
    const int64_t g = int16_t(uint16_t(uint32_t(gain)));
    return int32_t(uint32_t(uint64_t((int64_t(x) * g) >> 15)) & ~uint32_t(1));
}

// Ramp gain of a frame: start + ((entry * (end - start)) >> 15), with a 32-bit
// difference, the low 32 bits of the product, an arithmetic shift (a floor:
// -1 >> 15 is -1) and a 32-bit sum.
constexpr int32_t ramp_gain(int32_t start, int32_t end, int32_t entry) {
    const uint32_t diff = uint32_t(end) - uint32_t(start);
    const int32_t share = int32_t(uint32_t(entry) * diff);
    return int32_t(uint32_t(start) + uint32_t(share >> 15));
}

// Release gain of frame k (0-based): start + (k + 1) * step in 64 bits, unbounded.
constexpr int64_t release_gain(int32_t start, int32_t step, uint32_t k) {
    return int64_t(start) + (int64_t(k) + 1) * int64_t(step);
}

// ---- Gain derivation -------------------------------------------------------

// The ceiling argument's low 16 bits, sign-extended.
constexpr int32_t ceiling_q15(int32_t ceiling) { return int16_t(uint16_t(uint32_t(ceiling))); }

// Largest magnitude that needs no reduction: (c * 0xFFFFFFFE0000) >> 32 with
// bit 0 cleared, c * 65536 - 2 for c in 1..32767 (2147418110 for 32767).
constexpr int64_t gain_threshold(int32_t c) {
    return (int64_t(c) * 0xFFFFFFFE0000LL >> 32) & ~int64_t(1);
}

// Magnitude of a Q33.31 sample as an unsigned number (-2^63 gives 2^63).
constexpr uint64_t magnitude(int64_t x) { return x < 0 ? 0 - uint64_t(x) : uint64_t(x); }

// The gain a sample of magnitude m needs, given it exceeds the threshold.
// d = m >> 15 (units of 2^-16 of full scale), q = kTargetLevel / d truncated
// (0 when d is 0), gain = floor(c * q / 32768) with bit 0 cleared, so every
// reduced gain is even and 32767 only marks an untouched sample. Magnitudes
// of 2^46 and more have d >= 2^31 > kTargetLevel, so q is 0 and the gain 0
// (taking d without truncating it to 32 bits).
constexpr int32_t reduced_gain(uint64_t m, int32_t c) {
    if (m >= (uint64_t(1) << 46)) return 0;
    const int32_t d = int32_t(m >> 15);
    const int32_t q = d == 0 ? 0 : kTargetLevel / d;
    return int32_t((int64_t(c) * q) >> 15) & ~int32_t(1);
}

constexpr int32_t required_gain(int64_t x, int32_t c, int64_t threshold) {
    const uint64_t m = magnitude(x);
    if (threshold >= 0 && m <= uint64_t(threshold)) return kUnityGain;
    return reduced_gain(m, c);
}

// The smallest required gain of a block, capped at unity, for a ceiling
// c >= 0, from the block's largest magnitude alone. For c >= 0 the capped gain
// never rises with the magnitude: 32767 up to the threshold; above it
// (m >= 65535 for c >= 1) d = m >> 15 >= 1 grows with m, q = N / d shrinks,
// (c * q) >> 15 and the clearing of bit 0 keep that order, and the 0 given
// from 2^46 on lies below every other gain (c = 0 gives 0 throughout). So the
// sample of largest magnitude needs the smallest gain. Not for c < 0, where
// the order turns round.
constexpr int32_t min_required_gain_of_peak(uint64_t peak, int32_t c, int64_t threshold) {
    if (peak <= uint64_t(threshold)) return kUnityGain;
    const int32_t g = reduced_gain(peak, c);
    return g < kUnityGain ? g : kUnityGain;
}

// ---- Format conversions ----------------------------------------------------

// Truncation toward zero of a double, saturating at the 64-bit bounds; NaN 0.
constexpr int64_t truncate_to_int64(double v) {
    if (v != v) return 0;
    if (v >= 0x1p63) return INT64_MAX;
    if (v < -0x1p63) return INT64_MIN;
    return int64_t(v);
}

// Truncation toward zero of a double, saturating at the 32-bit bounds; NaN 0.
constexpr int32_t truncate_to_int32(double v) {
    if (v != v) return 0;
    if (v >= 0x1p31) return INT32_MAX;
    if (v <= -0x1p31 - 1.0) return INT32_MIN;
    return int32_t(v);
}

// float32 -> Q33.31: x * 2^31 + 0.5 in double, toward zero. Half up for
// non-negative values; a negative whole multiple of 2^-31 gains 1 (-1.0 gives
// -2147483647). Beyond the 64-bit range the nearest bound, NaN 0.
constexpr int64_t float32_to_q33p31(float x) { return truncate_to_int64(double(x) * 0x1p31 + 0.5); }

// Q1.31 -> float32: one rounding (to nearest even) in the int-to-float
// conversion, then an exact scaling by 2^-31. 0x7FFFFFFF gives 1.0.
constexpr float q1p31_to_float32(int32_t w) { return float(w) * 0x1p-31f; }

// Q5.27 -> Q33.31: sign-extend and multiply by 16; exact.
constexpr int64_t q5p27_to_q33p31(int32_t w) { return int64_t(uint64_t(int64_t(w)) << 4); }

// Q1.31 -> Q5.27: arithmetic shift right by 4, floor(w / 16).
constexpr int32_t q1p31_to_q5p27(int32_t w) { return w >> 4; }

// Q33.31 -> float32: the 64-bit word over 2^31, rounded once (the scaling by
// 2^-31 is exact). Values beyond full scale keep their size.
constexpr float q33p31_to_float32(int64_t x) { return float(x) * 0x1p-31f; }

// Q33.31 -> Q5.27 by the route of a limited block: narrow to Q1.31 (wraps),
// then shift right by 4. +1.0 comes back as -1.0.
constexpr int32_t q33p31_to_q5p27(int64_t x) { return q1p31_to_q5p27(narrow_q33p31_to_q1p31(x)); }

// Q5.27 -> float32: one rounding, then an exact scaling by 2^-27.
constexpr float q5p27_to_float32(int32_t w) { return float(w) * 0x1p-27f; }

// float32 -> Q5.27: x * 2^27 + 0.5 in double, toward zero. Exact for floats in
// [-16.0, 16.0); outside it (infinities included) the 32-bit bounds; NaN 0.
constexpr int32_t float32_to_q5p27(float x) { return truncate_to_int32(double(x) * 0x1p27 + 0.5); }

// ---- A float32 sample through the limiter ------------------------------------

// Widened to Q33.31, narrowed to Q1.31 by wrap (unity) or scaled by a Q15 gain
// g sign-extended to 64 bits, and back to float32: the delay line, a gain
// kernel and the block copy one after the other.
inline float float32_at_unity(float x) { return q1p31_to_float32(narrow_q33p31_to_q1p31(float32_to_q33p31(x))); }
inline float float32_scaled_q15(float x, int64_t g) {
    return q1p31_to_float32(scale_q33p31_to_q1p31(float32_to_q33p31(x), g));
}

// ---- A Q5.27 sample through the limiter ---------------------------------------

// The same for Q5.27: widened exactly, narrowed to Q1.31 by wrap (unity) or
// scaled, then shifted back. At unity only the low 28 bits survive,
// sign-extended; scaled, bits 11 to 42 of the exact product w * g, shifted.
constexpr int32_t q5p27_at_unity(int32_t w) { return q33p31_to_q5p27(q5p27_to_q33p31(w)); }
constexpr int32_t q5p27_scaled_q15(int32_t w, int64_t g) {
    return q1p31_to_q5p27(scale_q33p31_to_q1p31(q5p27_to_q33p31(w), g));
}

}  // namespace tvl
