// Fades over the delay line on the switch into bypass: the attack's ramp gain
// applied to a block in its own format, in place or between two buffers.
#include "common/frame_loops.h"
#include "common/memory.h"
#include "common/sample_rules.h"
#include "common/scalar_kernels.h"

namespace {

// One fade: sample by sample, each read before its own result is written, so
// dst may equal src. scale(x, g) is the format's rule.
template <typename Sample, typename Scale>
int32_t fade(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const Sample* src, Sample* dst,
             const int32_t* ramp_table, uint32_t count, int32_t stride, Scale scale) {
    tvl::for_each_frame_sample(is_stereo, count, stride, [&](uint32_t frame, ptrdiff_t p) {
        const int32_t g = tvl::ramp_gain(start_gain, end_gain, tvl::load<int32_t>(ramp_table, frame));
        tvl::store<Sample>(dst, p, scale(tvl::load<Sample>(src, p), g));
    });
    return end_gain;
}

}  // namespace

namespace tvl::scalar {

int32_t apply_ramp_gain_for_q33p31(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int64_t* src,
                                   int64_t* dst, const int32_t* ramp_table, uint32_t count, int32_t stride) {
    return fade(is_stereo, start_gain, end_gain, src, dst, ramp_table, count, stride, scale_q33p31);
}

int32_t apply_ramp_gain_for_float32(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const float* src,
                                    float* dst, const int32_t* ramp_table, uint32_t count, int32_t stride) {
    return fade(is_stereo, start_gain, end_gain, src, dst, ramp_table, count, stride, scale_float32);
}

int32_t apply_ramp_gain_for_q5p27(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int32_t* src,
                                  int32_t* dst, const int32_t* ramp_table, uint32_t count, int32_t stride) {
    return fade(is_stereo, start_gain, end_gain, src, dst, ramp_table, count, stride, scale_q5p27);
}

}  // namespace tvl::scalar
