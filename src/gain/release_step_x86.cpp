// Release step on x86-64: the running gain kept in 64-bit lanes (frame k has
// start + (k + 1) * step, stepped by a lane-count multiple of step), each
// sample scaled by the Q15 scaling rule with the full 64-bit gain, whose high
// half takes part in the wrapped product exactly as in the 64-bit reference.
// When every gain of the call lies in [0, 2^32), as the library's do, AVX2
// keeps only their low halves and forms each product from 32-bit pieces.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

int32_t apply_step_gain_without_saturation(int32_t is_stereo, int32_t start_gain, int32_t step, const int64_t* src,
                                           int32_t* dst, uint32_t count, int32_t stride) {
    const size_t samples = is_stereo ? size_t(count) * 2 : size_t(count);
    if ((!is_stereo && stride == 2) || overlaps(src, samples * 8, dst, samples * 4)) {
        return scalar::apply_step_gain_without_saturation(is_stereo, start_gain, step, src, dst, count, stride);
    }
    // Samples are taken four at a time; lane j of a group of four has the
    // gain of frame (first sample + j) / 2 in stereo, first sample + j in mono.
    const int64_t s = step;
    // The gains run linearly from the first frame's to the last's: when both
    // lie in [0, 2^32) every gain has a zero high half, one cross product fewer.
    const int64_t first = release_gain(start_gain, step, 0);
    const int64_t last = count == 0 ? first : release_gain(start_gain, step, count - 1);
    const bool narrow_gains = first >= 0 && last >= 0 && first < (INT64_C(1) << 32) && last < (INT64_C(1) << 32);
    size_t i = 0;
#if TVL_X86_AVX512
    {
        __m512i g = is_stereo ? _mm512_set_epi64(release_gain(start_gain, step, 3), release_gain(start_gain, step, 3),
                                                 release_gain(start_gain, step, 2), release_gain(start_gain, step, 2),
                                                 release_gain(start_gain, step, 1), release_gain(start_gain, step, 1),
                                                 release_gain(start_gain, step, 0), release_gain(start_gain, step, 0))
                              : _mm512_set_epi64(release_gain(start_gain, step, 7), release_gain(start_gain, step, 6),
                                                 release_gain(start_gain, step, 5), release_gain(start_gain, step, 4),
                                                 release_gain(start_gain, step, 3), release_gain(start_gain, step, 2),
                                                 release_gain(start_gain, step, 1), release_gain(start_gain, step, 0));
        const __m512i g_step = _mm512_set1_epi64(int64_t(uint64_t(s) * (is_stereo ? 4 : 8)));
        for (; i + 8 <= samples; i += 8) {
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(at(dst, i, 4)),
                                scale_q15_lanes(_mm512_loadu_si512(at(src, i, 8)), g));
            g = _mm512_add_epi64(g, g_step);
        }
    }
    // The loops below start again from the first frame not yet done.
    const uint32_t frames_done = uint32_t(is_stereo ? i / 2 : i);
#else
    const uint32_t frames_done = 0;
#endif
#if defined(__AVX2__)
    uint32_t k = frames_done;
    if (narrow_gains) {
        // Every gain below 2^32: each sample's gain in both halves of its
        // 64-bit lane (scale_q15_high), stepped by 32-bit additions, which no
        // gain between the first and the last makes wrap.
        const auto gain = [&](uint32_t frame) { return int32_t(uint32_t(uint64_t(release_gain(start_gain, step, frame)))); };
        __m256i ga, gb;  // samples i to i + 3, i + 4 to i + 7
        if (is_stereo) {
            ga = _mm256_setr_epi32(gain(k), gain(k), gain(k), gain(k), gain(k + 1), gain(k + 1), gain(k + 1), gain(k + 1));
            gb = _mm256_setr_epi32(gain(k + 2), gain(k + 2), gain(k + 2), gain(k + 2), gain(k + 3), gain(k + 3), gain(k + 3), gain(k + 3));
        } else {
            ga = _mm256_setr_epi32(gain(k), gain(k), gain(k + 1), gain(k + 1), gain(k + 2), gain(k + 2), gain(k + 3), gain(k + 3));
            gb = _mm256_setr_epi32(gain(k + 4), gain(k + 4), gain(k + 5), gain(k + 5), gain(k + 6), gain(k + 6), gain(k + 7), gain(k + 7));
        }
        const uint32_t frames_per_group = is_stereo ? 4 : 8;
        const __m256i gg_step = _mm256_set1_epi32(int32_t(uint32_t(step) * frames_per_group));
        for (; i + 8 <= samples; i += 8) {
            const __m256i a = scale_q15_high(load256(at(src, i, 8)), ga, false);
            const __m256i b = scale_q15_high(load256(at(src, i + 4, 8)), gb, false);
            store256(at(dst, i, 4), high_halves(a, b));
            ga = _mm256_add_epi32(ga, gg_step);
            gb = _mm256_add_epi32(gb, gg_step);
        }
        k = uint32_t(is_stereo ? i / 2 : i);
    }
    __m256i g = is_stereo ? _mm256_set_epi64x(release_gain(start_gain, step, k + 1), release_gain(start_gain, step, k + 1),
                                              release_gain(start_gain, step, k), release_gain(start_gain, step, k))
                          : _mm256_set_epi64x(release_gain(start_gain, step, k + 3), release_gain(start_gain, step, k + 2),
                                              release_gain(start_gain, step, k + 1), release_gain(start_gain, step, k));
    const __m256i g_step = _mm256_set1_epi64x(int64_t(uint64_t(s) * (is_stereo ? 2 : 4)));
    for (; i + 4 <= samples; i += 4) {
        const __m256i x = load256(at(src, i, 8));
        const __m256i a = scale_q15_lanes(x, g);
        g = _mm256_add_epi64(g, g_step);
        const __m128i lo = _mm256_castsi256_si128(a), hi = _mm256_extracti128_si256(a, 1);
        store128(at(dst, i, 4), low_halves(lo, hi));
    }
#else
    const uint32_t k = frames_done;
    __m128i g = is_stereo ? _mm_set1_epi64x(release_gain(start_gain, step, k))
                          : _mm_set_epi64x(release_gain(start_gain, step, k + 1), release_gain(start_gain, step, k));
    const __m128i g_step = _mm_set1_epi64x(int64_t(uint64_t(s) * (is_stereo ? 1 : 2)));
    for (; i + 4 <= samples; i += 4) {
        const __m128i xa = load128(at(src, i, 8));
        const __m128i a = narrow_gains ? scale_q15_lanes_by(xa, g, false) : scale_q15_lanes(xa, g);
        g = _mm_add_epi64(g, g_step);
        const __m128i xb = load128(at(src, i + 2, 8));
        const __m128i b = narrow_gains ? scale_q15_lanes_by(xb, g, false) : scale_q15_lanes(xb, g);
        g = _mm_add_epi64(g, g_step);
        store128(at(dst, i, 4), low_halves(a, b));
    }
#endif
    // The rest by the per-sample rule (a scalar call could not carry a start
    // gain beyond 32 bits).
    for (; i < samples; ++i) {
        const uint32_t frame = uint32_t(is_stereo ? i / 2 : i);
        store<int32_t>(dst, ptrdiff_t(i),
                       scale_q33p31_to_q1p31(load<int64_t>(src, ptrdiff_t(i)), release_gain(start_gain, step, frame)));
    }
    return count == 0 ? start_gain : int32_t(uint32_t(uint64_t(release_gain(start_gain, step, count - 1))));
}

}  // namespace tvl::x86

#endif  // __x86_64__
