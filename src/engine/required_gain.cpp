// The smallest gain the samples of an input block need.
//
// For a ceiling of 0 or more the required gain never rises with a sample's
// magnitude (min_required_gain_of_peak), so the block's largest magnitude
// once widened to Q33.31, its peak, decides: one pass over the input block
// and one division, where derive_gain and calculate_block_min_gain would
// derive a gain for every sample. The peak is taken from the input itself, so
// the block is widened only once, into the delay line.
//
// A negative ceiling, which no entry point sets (only a direct caller or a
// damaged record), turns that order round: it takes derive_gain and
// calculate_block_min_gain over the block widened into scratch_block.
#include "common/kernels.h"
#include "common/sample_rules.h"
#include "engine/engine.h"

namespace tvl {

void RequiredGain::of_blocks(const unsigned char* input, uint32_t blocks, int32_t* gains, int64_t* scratch_block,
                             int32_t* out_block) const {
    const uint32_t samples = samples_per_block(is_stereo_);
    const size_t block_bytes = size_t(samples) * input_sample_bytes(format_);
    const auto each_block = [&](auto peak_of) {
        for (uint32_t k = 0; k < blocks; ++k) {
            gains[k] = min_required_gain_of_peak(peak_of(input + k * block_bytes), c_, threshold_);
        }
    };
    if (c_ < 0) {
        for (uint32_t k = 0; k < blocks; ++k) {
            widen_block(format_, input + k * block_bytes, scratch_block, samples);
            active::derive_gain(scratch_block, out_block, samples, ceiling_, 1);
            gains[k] = active::calculate_block_min_gain(int32_t(is_stereo_), out_block, kBlockFrames, 1);
        }
        return;
    }
    switch (format_) {
        case LMTR_PCM_Q33P31:
            each_block([&](const unsigned char* b) { return active::peak_q33p31(reinterpret_cast<const int64_t*>(b), samples); });
            break;
        case LMTR_PCM_FLOAT32:
            each_block([&](const unsigned char* b) { return active::peak_float32(reinterpret_cast<const float*>(b), samples); });
            break;
        default:
            each_block([&](const unsigned char* b) { return active::peak_q5p27(reinterpret_cast<const int32_t*>(b), samples); });
            break;
    }
}

}  // namespace tvl
