// The offload adaptors as data for table-driven tests: the task's result arrays by field, and a
// uniform call of any adaptor with the fields that the entry point hands it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <sycl/sycl.hpp>

#include "offload/adaptors.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/stats.hpp"

namespace qnd_test {

// The result fields of a statistics task, in the record's order.
enum field : int {
    f_mean,
    f_raw2,
    f_raw3,
    f_raw4,
    f_cm2,
    f_cm3,
    f_cm4,
    f_rs1,
    f_rs2,
    f_rs3,
    f_rs4,
    f_cs2,
    f_cs3,
    f_cs4,
    f_kurtosis,
    f_skewness,
    f_variation,
    f_min,
    f_max,
    n_fields
};

inline const char* field_name(int f) {
    static const char* const names[n_fields] = {
        "mean", "raw2", "raw3", "raw4", "cm2",      "cm3",      "cm4",       "rs1", "rs2", "rs3",
        "rs4",  "cs2",  "cs3",  "cs4",  "kurtosis", "skewness", "variation", "min", "max"};
    return names[f];
}

enum class adaptor {
    min,
    max,
    raw_sum,
    raw_moment,
    central_sum,
    central_moment,
    variation,
    skewness,
    kurtosis
};

inline const char* adaptor_name(adaptor a) {
    static const char* const names[] = {"min",        "max",         "raw_sum",
                                        "raw_moment", "central_sum", "central_moment",
                                        "variation",  "skewness",    "kurtosis"};
    return names[static_cast<int>(a)];
}

// The nine adaptors, and the five that take the caller's mean.
inline const std::vector<adaptor>& all_adaptors() {
    static const std::vector<adaptor> all{
        adaptor::min,        adaptor::max,         adaptor::raw_sum,
        adaptor::raw_moment, adaptor::central_sum, adaptor::central_moment,
        adaptor::variation,  adaptor::skewness,    adaptor::kurtosis};
    return all;
}
inline bool takes_user_mean(adaptor a) {
    return a == adaptor::central_sum || a == adaptor::central_moment || a == adaptor::variation ||
           a == adaptor::skewness || a == adaptor::kurtosis;
}

// One device array of n_dims elements per field, filled with `untouched`; a field can be handed
// to the adaptors as null instead.
template <typename T>
struct task_arrays {
    static constexpr T untouched = T(-321.5);

    task_arrays(sycl::queue& q, std::int64_t n_dims) {
        for (int f = 0; f < n_fields; ++f) {
            arrays[static_cast<std::size_t>(f)] =
                std::make_unique<usm_array<T>>(q, static_cast<std::size_t>(n_dims));
            arrays[static_cast<std::size_t>(f)]->fill(untouched);
            present[static_cast<std::size_t>(f)] = true;
        }
    }
    T* ptr(int f) const {
        return present[static_cast<std::size_t>(f)] ? arrays[static_cast<std::size_t>(f)]->get()
                                                    : nullptr;
    }
    usm_array<T>& array(int f) const { return *arrays[static_cast<std::size_t>(f)]; }
    // True when any element of the field's array differs from `untouched`.
    bool written(int f) const {
        for (std::size_t d = 0; d < array(f).size(); ++d) {
            if (array(f)[d] != untouched)
                return true;
        }
        return false;
    }

    std::array<std::unique_ptr<usm_array<T>>, n_fields> arrays;
    std::array<bool, n_fields> present{};
};

// Calls adaptor `a` with the fields that the entry point passes it, in the entry point's order.
template <typename T, tavrel::qnd::stats::layout L, bool Idx64>
tavrel::qnd::stats::detail::gpu::offload_result call_adaptor(
    adaptor a,
    sycl::queue& q,
    const task_arrays<T>& t,
    const tavrel::qnd::stats::dataset<L, T*>& data,
    tavrel::qnd::stats::detail::gpu::offload_method_int<Idx64> method,
    std::uint64_t mask) {
    namespace gpu = tavrel::qnd::stats::detail::gpu;
    switch (a) {
        case adaptor::min:
            return gpu::offload_min<T, L, Idx64>(q, t.ptr(f_min), data, method);
        case adaptor::max:
            return gpu::offload_max<T, L, Idx64>(q, t.ptr(f_max), data, method);
        case adaptor::raw_sum:
            return gpu::offload_raw_sum<T, L, Idx64>(q, t.ptr(f_rs1), t.ptr(f_rs2), t.ptr(f_rs3),
                                                     t.ptr(f_rs4), data, method, mask);
        case adaptor::raw_moment:
            return gpu::offload_raw_moment<T, L, Idx64>(
                q, t.ptr(f_mean), t.ptr(f_raw2), t.ptr(f_raw3), t.ptr(f_raw4), data, method, mask);
        case adaptor::central_sum:
            return gpu::offload_central_sum<T, L, Idx64>(
                q, t.ptr(f_mean), t.ptr(f_raw2), t.ptr(f_raw3), t.ptr(f_raw4), t.ptr(f_cs2),
                t.ptr(f_cs3), t.ptr(f_cs4), data, method, mask);
        case adaptor::central_moment:
            return gpu::offload_central_moment<T, L, Idx64>(
                q, t.ptr(f_mean), t.ptr(f_raw2), t.ptr(f_raw3), t.ptr(f_raw4), t.ptr(f_cm2),
                t.ptr(f_cm3), t.ptr(f_cm4), data, method, mask);
        case adaptor::variation:
            return gpu::offload_variation<T, L, Idx64>(q, t.ptr(f_mean), t.ptr(f_raw2),
                                                       t.ptr(f_variation), data, method);
        case adaptor::skewness:
            return gpu::offload_skewness<T, L, Idx64>(
                q, t.ptr(f_mean), t.ptr(f_raw2), t.ptr(f_raw3), t.ptr(f_skewness), data, method);
        case adaptor::kurtosis:
            return gpu::offload_kurtosis<T, L, Idx64>(q, t.ptr(f_mean), t.ptr(f_raw2),
                                                      t.ptr(f_raw3), t.ptr(f_raw4),
                                                      t.ptr(f_kurtosis), data, method);
    }
    return {};
}

}  // namespace qnd_test
