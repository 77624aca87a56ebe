// A held block leaving straight from the input, in the input's own format,
// without passing through Q33.31 in memory: each sample widened to Q33.31,
// scaled to Q1.31 (or narrowed, at unity) and brought back to the input's
// format, by exactly the rules that the delay line, the gain kernels and the
// block copies apply one after the other (float32_at_unity and
// float32_scaled_q15, q5p27_at_unity and q5p27_scaled_q15). The limiting
// path renders the blocks of a call that never need to rest in the delay
// line through these (see engine/route.h).
#include "common/frame_loops.h"
#include "common/memory.h"
#include "common/sample_rules.h"
#include "common/scalar_kernels.h"

namespace tvl::scalar {

namespace {

// The four moves over samples of type T, given the sample's rules at unity
// and at a Q15 gain.
template <typename T, T (*at_unity)(T), T (*scaled)(T, int64_t)>
struct FromInput {
    static void unity(const T* src, T* dst, uint32_t count) {
        for (uint32_t i = 0; i < count; ++i) store<T>(dst, i, at_unity(load<T>(src, i)));
    }
    static void fix(int32_t gain, const T* src, T* dst, uint32_t count) {
        for (uint32_t i = 0; i < count; ++i) store<T>(dst, i, scaled(load<T>(src, i), gain));
    }
    static int32_t ramp(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const T* src, T* dst,
                        const int32_t* ramp_table, uint32_t count) {
        for_each_frame_sample(is_stereo, count, 1, [&](uint32_t frame, ptrdiff_t p) {
            const int32_t g = ramp_gain(start_gain, end_gain, load<int32_t>(ramp_table, frame));
            store<T>(dst, p, scaled(load<T>(src, p), g));
        });
        return end_gain;
    }
    static int32_t step(int32_t is_stereo, int32_t start_gain, int32_t step, const T* src, T* dst, uint32_t count) {
        for_each_frame_sample(is_stereo, count, 1, [&](uint32_t frame, ptrdiff_t p) {
            store<T>(dst, p, scaled(load<T>(src, p), release_gain(start_gain, step, frame)));
        });
        return count == 0 ? start_gain : int32_t(uint32_t(uint64_t(release_gain(start_gain, step, count - 1))));
    }
};

using Float32 = FromInput<float, float32_at_unity, float32_scaled_q15>;
using Q5p27 = FromInput<int32_t, q5p27_at_unity, q5p27_scaled_q15>;

}  // namespace

void emit_float32_at_unity(const float* src, float* dst, uint32_t count) { Float32::unity(src, dst, count); }
void emit_float32_fix_gain(int32_t gain, const float* src, float* dst, uint32_t count) {
    Float32::fix(gain, src, dst, count);
}
int32_t emit_float32_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const float* src, float* dst,
                               const int32_t* ramp_table, uint32_t count) {
    return Float32::ramp(is_stereo, start_gain, end_gain, src, dst, ramp_table, count);
}
int32_t emit_float32_step_gain(int32_t is_stereo, int32_t start_gain, int32_t step, const float* src, float* dst,
                               uint32_t count) {
    return Float32::step(is_stereo, start_gain, step, src, dst, count);
}

void emit_q5p27_at_unity(const int32_t* src, int32_t* dst, uint32_t count) { Q5p27::unity(src, dst, count); }
void emit_q5p27_fix_gain(int32_t gain, const int32_t* src, int32_t* dst, uint32_t count) {
    Q5p27::fix(gain, src, dst, count);
}
int32_t emit_q5p27_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int32_t* src,
                             int32_t* dst, const int32_t* ramp_table, uint32_t count) {
    return Q5p27::ramp(is_stereo, start_gain, end_gain, src, dst, ramp_table, count);
}
int32_t emit_q5p27_step_gain(int32_t is_stereo, int32_t start_gain, int32_t step, const int32_t* src, int32_t* dst,
                             uint32_t count) {
    return Q5p27::step(is_stereo, start_gain, step, src, dst, count);
}

}  // namespace tvl::scalar
