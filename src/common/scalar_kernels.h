// The scalar reference kernels: plain ascending loops over the per-sample
// rules of common/sample_rules.h. The exported kernels call these unless a
// vector path is selected; vector paths finish their remainders with them,
// and the equivalence tests compare every vector path against them.
// Arguments are those of the exported kernel of the same name.
//
// Each kernel's prototype is written once here, as TVL_KERNEL_<name>; the
// vector and check namespaces declare their kernels with
// TVL_DECLARE_KERNEL(name), so every variant has the same signature.
#pragma once

#include <stdint.h>

#define TVL_KERNEL_derive_gain void derive_gain(const int64_t* src, int32_t* gains, uint32_t count, int32_t ceiling, int32_t stride)
#define TVL_KERNEL_calculate_block_min_gain int32_t calculate_block_min_gain(int32_t is_stereo, const int32_t* gains, int32_t count, int32_t stride)
#define TVL_KERNEL_no_limiter void no_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride)
#define TVL_KERNEL_apply_fix_gain void apply_fix_gain(int32_t gain, const int64_t* src, int32_t* dst, int32_t count, int32_t stride)
#define TVL_KERNEL_apply_makeup_gain void apply_makeup_gain(int32_t* samples, uint32_t count, int32_t gain)
#define TVL_KERNEL_apply_step_gain_without_saturation int32_t apply_step_gain_without_saturation(int32_t is_stereo, int32_t start_gain, int32_t step, const int64_t* src, int32_t* dst, uint32_t count, int32_t stride)
#define TVL_KERNEL_apply_targ_gain int32_t apply_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int64_t* src, int32_t* dst, const int32_t* ramp_table, uint32_t count, int32_t stride)
#define TVL_KERNEL_apply_ramp_gain_for_q33p31 int32_t apply_ramp_gain_for_q33p31(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int64_t* src, int64_t* dst, const int32_t* ramp_table, uint32_t count, int32_t stride)
#define TVL_KERNEL_apply_ramp_gain_for_float32 int32_t apply_ramp_gain_for_float32(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const float* src, float* dst, const int32_t* ramp_table, uint32_t count, int32_t stride)
#define TVL_KERNEL_apply_ramp_gain_for_q5p27 int32_t apply_ramp_gain_for_q5p27(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int32_t* src, int32_t* dst, const int32_t* ramp_table, uint32_t count, int32_t stride)
#define TVL_KERNEL_clipping_limiter void clipping_limiter(const int64_t* src, int32_t* dst, uint32_t count, int32_t stride)
#define TVL_KERNEL_copy_float32_to_q33p31 void copy_float32_to_q33p31(const float* src, int64_t* dst, uint32_t count)
#define TVL_KERNEL_copy_q1p31_to_float32 void copy_q1p31_to_float32(const int32_t* src, float* dst, uint32_t count)
#define TVL_KERNEL_copy_q5p27_to_q33p31 void copy_q5p27_to_q33p31(const int32_t* src, int64_t* dst, uint32_t count)
#define TVL_KERNEL_copy_q1p31_to_q5p27 void copy_q1p31_to_q5p27(const int32_t* src, int32_t* dst, uint32_t count)
#define TVL_KERNEL_convert_from_float32_to_q33p31 void convert_from_float32_to_q33p31(void* samples, uint32_t count)
#define TVL_KERNEL_convert_from_q5p27_to_q33p31 void convert_from_q5p27_to_q33p31(void* samples, uint32_t count)
#define TVL_KERNEL_convert_from_q33p31_to_float32 void convert_from_q33p31_to_float32(void* samples, uint32_t count)
#define TVL_KERNEL_convert_from_q33p31_to_q5p27 void convert_from_q33p31_to_q5p27(void* samples, uint32_t count)
#define TVL_KERNEL_convert_from_q5p27_to_float32 void convert_from_q5p27_to_float32(void* samples, uint32_t count)
#define TVL_KERNEL_convert_from_float32_to_q5p27 void convert_from_float32_to_q5p27(void* samples, uint32_t count)
#define TVL_KERNEL_move_from_q33p31_to_q1p31 void move_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count)
#define TVL_KERNEL_clip_from_q33p31_to_q1p31 void clip_from_q33p31_to_q1p31(const int64_t* src, int32_t* dst, uint32_t count)

