// Narrowing Q33.31 to Q1.31 on x86-64: the low halves (or the saturated
// values) of four or eight samples gathered into one register and stored,
// or converted to float32 first.
// In place and with dst below src the groups still read before they write.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

void move_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count) {
    uint32_t i = 0;
    if (ascending_groups_safe(src, size_t(count) * 8, dst, size_t(count) * 4)) i = narrow_run(src, dst, count);
    scalar::move_from_q33p31_to_q1p31(src + i, dst + i, count - i);
}

void clip_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count) {
    uint32_t i = 0;
    if (ascending_groups_safe(src, size_t(count) * 8, dst, size_t(count) * 4)) i = clip_run(src, dst, count);
    scalar::clip_from_q33p31_to_q1p31(src + i, dst + i, count - i);
}

void narrow_q33p31_to_float32(const int64_t* src, float* dst, uint32_t count) {
    uint32_t i = 0;
    if (ascending_groups_safe(src, size_t(count) * 8, dst, size_t(count) * 4)) {
#if TVL_X86_AVX512
        for (; i + 8 <= count; i += 8) {
            const __m256i w = _mm512_maskz_cvtepi64_epi32(0xFF, _mm512_loadu_si512(at(src, i, 8)));
            _mm256_storeu_ps(reinterpret_cast<float*>(at(dst, i, 4)), _mm256_mul_ps(_mm256_cvtepi32_ps(w), _mm256_set1_ps(0x1p-31f)));
        }
#endif
#if defined(__AVX2__)
        for (; i + 8 <= count; i += 8) {
            const __m256i w = low_halves(load256(at(src, i, 8)), load256(at(src, i + 4, 8)));
            _mm256_storeu_ps(reinterpret_cast<float*>(at(dst, i, 4)), _mm256_mul_ps(_mm256_cvtepi32_ps(w), _mm256_set1_ps(0x1p-31f)));
        }
#endif
        for (; i + 4 <= count; i += 4) {
            const __m128i w = low_halves(load128(at(src, i, 8)), load128(at(src, i + 2, 8)));
            store128f(at(dst, i, 4), _mm_mul_ps(_mm_cvtepi32_ps(w), _mm_set1_ps(0x1p-31f)));
        }
    }
    scalar::narrow_q33p31_to_float32(src + i, dst + i, count - i);
}

}  // namespace tvl::x86

#endif  // __x86_64__
