// USM seen through the observer with injected allocation failures, and the kernel registry of the
// program and of a library loaded at run time.
#include <gtest/gtest.h>

#include <sycl/sycl.hpp>

#include <dlfcn.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

namespace registry_test {
template <typename T, bool Flag>
class templated_kernel;
}  // namespace registry_test

namespace {

namespace hs = sycl::ext::hostsycl;

TEST(usm, allocations_are_aligned_observed_and_fail_when_told) {
    sycl::queue q{hs::make_gpu_device(16)};
    double* big = sycl::malloc_device<double>(std::size_t{1} << 21, q);  // 16 MiB
    ASSERT_NE(big, nullptr);
    big[(std::size_t{1} << 21) - 1] = 1.0;
    sycl::free(big, q);
    using op = hs::usm_op;
    std::vector<std::tuple<op, void*, std::size_t>> seen;
    hs::set_usm_observer([&](op o, void* p, std::size_t bytes) { seen.emplace_back(o, p, bytes); });
    double* d = sycl::malloc_device<double>(3, q);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(d) % 64, 0u);
    hs::fail_next_allocations(2);
    EXPECT_EQ(sycl::malloc_shared<float>(5, q), nullptr);
    EXPECT_EQ(sycl::malloc_host(7, q), nullptr);
    int* s = sycl::malloc_shared<int>(4, q);
    EXPECT_EQ(sycl::malloc_device(0, q), nullptr);
    hs::fail_next_allocations(5);
    hs::fail_next_allocations(0);
    void* h = sycl::malloc_host(1, q);
    sycl::free(d, q);
    sycl::free(s, q.get_context());
    sycl::free(h, q);
    hs::set_usm_observer({});
    EXPECT_EQ(seen, (decltype(seen){{op::malloc_device, d, 24},
                                    {op::malloc_shared, nullptr, 20},
                                    {op::malloc_host, nullptr, 7},
                                    {op::malloc_shared, s, 16},
                                    {op::malloc_device, nullptr, 0},
                                    {op::malloc_host, h, 1},
                                    {op::free, d, 0},
                                    {op::free, s, 0},
                                    {op::free, h, 0}}));
}

// Never run: instantiating the parallel_for is what registers the kernel at start-up.
void never_called(sycl::queue& q) {
    q.submit([&](sycl::handler& cgh) {
        cgh.parallel_for<registry_test::templated_kernel<float, true>>(sycl::nd_range<1>(1, 1),
                                                                       [=](sycl::nd_item<1>) {});
    });
}

long registered(const std::string& name) {
    const auto ids = sycl::get_kernel_ids();
    return std::count_if(ids.begin(), ids.end(),
                         [&](const auto& id) { return id.get_name() == name; });
}

// The probe library has hidden visibility, as the statistics library does: its kernel is
// listed once it loads, launches under the same name, and its sycl::exception is one type.
TEST(kernel_registry, lists_the_program_kernels_and_those_of_a_library_as_it_loads) {
    (void)&never_called;
    const std::string probe = "probe::registry_probe_kernel<long long int>";
    EXPECT_EQ(registered("registry_test::templated_kernel<float, true>"), 1);
    EXPECT_EQ(registered(probe), 0);
    void* lib = dlopen(HOSTSYCL_PROBE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    EXPECT_EQ(registered(probe), 1);
    std::vector<hs::launch_record> launches;
    hs::set_launch_observer([&](const hs::launch_record& r) { launches.push_back(r); });
    EXPECT_EQ(reinterpret_cast<long long (*)(std::size_t)>(dlsym(lib, "hostsycl_probe_sum"))(8),
              36);
    hs::set_launch_observer({});
    ASSERT_EQ(launches.size(), 1u);
    EXPECT_EQ(std::tie(launches[0].kernel_name, launches[0].global_size, launches[0].local_size,
                       launches[0].local_memory_bytes),
              std::make_tuple(probe, 8u, 8u, 0u));
    try {
        reinterpret_cast<void (*)()>(dlsym(lib, "hostsycl_probe_throw"))();
        ADD_FAILURE() << "no exception";
    } catch (const sycl::exception& e) {
        EXPECT_STREQ(e.what(), "thrown inside the probe library");
    }
}

}  // namespace
