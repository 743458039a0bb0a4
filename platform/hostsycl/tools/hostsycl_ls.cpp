// hostsycl-ls: lists hostsycl's platforms and devices with their properties.
#include <cstdio>
#include <string>
#include <vector>

#include <sycl/sycl.hpp>

namespace {

const char* type_name(sycl::info::device_type t) {
    switch (t) {
        case sycl::info::device_type::cpu:
            return "cpu";
        case sycl::info::device_type::gpu:
            return "gpu";
        case sycl::info::device_type::accelerator:
            return "accelerator";
        default:
            return "other";
    }
}

const char* backend_name(sycl::backend b) {
    return b == sycl::backend::ext_hostsycl_native ? "ext_hostsycl_native" : "opencl";
}

void print_device(const sycl::device& d, int depth, std::size_t index) {
    namespace di = sycl::info::device;
    const std::string indent(static_cast<std::size_t>(depth) * 4, ' ');
    std::printf("%s  [%s:%s:%zu] %s\n", indent.c_str(), backend_name(d.get_backend()),
                type_name(d.get_info<di::device_type>()), index, d.get_info<di::name>().c_str());
    std::printf("%s      vendor: %s, driver %s\n", indent.c_str(), d.get_info<di::vendor>().c_str(),
                d.get_info<di::driver_version>().c_str());
    std::printf("%s      max_compute_units: %u, max_work_group_size: %zu\n", indent.c_str(),
                d.get_info<di::max_compute_units>(), d.get_info<di::max_work_group_size>());
    std::printf("%s      global_mem_size: %llu bytes, local_mem_size: %llu bytes\n", indent.c_str(),
                static_cast<unsigned long long>(d.get_info<di::global_mem_size>()),
                static_cast<unsigned long long>(d.get_info<di::local_mem_size>()));
    const auto props = d.get_info<di::partition_properties>();
    std::printf("%s      partition_properties:", indent.c_str());
    if (props.empty())
        std::printf(" none");
    for (auto p : props)
        std::printf(" %d", static_cast<int>(p));
    std::printf("\n");
    for (auto p : props) {
        if (p != sycl::info::partition_property::partition_by_affinity_domain)
            continue;
        const auto subs =
            d.create_sub_devices<sycl::info::partition_property::partition_by_affinity_domain>(
                sycl::info::partition_affinity_domain::next_partitionable);
        std::printf("%s      sub-devices by affinity domain next_partitionable: %zu\n",
                    indent.c_str(), subs.size());
        for (std::size_t i = 0; i < subs.size(); ++i)
            print_device(subs[i], depth + 1, i);
    }
}

}  // namespace

int main() {
    try {
        const auto platforms = sycl::platform::get_platforms();
        std::printf("%zu platform(s)\n", platforms.size());
        for (std::size_t p = 0; p < platforms.size(); ++p) {
            const auto& pl = platforms[p];
            std::printf("Platform %zu: %s (%s), backend %s (%d), version %s\n", p,
                        pl.get_info<sycl::info::platform::name>().c_str(),
                        pl.get_info<sycl::info::platform::vendor>().c_str(),
                        backend_name(pl.get_backend()), static_cast<int>(pl.get_backend()),
                        pl.get_info<sycl::info::platform::version>().c_str());
            const auto devices = pl.get_devices();
            for (std::size_t i = 0; i < devices.size(); ++i)
                print_device(devices[i], 0, i);
        }
        const sycl::device def;
        std::printf("Default device: %s\n", def.get_info<sycl::info::device::name>().c_str());
    } catch (const sycl::exception& e) {
        std::fprintf(stderr, "hostsycl-ls: %s\n", e.what());
        return 1;
    }
    return 0;
}
