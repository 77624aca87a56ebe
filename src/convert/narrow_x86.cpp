// Narrowing Q33.31 to Q1.31 on x86-64: the low halves (or the saturated
// values) of four or eight samples gathered into one register and stored.
// In place and with dst below src the groups still read before they write.
#if defined(__x86_64__)

#include "common/kernels.h"
#include "common/simd_x86.h"

namespace tvl::x86 {

void move_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count) {
    uint32_t i = 0;
    if (ascending_groups_safe(src, size_t(count) * 8, dst, size_t(count) * 4)) i = narrow_run(src, dst, count);
    scalar::move_from_q33p31_to_q1p31(src + i, dst + i, count - i);
}

void clip_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count) {
    uint32_t i = 0;
    if (ascending_groups_safe(src, size_t(count) * 8, dst, size_t(count) * 4)) i = clip_run(src, dst, count);
    scalar::clip_from_q33p31_to_q1p31(src + i, dst + i, count - i);
}

}  // namespace tvl::x86

#endif  // __x86_64__
