// Hard clipping: Q33.31 narrowed to Q1.31 with saturation instead of wrap.
// Exported for callers; the library itself limits by gain.
#include "common/memory.h"
#include "common/sample_rules.h"
#include "common/scalar_kernels.h"

namespace tvl::scalar {

void clipping_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride) {
    for (uint32_t i = 0; i < count; ++i) {
        const ptrdiff_t p = every_second_or_consecutive(i, stride);
        store<int32_t>(dst, p, clip_q33p31_to_q1p31(load<int64_t>(src, p)));
    }
}

}  // namespace tvl::scalar
