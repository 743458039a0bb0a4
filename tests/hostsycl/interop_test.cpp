// Native handles of hostsycl's own layer: get_native, make_context and make_queue round trips,
// ownership flags, refused backends, and the sub-device tree.
#include <gtest/gtest.h>

#include <sycl/sycl.hpp>

#include <cstdint>
#include <optional>
#include <vector>

namespace {

namespace hs = sycl::ext::hostsycl;
constexpr auto native = sycl::backend::ext_hostsycl_native;

class ordered_kernel;

std::uintptr_t handle_of(void* p) {
    return reinterpret_cast<std::uintptr_t>(p);
}

TEST(native_handles, backend_values_are_those_of_interoperation) {
    EXPECT_EQ(static_cast<int>(sycl::backend::opencl), 1);
    EXPECT_EQ(static_cast<int>(native), 2);
    for (const auto& p : sycl::platform::get_platforms()) {
        EXPECT_EQ(p.get_backend(), native);
        for (const auto& d : p.get_devices())
            EXPECT_EQ(d.get_backend(), native);
    }
}

TEST(native_handles, device_handles_are_stable_and_distinct) {
    const auto devices = sycl::device::get_devices();
    ASSERT_EQ(devices.size(), 2u);
    void* a = sycl::get_native<native>(devices[0]);
    void* b = sycl::get_native<native>(devices[1]);
    EXPECT_NE(a, nullptr);
    EXPECT_NE(a, b);
    EXPECT_EQ(sycl::get_native<native>(sycl::device::get_devices()[1]), b);
}

TEST(native_handles, context_round_trip_keeps_the_native_context) {
    sycl::device gpu{sycl::gpu_selector_v};
    sycl::context ctx{gpu};
    void* h = sycl::get_native<native>(ctx);
    sycl::context back = sycl::detail::make_context(handle_of(h), {}, native, true, {gpu});
    EXPECT_EQ(sycl::get_native<native>(back), h);
    EXPECT_EQ(back.get_devices(), std::vector<sycl::device>{gpu});
    sycl::context copy;
    copy = back;  // copy assignment, as the caches do
    EXPECT_TRUE(copy == back);
    EXPECT_EQ(sycl::get_native<native>(copy), h);
}

TEST(native_handles, queue_round_trip_shares_the_native_fifo) {
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(4)};
    sycl::device dev = q.get_device();
    void* h = sycl::get_native<native>(q);
    sycl::queue back =
        sycl::detail::make_queue(handle_of(h), 1, q.get_context(), &dev, true, {}, {}, native);
    EXPECT_EQ(sycl::get_native<native>(back), h);
    EXPECT_EQ(back.get_device(), dev);
    EXPECT_EQ(back.get_context(), q.get_context());
    // The two handles feed one FIFO: a host task on one sees the kernel of the other done.
    int* cell = sycl::malloc_shared<int>(2, q);
    cell[0] = 0;
    q.submit([&](sycl::handler& cgh) {
        cgh.parallel_for<ordered_kernel>(sycl::nd_range<1>(4, 4), [=](sycl::nd_item<1> it) {
            volatile int spin = 0;
            for (int k = 0; k < 100000; ++k)
                spin = spin + 1;
            if (it.get_local_id(0) == 0)
                cell[0] = 7;
        });
    });
    back.submit([&](sycl::handler& cgh) { cgh.host_task([=] { cell[1] = cell[0]; }); }).wait();
    EXPECT_EQ(cell[1], 7);
    sycl::free(cell, q);
}

