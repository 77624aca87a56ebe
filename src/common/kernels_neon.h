// The kernels with an arm64 NEON path (128-bit registers), in tvl::neon.
// Kernels not declared here run the scalar reference.
#pragma once

#include <stdint.h>

#include "common/scalar_kernels.h"

namespace tvl::neon {
using namespace tvl::scalar;

}  // namespace tvl::neon
