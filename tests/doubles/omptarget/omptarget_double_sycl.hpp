// Interop objects of the offload runtime's double that stand for hostsycl queues, contexts and
// devices, one maker per foreign runtime.
#pragma once

#include <cstdint>
#include <memory>

#include <sycl/sycl.hpp>

#include "omptarget_double.h"

namespace omptarget_double {

using answer = omptarget_double_answer;
using interop_ptr = std::unique_ptr<omptarget_double_interop>;

template <typename Object>
void* native(const Object& object) {
    return sycl::get_native<sycl::backend::ext_hostsycl_native>(object);
}

// What `property` answers through omp_get_interop_int, and through __tgt_get_interop_property.
inline answer& int_of(const interop_ptr& interop, int property) {
    return interop->ints[property + 1];
}
inline answer& pointer_of(const interop_ptr& interop, int property) {
    return interop->pointers[property + 1];
}
inline answer pointing_at(const void* value) {
    return {reinterpret_cast<std::intptr_t>(value), 0, 0};
}

// An interop object of foreign runtime `runtime` (property -1) whose other queries fail with -1.
inline interop_ptr new_interop(int runtime) {
    interop_ptr interop(new omptarget_double_interop{});
    for (int property = -1; property <= 15; ++property)
        int_of(interop, property) = pointer_of(interop, property) = {0, -1, 0};
    int_of(interop, -1) = {runtime, 0, 0};
    return interop;
}

// Runtime 4: property 5 is the address of `queue`, which must outlive the object.
inline interop_ptr sycl_interop(sycl::queue* queue) {
    interop_ptr interop = new_interop(4);
    pointer_of(interop, 5) = pointing_at(queue);
    return interop;
}

// Runtime 6 (driver) or 3 (OpenCL), kind 2 or 1 behind property 8: the native queue (5), context
// (9, and 6 for OpenCL) and driver device (7) of `queue`; property 10 (immediate) answers 0.
inline interop_ptr native_interop(const sycl::queue& queue, bool opencl) {
    interop_ptr interop = new_interop(opencl ? 3 : 6);
    pointer_of(interop, 5) = pointing_at(native(queue));
    pointer_of(interop, opencl ? 6 : 7) =
        pointing_at(opencl ? native(queue.get_context()) : native(queue.get_device()));
    pointer_of(interop, 9) = pointing_at(native(queue.get_context()));
    interop->kind = opencl ? 1 : 2;
    pointer_of(interop, 8) = pointing_at(&interop->kind);
    int_of(interop, 10) = {0, 0, 0};
    return interop;
}
inline interop_ptr driver_interop(const sycl::queue& queue) {
    return native_interop(queue, false);
}
inline interop_ptr opencl_interop(const sycl::queue& queue) {
    return native_interop(queue, true);
}

}  // namespace omptarget_double
