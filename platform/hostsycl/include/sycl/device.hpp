// Devices, the platform that holds them, and the standard device selectors.
#pragma once
#pragma GCC visibility push(default)

#include <cstddef>
#include <functional>
#include <type_traits>
#include <vector>

#include <sycl/info.hpp>
#include <sycl/types.hpp>

namespace sycl {

namespace detail {
struct device_impl;
struct device_access;
}  // namespace detail

// Selectors score a device; the highest non-negative score wins, ties go to the first listed.
int default_selector_v(const device& dev);
int gpu_selector_v(const device& dev);
int cpu_selector_v(const device& dev);
int accelerator_selector_v(const device& dev);

class device {
  public:
    // The device of default_selector_v.
    device();
    template <
        typename Selector,
        typename = std::enable_if_t<std::is_invocable_r_v<int, const Selector&, const device&>>>
    explicit device(const Selector& selector)
        : device(select(std::function<int(const device&)>(selector))) {}

    bool is_cpu() const;
    bool is_gpu() const;
    bool is_accelerator() const;
    platform get_platform() const;
    backend get_backend() const noexcept;

    template <typename Param>
    typename Param::return_type get_info() const;

    // Splits the device by affinity domain; only the emulated GPU and its tiles can be split.
    template <info::partition_property Prop>
    std::vector<device> create_sub_devices(info::partition_affinity_domain domain) const;

    static std::vector<device> get_devices(info::device_type type = info::device_type::all);

    friend bool operator==(const device& a, const device& b) { return a.impl_ == b.impl_; }
    friend bool operator!=(const device& a, const device& b) { return a.impl_ != b.impl_; }

  private:
    friend struct detail::device_access;
    explicit device(detail::device_impl* impl) : impl_(impl) {}
    static device select(const std::function<int(const device&)>& selector);
    std::vector<device> partition_by_affinity(info::partition_affinity_domain domain) const;

    detail::device_impl* impl_;  // devices live as long as the process
};

template <info::partition_property Prop>
std::vector<device> device::create_sub_devices(info::partition_affinity_domain domain) const {
    static_assert(Prop == info::partition_property::partition_by_affinity_domain,
                  "this form of create_sub_devices takes partition_by_affinity_domain");
    return partition_by_affinity(domain);
}

#define HOSTSYCL_DEVICE_INFO(Param) \
    template <>                     \
    Param::return_type device::get_info<Param>() const;
HOSTSYCL_DEVICE_INFO(info::device::device_type)
HOSTSYCL_DEVICE_INFO(info::device::vendor_id)
HOSTSYCL_DEVICE_INFO(info::device::max_compute_units)
HOSTSYCL_DEVICE_INFO(info::device::max_work_item_dimensions)
HOSTSYCL_DEVICE_INFO(info::device::max_work_group_size)
HOSTSYCL_DEVICE_INFO(info::device::global_mem_size)
HOSTSYCL_DEVICE_INFO(info::device::local_mem_size)
HOSTSYCL_DEVICE_INFO(info::device::name)
HOSTSYCL_DEVICE_INFO(info::device::vendor)
HOSTSYCL_DEVICE_INFO(info::device::driver_version)
HOSTSYCL_DEVICE_INFO(info::device::version)
HOSTSYCL_DEVICE_INFO(info::device::partition_max_sub_devices)
HOSTSYCL_DEVICE_INFO(info::device::partition_properties)
HOSTSYCL_DEVICE_INFO(info::device::partition_affinity_domains)
HOSTSYCL_DEVICE_INFO(info::device::partition_type_property)
HOSTSYCL_DEVICE_INFO(info::device::partition_type_affinity_domain)
HOSTSYCL_DEVICE_INFO(info::device::parent_device)
HOSTSYCL_DEVICE_INFO(info::device::platform)
#undef HOSTSYCL_DEVICE_INFO

class platform {
  public:
    // The platform of the default device.
    platform();
    template <
        typename Selector,
        typename = std::enable_if_t<std::is_invocable_r_v<int, const Selector&, const device&>>>
    explicit platform(const Selector& selector) : platform(device(selector).get_platform()) {}

    backend get_backend() const noexcept;
    std::vector<device> get_devices(info::device_type type = info::device_type::all) const;
    template <typename Param>
    typename Param::return_type get_info() const;

    static std::vector<platform> get_platforms();

    friend bool operator==(const platform&, const platform&) { return true; }  // there is one
    friend bool operator!=(const platform&, const platform&) { return false; }
};

template <>
std::string platform::get_info<info::platform::name>() const;
template <>
std::string platform::get_info<info::platform::vendor>() const;
template <>
std::string platform::get_info<info::platform::version>() const;
template <>
std::string platform::get_info<info::platform::profile>() const;

}  // namespace sycl

namespace std {
template <>
struct hash<sycl::device> {
    std::size_t operator()(const sycl::device& d) const;
};
}  // namespace std

#pragma GCC visibility pop
