# The library's source files, relative to the project root: the one list that
# CMake builds from. Android.bp repeats it; tests/check_build_lists.py keeps
# the two lists and the files on disk in step.
set(TAVIKLIMITER_SOURCES
    src/api/lifecycle.cpp
    src/api/process.cpp
    src/api/kernel_exports.cpp
    src/engine/limiting_path.cpp
    src/engine/bypass_path.cpp
    src/engine/block_step.cpp
    src/engine/required_gain.cpp
    src/engine/gain_derivation.cpp
    src/gain/unity_gain.cpp
    src/gain/release_step.cpp
    src/gain/attack_ramp.cpp
    src/gain/fade_ramps.cpp
    src/gain/hard_clipping.cpp
    src/gain/float32_emission.cpp
    src/convert/block_copies.cpp
    src/convert/reencode.cpp
    src/convert/narrow.cpp
    src/common/check_kernels.cpp
    # x86-64 vector kernels (empty on other targets)
    src/engine/gain_derivation_x86.cpp
    src/gain/unity_gain_x86.cpp
    src/gain/release_step_x86.cpp
    src/gain/attack_ramp_x86.cpp
    src/gain/hard_clipping_x86.cpp
    src/gain/float32_emission_x86.cpp
    src/gain/q5p27_emission_x86.cpp
    src/convert/block_copies_x86.cpp
    src/convert/reencode_x86.cpp
    src/convert/narrow_x86.cpp
    # arm64 NEON kernels (empty on other targets)
    src/engine/gain_derivation_neon.cpp
    src/convert/block_copies_neon.cpp
    src/gain/unity_gain_neon.cpp
    src/convert/narrow_neon.cpp
    src/gain/release_step_neon.cpp
    src/gain/attack_ramp_neon.cpp
    src/gain/fade_ramps_neon.cpp
    src/gain/float32_emission_neon.cpp
    src/gain/hard_clipping_neon.cpp
    src/convert/reencode_neon.cpp
    src/gain/q5p27_emission_neon.cpp
)

# The public header and the linker version script.
set(TAVIKLIMITER_PUBLIC_HEADER include/taviklimiter.h)
set(TAVIKLIMITER_VERSION_SCRIPT src/taviklimiter.map)
