// The eight exported offload entry points: a statistics task read on the host, a queue made from
// the OpenMP interop object, the groups of estimates run in a fixed order through the adaptors,
// and every exception turned into a line on the standard error stream and the status -2.
#include "tavrel/qnd/offload.h"

#include <cstdint>
#include <cstdio>
#include <exception>
#include <type_traits>

#include <sycl/sycl.hpp>

#include "cpu/estimate_mask.hpp"
#include "cpu/ss_task.hpp"
#include "offload/adaptors.hpp"
#include "offload/offload_result.hpp"
#include "service/interop_loader.hpp"
#include "service/queue_from_interop.hpp"
#include "tavrel/qnd/exceptions.hpp"
#include "tavrel/qnd/stats.hpp"

namespace tavrel::qnd::stats::detail::gpu {

namespace {

namespace service = tavrel::qnd::gpu::detail;
using cpu::ss_task;

// Entry-point statuses of their own, besides the codes shared with the core library.
constexpr std::int32_t status_memory_unusable = -1;
constexpr std::int32_t status_no_queue = -2;
constexpr std::int32_t status_bad_storage = -3;

// The integers behind the task's n_dims, n_observations and storage fields have the entry
// point's width; the storage value is read unsigned.
template <bool Idx64>
using task_int = std::conditional_t<Idx64, std::int64_t, std::int32_t>;
template <bool Idx64>
using task_uint = std::conditional_t<Idx64, std::uint64_t, std::uint32_t>;

template <bool Idx64>
std::int64_t read_count(const void* at) {
    return *static_cast<const task_int<Idx64>*>(at);
}

template <typename T>
T* array_of(void* field) {
    return static_cast<T*>(field);
}

// One line of the catch ladder, formatted whole before it is written.
void report(const char* format, const char* what) {
    char line[1024];
    std::snprintf(line, sizeof line, format, what);
    std::fputs(line, stderr);
}

// Everything after the interop entries are bound, on the layout that the storage format chose.
// Each group whose bits the mask holds runs with a fresh copy of the dataset; the status of the
// last group that ran is the result, and no group waits for another's event.
template <typename T, layout L, bool Idx64>
std::int32_t compute_on_queue(const ss_task& task,
                              std::uint64_t estimates,
                              offload_method_int<Idx64> method,
                              void* interop,
                              sycl::event& last_event,
                              std::int32_t& status) {
    std::int32_t backend = service::runtime_none;
    sycl::queue queue = service::queue_from_interop(interop, &backend);
    if (backend == service::runtime_none)
        return status_no_queue;

    const std::int64_t n_observations = read_count<Idx64>(task.observations_count_ptr);
    if (n_observations < 1)
        return offload_status::n_observations_below_one;
    const std::int64_t n_dims = read_count<Idx64>(task.dims_ptr);
    if (n_dims < 1)
        return offload_status::n_dims_below_one;
    if (task.observations == nullptr)
        return offload_status::observations_missing;
    // With 32-bit entries the mask is read in 64-bit words (see dataset_helper).
    auto* const indices = static_cast<std::int64_t*>(const_cast<void*>(task.indices));
    T* const weights = static_cast<T*>(const_cast<void*>(task.weights));
    T* const observations = static_cast<T*>(const_cast<void*>(task.observations));

    if (backend != service::runtime_driver && backend != service::runtime_sycl) {
        if (backend != service::runtime_opencl)
            return status_memory_unusable;
        if (service::interop_memory_usable() == 0)
            return status_memory_unusable;
    }

    const auto data = [&] {
        return dataset<L, T*>(n_dims, n_observations, observations, weights, indices);
    };
    const auto keep = [&](offload_result r) {
        last_event = std::move(r.event);
        status = r.status;
    };
    const auto mean = array_of<T>(task.mean);
    const auto raw2 = [&] { return array_of<T>(task.raw_moment_2); };
    const auto raw3 = [&] { return array_of<T>(task.raw_moment_3); };
    const auto raw4 = [&] { return array_of<T>(task.raw_moment_4); };

    if (estimates & cpu::est_min)
        keep(offload_min<T, L, Idx64>(queue, array_of<T>(task.min), data(), method));
    if (estimates & cpu::est_max)
        keep(offload_max<T, L, Idx64>(queue, array_of<T>(task.max), data(), method));
    if (estimates & cpu::est_raw_sums) {
        keep(offload_raw_sum<T, L, Idx64>(queue, array_of<T>(task.raw_sum_1),
                                          array_of<T>(task.raw_sum_2), array_of<T>(task.raw_sum_3),
                                          array_of<T>(task.raw_sum_4), data(), method, estimates));
    }
    if (estimates & cpu::est_raw_moments) {
        keep(offload_raw_moment<T, L, Idx64>(queue, mean, raw2(), raw3(), raw4(), data(), method,
                                             estimates));
    }
    if (estimates & cpu::est_central_sums) {
        keep(offload_central_sum<T, L, Idx64>(
            queue, mean, raw2(), raw3(), raw4(), array_of<T>(task.central_sum_2),
            array_of<T>(task.central_sum_3), array_of<T>(task.central_sum_4), data(), method,
            estimates));
    }
    if (estimates & cpu::est_central_moments) {
        keep(offload_central_moment<T, L, Idx64>(
            queue, mean, raw2(), raw3(), raw4(), array_of<T>(task.central_moment_2),
            array_of<T>(task.central_moment_3), array_of<T>(task.central_moment_4), data(), method,
            estimates));
    }
    if (estimates & cpu::est_variation) {
        keep(offload_variation<T, L, Idx64>(queue, mean, raw2(), array_of<T>(task.variation),
                                            data(), method));
    }
    if (estimates & cpu::est_skewness) {
        keep(offload_skewness<T, L, Idx64>(queue, mean, raw2(), raw3(), array_of<T>(task.skewness),
                                           data(), method));
    }
    if (estimates & cpu::est_kurtosis) {
        keep(offload_kurtosis<T, L, Idx64>(queue, mean, raw2(), raw3(), raw4(),
                                           array_of<T>(task.kurtosis), data(), method));
    }
    return status;
}

// Binds the interop entries, then runs under the catch ladder: an exception anywhere discards
// the statuses of the groups before it and answers -2. Work already submitted is neither waited
// for nor cancelled.
template <typename T, layout L, bool Idx64>
std::int32_t compute_in_layout(const ss_task& task,
                               std::uint64_t estimates,
                               offload_method_int<Idx64> method,
                               void* interop) {
    sycl::event last_event;
    std::int32_t status = offload_status::ok;
    const int loaded = service::load_interop_entries();
    const std::int32_t result = status_no_queue;
    if (loaded != 0)
        return result;
    try {
        return compute_on_queue<T, L, Idx64>(task, estimates, method, interop, last_event, status);
    } catch (const tavrel::qnd::exception& e) {
        report("Pelloran Stats: tavrel::qnd::exception: what: %s\n", e.what());
    } catch (const sycl::exception& e) {
        report("Pelloran Stats: sycl::exception what: %s \n", e.what());
    } catch (const std::exception& e) {
        report("Pelloran Stats: std::exception what: %s\n", e.what());
    } catch (...) {
        report("Pelloran Stats: unknown exception occured during Zarth call", "");
    }
    return result;
}

// The one text behind the four by-value entry points: the storage format picks the layout before
// anything else is looked at.
template <typename T, bool Idx64>
std::int32_t compute(void* task_handle,
                     std::uint64_t estimates,
                     offload_method_int<Idx64> method,
                     void* interop) {
    const ss_task& task = *static_cast<const ss_task*>(task_handle);
    const auto storage = *static_cast<const task_uint<Idx64>*>(task.storage_ptr);
    if (storage == static_cast<task_uint<Idx64>>(cpu::ss_storage_columns))
        return compute_in_layout<T, col_major, Idx64>(task, estimates, method, interop);
    if (storage == static_cast<task_uint<Idx64>>(cpu::ss_storage_rows))
        return compute_in_layout<T, row_major, Idx64>(task, estimates, method, interop);
    return status_bad_storage;
}

}  // namespace

}  // namespace tavrel::qnd::stats::detail::gpu

