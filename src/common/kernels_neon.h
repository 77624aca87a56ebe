// The kernels with an arm64 NEON path (128-bit registers), in tvl::neon.
// Kernels not declared here run the scalar reference.
//
// Every NEON kernel gives the bytes of its scalar reference for every input.
// It runs whole vectors and hands what is left to the scalar kernel of the
// same name, so there is no second tail; where its buffers overlap in a way
// that a vector step could read a sample after writing over it, it hands the
// whole call to the scalar kernel.
//
// Buffers may have any alignment: loads and stores are byte vectors
// (vld1q_u8, vst1q_u8 and their multi-register forms) reinterpreted as lanes,
// never typed accesses through a cast pointer.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "common/frame_loops.h"
#include "common/memory.h"
#include "common/scalar_kernels.h"

#if defined(__ARM_NEON) && defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace tvl::neon {
using namespace tvl::scalar;

// src/engine/gain_derivation_neon.cpp
TVL_DECLARE_KERNEL(derive_gain)
TVL_DECLARE_KERNEL(calculate_block_min_gain)
TVL_DECLARE_KERNEL(peak_q33p31)
TVL_DECLARE_KERNEL(peak_float32)
TVL_DECLARE_KERNEL(peak_q5p27)

// src/gain/unity_gain_neon.cpp
TVL_DECLARE_KERNEL(no_limiter)
TVL_DECLARE_KERNEL(apply_fix_gain)
TVL_DECLARE_KERNEL(apply_makeup_gain)

// src/gain/release_step_neon.cpp
TVL_DECLARE_KERNEL(apply_step_gain_without_saturation)

// src/gain/attack_ramp_neon.cpp
TVL_DECLARE_KERNEL(apply_targ_gain)

// src/gain/float32_emission_neon.cpp
TVL_DECLARE_KERNEL(emit_float32_at_unity)
TVL_DECLARE_KERNEL(emit_float32_fix_gain)
TVL_DECLARE_KERNEL(emit_float32_targ_gain)
TVL_DECLARE_KERNEL(emit_float32_step_gain)

// src/gain/fade_ramps_neon.cpp
TVL_DECLARE_KERNEL(apply_ramp_gain_for_q33p31)
TVL_DECLARE_KERNEL(apply_ramp_gain_for_float32)
TVL_DECLARE_KERNEL(apply_ramp_gain_for_q5p27)

// src/gain/hard_clipping_neon.cpp
TVL_DECLARE_KERNEL(clipping_limiter)

// src/convert/block_copies_neon.cpp
TVL_DECLARE_KERNEL(copy_float32_to_q33p31)
TVL_DECLARE_KERNEL(copy_q1p31_to_float32)
TVL_DECLARE_KERNEL(copy_q5p27_to_q33p31)
TVL_DECLARE_KERNEL(copy_q1p31_to_q5p27)

// src/convert/reencode_neon.cpp (the two same-width re-encoders; the four
// that change the element size walk one sample at a time)
TVL_DECLARE_KERNEL(convert_from_q5p27_to_float32)
TVL_DECLARE_KERNEL(convert_from_float32_to_q5p27)

// src/convert/narrow_neon.cpp
TVL_DECLARE_KERNEL(move_from_q33p31_to_q1p31)
TVL_DECLARE_KERNEL(clip_from_q33p31_to_q1p31)
TVL_DECLARE_KERNEL(narrow_q33p31_to_float32)

// src/gain/q5p27_emission_neon.cpp
TVL_DECLARE_KERNEL(emit_q5p27_at_unity)
TVL_DECLARE_KERNEL(emit_q5p27_fix_gain)
TVL_DECLARE_KERNEL(emit_q5p27_targ_gain)
TVL_DECLARE_KERNEL(emit_q5p27_step_gain)

