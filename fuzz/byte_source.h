// Turns a fuzz input into choices: integers in a range, booleans, raw bytes.
// Portable (no libFuzzer header), so the replay builds of gcc and the arm64
// cross build compile the same targets. An exhausted input yields zeros.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

namespace tvl_fuzz {

class ByteSource {
public:
    ByteSource(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    size_t remaining_bytes() const { return size_ - pos_; }

    // An integer in [lo, hi], from as few bytes as the range needs.
    template <typename T>
    T ConsumeIntegralInRange(T lo, T hi) {
        static_assert(std::is_integral_v<T>);
        const uint64_t range = uint64_t(hi) - uint64_t(lo);
        uint64_t v = 0;
        for (uint64_t seen = 0; seen < range && pos_ < size_; seen = (seen << 8) | 0xFF) v = (v << 8) | data_[pos_++];
        if (range != UINT64_MAX) v %= range + 1;
        return T(uint64_t(lo) + v);
    }
    template <typename T>
    T ConsumeIntegral() {
        using U = std::make_unsigned_t<T>;
        return T(ConsumeIntegralInRange<U>(0, U(~U(0))));
    }
    bool ConsumeBool() { return ConsumeIntegralInRange<int>(0, 1) == 1; }

    // Up to n bytes (fewer when the input runs out).
    template <typename T>
    std::vector<T> ConsumeBytes(size_t n) {
        static_assert(sizeof(T) == 1);
        n = n < remaining_bytes() ? n : remaining_bytes();
        std::vector<T> out(n);
        if (n) std::memcpy(out.data(), data_ + pos_, n);
        pos_ += n;
        return out;
    }

private:
    const uint8_t* data_;
    size_t size_, pos_ = 0;
};

}  // namespace tvl_fuzz
