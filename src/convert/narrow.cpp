// Narrowing Q33.31 to Q1.31 at unity: by wrap (the bypass path's way out for
// Q33.31 input) or by saturation (for callers); and by wrap straight on to
// float32 (the limiting path's way out for a float32 block at unity).
//
// Samples go in ascending order and each result (4 bytes at 4i) never lies
// beyond its source (8 bytes at 8i), so dst may equal src or lie below it.
#include "common/memory.h"
#include "common/sample_rules.h"
#include "common/scalar_kernels.h"

namespace tvl::scalar {

void move_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) store<int32_t>(dst, i, narrow_q33p31_to_q1p31(load<int64_t>(src, i)));
}

void clip_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) store<int32_t>(dst, i, clip_q33p31_to_q1p31(load<int64_t>(src, i)));
}

void narrow_q33p31_to_float32(const int64_t* src, float* dst, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        store<float>(dst, i, q1p31_to_float32(narrow_q33p31_to_q1p31(load<int64_t>(src, i))));
    }
}

}  // namespace tvl::scalar
