// queue_from_interop over the complete offload double and the system's OpenCL runtime: each way,
// its fallbacks to a default queue, and the runtime number each leaves.
#include <gtest/gtest.h>

#include "omptarget_double_sycl.hpp"
#include "service/cache.hpp"
#include "service/queue_from_interop.hpp"
#include "tavrel/qnd/gpu.hpp"

namespace {

using namespace tavrel::qnd::gpu;
using namespace tavrel::qnd::gpu::detail;
using namespace omptarget_double;

// The queue made from `interop`, and the runtime number left in `number`.
sycl::queue made_from(const interop_ptr& interop, std::int32_t& number) {
    number = -9;
    return queue_from_interop(interop.get(), &number);
}

// Runtime 4 gives a copy of the interop's own queue. The driver runtime (6, or kind 2 when the
// number cannot be had) gives a new queue on the cached context of the native context and device,
// a sub-device's too, after asking for the native queue it does not use.
TEST(service_queue_from_interop, each_runtime_gives_its_queue) {
    sycl::queue own{sycl::device{sycl::gpu_selector_v}};
    std::int32_t number;
    EXPECT_TRUE(made_from(sycl_interop(&own), number) == own);
    EXPECT_EQ(number, 4);
    constexpr auto by_affinity = sycl::info::partition_property::partition_by_affinity_domain;
    const sycl::device sub = own.get_device().create_sub_devices<by_affinity>(
        sycl::info::partition_affinity_domain::next_partitionable)[1];
    for (const sycl::queue& queue : {fresh_gpu_queue(), sycl::queue{sub}}) {
        for (bool by_kind : {false, true}) {
            const interop_ptr interop = driver_interop(queue);
            int_of(interop, -1) = {by_kind ? 0 : 6, by_kind ? -5 : 0, 0};
            const sycl::queue made = made_from(interop, number);
            EXPECT_EQ(number, 6);
            EXPECT_FALSE(made == queue);
            EXPECT_EQ(native(made.get_device()), native(queue.get_device()));
            EXPECT_TRUE(made.get_context() ==
                        *lookup_and_cache_zarth_context(native(queue.get_context()),
                                                        native(queue.get_device()),
                                                        qnd_gpu_backend_driver, nullptr));
            EXPECT_EQ(pointer_of(interop, 5).queries, 1);
        }
    }
}

// Each way of failing gives a default queue, none of the interop's, with the runtime number it
// leaves: 0, or the failed query's value when the kind cannot be had either.
TEST(service_queue_from_interop, failures_give_a_default_queue) {
    sycl::queue queue{sycl::device{sycl::gpu_selector_v}};
    struct failure {
        int runtime;            // of the interop's maker; 0: none, with the kind 3
        std::int32_t property;  // answered null with `status`, unless 0
        std::int32_t status;
        std::intptr_t number;  // the failed runtime query's value, if it fails
        std::int32_t left;
    } failures[] = {{1, 0, 0, -1, 0},  {5, 0, 0, -1, 0},  {4, 5, -1, -1, 0}, {4, 5, 0, -1, 0},
                    {6, 7, -1, -1, 0}, {6, 9, -1, -1, 0}, {6, 5, -1, -1, 0}, {3, 9, -1, -1, 0},
                    {3, 5, -1, -1, 0}, {3, 5, -1, 0, 0},  {0, 0, 0, 0, 0},   {0, 8, -1, 9, 9},
                    {0, 8, 0, 4, 4}};
    for (const failure& f : failures) {
        const interop_ptr interop = f.runtime == 4   ? sycl_interop(&queue)
                                    : f.runtime == 6 ? driver_interop(queue)
                                    : f.runtime == 3 ? opencl_interop(queue)
                                                     : new_interop(f.runtime);
        interop->kind = 3;
        if (f.runtime == 0)
            pointer_of(interop, 8) = pointing_at(&interop->kind);
        if (f.property != 0)
            pointer_of(interop, f.property) = {0, f.status, 0};
        if (f.number >= 0)
            int_of(interop, -1) = {f.number, -5, 0};
        std::int32_t number;
        const sycl::queue made = made_from(interop, number);
        EXPECT_EQ(number, f.left) << "failure " << &f - failures;
        EXPECT_FALSE(made == queue) << "failure " << &f - failures;
    }
}

// With OpenCL present, runtime 3 (or kind 1) goes on to the cached OpenCL context of property 9,
// not 6, which hostsycl refuses: the exception passes through and leaves the context cache
// locked, so this runs in a child that reports by its status.
TEST(service_queue_from_interop, the_opencl_way_reaches_the_opencl_context) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto child = [](bool by_kind) {
        const sycl::queue queue = fresh_gpu_queue();
        const interop_ptr interop = opencl_interop(queue);
        int unrelated = 0;
        pointer_of(interop, 6) = pointing_at(&unrelated);
        int_of(interop, -1) = {by_kind ? 0 : 3, by_kind ? -5 : 0, 0};
        std::int32_t number;
        try {
            made_from(interop, number);
        } catch (const sycl::exception& e) {
            std::_Exit(e.code() == sycl::errc::feature_not_supported && number == 3 &&
                               pointer_of(interop, 6).queries == 0 &&
                               pointer_of(interop, 9).queries == 1 &&
                               context_cache_word.load() == 1u
                           ? 0
                           : 1);
        }
        std::_Exit(3);
    };
    EXPECT_EXIT(child(false), ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT(child(true), ::testing::ExitedWithCode(0), "");
}

}  // namespace
