// The frame of the buffer-form estimators: routing by the queue's device, with nothing handed
// back, since the caller's buffers order any later work.
#pragma once

#include <sycl/sycl.hpp>

#include "estimators/frame.hpp"
#include "tavrel/qnd/exceptions.hpp"

namespace tavrel::qnd::stats::detail {

// `on_cpu` (the host task of the CPU path) on a CPU, `on_gpu` on a GPU, asked in that order, so
// a device that is both is served as a CPU; a device that is neither is refused. The GPU
// engine's event is dropped: the temporaries of the call have already waited for it.
template <typename OnCpu, typename OnGpu>
void route_buffer(sycl::queue& queue, const char* family, OnCpu&& on_cpu, OnGpu&& on_gpu) {
    if constexpr (cpu_path_built) {
        if (queue.get_device().is_cpu()) {
            on_cpu();
            return;
        }
    }
    if (!queue.get_device().is_gpu())
        throw unsupported_device("stats", family, queue.get_device());
    on_gpu();
}

}  // namespace tavrel::qnd::stats::detail