TEST(native_handles, ownership_taken_is_released_with_the_last_copy) {
    sycl::context ctx{sycl::device(sycl::cpu_selector_v)};
    void* h = sycl::get_native<native>(ctx);
    EXPECT_EQ(hs::native_reference_count(h), 1u);
    EXPECT_EQ(hs::native_retain(h), 2u);
    {
        sycl::context adopted = sycl::detail::make_context(handle_of(h), {}, native, false);
        sycl::context copy = adopted;
        EXPECT_EQ(hs::native_reference_count(h), 2u);
    }
    EXPECT_EQ(hs::native_reference_count(h), 1u);  // the adopted reference went with it
    { sycl::context borrowed = sycl::detail::make_context(handle_of(h), {}, native, true); }
    EXPECT_EQ(hs::native_reference_count(h), 1u);  // kept ownership: nothing released
}

TEST(native_handles, queue_ownership_flags_are_honoured) {
    sycl::queue q{sycl::cpu_selector_v};
    sycl::device dev = q.get_device();
    void* h = sycl::get_native<native>(q);
    hs::native_retain(h);
    {
        sycl::queue adopted =
            sycl::detail::make_queue(handle_of(h), 0, q.get_context(), &dev, false, {}, {}, native);
    }
    EXPECT_EQ(hs::native_reference_count(h), 1u);
    {
        sycl::queue borrowed = sycl::detail::make_queue(handle_of(h), 0, q.get_context(), nullptr,
                                                        true, {}, {}, native);
    }
    EXPECT_EQ(hs::native_reference_count(h), 1u);
}

TEST(native_handles, a_released_native_object_cannot_be_turned_back) {
    sycl::context ctx{sycl::device(sycl::cpu_selector_v)};
    void* h = sycl::get_native<native>(ctx);
    EXPECT_EQ(hs::native_release(h), 0u);
    try {
        sycl::detail::make_context(handle_of(h), {}, native, true);
        FAIL() << "no exception";
    } catch (const sycl::exception& e) {
        EXPECT_EQ(e.code(), sycl::errc::invalid);
        EXPECT_STREQ(e.what(), "make_context: the handle is not a live native object of hostsycl.");
    }
    int unrelated = 0;
    EXPECT_THROW(sycl::detail::make_context(handle_of(&unrelated), {}, native, true),
                 sycl::exception);
}

TEST(native_handles, opencl_backend_is_refused_with_feature_not_supported) {
    sycl::queue q{sycl::cpu_selector_v};
    const char* words =
        ": the OpenCL backend (1) is not served by hostsycl; use backend::ext_hostsycl_native "
        "(2).";
    try {
        sycl::detail::make_context(handle_of(sycl::get_native<native>(q.get_context())), {},
                                   sycl::backend::opencl, false);
        FAIL() << "no exception";
    } catch (const sycl::exception& e) {
        EXPECT_EQ(e.code(), sycl::errc::feature_not_supported);
        EXPECT_EQ(e.code().value(), 12);
        EXPECT_EQ(std::string(e.what()), std::string("make_context") + words);
    }
    try {
        sycl::detail::make_queue(handle_of(sycl::get_native<native>(q)), 0, q.get_context(),
                                 nullptr, false, {}, {}, sycl::backend::opencl);
        FAIL() << "no exception";
    } catch (const sycl::exception& e) {
        EXPECT_EQ(e.code(), sycl::errc::feature_not_supported);
        EXPECT_EQ(std::string(e.what()), std::string("make_queue") + words);
    }
}

TEST(native_handles, get_native_for_another_backend_is_a_backend_mismatch) {
    try {
        sycl::get_native<sycl::backend::opencl>(sycl::device(sycl::cpu_selector_v));
        FAIL() << "no exception";
    } catch (const sycl::exception& e) {
        EXPECT_EQ(e.code(), sycl::errc::backend_mismatch);
        EXPECT_EQ(e.code().value(), 14);
        EXPECT_STREQ(e.what(), "Backends mismatch");
    }
}

TEST(native_handles, make_queue_refuses_a_device_that_is_not_the_queues) {
    sycl::queue q{sycl::cpu_selector_v};
    sycl::device other{sycl::gpu_selector_v};
    EXPECT_THROW(sycl::detail::make_queue(handle_of(sycl::get_native<native>(q)), 0,
                                          q.get_context(), &other, true, {}, {}, native),
                 sycl::exception);
}

