// Attack ramp on x86-64: the ramp gains of four frames formed at once in
// 32-bit lanes (the table entries times the difference, low 32 bits, shifted
// arithmetically by 15 and added to the start gain), then each sample scaled
// by its frame's gain, sign-extended to 64 bits, by the Q15 scaling rule.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

namespace {

// Ramp gains of the four frames whose table entries are at table.
inline __m128i ramp_gains4(const u8* table, __m128i start, __m128i diff) {
    const __m128i t = load128(table);
#if defined(__AVX2__)
    const __m128i product = _mm_mullo_epi32(t, diff);
#else
    const __m128i p02 = _mm_mul_epu32(t, diff);
    const __m128i p13 = _mm_mul_epu32(_mm_srli_epi64(t, 32), diff);
    const __m128i product = _mm_unpacklo_epi32(_mm_shuffle_epi32(p02, _MM_SHUFFLE(0, 0, 2, 0)),
                                               _mm_shuffle_epi32(p13, _MM_SHUFFLE(0, 0, 2, 0)));
#endif
    return _mm_add_epi32(start, _mm_srai_epi32(product, 15));
}

#if !defined(__AVX2__)
// The Q15 rule with 64-bit gains g, of zero high half when nonnegative (all
// the library's gains): one cross product fewer.
inline __m128i scale(__m128i x, __m128i g, bool nonnegative) {
    return nonnegative ? scale_q15_lanes_by(x, g, false) : scale_q15_lanes(x, g);
}
#endif

}  // namespace

int32_t apply_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int64_t* src, int32_t* dst,
                        const int32_t* ramp_table, uint32_t count, int32_t stride) {
    const size_t samples = is_stereo ? size_t(count) * 2 : size_t(count);
    if ((!is_stereo && stride == 2) || overlaps(src, samples * 8, dst, samples * 4) ||
        overlaps(ramp_table, size_t(count) * 4, dst, samples * 4)) {
        return scalar::apply_targ_gain(is_stereo, start_gain, end_gain, src, dst, ramp_table, count, stride);
    }
    const __m128i start = _mm_set1_epi32(start_gain);
    const __m128i diff = _mm_set1_epi32(int32_t(uint32_t(end_gain) - uint32_t(start_gain)));
    uint32_t f = 0;
#if TVL_X86_AVX512
    if (is_stereo) {
        for (; f + 4 <= count; f += 4) {  // four frames, eight samples
            const __m128i g4 = ramp_gains4(at(ramp_table, f, 4), start, diff);
            const __m256i pairs = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_unpacklo_epi32(g4, g4)),
                                                          _mm_unpackhi_epi32(g4, g4), 1);
            const __m512i g = _mm512_maskz_cvtepi32_epi64(0xFF, pairs);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(at(dst, 2 * f, 4)),
                                scale_q15_lanes(_mm512_loadu_si512(at(src, 2 * f, 8)), g));
        }
    } else {
        for (; f + 8 <= count; f += 8) {  // eight frames, eight samples
            const __m256i g8 = _mm256_inserti128_si256(
                _mm256_castsi128_si256(ramp_gains4(at(ramp_table, f, 4), start, diff)),
                ramp_gains4(at(ramp_table, f + 4, 4), start, diff), 1);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(at(dst, f, 4)),
                                scale_q15_lanes(_mm512_loadu_si512(at(src, f, 8)), _mm512_maskz_cvtepi32_epi64(0xFF, g8)));
        }
    }
#endif
    for (; f + 4 <= count; f += 4) {
        const __m128i g4 = ramp_gains4(at(ramp_table, f, 4), start, diff);
        const bool negative = _mm_movemask_ps(_mm_castsi128_ps(g4)) != 0;
#if defined(__AVX2__)
        // Each sample's gain in both halves of its 64-bit lane.
        const __m256i g = _mm256_castsi128_si256(g4);
        if (is_stereo) {
            const __m256i ga = _mm256_permutevar8x32_epi32(g, _mm256_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1));
            const __m256i gb = _mm256_permutevar8x32_epi32(g, _mm256_setr_epi32(2, 2, 2, 2, 3, 3, 3, 3));
            const __m256i a = scale_q15_high(load256(at(src, 2 * f, 8)), ga, negative);
            const __m256i b = scale_q15_high(load256(at(src, 2 * f + 4, 8)), gb, negative);
            store256(at(dst, 2 * f, 4), high_halves(a, b));
        } else {
            const __m256i gg = _mm256_permutevar8x32_epi32(g, _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3));
            const __m256i a = scale_q15_high(load256(at(src, f, 8)), gg, negative);
            const __m256i packed = _mm256_permutevar8x32_epi32(a, _mm256_setr_epi32(1, 3, 5, 7, 1, 3, 5, 7));
            store128(at(dst, f, 4), _mm256_castsi256_si128(packed));
        }
#else
        __m128i g01, g23;  // 64-bit gains of frames f, f + 1 and f + 2, f + 3
        widen_epi32(g4, g01, g23);
        if (is_stereo) {
            const __m128i a = scale(load128(at(src, 2 * f, 8)), _mm_unpacklo_epi64(g01, g01), !negative);
            const __m128i b = scale(load128(at(src, 2 * f + 2, 8)), _mm_unpackhi_epi64(g01, g01), !negative);
            const __m128i c = scale(load128(at(src, 2 * f + 4, 8)), _mm_unpacklo_epi64(g23, g23), !negative);
            const __m128i d = scale(load128(at(src, 2 * f + 6, 8)), _mm_unpackhi_epi64(g23, g23), !negative);
            store128(at(dst, 2 * f, 4), low_halves(a, b));
            store128(at(dst, 2 * f + 4, 4), low_halves(c, d));
        } else {
            const __m128i a = scale(load128(at(src, f, 8)), g01, !negative);
            const __m128i b = scale(load128(at(src, f + 2, 8)), g23, !negative);
            store128(at(dst, f, 4), low_halves(a, b));
        }
#endif
    }
    // The last count mod 4 frames, with the table from frame f on.
    const size_t done = is_stereo ? size_t(f) * 2 : size_t(f);
    scalar::apply_targ_gain(is_stereo, start_gain, end_gain, src + done, dst + done, ramp_table + f, count - f, stride);
    return end_gain;
}

}  // namespace tvl::x86

#endif  // __x86_64__
