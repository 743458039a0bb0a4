// The process-wide caches of contexts and queues made from native handles, their lock words, and
// the makers of driver-runtime and OpenCL objects they use.
#pragma once

#include <cstdint>

#include <sycl/sycl.hpp>

#include "service/native_interop.hpp"
#include "service/pointer_hash_map.hpp"
#include "service/rw_spin_word.hpp"

namespace tavrel::qnd::gpu::detail {

// The two caches, made empty at library load in this order and so destroyed at unload in the
// other: every cached queue before any cached context. A template so that the order can be
// watched with values that log their destruction.
template <typename Context, typename Queue>
struct cache_pair {
    pointer_hash_map<context_key, Context> context_cache;
    pointer_hash_map<queue_key, Queue> queue_cache;
};

// The library's caches. Their destructors take no lock.
extern cache_pair<sycl::context, sycl::queue> service_caches;

// One lock word per cache, never both held at once. An exception while a write lock is held
// leaves its word at 1 for good.
extern rw_spin_word context_cache_word;
extern rw_spin_word queue_cache_word;

// The handle description of a driver-runtime queue: 1 if property 10 of `interop` says that the
// native queue is an immediate command list (non-zero, with code 0), else 0.
std::int32_t driver_queue_description(void* interop);

// A queue of the driver runtime from `native_queue` on `context` and its first device; the
// native queue stays with its owner.
sycl::queue make_driver_queue(void* native_queue, const sycl::context& context, void* interop);

}  // namespace tavrel::qnd::gpu::detail
