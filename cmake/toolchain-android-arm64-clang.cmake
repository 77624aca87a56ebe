# The shared library for Android arm64 (API level 29) without an NDK: clang
# and lld only, freestanding. No C library and no C++ headers exist here, so
# the library is compiled against clang's own <stdint.h>/<stddef.h> and linked
# with -nostdlib; memcpy, memmove and memset stay undefined for bionic to
# resolve at load time. Only the shared library is built (no tests, no tools).
#
# CMAKE_SYSTEM_NAME stays Linux: "Android" would make CMake look for an NDK.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(TAVIKLIMITER_ANDROID_TARGET aarch64-linux-android29)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${TAVIKLIMITER_ANDROID_TARGET})
set(CMAKE_CXX_COMPILER_TARGET ${TAVIKLIMITER_ANDROID_TARGET})

# Compiler checks cannot link a program without a C library.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

# -nostdlibinc keeps the host's /usr/include out while clang's resource
# headers stay on the path.
set(CMAKE_C_FLAGS_INIT "-ffreestanding -nostdlibinc")
set(CMAKE_CXX_FLAGS_INIT "-ffreestanding -nostdlibinc -nostdinc++")
# The compile flags above reach the link line too, where they mean nothing.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=lld -Wno-unused-command-line-argument")

set(TAVIKLIMITER_FREESTANDING ON CACHE BOOL "Build the shared library alone, with -nostdlib")
