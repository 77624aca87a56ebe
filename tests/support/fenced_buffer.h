// A buffer at a chosen misalignment, fenced on both sides by guard bytes of
// a known pattern. Under AddressSanitizer the guards are also poisoned, so
// the first read or write into them stops the program on the spot with the
// faulting stack; elsewhere check() finds writes afterwards. No GoogleTest.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TVL_FENCE_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) && !defined(TVL_FENCE_ASAN)
#define TVL_FENCE_ASAN 1
#endif
#if defined(TVL_FENCE_ASAN)
#include <sanitizer/asan_interface.h>
#endif

namespace tvl_test {

class FencedBuffer {
public:
    static constexpr size_t kGuard = 64;  // a multiple of 16: offset 0 is 16-byte aligned

    // size data bytes, `offset` bytes past a 16-byte boundary, filled with `fill`.
    FencedBuffer(size_t size, size_t offset, unsigned char fill = 0)
        : size_(size), offset_(offset), storage_(kGuard + offset + size + kGuard) {
        for (size_t i = 0; i < storage_.size(); ++i) storage_[i] = pattern(i);
        if (size) std::memset(data(), fill, size);
        fence(size);
    }
    FencedBuffer(const FencedBuffer&) = delete;
    FencedBuffer& operator=(const FencedBuffer&) = delete;
    ~FencedBuffer() { unfence(); }

    unsigned char* data() { return storage_.data() + kGuard + offset_; }
    const unsigned char* data() const { return storage_.data() + kGuard + offset_; }
    size_t size() const { return size_; }

    // Lifts every fence, then tells whether all guard bytes keep their pattern.
    bool check() {
        unfence();
        for (size_t i = 0; i < storage_.size(); ++i) {
            const bool guard = i < kGuard + offset_ || i >= kGuard + offset_ + size_;
            if (guard && storage_[i] != pattern(i)) return false;
        }
        fence(size_);
        return true;
    }

    static unsigned char pattern(size_t i) { return static_cast<unsigned char>(0x5A ^ (i * 37)); }

private:
    void fence(size_t data_end) {
#if defined(TVL_FENCE_ASAN)
        ASAN_POISON_MEMORY_REGION(storage_.data(), kGuard + offset_);
        unsigned char* end = data() + data_end;
        ASAN_POISON_MEMORY_REGION(end, static_cast<size_t>(storage_.data() + storage_.size() - end));
#else
        (void)data_end;
#endif
    }
    void unfence() {
#if defined(TVL_FENCE_ASAN)
        ASAN_UNPOISON_MEMORY_REGION(storage_.data(), storage_.size());
#endif
    }

    size_t size_, offset_;
    std::vector<unsigned char> storage_;
};

}  // namespace tvl_test
