// The kernels with an x86-64 vector path, in tvl::x86.
// Kernels not declared here run the scalar reference.
//
// Each kernel's vector path is one tier per instruction-set level, chosen at
// compile time by the build's -march (TAVIKLIMITER_X86_LEVEL; see
// common/simd_x86.h): AVX2 at level 3 and up, SSE2 below, for the busy
// kernels; the others have one of the two. Each gives the scalar reference's
// bytes for every input: whole vectors in ascending order, the rest through
// the scalar kernel of the same name, and the whole call through the scalar
// kernel where the buffers overlap in a way the vector order could not
// reproduce, or in every-second-sample mode.
#pragma once

#include <stdint.h>

#include "common/scalar_kernels.h"

namespace tvl::x86 {
using namespace tvl::scalar;

// src/engine/gain_derivation_x86.cpp
TVL_DECLARE_KERNEL(peak_float32)
#if defined(__AVX2__)
TVL_DECLARE_KERNEL(peak_q33p31)
TVL_DECLARE_KERNEL(peak_q5p27)
TVL_DECLARE_KERNEL(derive_gain)
TVL_DECLARE_KERNEL(calculate_block_min_gain)
#endif

// src/gain/unity_gain_x86.cpp, release_step_x86.cpp, attack_ramp_x86.cpp,
// hard_clipping_x86.cpp
TVL_DECLARE_KERNEL(no_limiter)
TVL_DECLARE_KERNEL(apply_fix_gain)
TVL_DECLARE_KERNEL(apply_makeup_gain)
TVL_DECLARE_KERNEL(apply_step_gain_without_saturation)
TVL_DECLARE_KERNEL(apply_targ_gain)
TVL_DECLARE_KERNEL(clipping_limiter)

// src/convert/block_copies_x86.cpp
TVL_DECLARE_KERNEL(copy_float32_to_q33p31)
TVL_DECLARE_KERNEL(copy_q1p31_to_float32)
TVL_DECLARE_KERNEL(copy_q5p27_to_q33p31)
TVL_DECLARE_KERNEL(copy_q1p31_to_q5p27)

// src/convert/reencode_x86.cpp (the two same-width re-encoders)
TVL_DECLARE_KERNEL(convert_from_q5p27_to_float32)
TVL_DECLARE_KERNEL(convert_from_float32_to_q5p27)

// src/convert/narrow_x86.cpp
TVL_DECLARE_KERNEL(move_from_q33p31_to_q1p31)
TVL_DECLARE_KERNEL(clip_from_q33p31_to_q1p31)
TVL_DECLARE_KERNEL(narrow_q33p31_to_float32)

// src/gain/float32_emission_x86.cpp
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
