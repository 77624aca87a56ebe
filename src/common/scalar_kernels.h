// The scalar reference kernels: plain ascending loops over the per-sample
// rules of common/sample_rules.h. The exported kernels call these unless a
// vector path is selected; vector paths finish their remainders with them,
// and the equivalence tests compare every vector path against them.
// Arguments are those of the exported kernel of the same name.
//
// Each kernel's prototype is written once, in its row of common/kernel_list.h;
// the vector and check namespaces declare their kernels with
// TVL_DECLARE_KERNEL(name), so every variant has the same signature.
#pragma once

#include <stdint.h>

#include "common/kernel_list.h"

namespace tvl::scalar {
TVL_KERNEL_LIST(TVL_DECLARE_LISTED_KERNEL)

}  // namespace tvl::scalar
