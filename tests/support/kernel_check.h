// The vector-against-scalar differential of every kernel, shared by
// kernels_test (seeded, fresh data each run) and fuzz/kernel_fuzzer.
//
// The table has a row per kernel of the library's list (common/kernel_list.h),
// which says what each reads and writes, which elements a count reaches and
// how source and destination may lie. check_kernel() lays one call out in an
// arena of random bytes (buffers at any byte offset, a random ramp table or
// the library's), fills the source with generated samples (special values
// mixed in), runs the build's vector path (tvl::vector: SSE2..AVX-512 on
// x86-64, NEON on arm64) on one copy and the scalar reference on another,
// and compares the results and every byte of both arenas.
#pragma once

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <string>
#include <vector>

#include "common/kernels.h"
#include "gen.h"
#include "taviklimiter.h"

namespace tvl_test {

struct KernelArgs {
    int32_t a, b, stereo, stride;
    const int32_t* table;
};

// A row: the kernel's shape from the library's list, and a call of its
// vector path or scalar reference with the arguments by role.
struct KernelRow {
    tvl::KernelShape shape;
    int64_t (*run)(bool vector, void* src, void* dst, int64_t count, const KernelArgs& p);
};

// Converts to the pointer type of the kernel's parameter.
struct AnyPointer {
    void* p;
    template <typename T>
    operator T*() const { return static_cast<T*>(p); }
};
// A count as the kernel takes it: below 0 only where it is signed.
struct AnyCount {
    int64_t n;
    operator int32_t() const { return int32_t(n); }
    operator uint32_t() const { return n < 0 ? 0 : uint32_t(n); }
};

#define TVL_ROW(name, linkage, from, to, reach, places, ramp, result, parameters, arguments)                      \
    KernelRow{tvl::kernel_shape::name, [](bool vector, void* s, void* d, int64_t n, const KernelArgs& p) {          \
                  [[maybe_unused]] const AnyPointer src{s}, dst{d}, samples{s};                                     \
                  [[maybe_unused]] const AnyCount count{n};                                                         \
                  [[maybe_unused]] const int32_t is_stereo = p.stereo, stride = p.stride, gain = p.a, ceiling = p.a, \
                                                 start_gain = p.a, end_gain = p.b, step = p.b;                      \
                  [[maybe_unused]] const int32_t* ramp_table = p.table;                                             \
                  return vector ? tvl::result_word([&] { return tvl::vector::name arguments; })                     \
                                : tvl::result_word([&] { return tvl::scalar::name arguments; });                    \
              }},
inline constexpr KernelRow kKernelRows[] = {TVL_KERNEL_LIST(TVL_ROW)};
#undef TVL_ROW

// One comparison of kernel `kernel` at `count`; placement, offsets, arguments
// and data all come from Gen(seed). Returns "" when the vector path left the
// same bytes and result as the reference, else what differed.
inline std::string check_kernel(size_t kernel, int64_t count, uint64_t seed) {
    const KernelRow& row = kKernelRows[kernel % std::size(kKernelRows)];
    const tvl::KernelShape& k = row.shape;
    Gen g(seed);
    const bool has_stride = tvl::takes_stride(k.reach);
    static const int32_t strides[] = {1, 2, 0, 3};
    KernelArgs p{g.one_in(3) ? 32767 : g.gain(), g.gain(), int32_t(g.below(3)) * 3 % 5, 1, nullptr};
    if (has_stride) p.stride = strides[g.below(4)];
    if (has_stride && k.reach == tvl::Reach::frames && g.one_in(4)) p.stereo = 0, p.stride = 2;
    const size_t n = size_t(tvl::reach_extent(k.reach, count, p.stride, p.stereo));
    const size_t sb = n * tvl::element_bytes(k.src), db = n * tvl::element_bytes(k.dst);

    int place = int(g.below(3));
    while (!(k.placements & (1 << place))) place = int(g.below(3));
    const size_t guard = 64, src_off = g.below(8), shift = place == 2 ? 4 * (1 + g.below(4)) : 0;
    const size_t region = place == 0 ? sb + 8 + db : std::max(sb + shift, db);
    const size_t table_entries = k.reads_ramp ? size_t(std::max<int64_t>(count, 0)) : 0;
    std::vector<unsigned char> arena(guard + src_off + region + 4 * table_entries + guard);
    for (auto& b : arena) b = (unsigned char)g.next();
    unsigned char* src = arena.data() + guard + src_off + shift;
    unsigned char* dst = place == 0 ? src + sb + g.below(8) : src - shift;
    // One call in three holds calm audio alone, below full scale and free of
    // special values, which the vector paths' fast forms take whole; the
    // others mix special values and every size in, floats of every size from
    // 2^-36 to 2^36 among them, across the bounds where those forms end.
    const bool calm = g.one_in(3);
    const auto any_size_f32 = [&] { return float(g.audio(1.0) * std::ldexp(1.0, int(g.below(72)) - 36)); };
    for (size_t i = 0; i < n; ++i) {
        if (k.src == tvl::Element::q33p31) put<int64_t>(src, i, calm ? int64_t(g.audio(1.0) * 0x1p31) : g.q33());
        if (k.src == tvl::Element::word32) {
            put<int32_t>(src, i, calm ? int32_t(g.audio(1.0) * 0x1p27) : g.one_in(2) ? g.q5() : int32_t(g.q33()));
        }
        if (k.src == tvl::Element::float32) {
            put<float>(src, i, calm ? float(g.audio(1.0)) : g.one_in(4) ? any_size_f32() : g.f32());
        }
        if (k.src == tvl::Element::gain) put<int32_t>(src, i, g.gain());
    }
    unsigned char* table = arena.data() + guard + src_off + region;
    const bool random_table = g.one_in(3);
    for (size_t i = 0; i < table_entries; ++i) put<int32_t>(table, i, random_table ? g.any32() : int32_t(512 * (i % 64)));
    const bool library_table = k.reads_ramp && !random_table && count <= 64;

    std::vector<unsigned char> ref = arena;
    const auto at = [&](std::vector<unsigned char>& a, unsigned char* ptr) { return a.data() + (ptr - arena.data()); };
    KernelArgs pv = p, ps = p;
    pv.table = library_table ? LMTR_RAMP_TABLE : reinterpret_cast<const int32_t*>(table);
    ps.table = library_table ? LMTR_RAMP_TABLE : reinterpret_cast<const int32_t*>(at(ref, table));
    const int64_t want = row.run(false, at(ref, src), at(ref, dst), count, ps);
    const int64_t got = row.run(true, src, dst, count, pv);
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
