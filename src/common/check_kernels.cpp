// The check build: every kernel call runs the vector path for real and the
// scalar reference on a copy, and traps on the first difference.
#if defined(TVL_CHECK_VECTOR) && TVL_CHECK_VECTOR

#include "common/check_kernels.h"

#include <stddef.h>

#include "common/kernels.h"
#include "common/memory.h"

namespace tvl::check {

namespace {

// A copy of the byte ranges a call touches (at most two of the three given
// are non-empty), taken before the call. Ranges that overlap or touch become
// one, so a kernel working in place or with overlapping buffers sees the same
// layout in the copy.
class Mirror {
public:
    static constexpr size_t kCapacity = 65536;

    Mirror(const void* a, size_t a_bytes, const void* b, size_t b_bytes, const void* c, size_t c_bytes) {
        add(a, a_bytes);
        add(b, b_bytes);
        add(c, c_bytes);
        size_t at = 0;
        for (int r = 0; r < ranges_; ++r) {
            if (at + size_[r] > kCapacity) {
                fits_ = false;
                return;
            }
            offset_[r] = at;
            copy_bytes(copy_ + at, reinterpret_cast<const void*>(base_[r]), size_[r]);
            at += size_[r];
        }
    }

    bool fits() const { return fits_; }

    // Where p's byte lies in the copy (p itself outside the ranges: nothing
    // is read or written there).
    template <typename T>
    T* map(T* p) const {
        const uintptr_t a = reinterpret_cast<uintptr_t>(p);
        for (int r = 0; r < ranges_; ++r) {
            if (a >= base_[r] && a <= base_[r] + size_[r]) {
                return reinterpret_cast<T*>(const_cast<unsigned char*>(copy_) + offset_[r] + (a - base_[r]));
            }
        }
        return p;
    }

    // Traps unless the memory now holds what the copy holds.
    void expect_same_as_memory() const {
        for (int r = 0; r < ranges_; ++r) {
            const auto* now = reinterpret_cast<const unsigned char*>(base_[r]);
            for (size_t i = 0; i < size_[r]; ++i) {
                if (now[i] != copy_[offset_[r] + i]) __builtin_trap();
            }
        }
    }

private:
    void add(const void* p, size_t bytes) {
        const uintptr_t base = reinterpret_cast<uintptr_t>(p);
        if (p == nullptr || bytes == 0) return;
        for (int r = 0; r < ranges_; ++r) {
            if (base <= base_[r] + size_[r] && base_[r] <= base + bytes) {  // overlapping or touching: merge
                const uintptr_t lo = base < base_[r] ? base : base_[r];
                const uintptr_t hi = base + bytes > base_[r] + size_[r] ? base + bytes : base_[r] + size_[r];
                base_[r] = lo;
                size_[r] = hi - lo;
                return;
            }
        }
        base_[ranges_] = base;
        size_[ranges_] = bytes;
        ++ranges_;
    }

    uintptr_t base_[3] = {0, 0, 0};
    size_t size_[3] = {0, 0, 0};
    size_t offset_[3] = {0, 0, 0};
    int ranges_ = 0;
    bool fits_ = true;
    unsigned char copy_[kCapacity];
};

void expect_equal(int64_t a, int64_t b) {
    if (a != b) __builtin_trap();
}

// One checked call of kernel k. The touched elements follow from the row's
// reach and element sizes: src and dst (or samples, the wider of the two
// in place). A kernel that writes nothing runs both paths on the caller's
// memory and compares results. Unchecked: a negative stride (it reaches
// below the base pointer, outside the copy), touched memory beyond the copy,
// and a ramp table that the destination overlaps (the table is not copied).
template <typename R, typename Src, typename Dst, typename Samples, typename Vector, typename Scalar>
R checked(const KernelShape& k, Src* src, Dst* dst, Samples* samples, int64_t count, int32_t stride,
          int32_t is_stereo, const int32_t* ramp_table, Vector vector_call, Scalar scalar_call) {
    const int64_t n = reach_extent(k.reach, count, stride, is_stereo);
    if (k.dst == Element::none) {
        const int64_t got = result_word(vector_call);
        expect_equal(got, result_word([&] { return scalar_call(src, dst, samples); }));
        return static_cast<R>(got);
    }
    if (n < 0) return static_cast<R>(result_word(vector_call));
    const size_t src_bytes = size_t(n) * element_bytes(k.src), dst_bytes = size_t(n) * element_bytes(k.dst);
    Mirror m(src, src_bytes, dst, dst_bytes, samples, src_bytes > dst_bytes ? src_bytes : dst_bytes);
    const bool table_apart = !overlaps(ramp_table, k.reads_ramp ? size_t(n > 0 ? count : 0) * 4 : 0, dst, dst_bytes);
    const int64_t got = result_word(vector_call);
    if (m.fits() && table_apart) {
        expect_equal(got, result_word([&] { return scalar_call(m.map(src), m.map(dst), m.map(samples)); }));
        m.expect_same_as_memory();
    }
    return static_cast<R>(got);
}

// What a kernel without the parameter is taken to have: each wrapper names
// every role, and a kernel's own parameter hides the one here.
namespace absent {
constexpr const void* src = nullptr;
constexpr void* dst = nullptr;
constexpr void* samples = nullptr;
constexpr int32_t stride = 1, is_stereo = 0;
constexpr const int32_t* ramp_table = nullptr;
}  // namespace absent

}  // namespace

using namespace absent;

#define TVL_CHECKED(name, linkage, from, to, reach, places, ramp, result, parameters, arguments)             \
    result name parameters {                                                                                 \
        return checked<result>(                                                                              \
            kernel_shape::name, src, dst, samples, count, stride, is_stereo, ramp_table,                     \
            [&] { return vector::name arguments; },                                                          \
            [&]([[maybe_unused]] auto src, [[maybe_unused]] auto dst, [[maybe_unused]] auto samples) {       \
                return scalar::name arguments;                                                               \
            });                                                                                              \
    }
TVL_KERNEL_LIST(TVL_CHECKED)
#undef TVL_CHECKED

}  // namespace tvl::check

#endif  // TVL_CHECK_VECTOR
