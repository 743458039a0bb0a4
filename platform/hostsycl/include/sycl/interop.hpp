// Native interoperation with hostsycl's own native layer (backend value 2).
#pragma once
#pragma GCC visibility push(default)

#include <cstdint>
#include <vector>

#include <sycl/context.hpp>
#include <sycl/device.hpp>
#include <sycl/exception.hpp>
#include <sycl/queue.hpp>
#include <sycl/types.hpp>

namespace sycl {

// Native handles of devices, contexts and queues are opaque pointers.
template <backend B, typename SyclObject>
using backend_return_t = void*;

namespace detail {
using native_handle = std::uintptr_t;
void* native_of(const device& d, backend b);
void* native_of(const context& c, backend b);
void* native_of(const queue& q, backend b);

// Turns a native context back into a context. keep_ownership false hands one native reference
// to the context, released when its last copy goes; true leaves it with the caller.
context make_context(native_handle handle,
                     const async_handler& handler,
                     backend b,
                     bool keep_ownership,
                     const std::vector<device>& devices = {});
// Turns a native queue back into a queue on `ctx`. `handle_description` 1 asks for immediate
// submission, which hostsycl's queues always have. `dev`, when given, must be the queue's device.
queue make_queue(native_handle handle,
                 std::int32_t handle_description,
                 const context& ctx,
                 const device* dev,
                 bool keep_ownership,
                 const property_list& props,
                 const async_handler& handler,
                 backend b);
}  // namespace detail

// The native handle of `obj`; only backend::ext_hostsycl_native is served.
template <backend B, typename SyclObject>
backend_return_t<B, SyclObject> get_native(const SyclObject& obj) {
    return detail::native_of(obj, B);
}

}  // namespace sycl

#pragma GCC visibility pop
