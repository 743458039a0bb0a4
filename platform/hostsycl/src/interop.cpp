// hostsycl's native layer and the interoperation calls: get_native, make_context, make_queue.
#include <algorithm>
#include <map>
#include <mutex>

#include <sycl/ext/hostsycl.hpp>
#include <sycl/interop.hpp>

#include "objects.hpp"

namespace sycl {
namespace detail {
namespace {

struct native_registry {
    std::mutex mutex;
    std::map<void*, std::weak_ptr<native_object>> objects;
};

native_registry& registry() {
    static auto* r = new native_registry;  // outlives every native object
    return *r;
}

void require_native_backend(backend b, const char* what) {
    if (b == backend::opencl)
        throw exception(errc::feature_not_supported,
                        std::string(what) +
                            ": the OpenCL backend (1) is not served by hostsycl; use "
                            "backend::ext_hostsycl_native (2).");
    if (b != backend::ext_hostsycl_native)
        throw exception(errc::feature_not_supported, std::string(what) + ": unknown backend " +
                                                         std::to_string(static_cast<int>(b)) + ".");
}

// The live native object behind `handle`, or errc::invalid.
std::shared_ptr<native_object> live_native(void* handle, const char* what) {
    std::shared_ptr<native_object> object = find_native(handle);
    if (!object || object->refs.load() == 0)
        throw exception(errc::invalid, std::string(what) +
                                           ": the handle is not a live native object of hostsycl.");
    return object;
}

}  // namespace

native_object::~native_object() = default;

native_context::~native_context() = default;

void register_native(void* handle, const std::shared_ptr<native_object>& object) {
    auto& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.objects[handle] = object;
}

std::shared_ptr<native_object> find_native(void* handle) {
    auto& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.objects.find(handle);
    if (it == r.objects.end())
        return nullptr;
    auto object = it->second.lock();
    if (!object)
        r.objects.erase(it);
    return object;
}

std::shared_ptr<native_context> make_native_context(const std::vector<device>& devices) {
    auto c = std::make_shared<native_context>();
    c->devices = devices;
    register_native(c.get(), c);
    return c;
}

std::shared_ptr<native_queue> make_native_queue(const device& dev) {
    auto q = std::make_shared<native_queue>(dev);
    register_native(static_cast<native_object*>(q.get()), q);
    return q;
}

void release_native_ref(native_object& object) noexcept {
    std::size_t n = object.refs.load();
    while (n > 0 && !object.refs.compare_exchange_weak(n, n - 1)) {
    }
}

void* native_of(const device& d, backend b) {
    if (b != backend::ext_hostsycl_native)
        throw exception(errc::backend_mismatch, "Backends mismatch");
    return device_access::impl(d);
}

void* native_of(const context& c, backend b) {
    if (b != backend::ext_hostsycl_native)
        throw exception(errc::backend_mismatch, "Backends mismatch");
    return static_cast<native_object*>(context_access::impl(c)->native.get());
}

void* native_of(const queue& q, backend b) {
    if (b != backend::ext_hostsycl_native)
        throw exception(errc::backend_mismatch, "Backends mismatch");
    return static_cast<native_object*>(queue_access::impl(q)->native.get());
}

context make_context(native_handle handle,
                     const async_handler& handler,
                     backend b,
                     bool keep_ownership,
                     const std::vector<device>& devices) {
    require_native_backend(b, "make_context");
    auto object = live_native(reinterpret_cast<void*>(handle), "make_context");
    auto native = std::dynamic_pointer_cast<native_context>(object);
    if (!native)
        throw exception(errc::invalid, "make_context: the handle is not a native context.");
    auto impl = std::make_shared<context_impl>();
    impl->devices = devices.empty() ? native->devices : devices;
    impl->handler = handler;
    impl->native = std::move(native);
    impl->owns_native_ref = !keep_ownership;
    return context_access::make(std::move(impl));
}

queue make_queue(native_handle handle,
                 std::int32_t,
                 const context& ctx,
                 const device* dev,
                 bool keep_ownership,
                 const property_list&,
                 const async_handler& handler,
                 backend b) {
    require_native_backend(b, "make_queue");
    auto object = live_native(reinterpret_cast<void*>(handle), "make_queue");
    auto native = std::dynamic_pointer_cast<native_queue>(object);
    if (!native)
        throw exception(errc::invalid, "make_queue: the handle is not a native queue.");
    if (dev != nullptr && *dev != native->dev)
        throw exception(errc::invalid, "make_queue: the device is not the native queue's device.");
    const auto devices = ctx.get_devices();
    if (std::find(devices.begin(), devices.end(), native->dev) == devices.end())
        throw exception(errc::invalid,
                        "make_queue: the native queue's device is not one of the context's "
                        "devices.");
    auto impl = std::make_shared<queue_impl>(native->dev, ctx);
    impl->handler = handler;
    impl->native = std::move(native);
    impl->owns_native_ref = !keep_ownership;
    return queue_access::make(std::move(impl));
}

}  // namespace detail

namespace ext {
namespace hostsycl {

std::size_t native_retain(void* handle) {
    auto object = detail::live_native(handle, "native_retain");
    return object->refs.fetch_add(1) + 1;
}

std::size_t native_release(void* handle) {
    auto object = detail::find_native(handle);
    if (!object || object->refs.load() == 0)
        throw sycl::exception(
            errc::invalid, "native_release: the handle is not a live native object of hostsycl.");
    detail::release_native_ref(*object);
    return object->refs.load();
}

std::size_t native_reference_count(void* handle) {
    auto object = detail::find_native(handle);
    if (!object)
        throw sycl::exception(errc::invalid,
                              "native_reference_count: the handle is not a native object of "
                              "hostsycl.");
    return object->refs.load();
}

}  // namespace hostsycl
}  // namespace ext
}  // namespace sycl
