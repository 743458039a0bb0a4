// Unified shared memory: device, shared and host allocations, all ordinary host memory here.
#pragma once
#pragma GCC visibility push(default)

#include <cstddef>

#include <sycl/context.hpp>
#include <sycl/device.hpp>
#include <sycl/queue.hpp>
#include <sycl/types.hpp>

namespace sycl {

// Each returns null when the allocation fails or `bytes` is 0.
void* malloc_device(std::size_t bytes,
                    const device& dev,
                    const context& ctx,
                    const property_list& props = {});
void* malloc_device(std::size_t bytes, const queue& q, const property_list& props = {});
void* malloc_shared(std::size_t bytes,
                    const device& dev,
                    const context& ctx,
                    const property_list& props = {});
void* malloc_shared(std::size_t bytes, const queue& q, const property_list& props = {});
void* malloc_host(std::size_t bytes, const context& ctx, const property_list& props = {});
void* malloc_host(std::size_t bytes, const queue& q, const property_list& props = {});

template <typename T>
T* malloc_device(std::size_t count,
                 const device& dev,
                 const context& ctx,
                 const property_list& props = {}) {
    return static_cast<T*>(malloc_device(count * sizeof(T), dev, ctx, props));
}
template <typename T>
T* malloc_device(std::size_t count, const queue& q, const property_list& props = {}) {
    return static_cast<T*>(malloc_device(count * sizeof(T), q, props));
}
template <typename T>
T* malloc_shared(std::size_t count,
                 const device& dev,
                 const context& ctx,
                 const property_list& props = {}) {
    return static_cast<T*>(malloc_shared(count * sizeof(T), dev, ctx, props));
}
template <typename T>
T* malloc_shared(std::size_t count, const queue& q, const property_list& props = {}) {
    return static_cast<T*>(malloc_shared(count * sizeof(T), q, props));
}
template <typename T>
T* malloc_host(std::size_t count, const context& ctx, const property_list& props = {}) {
    return static_cast<T*>(malloc_host(count * sizeof(T), ctx, props));
}
template <typename T>
T* malloc_host(std::size_t count, const queue& q, const property_list& props = {}) {
    return static_cast<T*>(malloc_host(count * sizeof(T), q, props));
}

// Frees a USM allocation; null is ignored.
void free(void* ptr, const context& ctx);
void free(void* ptr, const queue& q);

}  // namespace sycl

#pragma GCC visibility pop
