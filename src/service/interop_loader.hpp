// Run-time binding of the OpenMP offload runtime's five interop entries, and the makers of SYCL
// devices and queues from native handles that the caches and queue_from_interop share.
#pragma once

#include <cstdint>
#include <optional>

#include <sycl/sycl.hpp>

namespace tavrel::qnd::gpu::detail {

// Property numbers of the interop interface as this library asks for them.
// omp_get_interop_int:
inline constexpr std::int32_t property_runtime = -1;    // foreign-runtime number
inline constexpr std::int32_t property_immediate = 10;  // non-zero: immediate command list
// __tgt_get_interop_property:
inline constexpr std::int32_t property_queue = 5;           // native queue (SYCL: sycl::queue*)
inline constexpr std::int32_t property_opencl_context = 6;  // native context, OpenCL only
inline constexpr std::int32_t property_device = 7;          // native device, driver runtime
inline constexpr std::int32_t property_kind = 8;            // pointer to a 32-bit kind: 1, 2
inline constexpr std::int32_t property_context = 9;         // native context

// Foreign-runtime numbers; 0 is this library's own and means that no usable runtime was found.
inline constexpr std::int32_t runtime_none = 0;
inline constexpr std::int32_t runtime_opencl = 3;
inline constexpr std::int32_t runtime_sycl = 4;
inline constexpr std::int32_t runtime_driver = 6;

// SYCL backend values of native interoperation.
inline constexpr sycl::backend backend_opencl = static_cast<sycl::backend>(1);
inline constexpr sycl::backend backend_driver = static_cast<sycl::backend>(2);

// Opens "libomptarget.so" once and binds the five entries, all or nothing. Returns 0 if all five
// are bound, -1 if not; a failed load is not tried again. Thread-safe and idempotent.
int load_interop_entries();

// Wrappers with the entries' own arguments. Each binds on first use; if its entry cannot be had
// it prints message 3 with the entry's name in single quotes and ends the process with status 2.
std::int32_t __tgt_get_interop_property(void* interop, std::int32_t property, void** result);
std::intptr_t omp_get_interop_int(void* interop, std::int32_t property, std::int32_t* code);
void* omp_get_interop_ptr(void* interop, std::int32_t property, std::int32_t* code);
const char* omp_get_interop_str(void* interop, std::int32_t property, std::int32_t* code);
std::int32_t ompx_interop_add_completion_callback(void* interop,
                                                  void (*callback)(void*),
                                                  void* data);

// 0 if LIBOMPTARGET_OPENCL_USE_SVM asks for SVM (its first character is '1'), else 1. The
// variable is read on every call.
int interop_memory_usable();

// A queue of the OpenCL backend made from the native queue `native_queue` on `context`; the
// native queue is handed over (keep-ownership false).
sycl::queue make_opencl_queue(void* native_queue,
                              const sycl::context& context,
                              const sycl::async_handler& handler);

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
