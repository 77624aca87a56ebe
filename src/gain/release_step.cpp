// Release: the gain climbs by a fixed step per frame while a Q33.31 block is
// emitted as Q1.31. Unbounded by design: the block step chooses the frame
// count so that the gain never passes its target.
#include "common/frame_loops.h"
#include "common/memory.h"
#include "common/sample_rules.h"
#include "common/scalar_kernels.h"

namespace tvl::scalar {

int32_t apply_step_gain_without_saturation(int32_t is_stereo, int32_t start_gain, int32_t step,
                                           const int64_t* src, int32_t* dst, uint32_t count, int32_t stride) {
    for_each_frame_sample(is_stereo, count, stride, [&](uint32_t frame, ptrdiff_t p) {
        store<int32_t>(dst, p, scale_q33p31_to_q1p31(load<int64_t>(src, p), release_gain(start_gain, step, frame)));
    });
    // The gain of the last frame: start + count * step, low 32 bits.
    return count == 0 ? start_gain : int32_t(uint32_t(uint64_t(release_gain(start_gain, step, count - 1))));
}

}  // namespace tvl::scalar