namespace {
namespace offload = tavrel::qnd::stats::detail::gpu;
}

extern "C" {

std::int32_t qnd_rtk_sSSCompute_omp_offload_lp64(void* task,
                                                 std::uint64_t estimates,
                                                 std::int32_t method,
                                                 void* interop) {
    return offload::compute<float, false>(task, estimates, method, interop);
}

std::int32_t qnd_rtk_dSSCompute_omp_offload_lp64(void* task,
                                                 std::uint64_t estimates,
                                                 std::int32_t method,
                                                 void* interop) {
    return offload::compute<double, false>(task, estimates, method, interop);
}

std::int32_t qnd_rtk_sSSCompute_omp_offload_ilp64(void* task,
                                                  std::uint64_t estimates,
                                                  std::int64_t method,
                                                  void* interop) {
    return offload::compute<float, true>(task, estimates, method, interop);
}

std::int32_t qnd_rtk_dSSCompute_omp_offload_ilp64(void* task,
                                                  std::uint64_t estimates,
                                                  std::int64_t method,
                                                  void* interop) {
    return offload::compute<double, true>(task, estimates, method, interop);
}

// The Fortran forms load the three values and continue in the by-value text of their type and
// width; the interop handle comes by value.
std::int32_t qnd_rtk_ssscompute_omp_offload_lp64(void* const* task,
                                                 const std::uint64_t* estimates,
                                                 const std::int32_t* method,
                                                 void* interop) {
    return offload::compute<float, false>(*task, *estimates, *method, interop);
}

std::int32_t qnd_rtk_dsscompute_omp_offload_lp64(void* const* task,
                                                 const std::uint64_t* estimates,
                                                 const std::int32_t* method,
                                                 void* interop) {
    return offload::compute<double, false>(*task, *estimates, *method, interop);
}

std::int32_t qnd_rtk_ssscompute_omp_offload(void* const* task,
                                            const std::uint64_t* estimates,
                                            const std::int64_t* method,
                                            void* interop) {
    return offload::compute<float, true>(*task, *estimates, *method, interop);
}

std::int32_t qnd_rtk_dsscompute_omp_offload(void* const* task,
                                            const std::uint64_t* estimates,
                                            const std::int64_t* method,
                                            void* interop) {
    return offload::compute<double, true>(*task, *estimates, *method, interop);
}

}  // extern "C"