#if defined(__ARM_NEON) && defined(__aarch64__)
namespace lanes {

// ---- float32 -> Q33.31 -------------------------------------------------------

// float32_to_q33p31() of two floats given in double (exact): trunc(x * 2^31 +
// 0.5), the 64-bit bounds beyond the range, NaN 0.
//
// The scalar rule rounds x * 2^31 + 0.5 in double; here x + 2^-32 is rounded
// in double and the conversion scales by 2^31 exactly (fixed-point FCVTZS).
// Both sums are the same real number up to the factor 2^31, and rounding
// commutes with a power-of-two scaling unless a result leaves the normal
// range: every non-zero x + 2^-32 is at least 2^-56 in magnitude and every
// (x + 2^-32) * 2^31 below 2^160, far inside the double range, so both roundings
// give the same value times 2^31, in every rounding mode. FCVTZS truncates
// toward zero, saturates at the 64-bit bounds (infinities included) and
// gives 0 for NaN: truncate_to_int64() exactly.
inline int64x2_t widen_float32(float64x2_t x) {
    return vcvtq_n_s64_f64(vaddq_f64(x, vdupq_n_f64(0x1p-32)), 31);  // trunc((x + 2^-32) * 2^31)
}

// ---- Q15 scaling rule on four Q33.31 samples ----------------------------------

// Splits four Q33.31 samples (two registers of two 64-bit lanes, in order)
// into their low words and their high words, sample order kept.
struct Split {
    int32x4_t lo;   // bits 0..31 of each sample, read as signed
    uint32x4_t hi;  // bits 32..63 of each sample
};
inline Split split(uint8x16_t s01, uint8x16_t s23) {
    const uint32x4_t a = vreinterpretq_u32_u8(s01), b = vreinterpretq_u32_u8(s23);
    return {vreinterpretq_s32_u32(vuzp1q_u32(a, b)), vuzp2q_u32(a, b)};
}

// Bits 15..46 of x * g for four samples x and four gains g (g sign-extended to
// 64 bits), with g17 = g << 17 (mod 2^32) formed by the caller.
//
// Why it is exact: write x = h * 2^32 + l with l the low word read as signed
// (-2^31 <= l < 2^31) and h = (high word) + (1 if l < 0), so that x is the
// same integer. Then x * g = l * g + h * g * 2^32. l * g is an exact signed
// 64-bit product (smull), and shifting the sum right by 15 distributes over
// it because h * g * 2^32 is a multiple of 2^15:
//   bits 15..46 of x * g = lo32((l * g) >> 15) + lo32(h * g * 2^17)  (mod 2^32)
// and lo32(h * g * 2^17) = lo32(h) * lo32(g << 17) (mod 2^32), a 32-bit
// multiply-accumulate. The correction of h is an unsigned shift of the low
// word by 31 (its sign bit), added onto the high word.
inline int32x4_t scale_q15(Split x, int32x4_t g, uint32x4_t g17) {
    const int64x2_t p01 = vmull_s32(vget_low_s32(x.lo), vget_low_s32(g));     // l * g, exact
    const int64x2_t p23 = vmull_high_s32(x.lo, g);                            // l * g, exact
    const int32x4_t low = vshrn_high_n_s64(vshrn_n_s64(p01, 15), p23, 15);   // lo32((l * g) >> 15)
    const uint32x4_t h = vsraq_n_u32(x.hi, vreinterpretq_u32_s32(x.lo), 31); // high + (l < 0)
    const uint32x4_t r = vmlaq_u32(vreinterpretq_u32_s32(low), h, g17);      // + h * g * 2^17
    return vreinterpretq_s32_u32(r);
}

// One pass of eight Q33.31 samples from src to Q1.31 at dst, starting at
// sample `first`: the first four scaled by the lanes of ga, the next four by
// those of gb, by the Q15 scaling rule.
inline void scale_eight(const int64_t* src, int32_t* dst, size_t first, int32x4_t ga, int32x4_t gb) {
    const uint8x16x4_t x = vld1q_u8_x4(at(src, first, 8));
    const uint32x4_t ga17 = vshlq_n_u32(vreinterpretq_u32_s32(ga), 17);  // g << 17
    const uint32x4_t gb17 = vshlq_n_u32(vreinterpretq_u32_s32(gb), 17);
    uint8x16x2_t y;
    y.val[0] = vreinterpretq_u8_s32(scale_q15(split(x.val[0], x.val[1]), ga, ga17));
    y.val[1] = vreinterpretq_u8_s32(scale_q15(split(x.val[2], x.val[3]), gb, gb17));
    vst1q_u8_x2(at(dst, first, 4), y);
}

// Four ramp gains: start + ((entry * diff) >> 15), 32-bit wrap, arithmetic shift.
inline int32x4_t ramp_gains(const int32_t* table, size_t first, int32x4_t start, uint32x4_t diff) {
    const uint32x4_t entry = vreinterpretq_u32_u8(vld1q_u8(at(table, first, 4)));
    const int32x4_t share = vreinterpretq_s32_u32(vmulq_u32(entry, diff));  // entry * diff, low 32 bits
    return vsraq_n_s32(start, share, 15);                                     // start + (share >> 15)
}

// The frame walk of the vector loops whose gain changes from frame to frame
// (release step, attack ramp, fades), in passes of eight samples: four stereo
// frames or eight mono samples. next_gains() returns the gains of the next four
// frames, called for frames 0-3, 4-7, ... in order; pass(sample, ga, gb)
// scales samples sample .. sample + 3 by the lanes of ga and sample + 4 ..
// sample + 7 by those of gb. Returns the frames done: count rounded down to
// whole passes; the caller hands the rest to the scalar kernel.
template <typename NextGains, typename Pass>
inline uint32_t walk_frames(int32_t is_stereo, uint32_t count, NextGains next_gains, Pass pass) {
    if (is_stereo) {
        const uint32_t whole = count & ~3u;
        for (size_t f = 0; f < whole; f += 4) {
            const int32x4_t g = next_gains();
            pass(f * 2, vzip1q_s32(g, g), vzip2q_s32(g, g));  // g0 g0 g1 g1, g2 g2 g3 g3
        }
        return whole;
    }
    const uint32_t whole = count & ~7u;
    for (size_t f = 0; f < whole; f += 8) {
        const int32x4_t ga = next_gains();
        const int32x4_t gb = next_gains();
        pass(f, ga, gb);
    }
    return whole;
}

// The release gains of frames 0-3, 4-7, ... in 32-bit lanes, for walk_frames:
// start + (k + 1) * step, advanced by 4 * step modulo 2^32. Exact when the
// last frame's gain fits in 32 bits: every gain then lies between the start
// gain and it.
inline auto release_gains(int32_t start_gain, int32_t step) {
    static constexpr uint32_t kFirstFrames[4] = {1, 2, 3, 4};
    const uint32x4_t step_u32x4 = vdupq_n_u32(uint32_t(step));
    const uint32x4_t advance_u32x4 = vshlq_n_u32(step_u32x4, 2);  // 4 * step
    uint32x4_t g_u32x4 = vmlaq_u32(vdupq_n_u32(uint32_t(start_gain)), vld1q_u32(kFirstFrames), step_u32x4);
    return [=]() mutable {
        const int32x4_t g = vreinterpretq_s32_u32(g_u32x4);
        g_u32x4 = vaddq_u32(g_u32x4, advance_u32x4);
        return g;
    };
}

// walk_frames over the ramp gains of a table (the attack ramp and the fades):
// frame i has start + ((table[i] * (end - start)) >> 15).
template <typename Pass>
inline uint32_t ramp_walk(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int32_t* ramp_table,
                          uint32_t count, Pass pass) {
    const int32x4_t start_s32x4 = vdupq_n_s32(start_gain);
    const uint32x4_t diff_u32x4 = vdupq_n_u32(uint32_t(end_gain) - uint32_t(start_gain));  // end - start, 32 bits
    size_t entry = 0;
    auto next_gains = [&] {
        const int32x4_t g = ramp_gains(ramp_table, entry, start_s32x4, diff_u32x4);
        entry += 4;
        return g;
    };
    return walk_frames(is_stereo, count, next_gains, pass);
}

}  // namespace lanes
#endif

}  // namespace tvl::neon
