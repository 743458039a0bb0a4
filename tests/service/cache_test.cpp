// The caches of contexts and queues through the three exported functions, on hostsycl's native
// handles: first and later callers, keys, the driver-runtime forms, failures and concurrency.
#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "omptarget_double.h"
#include "omptarget_double_sycl.hpp"
#include "service/cache.hpp"
#include "service_test_support.hpp"
#include "tavrel/qnd/gpu.hpp"

namespace {

using namespace tavrel::qnd::gpu;
using namespace tavrel::qnd::gpu::detail;
using namespace service_test;

// The first caller gets the heap object, later callers the entry; both are one context.
TEST(context_cache, first_caller_gets_its_own_copy_later_callers_the_entry) {
    const std::size_t contexts_before = service_caches.context_cache.size;
    const sycl::queue queue = fresh_gpu_queue();
    sycl::device device = queue.get_device();
    void* context = native(queue.get_context());
    void* device_handle = native(device);
    sycl::context* first =
        lookup_and_cache_zarth_context(context, device_handle, qnd_gpu_backend_driver, &device);
    sycl::context* second =
        lookup_and_cache_zarth_context(context, device_handle, qnd_gpu_backend_driver, &device);
    sycl::context* third =
        lookup_and_cache_zarth_context(context, device_handle, qnd_gpu_backend_driver, &device);
    EXPECT_NE(first, second);
    EXPECT_EQ(second, third);
    EXPECT_TRUE(*first == *second);
    EXPECT_EQ(native(*first), context);
    EXPECT_EQ(first->get_devices(), std::vector<sycl::device>{device});
    EXPECT_EQ(service_caches.context_cache.size, contexts_before + 1);
    // On a hit the device is not looked at.
    EXPECT_EQ(
        lookup_and_cache_zarth_context(context, device_handle, qnd_gpu_backend_driver, nullptr),
        second);
    EXPECT_EQ(context_cache_word.load(), 0u);
}

// One native context with two devices: two entries, each a context of its one device.
TEST(context_cache, one_native_context_with_two_devices_gives_two_entries) {
    const std::size_t contexts_before = service_caches.context_cache.size;
    const sycl::device gpu_device = gpu();
    const sycl::device cpu_device{sycl::cpu_selector_v};
    const sycl::context both({gpu_device, cpu_device});
    void* context = native(both);
    sycl::device a = gpu_device;
    sycl::device b = cpu_device;
    sycl::context* for_a =
        lookup_and_cache_zarth_context(context, native(a), qnd_gpu_backend_driver, &a);
    sycl::context* for_b =
        lookup_and_cache_zarth_context(context, native(b), qnd_gpu_backend_driver, &b);
    EXPECT_FALSE(*for_a == *for_b);
    EXPECT_EQ(for_a->get_devices(), std::vector<sycl::device>{a});
    EXPECT_EQ(for_b->get_devices(), std::vector<sycl::device>{b});
    EXPECT_EQ(service_caches.context_cache.size, contexts_before + 2);
    // The native context stays with its owner: no reference was taken over.
    EXPECT_EQ(sycl::ext::hostsycl::native_reference_count(context), 1u);
}

TEST(driver_queue_description, immediate_only_for_a_non_zero_value_with_code_0) {
    struct case_ {
        bool fails;
        std::intptr_t value;
        std::int32_t description;
    };
    const case_ cases[] = {{false, 1, 1}, {false, 7, 1}, {false, 0, 0}, {true, 1, 0}};
    for (const case_& c : cases) {
        void* interop = omptarget_double_new_interop(6);
        if (c.fails)
            omptarget_double_fail_int_with_value(interop, 10, -3, c.value);
        else
            omptarget_double_set_int(interop, 10, c.value);
        EXPECT_EQ(driver_queue_description(interop), c.description) << c.fails << " " << c.value;
        EXPECT_EQ(omptarget_double_int_queries(interop, 10), 1);
        omptarget_double_delete_interop(interop);
    }
}

// The queue is keyed by the native queue alone; the context of a later call is not looked at.
TEST(queue_cache, driver_queue_on_the_context_and_its_first_device) {
    const std::size_t queues_before = service_caches.queue_cache.size;
    const sycl::queue queue = fresh_gpu_queue();
    sycl::device device = queue.get_device();
    sycl::context* context = lookup_and_cache_zarth_context(
        native(queue.get_context()), native(device), qnd_gpu_backend_driver, &device);
    void* interop = omptarget_double::driver_interop(queue, true);
    sycl::queue* first =
        lookup_and_cache_zarth_queue(native(queue), qnd_gpu_backend_driver, *context, interop);
    sycl::queue* second =
        lookup_and_cache_zarth_queue(native(queue), qnd_gpu_backend_driver, *context, interop);
    const sycl::context other{sycl::device{sycl::cpu_selector_v}};
    sycl::queue* third =
        lookup_and_cache_zarth_queue(native(queue), qnd_gpu_backend_driver, other, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(second, third);
    EXPECT_TRUE(*first == *second);
    EXPECT_TRUE(first->get_context() == *context);
    EXPECT_TRUE(first->get_device() == device);
    EXPECT_EQ(native(*first), native(queue));
    // The immediate flag was asked for once, on the miss.
    EXPECT_EQ(omptarget_double_int_queries(interop, 10), 1);
    EXPECT_EQ(service_caches.queue_cache.size, queues_before + 1);
    EXPECT_EQ(queue_cache_word.load(), 0u);
    omptarget_double_delete_interop(interop);
}

TEST(queue_and_context_cache, driver_interop_gives_one_cached_queue) {
    const std::size_t contexts_before = service_caches.context_cache.size;
    const std::size_t queues_before = service_caches.queue_cache.size;
    const sycl::queue queue = fresh_gpu_queue();
    void* interop = omptarget_double::driver_interop(queue);
    sycl::queue* first = lookup_and_cache_zarth_queue_and_context(interop);
    sycl::queue* second = lookup_and_cache_zarth_queue_and_context(interop);
    sycl::queue* third = lookup_and_cache_zarth_queue_and_context(interop);
    ASSERT_NE(first, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(second, third);
    EXPECT_TRUE(*first == *second);
    EXPECT_EQ(native(*first), native(queue));
    EXPECT_TRUE(first->get_device() == queue.get_device());
    // Its context is the cached one of (native context, native device).
    sycl::device device = queue.get_device();
    sycl::context* cached = lookup_and_cache_zarth_context(
        native(queue.get_context()), native(device), qnd_gpu_backend_driver, nullptr);
    EXPECT_TRUE(first->get_context() == *cached);
    EXPECT_EQ(service_caches.context_cache.size, contexts_before + 1);
    EXPECT_EQ(service_caches.queue_cache.size, queues_before + 1);
    // Only the driver runtime's three properties, and the OpenCL context never.
    EXPECT_EQ(omptarget_double_property_queries(interop, 6), 0);
    EXPECT_EQ(omptarget_double_property_queries(interop, 7), 3);
    EXPECT_EQ(omptarget_double_property_queries(interop, 9), 3);
    EXPECT_EQ(omptarget_double_int_queries(interop, -1), 0);
    omptarget_double_delete_interop(interop);
}

TEST(queue_and_context_cache, a_failed_query_gives_null) {
    const std::size_t contexts_before = service_caches.context_cache.size;
    const std::size_t queues_before = service_caches.queue_cache.size;
    const sycl::queue queue = fresh_gpu_queue();
    struct case_ {
        const char* name;
        int kind;  // 2 driver runtime, 1 OpenCL
        std::int32_t failing_property;
    };
    const case_ cases[] = {{"kind", 2, 8},           {"driver context", 2, 9},
                           {"driver queue", 2, 5},   {"driver device", 2, 7},
                           {"OpenCL context", 1, 6}, {"OpenCL queue", 1, 5}};
    for (const case_& c : cases) {
        void* interop = c.kind == 2 ? omptarget_double::driver_interop(queue)
                                    : omptarget_double::opencl_interop(queue);
        omptarget_double_fail_property(interop, c.failing_property, -4);
        EXPECT_EQ(lookup_and_cache_zarth_queue_and_context(interop), nullptr) << c.name;
        omptarget_double_delete_interop(interop);
    }
    EXPECT_EQ(service_caches.context_cache.size, contexts_before);
    EXPECT_EQ(service_caches.queue_cache.size, queues_before);
}

// Threads that ask for one key at once make it once; every answer is the same context.
TEST(context_cache, concurrent_first_calls_make_one_entry) {
    const std::size_t contexts_before = service_caches.context_cache.size;
    const sycl::queue queue = fresh_gpu_queue();
    void* context = native(queue.get_context());
    void* device_handle = native(queue.get_device());
    constexpr int thread_count = 4;
    std::vector<sycl::context*> results(thread_count, nullptr);
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < thread_count; ++t) {
        threads.emplace_back([&, t] {
            sycl::device device = queue.get_device();
            while (!go.load())
                std::this_thread::yield();
            results[t] = lookup_and_cache_zarth_context(context, device_handle,
                                                        qnd_gpu_backend_driver, &device);
        });
    }
    go = true;
    for (std::thread& t : threads)
        t.join();
    const std::set<sycl::context*> addresses(results.begin(), results.end());
    EXPECT_LE(addresses.size(), 2u);  // one heap copy and the entry
    for (sycl::context* r : results)
        EXPECT_TRUE(*r == *results[0]);
    EXPECT_EQ(service_caches.context_cache.size, contexts_before + 1);
    EXPECT_EQ(context_cache_word.load(), 0u);
}

// Exceptions under a write lock leave its word at 1: the cache is locked for good. Each case
// runs in a child, which reports by its status what it saw.
TEST(cache_failures_death, an_exception_under_the_write_lock_leaves_the_word_locked) {
    use_threadsafe_death_tests();
    const auto unknown_backend_takes_the_opencl_form = [] {
        const sycl::queue queue = fresh_gpu_queue();
        try {
            lookup_and_cache_zarth_queue(native(queue), static_cast<qnd_gpu_backend_t>(7),
                                         queue.get_context(), nullptr);
        } catch (const sycl::exception& e) {
            const bool opencl = e.code() == sycl::errc::feature_not_supported &&
                                std::string(e.what()).find("OpenCL") != std::string::npos;
            std::_Exit(
                opencl && queue_cache_word.load() == 1u && context_cache_word.load() == 0u ? 0 : 1);
        }
        std::_Exit(3);
    };
    EXPECT_EXIT(unknown_backend_takes_the_opencl_form(), ::testing::ExitedWithCode(0), "");

    const auto unexposed_device_in_queue_and_context = [] {
        const sycl::queue queue{sycl::ext::hostsycl::make_gpu_device(8)};
        void* interop = omptarget_double::driver_interop(queue);
        try {
            lookup_and_cache_zarth_queue_and_context(interop);
        } catch (const sycl::exception& e) {
            const bool unexposed = e.code() == sycl::errc::invalid &&
                                   std::string(e.what()) == "Native device isn't exposed to SYCL.";
            std::_Exit(unexposed && context_cache_word.load() == 1u && queue_cache_word.load() == 0u
                           ? 0
                           : 1);
        }
        std::_Exit(3);
    };
    EXPECT_EXIT(unexposed_device_in_queue_and_context(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
