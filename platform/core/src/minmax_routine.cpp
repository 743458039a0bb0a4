// The minmax routine: the true minimum and maximum of every dimension.
#include <new>
#include <vector>

#include "reduction.hpp"

namespace qnd_core {
namespace {

template <class T>
int32_t minmax(qnd_ss_task* task,
               uint64_t estimates,
               int64_t method,
               const qnd_ss_threader_row* table) {
    task_view tv;
    if (const int32_t status = check_task<T>(task, method, &tv)) {
        return status;
    }
    const bool want_min = (estimates & QND_SS_MIN) != 0 && task->min != nullptr;
    const bool want_max = (estimates & QND_SS_MAX) != 0 && task->max != nullptr;
    if (!want_min && !want_max) {
        return QND_SS_OK;
    }
    const extreme_policy<T> policy{&kernels_for<T>(active_kernels())};
    std::vector<extreme_sums> states;
    try {
        if (!reduce<T>(tv, table, policy, 0, states)) {
            return QND_SS_ERROR_WEIGHTS;
        }
    } catch (const std::bad_alloc&) {
        return QND_SS_ERROR_MEMORY;
    }
    for (int64_t d = 0; d < tv.n_dims; ++d) {
        if (!dimension_kept(tv, d)) {
            continue;
        }
        const extreme_sums& e = states[d];
        // A NaN observation, or no observation at all, leaves no extreme to report.
        const bool defined = e.kept && !e.nan;
        if (want_min) {
            store<T>(task->min, d, defined ? e.min : __builtin_nan(""), tv.double_results);
        }
        if (want_max) {
            store<T>(task->max, d, defined ? e.max : __builtin_nan(""), tv.double_results);
        }
    }
    return QND_SS_OK;
}

}  // namespace
}  // namespace qnd_core

extern "C" {

int32_t _rtksSSMinmax(qnd_ss_task* task,
                      uint64_t estimates,
                      int64_t method,
                      const qnd_ss_threader_row* threader_table) {
    return qnd_core::minmax<float>(task, estimates, method, threader_table);
}

int32_t _rtkdSSMinmax(qnd_ss_task* task,
                      uint64_t estimates,
                      int64_t method,
                      const qnd_ss_threader_row* threader_table) {
    return qnd_core::minmax<double>(task, estimates, method, threader_table);
}
}
