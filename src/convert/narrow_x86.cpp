// Narrowing Q33.31 to Q1.31 on x86-64: the low halves (or the saturated
// values) of a group of samples gathered into one register and stored, or
// converted to float32 first; one group per step, eight samples with AVX2,
// four with SSE2. Each step reads its samples before it writes their results
// at or below them: in place and dst below src run the vector loop too
// (ascending_groups_safe).
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

namespace {

// low_words(s) and clamped_words(s): the Q1.31 words of the group of samples
// at s, by wrap (narrow_q33p31_to_q1p31) or by saturation
// (clip_q33p31_to_q1p31); store_words and store_floats store them as they
// are or as float32 (q1p31_to_float32).
#if defined(__AVX2__)

constexpr uint32_t kGroup = 8;
using Words = __m256i;

#if TVL_X86_AVX512
// vpmovqd: the low halves of eight samples in one step. Level 4's only
// AVX-512 code: elsewhere AVX-512 gained less than the run-to-run noise over
// AVX2 (docs/PERFORMANCE.md).
inline Words low_words(const u8* s) { return _mm512_maskz_cvtepi64_epi32(0xFF, _mm512_loadu_si512(s)); }
#else
inline Words low_words(const u8* s) { return low_halves(load256(s), load256(s + 32)); }
#endif

// A sample that fits in 32 bits (high half = sign of low half) keeps its low
// half; any other is beyond the range on the side of its sign and becomes the
// bound of that side.
inline Words clamped_words(const u8* s) {
    const __m256i a = load256(s), b = load256(s + 32);
    const __m256i lo = low_halves(a, b), hi = high_halves(a, b);
    const __m256i fits = _mm256_cmpeq_epi32(hi, _mm256_srai_epi32(lo, 31));
    const __m256i bound = _mm256_xor_si256(_mm256_set1_epi32(INT32_MAX), _mm256_srai_epi32(hi, 31));
    return _mm256_blendv_epi8(bound, lo, fits);
}

inline void store_words(u8* d, Words w) { store256(d, w); }
inline void store_floats(u8* d, Words w) {
    store256f(d, _mm256_mul_ps(_mm256_cvtepi32_ps(w), _mm256_set1_ps(0x1p-31f)));
}

#else

constexpr uint32_t kGroup = 4;
using Words = __m128i;

inline Words low_words(const u8* s) { return low_halves(load128(s), load128(s + 16)); }

// As the AVX2 form, with and / andnot for the blend.
inline Words clamped_words(const u8* s) {
    const __m128i a = load128(s), b = load128(s + 16);
    const __m128i lo = low_halves(a, b), hi = high_halves(a, b);
    const __m128i fits = _mm_cmpeq_epi32(hi, _mm_srai_epi32(lo, 31));
    const __m128i bound = _mm_xor_si128(_mm_set1_epi32(INT32_MAX), _mm_srai_epi32(hi, 31));
    return _mm_or_si128(_mm_and_si128(fits, lo), _mm_andnot_si128(fits, bound));
}

inline void store_words(u8* d, Words w) { store128(d, w); }
inline void store_floats(u8* d, Words w) { store128f(d, _mm_mul_ps(_mm_cvtepi32_ps(w), _mm_set1_ps(0x1p-31f))); }

#endif

// A narrowing kernel: whole groups where they read before they write, the
// rest (or the whole call) through the scalar kernel.
template <typename Dst, Words (*Narrow)(const u8*), void (*Store)(u8*, Words),
          void (*Scalar)(const int64_t*, Dst*, uint32_t)>
void narrowing(const int64_t* src, Dst* dst, uint32_t count) {
    uint32_t done = 0;
    if (ascending_groups_safe(src, size_t(count) * 8, dst, size_t(count) * 4)) {
        done = whole_groups<kGroup>(count, [&](size_t i) { Store(at(dst, i, 4), Narrow(at(src, i, 8))); });
    }
    if (done < count) Scalar(src + done, dst + done, count - done);
}

}  // namespace

void move_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count) {
    narrowing<int32_t, low_words, store_words, scalar::move_from_q33p31_to_q1p31>(src, dst, count);
}

void clip_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count) {
    narrowing<int32_t, clamped_words, store_words, scalar::clip_from_q33p31_to_q1p31>(src, dst, count);
}

void narrow_q33p31_to_float32(const int64_t* src, float* dst, uint32_t count) {
    narrowing<float, low_words, store_floats, scalar::narrow_q33p31_to_float32>(src, dst, count);
}

}  // namespace tvl::x86

#endif  // __x86_64__
