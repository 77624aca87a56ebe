// The check build's kernels (TVL_CHECK_VECTOR=1): each runs the vector kernel
// on the caller's memory and the scalar reference on a copy of that memory
// taken beforehand, and stops the process (a trap instruction; the library
// has no stdio) at the first byte of the touched memory or of the result
// where the two differ. Calls whose touched memory exceeds the copy's 64 KiB
// run unchecked. Arguments are those of the exported kernel of the same name.
#pragma once

#include <stdint.h>

#include "common/scalar_kernels.h"

namespace tvl::check {
TVL_KERNEL_LIST(TVL_DECLARE_LISTED_KERNEL)
}  // namespace tvl::check
