// Run-time binding of the OpenMP offload runtime's five interop entries and the property numbers
// read through them.
#pragma once

#include <cstdint>

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

}  // namespace tavrel::qnd::gpu::detail
