// The interop loader over the complete double of the offload runtime: the load and its wrappers,
// the SVM variable, and the search of native devices among the SYCL devices.
#include <stdlib.h>

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "omptarget_double_sycl.hpp"
#include "service/interop_loader.hpp"

namespace {

using namespace tavrel::qnd::gpu::detail;
using namespace omptarget_double;

// The wrappers bind on first use and pass arguments and results through unchanged; the load
// then answers 0, and again on a later call.
TEST(service_interop_loader, wrappers_call_the_runtime_with_arguments_unchanged) {
    const interop_ptr interop = new_interop(6);
    omptarget_double_interop* const i = interop.get();
    int marker = 0;
    pointer_of(interop, property_device) = pointing_at(&marker);
    pointer_of(interop, property_queue) = {0, 17, 0};
    int_of(interop, 3) = {1234567890123, -5, 0};
    std::int32_t code = 99;
    EXPECT_EQ(omp_get_interop_int(i, property_runtime, &code), 6);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(omp_get_interop_int(i, 3, &code), 1234567890123);
    EXPECT_EQ(code, -5);
    void* result = &code;
    EXPECT_EQ(__tgt_get_interop_property(i, property_queue, &result), 17);
    EXPECT_EQ(result, &code);
    EXPECT_EQ(__tgt_get_interop_property(i, property_device, &result), 0);
    EXPECT_EQ(result, &marker);
    EXPECT_EQ(omp_get_interop_ptr(i, property_device, &code), &marker);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(omp_get_interop_str(i, property_device, &code), nullptr);
    EXPECT_EQ(code, -1);
    EXPECT_EQ(ompx_interop_add_completion_callback(
                  i, [](void*) {}, nullptr),
              0);
    EXPECT_EQ(ompx_interop_add_completion_callback(i, nullptr, nullptr), -1);
    EXPECT_EQ(load_interop_entries(), 0);
    EXPECT_EQ(load_interop_entries(), 0);
}

// Only the first character of LIBOMPTARGET_OPENCL_USE_SVM counts, and it is read on each call.
TEST(service_interop_loader, memory_is_unusable_when_the_svm_variable_starts_with_1) {
    const std::pair<const char*, int> cases[] = {
        {"1", 0}, {"10", 0}, {"1x", 0},   {"01", 1},    {"0", 1},
        {"", 1},  {" 1", 1}, {"true", 1}, {nullptr, 1}, {"1234567890123", 0}};
    for (const auto& [value, usable] : cases) {
        if (value != nullptr)
            setenv("LIBOMPTARGET_OPENCL_USE_SVM", value, 1);
        else
            unsetenv("LIBOMPTARGET_OPENCL_USE_SVM");
        EXPECT_EQ(interop_memory_usable(), usable) << (value ? value : "unset");
    }
}

// Root devices, and their sub-devices by affinity domain depth first, are found by handle; a
// device is its own match, and no sub-device of the CPU device leads to the GPU.
TEST(service_interop_loader, driver_devices_are_found_among_roots_and_sub_devices) {
    constexpr auto by_affinity = sycl::info::partition_property::partition_by_affinity_domain;
    constexpr auto next = sycl::info::partition_affinity_domain::next_partitionable;
    const sycl::device root{sycl::gpu_selector_v};
    std::vector<sycl::device> wanted{root, root.create_sub_devices<by_affinity>(next).at(1)};
    const auto properties = wanted[1].get_info<sycl::info::device::partition_properties>();
    if (std::find(properties.begin(), properties.end(), by_affinity) != properties.end())
        wanted.push_back(wanted[1].create_sub_devices<by_affinity>(next).back());
    for (const sycl::device& device : wanted) {
        void* handle = native(device);
        EXPECT_EQ(native(find_driver_device(&handle)), handle);
    }
    const sycl::device cpu{sycl::cpu_selector_v};
    void* handles[] = {native(cpu), native(root)};
    EXPECT_TRUE(match_native_device(cpu, &handles[0]).value() == cpu);
    EXPECT_FALSE(match_native_device(cpu, &handles[1]).has_value());
}

// Devices that no listed GPU leads to: an emulated GPU made aside, the CPU device (not a GPU),
// and a handle of nothing.
TEST(service_interop_loader, unexposed_devices_are_refused_in_their_words) {
    const sycl::device aside = sycl::ext::hostsycl::make_gpu_device(16);
    const sycl::device cpu{sycl::cpu_selector_v};
    int nothing = 0;
    for (void* handle : {native(aside), native(cpu), static_cast<void*>(&nothing)}) {
        try {
            find_driver_device(&handle);
            ADD_FAILURE() << "no exception for " << handle;
        } catch (const sycl::exception& e) {
            EXPECT_EQ(e.code(), sycl::make_error_code(sycl::errc::invalid));
            EXPECT_STREQ(e.what(), "Native device isn't exposed to SYCL.");
        }
    }
}

}  // namespace
