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
    int level = supported;
    // Read on every call, so that a test can walk every path in one process.
    if (const char* forced = std::getenv("QND_CORE_ISA")) {
        if (std::strcmp(forced, "sse2") == 0) {
            level = 0;
        } else if (std::strcmp(forced, "avx2") == 0 && level > 1) {
            level = 1;
        }
    }
    static const kernel_set* const sets[] = {&kernels_sse2, &kernels_avx2, &kernels_avx512};
    return *sets[level];
}

}  // namespace qnd_core
