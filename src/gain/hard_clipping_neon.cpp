// Hard clipping, NEON: consecutive mode is clip_from_q33p31_to_q1p31, whose
// vector loop (eight samples per step, SQXTN) serves it.
#if defined(__ARM_NEON) && defined(__aarch64__)

#include "common/kernels.h"

namespace tvl::neon {

void clipping_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride) {
    if (stride == 2) {
        scalar::clipping_limiter(src, dst, count, stride);  // every-second-sample mode
        return;
    }
    clip_from_q33p31_to_q1p31(src, dst, count);
}

}  // namespace tvl::neon

#endif
