// The kernels with an x86-64 vector path, in tvl::x86.
// Kernels not declared here run the scalar reference.
#pragma once

#include <stdint.h>

#include "common/scalar_kernels.h"

namespace tvl::x86 {
using namespace tvl::scalar;

}  // namespace tvl::x86
