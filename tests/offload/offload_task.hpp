// A statistics task as an offload caller hands it over (host integers of both widths behind the
// count and storage fields, device arrays for the data and for each result field), a call of any
// of the eight entry points, and the check of the results against long-double references.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "cpu/ss_task.hpp"
#include "support/data.hpp"
#include "support/reference.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/offload.h"

namespace qnd_test {

// The result fields of a statistics task, in the record's order, and sets of them (one bit per
// field) by name: set_of("mean raw2").
inline const std::vector<std::string> field_names{
    "mean", "raw2", "raw3", "raw4", "cm2",      "cm3",      "cm4",       "rs1", "rs2", "rs3",
    "rs4",  "cs2",  "cs3",  "cs4",  "kurtosis", "skewness", "variation", "min", "max"};
using fields = std::uint32_t;
constexpr fields all_fields = (1u << 19) - 1;
inline fields set_of(const std::string& names) {
    fields set = 0;
    std::istringstream words(names);
    for (std::string w; words >> w;) {
        const auto at = std::find(field_names.begin(), field_names.end(), w);
        set |=
            at != field_names.end() ? 1u << (at - field_names.begin()) : throw std::logic_error(w);
    }
    return set;
}
// A task over skewed data whose result arrays start as `untouched`, those in `nulls` handed over
// as null. `wide` (ilp64) tasks point at 64-bit integers, others at 32-bit ones. A non-empty
// `mask` comes with weights, its entries of the task's width, padded to whole 64-bit words.
template <typename T>
struct offload_task {
    static constexpr T untouched = T(-321.5);

    offload_task(sycl::queue& q,
                 std::int64_t n_dims,
                 std::int64_t n_observations,
                 tavrel::qnd::stats::layout layout,
                 bool wide,
                 std::vector<std::int64_t> mask = {},
                 fields nulls = 0)
        : host(skewed_data<T>(n_dims, n_observations, layout)),
          obs(q, host.observations),
          weights(q, random_weights<T>(n_observations)),
          mask64(q, mask),
          mask32(q,
                 [&mask] {
                     std::vector<std::int32_t> entries(mask.begin(), mask.end());
                     entries.resize((entries.size() + 1) / 2 * 2);  // whole 64-bit words, as read
                     return entries;
                 }()),
          results(q, field_names.size() * n_dims),
          wide(wide) {
        set_counts(n_dims, n_observations, layout);
        record.dims_ptr = wide ? static_cast<void*>(&wide_ints[0]) : &narrow_ints[0];
        record.observations_count_ptr = wide ? static_cast<void*>(&wide_ints[1]) : &narrow_ints[1];
        record.storage_ptr = wide ? static_cast<void*>(&wide_ints[2]) : &narrow_ints[2];
        record.observations = obs.get();
        if (!mask.empty()) {
            host.weights = weights.to_vector();
            host.indices = mask;
            record.weights = weights.get();
            record.indices = wide ? static_cast<void*>(mask64.get()) : mask32.get();
        }
        results.fill(untouched);
        // The result fields lie in the record in the order of field_names, one word each.
        using tavrel::qnd::stats::detail::cpu::ss_task;
        for (std::size_t f = 0; f < field_names.size(); ++f) {
            T* const at = nulls >> f & 1 ? nullptr : array(f);
            std::memcpy(reinterpret_cast<char*>(&record) + offsetof(ss_task, mean) + f * sizeof at,
                        &at, sizeof at);
        }
    }

    // The integers behind n_dims, n_observations and storage, in both widths.
    void set_counts(std::int64_t n_dims, std::int64_t n_observations, std::int64_t storage) {
        const std::int64_t values[3] = {n_dims, n_observations, storage};
        std::copy(values, values + 3, wide_ints);
        std::copy(values, values + 3, narrow_ints);
    }

    T* array(std::size_t f) const { return results.get() + f * host.n_dims; }

    // The fields with an element other than `untouched`.
    fields written() const {
        fields set = 0;
        for (std::size_t i = 0; i < results.size(); ++i)
            set |= (results[i] != untouched ? 1u : 0u) << i / host.n_dims;
        return set;
    }

