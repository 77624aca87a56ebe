# TAVIKLIMITER_X86_LEVEL: the x86-64 micro-architecture level that x86-64
# builds target (-march=x86-64[-vN]); other targets ignore it.
#   1  x86-64 baseline: SSE2 vector kernels, runs on every x86-64 processor
#   2  x86-64-v2 (SSE4.2): the same SSE2 kernels, compiled for the newer set
#   3  x86-64-v3 (AVX2, Haswell / Zen 1 and later): 256-bit loops in the busy
#      kernels; the default
# Every level gives the same bytes; the equivalence and check builds run
# level 3 (the default presets) and level 1 (the check preset).
set(TAVIKLIMITER_X86_LEVEL 3 CACHE STRING "x86-64 level of x86-64 builds: 1, 2 or 3")
set_property(CACHE TAVIKLIMITER_X86_LEVEL PROPERTY STRINGS 1 2 3)

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
  if(TAVIKLIMITER_X86_LEVEL STREQUAL "1")
    add_compile_options(-march=x86-64)
  elseif(TAVIKLIMITER_X86_LEVEL MATCHES "^[23]$")
    add_compile_options(-march=x86-64-v${TAVIKLIMITER_X86_LEVEL})
  else()
    message(FATAL_ERROR "TAVIKLIMITER_X86_LEVEL must be 1, 2 or 3, not '${TAVIKLIMITER_X86_LEVEL}'")
  endif()
endif()