// Kernels of the engine's own, not exported.
//   peak_q33p31, peak_float32, peak_q5p27: the largest magnitude of `count`
//     samples once widened to Q33.31 (as unsigned; 0 for none), from which
//     the engine finds the smallest gain the block needs.
#define TVL_KERNEL_peak_q33p31 uint64_t peak_q33p31(const int64_t* src, uint32_t count)
#define TVL_KERNEL_peak_float32 uint64_t peak_float32(const float* src, uint32_t count)
#define TVL_KERNEL_peak_q5p27 uint64_t peak_q5p27(const int32_t* src, uint32_t count)
//   narrow_q33p31_to_float32: no_limiter then copy_q1p31_to_float32 in one
//     pass, for a block that leaves at unity as float32.
#define TVL_KERNEL_narrow_q33p31_to_float32 void narrow_q33p31_to_float32(const int64_t* src, float* dst, uint32_t count)
//   emit_float32_at_unity, emit_float32_fix_gain, emit_float32_targ_gain,
//     emit_float32_step_gain: a float32 block widened to Q33.31, then
//     no_limiter, apply_fix_gain, apply_targ_gain or
//     apply_step_gain_without_saturation (count frames, consecutive samples),
//     then copy_q1p31_to_float32, in one pass.
#define TVL_KERNEL_emit_float32_at_unity void emit_float32_at_unity(const float* src, float* dst, uint32_t count)
#define TVL_KERNEL_emit_float32_fix_gain void emit_float32_fix_gain(int32_t gain, const float* src, float* dst, uint32_t count)
#define TVL_KERNEL_emit_float32_targ_gain int32_t emit_float32_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const float* src, float* dst, const int32_t* ramp_table, uint32_t count)
#define TVL_KERNEL_emit_float32_step_gain int32_t emit_float32_step_gain(int32_t is_stereo, int32_t start_gain, int32_t step, const float* src, float* dst, uint32_t count)

#define TVL_KERNEL_emit_q5p27_at_unity void emit_q5p27_at_unity(const int32_t* src, int32_t* dst, uint32_t count)
#define TVL_KERNEL_emit_q5p27_fix_gain void emit_q5p27_fix_gain(int32_t gain, const int32_t* src, int32_t* dst, uint32_t count)
#define TVL_KERNEL_emit_q5p27_targ_gain int32_t emit_q5p27_targ_gain(int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int32_t* src, int32_t* dst, const int32_t* ramp_table, uint32_t count)
#define TVL_KERNEL_emit_q5p27_step_gain int32_t emit_q5p27_step_gain(int32_t is_stereo, int32_t start_gain, int32_t step, const int32_t* src, int32_t* dst, uint32_t count)
#define TVL_DECLARE_KERNEL(name) TVL_KERNEL_##name;

// Every kernel, for variants that provide them all.
#define TVL_ALL_KERNELS(X) \
    X(derive_gain) \
    X(calculate_block_min_gain) \
    X(no_limiter) \
    X(apply_fix_gain) \
    X(apply_makeup_gain) \
    X(apply_step_gain_without_saturation) \
    X(apply_targ_gain) \
    X(apply_ramp_gain_for_q33p31) \
    X(apply_ramp_gain_for_float32) \
    X(apply_ramp_gain_for_q5p27) \
    X(clipping_limiter) \
    X(copy_float32_to_q33p31) \
    X(copy_q1p31_to_float32) \
    X(copy_q5p27_to_q33p31) \
    X(copy_q1p31_to_q5p27) \
    X(convert_from_float32_to_q33p31) \
    X(convert_from_q5p27_to_q33p31) \
    X(convert_from_q33p31_to_float32) \
    X(convert_from_q33p31_to_q5p27) \
    X(convert_from_q5p27_to_float32) \
    X(convert_from_float32_to_q5p27) \
    X(move_from_q33p31_to_q1p31) \
    X(clip_from_q33p31_to_q1p31) \
    TVL_ENGINE_KERNELS(X)

#define TVL_ENGINE_KERNELS(X) \
    X(peak_q33p31) \
    X(peak_float32) \
    X(peak_q5p27) \
    X(narrow_q33p31_to_float32) \
    X(emit_float32_at_unity) \
    X(emit_float32_fix_gain) \
    X(emit_float32_targ_gain) \
    X(emit_float32_step_gain)

namespace tvl::scalar {
TVL_ALL_KERNELS(TVL_DECLARE_KERNEL)
TVL_DECLARE_KERNEL(emit_q5p27_at_unity) TVL_DECLARE_KERNEL(emit_q5p27_fix_gain) TVL_DECLARE_KERNEL(emit_q5p27_targ_gain) TVL_DECLARE_KERNEL(emit_q5p27_step_gain)
}  // namespace tvl::scalar
