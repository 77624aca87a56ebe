// Unity, fixed and makeup gain on x86-64.
//
// The Q15 scaling rule needs bits 15 to 46 of a 64 x 64-bit product; SSE2 and
// AVX2 multiply 32 x 32 -> 64 bits, so each product is put together from its
// 32-bit halves (scale_q15_lanes_by and scale_q15_high in common/simd_x86.h),
// which wraps exactly as the 64-bit product does.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

void no_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride) {
    uint32_t i = 0;
    if (stride != 2 && ascending_groups_safe(src, size_t(count) * 8, dst, size_t(count) * 4)) {
        i = narrow_run(src, dst, count);
    }
    scalar::no_limiter(src + (stride == 2 ? 0 : i), dst + (stride == 2 ? 0 : i), count - i, stride);
}

void apply_fix_gain(int32_t gain, const int64_t* src, int32_t* dst, int32_t count, int32_t stride) {
    if (count < 1 || stride != 1 ||
        !ascending_groups_safe(src, size_t(count) * 8, dst, size_t(count) * 4)) {
        scalar::apply_fix_gain(gain, src, dst, count, stride);
        return;
    }
    const uint32_t n = uint32_t(count);
    const bool negative = gain < 0;
    uint32_t i = 0;
#if TVL_X86_AVX512
    const __m512i g64 = _mm512_set1_epi64(gain);
    for (; i + 8 <= n; i += 8) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(at(dst, i, 4)), scale_q15_lanes(_mm512_loadu_si512(at(src, i, 8)), g64));
    }
#endif
#if defined(__AVX2__)
    const __m256i gg = _mm256_set1_epi32(gain);
    for (; i + 8 <= n; i += 8) {
        const __m256i a = scale_q15_high(load256(at(src, i, 8)), gg, negative);
        const __m256i b = scale_q15_high(load256(at(src, i + 4, 8)), gg, negative);
        store256(at(dst, i, 4), high_halves(a, b));
    }
#endif
    const __m128i g = _mm_set1_epi64x(gain);
    for (; i + 4 <= n; i += 4) {
        const __m128i a = scale_q15_lanes_by(load128(at(src, i, 8)), g, negative);
        const __m128i b = scale_q15_lanes_by(load128(at(src, i + 2, 8)), g, negative);
        store128(at(dst, i, 4), low_halves(a, b));
    }
    scalar::apply_fix_gain(gain, src + i, dst + i, int32_t(n - i), 1);
}

void apply_makeup_gain(int32_t* samples, uint32_t count, int32_t gain) {
    // x * g with x and g signed: bits 15 to 46 of the unsigned product of
    // their 32-bit patterns, less (g where x < 0, plus x where g < 0) << 17,
    // the 2^32 multiples the unsigned patterns carry.
    const int32_t g = int16_t(uint16_t(uint32_t(gain)));  // low 16 bits, sign-extended
    const __m128i gu = _mm_set1_epi32(g);
    const __m128i low_mask = _mm_set_epi32(0, -1, 0, -1);
    uint32_t i = 0;
    for (; i + 4 <= count; i += 4) {
        const __m128i x = load128(at(samples, i, 4));
        const __m128i even = _mm_srli_epi64(_mm_mul_epu32(x, gu), 15);
        const __m128i odd = _mm_slli_epi64(_mm_mul_epu32(_mm_srli_epi64(x, 32), gu), 17);
        __m128i r = _mm_or_si128(_mm_and_si128(even, low_mask), _mm_andnot_si128(low_mask, odd));
        __m128i excess = _mm_and_si128(_mm_srai_epi32(x, 31), gu);
        if (g < 0) excess = _mm_add_epi32(excess, x);
        r = _mm_sub_epi32(r, _mm_slli_epi32(excess, 17));
        store128(at(samples, i, 4), _mm_and_si128(r, _mm_set1_epi32(~1)));
    }
    scalar::apply_makeup_gain(samples + i, count - i, gain);
}

}  // namespace tvl::x86

#endif  // __x86_64__
