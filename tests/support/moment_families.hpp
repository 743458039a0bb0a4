// The eight moment families as data for table-driven tests: their names, their outputs, a
// uniform way to call them in either form, and the reference value of each output.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <sycl/sycl.hpp>

#include "support/reference.hpp"
#include "tavrel/qnd/stats.hpp"

namespace qnd_test {

enum class moment_family {
    mean,
    raw_sum,
    raw_moment,
    central_sum,
    central_moment,
    variation,
    skewness,
    kurtosis
};

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

// Calls the pointer form of `family` with method M. outs holds the outputs in declaration order
// (unused ones ignored); `mean`, if not null, selects the form with the caller's mean.
template <int M, typename T, tavrel::qnd::stats::layout L>
sycl::event call_moment_family(moment_family family,
                               sycl::queue& queue,
                               T* mean,
                               const tavrel::qnd::stats::dataset<L, T*>& data,
                               const std::array<T*, 4>& outs,
                               const std::vector<sycl::event>& deps = {}) {
    namespace st = tavrel::qnd::stats;
    switch (family) {
        case moment_family::mean:
            return st::mean<M, T, L>(queue, data, outs[0], deps);
        case moment_family::raw_sum:
            return st::raw_sum<M, T, L>(queue, data, outs[0], outs[1], outs[2], outs[3], deps);
        case moment_family::raw_moment:
            return st::raw_moment<M, T, L>(queue, data, outs[0], outs[1], outs[2], outs[3], deps);
        case moment_family::central_sum:
            if (mean)
                return st::central_sum<1, T, L>(queue, mean, data, outs[0], outs[1], outs[2], deps);
            return st::central_sum<M, T, L>(queue, data, outs[0], outs[1], outs[2], deps);
        case moment_family::central_moment:
            if (mean) {
                return st::central_moment<1, T, L>(queue, mean, data, outs[0], outs[1], outs[2],
                                                   deps);
            }
            return st::central_moment<M, T, L>(queue, data, outs[0], outs[1], outs[2], deps);
        case moment_family::variation:
            if (mean)
                return st::variation<1, T, L>(queue, mean, data, outs[0], deps);
            return st::variation<M, T, L>(queue, data, outs[0], deps);
        case moment_family::skewness:
            if (mean)
                return st::skewness<1, T, L>(queue, mean, data, outs[0], deps);
            return st::skewness<M, T, L>(queue, data, outs[0], deps);
        case moment_family::kurtosis:
            if (mean)
                return st::kurtosis<1, T, L>(queue, mean, data, outs[0], deps);
            return st::kurtosis<M, T, L>(queue, data, outs[0], deps);
    }
    return {};
}

// The buffer form of `family` with method M, likewise: `mean`, if not null, selects the form with
// the caller's mean; outputs past the family's count are ignored.
template <int M, typename T, tavrel::qnd::stats::layout L>
void call_buffer_form(moment_family family,
                      sycl::queue& q,
                      sycl::buffer<T, 1>* mean,
                      const tavrel::qnd::stats::dataset<L, sycl::buffer<T, 1>>& data,
                      std::array<sycl::buffer<T, 1>, 4>& o) {
    namespace st = tavrel::qnd::stats;
    switch (family) {
        case moment_family::mean:
            return st::mean<M, T, L>(q, data, o[0]);
        case moment_family::raw_sum:
            return st::raw_sum<M, T, L>(q, data, o[0], o[1], o[2], o[3]);
        case moment_family::raw_moment:
            return st::raw_moment<M, T, L>(q, data, o[0], o[1], o[2], o[3]);
        case moment_family::central_sum:
            if (mean)
                return st::central_sum<1, T, L>(q, *mean, data, o[0], o[1], o[2]);
            return st::central_sum<M, T, L>(q, data, o[0], o[1], o[2]);
        case moment_family::central_moment:
            if (mean)
                return st::central_moment<1, T, L>(q, *mean, data, o[0], o[1], o[2]);
            return st::central_moment<M, T, L>(q, data, o[0], o[1], o[2]);
        case moment_family::variation:
            if (mean)
                return st::variation<1, T, L>(q, *mean, data, o[0]);
            return st::variation<M, T, L>(q, data, o[0]);
        case moment_family::skewness:
            if (mean)
                return st::skewness<1, T, L>(q, *mean, data, o[0]);
            return st::skewness<M, T, L>(q, data, o[0]);
        case moment_family::kurtosis:
            if (mean)
                return st::kurtosis<1, T, L>(q, *mean, data, o[0]);
            return st::kurtosis<M, T, L>(q, data, o[0]);
    }
}

// The reference value of output k (declaration order) of `family`.
inline long double expected_output(moment_family family, int k, const moment_reference& r) {
    switch (family) {
        case moment_family::mean:
            return r.mean();
        case moment_family::raw_sum:
            return r.raw[k + 1];
        case moment_family::raw_moment:
            return r.raw_moment(k + 1);
        case moment_family::central_sum:
            return r.central_sum(k + 2);
        case moment_family::central_moment:
            return r.central_moment(k + 2);
        case moment_family::variation:
            return r.variation();
        case moment_family::skewness:
            return r.skewness();
        case moment_family::kurtosis:
            return r.kurtosis();
    }
    return 0;
}

}  // namespace qnd_test
