# Checks on the build itself, run by CTest in every build that has them:
#   check_exports           the shared library exports exactly the names of
#                           its version script,
#                           imports only memcpy/memmove/memset and start-up
#                           names, owns no writable data, needs no C++ runtime,
#                           has no run path and holds neither the source nor
#                           the build directory's path
#   check_exports_selftest  the check above fails on libraries that break it
#   check_build_lists       cmake/sources.cmake, Android.bp and src/ agree
# They read ELF files with GNU readelf, which reads every target's files.

find_package(Python3 REQUIRED COMPONENTS Interpreter)
find_program(TAVIKLIMITER_READELF NAMES readelf REQUIRED
             DOC "GNU readelf (binutils); reads ELF files of any target")

if(TAVIKLIMITER_CHECK_EXPORTS)
  set(_tvl_check_mode)
  if(TAVIKLIMITER_SANITIZE)
    # Instrumented code calls the sanitizer runtime and keeps its own
    # writable metadata and source file names: the writable data and the
    # paths are not checked there, nor the sanitizer hooks among the imports.
    set(_tvl_check_mode --sanitized)
  endif()
  add_test(NAME check_exports
    COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/tests/check_exports.py
            --readelf ${TAVIKLIMITER_READELF} ${_tvl_check_mode}
            --no-path ${PROJECT_SOURCE_DIR} --no-path ${PROJECT_BINARY_DIR}
            $<TARGET_FILE:taviklimiter_vendor> ${_tvl_map})

  # The self-test builds small libraries with this build's C compiler and
  # the host's C library, which the freestanding build does not have.
  if(NOT TAVIKLIMITER_FREESTANDING AND NOT TAVIKLIMITER_SANITIZE)
    add_test(NAME check_exports_selftest
      COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/tests/check_exports_selftest.py
              --cc ${CMAKE_C_COMPILER} --readelf ${TAVIKLIMITER_READELF}
              --workdir ${CMAKE_CURRENT_BINARY_DIR}/check_exports_selftest)
  endif()
endif()

add_test(NAME check_build_lists
  COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/tests/check_build_lists.py
          ${PROJECT_SOURCE_DIR})
