// Compile-time choice of the kernel variants that the exported kernels run.
//
// Each instruction set has a namespace (tvl::neon on arm64, tvl::x86 on
// x86-64) that declares the kernels it speeds up and, through a using-
// directive, falls back to tvl::scalar for the others: qualified lookup finds
// a namespace's own declaration first and the scalar one only when there is
// none. tvl::active names the variant in use:
//   - TVL_SCALAR_ONLY: the scalar reference everywhere;
//   - TVL_CHECK_VECTOR: tvl::check, which runs the scalar reference beside
//     every vector call and aborts on the first different byte;
//   - otherwise the instruction set's namespace.
// Every variant stays linkable, so the tests can call each one.
#pragma once

#include "common/check_kernels.h"
#include "common/scalar_kernels.h"

#if defined(__ARM_NEON) && (defined(__aarch64__) || defined(_M_ARM64))
#define TVL_VECTOR_ISA neon
#include "common/kernels_neon.h"
#elif defined(__x86_64__) || defined(_M_X64)
#define TVL_VECTOR_ISA x86
#include "common/kernels_x86.h"
#endif

namespace tvl {

#if defined(TVL_VECTOR_ISA)
namespace vector = TVL_VECTOR_ISA;
#else
namespace vector = scalar;
#endif

#if defined(TVL_SCALAR_ONLY) && TVL_SCALAR_ONLY
namespace active = scalar;
#elif defined(TVL_CHECK_VECTOR) && TVL_CHECK_VECTOR
namespace active = check;
#else
namespace active = vector;
#endif

}  // namespace tvl
