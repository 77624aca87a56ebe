// Hard clipping on x86-64: consecutive mode is clip_from_q33p31_to_q1p31,
// whose vector loop serves it; the every-second-sample mode stays with the
// scalar loop.
#if defined(__x86_64__)

#include "common/kernels.h"

namespace tvl::x86 {

void clipping_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride) {
    if (stride == 2) {
        scalar::clipping_limiter(src, dst, count, stride);  // every-second-sample mode
        return;
    }
    clip_from_q33p31_to_q1p31(src, dst, count);
}

}  // namespace tvl::x86

#endif  // __x86_64__
