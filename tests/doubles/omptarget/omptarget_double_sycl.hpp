// Interop objects of the offload runtime's double that stand for hostsycl queues, contexts and
// devices, one maker per foreign runtime.
#pragma once

#include <cstdint>

#include <sycl/sycl.hpp>

#include "omptarget_double.h"

namespace omptarget_double {

inline constexpr sycl::backend native_backend = sycl::backend::ext_hostsycl_native;

// Foreign runtime 4: property 5 is the address of `queue`, which must outlive the object.
inline void* sycl_interop(sycl::queue* queue) {
    void* interop = omptarget_double_new_interop(4);
    omptarget_double_set_property(interop, 5, queue);
    return interop;
}

// Foreign runtime 6, the driver runtime: native queue (5), device (7) and context (9) of
// `queue`, the kind 2 (8) and the immediate flag (10).
inline void* driver_interop(const sycl::queue& queue, bool immediate = false) {
    void* interop = omptarget_double_new_interop(6);
    omptarget_double_set_property(interop, 5, sycl::get_native<native_backend>(queue));
    omptarget_double_set_property(interop, 7, sycl::get_native<native_backend>(queue.get_device()));
    omptarget_double_set_property(interop, 9,
                                  sycl::get_native<native_backend>(queue.get_context()));
    omptarget_double_set_kind(interop, 2);
    omptarget_double_set_int(interop, 10, immediate ? 1 : 0);
    return interop;
}

// Foreign runtime 3, OpenCL: the native queue (5) and context (6 and 9) of `queue` stand for
// OpenCL handles, with the kind 1 (8). hostsycl does not serve the OpenCL backend, so a queue
// or context made from them throws errc::feature_not_supported.
inline void* opencl_interop(const sycl::queue& queue) {
    void* interop = omptarget_double_new_interop(3);
    void* context = sycl::get_native<native_backend>(queue.get_context());
    omptarget_double_set_property(interop, 5, sycl::get_native<native_backend>(queue));
    omptarget_double_set_property(interop, 6, context);
    omptarget_double_set_property(interop, 9, context);
    omptarget_double_set_kind(interop, 1);
    return interop;
}

}  // namespace omptarget_double
