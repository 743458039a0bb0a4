// The partial covariance routine: the covariance of the dimensions with a zero control entry once
// the dimensions with a non-zero one are held fixed, S_yy - S_yz S_zz^-1 S_zy, and the partial
// correlation from it; from the observations' covariance, or from the task's covariance array
// for a task without observations.
#include <cmath>
#include <new>
#include <vector>

#include "co_moment_reduction.hpp"

namespace qnd_core {
namespace {

// The covariance among the kept dimensions: of the observations, or read from the task.
template <class T>
int32_t source_covariance(qnd_ss_task* task,
                          int64_t method,
                          const qnd_ss_threader_row* table,
                          std::vector<int64_t>& dims,
                          std::vector<double>& s) {
    const bool wide = task->int_width != 0;
    task_view tv;
    if (task->observations != nullptr) {
        if (const int32_t status = check_task<T>(task, method, &tv)) {
            return status;
        }
        dims = kept_dimensions(tv);
        co_moment_sums sums;
        if (!dims.empty() &&
            !reduce_co_moments<T>(tv, table, dims, static_cast<const T*>(tv.weights), sums)) {
            return QND_SS_ERROR_WEIGHTS;
        }
        const int64_t p = static_cast<int64_t>(dims.size());
        std::vector<double> mean(p);
        s.resize(p * p);
        if (p > 0) {
            finish_co_moments(sums, mean.data(), s.data());
        }
        for (double& v : s) {
            v *= covariance_factor(sums);
        }
        return QND_SS_OK;
    }
    // Without observations only what the covariance needs is checked.
    if (task->dims_ptr == nullptr || read_int(task->dims_ptr, wide) < 1) {
        return QND_SS_ERROR_DIMENSIONS;
    }
    if (task->element_size != sizeof(T)) {
        return QND_SS_ERROR_ELEMENT_TYPE;
    }
    if (task->extension->covariance == nullptr) {
        return QND_SS_ERROR_OBSERVATIONS;
    }
    tv.n_dims = read_int(task->dims_ptr, wide);
    tv.wide_ints = wide;
    tv.indices = task->indices;
    dims = kept_dimensions(tv);
    const int64_t p = static_cast<int64_t>(dims.size()), nd = tv.n_dims;
    const bool dbl = (task->flags & QND_SS_FLAG_DOUBLE_RESULTS) != 0;
    s.resize(p * p);
    for (int64_t i = 0; i < p; ++i) {
        for (int64_t j = 0; j < p; ++j) {
            s[i * p + j] = load<T>(task->extension->covariance, dims[i] * nd + dims[j], dbl);
        }
    }
    return QND_SS_OK;
}

template <class T>
int32_t partial(qnd_ss_task* task,
                uint64_t estimates,
                int64_t method,
                const qnd_ss_threader_row* table) {
    if (!live_task(task)) {
        return QND_SS_ERROR_TASK;
    }
    const qnd_ss_extension& e = *task->extension;
    void* pcov = (estimates & QND_SS_PARTIAL_COVARIANCE) ? e.partial_covariance : nullptr;
    void* pcor = (estimates & QND_SS_PARTIAL_CORRELATION) ? e.partial_correlation : nullptr;
    if (pcov == nullptr && pcor == nullptr) {
        return QND_SS_OK;
    }
    std::vector<int64_t> dims;
    std::vector<double> s;
    try {
        if (const int32_t status = source_covariance<T>(task, method, table, dims, s)) {
            return status;
        }
    } catch (const std::bad_alloc&) {
        return QND_SS_ERROR_MEMORY;
    }
    if (e.partial_controls == nullptr) {
        return QND_SS_ERROR_CONTROLS;
    }
    const bool wide = task->int_width != 0;
    const int64_t p = static_cast<int64_t>(dims.size()), nd = read_int(task->dims_ptr, wide);
    std::vector<int64_t> y, z;  // positions among the kept dimensions
    for (int64_t i = 0; i < p; ++i) {
        const void* at = static_cast<const char*>(e.partial_controls) + dims[i] * (wide ? 8 : 4);
        (read_int(at, wide) != 0 ? z : y).push_back(i);
    }
    if (y.empty() || z.empty()) {
        return QND_SS_ERROR_CONTROLS;
    }
    // Cholesky factor L of S_zz in long double; a pivot that is not positive refuses.
    const std::size_t q = z.size();
    std::vector<long double> l(q * q, 0.0L);
    for (std::size_t a = 0; a < q; ++a) {
        for (std::size_t b = 0; b <= a; ++b) {
            long double v = s[z[a] * p + z[b]];
            for (std::size_t k = 0; k < b; ++k) {
                v -= l[a * q + k] * l[b * q + k];
            }
            if (a == b) {
                if (!(v > 0)) {
                    return QND_SS_ERROR_CONTROLS;
                }
                l[a * q + a] = std::sqrt(v);
            } else {
                l[a * q + b] = v / l[b * q + b];
            }
        }
    }
    // u_i = L^-1 S_z,y_i, and P_ij = S_yiyj - u_i . u_j.
    std::vector<long double> u(y.size() * q);
    for (std::size_t i = 0; i < y.size(); ++i) {
        for (std::size_t a = 0; a < q; ++a) {
            long double v = s[z[a] * p + y[i]];
            for (std::size_t k = 0; k < a; ++k) {
                v -= l[a * q + k] * u[i * q + k];
            }
            u[i * q + a] = v / l[a * q + a];
        }
    }
    std::vector<double> pc(y.size() * y.size());
    for (std::size_t i = 0; i < y.size(); ++i) {
        for (std::size_t j = 0; j < y.size(); ++j) {
            long double v = s[y[i] * p + y[j]];
            for (std::size_t k = 0; k < q; ++k) {
                v -= u[i * q + k] * u[j * q + k];
            }
            pc[i * y.size() + j] = static_cast<double>(v);
        }
    }
    const bool dbl = (task->flags & QND_SS_FLAG_DOUBLE_RESULTS) != 0;
    const std::size_t m = y.size();
    for (std::size_t i = 0; i < m; ++i) {
        for (std::size_t j = 0; j < m; ++j) {
            const int64_t at = dims[y[i]] * nd + dims[y[j]];
            if (pcov != nullptr) {
                store<T>(pcov, at, pc[i * m + j], dbl);
            }
            if (pcor != nullptr) {
                store<T>(pcor, at, pc[i * m + j] / std::sqrt(pc[i * m + i] * pc[j * m + j]), dbl);
            }
        }
    }
    return QND_SS_OK;
}

}  // namespace
}  // namespace qnd_core

extern "C" {

int32_t _rtksSSPartialCovariance(qnd_ss_task* task,
                                 uint64_t estimates,
                                 int64_t method,
                                 const qnd_ss_threader_row* threader_table) {
    return qnd_core::partial<float>(task, estimates, method, threader_table);
}

int32_t _rtkdSSPartialCovariance(qnd_ss_task* task,
                                 uint64_t estimates,
                                 int64_t method,
                                 const qnd_ss_threader_row* threader_table) {
    return qnd_core::partial<double>(task, estimates, method, threader_table);
}
}
