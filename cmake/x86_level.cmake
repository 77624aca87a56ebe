# TAVIKLIMITER_X86_LEVEL: the x86-64 micro-architecture level that x86-64
# builds target (-march=x86-64[-vN]); other targets ignore it.
#   1     x86-64 baseline: SSE2 vector kernels, runs on every x86-64 processor
#   2     x86-64-v2 (SSE4.2): the same SSE2 kernels, compiled for the newer set
#   3     x86-64-v3 (AVX2, Haswell / Zen 1 and later): 256-bit loops in the
#         busy kernels; the default
#   4     x86-64-v4 (AVX-512 F/BW/DQ/VL, Skylake-X / Zen 4 and later): 512-bit
#         loops on the unlimited path
#   host  the highest of these that the building machine runs (read from
#         /proc/cpuinfo), for builds that test themselves where they are built
# Every level gives the same bytes; the equivalence test and the check builds
# verify it (presets: check at host, x86-baseline at 1, the others at 3).
set(TAVIKLIMITER_X86_LEVEL 3 CACHE STRING "x86-64 level of x86-64 builds: 1, 2, 3, 4 or host")
set_property(CACHE TAVIKLIMITER_X86_LEVEL PROPERTY STRINGS 1 2 3 4 host)

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
  set(_tvl_level ${TAVIKLIMITER_X86_LEVEL})
  if(_tvl_level STREQUAL "host")
    set(_tvl_level 1)
    if(EXISTS /proc/cpuinfo)
      file(STRINGS /proc/cpuinfo _tvl_flags REGEX "^flags" LIMIT_COUNT 1)
      if(_tvl_flags MATCHES " sse4_2" AND _tvl_flags MATCHES " popcnt")
        set(_tvl_level 2)
      endif()
      if(_tvl_level EQUAL 2 AND _tvl_flags MATCHES " avx2" AND _tvl_flags MATCHES " bmi2"
         AND _tvl_flags MATCHES " fma" AND _tvl_flags MATCHES " movbe")
        set(_tvl_level 3)
      endif()
      if(_tvl_level EQUAL 3 AND _tvl_flags MATCHES " avx512f" AND _tvl_flags MATCHES " avx512bw"
         AND _tvl_flags MATCHES " avx512dq" AND _tvl_flags MATCHES " avx512vl"
         AND _tvl_flags MATCHES " avx512cd")
        set(_tvl_level 4)
      endif()
    endif()
    message(STATUS "taviklimiter: x86-64 level ${_tvl_level} (host)")
  endif()
  if(_tvl_level STREQUAL "1")
    add_compile_options(-march=x86-64)
  elseif(_tvl_level MATCHES "^[234]$")
    add_compile_options(-march=x86-64-v${_tvl_level})
  else()
    message(FATAL_ERROR "TAVIKLIMITER_X86_LEVEL must be 1, 2, 3, 4 or host, not '${TAVIKLIMITER_X86_LEVEL}'")
  endif()
endif()
