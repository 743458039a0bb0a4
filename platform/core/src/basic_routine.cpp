// The basic routine: mean, raw and central moments and sums, kurtosis, skewness and variation of
// every dimension, from one reduction of the matrix; and the covariance, correlation and cross
// product matrices, from one reduction of co-moments.
#include <cmath>
#include <new>
#include <vector>

#include "co_moment_reduction.hpp"
#include "reduction.hpp"

namespace qnd_core {
namespace {

constexpr uint64_t matrix_bits = QND_SS_COVARIANCE | QND_SS_CORRELATION | QND_SS_CROSS_PRODUCT;
// Estimates formed around a mean: under method 256 they need the caller's.
constexpr uint64_t around_mean_bits = QND_SS_CENTRAL_MOMENT_2 | QND_SS_CENTRAL_MOMENT_3 |
                                      QND_SS_CENTRAL_MOMENT_4 | QND_SS_KURTOSIS | QND_SS_SKEWNESS |
                                      QND_SS_VARIATION | QND_SS_CENTRAL_SUM_2 |
                                      QND_SS_CENTRAL_SUM_3 | QND_SS_CENTRAL_SUM_4;

struct output {
    uint64_t bit;
    void* qnd_ss_task::*field;
    int order;  // highest power of the sums the estimate needs
};

// The estimates whose output is a single field.
const output single_outputs[] = {
    {QND_SS_MEAN, &qnd_ss_task::mean, 1},
    {QND_SS_KURTOSIS, &qnd_ss_task::kurtosis, 4},
    {QND_SS_SKEWNESS, &qnd_ss_task::skewness, 3},
    {QND_SS_VARIATION, &qnd_ss_task::variation, 2},
};

// Requested estimates that have an output array, and the order of sums they need together.
uint64_t present_estimates(const qnd_ss_task& t, uint64_t estimates, int* order) {
    uint64_t present = 0;
    int top = 0;
    auto take = [&](uint64_t bit, const void* array, int k) {
        if ((estimates & bit) != 0 && array != nullptr) {
            present |= bit;
            top = k > top ? k : top;
        }
    };
    for (const output& o : single_outputs) {
        take(o.bit, t.*o.field, o.order);
    }
    for (int k = 2; k <= 4; ++k) {
        take(QND_SS_RAW_MOMENT_2 << (k - 2), t.raw_moment[k - 2], k);
        take(QND_SS_CENTRAL_MOMENT_2 << (k - 2), t.central_moment[k - 2], k);
        take(QND_SS_CENTRAL_SUM_2 << (k - 2), t.central_sum[k - 2], k);
    }
    for (int k = 1; k <= 4; ++k) {
        take(QND_SS_RAW_SUM_1 << (k - 1), t.raw_sum[k - 1], k);
    }
    *order = top;
    return present;
}

// Every requested estimate of dimension d, from its state. `user_mean` is the caller's mean
// under method 256, around which the central sums are then taken.
template <class T>
void write_dimension(qnd_ss_task& t,
                     uint64_t present,
                     int64_t d,
                     const moment_sums& s,
                     int order,
                     bool has_user_mean,
                     double user_mean,
                     bool dbl) {
    const double w = s.w;
    double mean, c2 = 0, c3 = 0, c4 = 0;
    if (has_user_mean) {
        moment_sums q = s;
        shift_centre(q, user_mean, order);
        mean = user_mean;
        c2 = q.d2;
        c3 = q.d3;
        c4 = q.d4;
    } else {
        const central_sums cs = finish_central(s);
        mean = cs.mean;
        c2 = cs.c2;
        c3 = cs.c3;
        c4 = cs.c4;
    }
    // Raw sums: the same state moved to the centre 0.
    moment_sums raw = s;
    shift_centre(raw, 0.0, order);
    const double raw_sums[4] = {raw.d1, raw.d2, raw.d3, raw.d4};
    const double centrals[3] = {c2, c3, c4};
    const double m2 = c2 * (w / (w * w - s.w2));
    const double moments[3] = {m2, c3 / w, c4 / w};

    if ((present & QND_SS_MEAN) != 0 && !has_user_mean) {
        store<T>(t.mean, d, mean, dbl);
    }
    for (int k = 2; k <= 4; ++k) {
        if ((present & (QND_SS_RAW_MOMENT_2 << (k - 2))) != 0) {
            store<T>(t.raw_moment[k - 2], d, raw_sums[k - 1] / w, dbl);
        }
        if ((present & (QND_SS_CENTRAL_MOMENT_2 << (k - 2))) != 0) {
            store<T>(t.central_moment[k - 2], d, moments[k - 2], dbl);
        }
        if ((present & (QND_SS_CENTRAL_SUM_2 << (k - 2))) != 0) {
            store<T>(t.central_sum[k - 2], d, centrals[k - 2], dbl);
        }
    }
    for (int k = 1; k <= 4; ++k) {
        if ((present & (QND_SS_RAW_SUM_1 << (k - 1))) != 0) {
            store<T>(t.raw_sum[k - 1], d, raw_sums[k - 1], dbl);
        }
    }
    if ((present & QND_SS_SKEWNESS) != 0) {
        store<T>(t.skewness, d, moments[1] / std::sqrt((m2 * m2) * m2), dbl);
    }
    if ((present & QND_SS_KURTOSIS) != 0) {
        store<T>(t.kurtosis, d, moments[2] / (m2 * m2) - 3, dbl);
    }
    if ((present & QND_SS_VARIATION) != 0) {
        store<T>(t.variation, d, std::sqrt(m2) / mean, dbl);
    }
}

// The matrices asked for, around the data's own means whatever the method.
template <class T>
int32_t matrices(qnd_ss_task* task,
                 const task_view& tv,
                 uint64_t estimates,
                 const qnd_ss_threader_row* table) {
    const qnd_ss_extension& e = *task->extension;
    matrix_outputs o;
    o.covariance = (estimates & QND_SS_COVARIANCE) != 0 ? e.covariance : nullptr;
    o.correlation = (estimates & QND_SS_CORRELATION) != 0 ? e.correlation : nullptr;
    o.cross = (estimates & QND_SS_CROSS_PRODUCT) != 0 ? e.cross_product : nullptr;
    if ((estimates & matrix_bits) == 0 || (!o.covariance && !o.correlation && !o.cross)) {
        return QND_SS_OK;
    }
    const std::vector<int64_t> dims = kept_dimensions(tv);
    if (dims.empty()) {
        return QND_SS_OK;
    }
    co_moment_sums s;
    try {
        if (!reduce_co_moments<T>(tv, table, dims, static_cast<const T*>(tv.weights), s)) {
            return QND_SS_ERROR_WEIGHTS;
        }
    } catch (const std::bad_alloc&) {
        return QND_SS_ERROR_MEMORY;
    }
    write_matrices<T>(s, dims, tv.n_dims, o, tv.double_results);
    return QND_SS_OK;
}

template <class T>
int32_t basic(qnd_ss_task* task,
              uint64_t estimates,
              int64_t method,
              const qnd_ss_threader_row* table) {
    task_view tv;
    if (const int32_t status = check_task<T>(task, method, &tv)) {
        return status;
    }
    const bool user_mean = method == QND_SS_METHOD_USER_MEAN;
    if (user_mean && (estimates & around_mean_bits) != 0 && task->mean == nullptr) {
        return QND_SS_ERROR_MEAN_MISSING;
    }
    int order = 0;
    const uint64_t present = present_estimates(*task, estimates, &order);
    if (const int32_t status = matrices<T>(task, tv, estimates, table)) {
        return status;
    }
    if (present == 0 || (user_mean && present == QND_SS_MEAN)) {
        return QND_SS_OK;
    }
    const moment_policy<T> policy{&kernels_for<T>(active_kernels()), order,
                                  method == QND_SS_METHOD_STREAMING};
    std::vector<moment_sums> states;
    try {
        if (!reduce<T>(tv, table, policy, order, states)) {
            return QND_SS_ERROR_WEIGHTS;
        }
    } catch (const std::bad_alloc&) {
        return QND_SS_ERROR_MEMORY;
    }
    // Under method 256 the mean array is the caller's input, and the mean bit leaves it alone.
    const bool needs_user_mean = user_mean && (present & around_mean_bits) != 0;
    for (int64_t d = 0; d < tv.n_dims; ++d) {
        if (dimension_kept(tv, d)) {
            const double u = needs_user_mean ? load<T>(task->mean, d, tv.double_results) : 0.0;
            write_dimension<T>(*task, present, d, states[d], order, needs_user_mean, u,
                               tv.double_results);
        }
    }
    return QND_SS_OK;
}

}  // namespace
}  // namespace qnd_core

extern "C" {

int32_t _rtksSSBasic(qnd_ss_task* task,
                     uint64_t estimates,
                     int64_t method,
                     const qnd_ss_threader_row* threader_table) {
    return qnd_core::basic<float>(task, estimates, method, threader_table);
}

int32_t _rtkdSSBasic(qnd_ss_task* task,
                     uint64_t estimates,
                     int64_t method,
                     const qnd_ss_threader_row* threader_table) {
    return qnd_core::basic<double>(task, estimates, method, threader_table);
}
}
