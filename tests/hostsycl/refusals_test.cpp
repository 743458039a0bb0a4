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

// What the calls refuse to work with, made when the test runs: a queue and its native handles,
// and a context whose native reference is released while the SYCL context lives on.
struct objects {
    sycl::device gpu{sycl::gpu_selector_v}, cpu{sycl::cpu_selector_v};
    sycl::queue queue{cpu};
    sycl::context context = queue.get_context(), released{gpu};
    void* queue_handle = sycl::get_native<native>(queue);
    void* context_handle = sycl::get_native<native>(context);
    void* released_handle = sycl::get_native<native>(released);
    objects() { hs::native_release(released_handle); }
};

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
const std::string opencl =
    ": the OpenCL backend (1) is not served by hostsycl; use backend::ext_hostsycl_native (2).";
const std::string not_live = ": the handle is not a live native object of hostsycl.";

struct refusal {
    std::function<void(objects&)> call;
    int code;  // the number SYCL 2020 gives the errc
    std::string what;
};

const refusal refusals[] = {
    {[](objects&) { sycl::device{sycl::accelerator_selector_v}; }, 1,
     "No device of requested type available."},
    {[](objects&) { hs::make_gpu_device(0); }, 8,
     "make_gpu_device: max_work_group_size must be >= 1."},
    {[](objects& o) { split(o.cpu, domain::numa); }, 12,
     "Device 'hostsycl CPU' cannot be partitioned; its partition_properties are empty."},
    {[](objects& o) { split(o.gpu, domain::L1_cache); }, 12,
     "Device 'hostsycl emulated GPU' is partitioned by affinity domain next_partitionable or numa "
     "only."},
    {[](objects& o) { o.gpu.get_info<sycl::info::device::parent_device>(); }, 8,
     "Device 'hostsycl emulated GPU' is a root device."},
    {[](objects&) { sycl::context(std::vector<sycl::device>{}); }, 8,
     "A context needs at least one device."},
    {[](objects& o) { sycl::queue(sycl::context(o.gpu), o.cpu); }, 8,
     "The queue's device is not one of its context's devices."},
    {[](objects&) { launch(10, 4); }, 4,
     "Non-uniform work-groups are not supported: the global size 10 is not a multiple of the "
     "local size 4."},
    {[](objects&) { launch(32, 16); }, 4,
     "Total number of work-items in a work-group (16) exceeds the device's max_work_group_size "
     "(8)."},
    {[](objects&) { launch(8, 0); }, 4, "The local size of an nd_range must not be 0."},
    {[](objects& o) {
         o.queue.submit([](sycl::handler& cgh) {
             cgh.host_task([] {});
             cgh.host_task([] {});
         });
     },
     1, "A command group holds one action: parallel_for or host_task, not two."},
    {[](objects&) {
         hs::fail_next_allocations(1);
         sycl::buffer<double, 1>{sycl::range<1>(10)};
     },
     9, "Cannot allocate 80 bytes for a buffer."},
    {[](objects&) { sycl::buffer<double, 1>{sycl::range<1>(SIZE_MAX / 4)}; }, 9,
     "Buffer size overflows the address space."},
    {[](objects& o) { sycl::get_native<sycl::backend::opencl>(o.gpu); }, 14, "Backends mismatch"},
    {[](objects& o) { sycl::get_native<sycl::backend::opencl>(o.context); }, 14,
     "Backends mismatch"},
    {[](objects& o) { sycl::get_native<sycl::backend::opencl>(o.queue); }, 14, "Backends mismatch"},
    {[](objects& o) { make_context(o.context_handle, sycl::backend::opencl); }, 12,
     "make_context" + opencl},
    {[](objects& o) { make_queue(o.queue_handle, o.context, nullptr, sycl::backend::opencl); }, 12,
     "make_queue" + opencl},
    {[](objects& o) { make_context(o.context_handle, static_cast<sycl::backend>(7)); }, 12,
     "make_context: unknown backend 7."},
    {[](objects& o) { make_context(o.released_handle); }, 8, "make_context" + not_live},
    {[](objects& o) { make_queue(&unrelated, o.context); }, 8, "make_queue" + not_live},
    {[](objects& o) { make_context(o.queue_handle); }, 8,
     "make_context: the handle is not a native context."},
    {[](objects& o) { make_queue(o.context_handle, o.context); }, 8,
     "make_queue: the handle is not a native queue."},
    {[](objects& o) { make_queue(o.queue_handle, o.context, &o.gpu); }, 8,
     "make_queue: the device is not the native queue's device."},
    {[](objects& o) { make_queue(o.queue_handle, sycl::context(o.gpu)); }, 8,
     "make_queue: the native queue's device is not one of the context's devices."},
    {[](objects& o) { hs::native_retain(o.released_handle); }, 8, "native_retain" + not_live},
    {[](objects& o) { hs::native_release(o.released_handle); }, 8, "native_release" + not_live},
    {[](objects&) { hs::native_reference_count(&unrelated); }, 8,
     "native_reference_count: the handle is not a native object of hostsycl."},
};

TEST(refusals, each_throws_its_code_and_words) {
    objects o;
    for (const refusal& r : refusals) {
        try {
            r.call(o);
            ADD_FAILURE() << "no exception: " << r.what;
        } catch (const sycl::exception& e) {
            EXPECT_EQ(e.what(), r.what);
            EXPECT_EQ(e.code(), std::error_code(r.code, sycl::sycl_category())) << r.what;
        }
    }
    hs::fail_next_allocations(0);
}

}  // namespace
