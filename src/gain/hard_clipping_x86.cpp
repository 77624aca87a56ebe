// Hard clipping on x86-64: consecutive samples saturated four or eight at a
// time; the every-second-sample mode stays with the scalar loop.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

void clipping_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride) {
    uint32_t i = 0;
    if (stride != 2 && ascending_groups_safe(src, size_t(count) * 8, dst, size_t(count) * 4)) {
        i = clip_run(src, dst, count);
    }
    scalar::clipping_limiter(src + (stride == 2 ? 0 : i), dst + (stride == 2 ? 0 : i), count - i, stride);
}

}  // namespace tvl::x86

#endif  // __x86_64__
