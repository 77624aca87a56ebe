// Unity, fixed and makeup gain: a Q33.31 block emitted as Q1.31 at unity or
// at one constant Q15 gain, and the output gain on a Q1.31 block in place.
#include "common/memory.h"
#include "common/sample_rules.h"
#include "common/scalar_kernels.h"

namespace tvl::scalar {

void no_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride) {
    for (uint32_t i = 0; i < count; ++i) {
        const ptrdiff_t p = every_second_or_consecutive(i, stride);
        store<int32_t>(dst, p, narrow_q33p31_to_q1p31(load<int64_t>(src, p)));
    }
}

void apply_fix_gain(int32_t gain, const int64_t* src, int32_t* dst, int32_t count, int32_t stride) {
    for (int32_t i = 0; i < count; ++i) {
        const ptrdiff_t p = ptrdiff_t(i) * stride;
        store<int32_t>(dst, p, scale_q33p31_to_q1p31(load<int64_t>(src, p), gain));
    }
}

void apply_makeup_gain(int32_t* samples, uint32_t count, int32_t gain) {
    for (uint32_t i = 0; i < count; ++i) store<int32_t>(samples, i, makeup_q1p31(load<int32_t>(samples, i), gain));
}

}  // namespace tvl::scalar
