// The calls into the library: one per asked family, on arrays in shared memory.
#include "compute.hpp"

#include <array>
#include <cmath>
#include <memory>
#include <limits>
#include <new>

#include <tavrel/qnd/stats.hpp>

#include "tool_errors.hpp"

namespace qnd_stats {

namespace stats = tavrel::qnd::stats;

namespace {

// An array in shared memory, freed at scope end.
template <typename T>
struct shared_array {
    shared_array(sycl::queue& q, std::size_t n) : queue(q), size(n) {
        ptr = sycl::malloc_shared<T>(n == 0 ? 1 : n, q);
        if (ptr == nullptr)
            throw std::bad_alloc();
    }
    ~shared_array() { sycl::free(ptr, queue); }
    shared_array(const shared_array&) = delete;
    shared_array& operator=(const shared_array&) = delete;

    sycl::queue& queue;
    std::size_t size;
    T* ptr = nullptr;
};

template <typename T>
struct run_state {
    sycl::queue& queue;
    stats::dataset<stats::row_major, T*> row;  // one of the two is used, as the layout says
    stats::dataset<stats::col_major, T*> col;
    T* user_mean = nullptr;
    std::size_t n_dims = 0;
    std::vector<quantity>* out = nullptr;

    // Runs `call` on fresh outputs named `names` and moves their values into the result.
    template <std::size_t N, typename Call>
    void outputs(const std::array<const char*, N>& names, Call&& call) {
        std::vector<std::unique_ptr<shared_array<T>>> arrays;
        std::array<T*, N> ptrs{};
        for (std::size_t k = 0; k < N; ++k) {
            arrays.push_back(std::make_unique<shared_array<T>>(queue, n_dims));
            ptrs[k] = arrays.back()->ptr;
            for (std::size_t d = 0; d < n_dims; ++d)
                ptrs[k][d] = std::numeric_limits<T>::quiet_NaN();
        }
        sycl::event e = call(ptrs);
        e.wait_and_throw();
        queue.wait_and_throw();
        for (std::size_t k = 0; k < N; ++k)
            out->push_back({names[k], std::vector<double>(ptrs[k], ptrs[k] + n_dims)});
    }
};

template <int M, typename T, stats::layout L>
void run_family(run_state<T>& s, const stats::dataset<L, T*>& data, const std::string& family) {
    auto& q = s.queue;
    T* um = s.user_mean;
    using p1 = std::array<T*, 1>;
    using p2 = std::array<T*, 2>;
    using p3 = std::array<T*, 3>;
    using p4 = std::array<T*, 4>;
    if (family == "mean") {
        s.template outputs<1>({"mean"}, [&](p1 o) { return stats::mean<M, T, L>(q, data, o[0]); });
    } else if (family == "raw_sum") {
        s.template outputs<4>({"s1", "s2", "s3", "s4"}, [&](p4 o) {
            return stats::raw_sum<M, T, L>(q, data, o[0], o[1], o[2], o[3]);
        });
    } else if (family == "raw_moment") {
        s.template outputs<4>({"r1", "r2", "r3", "r4"}, [&](p4 o) {
            return stats::raw_moment<M, T, L>(q, data, o[0], o[1], o[2], o[3]);
        });
    } else if (family == "central_sum") {
        s.template outputs<3>({"cs2", "cs3", "cs4"}, [&](p3 o) {
            return um ? stats::central_sum<1, T, L>(q, um, data, o[0], o[1], o[2])
                      : stats::central_sum<M, T, L>(q, data, o[0], o[1], o[2]);
        });
    } else if (family == "central_moment") {
        s.template outputs<3>({"c2", "c3", "c4"}, [&](p3 o) {
            return um ? stats::central_moment<1, T, L>(q, um, data, o[0], o[1], o[2])
                      : stats::central_moment<M, T, L>(q, data, o[0], o[1], o[2]);
        });
    } else if (family == "variation") {
        s.template outputs<1>({"variation"}, [&](p1 o) {
            return um ? stats::variation<1, T, L>(q, um, data, o[0])
                      : stats::variation<M, T, L>(q, data, o[0]);
        });
    } else if (family == "skewness") {
        s.template outputs<1>({"skewness"}, [&](p1 o) {
            return um ? stats::skewness<1, T, L>(q, um, data, o[0])
                      : stats::skewness<M, T, L>(q, data, o[0]);
        });
    } else if (family == "kurtosis") {
        s.template outputs<1>({"kurtosis"}, [&](p1 o) {
            return um ? stats::kurtosis<1, T, L>(q, um, data, o[0])
                      : stats::kurtosis<M, T, L>(q, data, o[0]);
        });
    } else if (family == "min") {
        // The extremes exist with the method value 1 alone.
        s.template outputs<1>({"min"}, [&](p1 o) { return stats::min<1, T, L>(q, data, o[0]); });
    } else if (family == "max") {
        s.template outputs<1>({"max"}, [&](p1 o) { return stats::max<1, T, L>(q, data, o[0]); });
    } else if (family == "min_max") {
        s.template outputs<2>({"min", "max"},
                              [&](p2 o) { return stats::min_max<1, T, L>(q, data, o[0], o[1]); });
    }
}

template <typename T>
std::vector<quantity> compute_in(sycl::queue& q, const stats_job& job, const tool_options& o) {
    const data_matrix& m = job.data;
    shared_array<T> obs(q, m.values.size());
    for (std::size_t k = 0; k < m.values.size(); ++k)
        obs.ptr[k] = static_cast<T>(m.values[k]);
    std::unique_ptr<shared_array<T>> weights;
    if (!job.weights.empty()) {
        weights = std::make_unique<shared_array<T>>(q, job.weights.size());
        for (std::size_t k = 0; k < job.weights.size(); ++k)
            weights->ptr[k] = static_cast<T>(job.weights[k]);
    }
    std::unique_ptr<shared_array<std::int64_t>> indices;
    if (!job.indices.empty()) {
        indices = std::make_unique<shared_array<std::int64_t>>(q, job.indices.size());
        std::copy(job.indices.begin(), job.indices.end(), indices->ptr);
    }
    std::unique_ptr<shared_array<T>> user_mean;
    if (!job.user_mean.empty()) {
        user_mean = std::make_unique<shared_array<T>>(q, job.user_mean.size());
        for (std::size_t k = 0; k < job.user_mean.size(); ++k)
            user_mean->ptr[k] = static_cast<T>(job.user_mean[k]);
    }

    std::vector<quantity> out;
    run_state<T> s{
        q, {}, {}, user_mean ? user_mean->ptr : nullptr, static_cast<std::size_t>(m.n_dims), &out};
    T* w = weights ? weights->ptr : nullptr;
    std::int64_t* ix = indices ? indices->ptr : nullptr;
    const stats::dataset<stats::row_major, T*> row(m.n_dims, m.n_observations, obs.ptr, w, ix);
    const stats::dataset<stats::col_major, T*> col(m.n_dims, m.n_observations, obs.ptr, w, ix);
    for (const std::string& family : o.estimates) {
        if (m.row_major)
            o.method == 2 ? run_family<2>(s, row, family) : run_family<1>(s, row, family);
        else
            o.method == 2 ? run_family<2>(s, col, family) : run_family<1>(s, col, family);
    }
    // A skipped dimension keeps the NaN it was given; mark it so whatever the engine left.
    for (quantity& qy : out)
        for (std::size_t d = 0; d < qy.values.size(); ++d)
            if (!kept(job, static_cast<std::int64_t>(d)))
                qy.values[d] = std::numeric_limits<double>::quiet_NaN();
    return out;
}

}  // namespace

sycl::queue make_queue(device_choice device) {
    // Errors of host tasks and kernels arrive here and are rethrown by wait_and_throw.
    auto handler = [](sycl::exception_list errors) {
        for (const std::exception_ptr& e : errors)
            std::rethrow_exception(e);
    };
    try {
        switch (device) {
            case device_choice::cpu:
                return sycl::queue(sycl::cpu_selector_v, handler);
            case device_choice::gpu:
                return sycl::queue(sycl::gpu_selector_v, handler);
            default:
                return sycl::queue(sycl::default_selector_v, handler);
        }
    } catch (const sycl::exception& e) {
        const char* kind = device == device_choice::cpu   ? "CPU"
                           : device == device_choice::gpu ? "GPU"
                                                          : "SYCL";
        throw input_error(std::string("no ") + kind + " device: " + e.what());
    }
}

std::vector<quantity> compute(sycl::queue& queue,
                              const stats_job& job,
                              const tool_options& options) {
    return options.use_float ? compute_in<float>(queue, job, options)
                             : compute_in<double>(queue, job, options);
}

}  // namespace qnd_stats
