// The devices that the engine tests run on: the default emulated GPU, emulated GPUs of tiny
// work-group sizes that walk every branch of the launch tree, and the CPU device, with names for
// tests parameterised by device.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <sycl/sycl.hpp>

namespace qnd_test {

// The default emulated GPU first, then emulated GPUs of small work-group sizes.
inline std::vector<sycl::device> test_gpus() {
    std::vector<sycl::device> devices{sycl::device(sycl::gpu_selector_v)};
    for (std::size_t size : {2, 3, 8, 32})
        devices.push_back(sycl::ext::hostsycl::make_gpu_device(size));
    return devices;
}

inline sycl::device cpu_device() {
    return sycl::device(sycl::cpu_selector_v);
}

inline std::size_t group_size_of(const sycl::device& device) {
    return device.get_info<sycl::info::device::max_work_group_size>();
}

// A readable test-name suffix for a device.
inline std::string device_label(const sycl::device& device) {
    return (device.is_gpu() ? "gpu" : "cpu") + std::to_string(group_size_of(device));
}

// The CPU device, then test_gpus(): every device that an estimator test runs on.
inline std::vector<sycl::device> test_devices() {
    std::vector<sycl::device> devices = test_gpus();
    devices.insert(devices.begin(), cpu_device());
    return devices;
}

// Names the instances of a test parameterised by device after the device ("gpu3").
struct device_name {
    template <typename Info>
    std::string operator()(const Info& info) const {
        return device_label(info.param);
    }
};

}  // namespace qnd_test
