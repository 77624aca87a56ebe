// Unity, fixed and makeup gain on x86-64: unity through the narrowing kernel,
// the fixed gain eight samples per step by the level's scale_eight()
// (common/simd_x86.h), the makeup gain four words per step in SSE2.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

void no_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride) {
    // Consecutive mode is move_from_q33p31_to_q1p31(), sample for sample.
    if (stride == 2) {
        scalar::no_limiter(src, dst, count, stride);  // every-second-sample mode
        return;
    }
    move_from_q33p31_to_q1p31(src, dst, count);
}

void apply_fix_gain(int32_t gain, const int64_t* src, int32_t* dst, int32_t count, int32_t stride) {
    // Each step reads its eight samples before it writes their results at or
    // below them: in place and dst below src run the vector loop too.
    if (count < 1 || stride != 1 || !ascending_groups_safe(src, size_t(count) * 8, dst, size_t(count) * 4)) {
        scalar::apply_fix_gain(gain, src, dst, count, stride);
        return;
    }
    Gains4 g;
    spread(_mm_set1_epi32(gain), g);
    const uint32_t done = whole_groups<8>(uint32_t(count), [&](size_t i) { scale_eight(src, dst, i, g, g); });
    scalar::apply_fix_gain(gain, src + done, dst + done, count - int32_t(done), 1);
}

void apply_makeup_gain(int32_t* samples, uint32_t count, int32_t gain) {
    // In place, each lane reading and writing its own sample: always safe.
    // x * g with x and g signed: bits 15 to 46 of the unsigned product of
    // their 32-bit patterns, less (g where x < 0, plus x where g < 0) << 17,
    // the 2^32 multiples the unsigned patterns carry.
    const int32_t g = int16_t(uint16_t(uint32_t(gain)));  // low 16 bits, sign-extended
    const __m128i gu = _mm_set1_epi32(g);
    const __m128i low_mask = _mm_set_epi32(0, -1, 0, -1);
    const uint32_t done = whole_groups<4>(count, [&](size_t i) {
        const __m128i x = load128(at(samples, i, 4));
        const __m128i even = _mm_srli_epi64(_mm_mul_epu32(x, gu), 15);
        const __m128i odd = _mm_slli_epi64(_mm_mul_epu32(_mm_srli_epi64(x, 32), gu), 17);
        __m128i r = _mm_or_si128(_mm_and_si128(even, low_mask), _mm_andnot_si128(low_mask, odd));
        __m128i excess = _mm_and_si128(_mm_srai_epi32(x, 31), gu);
        if (g < 0) excess = _mm_add_epi32(excess, x);
        r = _mm_sub_epi32(r, _mm_slli_epi32(excess, 17));
        store128(at(samples, i, 4), _mm_and_si128(r, _mm_set1_epi32(~1)));
    });
    scalar::apply_makeup_gain(samples + done, count - done, gain);
}

}  // namespace tvl::x86

#endif  // __x86_64__
