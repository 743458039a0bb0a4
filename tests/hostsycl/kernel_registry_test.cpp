// The kernel registry: kernels of the test program and of a library loaded at run time.
#include <gtest/gtest.h>

#include <sycl/sycl.hpp>

#include <dlfcn.h>

#include <algorithm>
#include <string>
#include <vector>

namespace registry_test {
template <typename T, bool Flag>
class templated_kernel;
}  // namespace registry_test

namespace {

std::vector<std::string> kernel_names() {
    std::vector<std::string> names;
    for (const auto& id : sycl::get_kernel_ids())
        names.emplace_back(id.get_name());
    return names;
}

bool registered(const std::string& name) {
    const auto names = kernel_names();
    return std::find(names.begin(), names.end(), name) != names.end();
}

// Never run: instantiating the parallel_for is what registers the kernel at start-up.
void never_called(sycl::queue& q) {
    q.submit([&](sycl::handler& cgh) {
        cgh.parallel_for<registry_test::templated_kernel<float, true>>(sycl::nd_range<1>(1, 1),
                                                                       [=](sycl::nd_item<1>) {});
    });
}

TEST(kernel_registry, kernels_of_the_program_are_registered_before_main) {
    EXPECT_TRUE(registered("registry_test::templated_kernel<float, true>"));
    (void)&never_called;
}

TEST(kernel_registry, a_loaded_library_registers_its_kernels_and_launches_them_by_name) {
    const std::string probe = "probe::registry_probe_kernel<long long int>";
    EXPECT_FALSE(registered(probe));
    void* lib = dlopen(HOSTSYCL_PROBE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    EXPECT_TRUE(registered(probe));
    const auto names = kernel_names();
    EXPECT_EQ(std::count(names.begin(), names.end(), probe), 1);

    using sum_fn = long long (*)(std::size_t);
    auto sum = reinterpret_cast<sum_fn>(dlsym(lib, "hostsycl_probe_sum"));
    ASSERT_NE(sum, nullptr);
    std::vector<sycl::ext::hostsycl::launch_record> launches;
    sycl::ext::hostsycl::set_launch_observer(
        [&](const sycl::ext::hostsycl::launch_record& r) { launches.push_back(r); });
    EXPECT_EQ(sum(8), 36);
    sycl::ext::hostsycl::set_launch_observer({});
    ASSERT_EQ(launches.size(), 1u);
    EXPECT_EQ(launches[0].kernel_name, probe);  // the same name as the registry's
    EXPECT_EQ(launches[0].global_size, 8u);
    EXPECT_EQ(launches[0].local_size, 8u);
    EXPECT_EQ(launches[0].local_memory_bytes, 0u);
}

// The library is built with hidden visibility; sycl::exception must still be one type.
TEST(kernel_registry, exceptions_from_a_hidden_visibility_library_are_caught_by_type) {
    void* lib = dlopen(HOSTSYCL_PROBE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    auto thrower = reinterpret_cast<void (*)()>(dlsym(lib, "hostsycl_probe_throw"));
    ASSERT_NE(thrower, nullptr);
    try {
        thrower();
        FAIL() << "no exception";
    } catch (const sycl::exception& e) {
        EXPECT_EQ(e.code(), sycl::errc::kernel_argument);
        EXPECT_STREQ(e.what(), "thrown inside the probe library");
    } catch (...) {
        FAIL() << "sycl::exception was not caught by its type";
    }
}

}  // namespace
