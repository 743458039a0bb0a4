// A statistics task record as an offload caller hands it over: host integers of both widths
// behind the count and storage fields, device arrays for the data and every result, and calls
// of the eight entry points in their by-value and Fortran forms.
#pragma once

#include <cstdint>
#include <vector>

#include <sycl/sycl.hpp>

#include "cpu/ss_task.hpp"
#include "offload/adaptor_calls.hpp"
#include "support/data.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/offload.h"
#include "tavrel/qnd/stats.hpp"

namespace qnd_test {

enum class entry_form { by_value, fortran };

// The integers of a task: `wide` (ilp64) tasks point at the 64-bit ones, others at the 32-bit
// ones. Tests may write odd bit patterns into either.
struct task_integers {
    std::int64_t n_dims64 = 0;
    std::int64_t n_observations64 = 0;
    std::uint64_t storage64 = 0;
    std::int32_t n_dims32 = 0;
    std::int32_t n_observations32 = 0;
    std::uint32_t storage32 = 0;

    void set(std::int64_t n_dims, std::int64_t n_observations, std::uint64_t storage) {
        n_dims64 = n_dims;
        n_observations64 = n_observations;
        storage64 = storage;
        n_dims32 = static_cast<std::int32_t>(n_dims);
        n_observations32 = static_cast<std::int32_t>(n_observations);
        storage32 = static_cast<std::uint32_t>(storage);
    }
};

// One task over skewed data with all result arrays present; `wide` chooses the integer width
// that the record points at and the width of the mask's entries.
template <typename T>
struct offload_task {
    offload_task(sycl::queue& q,
                 std::int64_t n_dims,
                 std::int64_t n_observations,
                 tavrel::qnd::stats::layout layout,
                 bool wide,
                 bool weighted_and_masked = false,
                 const std::vector<std::int64_t>& mask = {})
        : host(skewed_data<T>(n_dims, n_observations, layout)),
          obs(q, host.observations),
          weights(q, random_weights<T>(n_observations)),
          mask64(q, mask.empty() ? std::vector<std::int64_t>{0} : mask),
          mask32(q, entries32(mask)),
          out(q, n_dims),
          wide(wide) {
        ints.set(n_dims, n_observations, static_cast<std::uint64_t>(layout));
        if (weighted_and_masked) {
            host.weights = weights.to_vector();
            host.indices = mask;
        }
        record.int_width = wide ? 1 : 0;
        record.dims_ptr = wide ? static_cast<const void*>(&ints.n_dims64) : &ints.n_dims32;
        record.observations_count_ptr =
            wide ? static_cast<const void*>(&ints.n_observations64) : &ints.n_observations32;
        record.storage_ptr = wide ? static_cast<const void*>(&ints.storage64) : &ints.storage32;
        record.observations = obs.get();
        if (weighted_and_masked) {
            record.weights = weights.get();
            record.indices = wide ? static_cast<const void*>(mask64.get()) : mask32.get();
        }
        point_results();
    }

    // Points the record's result fields at the arrays that are present.
    void point_results() {
        void** const fields[n_fields] = {&record.mean,
                                         &record.raw_moment_2,
                                         &record.raw_moment_3,
                                         &record.raw_moment_4,
                                         &record.central_moment_2,
                                         &record.central_moment_3,
                                         &record.central_moment_4,
                                         &record.raw_sum_1,
                                         &record.raw_sum_2,
                                         &record.raw_sum_3,
                                         &record.raw_sum_4,
                                         &record.central_sum_2,
                                         &record.central_sum_3,
                                         &record.central_sum_4,
                                         &record.kurtosis,
                                         &record.skewness,
                                         &record.variation,
                                         &record.min,
                                         &record.max};
        for (int f = 0; f < n_fields; ++f)
            *fields[f] = out.ptr(f);
    }
    void drop(field f) {
        out.present[f] = false;
        point_results();
    }

    // Calls the entry point of T and of this task's width, in `form`.
    std::int32_t compute(std::uint64_t estimates,
                         std::int64_t method,
                         void* interop,
                         entry_form form = entry_form::by_value) {
        void* task = &record;
        if (wide) {
            const std::int64_t m = method;
            if (form == entry_form::fortran) {
                return std::is_same_v<T, float>
                           ? qnd_rtk_ssscompute_omp_offload(&task, &estimates, &m, interop)
                           : qnd_rtk_dsscompute_omp_offload(&task, &estimates, &m, interop);
            }
            return std::is_same_v<T, float>
                       ? qnd_rtk_sSSCompute_omp_offload_ilp64(task, estimates, m, interop)
                       : qnd_rtk_dSSCompute_omp_offload_ilp64(task, estimates, m, interop);
        }
        const auto m = static_cast<std::int32_t>(method);
        if (form == entry_form::fortran) {
            return std::is_same_v<T, float>
                       ? qnd_rtk_ssscompute_omp_offload_lp64(&task, &estimates, &m, interop)
                       : qnd_rtk_dsscompute_omp_offload_lp64(&task, &estimates, &m, interop);
        }
        return std::is_same_v<T, float>
                   ? qnd_rtk_sSSCompute_omp_offload_lp64(task, estimates, m, interop)
                   : qnd_rtk_dSSCompute_omp_offload_lp64(task, estimates, m, interop);
    }

    // 32-bit mask entries, padded to whole 64-bit words as the engine reads them.
    static std::vector<std::int32_t> entries32(const std::vector<std::int64_t>& mask) {
        std::vector<std::int32_t> entries(mask.begin(), mask.end());
        entries.resize((entries.size() + 1) / 2 * 2, 0);
        return entries;
    }

    host_data<T> host;
    usm_array<T> obs;
    usm_array<T> weights;
    usm_array<std::int64_t> mask64;
    usm_array<std::int32_t> mask32;
    task_arrays<T> out;
    bool wide;
    task_integers ints;
    tavrel::qnd::stats::detail::cpu::ss_task record{};
};

}  // namespace qnd_test
