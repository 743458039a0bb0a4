// Contexts: SYCL views of a native context, each with its own asynchronous handler.
#include <algorithm>

#include "objects.hpp"

namespace sycl {
namespace detail {
namespace {

std::shared_ptr<context_impl> new_context(const std::vector<device>& devices,
                                          const async_handler& handler) {
    if (devices.empty())
        throw exception(errc::invalid, "A context needs at least one device.");
    auto impl = std::make_shared<context_impl>();
    impl->devices = devices;
    impl->handler = handler;
    impl->native = make_native_context(devices);
    return impl;
}

}  // namespace

context_impl::~context_impl() {
    if (owns_native_ref && native)
        release_native_ref(*native);
}

}  // namespace detail

context::context(const property_list&) : context(device(), async_handler(), property_list()) {}
context::context(const async_handler& handler, const property_list&)
    : context(device(), handler, property_list()) {}
context::context(const device& dev, const property_list&)
    : context(dev, async_handler(), property_list()) {}
context::context(const device& dev, const async_handler& handler, const property_list&)
    : impl_(detail::new_context({dev}, handler)) {}
context::context(const std::vector<device>& devices, const property_list&)
    : impl_(detail::new_context(devices, async_handler())) {}
context::context(const std::vector<device>& devices,
                 const async_handler& handler,
                 const property_list&)
    : impl_(detail::new_context(devices, handler)) {}

backend context::get_backend() const noexcept {
    return backend::ext_hostsycl_native;
}
platform context::get_platform() const {
    return platform();
}
std::vector<device> context::get_devices() const {
    return impl_->devices;
}

}  // namespace sycl

std::size_t std::hash<sycl::context>::operator()(const sycl::context& c) const {
    return std::hash<const void*>()(sycl::detail::context_access::impl(c).get());
}
