// Block boundary copies on x86-64, one group of samples per step: eight with
// AVX2, four with SSE2.
//
// float32 -> Q33.31 (x * 2^31 + 0.5 in double, then toward zero to int64):
// x86 has no double -> int64 conversion before AVX-512, so every group is
// widened by an exact route for floats below 2^20 in magnitude, noting the
// largest magnitude met; where a float reached 2^20 (or was infinite or NaN),
// the groups that hold one are widened again by the scalar rule, which
// saturates them. The source is still intact then: the vector path runs only
// with the buffers apart.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

namespace {

// Each level's groups: q1p31_to_float32_group(s, d), q5p27_to_q33p31_group
// and q1p31_to_q5p27_group convert the group of kGroup samples at s to d;
// widen_group(s, d) widens that of floats as if each lay below 2^20 in
// magnitude, and Range notes (note(s)) whether a group's floats do
// (all_below_2p20()).
#if defined(__AVX2__)

constexpr uint32_t kGroup = 8;

inline void q1p31_to_float32_group(const u8* s, u8* d) {
    store256f(d, _mm256_mul_ps(_mm256_cvtepi32_ps(load256(s)), _mm256_set1_ps(0x1p-31f)));
}
inline void q5p27_to_q33p31_group(const u8* s, u8* d) {
    store256(d, _mm256_slli_epi64(_mm256_cvtepi32_epi64(load128(s)), 4));
    store256(d + 32, _mm256_slli_epi64(_mm256_cvtepi32_epi64(load128(s + 16)), 4));
}
inline void q1p31_to_q5p27_group(const u8* s, u8* d) { store256(d, _mm256_srai_epi32(load256(s), 4)); }

// Four floats below 2^20 in magnitude: the rule's double t truncated toward
// zero by vroundpd, as the int64 it holds: |trunc(t)| < 2^51, so
// trunc(t) + 1.5 * 2^52 lies in [2^52, 2^53), where a double's bits count
// units of 1 from 2^52.
TVL_X86_INLINE __m256i widened_below_2p20(const u8* s) {
    const __m256d magic = _mm256_set1_pd(0x1.8p52);
    const __m256d whole = _mm256_round_pd(widening_double(load128f(s)), _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    return _mm256_sub_epi64(_mm256_castpd_si256(_mm256_add_pd(whole, magic)), _mm256_castpd_si256(magic));
}
TVL_X86_INLINE void widen_group(const u8* s, u8* d) {
    store256(d, widened_below_2p20(s));
    store256(d + 32, widened_below_2p20(s + 16));
}

// The largest float magnitude met, as bits without the sign read as unsigned
// integers, which order the magnitudes as the floats do and put infinities,
// then NaNs, above every number.
struct Range {
    __m256i top = _mm256_setzero_si256();
    TVL_X86_INLINE void note(const u8* s) {
        top = _mm256_max_epu32(top, _mm256_and_si256(load256(s), _mm256_set1_epi32(INT32_MAX)));
    }
    bool all_below_2p20() const {
        const __m256i reached = _mm256_cmpgt_epi32(top, _mm256_set1_epi32(0x497FFFFF));  // bits of 2^20, less 1
        return _mm256_testz_si256(reached, reached);
    }
};

#else

constexpr uint32_t kGroup = 4;

inline void q1p31_to_float32_group(const u8* s, u8* d) {
    store128f(d, _mm_mul_ps(_mm_cvtepi32_ps(load128(s)), _mm_set1_ps(0x1p-31f)));
}
inline void q5p27_to_q33p31_group(const u8* s, u8* d) {
    const __m128i w = load128(s), sign = _mm_srai_epi32(w, 31);
    store128(d, _mm_slli_epi64(_mm_unpacklo_epi32(w, sign), 4));
    store128(d + 16, _mm_slli_epi64(_mm_unpackhi_epi32(w, sign), 4));
}
inline void q1p31_to_q5p27_group(const u8* s, u8* d) { store128(d, _mm_srai_epi32(load128(s), 4)); }

// Two doubles t rounded by a magic number: |t| + 2^52 puts the integer
// nearest to |t| in the low mantissa bits (round to nearest, exact while
// |t| < 2^52, so for floats below 2^20), less 1 where that rounded up gives
// floor(|t|), and the sign of t is put back.
inline __m128i truncate_wide(__m128 x_pair) {
    const __m128d t = _mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(x_pair), _mm_set1_pd(0x1p31)), _mm_set1_pd(0.5));
    const __m128d magnitude = _mm_and_pd(t, _mm_castsi128_pd(_mm_set1_epi64x(INT64_MAX)));
    const __m128d big = _mm_set1_pd(0x1p52);
    const __m128d shifted = _mm_add_pd(magnitude, big);  // 2^52 + round(|t|)
    const __m128d rounded = _mm_sub_pd(shifted, big);
    __m128i n = _mm_sub_epi64(_mm_castpd_si128(shifted), _mm_castpd_si128(big));
    n = _mm_add_epi64(n, _mm_castpd_si128(_mm_cmpgt_pd(rounded, magnitude)));  // -1 where rounded up
    const __m128i negative = _mm_castpd_si128(_mm_cmplt_pd(t, _mm_setzero_pd()));
    return _mm_sub_epi64(_mm_xor_si128(n, negative), negative);
}
inline void widen_group(const u8* s, u8* d) {
    const __m128 x = load128f(s);
    store128(d, truncate_wide(x));
    store128(d + 16, truncate_wide(_mm_movehl_ps(x, x)));
}

