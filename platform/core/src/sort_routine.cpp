// The sort routine: every observation of each kept dimension in ascending order, NaN last, into
// the task's sorted array, laid out as the observations are. Weights play no part.
#include <algorithm>
#include <new>
#include <vector>

#include "parallel.hpp"
#include "task_view.hpp"

namespace qnd_core {
namespace {

template <class T>
int32_t sort(qnd_ss_task* task,
             uint64_t estimates,
             int64_t method,
             const qnd_ss_threader_row* table) {
    task_view tv;
    if (const int32_t status = check_task<T>(task, method, &tv)) {
        return status;
    }
    if ((estimates & QND_SS_SORT) == 0 || task->extension->sorted == nullptr) {
        return QND_SS_OK;
    }
    const T* x = static_cast<const T*>(tv.observations);
    const int64_t n = tv.n_observations, nd = tv.n_dims;
    std::vector<int64_t> dims;
    for (int64_t d = 0; d < nd; ++d) {
        if (dimension_kept(tv, d)) {
            dims.push_back(d);
        }
    }
    bool out_of_memory = false;
    auto body = [&](int64_t j) {
        const int64_t d = dims[j];
        const int64_t step = tv.row_major ? 1 : nd;
        const int64_t first = tv.row_major ? d * n : d;
        try {
            std::vector<T> v(n);
            for (int64_t i = 0; i < n; ++i) {
                v[i] = x[first + i * step];
            }
            // NaN has no place in the order of <: set apart at the end first.
            const auto numbers = std::partition(v.begin(), v.end(), [](T a) { return a == a; });
            std::sort(v.begin(), numbers);
            for (int64_t i = 0; i < n; ++i) {
                store<T>(task->extension->sorted, first + i * step, static_cast<double>(v[i]),
                         tv.double_results);
            }
        } catch (const std::bad_alloc&) {
            out_of_memory = true;
        }
    };
    parallel_for(table, static_cast<int64_t>(dims.size()), body);
    return out_of_memory ? QND_SS_ERROR_MEMORY : QND_SS_OK;
}

}  // namespace
}  // namespace qnd_core

extern "C" {

int32_t _rtksSSSort(qnd_ss_task* task,
                    uint64_t estimates,
                    int64_t method,
                    const qnd_ss_threader_row* threader_table) {
    return qnd_core::sort<float>(task, estimates, method, threader_table);
}

int32_t _rtkdSSSort(qnd_ss_task* task,
                    uint64_t estimates,
                    int64_t method,
                    const qnd_ss_threader_row* threader_table) {
    return qnd_core::sort<double>(task, estimates, method, threader_table);
}
}
