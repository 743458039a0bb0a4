// The MAD routine: the median absolute deviation of every dimension, median |x - median|, and
// its scaled form, exact. Both medians are of the linear definition (weighted: its weighted
// form), whatever the task's quantile definition.
#include <new>
#include <vector>

#include "order_statistics.hpp"

namespace qnd_core {
namespace {

// 1 / Phi^-1(3/4): the scaled MAD of normal data estimates their standard deviation.
constexpr double normal_scale = 1.4826;

template <class T, class K>
bool median_deviations(const task_view& tv,
                       const qnd_ss_threader_row* table,
                       std::vector<double>& mad) {
    const std::vector<double> half = {0.5};
    std::vector<double> medians;
    if (!select_quantiles<T, K>(tv, table, QND_SS_QUANTILE_LINEAR, half, {}, medians)) {
        return false;
    }
    return select_quantiles<T, K>(tv, table, QND_SS_QUANTILE_LINEAR, half,
                                  key_source{medians.data()}, mad);
}

template <class T>
int32_t mad(qnd_ss_task* task,
            uint64_t estimates,
            int64_t method,
            const qnd_ss_threader_row* table) {
    task_view tv;
    if (const int32_t status = check_task<T>(task, method, &tv)) {
        return status;
    }
    const bool want_mad = (estimates & QND_SS_MAD) != 0 && task->extension->mad != nullptr;
    const bool want_scaled =
        (estimates & QND_SS_MAD_SCALED) != 0 && task->extension->mad_scaled != nullptr;
    if (!want_mad && !want_scaled) {
        return QND_SS_OK;
    }
    std::vector<double> result;
    try {
        const bool ok = tv.weights == nullptr
                            ? median_deviations<T, double>(tv, table, result)
                            : median_deviations<T, weighted_key>(tv, table, result);
        if (!ok) {
            return QND_SS_ERROR_WEIGHTS;
        }
    } catch (const std::bad_alloc&) {
        return QND_SS_ERROR_MEMORY;
    }
    for (int64_t d = 0; d < tv.n_dims; ++d) {
        if (!dimension_kept(tv, d)) {
            continue;
        }
        if (want_mad) {
            store<T>(task->extension->mad, d, result[d], tv.double_results);
        }
        if (want_scaled) {
            store<T>(task->extension->mad_scaled, d, normal_scale * result[d], tv.double_results);
        }
    }
    return QND_SS_OK;
}

}  // namespace
}  // namespace qnd_core

extern "C" {

int32_t _rtksSSMAD(qnd_ss_task* task,
                   uint64_t estimates,
                   int64_t method,
                   const qnd_ss_threader_row* threader_table) {
    return qnd_core::mad<float>(task, estimates, method, threader_table);
}

int32_t _rtkdSSMAD(qnd_ss_task* task,
                   uint64_t estimates,
                   int64_t method,
                   const qnd_ss_threader_row* threader_table) {
    return qnd_core::mad<double>(task, estimates, method, threader_table);
}
}
