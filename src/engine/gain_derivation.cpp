// Gain derivation: the Q15 gain each sample of the look-ahead block needs, and
// the block's smallest; the peaks of input blocks, from which the engine
// finds that smallest gain without deriving every sample's.
#include "common/memory.h"
#include "common/sample_rules.h"
#include "common/scalar_kernels.h"

namespace tvl::scalar {

void derive_gain(const int64_t* src, int32_t* gains, uint32_t count, int32_t ceiling, int32_t stride) {
    const int32_t c = ceiling_q15(ceiling);
    const int64_t threshold = gain_threshold(c);
    for (uint32_t i = 0; i < count; ++i) {
        const ptrdiff_t p = ptrdiff_t(i) * stride;
        store<int32_t>(gains, p, required_gain(load<int64_t>(src, p), c, threshold));
    }
}

int32_t calculate_block_min_gain(int32_t is_stereo, const int32_t* gains, int32_t count, int32_t stride) {
    // Starting at unity caps the result: words above 32767 never raise it.
    int32_t r = kUnityGain;
    const ptrdiff_t words = is_stereo ? ptrdiff_t(count) * 2 : ptrdiff_t(count);
    const ptrdiff_t step = is_stereo ? 1 : stride;
    for (ptrdiff_t i = 0; i < words; ++i) {
        const int32_t w = load<int32_t>(gains, i * step);
        r = w < r ? w : r;
    }
    return r;
}

namespace {
// The largest magnitude of count samples once widened to Q33.31, 0 for none.
template <typename T, int64_t (*widen)(T)>
uint64_t widened_peak(const T* src, uint32_t count) {
    uint64_t r = 0;
    for (uint32_t i = 0; i < count; ++i) {
        const uint64_t m = magnitude(widen(load<T>(src, i)));
        r = m > r ? m : r;
    }
    return r;
}
constexpr int64_t as_is(int64_t x) { return x; }
}  // namespace

uint64_t peak_q33p31(const int64_t* src, uint32_t count) { return widened_peak<int64_t, as_is>(src, count); }

uint64_t peak_float32(const float* src, uint32_t count) { return widened_peak<float, float32_to_q33p31>(src, count); }

uint64_t peak_q5p27(const int32_t* src, uint32_t count) { return widened_peak<int32_t, q5p27_to_q33p31>(src, count); }

}  // namespace tvl::scalar
