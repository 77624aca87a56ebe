// Block boundary copies: float32 and Q5.27 input widened to Q33.31 on the way
// into the limiter, Q1.31 results turned into float32 or Q5.27 on the way out.
#include "common/memory.h"
#include "common/sample_rules.h"
#include "common/scalar_kernels.h"

namespace {

// dst[i] = rule(src[i]) in ascending order; each sample is read before its own
// result is written, so a same-width conversion may run in place.
template <typename From, typename To, typename Rule>
void convert_each(const void* src, void* dst, uint32_t count, Rule rule) {
    for (uint32_t i = 0; i < count; ++i) tvl::store<To>(dst, i, rule(tvl::load<From>(src, i)));
}

}  // namespace

namespace tvl::scalar {

void copy_float32_to_q33p31(const float* src, int64_t* dst, uint32_t count) {
    convert_each<float, int64_t>(src, dst, count, float32_to_q33p31);
}

void copy_q1p31_to_float32(const int32_t* src, float* dst, uint32_t count) {
    convert_each<int32_t, float>(src, dst, count, q1p31_to_float32);
}

void copy_q5p27_to_q33p31(const int32_t* src, int64_t* dst, uint32_t count) {
    convert_each<int32_t, int64_t>(src, dst, count, q5p27_to_q33p31);
}

void copy_q1p31_to_q5p27(const int32_t* src, int32_t* dst, uint32_t count) {
    convert_each<int32_t, int32_t>(src, dst, count, q1p31_to_q5p27);
}

}  // namespace tvl::scalar
