// Sample conversions between the file's double-precision samples (full scale
// 1.0), the library's three formats and the output file's integer words.
// Rounding is to nearest, ties to even, everywhere.
#pragma once

#include <cstddef>
#include <cstdint>

namespace taviklimit {

// Each returns how many finite samples it saturated. NaN becomes 0 and an
// infinity the range's end in the integer formats; the float stays as it is.

// The nearest float.
size_t to_float32(const double* in, float* out, size_t count);
// round(x * 2^27), saturated to the 32-bit word (+-16.0).
size_t to_q5p27(const double* in, int32_t* out, size_t count);
// round(x * 2^31), saturated to the 64-bit word, or to the Q1.31 range
// [-2^31, 2^31 - 1] when q1p31_range is set.
size_t to_q33p31(const double* in, int64_t* out, size_t count, bool q1p31_range);

// Library output to double, exactly.
void from_float32(const float* in, double* out, size_t count);
void from_q5p27(const int32_t* in, double* out, size_t count);
void from_q1p31(const int32_t* in, double* out, size_t count);

// round(y * 2^(bits-1)) saturated to bits, placed in the top bits of a
// 32-bit word (the layout sf_writef_int takes). bits is 8 to 32.
size_t to_integer_words(const double* in, int32_t* out, size_t count, int bits);

}  // namespace taviklimit
