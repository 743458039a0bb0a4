// The pooled covariance routine: covariance pooled over groups of observations, each group's
// covariance and mean, and the mean of all grouped observations. One pass over the data per group.
#include <new>
#include <vector>

#include "co_moment_reduction.hpp"

namespace qnd_core {
namespace {

template <class T>
int32_t pooled(qnd_ss_task* task,
               uint64_t estimates,
               int64_t method,
               const qnd_ss_threader_row* table) {
    task_view tv;
    if (const int32_t status = check_task<T>(task, method, &tv)) {
        return status;
    }
    const qnd_ss_extension& e = *task->extension;
    void* pooled_cov = (estimates & QND_SS_POOLED_COVARIANCE) ? e.pooled_covariance : nullptr;
    void* group_cov = (estimates & QND_SS_GROUP_COVARIANCE) ? e.group_covariance : nullptr;
    void* pooled_mean = (estimates & QND_SS_POOLED_MEAN) ? e.pooled_mean : nullptr;
    void* group_mean = (estimates & QND_SS_GROUP_MEAN) ? e.group_mean : nullptr;
    if (!pooled_cov && !group_cov && !pooled_mean && !group_mean) {
        return QND_SS_OK;
    }
    if (e.groups_count == nullptr || e.group_indices == nullptr ||
        read_int(e.groups_count, tv.wide_ints) < 1) {
        return QND_SS_ERROR_GROUPS;
    }
    const int64_t groups = read_int(e.groups_count, tv.wide_ints);
    const int64_t n = tv.n_observations, nd = tv.n_dims;
    const std::vector<int64_t> dims = kept_dimensions(tv);
    if (dims.empty()) {
        return QND_SS_OK;
    }
    const int64_t p = static_cast<int64_t>(dims.size());
    const T* w = static_cast<const T*>(tv.weights);
    const int width = tv.wide_ints ? 8 : 4;
    std::vector<co_moment_sums> states(groups);
    try {
        // Each group is the whole task under weights that are 0 outside it.
        std::vector<T> group_weights(n);
        for (int64_t g = 0; g < groups; ++g) {
            for (int64_t i = 0; i < n; ++i) {
                const void* at = static_cast<const char*>(e.group_indices) + i * width;
                group_weights[i] = read_int(at, tv.wide_ints) == g ? (w ? w[i] : T(1)) : T(0);
            }
            if (!reduce_co_moments<T>(tv, table, dims, group_weights.data(), states[g])) {
                return QND_SS_ERROR_WEIGHTS;
            }
        }
    } catch (const std::bad_alloc&) {
        return QND_SS_ERROR_MEMORY;
    }
    const bool dbl = tv.double_results;
    co_moment_sums all(p);
    std::vector<double> pooled_cross(p * p, 0.0), mean(p), cross(p * p);
    double denominator = 0;
    for (int64_t g = 0; g < groups; ++g) {
        const co_moment_sums& s = states[g];
        matrix_outputs o;
        o.covariance = group_cov == nullptr ? nullptr : static_cast<char*>(group_cov);
        o.mean = group_mean;
        // Arrays of several groups: write through a view shifted to this group's block.
        const int64_t size = dbl ? 8 : sizeof(T);
        if (o.covariance != nullptr) {
            o.covariance = static_cast<char*>(group_cov) + g * nd * nd * size;
        }
        if (o.mean != nullptr) {
            o.mean = static_cast<char*>(group_mean) + g * nd * size;
        }
        write_matrices<T>(s, dims, nd, o, dbl);
        if (s.w > 0) {
            finish_co_moments(s, mean.data(), cross.data());
            for (int64_t k = 0; k < p * p; ++k) {
                pooled_cross[k] += cross[k];
            }
            denominator += s.w - s.w2 / s.w;
        }
        merge(all, s);
    }
    for (int64_t i = 0; i < p; ++i) {
        for (int64_t j = 0; pooled_cov != nullptr && j < p; ++j) {
            store<T>(pooled_cov, dims[i] * nd + dims[j], pooled_cross[i * p + j] / denominator,
                     dbl);
        }
    }
    if (pooled_mean != nullptr) {
        matrix_outputs o;
        o.mean = pooled_mean;
        write_matrices<T>(all, dims, nd, o, dbl);
    }
    return QND_SS_OK;
}

}  // namespace
}  // namespace qnd_core

extern "C" {

int32_t _rtksSSPooledCovariance(qnd_ss_task* task,
                                uint64_t estimates,
                                int64_t method,
                                const qnd_ss_threader_row* threader_table) {
    return qnd_core::pooled<float>(task, estimates, method, threader_table);
}

int32_t _rtkdSSPooledCovariance(qnd_ss_task* task,
                                uint64_t estimates,
                                int64_t method,
                                const qnd_ss_threader_row* threader_table) {
    return qnd_core::pooled<double>(task, estimates, method, threader_table);
}
}
