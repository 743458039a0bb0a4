// USM and buffer allocations: injected failures, the USM observer, and a failing buffer release.
#include <gtest/gtest.h>

#include <sycl/sycl.hpp>

#include <cstdint>
#include <tuple>
#include <vector>

namespace {

namespace hs = sycl::ext::hostsycl;

struct usm_event {
    hs::usm_op op;
    void* ptr;
    std::size_t bytes;
};

class usm_memory : public ::testing::Test {
  protected:
    void TearDown() override {
        hs::fail_next_allocations(0);
        hs::set_usm_observer({});
    }
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(16)};
};

TEST_F(usm_memory, allocations_are_aligned_host_memory_and_reported_to_the_observer) {
    std::vector<usm_event> seen;
    hs::set_usm_observer([&](hs::usm_op op, void* p, std::size_t b) {
        seen.push_back({op, p, b});
    });
    double* d = sycl::malloc_device<double>(3, q);
    float* s = sycl::malloc_shared<float>(5, q);
    void* h = sycl::malloc_host(7, q);
    ASSERT_NE(d, nullptr);
    ASSERT_NE(s, nullptr);
    ASSERT_NE(h, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(d) % 64, 0u);
    d[2] = 1.5;  // ordinary host memory, usable on the host
    EXPECT_EQ(d[2], 1.5);
    sycl::free(d, q);
    sycl::free(s, q.get_context());
    sycl::free(h, q);
    ASSERT_EQ(seen.size(), 6u);
    EXPECT_EQ(seen[0].op, hs::usm_op::malloc_device);
    EXPECT_EQ(seen[0].bytes, 24u);
    EXPECT_EQ(seen[0].ptr, static_cast<void*>(d));
    EXPECT_EQ(seen[1].op, hs::usm_op::malloc_shared);
    EXPECT_EQ(seen[1].bytes, 20u);
    EXPECT_EQ(seen[2].op, hs::usm_op::malloc_host);
    EXPECT_EQ(seen[2].bytes, 7u);
    EXPECT_EQ(seen[3].op, hs::usm_op::free);
    EXPECT_EQ(seen[3].ptr, static_cast<void*>(d));
    EXPECT_EQ(seen[4].ptr, static_cast<void*>(s));
    EXPECT_EQ(seen[5].ptr, h);
}

TEST_F(usm_memory, zero_bytes_give_null) {
    EXPECT_EQ(sycl::malloc_device(0, q), nullptr);
    sycl::free(nullptr, q);  // freeing null is harmless
}

TEST_F(usm_memory, injected_failures_hit_the_next_n_allocations_then_stop) {
    std::vector<usm_event> seen;
    hs::set_usm_observer([&](hs::usm_op op, void* p, std::size_t b) {
        seen.push_back({op, p, b});
    });
    hs::fail_next_allocations(2);
    EXPECT_EQ(sycl::malloc_device<int>(4, q), nullptr);
    EXPECT_EQ(sycl::malloc_shared<int>(4, q), nullptr);
    int* third = sycl::malloc_shared<int>(4, q);
    EXPECT_NE(third, nullptr);
    sycl::free(third, q);
    ASSERT_EQ(seen.size(), 4u);
    EXPECT_EQ(seen[0].ptr, nullptr);  // the observer sees the failed result too
    EXPECT_EQ(seen[0].bytes, 16u);
}

TEST_F(usm_memory, injected_failures_are_cleared_by_zero) {
    hs::fail_next_allocations(5);
    hs::fail_next_allocations(0);
    int* p = sycl::malloc_device<int>(1, q);
    EXPECT_NE(p, nullptr);
    sycl::free(p, q);
}

TEST_F(usm_memory, buffer_allocation_failure_is_errc_memory_allocation) {
    hs::fail_next_allocations(1);
    try {
        sycl::buffer<double, 1> b{sycl::range<1>(10)};
        FAIL() << "no exception";
    } catch (const sycl::exception& e) {
        EXPECT_EQ(e.code(), sycl::errc::memory_allocation);
        EXPECT_EQ(e.code().value(), 9);
        EXPECT_STREQ(e.what(), "Cannot allocate 80 bytes for a buffer.");
    }
    sycl::buffer<double, 1> next{sycl::range<1>(10)};  // the failure was used up
    EXPECT_EQ(next.size(), 10u);
    EXPECT_EQ(next.byte_size(), 80u);
}

using buffer_release_death = ::testing::Test;

TEST(buffer_release_death, a_failing_release_is_reported_and_stops_on_an_assertion) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto release_one = [] {
        hs::fail_next_buffer_releases(1);
        sycl::buffer<int, 1> b{sycl::range<1>(4)};
    };
    EXPECT_DEATH(release_one(),
                 "exception in ~buffer The buffer's storage could not be released\\.\n.*Assertion");
}

TEST(buffer_release, only_the_last_copy_releases) {
    std::vector<int> host{1, 2};
    {
        sycl::buffer<int, 1> a(host.data(), sycl::range<1>(2));
        {
            sycl::buffer<int, 1> copy = a;
            EXPECT_TRUE(copy == a);
            sycl::host_accessor h(copy);
            h[0] = 5;
        }
        EXPECT_EQ(host[0], 1);  // the copy's end wrote nothing back
    }
    EXPECT_EQ(host[0], 5);
}

}  // namespace
