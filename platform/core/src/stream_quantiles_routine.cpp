// The streaming quantiles routine: approximate quantiles at the task's orders from KLL sketches
// (qnd_core/kll_sketch.hpp), one per dimension. With the caller's sketches (stream_sketches) the
// observations of the task are added to them, so that chunks of a stream, read one task at a
// time, build one sketch; a task without observations only reports from the sketches.
#include <new>
#include <vector>

#include "parallel.hpp"
#include "qnd_core/kll_sketch.hpp"
#include "task_view.hpp"

namespace qnd_core {
namespace {

template <class T>
int32_t stream_quantiles(qnd_ss_task* task,
                         uint64_t estimates,
                         int64_t method,
                         const qnd_ss_threader_row* table) {
    if (!live_task(task)) {
        return QND_SS_ERROR_TASK;
    }
    const qnd_ss_extension& e = *task->extension;
    if ((estimates & QND_SS_STREAM_QUANTILES) == 0 ||
        (e.stream_quantiles == nullptr && e.stream_sketches == nullptr)) {
        return QND_SS_OK;
    }
    task_view tv;
    const bool wide = task->int_width != 0;
    if (task->observations != nullptr) {
        if (const int32_t status = check_task<T>(task, method, &tv)) {
            return status;
        }
        if (tv.weights != nullptr) {
            return QND_SS_ERROR_NOT_SUPPORTED;  // the sketch counts every value once
        }
    } else {
        if (task->dims_ptr == nullptr || read_int(task->dims_ptr, wide) < 1) {
            return QND_SS_ERROR_DIMENSIONS;
        }
        if (task->element_size != sizeof(T)) {
            return QND_SS_ERROR_ELEMENT_TYPE;
        }
        if (e.stream_sketches == nullptr) {
            return QND_SS_ERROR_SKETCH;
        }
        tv.n_dims = read_int(task->dims_ptr, wide);
        tv.n_observations = 0;
        tv.wide_ints = wide;
        tv.indices = task->indices;
        tv.double_results = (task->flags & QND_SS_FLAG_DOUBLE_RESULTS) != 0;
    }
    std::vector<double> orders;
    if (e.stream_quantiles != nullptr) {
        if (e.quantile_orders_count == nullptr || e.quantile_orders == nullptr ||
            read_int(e.quantile_orders_count, wide) < 1) {
            return QND_SS_ERROR_ORDERS;
        }
        for (int64_t j = 0; j < read_int(e.quantile_orders_count, wide); ++j) {
            if (!(e.quantile_orders[j] >= 0 && e.quantile_orders[j] <= 1)) {
                return QND_SS_ERROR_ORDERS;
            }
            orders.push_back(e.quantile_orders[j]);
        }
    }
    const int32_t k = e.stream_capacity == 0 ? kll_default_k : e.stream_capacity;
    if (k < kll_min_width) {
        return QND_SS_ERROR_SKETCH;
    }
    const int64_t nd = tv.n_dims, n = tv.n_observations;
    const T* x = static_cast<const T*>(task->observations);
    std::vector<kll_sketch> own;
    kll_sketch* sketches = static_cast<kll_sketch*>(e.stream_sketches);
    bool out_of_memory = false;
    try {
        if (sketches == nullptr) {
            own.resize(nd);
            sketches = own.data();
        }
    } catch (const std::bad_alloc&) {
        return QND_SS_ERROR_MEMORY;
    }
    auto body = [&](int64_t d) {
        if (!dimension_kept(tv, d)) {
            return;
        }
        kll_sketch& s = sketches[d];
        try {
            if (s.n == 0 && s.levels.empty()) {
                s.k = k;
            }
            for (int64_t i = 0; i < n; ++i) {
                kll_update(s, static_cast<double>(tv.row_major ? x[d * n + i] : x[i * nd + d]));
            }
            for (std::size_t j = 0; j < orders.size(); ++j) {
                store<T>(e.stream_quantiles, d * orders.size() + j, kll_quantile(s, orders[j]),
                         tv.double_results);
            }
        } catch (const std::bad_alloc&) {
            out_of_memory = true;
        }
    };
    parallel_for(table, nd, body);
    return out_of_memory ? QND_SS_ERROR_MEMORY : QND_SS_OK;
}

}  // namespace
}  // namespace qnd_core

extern "C" {

int32_t _rtksSSStreamQuantiles(qnd_ss_task* task,
                               uint64_t estimates,
                               int64_t method,
                               const qnd_ss_threader_row* threader_table) {
    return qnd_core::stream_quantiles<float>(task, estimates, method, threader_table);
}

int32_t _rtkdSSStreamQuantiles(qnd_ss_task* task,
                               uint64_t estimates,
                               int64_t method,
                               const qnd_ss_threader_row* threader_table) {
    return qnd_core::stream_quantiles<double>(task, estimates, method, threader_table);
}
}
