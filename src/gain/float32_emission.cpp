// A held float32 block leaving as float32 without passing through Q33.31 in
// memory: each sample widened to Q33.31, scaled to Q1.31 (or narrowed, at
// unity) and converted back to float32, by exactly the rules the delay line,
// the gain kernels and the block copies apply one after the other. The
// limiting path uses them for the blocks of a call that never need to rest in
// the delay line (see limiting_path.cpp).
#include "common/frame_loops.h"
#include "common/memory.h"
#include "common/sample_rules.h"
#include "common/kernels.h"

namespace tvl::scalar {

void emit_float32_at_unity(const float* src, float* dst, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) store<float>(dst, i, float32_at_unity(load<float>(src, i)));
}

void emit_float32_fix_gain(int32_t gain, const float* src, float* dst, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) store<float>(dst, i, float32_scaled_q15(load<float>(src, i), gain));
}

int32_t emit_float32_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const float* src, float* dst,
                               const int32_t* ramp_table, uint32_t count) {
    for_each_frame_sample(is_stereo, count, 1, [&](uint32_t frame, ptrdiff_t p) {
        const int32_t g = ramp_gain(start_gain, end_gain, load<int32_t>(ramp_table, frame));
        store<float>(dst, p, float32_scaled_q15(load<float>(src, p), g));
    });
    return end_gain;
}

int32_t emit_float32_step_gain(int32_t is_stereo, int32_t start_gain, int32_t step, const float* src, float* dst,
                               uint32_t count) {
    for_each_frame_sample(is_stereo, count, 1, [&](uint32_t frame, ptrdiff_t p) {
        store<float>(dst, p, float32_scaled_q15(load<float>(src, p), release_gain(start_gain, step, frame)));
    });
    return count == 0 ? start_gain : int32_t(uint32_t(uint64_t(release_gain(start_gain, step, count - 1))));
}

}  // namespace tvl::scalar
