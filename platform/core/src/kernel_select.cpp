// Choice of the widest block kernels the processor runs, at run time.
#include <cstdlib>
#include <cstring>

#include "kernel_set.hpp"

namespace qnd_core {
namespace {

// 0: sse2 (every x86-64), 1: avx2 with fma, 2: avx512 (f, dq, vl, bw).
int widest_supported() {
    __builtin_cpu_init();
    int level = 0;
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) {
        level = 1;
        if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
            __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw")) {
            level = 2;
        }
    }
    return level;
}

}  // namespace

const kernel_set& active_kernels() {
    static const int supported = widest_supported();
    // Where the processor has both, the moments take the 512-bit kernels and the extremes of
    // double data the 256-bit ones. Measured on the development machine (core_bench, two threads,
    // ratios to the read bandwidth): once blocks start their loads on a cache line, the 512-bit
    // moments of double data ran at 0.95 to 1.07 against 0.88 to 1.02 for the 256-bit ones; the
    // 512-bit extremes of double data ran at 0.94 to 0.98 against 0.95 to 1.08.
    static const kernel_set best_of_both = {
        "avx512, avx2 double extremes",
        kernels_avx512.f,
        {kernels_avx512.d.moments, kernels_avx512.d.moments_strided, kernels_avx2.d.extremes,
         kernels_avx2.d.extremes_strided, kernels_avx512.d.co_moments}};
    const kernel_set* chosen = supported == 2   ? &best_of_both
                               : supported == 1 ? &kernels_avx2
                                                : &kernels_sse2;
    // Read on every call, so that a test can walk every path in one process.
    if (const char* forced = std::getenv("QND_CORE_ISA")) {
        if (std::strcmp(forced, "sse2") == 0) {
            chosen = &kernels_sse2;
        } else if (std::strcmp(forced, "avx2") == 0 && supported >= 1) {
            chosen = &kernels_avx2;
        } else if (std::strcmp(forced, "avx512") == 0 && supported == 2) {
            chosen = &kernels_avx512;
        }
    }
    return *chosen;
}

}  // namespace qnd_core
