// The fuzzer's bytes read front to back as values of any trivially copyable type; past the end
// every read gives zeros, so that a target builds a whole task from an input of any length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

struct fuzz_input {
    const std::uint8_t* at;
    std::size_t left;
    template <typename T>
    T take() {
        T value{};
        const std::size_t n = left < sizeof(T) ? left : sizeof(T);
        std::memcpy(&value, at, n);
        at += n;
        left -= n;
        return value;
    }
};