// A depth-first search by native handle over the partition tree, the way a caller that holds
// only a native device handle finds its SYCL device.
std::optional<sycl::device> match(const sycl::device& d, void* wanted, int& splits) {
    if (sycl::get_native<native>(d) == wanted)
        return d;
    for (auto p : d.get_info<sycl::info::device::partition_properties>()) {
        if (static_cast<int>(p) != 4232)
            continue;
        ++splits;
        for (const auto& s :
             d.create_sub_devices<sycl::info::partition_property::partition_by_affinity_domain>(
                 static_cast<sycl::info::partition_affinity_domain>(32)))
            if (auto found = match(s, wanted, splits))
                return found;
    }
    return std::nullopt;
}

TEST(sub_devices, the_emulated_gpu_splits_twice_by_affinity_domain) {
    sycl::device gpu{sycl::gpu_selector_v};
    using pp = sycl::info::partition_property;
    using domain = sycl::info::partition_affinity_domain;
    EXPECT_EQ(gpu.get_info<sycl::info::device::partition_properties>(),
              std::vector<pp>{pp::partition_by_affinity_domain});
    const auto tiles =
        gpu.create_sub_devices<pp::partition_by_affinity_domain>(domain::next_partitionable);
    ASSERT_EQ(tiles.size(), 2u);
    EXPECT_EQ(tiles, gpu.create_sub_devices<pp::partition_by_affinity_domain>(
                         domain::next_partitionable));  // the same devices every time
    EXPECT_TRUE(tiles[1].is_gpu());
    EXPECT_EQ(tiles[1].get_info<sycl::info::device::parent_device>(), gpu);
    EXPECT_EQ(tiles[1].get_info<sycl::info::device::partition_type_property>(),
              pp::partition_by_affinity_domain);
    EXPECT_EQ(tiles[1].get_info<sycl::info::device::max_work_group_size>(),
              gpu.get_info<sycl::info::device::max_work_group_size>());
    const auto slices =
        tiles[1].create_sub_devices<pp::partition_by_affinity_domain>(domain::next_partitionable);
    ASSERT_EQ(slices.size(), 2u);
    EXPECT_TRUE(slices[0].get_info<sycl::info::device::partition_properties>().empty());
    try {
        slices[0].create_sub_devices<pp::partition_by_affinity_domain>(domain::next_partitionable);
        FAIL() << "no exception";
    } catch (const sycl::exception& e) {
        EXPECT_EQ(e.code(), sycl::errc::feature_not_supported);
    }
    EXPECT_THROW(sycl::device(sycl::cpu_selector_v)
                     .create_sub_devices<pp::partition_by_affinity_domain>(domain::numa),
                 sycl::exception);
    EXPECT_THROW(gpu.get_info<sycl::info::device::parent_device>(), sycl::exception);
    EXPECT_EQ(static_cast<int>(pp::partition_by_affinity_domain), 4232);
    EXPECT_EQ(static_cast<int>(domain::next_partitionable), 32);
}

TEST(sub_devices, a_native_handle_of_the_second_tile_is_found_by_searching_the_tree) {
    sycl::device gpu{sycl::gpu_selector_v};
    const auto tiles =
        gpu.create_sub_devices<sycl::info::partition_property::partition_by_affinity_domain>(
            sycl::info::partition_affinity_domain::next_partitionable);
    void* wanted = sycl::get_native<native>(tiles[1]);
    int splits = 0;
    auto found = match(gpu, wanted, splits);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(*found, tiles[1]);
    EXPECT_EQ(splits, 2);  // the root, then the first tile, before the second tile matched
    sycl::queue on_tile{*found};
    EXPECT_EQ(on_tile.get_device(), tiles[1]);
}

}  // namespace
