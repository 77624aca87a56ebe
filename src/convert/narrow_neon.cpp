// Narrowing Q33.31 to Q1.31, NEON: sixteen samples per step. Each step reads
// its 128 bytes before it writes 64, at or below them: in place and dst below
// src run the vector loop too (ascending_groups_safe).
#if defined(__ARM_NEON) && defined(__aarch64__)

#include "common/kernels.h"
#include "common/memory.h"
#include "common/sample_rules.h"

namespace tvl::neon {

namespace {

// The low 32-bit words of four Q33.31 samples, in order: narrow_q33p31_to_q1p31().
inline uint8x16_t low_words(uint8x16_t s01, uint8x16_t s23) {
    return vreinterpretq_u8_u32(vuzp1q_u32(vreinterpretq_u32_u8(s01), vreinterpretq_u32_u8(s23)));
}

// Four Q33.31 samples clamped to [-2^31, 2^31 - 1] by SQXTN: clip_q33p31_to_q1p31().
inline uint8x16_t clamped_words(uint8x16_t s01, uint8x16_t s23) {
    return vreinterpretq_u8_s32(vqmovn_high_s64(vqmovn_s64(vreinterpretq_s64_u8(s01)), vreinterpretq_s64_u8(s23)));
}

// Four Q33.31 samples narrowed by wrap and converted to float32:
// q1p31_to_float32(narrow_q33p31_to_q1p31()).
inline uint8x16_t float_words(uint8x16_t s01, uint8x16_t s23) {
    const float32x4_t f = vcvtq_f32_s32(vreinterpretq_s32_u8(low_words(s01, s23)));
    return vreinterpretq_u8_f32(vmulq_f32(f, vdupq_n_f32(0x1p-31f)));
}

// Sixteen samples per step through narrow(s01, s23), 32-bit results. Each
// step reads its 128 bytes before it writes 64, at or below them; the scalar
// kernel finishes.
template <uint8x16_t (*Narrow)(uint8x16_t, uint8x16_t)>
uint32_t narrow_sixteens(const int64_t* src, void* dst, uint32_t count) {
    const uint32_t whole = count & ~15u;
    const uint8_t* in = at(src, 0, 8);
    uint8_t* out = at(dst, 0, 4);
    for (const uint8_t* const end = in + size_t(whole) * 8; in != end; in += 128, out += 64) {
        const uint8x16x4_t x0 = vld1q_u8_x4(in), x1 = vld1q_u8_x4(in + 64);
        uint8x16x4_t y;
        y.val[0] = Narrow(x0.val[0], x0.val[1]);
        y.val[1] = Narrow(x0.val[2], x0.val[3]);
        y.val[2] = Narrow(x1.val[0], x1.val[1]);
        y.val[3] = Narrow(x1.val[2], x1.val[3]);
        vst1q_u8_x4(out, y);
    }
    return whole;
}

// A narrowing kernel: the vector steps where they read before they write,
// else the whole call through the scalar kernel, which also finishes.
template <typename Dst, uint8x16_t (*Narrow)(uint8x16_t, uint8x16_t),
          void (*Scalar)(const int64_t*, Dst*, uint32_t)>
void narrowing(const int64_t* src, Dst* dst, uint32_t count) {
    if (!ascending_groups_safe(src, size_t(count) * 8, dst, size_t(count) * 4)) {
        Scalar(src, dst, count);
        return;
    }
    const uint32_t done = narrow_sixteens<Narrow>(src, dst, count);
    Scalar(src + done, dst + done, count - done);
}

}  // namespace

void move_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count) {
    narrowing<int32_t, low_words, scalar::move_from_q33p31_to_q1p31>(src, dst, count);
}

void clip_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count) {
    narrowing<int32_t, clamped_words, scalar::clip_from_q33p31_to_q1p31>(src, dst, count);
}

void narrow_q33p31_to_float32(const int64_t* src, float* dst, uint32_t count) {
    narrowing<float, float_words, scalar::narrow_q33p31_to_float32>(src, dst, count);
}

}  // namespace tvl::neon

#endif
