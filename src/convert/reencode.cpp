// Re-encoding a block in place from one sample format to another, as the
// delay line needs when the state or the input format changes.
//
// Data stays packed at the front of the buffer. A widening (4 -> 8 bytes)
// walks from the last sample down: the result of sample i covers the sources
// of samples 2i and 2i + 1, which are already converted (or, for i = 0, read
// first). A narrowing (8 -> 4 bytes) walks up: the result of sample i lies
// inside the source of sample i / 2, already read. Same-width conversions
// work sample by sample in either direction; the walks below fix one order.
#include "common/memory.h"
#include "common/sample_rules.h"
#include "common/scalar_kernels.h"

namespace {

// The index is signed on purpose: gcc 12 at -O1 drops the whole loop when it
// is written with an unsigned post-decrement (`for (i = count; i-- > 0;)`).
template <typename From, typename To, typename Rule>
void walk_down(void* samples, uint32_t count, Rule rule) {
    for (ptrdiff_t i = ptrdiff_t(count) - 1; i >= 0; --i) tvl::store<To>(samples, i, rule(tvl::load<From>(samples, i)));
}

template <typename From, typename To, typename Rule>
void walk_up(void* samples, uint32_t count, Rule rule) {
    for (uint32_t i = 0; i < count; ++i) tvl::store<To>(samples, i, rule(tvl::load<From>(samples, i)));
}

}  // namespace

namespace tvl::scalar {

void convert_from_float32_to_q33p31(void* samples, uint32_t count) {
    walk_down<float, int64_t>(samples, count, float32_to_q33p31);
}

void convert_from_q5p27_to_q33p31(void* samples, uint32_t count) {
    walk_down<int32_t, int64_t>(samples, count, q5p27_to_q33p31);
}

void convert_from_q33p31_to_float32(void* samples, uint32_t count) {
    walk_up<int64_t, float>(samples, count, q33p31_to_float32);
}

void convert_from_q33p31_to_q5p27(void* samples, uint32_t count) {
    walk_up<int64_t, int32_t>(samples, count, q33p31_to_q5p27);
}

void convert_from_q5p27_to_float32(void* samples, uint32_t count) {
    walk_up<int32_t, float>(samples, count, q5p27_to_float32);
}

void convert_from_float32_to_q5p27(void* samples, uint32_t count) {
    walk_down<float, int32_t>(samples, count, float32_to_q5p27);
}

}  // namespace tvl::scalar
