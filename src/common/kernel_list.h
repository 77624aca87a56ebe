// The list of kernels: one row per kernel, the only place its signature and
// its shape are written. From it come every variant's prototypes
// (TVL_DECLARE_KERNEL), the exported C wrappers (api/kernel_exports.cpp), the
// check build's wrappers (common/check_kernels.cpp) and the tests' and
// fuzzer's table (tests/support/kernel_check.h).
//
// A row: X(name, linkage, source, destination, reach, placements, ramp table,
//          return type, (parameters), (arguments to forward)).
//   linkage      exported (a C entry point, listed in taviklimiter.map) or
//                engine (the engine's own).
//   source, destination
//                the elements read and written (Element); none for a kernel
//                that only returns a result.
//   reach        which elements a count reaches (Reach, below).
//   placements   how the destination may lie against the source in a call
//                the vector path serves: apart, in_place (the same address),
//                below (starting lower and overlapping).
//   ramp table   reads_ramp: reads ramp_table[0 .. count - 1].
// Parameters are named by their role, so every consumer can pick them out:
// src, dst, or samples for a buffer read and rewritten in place; count,
// stride, is_stereo, ramp_table; gain, ceiling, start_gain (the first gain
// value) and end_gain, step (the second).
//
// The engine's kernels:
//   peak_q33p31, peak_float32, peak_q5p27: the largest magnitude of `count`
//     samples once widened to Q33.31 (as unsigned; 0 for none), from which
//     the engine finds the smallest gain the block needs.
//   narrow_q33p31_to_float32: no_limiter then copy_q1p31_to_float32 in one
//     pass, for a block that leaves at unity as float32.
//   emit_float32_at_unity, emit_float32_fix_gain, emit_float32_targ_gain,
//     emit_float32_step_gain: a float32 block widened to Q33.31, then
//     no_limiter, apply_fix_gain, apply_targ_gain or
//     apply_step_gain_without_saturation (count frames, consecutive samples),
//     then copy_q1p31_to_float32, in one pass.
//   emit_q5p27_at_unity, emit_q5p27_fix_gain, emit_q5p27_targ_gain,
//     emit_q5p27_step_gain: the same for a Q5.27 block, ending with
//     copy_q1p31_to_q5p27.
#pragma once

#include <stddef.h>
#include <stdint.h>

