// The platform and its devices: the CPU device, the emulated GPU, its sub-devices, selectors.
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <sycl/ext/hostsycl.hpp>

#include "objects.hpp"

namespace sycl {
namespace detail {
namespace {

constexpr std::size_t default_gpu_work_group_size = 256;
constexpr std::uint64_t global_memory_bytes = std::uint64_t(16) << 30;
constexpr std::uint64_t local_memory_bytes = 64 * 1024;

std::uint32_t core_count() {
    const unsigned n = std::thread::hardware_concurrency();
    return n == 0 ? 1 : n;
}

// HOSTSYCL_GPU_MAX_WORK_GROUP_SIZE: a whole number of at least 2; anything else keeps 256.
std::size_t gpu_work_group_size_from_environment() {
    const char* text = std::getenv("HOSTSYCL_GPU_MAX_WORK_GROUP_SIZE");
    if (text == nullptr || *text == '\0')
        return default_gpu_work_group_size;
    char* end = nullptr;
    const unsigned long long v = std::strtoull(text, &end, 10);
    if (*end != '\0' || v < 2 || text[0] == '-')
        return default_gpu_work_group_size;
    return static_cast<std::size_t>(v);
}

// Every device made stays reachable here: devices live as long as the process.
device_impl* keep(device_impl* d) {
    static std::mutex m;
    static auto* kept = new std::vector<device_impl*>;
    std::lock_guard<std::mutex> lock(m);
    kept->push_back(d);
    return d;
}

device_impl* make_gpu(std::size_t max_work_group_size, std::string name) {
    auto* d = keep(new device_impl);
    d->name = std::move(name);
    d->type = info::device_type::gpu;
    d->max_work_group_size = max_work_group_size;
    d->compute_units = core_count();
    d->split_levels = 2;  // root -> tiles -> slices
    return d;
}

struct device_table {
    device_impl* cpu;
    device_impl* gpu;
    device_table() {
        cpu = keep(new device_impl);
        cpu->name = "hostsycl CPU";
        cpu->type = info::device_type::cpu;
        cpu->max_work_group_size = 8192;
        cpu->compute_units = core_count();
        gpu = make_gpu(gpu_work_group_size_from_environment(), "hostsycl emulated GPU");
    }
};

const device_table& devices() {
    static const device_table table;
    return table;
}

}  // namespace

device_impl* emulated_gpu(std::size_t max_work_group_size) {
    return make_gpu(max_work_group_size, "hostsycl emulated GPU (work-groups of " +
                                             std::to_string(max_work_group_size) + ")");
}

}  // namespace detail

int default_selector_v(const device& dev) {
    return dev.is_gpu() ? 500 : dev.is_cpu() ? 300 : 100;
}
int gpu_selector_v(const device& dev) {
    return dev.is_gpu() ? 1000 : -1;
}
int cpu_selector_v(const device& dev) {
    return dev.is_cpu() ? 1000 : -1;
}
int accelerator_selector_v(const device& dev) {
    return dev.is_accelerator() ? 1000 : -1;
}

device::device() : device(select(default_selector_v)) {}

device device::select(const std::function<int(const device&)>& selector) {
    int best_score = -1;
    detail::device_impl* best = nullptr;
    for (const device& d : get_devices()) {
        const int score = selector(d);
        if (score > best_score) {
            best_score = score;
            best = d.impl_;
        }
    }
    if (best == nullptr)
        throw exception(errc::runtime, "No device of requested type available.");
    return device(best);
}

bool device::is_cpu() const {
    return impl_->type == info::device_type::cpu;
}
bool device::is_gpu() const {
    return impl_->type == info::device_type::gpu;
}
bool device::is_accelerator() const {
    return impl_->type == info::device_type::accelerator;
}
platform device::get_platform() const {
    return platform();
}
backend device::get_backend() const noexcept {
    return backend::ext_hostsycl_native;
}

std::vector<device> device::get_devices(info::device_type type) {
    return platform().get_devices(type);
}

std::vector<device> device::partition_by_affinity(info::partition_affinity_domain domain) const {
    if (impl_->split_levels == 0)
        throw exception(errc::feature_not_supported, "Device '" + impl_->name +
                                                         "' cannot be partitioned; its "
                                                         "partition_properties are empty.");
    if (domain != info::partition_affinity_domain::next_partitionable &&
        domain != info::partition_affinity_domain::numa)
        throw exception(errc::feature_not_supported, "Device '" + impl_->name +
                                                         "' is partitioned by affinity domain "
                                                         "next_partitionable or numa only.");
    // Sub-devices are made once, so that their handles and native handles stay the same.
    std::call_once(impl_->split_once, [this] {
        const char* level = impl_->split_levels == 2 ? "tile" : "slice";
        for (int i = 0; i < 2; ++i) {
            auto* s = new detail::device_impl;
            s->name = impl_->name + ", " + level + " " + std::to_string(i);
            s->type = impl_->type;
            s->max_work_group_size = impl_->max_work_group_size;
            s->compute_units = std::max<std::uint32_t>(1, impl_->compute_units / 2);
            s->parent = impl_;
            s->split_levels = impl_->split_levels - 1;
            impl_->sub_devices.push_back(s);
        }
    });
    std::vector<device> result;
    for (detail::device_impl* s : impl_->sub_devices)
        result.push_back(device(s));
    return result;
}

template <>
info::device_type device::get_info<info::device::device_type>() const {
    return impl_->type;
}
template <>
std::uint32_t device::get_info<info::device::vendor_id>() const {
    return 0x4853;  // "HS"
}
template <>
std::uint32_t device::get_info<info::device::max_compute_units>() const {
    return impl_->compute_units;
}
template <>
std::uint32_t device::get_info<info::device::max_work_item_dimensions>() const {
    return 1;
}
template <>
std::size_t device::get_info<info::device::max_work_group_size>() const {
    return impl_->max_work_group_size;
}
template <>
std::uint64_t device::get_info<info::device::global_mem_size>() const {
    return detail::global_memory_bytes;
}
template <>
std::uint64_t device::get_info<info::device::local_mem_size>() const {
    return detail::local_memory_bytes;
}
template <>
std::string device::get_info<info::device::name>() const {
    return impl_->name;
}
template <>
std::string device::get_info<info::device::vendor>() const {
    return "hostsycl";
}
template <>
std::string device::get_info<info::device::driver_version>() const {
    return "1.0";
}
template <>
std::string device::get_info<info::device::version>() const {
    return "1.0";
}
template <>
std::uint32_t device::get_info<info::device::partition_max_sub_devices>() const {
    return impl_->split_levels > 0 ? 2 : 0;
}
template <>
std::vector<info::partition_property> device::get_info<info::device::partition_properties>() const {
    if (impl_->split_levels > 0)
        return {info::partition_property::partition_by_affinity_domain};
    return {};
}
template <>
std::vector<info::partition_affinity_domain>
device::get_info<info::device::partition_affinity_domains>() const {
    if (impl_->split_levels > 0)
        return {info::partition_affinity_domain::numa,
                info::partition_affinity_domain::next_partitionable};
    return {};
}
template <>
info::partition_property device::get_info<info::device::partition_type_property>() const {
    return impl_->parent ? info::partition_property::partition_by_affinity_domain
                         : info::partition_property::no_partition;
}
template <>
info::partition_affinity_domain device::get_info<info::device::partition_type_affinity_domain>()
    const {
    return impl_->parent ? info::partition_affinity_domain::next_partitionable
                         : info::partition_affinity_domain::not_applicable;
}
template <>
device device::get_info<info::device::parent_device>() const {
    if (impl_->parent == nullptr)
        throw exception(errc::invalid, "Device '" + impl_->name + "' is a root device.");
    return device(impl_->parent);
}
template <>
platform device::get_info<info::device::platform>() const {
    return platform();
}

platform::platform() = default;

backend platform::get_backend() const noexcept {
    return backend::ext_hostsycl_native;
}

std::vector<device> platform::get_devices(info::device_type type) const {
    const auto& t = detail::devices();
    std::vector<device> all{detail::device_access::make(t.cpu), detail::device_access::make(t.gpu)};
    if (type == info::device_type::all)
        return all;
    std::vector<device> chosen;
    for (const device& d : all)
        if (d.get_info<info::device::device_type>() == type)
            chosen.push_back(d);
    return chosen;
}

std::vector<platform> platform::get_platforms() {
    return {platform()};
}

template <>
std::string platform::get_info<info::platform::name>() const {
    return "hostsycl";
}
template <>
std::string platform::get_info<info::platform::vendor>() const {
    return "hostsycl";
}
template <>
std::string platform::get_info<info::platform::version>() const {
    return "SYCL 2020 subset on host threads, 1.0";
}
template <>
std::string platform::get_info<info::platform::profile>() const {
    return "FULL_PROFILE";
}

}  // namespace sycl

std::size_t std::hash<sycl::device>::operator()(const sycl::device& d) const {
    return std::hash<const void*>()(sycl::detail::device_access::impl(d));
}

namespace sycl {
namespace ext {
namespace hostsycl {

sycl::device make_gpu_device(std::size_t max_work_group_size) {
    if (max_work_group_size == 0)
        throw sycl::exception(errc::invalid, "make_gpu_device: max_work_group_size must be >= 1.");
    return detail::device_access::make(detail::emulated_gpu(max_work_group_size));
}

}  // namespace hostsycl
}  // namespace ext
}  // namespace sycl