    // Calls the entry point of T and of the task's width, by value or in its Fortran form.
    std::int32_t compute(std::uint64_t estimates,
                         std::int64_t method,
                         void* interop,
                         bool fortran = false) {
        void* task = &record;
        const auto narrow = static_cast<std::int32_t>(method);
        constexpr bool s = std::is_same_v<T, float>;
        if (wide && fortran) {
            return (s ? qnd_rtk_ssscompute_omp_offload : qnd_rtk_dsscompute_omp_offload)(
                &task, &estimates, &method, interop);
        }
        if (wide) {
            return (s ? qnd_rtk_sSSCompute_omp_offload_ilp64
                      : qnd_rtk_dSSCompute_omp_offload_ilp64)(task, estimates, method, interop);
        }
        if (fortran) {
            return (s ? qnd_rtk_ssscompute_omp_offload_lp64 : qnd_rtk_dsscompute_omp_offload_lp64)(
                &task, &estimates, &narrow, interop);
        }
        return (s ? qnd_rtk_sSSCompute_omp_offload_lp64 : qnd_rtk_dSSCompute_omp_offload_lp64)(
            task, estimates, narrow, interop);
    }

    // Stores the caller's means of method 256 in `mean` and returns them: off the data's means,
    // so that sums around them differ, and representable in T.
    std::vector<long double> set_caller_means() {
        std::vector<long double> centre;
        for (std::int64_t d = 0; d < host.n_dims; ++d) {
            centre.push_back(static_cast<T>(reference_of(host, d).mean() + 0.375L));
            array(0)[d] = static_cast<T>(centre[d]);
        }
        return centre;
    }

    host_data<T> host;
    usm_array<T> obs, weights;
    usm_array<std::int64_t> mask64;
    usm_array<std::int32_t> mask32;
    usm_array<T> results;
    bool wide;
    std::int64_t wide_ints[3];
    std::int32_t narrow_ints[3];
    tavrel::qnd::stats::detail::cpu::ss_task record{};
};

// The reference of field f in dimension d. The extremes ignore weights, and a maximum at or
// below the smallest positive normal value is stored as that value.
template <typename T>
long double expected(std::size_t f,
                     const host_data<T>& host,
                     std::int64_t d,
                     const long double* centre) {
    const std::string& name = field_names[f];
    const int order = name.back() - '0';
    if (name == "min" || name == "max") {
        long double lo = host.value(d, 0), hi = lo;
        for (std::int64_t i = 1; i < host.n_observations; ++i) {
            lo = std::min<long double>(lo, host.value(d, i));
            hi = std::max<long double>(hi, host.value(d, i));
        }
        return name == "min" ? lo : std::max<long double>(hi, std::numeric_limits<T>::min());
    }
    const moment_reference r = reference_of(host, d, centre);
    if (name == "mean")
        return r.mean();
    if (name.rfind("raw", 0) == 0)
        return r.raw_moment(order);
    if (name.rfind("cm", 0) == 0)
        return r.central_moment(order);
    if (name.rfind("rs", 0) == 0)
        return r.raw[order];
    if (name.rfind("cs", 0) == 0)
        return r.central_sum(order);
    if (name == "kurtosis")
        return r.kurtosis();
    return name == "skewness" ? r.skewness() : r.variation();
}

// The fields in `written` hold their estimate in the kept dimensions, all others are untouched.
// Under the caller's mean (`centre`, one per dimension, or empty) `mean` is an input and must
// still hold it.
template <typename T>
void expect_results(const offload_task<T>& t,
                    fields written,
                    const std::vector<long double>& centre = {}) {
    for (std::size_t f = 0; f < field_names.size(); ++f) {
        for (std::int64_t d = 0; d < t.host.n_dims; ++d) {
            const long double got = t.array(f)[d];
            const std::string where = field_names[f] + " dim " + std::to_string(d);
            if (!centre.empty() && f == 0) {
                EXPECT_EQ(got, static_cast<T>(centre[d])) << "the caller's mean is read only";
            } else if (!(written >> f & 1) || !t.host.kept(d)) {
                EXPECT_EQ(got, offload_task<T>::untouched) << where;
            } else {
                const long double want =
                    expected(f, t.host, d, centre.empty() ? nullptr : &centre[d]);
                EXPECT_TRUE(close_to(got, want, moment_tolerance<T>())) << where << ": " << got;
            }
        }
    }
}

}  // namespace qnd_test