// clang-format off
//  name                                linkage   source   dest.    reach             placements                ramp table
//    return type, (parameters), (arguments)
#define TVL_KERNEL_LIST(X) \
    X(derive_gain,                        exported, q33p31,  gain,    strided,          apart | in_place,         no_ramp,    \
      void, (const int64_t* src, int32_t* dst, uint32_t count, int32_t ceiling, int32_t stride),                           \
      (src, dst, count, ceiling, stride))                                                                                  \
    X(calculate_block_min_gain,           exported, gain,    none,    pairs_or_strided, apart,                    no_ramp,    \
      int32_t, (int32_t is_stereo, const int32_t* src, int32_t count, int32_t stride), (is_stereo, src, count, stride))    \
    X(peak_q33p31,                        engine,   q33p31,  none,    consecutive,      apart,                    no_ramp,    \
      uint64_t, (const int64_t* src, uint32_t count), (src, count))                                                        \
    X(peak_float32,                       engine,   float32, none,    consecutive,      apart,                    no_ramp,    \
      uint64_t, (const float* src, uint32_t count), (src, count))                                                          \
    X(peak_q5p27,                         engine,   word32,  none,    consecutive,      apart,                    no_ramp,    \
      uint64_t, (const int32_t* src, uint32_t count), (src, count))                                                        \
    X(no_limiter,                         exported, q33p31,  word32,  every_second,     apart | in_place | below, no_ramp,    \
      void, (const int64_t* src, int32_t* dst, uint32_t count, int32_t stride), (src, dst, count, stride))                \
    X(apply_fix_gain,                     exported, q33p31,  word32,  strided,          apart | in_place | below, no_ramp,    \
      void, (int32_t gain, const int64_t* src, int32_t* dst, int32_t count, int32_t stride),                               \
      (gain, src, dst, count, stride))                                                                                     \
    X(apply_makeup_gain,                  exported, word32,  word32,  consecutive,      in_place,                 no_ramp,    \
      void, (int32_t* samples, uint32_t count, int32_t gain), (samples, count, gain))                                      \
    X(apply_step_gain_without_saturation, exported, q33p31,  word32,  frames,           apart | in_place,         no_ramp,    \
      int32_t, (int32_t is_stereo, int32_t start_gain, int32_t step, const int64_t* src, int32_t* dst, uint32_t count,     \
                int32_t stride),                                                                                           \
      (is_stereo, start_gain, step, src, dst, count, stride))                                                              \
    X(apply_targ_gain,                    exported, q33p31,  word32,  frames,           apart | in_place,         reads_ramp, \
      int32_t, (int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int64_t* src, int32_t* dst,                 \
                const int32_t* ramp_table, uint32_t count, int32_t stride),                                                \
      (is_stereo, start_gain, end_gain, src, dst, ramp_table, count, stride))                                              \
    X(apply_ramp_gain_for_q33p31,         exported, q33p31,  q33p31,  frames,           apart | in_place | below, reads_ramp, \
      int32_t, (int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int64_t* src, int64_t* dst,                 \
                const int32_t* ramp_table, uint32_t count, int32_t stride),                                                \
      (is_stereo, start_gain, end_gain, src, dst, ramp_table, count, stride))                                              \
    X(apply_ramp_gain_for_float32,        exported, float32, float32, frames,           apart | in_place | below, reads_ramp, \
      int32_t, (int32_t is_stereo, int32_t start_gain, int32_t end_gain, const float* src, float* dst,                     \
                const int32_t* ramp_table, uint32_t count, int32_t stride),                                                \
      (is_stereo, start_gain, end_gain, src, dst, ramp_table, count, stride))                                              \
    X(apply_ramp_gain_for_q5p27,          exported, word32,  word32,  frames,           apart | in_place | below, reads_ramp, \
      int32_t, (int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int32_t* src, int32_t* dst,                 \
                const int32_t* ramp_table, uint32_t count, int32_t stride),                                                \
      (is_stereo, start_gain, end_gain, src, dst, ramp_table, count, stride))                                              \
    X(clipping_limiter,                   exported, q33p31,  word32,  every_second,     apart | in_place | below, no_ramp,    \
      void, (const int64_t* src, int32_t* dst, uint32_t count, int32_t stride), (src, dst, count, stride))                \
    X(copy_float32_to_q33p31,             exported, float32, q33p31,  consecutive,      apart | in_place,         no_ramp,    \
      void, (const float* src, int64_t* dst, uint32_t count), (src, dst, count))                                           \
    X(copy_q1p31_to_float32,              exported, word32,  float32, consecutive,      apart | in_place | below, no_ramp,    \
      void, (const int32_t* src, float* dst, uint32_t count), (src, dst, count))                                           \
    X(copy_q5p27_to_q33p31,               exported, word32,  q33p31,  consecutive,      apart | in_place,         no_ramp,    \
      void, (const int32_t* src, int64_t* dst, uint32_t count), (src, dst, count))                                         \
    X(copy_q1p31_to_q5p27,                exported, word32,  word32,  consecutive,      apart | in_place | below, no_ramp,    \
      void, (const int32_t* src, int32_t* dst, uint32_t count), (src, dst, count))                                         \
    X(convert_from_float32_to_q33p31,     exported, float32, q33p31,  consecutive,      in_place,                 no_ramp,    \
      void, (void* samples, uint32_t count), (samples, count))                                                             \
    X(convert_from_q5p27_to_q33p31,       exported, word32,  q33p31,  consecutive,      in_place,                 no_ramp,    \
      void, (void* samples, uint32_t count), (samples, count))                                                             \
    X(convert_from_q33p31_to_float32,     exported, q33p31,  float32, consecutive,      in_place,                 no_ramp,    \
      void, (void* samples, uint32_t count), (samples, count))                                                             \
    X(convert_from_q33p31_to_q5p27,       exported, q33p31,  word32,  consecutive,      in_place,                 no_ramp,    \
      void, (void* samples, uint32_t count), (samples, count))                                                             \
    X(convert_from_q5p27_to_float32,      exported, word32,  float32, consecutive,      in_place,                 no_ramp,    \
      void, (void* samples, uint32_t count), (samples, count))                                                             \
    X(convert_from_float32_to_q5p27,      exported, float32, word32,  consecutive,      in_place,                 no_ramp,    \
      void, (void* samples, uint32_t count), (samples, count))                                                             \
    X(move_from_q33p31_to_q1p31,          exported, q33p31,  word32,  consecutive,      apart | in_place | below, no_ramp,    \
      void, (const int64_t* src, int32_t* dst, uint32_t count), (src, dst, count))                                         \
    X(clip_from_q33p31_to_q1p31,          exported, q33p31,  word32,  consecutive,      apart | in_place | below, no_ramp,    \
      void, (const int64_t* src, int32_t* dst, uint32_t count), (src, dst, count))                                         \
    X(narrow_q33p31_to_float32,           engine,   q33p31,  float32, consecutive,      apart | in_place | below, no_ramp,    \
      void, (const int64_t* src, float* dst, uint32_t count), (src, dst, count))                                           \
    X(emit_float32_at_unity,              engine,   float32, float32, consecutive,      apart | in_place | below, no_ramp,    \
      void, (const float* src, float* dst, uint32_t count), (src, dst, count))                                             \
    X(emit_float32_fix_gain,              engine,   float32, float32, consecutive,      apart | in_place | below, no_ramp,    \
      void, (int32_t gain, const float* src, float* dst, uint32_t count), (gain, src, dst, count))                         \
    X(emit_float32_targ_gain,             engine,   float32, float32, packed_frames,    apart | in_place | below, reads_ramp, \
      int32_t, (int32_t is_stereo, int32_t start_gain, int32_t end_gain, const float* src, float* dst,                     \
                const int32_t* ramp_table, uint32_t count),                                                                \
      (is_stereo, start_gain, end_gain, src, dst, ramp_table, count))                                                      \
    X(emit_float32_step_gain,             engine,   float32, float32, packed_frames,    apart | in_place | below, no_ramp,    \
      int32_t, (int32_t is_stereo, int32_t start_gain, int32_t step, const float* src, float* dst, uint32_t count),        \
      (is_stereo, start_gain, step, src, dst, count))                                                                      \
    X(emit_q5p27_at_unity,                engine,   word32,  word32,  consecutive,      apart | in_place | below, no_ramp,    \
      void, (const int32_t* src, int32_t* dst, uint32_t count), (src, dst, count))                                         \
    X(emit_q5p27_fix_gain,                engine,   word32,  word32,  consecutive,      apart | in_place | below, no_ramp,    \
      void, (int32_t gain, const int32_t* src, int32_t* dst, uint32_t count), (gain, src, dst, count))                     \
    X(emit_q5p27_targ_gain,               engine,   word32,  word32,  packed_frames,    apart | in_place | below, reads_ramp, \
      int32_t, (int32_t is_stereo, int32_t start_gain, int32_t end_gain, const int32_t* src, int32_t* dst,                 \
                const int32_t* ramp_table, uint32_t count),                                                                \
      (is_stereo, start_gain, end_gain, src, dst, ramp_table, count))                                                      \
    X(emit_q5p27_step_gain,               engine,   word32,  word32,  packed_frames,    apart | in_place | below, no_ramp,    \
      int32_t, (int32_t is_stereo, int32_t start_gain, int32_t step, const int32_t* src, int32_t* dst, uint32_t count),    \
      (is_stereo, start_gain, step, src, dst, count))
