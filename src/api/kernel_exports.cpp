// The exported kernels: one C entry point per exported row of the kernel list
// (common/kernel_list.h), each running the build's variant (tvl::active).
// Defined inside extern "C" after taviklimiter.h, so a row whose signature
// differs from the public declaration fails to compile.
#include "taviklimiter.h"

#include "common/kernels.h"

#define TVL_EXPORT_exported(name, result, parameters, arguments) \
    result name parameters { return tvl::active::name arguments; }
#define TVL_EXPORT_engine(name, result, parameters, arguments)
#define TVL_EXPORT(name, linkage, src, dst, reach, places, ramp, result, parameters, arguments) \
    TVL_EXPORT_##linkage(name, result, parameters, arguments)

extern "C" {
TVL_KERNEL_LIST(TVL_EXPORT)
}
