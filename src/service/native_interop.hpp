// What of the GPU service rests on the SYCL implementation's own native layer: SYCL objects made
// from native OpenCL and driver-runtime handles, and the search of the driver runtime's devices.
// Everything else of the service is standard SYCL; one source implements this interface for the
// implementation a build uses (native_interop.cpp for a runtime with the detail makers and the
// driver runtime as backend value 2).
#pragma once

#include <cstdint>
#include <optional>

#include <sycl/sycl.hpp>

namespace tavrel::qnd::gpu::detail {

// A context of the OpenCL backend that takes over the native context (keep-ownership false).
sycl::context make_opencl_context(void* native_context);

// A queue of the OpenCL backend made from the native queue `native_queue` on `context`; the
// native queue is handed over (keep-ownership false).
sycl::queue make_opencl_queue(void* native_queue,
                              const sycl::context& context,
                              const sycl::async_handler& handler);

// A context of the driver runtime on the one device `device`; the native context stays with its
// owner (keep-ownership true).
sycl::context make_driver_context(void* native_context, const sycl::device& device);

// A queue of the driver runtime from `native_queue` on `context` and its first device, with the
// handle description `description` (1: an immediate command list); the native queue stays with
// its owner.
sycl::queue make_driver_queue_of(void* native_queue,
                                 std::int32_t description,
                                 const sycl::context& context);

// The GPU device of the driver runtime whose native handle is `*native_device`, root devices and
// their sub-devices searched depth first. Throws sycl::exception errc::invalid "Native device
// isn't exposed to SYCL." when none has it, and errc::backend_mismatch "Backends mismatch" when a
// device of a driver-runtime platform has another backend.
sycl::device find_driver_device(void* const* native_device);

// `device` or the first of its sub-devices by affinity domain, depth first, whose native handle
// is `*native_device`; nothing if none. Throws "Backends mismatch" for a device of another
// backend.
std::optional<sycl::device> match_native_device(const sycl::device& device,
                                                void* const* native_device);

}  // namespace tavrel::qnd::gpu::detail
