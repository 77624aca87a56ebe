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

TVL_DECLARE_KERNEL(derive_gain)
TVL_DECLARE_KERNEL(calculate_block_min_gain)
TVL_DECLARE_KERNEL(peak_float32)
#if defined(__AVX2__)
TVL_DECLARE_KERNEL(peak_q33p31)
TVL_DECLARE_KERNEL(peak_q5p27)
#endif

TVL_DECLARE_KERNEL(no_limiter)
TVL_DECLARE_KERNEL(apply_fix_gain)
TVL_DECLARE_KERNEL(apply_makeup_gain)
TVL_DECLARE_KERNEL(apply_step_gain_without_saturation)
TVL_DECLARE_KERNEL(apply_targ_gain)
TVL_DECLARE_KERNEL(clipping_limiter)

TVL_DECLARE_KERNEL(copy_float32_to_q33p31)
TVL_DECLARE_KERNEL(copy_q1p31_to_float32)
TVL_DECLARE_KERNEL(copy_q5p27_to_q33p31)
TVL_DECLARE_KERNEL(copy_q1p31_to_q5p27)

TVL_DECLARE_KERNEL(convert_from_q5p27_to_float32)
TVL_DECLARE_KERNEL(convert_from_float32_to_q5p27)

TVL_DECLARE_KERNEL(move_from_q33p31_to_q1p31)
TVL_DECLARE_KERNEL(clip_from_q33p31_to_q1p31)
TVL_DECLARE_KERNEL(narrow_q33p31_to_float32)

#if defined(__AVX2__)
TVL_DECLARE_KERNEL(emit_float32_at_unity)
TVL_DECLARE_KERNEL(emit_float32_fix_gain)
TVL_DECLARE_KERNEL(emit_float32_targ_gain)
TVL_DECLARE_KERNEL(emit_float32_step_gain)
TVL_DECLARE_KERNEL(emit_q5p27_at_unity)
TVL_DECLARE_KERNEL(emit_q5p27_fix_gain)
TVL_DECLARE_KERNEL(emit_q5p27_targ_gain)
TVL_DECLARE_KERNEL(emit_q5p27_step_gain)
#endif

}  // namespace tvl::x86
