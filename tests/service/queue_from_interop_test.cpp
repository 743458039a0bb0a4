// queue_from_interop over the complete offload double and the system's OpenCL runtime: each
// way, its fallbacks to a default queue, and the runtime number each leaves.
#include <gtest/gtest.h>

#include "omptarget_double.h"
#include "omptarget_double_sycl.hpp"
#include "service/cache.hpp"
#include "service/queue_from_interop.hpp"
#include "service_test_support.hpp"
#include "tavrel/qnd/gpu.hpp"

namespace {

using namespace tavrel::qnd::gpu;
using namespace tavrel::qnd::gpu::detail;
using namespace service_test;

struct made_queue {
    sycl::queue queue;
    std::int32_t backend;
};

made_queue from_interop(void* interop) {
    std::int32_t backend = -9;
    sycl::queue queue = queue_from_interop(interop, &backend);
    return {queue, backend};
}

TEST(queue_from_interop, sycl_runtime_gives_a_copy_of_its_own_queue) {
    sycl::queue queue{gpu()};
    void* interop = omptarget_double::sycl_interop(&queue);
    const made_queue made = from_interop(interop);
    EXPECT_EQ(made.backend, 4);
    EXPECT_TRUE(made.queue == queue);
    omptarget_double_delete_interop(interop);
}

// A new queue on the cached context of the native context and device, not the native queue.
TEST(queue_from_interop, driver_runtime_gives_a_new_queue_on_the_cached_context) {
    const sycl::queue queue = fresh_gpu_queue();
    void* interop = omptarget_double::driver_interop(queue);
    const made_queue made = from_interop(interop);
    EXPECT_EQ(made.backend, 6);
    EXPECT_FALSE(made.queue == queue);
    EXPECT_TRUE(made.queue.get_device() == queue.get_device());
    sycl::context* cached = lookup_and_cache_zarth_context(
        native(queue.get_context()), native(queue.get_device()), qnd_gpu_backend_driver, nullptr);
    EXPECT_TRUE(made.queue.get_context() == *cached);
    EXPECT_EQ(native(made.queue.get_context()), native(queue.get_context()));
    // The native queue was asked for, though it is not used.
    EXPECT_EQ(omptarget_double_property_queries(interop, 5), 1);
    EXPECT_EQ(omptarget_double_property_queries(interop, 8), 0);
    omptarget_double_delete_interop(interop);
}

TEST(queue_from_interop, driver_runtime_finds_a_sub_device) {
    constexpr auto by_affinity = sycl::info::partition_property::partition_by_affinity_domain;
    const std::vector<sycl::device> subs = gpu().create_sub_devices<by_affinity>(
        sycl::info::partition_affinity_domain::next_partitionable);
    ASSERT_GE(subs.size(), 2u);
    const sycl::queue queue{subs[1]};
    void* interop = omptarget_double::driver_interop(queue);
    const made_queue made = from_interop(interop);
    EXPECT_EQ(made.backend, 6);
    EXPECT_EQ(native(made.queue.get_device()), native(subs[1]));
    omptarget_double_delete_interop(interop);
}

// No runtime number: the kind of property 8 decides.
TEST(queue_from_interop, kind_2_takes_the_driver_way_when_the_number_fails) {
    const sycl::queue queue = fresh_gpu_queue();
    void* interop = omptarget_double::driver_interop(queue);
    omptarget_double_fail_int(interop, -1, -5);
    const made_queue made = from_interop(interop);
    EXPECT_EQ(made.backend, 6);
    EXPECT_TRUE(made.queue.get_device() == queue.get_device());
    omptarget_double_delete_interop(interop);
}

// Each way of failing, with the runtime number it leaves. A default queue is on the default
// device and is none of the interop's.
TEST(queue_from_interop, failures_give_a_default_queue) {
    sycl::queue queue{gpu()};
    struct case_ {
        const char* name;
        void* interop;
        std::int32_t backend;
    };
    const auto with = [](void* interop, auto shape) {
        shape(interop);
        return interop;
    };
    const case_ cases[] = {
        {"runtime 1", omptarget_double_new_interop(1), 0},
        {"runtime 5", omptarget_double_new_interop(5), 0},
        {"SYCL queue query fails",
         with(omptarget_double::sycl_interop(&queue),
              [](void* i) { omptarget_double_fail_property(i, 5, -1); }),
         0},
        {"SYCL queue is null",
         with(omptarget_double::sycl_interop(&queue),
              [](void* i) { omptarget_double_set_property(i, 5, nullptr); }),
         0},
        {"driver device query fails",
         with(omptarget_double::driver_interop(queue),
              [](void* i) { omptarget_double_fail_property(i, 7, -1); }),
         0},
        {"driver context query fails",
         with(omptarget_double::driver_interop(queue),
              [](void* i) { omptarget_double_fail_property(i, 9, -1); }),
         0},
        {"driver queue query fails",
         with(omptarget_double::driver_interop(queue),
              [](void* i) { omptarget_double_fail_property(i, 5, -1); }),
         0},
        {"OpenCL context query fails",
         with(omptarget_double::opencl_interop(queue),
              [](void* i) { omptarget_double_fail_property(i, 9, -1); }),
         0},
        {"OpenCL queue query fails",
         with(omptarget_double::opencl_interop(queue),
              [](void* i) { omptarget_double_fail_property(i, 5, -1); }),
         0},
        {"number fails, kind 3",
         with(omptarget_double_new_interop(6),
              [](void* i) {
                  omptarget_double_fail_int(i, -1, -5);
                  omptarget_double_set_kind(i, 3);
              }),
         0},
        {"number fails, kind 1, OpenCL queue query fails",
         with(omptarget_double::opencl_interop(queue),
              [](void* i) {
                  omptarget_double_fail_int(i, -1, -5);
                  omptarget_double_fail_property(i, 5, -1);
              }),
         0},
        // The kind cannot be had: the number stays as the failed query gave it.
        {"number fails with 9, kind fails",
         with(omptarget_double_new_interop(6),
              [](void* i) {
                  omptarget_double_fail_int_with_value(i, -1, -5, 9);
                  omptarget_double_fail_property(i, 8, -1);
              }),
         9},
        {"number fails with 4, kind is null",
         with(omptarget_double_new_interop(6),
              [](void* i) {
                  omptarget_double_fail_int_with_value(i, -1, -5, 4);
                  omptarget_double_set_property(i, 8, nullptr);
              }),
         4},
    };
    const sycl::queue default_queue{sycl::property_list{}};
    for (const case_& c : cases) {
        const made_queue made = from_interop(c.interop);
        EXPECT_EQ(made.backend, c.backend) << c.name;
        EXPECT_FALSE(made.queue == queue) << c.name;
        EXPECT_TRUE(made.queue.get_device() == default_queue.get_device()) << c.name;
        omptarget_double_delete_interop(c.interop);
    }
}

// The driver way's device search throws before any lock is taken; the caches stay usable.
TEST(queue_from_interop, unexposed_driver_device_throws_in_its_words) {
    const sycl::queue queue{sycl::ext::hostsycl::make_gpu_device(8)};
    void* interop = omptarget_double::driver_interop(queue);
    try {
        from_interop(interop);
        ADD_FAILURE() << "no exception";
    } catch (const sycl::exception& e) {
        EXPECT_EQ(e.code(), sycl::errc::invalid);
        EXPECT_STREQ(e.what(), "Native device isn't exposed to SYCL.");
    }
    EXPECT_EQ(context_cache_word.load(), 0u);
    EXPECT_EQ(queue_cache_word.load(), 0u);
    omptarget_double_delete_interop(interop);
}

// With OpenCL present the way goes on to the cached OpenCL context (context of property 9, not
// 6), which hostsycl refuses: the exception passes through and leaves the context cache locked,
// so this runs in a child that reports by its status.
TEST(queue_from_interop_death, opencl_way_reaches_the_opencl_context) {
    use_threadsafe_death_tests();
    const auto opencl_way = [](bool by_kind) {
        const sycl::queue queue = fresh_gpu_queue();
        void* interop = omptarget_double::opencl_interop(queue);
        int unrelated = 0;
        omptarget_double_set_property(interop, 6, &unrelated);
        if (by_kind)
            omptarget_double_fail_int(interop, -1, -5);
        std::int32_t backend = -9;
        try {
            queue_from_interop(interop, &backend);
        } catch (const sycl::exception& e) {
            std::_Exit(e.code() == sycl::errc::feature_not_supported && backend == 3 &&
                               omptarget_double_property_queries(interop, 6) == 0 &&
                               omptarget_double_property_queries(interop, 9) == 1 &&
                               context_cache_word.load() == 1u
                           ? 0
                           : 1);
        }
        std::_Exit(3);
    };
    EXPECT_EXIT(opencl_way(false), ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(opencl_way(true), ::testing::ExitedWithCode(0), "");
}

}  // namespace