// Whether a float met lay at 2^20 or beyond in magnitude, or was NaN (the
// comparison "not below" holds for NaN).
struct Range {
    __m128 reached = _mm_setzero_ps();
    inline void note(const u8* s) {
        const __m128 magnitude = _mm_and_ps(load128f(s), _mm_castsi128_ps(_mm_set1_epi32(INT32_MAX)));
        reached = _mm_or_ps(reached, _mm_cmpnlt_ps(magnitude, _mm_set1_ps(0x1p20f)));
    }
    bool all_below_2p20() const { return _mm_movemask_ps(reached) == 0; }
};

#endif

}  // namespace

void copy_float32_to_q33p31(const float* src, int64_t* dst, uint32_t count) {
    if (overlaps(src, size_t(count) * 4, dst, size_t(count) * 8)) {
        scalar::copy_float32_to_q33p31(src, dst, count);
        return;
    }
    Range range;
    const uint32_t done = whole_groups<kGroup>(count, [&](size_t i) {
        range.note(at(src, i, 4));
        widen_group(at(src, i, 4), at(dst, i, 8));
    });
    if (!range.all_below_2p20()) {
        whole_groups<kGroup>(count, [&](size_t i) {
            Range group;
            group.note(at(src, i, 4));
            if (!group.all_below_2p20()) scalar::copy_float32_to_q33p31(src + i, dst + i, kGroup);
        });
    }
    if (done < count) scalar::copy_float32_to_q33p31(src + done, dst + done, count - done);
}

void copy_q1p31_to_float32(const int32_t* src, float* dst, uint32_t count) {
    uint32_t done = 0;
    if (ascending_groups_safe(src, size_t(count) * 4, dst, size_t(count) * 4)) {
        done = whole_groups<kGroup>(count, [&](size_t i) { q1p31_to_float32_group(at(src, i, 4), at(dst, i, 4)); });
    }
    if (done < count) scalar::copy_q1p31_to_float32(src + done, dst + done, count - done);
}

void copy_q5p27_to_q33p31(const int32_t* src, int64_t* dst, uint32_t count) {
    uint32_t done = 0;
    if (!overlaps(src, size_t(count) * 4, dst, size_t(count) * 8)) {
        done = whole_groups<kGroup>(count, [&](size_t i) { q5p27_to_q33p31_group(at(src, i, 4), at(dst, i, 8)); });
    }
    if (done < count) scalar::copy_q5p27_to_q33p31(src + done, dst + done, count - done);
}

void copy_q1p31_to_q5p27(const int32_t* src, int32_t* dst, uint32_t count) {
    uint32_t done = 0;
    if (ascending_groups_safe(src, size_t(count) * 4, dst, size_t(count) * 4)) {
        done = whole_groups<kGroup>(count, [&](size_t i) { q1p31_to_q5p27_group(at(src, i, 4), at(dst, i, 4)); });
    }
    scalar::copy_q1p31_to_q5p27(src + done, dst + done, count - done);
}

}  // namespace tvl::x86

#endif  // __x86_64__
