// Contexts: a set of devices with the handler of their asynchronous errors.
#pragma once
#pragma GCC visibility push(default)

#include <memory>
#include <vector>

#include <sycl/device.hpp>
#include <sycl/exception.hpp>
#include <sycl/types.hpp>

namespace sycl {

namespace detail {
struct context_impl;
struct context_access;
}  // namespace detail

class context {
  public:
    // A context of the default device.
    explicit context(const property_list& props = {});
    explicit context(const async_handler& handler, const property_list& props = {});
    explicit context(const device& dev, const property_list& props = {});
    context(const device& dev, const async_handler& handler, const property_list& props = {});
    explicit context(const std::vector<device>& devices, const property_list& props = {});
    context(const std::vector<device>& devices,
            const async_handler& handler,
            const property_list& props = {});

    backend get_backend() const noexcept;
    platform get_platform() const;
    std::vector<device> get_devices() const;

    friend bool operator==(const context& a, const context& b) { return a.impl_ == b.impl_; }
    friend bool operator!=(const context& a, const context& b) { return a.impl_ != b.impl_; }

  private:
    friend struct detail::context_access;
    explicit context(std::shared_ptr<detail::context_impl> impl) : impl_(std::move(impl)) {}
    std::shared_ptr<detail::context_impl> impl_;
};

}  // namespace sycl

namespace std {
template <>
struct hash<sycl::context> {
    std::size_t operator()(const sycl::context& c) const;
};
}  // namespace std

#pragma GCC visibility pop
