// Kernel fuzzer: the vector-against-scalar differential of
// tests/support/kernel_check.h (the same table and check as kernels_test),
// the kernel, the count and the seed of the data, placement and arguments
// taken from the input. A difference aborts with the case's description.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "support/kernel_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 3) return 0;
    uint64_t seed = 0xCBF29CE484222325ull;
    for (size_t i = 3; i < size; ++i) seed = (seed ^ data[i]) * 0x100000001B3ull;
    const int64_t count = int64_t((data[1] | data[2] << 8) % 1100) - 20;  // a few below 0
    const std::string e = tvl_test::check_kernel(data[0], count, seed);
    if (!e.empty()) {
        std::fprintf(stderr, "kernel_fuzzer: %s\n", e.c_str());
        std::abort();
    }
    return 0;
}
