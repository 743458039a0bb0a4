// A statistics task as an offload caller hands it over, a call of any of the eight entry points,
// and the check of its results against long-double references.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "cpu/ss_task.hpp"
#include "support/data.hpp"
#include "support/extremes_data.hpp"
#include "support/reference.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/offload.h"

namespace qnd_test {

namespace st = tavrel::qnd::stats;

// The result fields in the record's order, and sets of them (a bit per field) by name.
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

// A task over skewed data whose result arrays start as `untouched`; the integers behind its count
// and storage fields are 64-bit in a `wide` (ilp64) task, else 32-bit.
template <typename T>
struct offload_task {
    using ss_task = st::detail::cpu::ss_task;
    static constexpr T untouched = T(-321.5);

    offload_task(sycl::queue& q, std::int64_t dims, std::int64_t n, st::layout layout, bool wide)
        : host(skewed_data<T>(dims, n, layout)),
          obs(q, host.observations),
          weights(q, random_weights<T>(n)),
          mask(q, std::vector<std::int64_t>(dims + 1, 0)),
          results(q, field_names.size() * dims),
          wide(wide) {
        set_counts(dims, n, layout);
        record.dims_ptr = wide ? static_cast<void*>(&wide_ints[0]) : &narrow_ints[0];
        record.observations_count_ptr = wide ? static_cast<void*>(&wide_ints[1]) : &narrow_ints[1];
        record.storage_ptr = wide ? static_cast<void*>(&wide_ints[2]) : &narrow_ints[2];
        record.observations = obs.get();
        results.fill(untouched);
        hand_over(0);
    }

    // The integers behind n_dims, n_observations and storage, in both widths.
    void set_counts(std::int64_t dims, std::int64_t n, std::int64_t storage) {
        const std::int64_t values[3] = {dims, n, storage};
        std::copy(values, values + 3, wide_ints);
        std::copy(values, values + 3, narrow_ints);
    }

    // Points each result field at its array, those in `nulls` at null.
    void hand_over(fields nulls) {
        for (std::size_t f = 0; f < field_names.size(); ++f) {
            T* const at = nulls >> f & 1 ? nullptr : array(f);
            std::memcpy(reinterpret_cast<char*>(&record) + offsetof(ss_task, mean) + f * sizeof at,
                        &at, sizeof at);
        }
    }

    // Weights, and the mask `kept` in entries of the task's width, zeros behind to a whole word.
    void use_mask(const std::vector<std::int64_t>& kept) {
        host.weights = weights.to_vector();
        host.indices = kept;
        record.weights = weights.get();
        record.indices = mask.get();
        auto* const narrow = reinterpret_cast<std::int32_t*>(mask.get());
        for (std::size_t d = 0; d < kept.size(); ++d)
            wide ? mask[d] = kept[d] : narrow[d] = static_cast<std::int32_t>(kept[d]);
    }

    T* array(std::size_t f) const { return results.get() + f * host.n_dims; }

    // Calls the entry point of T and of the task's width, by value or in its Fortran form.
    std::int32_t compute(std::uint64_t estimates,
                         std::int64_t method,
                         void* interop,
                         bool fortran = false) {
        void* task = &record;
        const auto call = [&](auto by_value, auto by_reference, auto m) {
            return fortran ? by_reference(&task, &estimates, &m, interop)
                           : by_value(task, estimates, m, interop);
        };
        const auto narrow = static_cast<std::int32_t>(method);
        if (std::is_same_v<T, float>) {
            return wide ? call(qnd_rtk_sSSCompute_omp_offload_ilp64, qnd_rtk_ssscompute_omp_offload,
                               method)
                        : call(qnd_rtk_sSSCompute_omp_offload_lp64,
                               qnd_rtk_ssscompute_omp_offload_lp64, narrow);
        }
        return wide ? call(qnd_rtk_dSSCompute_omp_offload_ilp64, qnd_rtk_dsscompute_omp_offload,
                           method)
                    : call(qnd_rtk_dSSCompute_omp_offload_lp64, qnd_rtk_dsscompute_omp_offload_lp64,
                           narrow);
    }

    // Stores caller's means for method 256 in `mean`, off the data's means, and returns them.
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
    usm_array<std::int64_t> mask;
    usm_array<T> results;
    bool wide;
    std::int64_t wide_ints[3];
    std::int32_t narrow_ints[3];
    ss_task record{};
};

// The fields in `written` hold their estimate in the kept dimensions, all others are untouched;
// `mean` keeps the caller's mean (`centre`, if any). Extremes: see extremes_of.
template <typename T>
void expect_results(const offload_task<T>& t,
                    fields written,
                    const std::vector<long double>& centre = {}) {
    const host_data<T>& h = t.host;
    for (std::int64_t d = 0; d < h.n_dims; ++d) {
        const moment_reference r = reference_of(h, d, centre.empty() ? nullptr : &centre[d]);
        const std::pair<T, T> extremes = extremes_of(h, d, true);
        // The references in the order of field_names; the mean is the raw moment of order 1.
        // clang-format off
        const long double want[] = {
            r.raw_moment(1), r.raw_moment(2), r.raw_moment(3), r.raw_moment(4), r.central_moment(2),
            r.central_moment(3), r.central_moment(4), r.raw[1], r.raw[2], r.raw[3], r.raw[4],
            r.central_sum(2), r.central_sum(3), r.central_sum(4), r.kurtosis(), r.skewness(),
            r.variation(), extremes.first, extremes.second};
        // clang-format on
        for (std::size_t f = 0; f < field_names.size(); ++f) {
            const long double got = t.array(f)[d];
            const std::string where = field_names[f] + " dim " + std::to_string(d);
            if (!centre.empty() && f == 0)
                EXPECT_EQ(got, static_cast<T>(centre[d])) << "the caller's mean is read only";
            else if (!(written >> f & 1) || !h.kept(d))
                EXPECT_EQ(got, offload_task<T>::untouched) << where;
            else
                EXPECT_TRUE(close_to(got, want[f], moment_tolerance<T>())) << where << ": " << got;
        }
    }
}

}  // namespace qnd_test
