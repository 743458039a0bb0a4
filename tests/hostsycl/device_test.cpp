// The platform and its devices: listing, information, selectors, the work-group size of the
// emulated GPU from the environment, and emulated GPUs of any size.
#include <gtest/gtest.h>

#include <sycl/sycl.hpp>

#include <cstdlib>
#include <string>
#include <unordered_set>

namespace {

namespace di = sycl::info::device;

TEST(platform, one_platform_with_a_cpu_and_an_emulated_gpu) {
    const auto platforms = sycl::platform::get_platforms();
    ASSERT_EQ(platforms.size(), 1u);
    EXPECT_EQ(platforms[0].get_info<sycl::info::platform::name>(), "hostsycl");
    const auto devices = platforms[0].get_devices();
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_TRUE(devices[0].is_cpu());
    EXPECT_FALSE(devices[0].is_gpu());
    EXPECT_TRUE(devices[1].is_gpu());
    EXPECT_EQ(devices[1].get_platform(), platforms[0]);
    const auto gpus = platforms[0].get_devices(static_cast<sycl::info::device_type>(2));
    ASSERT_EQ(gpus.size(), 1u);
    EXPECT_EQ(gpus[0], devices[1]);
    EXPECT_EQ(platforms[0].get_devices(sycl::info::device_type::cpu),
              std::vector<sycl::device>{devices[0]});
    EXPECT_TRUE(platforms[0].get_devices(sycl::info::device_type::accelerator).empty());
}

TEST(devices, information_descriptors) {
    sycl::device gpu{sycl::gpu_selector_v};
    sycl::device cpu{sycl::cpu_selector_v};
    EXPECT_EQ(gpu.get_info<di::name>(), "hostsycl emulated GPU");
    EXPECT_EQ(cpu.get_info<di::name>(), "hostsycl CPU");
    EXPECT_EQ(gpu.get_info<di::device_type>(), sycl::info::device_type::gpu);
    EXPECT_EQ(static_cast<int>(gpu.get_info<di::device_type>()), 2);
    EXPECT_EQ(gpu.get_info<di::max_work_group_size>(), 256u);
    EXPECT_GE(gpu.get_info<di::max_compute_units>(), 1u);
    EXPECT_EQ(gpu.get_info<di::max_work_item_dimensions>(), 1u);
    EXPECT_TRUE(cpu.get_info<di::partition_properties>().empty());
}

TEST(devices, selectors_and_the_default_device) {
    EXPECT_TRUE(sycl::device(sycl::gpu_selector_v).is_gpu());
    EXPECT_TRUE(sycl::device(sycl::cpu_selector_v).is_cpu());
    EXPECT_TRUE(sycl::device().is_gpu());  // the default prefers the GPU
    EXPECT_TRUE(sycl::queue().get_device().is_gpu());
    try {
        sycl::device d{sycl::accelerator_selector_v};
        FAIL() << "no exception";
    } catch (const sycl::exception& e) {
        EXPECT_EQ(e.code(), sycl::errc::runtime);
        EXPECT_STREQ(e.what(), "No device of requested type available.");
    }
    const auto custom = [](const sycl::device& d) { return d.is_cpu() ? 1 : 0; };
    EXPECT_TRUE(sycl::queue(custom).get_device().is_cpu());
}

TEST(devices, copyable_comparable_hashable) {
    sycl::device a{sycl::gpu_selector_v};
    sycl::device b = a;
    sycl::device c{sycl::cpu_selector_v};
    EXPECT_EQ(a, b);
    EXPECT_NE(a, c);
    std::unordered_set<sycl::device> set{a, b, c};
    EXPECT_EQ(set.size(), 2u);
    EXPECT_EQ(std::hash<sycl::device>()(a), std::hash<sycl::device>()(b));
}

TEST(emulated_gpu, any_work_group_size_from_one_up) {
    for (std::size_t size : {1u, 2u, 3u, 1024u}) {
        sycl::device d = sycl::ext::hostsycl::make_gpu_device(size);
        EXPECT_TRUE(d.is_gpu());
        EXPECT_EQ(d.get_info<di::max_work_group_size>(), size);
        EXPECT_EQ(d.get_backend(), sycl::backend::ext_hostsycl_native);
        EXPECT_EQ(sycl::platform::get_platforms()[0].get_devices().size(), 2u);  // not listed
    }
    EXPECT_NE(sycl::ext::hostsycl::make_gpu_device(4), sycl::ext::hostsycl::make_gpu_device(4));
    try {
        sycl::ext::hostsycl::make_gpu_device(0);
        FAIL() << "no exception";
    } catch (const sycl::exception& e) {
        EXPECT_EQ(e.code(), sycl::errc::invalid);
    }
}

// The variable is read once, when the devices are first made: each case runs in a fresh
// process (the threadsafe death-test style re-executes the test program).
struct environment_case {
    const char* value;
    std::size_t expected;
};

class gpu_size_from_environment : public ::testing::TestWithParam<environment_case> {};

TEST_P(gpu_size_from_environment, is_read_when_devices_are_first_made) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto c = GetParam();
    const auto probe = [&] {
        setenv("HOSTSYCL_GPU_MAX_WORK_GROUP_SIZE", c.value, 1);
        const std::size_t got =
            sycl::device(sycl::gpu_selector_v).get_info<di::max_work_group_size>();
        std::exit(got == c.expected ? 0 : 1);
    };
    EXPECT_EXIT(probe(), ::testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(values,
                         gpu_size_from_environment,
                         ::testing::Values(environment_case{"64", 64},
                                           environment_case{"2", 2},
                                           environment_case{"1", 256},
                                           environment_case{"0", 256},
                                           environment_case{"-8", 256},
                                           environment_case{"12x", 256},
                                           environment_case{"", 256}),
                         [](const auto& info) { return "case_" + std::to_string(info.index); });

}  // namespace
