// Every refusal of the runtime: the call, the number of its error code and its exact words.
#include <gtest/gtest.h>

#include <sycl/sycl.hpp>

#include <cstdint>
#include <functional>
#include <string>

namespace {

namespace hs = sycl::ext::hostsycl;
using domain = sycl::info::partition_affinity_domain;
constexpr auto native = sycl::backend::ext_hostsycl_native;
int unrelated = 0;

sycl::context make_context(void* h, sycl::backend b = native) {
    return sycl::detail::make_context(reinterpret_cast<std::uintptr_t>(h), {}, b, true);
}
sycl::queue make_queue(void* h,
                       const sycl::context& ctx,
                       const sycl::device* dev = nullptr,
                       sycl::backend b = native) {
    return sycl::detail::make_queue(reinterpret_cast<std::uintptr_t>(h), 0, ctx, dev, true, {}, {},
                                    b);
}
void split(const sycl::device& d, domain by) {
    d.create_sub_devices<sycl::info::partition_property::partition_by_affinity_domain>(by);
}
void launch(std::size_t global, std::size_t local) {
    sycl::queue{hs::make_gpu_device(8)}.submit([&](sycl::handler& cgh) {
        cgh.parallel_for(sycl::nd_range<1>(global, local), [=](sycl::nd_item<1>) {});
    });
}

struct refusal {
    std::function<void()> call;
    int code;  // the number SYCL 2020 gives the errc
    std::string what;
};

TEST(refusals, each_throws_its_code_and_words) {
    // What the calls refuse to work with: a queue and its native handles, and a context whose
    // native reference is released while the SYCL context lives on.
    const sycl::device gpu{sycl::gpu_selector_v}, cpu{sycl::cpu_selector_v};
    sycl::queue queue{cpu};
    const sycl::context context = queue.get_context(), released{gpu};
    void* const queue_handle = sycl::get_native<native>(queue);
    void* const context_handle = sycl::get_native<native>(context);
    void* const released_handle = sycl::get_native<native>(released);
    hs::native_release(released_handle);
    const sycl::backend opencl = sycl::backend::opencl;
    const std::string no_opencl =
        ": the OpenCL backend (1) is not served by hostsycl; use backend::ext_hostsycl_native (2).";
    const std::string not_live = ": the handle is not a live native object of hostsycl.";
    const std::string mismatch = "Backends mismatch";
    const auto two_actions = [&] {
        queue.submit([](sycl::handler& cgh) {
            cgh.host_task([] {});
            cgh.host_task([] {});
        });
    };
    const auto failed_buffer = [] {
        hs::fail_next_allocations(1);
        sycl::buffer<double, 1>{sycl::range<1>(10)};
    };
    // clang-format off
    const refusal refusals[] = {
        {[] { sycl::device{sycl::accelerator_selector_v}; }, 1,
         "No device of requested type available."},
        {[] { hs::make_gpu_device(0); }, 8, "make_gpu_device: max_work_group_size must be >= 1."},
        {[&] { split(cpu, domain::numa); }, 12,
         "Device 'hostsycl CPU' cannot be partitioned; its partition_properties are empty."},
        {[&] { split(gpu, domain::L1_cache); }, 12,
         "Device 'hostsycl emulated GPU' is partitioned by affinity domain next_partitionable or "
         "numa only."},
        {[&] { gpu.get_info<sycl::info::device::parent_device>(); }, 8,
         "Device 'hostsycl emulated GPU' is a root device."},
        {[] { sycl::context(std::vector<sycl::device>{}); }, 8,
         "A context needs at least one device."},
        {[&] { sycl::queue(sycl::context(gpu), cpu); }, 8,
         "The queue's device is not one of its context's devices."},
        {[] { launch(10, 4); }, 4,
         "Non-uniform work-groups are not supported: the global size 10 is not a multiple of the "
         "local size 4."},
        {[] { launch(32, 16); }, 4,
         "Total number of work-items in a work-group (16) exceeds the device's "
         "max_work_group_size (8)."},
        {[] { launch(8, 0); }, 4, "The local size of an nd_range must not be 0."},
        {two_actions, 1, "A command group holds one action: parallel_for or host_task, not two."},
        {failed_buffer, 9, "Cannot allocate 80 bytes for a buffer."},
        {[] { sycl::buffer<double, 1>{sycl::range<1>(SIZE_MAX / 4)}; }, 9,
         "Buffer size overflows the address space."},
        {[&] { sycl::get_native<opencl>(gpu); }, 14, mismatch},
        {[&] { sycl::get_native<opencl>(context); }, 14, mismatch},
        {[&] { sycl::get_native<opencl>(queue); }, 14, mismatch},
        {[&] { make_context(context_handle, opencl); }, 12, "make_context" + no_opencl},
        {[&] { make_queue(queue_handle, context, nullptr, opencl); }, 12, "make_queue" + no_opencl},
        {[&] { make_context(context_handle, static_cast<sycl::backend>(7)); }, 12,
         "make_context: unknown backend 7."},
        {[&] { make_context(released_handle); }, 8, "make_context" + not_live},
        {[&] { make_queue(&unrelated, context); }, 8, "make_queue" + not_live},
        {[&] { make_context(queue_handle); }, 8,
         "make_context: the handle is not a native context."},
        {[&] { make_queue(context_handle, context); }, 8,
         "make_queue: the handle is not a native queue."},
        {[&] { make_queue(queue_handle, context, &gpu); }, 8,
         "make_queue: the device is not the native queue's device."},
        {[&] { make_queue(queue_handle, sycl::context(gpu)); }, 8,
         "make_queue: the native queue's device is not one of the context's devices."},
        {[&] { hs::native_retain(released_handle); }, 8, "native_retain" + not_live},
        {[&] { hs::native_release(released_handle); }, 8, "native_release" + not_live},
        {[] { hs::native_reference_count(&unrelated); }, 8,
         "native_reference_count: the handle is not a native object of hostsycl."},
    };
    // clang-format on
    for (const refusal& r : refusals) {
        try {
            r.call();
            ADD_FAILURE() << "no exception: " << r.what;
        } catch (const sycl::exception& e) {
            EXPECT_EQ(e.what(), r.what);
            EXPECT_EQ(e.code(), std::error_code(r.code, sycl::sycl_category())) << r.what;
        }
    }
    hs::fail_next_allocations(0);
}

}  // namespace
