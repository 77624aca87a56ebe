// Fades, NEON: the ramp gains of four frames at once in 32-bit lanes, eight
// samples per pass (four stereo frames or eight mono samples). Each pass reads
// its eight samples before it writes them, at or below them, so apart, in
// place (dst == src, the library's calls) and dst below src run the vector
// loop (ascending_groups_safe); dst above src inside it takes the scalar
// kernel.
#if defined(__ARM_NEON) && defined(__aarch64__)

#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"

namespace tvl::neon {

namespace {

// Whether the vector loop may run: consecutive samples, passes in ascending
// order safe for the placement of dst, and the table apart from dst.
bool vector_fade(int32_t is_stereo, int32_t stride, const void* src, void* dst, size_t bytes, const int32_t* table,
                 uint32_t count) {
    if (!is_stereo && stride == 2) return false;
    if (!ascending_groups_safe(src, bytes, dst, bytes)) return false;
    return !overlaps(table, size_t(count) * 4, dst, bytes);
}

// Q33.31 by a Q15 gain, kept in 64 bits: (x * g mod 2^64) >> 15, arithmetic,
// for two registers of two samples. With x = h * 2^32 + l as in
// lanes::scale_q15, x * g = l * g + h * g * 2^32, and modulo 2^64 the second
// term is lo32(h * g) * 2^32: the exact product l * g plus the low word of
// h * g placed in the high half of each 64-bit lane.
inline void scale_q33p31_x4(uint8x16_t& s01, uint8x16_t& s23, int32x4_t g) {
    const lanes::Split x = lanes::split(s01, s23);
    const uint32x4_t h = vsraq_n_u32(x.hi, vreinterpretq_u32_s32(x.lo), 31);  // high + (l < 0)
    const uint32x4_t hg = vmulq_u32(h, vreinterpretq_u32_s32(g));            // lo32(h * g)
    // The sum wraps modulo 2^64 by design, so it is formed in unsigned lanes.
    const uint32x4_t zero = vdupq_n_u32(0);
    const uint64x2_t lg01 = vreinterpretq_u64_s64(vmull_s32(vget_low_s32(x.lo), vget_low_s32(g)));  // l * g
    const uint64x2_t lg23 = vreinterpretq_u64_s64(vmull_high_s32(x.lo, g));
    const uint64x2_t p01 = vaddq_u64(lg01, vreinterpretq_u64_u32(vzip1q_u32(zero, hg)));  // + (hg << 32)
    const uint64x2_t p23 = vaddq_u64(lg23, vreinterpretq_u64_u32(vzip2q_u32(zero, hg)));
    s01 = vreinterpretq_u8_s64(vshrq_n_s64(vreinterpretq_s64_u64(p01), 15));  // product >> 15, arithmetic
    s23 = vreinterpretq_u8_s64(vshrq_n_s64(vreinterpretq_s64_u64(p23), 15));
}

// float32: (x * (float)g) * 2^-15, two single-precision multiplies.
inline uint8x16_t scale_float32_x4(uint8x16_t s, int32x4_t g) {
    const float32x4_t product = vmulq_f32(vreinterpretq_f32_u8(s), vcvtq_f32_s32(g));  // x * (float)g
    return vreinterpretq_u8_f32(vmulq_f32(product, vdupq_n_f32(0x1p-15f)));           // product * 2^-15
}

// Q5.27: the low 32 bits of (x * g) >> 15, the product exact in 64 bits.
inline uint8x16_t scale_q5p27_x4(uint8x16_t s, int32x4_t g) {
    const int32x4_t x = vreinterpretq_s32_u8(s);
    const int64x2_t p01 = vmull_s32(vget_low_s32(x), vget_low_s32(g));  // x * g, exact
    const int64x2_t p23 = vmull_high_s32(x, g);
    return vreinterpretq_u8_s32(vshrn_high_n_s64(vshrn_n_s64(p01, 15), p23, 15));  // low 32 bits of p >> 15
}

}  // namespace

int32_t apply_ramp_gain_for_q33p31(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int64_t* src,
                                   int64_t* dst, const int32_t* ramp_table, uint32_t count, int32_t stride) {
    const size_t samples = frame_samples(is_stereo, count);
    if (!vector_fade(is_stereo, stride, src, dst, samples * 8, ramp_table, count)) {
        return scalar::apply_ramp_gain_for_q33p31(is_stereo, start_gain, end_gain, src, dst, ramp_table, count, stride);
    }
    const uint32_t done = lanes::ramp_walk(is_stereo, start_gain, end_gain, ramp_table, count,
                                    [&](size_t first, int32x4_t ga, int32x4_t gb) {
                                        uint8x16x4_t x = vld1q_u8_x4(at(src, first, 8));
                                        scale_q33p31_x4(x.val[0], x.val[1], ga);
                                        scale_q33p31_x4(x.val[2], x.val[3], gb);
                                        vst1q_u8_x4(at(dst, first, 8), x);
                                    });
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::apply_ramp_gain_for_q33p31(is_stereo, start_gain, end_gain, src + skip, dst + skip,
                                              ramp_table + done, count - done, stride);
}

int32_t apply_ramp_gain_for_float32(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const float* src,
                                    float* dst, const int32_t* ramp_table, uint32_t count, int32_t stride) {
    const size_t samples = frame_samples(is_stereo, count);
    if (!vector_fade(is_stereo, stride, src, dst, samples * 4, ramp_table, count)) {
        return scalar::apply_ramp_gain_for_float32(is_stereo, start_gain, end_gain, src, dst, ramp_table, count,
                                                   stride);
    }
    const uint32_t done = lanes::ramp_walk(is_stereo, start_gain, end_gain, ramp_table, count,
                                    [&](size_t first, int32x4_t ga, int32x4_t gb) {
                                        uint8x16x2_t x = vld1q_u8_x2(at(src, first, 4));
                                        x.val[0] = scale_float32_x4(x.val[0], ga);
                                        x.val[1] = scale_float32_x4(x.val[1], gb);
                                        vst1q_u8_x2(at(dst, first, 4), x);
                                    });
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::apply_ramp_gain_for_float32(is_stereo, start_gain, end_gain, src + skip, dst + skip,
                                               ramp_table + done, count - done, stride);
}

int32_t apply_ramp_gain_for_q5p27(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int32_t* src,
                                  int32_t* dst, const int32_t* ramp_table, uint32_t count, int32_t stride) {
    const size_t samples = frame_samples(is_stereo, count);
    if (!vector_fade(is_stereo, stride, src, dst, samples * 4, ramp_table, count)) {
        return scalar::apply_ramp_gain_for_q5p27(is_stereo, start_gain, end_gain, src, dst, ramp_table, count, stride);
    }
    const uint32_t done = lanes::ramp_walk(is_stereo, start_gain, end_gain, ramp_table, count,
                                    [&](size_t first, int32x4_t ga, int32x4_t gb) {
                                        uint8x16x2_t x = vld1q_u8_x2(at(src, first, 4));
                                        x.val[0] = scale_q5p27_x4(x.val[0], ga);
                                        x.val[1] = scale_q5p27_x4(x.val[1], gb);
                                        vst1q_u8_x2(at(dst, first, 4), x);
                                    });
    const size_t skip = frame_samples(is_stereo, done);
    return scalar::apply_ramp_gain_for_q5p27(is_stereo, start_gain, end_gain, src + skip, dst + skip,
                                             ramp_table + done, count - done, stride);
}

}  // namespace tvl::neon

#endif
