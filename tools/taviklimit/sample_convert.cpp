#include "sample_convert.h"

#include <cmath>
#include <limits>

namespace taviklimit {
namespace {

// Rounds x (to nearest, ties to even, in the default environment) and
// saturates it to [lo, hi]; NaN goes to 0. Infinities saturate without
// being counted: the caller counts NaN and infinities as damaged samples.
template <typename Int>
Int round_saturate(double x, double lo, double hi, size_t& saturated) {
    if (std::isnan(x)) return Int{0};
    const double r = std::nearbyint(x);
    if (r > hi || r < lo) {
        if (std::isfinite(x)) ++saturated;
        return static_cast<Int>(r > hi ? hi : lo);
    }
    return static_cast<Int>(r);
}

}  // namespace

size_t to_float32(const double* in, float* out, size_t count) {
    size_t saturated = 0;
    constexpr double kMax = std::numeric_limits<float>::max();
    for (size_t i = 0; i < count; ++i) {
        if (std::isfinite(in[i]) && std::fabs(in[i]) > kMax) ++saturated;
        out[i] = static_cast<float>(in[i]);
    }
    return saturated;
}

size_t to_q5p27(const double* in, int32_t* out, size_t count) {
    size_t saturated = 0;
    for (size_t i = 0; i < count; ++i) {
        out[i] = round_saturate<int32_t>(std::ldexp(in[i], 27), -2147483648.0, 2147483647.0,
                                         saturated);
    }
    return saturated;
}

size_t to_q33p31(const double* in, int64_t* out, size_t count, bool q1p31_range) {
    size_t saturated = 0;
    // 2^63 - 1 is no double: the largest double below 2^63 stands for it.
    const double lo = q1p31_range ? -2147483648.0 : -9223372036854775808.0;
    const double hi = q1p31_range ? 2147483647.0 : 9223372036854774784.0;
    for (size_t i = 0; i < count; ++i) {
        out[i] = round_saturate<int64_t>(std::ldexp(in[i], 31), lo, hi, saturated);
    }
    return saturated;
}

void from_float32(const float* in, double* out, size_t count) {
    for (size_t i = 0; i < count; ++i) out[i] = in[i];
}

void from_q5p27(const int32_t* in, double* out, size_t count) {
    for (size_t i = 0; i < count; ++i) out[i] = std::ldexp(static_cast<double>(in[i]), -27);
}

void from_q1p31(const int32_t* in, double* out, size_t count) {
    for (size_t i = 0; i < count; ++i) out[i] = std::ldexp(static_cast<double>(in[i]), -31);
}

size_t to_integer_words(const double* in, int32_t* out, size_t count, int bits) {
    size_t saturated = 0;
    const double top = std::ldexp(1.0, bits - 1);
    const int shift = 32 - bits;
    for (size_t i = 0; i < count; ++i) {
        const auto word = round_saturate<int64_t>(std::ldexp(in[i], bits - 1), -top, top - 1.0,
                                                  saturated);
        out[i] = static_cast<int32_t>(static_cast<uint32_t>(word) << shift);
    }
    return saturated;
}

}  // namespace taviklimit
