// Delay line re-encoding on x86-64: the two same-width conversions four
// samples at a time in place, in SSE2 at every level (each result depends on
// its own sample only, so any order of the groups will do). The width changes
// keep their one-at-a-time walks.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

void convert_from_q5p27_to_float32(void* samples, uint32_t count) {
    const uint32_t done = whole_groups<4>(count, [&](size_t i) {
        u8* p = at(samples, i, 4);
        store128f(p, _mm_mul_ps(_mm_cvtepi32_ps(load128(p)), _mm_set1_ps(0x1p-27f)));
    });
    scalar::convert_from_q5p27_to_float32(at(samples, done, 4), count - done);
}

void convert_from_float32_to_q5p27(void* samples, uint32_t count) {
    // x * 2^27 + 0.5 in double, toward zero to int32 with the scalar rule's
    // saturation: capping at 2147483647.0 changes no truncation below 2^31
    // and turns every larger value (and +infinity) into INT32_MAX; cvttpd2dq
    // already gives INT32_MIN for everything at or below -2^31 - 1; NaN lanes
    // are zeroed before the conversion.
    const __m128d two27 = _mm_set1_pd(0x1p27), half = _mm_set1_pd(0.5), cap = _mm_set1_pd(2147483647.0);
    const auto convert2 = [&](__m128 x) {
        const __m128d t = _mm_add_pd(_mm_mul_pd(_mm_cvtps_pd(x), two27), half);
        const __m128d capped = _mm_min_pd(cap, t);  // NaN t passes through
        return _mm_cvttpd_epi32(_mm_and_pd(capped, _mm_cmpord_pd(t, t)));
    };
    const uint32_t done = whole_groups<4>(count, [&](size_t i) {
        u8* p = at(samples, i, 4);
        const __m128 x = load128f(p);
        store128(p, _mm_unpacklo_epi64(convert2(x), convert2(_mm_movehl_ps(x, x))));
    });
    scalar::convert_from_float32_to_q5p27(at(samples, done, 4), count - done);
}

}  // namespace tvl::x86

#endif  // __x86_64__
