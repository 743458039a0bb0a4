// The queue that the offload entry points run on, made from an OpenMP interop object.
#pragma once

#include <cstdint>

#include <sycl/sycl.hpp>

namespace tavrel::qnd::gpu::detail {

// A queue for the OpenMP interop object `interop`: the interop's own SYCL queue (runtime 4), a
// new queue on the cached context of its native context and device (driver runtime, 6), or a
// queue from its native OpenCL queue on the cached context (3). `*backend` receives the
// foreign-runtime number that the queue is worth; 0 means a default queue, to be thrown away.
// When OpenCL cannot be loaded the result is a default queue and `*backend` stays 3. The
// sycl::exception of find_driver_device, and any error of the SYCL runtime, pass through.
sycl::queue queue_from_interop(void* interop, std::int32_t* backend);

}  // namespace tavrel::qnd::gpu::detail
