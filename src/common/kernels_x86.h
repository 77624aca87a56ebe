// The kernels with an x86-64 vector path, in tvl::x86.
// Kernels not declared here run the scalar reference.
//
// The vector paths are SSE2 (the x86-64 baseline), with 256-bit AVX2 loops in
// the busiest kernels when the build enables AVX2 (TAVIKLIMITER_X86_LEVEL).
// Each gives the scalar reference's bytes for every input: whole vectors in
// ascending order, the remainder through the scalar kernel, and the whole call
// through the scalar kernel where the buffers overlap in a way the vector
// order could not reproduce, or in every-second-sample mode.
#pragma once

#include <stdint.h>

#include "common/scalar_kernels.h"

namespace tvl::x86 {
using namespace tvl::scalar;

void derive_gain(const int64_t* src, int32_t* gains, uint32_t count, int32_t ceiling, int32_t stride);
int32_t calculate_block_min_gain(int32_t is_stereo, const int32_t* gains, int32_t count, int32_t stride);

void no_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride);
void apply_fix_gain(int32_t gain, const int64_t* src, int32_t* dst, int32_t count, int32_t stride);
void apply_makeup_gain(int32_t* samples, uint32_t count, int32_t gain);
int32_t apply_step_gain_without_saturation(int32_t is_stereo, int32_t start_gain, int32_t step,
                                           const int64_t* src, int32_t* dst, uint32_t count, int32_t stride);
int32_t apply_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int64_t* src,
                        int32_t* dst, const int32_t* ramp_table, uint32_t count, int32_t stride);
void clipping_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride);

void copy_float32_to_q33p31(const float* src, int64_t* dst, uint32_t count);
void copy_q1p31_to_float32(const int32_t* src, float* dst, uint32_t count);
void copy_q5p27_to_q33p31(const int32_t* src, int64_t* dst, uint32_t count);
void copy_q1p31_to_q5p27(const int32_t* src, int32_t* dst, uint32_t count);

void convert_from_q5p27_to_float32(void* samples, uint32_t count);
void convert_from_float32_to_q5p27(void* samples, uint32_t count);

void move_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count);
void clip_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count);

}  // namespace tvl::x86