// clang-format on

namespace tvl {

// What a kernel reads or writes per element.
enum class Element : uint8_t {
    none,     // nothing
    q33p31,   // int64_t Q33.31 samples
    word32,   // int32_t Q1.31 or Q5.27 samples
    float32,  // float samples
    gain,     // int32_t Q15 gain words
};

constexpr size_t element_bytes(Element e) { return e == Element::q33p31 ? 8 : e == Element::none ? 0 : 4; }

// Which elements a call of `count` reaches, as positions from the base pointer.
enum class Reach : uint8_t {
    consecutive,       // 0 .. count - 1
    strided,           // i * stride
    every_second,      // 2i when stride is 2, else i
    frames,            // stereo: frames of two samples, 2i and 2i + 1; mono: as every_second
    packed_frames,     // stereo: as frames; mono: i (no stride)
    pairs_or_strided,  // stereo: as frames; mono: as strided (calculate_block_min_gain)
};

// The positions reached: the last one plus one (0 for a count below 1), or
// -1 where a negative stride reaches below the base pointer.
constexpr int64_t reach_extent(Reach r, int64_t count, int32_t stride, int32_t is_stereo) {
    if (count <= 0) return 0;
    const bool pairs = is_stereo && (r == Reach::frames || r == Reach::packed_frames || r == Reach::pairs_or_strided);
    if (pairs) return 2 * count;
    if (r == Reach::strided || r == Reach::pairs_or_strided) return stride < 0 ? -1 : (count - 1) * stride + 1;
    if ((r == Reach::every_second || r == Reach::frames) && stride == 2) return 2 * count - 1;
    return count;
}

// Whether the kernel takes a stride argument.
constexpr bool takes_stride(Reach r) { return r != Reach::consecutive && r != Reach::packed_frames; }

namespace placement {
enum Placement : uint8_t { apart = 1, in_place = 2, below = 4 };
}
enum class Linkage : uint8_t { engine, exported };
enum class RampTable : uint8_t { no_ramp, reads_ramp };

struct KernelShape {
    const char* name;
    Linkage linkage;
    Element src, dst;
    Reach reach;
    uint8_t placements;  // placement::Placement bits
    bool reads_ramp;
};

// Each kernel's shape, as tvl::kernel_shape::<name>.
namespace kernel_shape {
using enum Element;
using enum Reach;
using enum Linkage;
using enum RampTable;
using namespace placement;
#define TVL_KERNEL_SHAPE(name, linkage, src, dst, reach, places, ramp, ...) \
    inline constexpr KernelShape name{#name, linkage, src, dst, reach, uint8_t(places), ramp == reads_ramp};
TVL_KERNEL_LIST(TVL_KERNEL_SHAPE)
#undef TVL_KERNEL_SHAPE
}  // namespace kernel_shape

// Each kernel's function type, as tvl::kernel_signature::<name>.
namespace kernel_signature {
#define TVL_KERNEL_SIGNATURE(name, linkage, src, dst, reach, places, ramp, result, parameters, arguments) \
    using name = result parameters;
TVL_KERNEL_LIST(TVL_KERNEL_SIGNATURE)
#undef TVL_KERNEL_SIGNATURE
}  // namespace kernel_signature

// A kernel call's result as a word to compare: 0 for a kernel that returns
// nothing.
template <typename R>
inline constexpr bool kReturnsNothing = false;
template <>
inline constexpr bool kReturnsNothing<void> = true;

template <typename Call>
int64_t result_word(Call call) {
    if constexpr (kReturnsNothing<decltype(call())>) {
        call();
        return 0;
    } else {
        return int64_t(call());
    }
}

}  // namespace tvl

// Declares kernel `name` with its signature in the current namespace.
#define TVL_DECLARE_KERNEL(name) ::tvl::kernel_signature::name name;
// Declares every kernel of the list.
#define TVL_DECLARE_LISTED_KERNEL(name, ...) TVL_DECLARE_KERNEL(name)
