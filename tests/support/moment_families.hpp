// The eight moment families as data for table-driven tests: their names, their outputs, a
// uniform way to call them in either form, a run on copies of a host data set, and the reference
// value of each output.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <sycl/sycl.hpp>

#include "support/data.hpp"
#include "support/reference.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/stats.hpp"

namespace qnd_test {

// clang-format off
enum class moment_family {
    mean, raw_sum, raw_moment, central_sum, central_moment, variation, skewness, kurtosis
};
// clang-format on

struct moment_family_info {
    moment_family family;
    const char* name;
    int n_outputs;         // outputs in the order of the public declaration
    bool takes_user_mean;  // has a form with the caller's mean
};

inline const std::vector<moment_family_info>& moment_families() {
    static const std::vector<moment_family_info> families{
        {moment_family::mean, "mean", 1, false},
        {moment_family::raw_sum, "raw_sum", 4, false},
        {moment_family::raw_moment, "raw_moment", 4, false},
        {moment_family::central_sum, "central_sum", 3, true},
        {moment_family::central_moment, "central_moment", 3, true},
        {moment_family::variation, "variation", 1, true},
        {moment_family::skewness, "skewness", 1, true},
        {moment_family::kurtosis, "kurtosis", 1, true},
    };
    return families;
}

// The caller's mean as each form takes it: a pointer as it is, a buffer by value.
template <typename T>
T* as_mean(T* mean) {
    return mean;
}
template <typename T>
sycl::buffer<T, 1> as_mean(sycl::buffer<T, 1>* mean) {
    return *mean;
}

// Calls `family` with method M in the form of `data` (pointers or buffers). o holds the outputs
// in declaration order (unused ones ignored); `mean`, if not null, selects the form with the
// caller's mean (method value 1); deps, if given, are the pointer form's dependencies.
template <int M,
          typename T,
          tavrel::qnd::stats::layout L,
          typename Data,
          typename Mean,
          typename Outputs,
          typename... Deps>
auto call_family(moment_family family,
                 sycl::queue& q,
                 Mean* mean,
                 const Data& data,
                 Outputs& o,
                 const Deps&... deps) {
    namespace st = tavrel::qnd::stats;
    switch (family) {
        case moment_family::raw_sum:
            return st::raw_sum<M, T, L>(q, data, o[0], o[1], o[2], o[3], deps...);
        case moment_family::raw_moment:
            return st::raw_moment<M, T, L>(q, data, o[0], o[1], o[2], o[3], deps...);
        case moment_family::central_sum:
            return mean
                       ? st::central_sum<1, T, L>(q, as_mean(mean), data, o[0], o[1], o[2], deps...)
                       : st::central_sum<M, T, L>(q, data, o[0], o[1], o[2], deps...);
        case moment_family::central_moment:
            return mean ? st::central_moment<1, T, L>(q, as_mean(mean), data, o[0], o[1], o[2],
                                                      deps...)
                        : st::central_moment<M, T, L>(q, data, o[0], o[1], o[2], deps...);
        case moment_family::variation:
            return mean ? st::variation<1, T, L>(q, as_mean(mean), data, o[0], deps...)
                        : st::variation<M, T, L>(q, data, o[0], deps...);
        case moment_family::skewness:
            return mean ? st::skewness<1, T, L>(q, as_mean(mean), data, o[0], deps...)
                        : st::skewness<M, T, L>(q, data, o[0], deps...);
        case moment_family::kurtosis:
            return mean ? st::kurtosis<1, T, L>(q, as_mean(mean), data, o[0], deps...)
                        : st::kurtosis<M, T, L>(q, data, o[0], deps...);
        default:
            return st::mean<M, T, L>(q, data, o[0], deps...);
    }
}

// The pointer form of `family` through call_family, with its dependency list.
template <int M, typename T, tavrel::qnd::stats::layout L>
sycl::event call_moment_family(moment_family family,
                               sycl::queue& queue,
                               T* mean,
                               const tavrel::qnd::stats::dataset<L, T*>& data,
                               const std::array<T*, 4>& outs,
                               const std::vector<sycl::event>& deps = {}) {
    return call_family<M, T, L>(family, queue, mean, data, outs, deps);
}

// The buffer form of `family` through call_family.
template <int M, typename T, tavrel::qnd::stats::layout L>
void call_buffer_form(moment_family family,
                      sycl::queue& q,
                      sycl::buffer<T, 1>* mean,
                      const tavrel::qnd::stats::dataset<L, sycl::buffer<T, 1>>& data,
                      std::array<sycl::buffer<T, 1>, 4>& o) {
    call_family<M, T, L>(family, q, mean, data, o);
}

// `family` with method M on copies of `h`, in the pointer form (USM copies, waited for) or the
// buffer form (buffers over host copies), around `mean` (one value per element) when it is not
// null. lengths[k] is the length of output k: 0 leaves it out (null, or a buffer of size 0 over a
// host value, so that a write through it would show); the pointer form takes n_dims or 0. Returns
// the four outputs read back whole, each starting at `untouched`.
template <int M, typename T, tavrel::qnd::stats::layout L>
std::vector<std::vector<T>> run_family(sycl::queue& q,
                                       moment_family family,
                                       bool by_buffer,
                                       const host_data<T>& h,
                                       const std::vector<T>* mean,
                                       std::array<std::size_t, 4> lengths,
                                       T untouched) {
    namespace st = tavrel::qnd::stats;
    const std::int64_t n_dims = h.n_dims;
    std::vector<std::vector<T>> result(4);
    if (by_buffer) {
        using buf = sycl::buffer<T, 1>;
        for (int k = 0; k < 4; ++k)
            result[k].assign(std::max<std::size_t>(lengths[k], 1), untouched);
        {  // the buffers write back when they end
            buf obs(h.observations.data(), sycl::range<1>(h.observations.size()));
            buf w(h.weights.data(), sycl::range<1>(h.weights.size()));
            sycl::buffer<std::int64_t, 1> idx(h.indices.data(), sycl::range<1>(h.indices.size()));
            buf m = mean ? buf(mean->data(), sycl::range<1>(mean->size())) : buf(sycl::range<1>(0));
            std::array<buf, 4> outs{buf(result[0].data(), sycl::range<1>(lengths[0])),
                                    buf(result[1].data(), sycl::range<1>(lengths[1])),
                                    buf(result[2].data(), sycl::range<1>(lengths[2])),
                                    buf(result[3].data(), sycl::range<1>(lengths[3]))};
            call_buffer_form<M, T, L>(family, q, mean ? &m : nullptr,
                                      st::dataset<L, buf>(n_dims, h.n_observations, obs, w, idx),
                                      outs);
            q.wait_and_throw();
        }
        return result;
    }
    usm_array<T> obs(q, h.observations), w(q, h.weights), m(q, mean ? *mean : std::vector<T>{});
    usm_array<std::int64_t> idx(q, h.indices);
    usm_array<T> out(q, std::vector<T>(4 * n_dims, untouched));
    std::array<T*, 4> ptrs{};
    for (int k = 0; k < 4; ++k)
        ptrs[k] = lengths[k] ? out.get() + k * n_dims : nullptr;
    const st::dataset<L, T*> data(n_dims, h.n_observations, obs.get(),
                                  h.weights.empty() ? nullptr : w.get(),
                                  h.indices.empty() ? nullptr : idx.get());
    call_moment_family<M, T, L>(family, q, mean ? m.get() : nullptr, data, ptrs).wait();
    for (int k = 0; k < 4; ++k)
        result[k].assign(out.get() + k * n_dims, out.get() + (k + 1) * n_dims);
    return result;
}

// The reference value of output k (declaration order) of `family`.
inline long double expected_output(moment_family family, int k, const moment_reference& r) {
    using f = moment_family;
    return family == f::mean             ? r.mean()
           : family == f::raw_sum        ? r.raw[k + 1]
           : family == f::raw_moment     ? r.raw_moment(k + 1)
           : family == f::central_sum    ? r.central_sum(k + 2)
           : family == f::central_moment ? r.central_moment(k + 2)
           : family == f::variation      ? r.variation()
           : family == f::skewness       ? r.skewness()
                                         : r.kurtosis();
}

}  // namespace qnd_test
