// The thread limit of a layer and the static cut of a range among threads.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <thread>

namespace qnd_layer {

// QND_NUM_THREADS when it holds a positive count, else `fallback`.
inline int32_t limit_from_environment(int32_t fallback) {
    if (const char* text = std::getenv("QND_NUM_THREADS")) {
        const long n = std::strtol(text, nullptr, 10);
        if (n > 0 && n < 4096) {
            return static_cast<int32_t>(n);
        }
    }
    return fallback < 1 ? 1 : fallback;
}

inline int32_t hardware_threads() {
    const unsigned n = std::thread::hardware_concurrency();
    return n == 0 ? 1 : static_cast<int32_t>(n);
}

// Threads for a region of `work` items asked for at most `max_threads` (0: no bound).
inline int32_t region_threads(int32_t limit, int32_t max_threads, int64_t work) {
    int64_t t = limit;
    if (max_threads > 0 && max_threads < t) {
        t = max_threads;
    }
    if (work < t) {
        t = work;
    }
    return t < 1 ? 1 : static_cast<int32_t>(t);
}

// The contiguous range of [0, n) of thread t of nt.
inline int64_t range_begin(int64_t n, int32_t t, int32_t nt) {
    return n / nt * t + (t < n % nt ? t : n % nt);
}

}  // namespace qnd_layer
