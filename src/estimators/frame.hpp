// The frame shared by the exported estimators: argument refusals, routing by the queue's
// device, and the list of type and layout combinations that are instantiated.
#pragma once

#include <sycl/sycl.hpp>

#include "tavrel/qnd/exceptions.hpp"
#include "tavrel/qnd/stats.hpp"

// A build on a SYCL implementation without host tasks leaves the CPU path out (QND_NO_CPU_PATH):
// a frame's CPU branch, QND_ON_CPU(call), then names no CPU code and is never taken, and a CPU
// device is refused like any device that is not a GPU.
#ifdef QND_NO_CPU_PATH
#define QND_ON_CPU(...) ::tavrel::qnd::stats::detail::no_cpu_path()
#else
#include "cpu/cpu_estimators.hpp"
#define QND_ON_CPU(...) [&] { return __VA_ARGS__; }
#endif

namespace tavrel::qnd::stats::detail {

// A frame's CPU branch where the CPU path is left out: never called.
struct no_cpu_path {};
#ifdef QND_NO_CPU_PATH
inline constexpr bool cpu_path_built = false;
#else
inline constexpr bool cpu_path_built = true;
#endif

// Refuses a call whose output arguments fail a check of the family, with the family's words.
inline void check_argument(bool refused, const char* family, const char* words) {
    if (refused)
        throw invalid_argument("stats", family, words);
}

// Sends a pointer-form call to the engine of the queue's device: `on_cpu` (the host task of the
// CPU path) on a CPU, `on_gpu` on a GPU. The CPU question comes first, so a device that is both
// is served as a CPU; a device that is neither is refused.
template <typename OnCpu, typename OnGpu>
sycl::event route_usm(sycl::queue& queue, const char* family, OnCpu&& on_cpu, OnGpu&& on_gpu) {
    if constexpr (cpu_path_built) {
        if (queue.get_device().is_cpu())
            return on_cpu();
    }
    if (!queue.get_device().is_gpu())
        throw unsupported_device("stats", family, queue.get_device());
    return on_gpu();
}

}  // namespace tavrel::qnd::stats::detail

// Expands X(M, T, L) for the four exported combinations of element type and layout.
#define QND_FOR_TYPES_AND_LAYOUTS(X, M) \
    X(M, float, row_major)              \
    X(M, float, col_major)              \
    X(M, double, row_major)             \
    X(M, double, col_major)
