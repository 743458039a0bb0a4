// The quantiles routine: exact quantiles of every dimension at the task's orders, and the median.
#include <new>
#include <vector>

#include "order_statistics.hpp"

namespace qnd_core {
namespace {

template <class T>
int32_t quantiles(qnd_ss_task* task,
                  uint64_t estimates,
                  int64_t method,
                  const qnd_ss_threader_row* table) {
    task_view tv;
    if (const int32_t status = check_task<T>(task, method, &tv)) {
        return status;
    }
    const bool want_orders =
        (estimates & QND_SS_QUANTILES) != 0 && task->extension->quantiles != nullptr;
    const bool want_median = (estimates & QND_SS_MEDIAN) != 0 && task->extension->median != nullptr;
    if (!want_orders && !want_median) {
        return QND_SS_OK;
    }
    std::vector<double> orders;
    if (want_orders) {
        if (task->extension->quantile_orders_count == nullptr ||
            task->extension->quantile_orders == nullptr ||
            read_int(task->extension->quantile_orders_count, tv.wide_ints) < 1) {
            return QND_SS_ERROR_ORDERS;
        }
        const int64_t m = read_int(task->extension->quantile_orders_count, tv.wide_ints);
        for (int64_t j = 0; j < m; ++j) {
            const double p = task->extension->quantile_orders[j];
            if (!(p >= 0 && p <= 1)) {
                return QND_SS_ERROR_ORDERS;
            }
            orders.push_back(p);
        }
    }
    const int32_t def = task->extension->quantile_definition;
    if (!known_definition(def) || (tv.weights != nullptr && !weighted_definition(def))) {
        return QND_SS_ERROR_DEFINITION;
    }
    const std::size_t m = orders.size();
    if (want_median) {
        orders.push_back(0.5);
    }
    std::vector<double> q;
    try {
        const bool ok = tv.weights == nullptr
                            ? select_quantiles<T, double>(tv, table, def, orders, {}, q)
                            : select_quantiles<T, weighted_key>(tv, table, def, orders, {}, q);
        if (!ok) {
            return QND_SS_ERROR_WEIGHTS;
        }
    } catch (const std::bad_alloc&) {
        return QND_SS_ERROR_MEMORY;
    }
    const std::size_t stride = orders.size();
    for (int64_t d = 0; d < tv.n_dims; ++d) {
        if (!dimension_kept(tv, d)) {
            continue;
        }
        for (std::size_t j = 0; want_orders && j < m; ++j) {
            store<T>(task->extension->quantiles, d * m + j, q[d * stride + j], tv.double_results);
        }
        if (want_median) {
            store<T>(task->extension->median, d, q[d * stride + m], tv.double_results);
        }
    }
    return QND_SS_OK;
}

}  // namespace
}  // namespace qnd_core

extern "C" {

int32_t _rtksSSQuantiles(qnd_ss_task* task,
                         uint64_t estimates,
                         int64_t method,
                         const qnd_ss_threader_row* threader_table) {
    return qnd_core::quantiles<float>(task, estimates, method, threader_table);
}

int32_t _rtkdSSQuantiles(qnd_ss_task* task,
                         uint64_t estimates,
                         int64_t method,
                         const qnd_ss_threader_row* threader_table) {
    return qnd_core::quantiles<double>(task, estimates, method, threader_table);
}
}
