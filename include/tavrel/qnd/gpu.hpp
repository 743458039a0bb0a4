// The GPU service: native handles and OpenMP interop objects turned into cached SYCL contexts and
// queues, owned by the library until it unloads.
#pragma once

#include <cstdint>

#include <sycl/sycl.hpp>

#include "tavrel/qnd/stats.hpp"

#pragma GCC visibility push(default)

namespace tavrel::qnd::gpu {

// The runtime behind a native handle. Only the value 1 is tested for: any other value is taken
// as OpenCL.
enum qnd_gpu_backend_t : std::int32_t {
    qnd_gpu_backend_opencl = 0,
    qnd_gpu_backend_driver = 1,
};

// The cached context of the native context `native_context`. For the driver runtime
// (`backend` 1) the key is the pair (native_context, native_device) and a new context lists the
// one device `*device`, which must then be valid; otherwise the key is (native_context,
// native_device) as well, and neither device argument is used to make the context. The result
// belongs to the library: the caller neither frees nor destroys it. SYCL errors pass through;
// one thrown while a context is made leaves the context cache locked, so that every later call
// needing it waits for ever: after such an error, call none of these functions again.
TAVREL_QND_EXPORT sycl::context* lookup_and_cache_zarth_context(void* native_context,
                                                                void* native_device,
                                                                qnd_gpu_backend_t backend,
                                                                sycl::device* device);

// The cached queue of the native queue `native_queue`, which alone is the key: `backend`,
// `context` and `interop` are used only when the queue is made, and a later call with another
// context gets the queue made first. For the driver runtime the OpenMP interop object `interop`
// says whether the native queue is an immediate command list.
TAVREL_QND_EXPORT sycl::queue* lookup_and_cache_zarth_queue(void* native_queue,
                                                            qnd_gpu_backend_t backend,
                                                            sycl::context context,
                                                            void* interop);

// The cached queue, on a cached context, of the native queue that the OpenMP interop object
// `interop` holds; null if one of its property queries fails.
TAVREL_QND_EXPORT sycl::queue* lookup_and_cache_zarth_queue_and_context(void* interop);

}  // namespace tavrel::qnd::gpu

#pragma GCC visibility pop
