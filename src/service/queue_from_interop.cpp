// The queue of an offload call from its OpenMP interop object, in one of three ways.
#include "service/queue_from_interop.hpp"

#include "service/interop_loader.hpp"
#include "service/native_interop.hpp"
#include "service/opencl_entries.hpp"
#include "tavrel/qnd/gpu.hpp"

namespace tavrel::qnd::gpu::detail {

namespace {

// What the failure paths give; made before the failure is reported, so a machine without a
// default device turns them into the constructor's exception.
sycl::queue default_queue() {
    return sycl::queue{sycl::property_list{}};
}

// Runtime 4: a copy of the interop's own SYCL queue.
sycl::queue sycl_way(void* interop, std::int32_t* backend) {
    void* queue = nullptr;
    if (__tgt_get_interop_property(interop, property_queue, &queue) != 0 || queue == nullptr) {
        *backend = runtime_none;
        return default_queue();
    }
    return sycl::queue(*static_cast<const sycl::queue*>(queue));
}

// The driver runtime: a new queue on the cached context of the native context and device, not
// the interop's own native queue.
sycl::queue driver_way(void* interop, std::int32_t* backend) {
    void* device_handle = nullptr;
    void* context_handle = nullptr;
    if (__tgt_get_interop_property(interop, property_device, &device_handle) != 0 ||
        __tgt_get_interop_property(interop, property_context, &context_handle) != 0) {
        *backend = runtime_none;
        return default_queue();
    }
    sycl::device device = find_driver_device(&device_handle);
    // The native queue must be there, though it is not used.
    void* queue_handle = nullptr;
    if (__tgt_get_interop_property(interop, property_queue, &queue_handle) != 0) {
        *backend = runtime_none;
        return default_queue();
    }
    sycl::context* context = lookup_and_cache_zarth_context(context_handle, device_handle,
                                                            qnd_gpu_backend_driver, &device);
    return sycl::queue(*context, device, sycl::property_list{});
}

// OpenCL: a queue from the native OpenCL queue on the cached context. Without an OpenCL runtime
// the caller gets a default queue and keeps the runtime number 3.
sycl::queue opencl_way(void* interop, std::int32_t* backend) {
    if (load_opencl_entries() != 0)
        return default_queue();
    void* context_handle = nullptr;
    void* queue_handle = nullptr;
    if (__tgt_get_interop_property(interop, property_context, &context_handle) != 0 ||
        __tgt_get_interop_property(interop, property_queue, &queue_handle) != 0) {
        *backend = runtime_none;
        return default_queue();
    }
    sycl::context* context =
        lookup_and_cache_zarth_context(context_handle, nullptr, qnd_gpu_backend_opencl, nullptr);
    return make_opencl_queue(queue_handle, *context, sycl::async_handler{});
}

}  // namespace

sycl::queue queue_from_interop(void* interop, std::int32_t* backend) {
    std::int32_t code = -1;
    const std::intptr_t runtime = omp_get_interop_int(interop, property_runtime, &code);
    *backend = static_cast<std::int32_t>(runtime);

    if (code == 0) {
        switch (runtime) {
            case runtime_opencl:
                return opencl_way(interop, backend);
            case runtime_driver:
                return driver_way(interop, backend);
            case runtime_sycl:
                return sycl_way(interop, backend);
            default:
                *backend = runtime_none;
                return default_queue();
        }
    }

    // No runtime number: the kind of property 8 decides; without one, backend stays as read.
    void* kind = nullptr;
    if (__tgt_get_interop_property(interop, property_kind, &kind) != 0 || kind == nullptr)
        return default_queue();
    switch (*static_cast<const std::int32_t*>(kind)) {
        case 1:
            *backend = runtime_opencl;
            return opencl_way(interop, backend);
        case 2:
            *backend = runtime_driver;
            return driver_way(interop, backend);
        default:
            *backend = runtime_none;
            return default_queue();
    }
}

}  // namespace tavrel::qnd::gpu::detail
