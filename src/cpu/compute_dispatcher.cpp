// The compute dispatchers: a task is validated, then its mask of estimates is split among the
// statistics component's routines in a fixed order.
#include <atomic>
#include <cstdint>

#include "cpu/estimate_mask.hpp"
#include "cpu/ss_client.hpp"
#include "cpu/ss_task.hpp"
#include "cpu/threading_layer.hpp"

namespace tavrel::qnd::stats::detail::cpu {

namespace {

enum routine : int {
    missing_values,
    minmax,
    sort,
    basic,
    mad,
    pooled_covariance,
    outliers_detection,
    robust_covariance,
    partial_covariance,
    quantiles,
    stream_quantiles,
    cor_parametrization,
    routine_count
};

// Every routine gets the whole mask, the method untouched and the threader table.
using routine_fn = std::int32_t(ss_task* task,
                                std::uint64_t estimates,
                                std::int64_t method,
                                const ss_threader_table* threaders);

template <typename T>
struct routine_names;

template <>
struct routine_names<float> {
    static constexpr const char* names[routine_count] = {"_rtksSSMissingValues",
                                                         "_rtksSSMinmax",
                                                         "_rtksSSSort",
                                                         "_rtksSSBasic",
                                                         "_rtksSSMAD",
                                                         "_rtksSSPooledCovariance",
                                                         "_rtksSSOutliersDetection",
                                                         "_rtksSSRobustCovariance",
                                                         "_rtksSSPartialCovariance",
                                                         "_rtksSSQuantiles",
                                                         "_rtksSSStreamQuantiles",
                                                         "_rtksSSCorParametrization"};
    static inline std::atomic<void*> slots[routine_count] = {};
};

template <>
struct routine_names<double> {
    static constexpr const char* names[routine_count] = {"_rtkdSSMissingValues",
                                                         "_rtkdSSMinmax",
                                                         "_rtkdSSSort",
                                                         "_rtkdSSBasic",
                                                         "_rtkdSSMAD",
                                                         "_rtkdSSPooledCovariance",
                                                         "_rtkdSSOutliersDetection",
                                                         "_rtkdSSRobustCovariance",
                                                         "_rtkdSSPartialCovariance",
                                                         "_rtkdSSQuantiles",
                                                         "_rtkdSSStreamQuantiles",
                                                         "_rtkdSSCorParametrization"};
    static inline std::atomic<void*> slots[routine_count] = {};
};

// Which routine runs for which estimates, in the order they run. Minimum and maximum come before
// the moments, and 0xc00 lies outside the basic routine's bits.
struct route {
    std::uint64_t bits;
    routine which;
};
constexpr route routes[] = {
    {0xc00, minmax},
    {0x8000000000, sort},
    {0x1fe0033ff, basic},
    {0x600000000, mad},
    {0x180000c000, pooled_covariance},
    {0x80000, outliers_detection},
    {0x40000, robust_covariance},
    {0x300000, partial_covariance},
    {0x30000, quantiles},
    {0x1000000, stream_quantiles},
    {0x800000, cor_parametrization},
};

template <typename T>
std::int32_t run(routine which, ss_task* task, std::uint64_t estimates, std::int64_t method) {
    using names = routine_names<T>;
    routine_fn* fn =
        slot_entry<routine_fn>(names::slots[which], names::names[which], resolve_core_entry);
    return fn(task, estimates, method, threader_table());
}

// An integer of the task, 32-bit when int_width is 0 and 64-bit otherwise.
std::int64_t read_integer(const ss_task& task, const void* at) {
    if (task.int_width == 0)
        return *static_cast<const std::int32_t*>(at);
    return *static_cast<const std::int64_t*>(at);
}

// 0, or the negative status of the first failed test.
std::int32_t validate(const ss_task* task, std::uint64_t estimates) {
    if (task == nullptr)
        return -4031;
    if (task->dims_ptr == nullptr || read_integer(*task, task->dims_ptr) < 1)
        return -4001;
    if ((estimates & est_dims_only) != 0)
        return 0;
    if (task->observations_count_ptr == nullptr ||
        read_integer(*task, task->observations_count_ptr) < 1)
        return -4002;
    if (task->observations == nullptr)
        return -4032;
    if (task->storage_ptr == nullptr)
        return -4044;
    const std::int64_t storage = read_integer(*task, task->storage_ptr);
    if (storage != ss_storage_rows && storage != ss_storage_columns)
        return -4003;
    return 0;
}

template <typename T>
std::int32_t dispatch(ss_task* task, std::uint64_t estimates, std::int64_t method) {
    if (const std::int32_t refused = validate(task, estimates))
        return refused;
    if ((estimates & est_missing_values) != 0)
        return run<T>(missing_values, task, estimates, method);
    // A later routine's status replaces an earlier non-negative one; a negative one ends the call.
    std::int32_t status = 0;
    for (const route& r : routes) {
        if ((estimates & r.bits) == 0)
            continue;
        status = run<T>(r.which, task, estimates, method);
        if (status < 0)
            return status;
    }
    return status;
}

}  // namespace

std::int32_t __rtksSSCompute(ss_task* task, std::uint64_t estimates, std::int64_t method) {
    return dispatch<float>(task, estimates, method);
}

std::int32_t __rtkdSSCompute(ss_task* task, std::uint64_t estimates, std::int64_t method) {
    return dispatch<double>(task, estimates, method);
}

}  // namespace tavrel::qnd::stats::detail::cpu
