// The caches of contexts and queues and the three exported functions that fill and read them.
#include "service/cache.hpp"

#include <memory>
#include <utility>

#include "service/interop_loader.hpp"
#include "tavrel/qnd/gpu.hpp"

namespace tavrel::qnd::gpu::detail {

cache_pair<sycl::context, sycl::queue> service_caches;
rw_spin_word context_cache_word{0};
rw_spin_word queue_cache_word{0};

std::int32_t driver_queue_description(void* interop) {
    std::int32_t code = -1;
    const std::intptr_t immediate = omp_get_interop_int(interop, property_immediate, &code);
    return immediate != 0 && code == 0 ? 1 : 0;
}

sycl::queue make_driver_queue(void* native_queue, const sycl::context& context, void* interop) {
    return make_driver_queue_of(native_queue, driver_queue_description(interop), context);
}

namespace {

// The heap object that the first caller of a key gets and keeps: the library never frees it.
// Made here alone, so that a leak checker can be told of exactly these objects.
template <typename Value>
std::unique_ptr<Value> first_caller_object(Value&& made) {
    return std::make_unique<Value>(std::move(made));
}

// The cached value of `key` under a read lock, or null. The address stays good after the
// release: nodes never move.
template <typename Value, typename Key>
Value* find_under_read_lock(pointer_hash_map<Key, Value>& map, rw_spin_word& word, const Key& key) {
    read_lock(word);
    Value* found = map.find(key);
    read_unlock(word);
    return found;
}

// The cached value of `key`, or one made by `make` under the write lock. A miss makes the
// object on the heap and copies it into a default-inserted entry: the first caller for a key
// gets the heap object, which is never freed, later callers the entry. Both are handles of one
// runtime object. An exception from `make` leaves the word locked.
template <typename Value, typename Key, typename Make>
Value* find_or_make(pointer_hash_map<Key, Value>& map,
                    rw_spin_word& word,
                    const Key& key,
                    Make make) {
    if (Value* found = find_under_read_lock(map, word, key))
        return found;
    write_lock(word);
    if (Value* found = map.find(key)) {
        write_unlock(word);
        return found;
    }
    auto made = first_caller_object(make());
    map.find_or_insert(key) = *made;
    write_unlock(word);
    return made.release();
}

}  // namespace

}  // namespace tavrel::qnd::gpu::detail

namespace tavrel::qnd::gpu {

using namespace detail;

sycl::context* lookup_and_cache_zarth_context(void* native_context,
                                              void* native_device,
                                              qnd_gpu_backend_t backend,
                                              sycl::device* device) {
    return find_or_make(service_caches.context_cache, context_cache_word,
                        context_key{native_context, native_device}, [&] {
                            return backend == qnd_gpu_backend_driver
                                       ? make_driver_context(native_context, *device)
                                       : make_opencl_context(native_context);
                        });
}

sycl::queue* lookup_and_cache_zarth_queue(void* native_queue,
                                          qnd_gpu_backend_t backend,
                                          sycl::context context,
                                          void* interop) {
    return find_or_make(service_caches.queue_cache, queue_cache_word, queue_key{native_queue}, [&] {
        return backend == qnd_gpu_backend_driver
                   ? make_driver_queue(native_queue, context, interop)
                   : make_opencl_queue(native_queue, context, sycl::async_handler{});
    });
}

sycl::queue* lookup_and_cache_zarth_queue_and_context(void* interop) {
    // The kind is read without a test of the pointer; everything but 2 is taken as OpenCL.
    void* kind = nullptr;
    if (__tgt_get_interop_property(interop, property_kind, &kind) != 0)
        return nullptr;
    const std::int32_t k = *static_cast<const std::int32_t*>(kind);
    const bool driver = k == 2;

    void* device_handle = nullptr;
    void* context_handle = nullptr;
    void* queue_handle = nullptr;
    if (driver) {
        if (__tgt_get_interop_property(interop, property_context, &context_handle) != 0 ||
            __tgt_get_interop_property(interop, property_queue, &queue_handle) != 0 ||
            __tgt_get_interop_property(interop, property_device, &device_handle) != 0)
            return nullptr;
    } else {
        if (__tgt_get_interop_property(interop, property_opencl_context, &context_handle) != 0 ||
            __tgt_get_interop_property(interop, property_queue, &queue_handle) != 0)
            return nullptr;
    }

    const queue_key queue_key_{queue_handle};
    auto& queues = service_caches.queue_cache;
    if (sycl::queue* found = find_under_read_lock(queues, queue_cache_word, queue_key_))
        return found;

    // The context: cached, or made under the context cache's write lock.
    sycl::context context{sycl::property_list{}};
    const context_key context_key_{context_handle, device_handle};
    auto& contexts = service_caches.context_cache;
    read_lock(context_cache_word);
    if (sycl::context* found = contexts.find(context_key_)) {
        context = *found;
        read_unlock(context_cache_word);
    } else {
        read_unlock(context_cache_word);
        write_lock(context_cache_word);
        if (sycl::context* found_now = contexts.find(context_key_)) {
            context = *found_now;
        } else {
            // An exception from here on leaves the word locked.
            if (driver) {
                const sycl::device device = find_driver_device(&device_handle);
                context = make_driver_context(context_handle, device);
            } else {
                context = make_opencl_context(context_handle);
            }
            contexts.find_or_insert(context_key_) = context;
        }
        write_unlock(context_cache_word);
    }

    // The queue, unless another thread made it meanwhile.
    write_lock(queue_cache_word);
    if (sycl::queue* found = queues.find(queue_key_)) {
        write_unlock(queue_cache_word);
        return found;
    }
    auto made = first_caller_object(
        driver ? make_driver_queue(queue_handle, context, interop)
               : make_opencl_queue(queue_handle, context, sycl::async_handler{}));
    queues.find_or_insert(queue_key_) = *made;
    write_unlock(queue_cache_word);
    return made.release();
}

}  // namespace tavrel::qnd::gpu
