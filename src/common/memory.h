// Byte-level access to caller memory.
//
// Every buffer the library touches belongs to the caller and may have any
// alignment; in-place kernels also write one sample type over another (a
// Q1.31 word over a Q33.31 word). Loads and stores therefore go through
// memcpy of one element, which compilers turn into plain (unaligned-tolerant)
// loads and stores, and which is free of alignment and aliasing assumptions.
// The builtins keep the library free of <string.h>, so it also builds
// freestanding; they resolve to the C library's memcpy, memmove and memset.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace tvl {

inline void copy_bytes(void* dst, const void* src, size_t n) { __builtin_memcpy(dst, src, n); }
inline void move_bytes(void* dst, const void* src, size_t n) { __builtin_memmove(dst, src, n); }
inline void zero_bytes(void* dst, size_t n) { __builtin_memset(dst, 0, n); }

// Element i of an array of T starting at base.
template <typename T>
inline T load(const void* base, ptrdiff_t i) {
    T v;
    __builtin_memcpy(&v, static_cast<const unsigned char*>(base) + i * ptrdiff_t(sizeof(T)), sizeof(T));
    return v;
}

template <typename T>
inline void store(void* base, ptrdiff_t i, T v) {
    __builtin_memcpy(static_cast<unsigned char*>(base) + i * ptrdiff_t(sizeof(T)), &v, sizeof(T));
}

// Position of sample i in a kernel that supports an every-second-sample mode:
// stride 2 takes positions 0, 2, 4, ...; any other stride consecutive ones.
inline ptrdiff_t every_second_or_consecutive(uint32_t i, int32_t stride) {
    return stride == 2 ? ptrdiff_t(i) * 2 : ptrdiff_t(i);
}

// Byte address of element i of an array of `size`-byte elements at base, for
// the vector loops' unaligned loads and stores (any alignment).
inline const uint8_t* at(const void* base, size_t i, size_t size) {
    return static_cast<const uint8_t*>(base) + i * size;
}
inline uint8_t* at(void* base, size_t i, size_t size) { return static_cast<uint8_t*>(base) + i * size; }

// Whether [a, a + a_bytes) and [b, b + b_bytes) share a byte. Compared as
// integers: the two ranges may belong to unrelated objects.
inline bool overlaps(const void* a, size_t a_bytes, const void* b, size_t b_bytes) {
    const uintptr_t pa = reinterpret_cast<uintptr_t>(a), pb = reinterpret_cast<uintptr_t>(b);
    return pa < pb + b_bytes && pb < pa + a_bytes;
}

// Whether a vector loop that reads src_bytes from src and writes dst_bytes to
// dst, group after group in ascending order with each group loaded before it
// is stored, gives its plain loop's bytes: the buffers are apart, or dst
// starts at or below src, so every store lands on input already read. The
// narrowing kernels (8 bytes in, 4 out) and the same-width kernels in place
// meet the second condition. A dst above src inside it is left to the plain
// loop, whose element order defines the result.
inline bool ascending_groups_safe(const void* src, size_t src_bytes, const void* dst, size_t dst_bytes) {
    return reinterpret_cast<uintptr_t>(dst) <= reinterpret_cast<uintptr_t>(src) ||
           !overlaps(src, src_bytes, dst, dst_bytes);
}

}  // namespace tvl
