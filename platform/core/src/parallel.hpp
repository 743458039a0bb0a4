// Work items run through row 0 of a threader table, or on the calling thread without one.
#pragma once

#include <cstdint>

#include "qnd_core/ss.h"

namespace qnd_core {

inline int thread_limit(const qnd_ss_threader_row* table) {
    if (table == nullptr || table->get_num_threads_limit == nullptr) {
        return 1;
    }
    const int n = table->get_num_threads_limit();
    return n < 1 ? 1 : n;
}

// Calls f(i) for every i of [0, n); returns when all calls are done.
template <class F>
void parallel_for(const qnd_ss_threader_row* table, int64_t n, F& f) {
    if (table == nullptr || table->for_each == nullptr || n <= 1) {
        for (int64_t i = 0; i < n; ++i) {
            f(i);
        }
        return;
    }
    table->for_each(n, 0, &f,
                    [](void* ctx, int64_t i, int32_t, int32_t) { (*static_cast<F*>(ctx))(i); });
}

// Number of parts a range of `n` elements is cut into: enough for every thread to have a few,
// none below `grain` elements.
inline int64_t part_count(int64_t n, int64_t wanted, int64_t grain) {
    int64_t parts = n / grain;
    if (parts > wanted) {
        parts = wanted;
    }
    return parts < 1 ? 1 : parts;
}

}  // namespace qnd_core
