// The check build's kernels (TVL_CHECK_VECTOR=1): each runs the vector kernel
// on the caller's memory and the scalar reference on a copy of that memory
// taken beforehand, and stops the process (a trap instruction; the library
// has no stdio) at the first byte of the touched memory or of the result
// where the two differ. Calls whose touched memory exceeds the copy's 64 KiB
// run unchecked. Arguments are those of the exported kernel of the same name.
#pragma once

#include <stdint.h>

namespace tvl::check {

void derive_gain(const int64_t* src, int32_t* gains, uint32_t count, int32_t ceiling, int32_t stride);
int32_t calculate_block_min_gain(int32_t is_stereo, const int32_t* gains, int32_t count, int32_t stride);

void no_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride);
void apply_fix_gain(int32_t gain, const int64_t* src, int32_t* dst, int32_t count, int32_t stride);
void apply_makeup_gain(int32_t* samples, uint32_t count, int32_t gain);
int32_t apply_step_gain_without_saturation(int32_t is_stereo, int32_t start_gain, int32_t step,
                                           const int64_t* src, int32_t* dst, uint32_t count, int32_t stride);
int32_t apply_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int64_t* src,
                        int32_t* dst, const int32_t* ramp_table, uint32_t count, int32_t stride);
int32_t apply_ramp_gain_for_q33p31(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int64_t* src,
                                   int64_t* dst, const int32_t* ramp_table, uint32_t count, int32_t stride);
int32_t apply_ramp_gain_for_float32(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const float* src,
                                    float* dst, const int32_t* ramp_table, uint32_t count, int32_t stride);
int32_t apply_ramp_gain_for_q5p27(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int32_t* src,
                                  int32_t* dst, const int32_t* ramp_table, uint32_t count, int32_t stride);
void clipping_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride);

void copy_float32_to_q33p31(const float* src, int64_t* dst, uint32_t count);
void copy_q1p31_to_float32(const int32_t* src, float* dst, uint32_t count);
void copy_q5p27_to_q33p31(const int32_t* src, int64_t* dst, uint32_t count);
void copy_q1p31_to_q5p27(const int32_t* src, int32_t* dst, uint32_t count);

void convert_from_float32_to_q33p31(void* samples, uint32_t count);
void convert_from_q5p27_to_q33p31(void* samples, uint32_t count);
void convert_from_q33p31_to_float32(void* samples, uint32_t count);
void convert_from_q33p31_to_q5p27(void* samples, uint32_t count);
void convert_from_q5p27_to_float32(void* samples, uint32_t count);
void convert_from_float32_to_q5p27(void* samples, uint32_t count);

void move_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count);
void clip_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count);

}  // namespace tvl::check
