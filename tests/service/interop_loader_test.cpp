// The interop loader over the complete double of the offload runtime: the load, its wrappers, the
// SVM variable, and the search of native devices among the SYCL devices.
#include <dlfcn.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "omptarget_double.h"
#include "service/interop_loader.hpp"
#include "service_test_support.hpp"

namespace {

using namespace tavrel::qnd::gpu::detail;
using namespace service_test;

TEST(load_interop_entries, binds_all_five_and_answers_alike_again) {
    EXPECT_EQ(load_interop_entries(), 0);
    EXPECT_EQ(load_interop_entries(), 0);
}

TEST(load_interop_entries, two_threads_at_once_get_the_same_answer) {
    std::atomic<bool> go{false};
    int results[2] = {-7, -7};
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&, t] {
            while (!go.load())
                std::this_thread::yield();
            results[t] = load_interop_entries();
        });
    }
    go = true;
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(results[0], 0);
    EXPECT_EQ(results[1], 0);
    // The library the entries came from is the double this program was linked with.
    void* self = dlopen("libomptarget.so", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(self, nullptr);
    EXPECT_NE(dlsym(self, "omptarget_double_new_interop"), nullptr);
    dlclose(self);
}

// The wrappers bind on first use without an explicit load, and pass arguments and results
// through unchanged.
TEST(interop_wrappers, call_through_with_arguments_unchanged) {
    void* interop = omptarget_double_new_interop(6);
    int marker = 0;
    omptarget_double_set_property(interop, 7, &marker);
    omptarget_double_set_int(interop, 10, 1234567890123);
    omptarget_double_fail_int(interop, 3, -5);

    std::int32_t code = 99;
    EXPECT_EQ(omp_get_interop_int(interop, property_runtime, &code), 6);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(omp_get_interop_int(interop, property_immediate, &code), 1234567890123);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(omp_get_interop_int(interop, 3, &code), 0);
    EXPECT_EQ(code, -5);

    void* result = nullptr;
    EXPECT_EQ(__tgt_get_interop_property(interop, property_device, &result), 0);
    EXPECT_EQ(result, &marker);
    omptarget_double_fail_property(interop, property_queue, 17);
    result = &marker + 1;
    EXPECT_EQ(__tgt_get_interop_property(interop, property_queue, &result), 17);
    EXPECT_EQ(result, &marker + 1);

    EXPECT_EQ(omp_get_interop_ptr(interop, property_device, &code), &marker);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(omp_get_interop_str(interop, property_device, &code), nullptr);
    EXPECT_EQ(code, -1);
    EXPECT_EQ(ompx_interop_add_completion_callback(
                  interop, [](void*) {}, nullptr),
              0);
    EXPECT_EQ(omptarget_double_callbacks(interop), 1);
    EXPECT_EQ(omptarget_double_int_queries(interop, property_immediate), 1);
    EXPECT_EQ(omptarget_double_property_queries(interop, property_queue), 1);
    omptarget_double_delete_interop(interop);
}

// Only the first character of LIBOMPTARGET_OPENCL_USE_SVM counts, and it is read on each call.
TEST(interop_memory_usable, first_character_one_asks_for_svm) {
    struct case_ {
        const char* value;  // null: unset
        int usable;
    };
    const case_ cases[] = {{"1", 0}, {"10", 0}, {"1x", 0},   {"01", 1},    {"0", 1},
                           {"", 1},  {" 1", 1}, {"true", 1}, {nullptr, 1}, {"1234567890123", 0}};
    for (const case_& c : cases) {
        if (c.value == nullptr)
            unsetenv("LIBOMPTARGET_OPENCL_USE_SVM");
        else
            setenv("LIBOMPTARGET_OPENCL_USE_SVM", c.value, 1);
        EXPECT_EQ(interop_memory_usable(), c.usable) << (c.value ? c.value : "(unset)");
    }
    unsetenv("LIBOMPTARGET_OPENCL_USE_SVM");
}

TEST(find_driver_device, finds_the_root_gpu_by_its_handle) {
    const sycl::device root = gpu();
    void* handle = native(root);
    const sycl::device found = find_driver_device(&handle);
    EXPECT_EQ(native(found), handle);
    EXPECT_TRUE(found == root);
}

// The second sub-device of the first root is found through the root's partition, depth first.
TEST(find_driver_device, finds_a_sub_device_and_a_sub_device_of_it) {
    constexpr auto by_affinity = sycl::info::partition_property::partition_by_affinity_domain;
    constexpr auto next = sycl::info::partition_affinity_domain::next_partitionable;
    const sycl::device root = gpu();
    const std::vector<sycl::device> subs = root.create_sub_devices<by_affinity>(next);
    ASSERT_GE(subs.size(), 2u);
    void* second = native(subs[1]);
    ASSERT_NE(second, native(root));
    EXPECT_EQ(native(find_driver_device(&second)), second);

    // One level further down when a sub-device is partitionable too.
    const auto properties = subs[1].get_info<sycl::info::device::partition_properties>();
    if (std::find(properties.begin(), properties.end(), by_affinity) != properties.end()) {
        const std::vector<sycl::device> tiles = subs[1].create_sub_devices<by_affinity>(next);
        ASSERT_FALSE(tiles.empty());
        void* last = native(tiles.back());
        EXPECT_EQ(native(find_driver_device(&last)), last);
    }
}

// Devices that no listed GPU leads to: an emulated GPU made aside, the CPU device (not a GPU),
// and a handle of nothing.
TEST(find_driver_device, unexposed_devices_are_refused_in_its_words) {
    const sycl::device aside = sycl::ext::hostsycl::make_gpu_device(16);
    const sycl::device cpu{sycl::cpu_selector_v};
    int nothing = 0;
    void* handles[] = {native(aside), native(cpu), &nothing};
    for (void* handle : handles) {
        try {
            find_driver_device(&handle);
            ADD_FAILURE() << "no exception for " << handle;
        } catch (const sycl::exception& e) {
            EXPECT_EQ(e.code(), sycl::make_error_code(sycl::errc::invalid));
            EXPECT_EQ(e.code().value(), 8);
            EXPECT_STREQ(e.what(), "Native device isn't exposed to SYCL.");
        }
    }
}

TEST(match_native_device, gives_nothing_for_a_device_that_does_not_lead_to_the_handle) {
    const sycl::device cpu{sycl::cpu_selector_v};
    void* gpu_handle = native(gpu());
    EXPECT_FALSE(match_native_device(cpu, &gpu_handle).has_value());
    void* cpu_handle = native(cpu);
    const std::optional<sycl::device> same = match_native_device(cpu, &cpu_handle);
    ASSERT_TRUE(same.has_value());
    EXPECT_TRUE(*same == cpu);
}

}  // namespace
