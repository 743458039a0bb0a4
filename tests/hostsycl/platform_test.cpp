// The platform, its devices and sub-devices, the emulated GPU's group size, USM allocations seen
// through the observer, and round trips of native handles through backend 2.
#include <gtest/gtest.h>

#include <sycl/sycl.hpp>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <thread>
#include <tuple>
#include <unordered_set>
#include <vector>

namespace {

namespace hs = sycl::ext::hostsycl;
namespace di = sycl::info::device;
using pp = sycl::info::partition_property;
constexpr auto native = sycl::backend::ext_hostsycl_native;

std::uintptr_t handle(void* p) {
    return reinterpret_cast<std::uintptr_t>(p);
}

TEST(platform, lists_a_cpu_and_an_emulated_gpu_and_prefers_the_gpu) {
    const auto all = sycl::platform::get_platforms().at(0).get_devices();
    ASSERT_EQ(all.size(), 2u);
    EXPECT_TRUE(all[0].is_cpu() && !all[0].is_gpu() && all[1].is_gpu());
    EXPECT_EQ(sycl::device::get_devices(static_cast<sycl::info::device_type>(2)),
              std::vector<sycl::device>{all[1]});
    EXPECT_EQ(sycl::device(), all[1]);
    EXPECT_EQ(sycl::queue([](const sycl::device& d) { return d.is_cpu() ? 1 : 0; }).get_device(),
              all[0]);
    EXPECT_EQ(std::unordered_set<sycl::device>({all[0], all[1], sycl::device()}).size(), 2u);
    EXPECT_EQ(sycl::queue(all[0]).get_context(), sycl::queue(all[0]).get_context());
    EXPECT_EQ(static_cast<int>(sycl::backend::opencl) * 10 + static_cast<int>(native), 12);
    EXPECT_NE(sycl::get_native<native>(all[0]), sycl::get_native<native>(all[1]));
    EXPECT_EQ(sycl::get_native<native>(sycl::device()), sycl::get_native<native>(all[1]));
    for (std::size_t size : {1u, 3u, 1024u})
        EXPECT_EQ(hs::make_gpu_device(size).get_info<di::max_work_group_size>(), size);
    EXPECT_NE(hs::make_gpu_device(4), hs::make_gpu_device(4));
    EXPECT_EQ(sycl::device::get_devices().size(), 2u);  // GPUs made on demand are not listed
}

// The variable is read once, when the devices are first made: each value runs in a fresh
// process (the threadsafe death-test style re-executes the test program).
TEST(platform, the_gpu_group_size_comes_from_the_environment_when_it_is_a_number_above_one) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::pair<const char*, std::size_t> cases[] = {
        {"64", 64}, {"2", 2}, {"1", 256}, {"0", 256}, {"-8", 256}, {"12x", 256}, {"", 256}};
    for (const auto& [text, size] : cases) {
        const auto probe = [text = text, size = size] {
            setenv("HOSTSYCL_GPU_MAX_WORK_GROUP_SIZE", text, 1);
            std::exit(sycl::device().get_info<di::max_work_group_size>() == size ? 0 : 1);
        };
        EXPECT_EXIT(probe(), ::testing::ExitedWithCode(0), "") << "'" << text << "'";
    }
}

// The emulated GPU splits into two tiles of two slices, the same devices and handles every time.
TEST(platform, the_emulated_gpu_splits_into_tiles_and_slices) {
    const sycl::device gpu{sycl::gpu_selector_v};
    const auto split = [](const sycl::device& d) {
        return d.create_sub_devices<pp::partition_by_affinity_domain>(
            static_cast<sycl::info::partition_affinity_domain>(32));
    };
    EXPECT_EQ(gpu.get_info<di::partition_properties>(), std::vector<pp>{static_cast<pp>(4232)});
    const auto tiles = split(gpu);
    ASSERT_EQ(tiles.size(), 2u);
    EXPECT_EQ(tiles, split(gpu));
    EXPECT_EQ(tiles[1].get_info<di::parent_device>(), gpu);
    EXPECT_EQ(tiles[1].get_info<di::partition_type_property>(), pp::partition_by_affinity_domain);
    const sycl::device slice = split(tiles[1])[1];
    EXPECT_EQ(slice.get_info<di::name>(), "hostsycl emulated GPU, tile 1, slice 1");
    EXPECT_EQ(sycl::get_native<native>(slice), sycl::get_native<native>(split(tiles[1])[1]));
    EXPECT_NE(sycl::get_native<native>(slice), sycl::get_native<native>(split(tiles[0])[1]));
    EXPECT_TRUE(slice.get_info<di::partition_properties>().empty());
}

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
    // clang-format off
    EXPECT_EQ(seen, (decltype(seen){
        {op::malloc_device, d, 24}, {op::malloc_shared, nullptr, 20}, {op::malloc_host, nullptr, 7},
        {op::malloc_shared, s, 16}, {op::malloc_device, nullptr, 0}, {op::malloc_host, h, 1},
        {op::free, d, 0}, {op::free, s, 0}, {op::free, h, 0}}));
    // clang-format on
}

// A queue made from another's native handle shares its FIFO, and its end waits for what it
// was given: its host task runs after the other's and is done when the queue is gone.
TEST(native_handles, context_and_queue_round_trips_keep_the_native_objects) {
    const sycl::device gpu = hs::make_gpu_device(4);
    sycl::queue q{gpu};
    void* hc = sycl::get_native<native>(q.get_context());
    const sycl::context ctx = sycl::detail::make_context(handle(hc), {}, native, true, {gpu});
    EXPECT_EQ(sycl::get_native<native>(ctx), hc);
    EXPECT_EQ(ctx.get_devices(), std::vector<sycl::device>{gpu});
    int cell[2] = {0, 0};
    q.submit([&](sycl::handler& cgh) {
        cgh.host_task([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            cell[0] = 7;
        });
    });
    {
        void* hq = sycl::get_native<native>(q);
        sycl::queue back = sycl::detail::make_queue(handle(hq), 1, ctx, &gpu, true, {}, {}, native);
        EXPECT_EQ(std::tuple(sycl::get_native<native>(back), back.get_device(), back.get_context()),
                  std::tuple(hq, gpu, ctx));
        back.submit([&](sycl::handler& cgh) { cgh.host_task([&] { cell[1] = cell[0]; }); });
    }
    EXPECT_EQ(cell[1], 7);
}

// Adopted handles (keep_ownership false) give up one reference with their last copy, kept ones
// none.
TEST(native_handles, ownership_taken_is_released_with_the_last_copy) {
    sycl::queue q{sycl::cpu_selector_v};
    void* hc = sycl::get_native<native>(q.get_context());
    void* hq = sycl::get_native<native>(q);
    EXPECT_EQ(hs::native_retain(hc) + hs::native_retain(hq), 4u);
    {
        const sycl::context adopted = sycl::detail::make_context(handle(hc), {}, native, false);
        const sycl::context copy = adopted;
        const sycl::context kept = sycl::detail::make_context(handle(hc), {}, native, true);
        sycl::detail::make_queue(handle(hq), 0, kept, nullptr, false, {}, {}, native);
        sycl::detail::make_queue(handle(hq), 0, kept, nullptr, true, {}, {}, native);
        EXPECT_EQ(hs::native_reference_count(hc), 2u);
    }
    EXPECT_EQ(hs::native_reference_count(hc) + hs::native_reference_count(hq), 2u);
}

}  // namespace
