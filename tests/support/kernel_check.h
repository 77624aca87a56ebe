// The vector-against-scalar differential of every kernel, shared by
// kernels_test (seeded, fresh data each run) and fuzz/kernel_fuzzer.
//
// One table row per kernel says what it reads and writes, which elements a
// count reaches and how source and destination may lie (apart, in place,
// destination below the source). check_kernel() lays one call out in an
// arena of random bytes (buffers at any byte offset, a random ramp table or
// the library's), fills the source with generated samples (special values
// mixed in), runs the build's vector path (tvl::vector: SSE2..AVX-512 on
// x86-64, NEON on arm64) on one copy and the scalar reference on another,
// and compares the results and every byte of both arenas.
#pragma once

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <string>
#include <vector>

#include "common/kernels.h"
#include "gen.h"
#include "taviklimiter.h"

namespace tvl_test {

enum Kind { kI64, kI32, kF32, kGains, kNone };
// Elements a count reaches: consecutive samples; i * stride; every second
// sample when stride is 2; frames of two samples in stereo, else as
// every-second; stereo pairs or i * stride (calculate_block_min_gain).
enum Shape { kSamples, kStrided, kEverySecond, kFrames, kMinGain };
enum Places { kApart = 1, kInPlace = 2, kBelow = 4, kNarrowing = 7, kApartOrSame = 3 };

struct KernelArgs {
    int32_t a, b, stereo, stride;
    const int32_t* table;
};
using KernelRun = int64_t (*)(bool vector, void* src, void* dst, int64_t count, const KernelArgs& p);

struct KernelRow {
    const char* name;
    Kind src, dst;
    Shape shape;
    int places;
    bool table, signed_count;
    KernelRun run;
};

#define TVL_K(fn) (v ? tvl::vector::fn : tvl::scalar::fn)
#define TVL_ROW(fn, src, dst, shape, places, table, body)                                                       \
    KernelRow{#fn, src, dst, shape, places, table, false,                                                       \
              [](bool v, void* s, void* d, int64_t n, [[maybe_unused]] const KernelArgs& p) -> int64_t {                       \
                  [[maybe_unused]] auto* s64 = static_cast<int64_t*>(s);                                        \
                  [[maybe_unused]] auto* s32 = static_cast<int32_t*>(s);                                        \
                  [[maybe_unused]] auto* sf = static_cast<float*>(s);                                           \
                  [[maybe_unused]] auto* d64 = static_cast<int64_t*>(d);                                        \
                  [[maybe_unused]] auto* d32 = static_cast<int32_t*>(d);                                        \
                  [[maybe_unused]] auto* df = static_cast<float*>(d);                                           \
                  [[maybe_unused]] const uint32_t u = uint32_t(n);                                              \
                  body;                                                                                         \
              }}
#define TVL_VOID(call) return (call, 0)

inline const std::vector<KernelRow>& kernel_rows() {
    static const std::vector<KernelRow> rows = [] {
        std::vector<KernelRow> r = {
            TVL_ROW(derive_gain, kI64, kI32, kStrided, kApartOrSame, false,
                    TVL_VOID(TVL_K(derive_gain)(s64, d32, u, p.a, p.stride))),
            TVL_ROW(calculate_block_min_gain, kGains, kNone, kMinGain, kApart, false,
                    return TVL_K(calculate_block_min_gain)(p.stereo, s32, int32_t(n), p.stride)),
            TVL_ROW(peak_q33p31, kI64, kNone, kSamples, kApart, false, return int64_t(TVL_K(peak_q33p31)(s64, u))),
            TVL_ROW(peak_float32, kF32, kNone, kSamples, kApart, false, return int64_t(TVL_K(peak_float32)(sf, u))),
            TVL_ROW(peak_q5p27, kI32, kNone, kSamples, kApart, false, return int64_t(TVL_K(peak_q5p27)(s32, u))),
            TVL_ROW(no_limiter, kI64, kI32, kEverySecond, kNarrowing, false,
                    TVL_VOID(TVL_K(no_limiter)(s64, d32, u, p.stride))),
            TVL_ROW(apply_fix_gain, kI64, kI32, kStrided, kNarrowing, false,
                    TVL_VOID(TVL_K(apply_fix_gain)(p.a, s64, d32, int32_t(n), p.stride))),
            TVL_ROW(apply_makeup_gain, kI32, kI32, kSamples, kInPlace, false,
                    TVL_VOID(TVL_K(apply_makeup_gain)(s32, u, p.a))),
            TVL_ROW(apply_step_gain_without_saturation, kI64, kI32, kFrames, kApartOrSame, false,
                    return TVL_K(apply_step_gain_without_saturation)(p.stereo, p.a, p.b, s64, d32, u, p.stride)),
            TVL_ROW(apply_targ_gain, kI64, kI32, kFrames, kApartOrSame, true,
                    return TVL_K(apply_targ_gain)(p.stereo, p.a, p.b, s64, d32, p.table, u, p.stride)),
            TVL_ROW(apply_ramp_gain_for_q33p31, kI64, kI64, kFrames, kApartOrSame, true,
                    return TVL_K(apply_ramp_gain_for_q33p31)(p.stereo, p.a, p.b, s64, d64, p.table, u, p.stride)),
            TVL_ROW(apply_ramp_gain_for_float32, kF32, kF32, kFrames, kApartOrSame, true,
                    return TVL_K(apply_ramp_gain_for_float32)(p.stereo, p.a, p.b, sf, df, p.table, u, p.stride)),
            TVL_ROW(apply_ramp_gain_for_q5p27, kI32, kI32, kFrames, kApartOrSame, true,
                    return TVL_K(apply_ramp_gain_for_q5p27)(p.stereo, p.a, p.b, s32, d32, p.table, u, p.stride)),
            TVL_ROW(clipping_limiter, kI64, kI32, kEverySecond, kNarrowing, false,
                    TVL_VOID(TVL_K(clipping_limiter)(s64, d32, u, p.stride))),
            TVL_ROW(copy_float32_to_q33p31, kF32, kI64, kSamples, kApartOrSame, false,
                    TVL_VOID(TVL_K(copy_float32_to_q33p31)(sf, d64, u))),
            TVL_ROW(copy_q1p31_to_float32, kI32, kF32, kSamples, kNarrowing, false,
                    TVL_VOID(TVL_K(copy_q1p31_to_float32)(s32, df, u))),
            TVL_ROW(copy_q5p27_to_q33p31, kI32, kI64, kSamples, kApartOrSame, false,
                    TVL_VOID(TVL_K(copy_q5p27_to_q33p31)(s32, d64, u))),
            TVL_ROW(copy_q1p31_to_q5p27, kI32, kI32, kSamples, kNarrowing, false,
                    TVL_VOID(TVL_K(copy_q1p31_to_q5p27)(s32, d32, u))),
            TVL_ROW(convert_from_float32_to_q33p31, kF32, kI64, kSamples, kInPlace, false,
                    TVL_VOID(TVL_K(convert_from_float32_to_q33p31)(s, u))),
            TVL_ROW(convert_from_q5p27_to_q33p31, kI32, kI64, kSamples, kInPlace, false,
                    TVL_VOID(TVL_K(convert_from_q5p27_to_q33p31)(s, u))),
            TVL_ROW(convert_from_q33p31_to_float32, kI64, kF32, kSamples, kInPlace, false,
                    TVL_VOID(TVL_K(convert_from_q33p31_to_float32)(s, u))),
            TVL_ROW(convert_from_q33p31_to_q5p27, kI64, kI32, kSamples, kInPlace, false,
                    TVL_VOID(TVL_K(convert_from_q33p31_to_q5p27)(s, u))),
            TVL_ROW(convert_from_q5p27_to_float32, kI32, kF32, kSamples, kInPlace, false,
                    TVL_VOID(TVL_K(convert_from_q5p27_to_float32)(s, u))),
            TVL_ROW(convert_from_float32_to_q5p27, kF32, kI32, kSamples, kInPlace, false,
                    TVL_VOID(TVL_K(convert_from_float32_to_q5p27)(s, u))),
            TVL_ROW(move_from_q33p31_to_q1p31, kI64, kI32, kSamples, kNarrowing, false,
                    TVL_VOID(TVL_K(move_from_q33p31_to_q1p31)(s64, d32, u))),
            TVL_ROW(clip_from_q33p31_to_q1p31, kI64, kI32, kSamples, kNarrowing, false,
                    TVL_VOID(TVL_K(clip_from_q33p31_to_q1p31)(s64, d32, u))),
            TVL_ROW(narrow_q33p31_to_float32, kI64, kF32, kSamples, kNarrowing, false,
                    TVL_VOID(TVL_K(narrow_q33p31_to_float32)(s64, df, u))),
            TVL_ROW(emit_float32_at_unity, kF32, kF32, kSamples, kNarrowing, false,
                    TVL_VOID(TVL_K(emit_float32_at_unity)(sf, df, u))),
            TVL_ROW(emit_float32_fix_gain, kF32, kF32, kSamples, kNarrowing, false,
                    TVL_VOID(TVL_K(emit_float32_fix_gain)(p.a, sf, df, u))),
            TVL_ROW(emit_float32_targ_gain, kF32, kF32, kFrames, kNarrowing, true,
                    return TVL_K(emit_float32_targ_gain)(p.stereo, p.a, p.b, sf, df, p.table, u)),
            TVL_ROW(emit_float32_step_gain, kF32, kF32, kFrames, kNarrowing, false,
                    return TVL_K(emit_float32_step_gain)(p.stereo, p.a, p.b, sf, df, u)),
        };
        r[1].signed_count = r[6].signed_count = true;  // int32_t counts: below 1 does nothing
        return r;
    }();
    return rows;
}
#undef TVL_K
#undef TVL_ROW
#undef TVL_VOID

inline size_t kind_bytes(Kind k) { return k == kI64 ? 8 : k == kNone ? 0 : 4; }

// Elements of source and destination that `count` reaches.
inline size_t reach(const KernelRow& k, int64_t count, const KernelArgs& p) {
    if (count <= 0) return 0;
    const size_t n = size_t(count), every_second = p.stride == 2 ? 2 * n - 1 : n;
    switch (k.shape) {
        case kSamples: return n;
        case kStrided: return (n - 1) * size_t(p.stride) + 1;
        case kEverySecond: return every_second;
        case kFrames: return p.stereo ? 2 * n : every_second;
        case kMinGain: return p.stereo ? 2 * n : (n - 1) * size_t(p.stride) + 1;
    }
    return n;
}

// One comparison of kernel `kernel` at `count`; placement, offsets, arguments
// and data all come from Gen(seed). Returns "" when the vector path left the
// same bytes and result as the reference, else what differed.
inline std::string check_kernel(size_t kernel, int64_t count, uint64_t seed) {
    const KernelRow& k = kernel_rows()[kernel % kernel_rows().size()];
    Gen g(seed);
    const bool has_stride = k.shape != kSamples && std::string(k.name).rfind("emit", 0) != 0;
    static const int32_t strides[] = {1, 2, 0, 3};
    KernelArgs p{g.one_in(3) ? 32767 : g.gain(), g.gain(), int32_t(g.below(3)) * 3 % 5, 1, nullptr};
    if (has_stride) p.stride = strides[g.below(4)];
    if (has_stride && k.shape == kFrames && g.one_in(4)) p.stereo = 0, p.stride = 2;
    if (!k.signed_count && count < 0) count = 0;
    const size_t n = reach(k, count, p), sb = n * kind_bytes(k.src), db = n * kind_bytes(k.dst);

    int place = int(g.below(3));
    while (!(k.places & (1 << place))) place = int(g.below(3));
    const size_t guard = 64, src_off = g.below(8), shift = place == 2 ? 4 * (1 + g.below(4)) : 0;
    const size_t region = place == 0 ? sb + 8 + db : std::max(sb + shift, db);
    const size_t table_entries = k.table ? size_t(std::max<int64_t>(count, 0)) : 0;
    std::vector<unsigned char> arena(guard + src_off + region + 4 * table_entries + guard);
    for (auto& b : arena) b = (unsigned char)g.next();
    unsigned char* src = arena.data() + guard + src_off + shift;
    unsigned char* dst = place == 0 ? src + sb + g.below(8) : src - shift;
    for (size_t i = 0; i < n; ++i) {
        if (k.src == kI64) put<int64_t>(src, i, g.q33());
        if (k.src == kI32) put<int32_t>(src, i, g.one_in(2) ? g.q5() : int32_t(g.q33()));
        if (k.src == kF32) put<float>(src, i, g.f32());
        if (k.src == kGains) put<int32_t>(src, i, g.gain());
    }
    unsigned char* table = arena.data() + guard + src_off + region;
    const bool random_table = g.one_in(3);
    for (size_t i = 0; i < table_entries; ++i) put<int32_t>(table, i, random_table ? g.any32() : int32_t(512 * (i % 64)));
    const bool library_table = k.table && !random_table && count <= 64;

    std::vector<unsigned char> ref = arena;
    const auto at = [&](std::vector<unsigned char>& a, unsigned char* ptr) { return a.data() + (ptr - arena.data()); };
    KernelArgs pv = p, ps = p;
    pv.table = library_table ? LMTR_RAMP_TABLE : reinterpret_cast<const int32_t*>(table);
    ps.table = library_table ? LMTR_RAMP_TABLE : reinterpret_cast<const int32_t*>(at(ref, table));
    const int64_t want = k.run(false, at(ref, src), at(ref, dst), count, ps);
    const int64_t got = k.run(true, src, dst, count, pv);
    if (want == got && ref == arena) return "";

    size_t first = 0;
    while (first < arena.size() && ref[first] == arena[first]) ++first;
    char text[400];
    std::snprintf(text, sizeof text,
                  "%s: count %" PRId64 ", a %d, b %d, stereo %d, stride %d, %s table, %s, src offset %zu, "
                  "seed %" PRIu64 ": returned %" PRId64 " (scalar %" PRId64 "), first differing byte %td of the %s",
                  k.name, count, p.a, p.b, p.stereo, p.stride, random_table ? "random" : "ramp",
                  place == 0 ? "apart" : place == 1 ? "in place" : "dst below src", src_off, seed, got, want,
                  std::ptrdiff_t(first) - (src - arena.data()), first < arena.size() ? "source" : "arena (none)");
    return text;
}

}  // namespace tvl_test
