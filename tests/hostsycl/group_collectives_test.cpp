// reduce_over_group against exact references, local memory isolation and slack, group copies,
// and the nd_range checks of parallel_for.
#include <gtest/gtest.h>

#include <sycl/sycl.hpp>

#include <cmath>
#include <cstdint>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

namespace {

class reduce_kernel;
class negative_zero_kernel;
class isolation_kernel;
class copy_kernel;
class refused_kernel;
class broadcast_kernel;
class mixed_collectives_kernel;

struct reduce_case {
    std::size_t local;
    std::size_t groups;
};

void PrintTo(const reduce_case& c, std::ostream* os) {
    *os << c.groups << " groups of " << c.local;
}

class group_reduce : public ::testing::TestWithParam<reduce_case> {};

// Per group: sums of integers held exactly in double, minimum, maximum, and the forms with an
// initial value, all against references computed on the host in long double.
TEST_P(group_reduce, matches_exact_references_with_and_without_initial_value) {
    const auto c = GetParam();
    const std::size_t n = c.local * c.groups;
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(c.local)};
    std::vector<double> x(n);
    for (std::size_t i = 0; i < n; ++i)
        x[i] = static_cast<double>(static_cast<std::int64_t>((i * 2654435761u) % 20001) - 10000);
    double* in = sycl::malloc_shared<double>(n, q);
    double* out = sycl::malloc_shared<double>(6 * c.groups, q);
    std::copy(x.begin(), x.end(), in);
    q.submit([&](sycl::handler& cgh) {
         cgh.parallel_for<reduce_kernel>(sycl::nd_range<1>(n, c.local), [=](sycl::nd_item<1> it) {
             const auto g = it.get_group();
             const double v = in[it.get_global_id(0)];
             const double s = sycl::reduce_over_group(g, v, sycl::plus<double>());
             const double lo = sycl::reduce_over_group(g, v, sycl::minimum<double>());
             const double hi = sycl::reduce_over_group(g, v, sycl::maximum<double>());
             const double s0 = sycl::reduce_over_group(g, v, 0.5, sycl::plus<double>());
             const double lo0 = sycl::reduce_over_group(g, v, -20000.0, sycl::minimum<double>());
             const double hi0 = sycl::reduce_over_group(g, v, 0.0, sycl::maximum<double>());
             // Every work-item must see the same results; a disagreement poisons the output.
             const std::size_t k = 6 * it.get_group(0);
             if (it.get_local_id(0) == 0) {
                 out[k] = s;
                 out[k + 1] = lo;
                 out[k + 2] = hi;
                 out[k + 3] = s0;
                 out[k + 4] = lo0;
                 out[k + 5] = hi0;
             }
             sycl::group_barrier(g);
             if (out[k] != s || out[k + 1] != lo || out[k + 2] != hi)
                 out[k] = std::numeric_limits<double>::quiet_NaN();
         });
     }).wait_and_throw();
    for (std::size_t g = 0; g < c.groups; ++g) {
        long double sum = 0;
        double lo = x[g * c.local], hi = x[g * c.local];
        for (std::size_t l = 0; l < c.local; ++l) {
            sum += x[g * c.local + l];
            lo = std::min(lo, x[g * c.local + l]);
            hi = std::max(hi, x[g * c.local + l]);
        }
        const double* r = out + 6 * g;
        EXPECT_EQ(r[0], static_cast<double>(sum)) << "group " << g;
        EXPECT_EQ(r[1], lo) << "group " << g;
        EXPECT_EQ(r[2], hi) << "group " << g;
        EXPECT_EQ(r[3], static_cast<double>(sum + 0.5L)) << "group " << g;
        EXPECT_EQ(r[4], -20000.0) << "group " << g;
        EXPECT_EQ(r[5], std::max(hi, 0.0)) << "group " << g;
    }
    sycl::free(in, q);
    sycl::free(out, q);
}

INSTANTIATE_TEST_SUITE_P(group_sizes,
                         group_reduce,
                         ::testing::Values(reduce_case{1, 3},
                                           reduce_case{2, 5},
                                           reduce_case{7, 9},
                                           reduce_case{64, 4},
                                           reduce_case{256, 3}),
                         [](const auto& info) {
                             return "local_" + std::to_string(info.param.local);
                         });

// A sum of negative zeros is a negative zero; adding the initial value 0 makes it positive.
TEST(group_reduce_signs, initial_zero_turns_negative_zero_positive) {
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(16)};
    float* out = sycl::malloc_shared<float>(2, q);
    q.submit([&](sycl::handler& cgh) {
         cgh.parallel_for<negative_zero_kernel>(
             sycl::nd_range<1>(16, 16), [=](sycl::nd_item<1> it) {
                 const float a =
                     sycl::reduce_over_group(it.get_group(), -0.0f, sycl::plus<float>());
                 const float b =
                     sycl::reduce_over_group(it.get_group(), -0.0f, 0.0f, sycl::plus<float>());
                 if (it.get_local_id(0) == 0) {
                     out[0] = a;
                     out[1] = b;
                 }
             });
     }).wait_and_throw();
    EXPECT_TRUE(std::signbit(out[0]));
    EXPECT_FALSE(std::signbit(out[1]));
    sycl::free(out, q);
}

// Every group fills its two local arrays and the slack behind them with its own id, then
// counts what it reads back that is not its own: groups run concurrently on the pool.
TEST(local_memory, each_group_sees_only_its_own_arena_and_slack) {
    constexpr std::size_t local = 32, groups = 64;
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(local)};
    int* bad = sycl::malloc_shared<int>(groups, q);
    std::size_t observed_local_bytes = 0;
    sycl::ext::hostsycl::set_launch_observer([&](const sycl::ext::hostsycl::launch_record& r) {
        observed_local_bytes = r.local_memory_bytes;
    });
    q.submit([&](sycl::handler& cgh) {
         sycl::local_accessor<int, 1> a(sycl::range<1>(local), cgh);
         sycl::local_accessor<int, 1> b(sycl::range<1>(local), cgh);
         cgh.parallel_for<isolation_kernel>(
             sycl::nd_range<1>(local * groups, local), [=](sycl::nd_item<1> it) {
                 const int g = static_cast<int>(it.get_group(0));
                 const std::size_t l = it.get_local_id(0);
                 a[l] = g;
                 b[l] = -g;
                 b[local + l] = 1000 + g;  // one array past b: the group's private slack
                 sycl::group_barrier(it.get_group());
                 int wrong = 0;
                 for (std::size_t i = 0; i < local; ++i)
                     wrong += (a[i] != g) + (b[i] != -g) + (b[local + i] != 1000 + g);
                 wrong = sycl::reduce_over_group(it.get_group(), wrong, sycl::plus<int>());
                 if (l == 0)
                     bad[g] = wrong;
             });
     }).wait_and_throw();
    sycl::ext::hostsycl::set_launch_observer({});
    EXPECT_EQ(observed_local_bytes, 2 * local * sizeof(int));
    for (std::size_t g = 0; g < groups; ++g)
        EXPECT_EQ(bad[g], 0) << "group " << g;
    sycl::free(bad, q);
}

// async_work_group_copy brings a strided row into local memory; every work-item reads it after
// waiting on the event, with no barrier of its own.
TEST(group_copy, strided_copy_is_complete_for_every_work_item_after_wait) {
    constexpr std::size_t local = 7, groups = 3, stride = 3;
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(local)};
    const std::size_t n = local * groups * stride;
    double* in = sycl::malloc_device<double>(n, q);
    double* out = sycl::malloc_shared<double>(local * groups, q);
    for (std::size_t i = 0; i < n; ++i)
        in[i] = static_cast<double>(i) * 0.25;
    q.submit([&](sycl::handler& cgh) {
         sycl::local_accessor<double, 1> loc(sycl::range<1>(local), cgh);
         cgh.parallel_for<copy_kernel>(
             sycl::nd_range<1>(local * groups, local), [=](sycl::nd_item<1> it) {
                 const std::size_t g = it.get_group(0);
                 auto src = sycl::address_space_cast<sycl::access::address_space::global_space,
                                                     sycl::access::decorated::yes>(in + g * local *
                                                                                            stride);
                 sycl::device_event e = it.async_work_group_copy(
                     loc.get_multi_ptr<sycl::access::decorated::yes>(), src, local, stride);
                 e.wait();
                 const std::size_t l = it.get_local_id(0);
                 out[it.get_global_id(0)] = loc[local - 1 - l];
             });
     }).wait_and_throw();
    for (std::size_t g = 0; g < groups; ++g)
        for (std::size_t l = 0; l < local; ++l)
            EXPECT_EQ(out[g * local + l], in[g * local * stride + (local - 1 - l) * stride]);
    sycl::free(in, q);
    sycl::free(out, q);
}

// group_broadcast hands every work-item the value of the chosen one.
TEST(group_broadcast, every_work_item_gets_the_chosen_value) {
    constexpr std::size_t local = 7, groups = 4;
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(local)};
    long* out = sycl::malloc_shared<long>(2 * local * groups, q);
    q.submit([&](sycl::handler& cgh) {
         cgh.parallel_for<broadcast_kernel>(
             sycl::nd_range<1>(local * groups, local), [=](sycl::nd_item<1> it) {
                 const long mine = static_cast<long>(it.get_global_id(0)) * 10;
                 const std::size_t i = it.get_global_id(0);
                 out[2 * i] = sycl::group_broadcast(it.get_group(), mine);
                 out[2 * i + 1] = sycl::group_broadcast(it.get_group(), mine, 5);
             });
     }).wait_and_throw();
    for (std::size_t i = 0; i < local * groups; ++i) {
        const long first = static_cast<long>(i / local * local) * 10;
        EXPECT_EQ(out[2 * i], first) << i;
        EXPECT_EQ(out[2 * i + 1], first + 50) << i;
    }
    sycl::free(out, q);
}

// Collectives back to back with no barrier between them, of growing and shrinking types:
// every work-item must read each result before the next collective can overwrite it.
TEST(group_collectives, back_to_back_collectives_of_different_types_keep_their_results) {
    constexpr std::size_t local = 64, groups = 8;
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(local)};
    int* wrong = sycl::malloc_shared<int>(local * groups, q);
    q.submit([&](sycl::handler& cgh) {
         cgh.parallel_for<mixed_collectives_kernel>(
             sycl::nd_range<1>(local * groups, local), [=](sycl::nd_item<1> it) {
                 const auto g = it.get_group();
                 const std::size_t l = it.get_local_id(0);
                 const long base = static_cast<long>(it.get_group(0)) * 1000;
                 const float a = sycl::reduce_over_group(g, 1.0f, sycl::plus<float>());
                 const double b =
                     sycl::reduce_over_group(g, static_cast<double>(l), sycl::maximum<double>());
                 const char c =
                     sycl::reduce_over_group(g, static_cast<char>(l % 3), sycl::minimum<char>());
                 const long d = sycl::group_broadcast(g, base + static_cast<long>(l), 9);
                 const long e = sycl::reduce_over_group(g, base, 5L, sycl::plus<long>());
                 wrong[it.get_global_id(0)] =
                     (a != 64.0f) + (b != 63.0) + (c != 0) + (d != base + 9) + (e != base * 64 + 5);
             });
     }).wait_and_throw();
    for (std::size_t i = 0; i < local * groups; ++i)
        EXPECT_EQ(wrong[i], 0) << i;
    sycl::free(wrong, q);
}

struct refused_range {
    std::size_t global;
    std::size_t local;
    const char* what;
};

void PrintTo(const refused_range& c, std::ostream* os) {
    *os << "global " << c.global << ", local " << c.local;
}

class nd_range_checks : public ::testing::TestWithParam<refused_range> {};

TEST_P(nd_range_checks, are_refused_at_submit_with_errc_nd_range) {
    const auto c = GetParam();
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(8)};
    bool ran = false;
    try {
        q.submit([&](sycl::handler& cgh) {
            cgh.parallel_for<refused_kernel>(sycl::nd_range<1>(c.global, c.local),
                                             [=](sycl::nd_item<1>) {});
        });
        FAIL() << "no exception";
    } catch (const sycl::exception& e) {
        ran = true;
        EXPECT_EQ(e.code(), sycl::errc::nd_range);
        EXPECT_EQ(e.code().value(), 4);
        EXPECT_STREQ(e.what(), c.what);
    }
    EXPECT_TRUE(ran);
}

INSTANTIATE_TEST_SUITE_P(
    refused,
    nd_range_checks,
    ::testing::Values(
        refused_range{10, 4,
                      "Non-uniform work-groups are not supported: the global size 10 is not a "
                      "multiple of the local size 4."},
        refused_range{32, 16,
                      "Total number of work-items in a work-group (16) exceeds the device's "
                      "max_work_group_size (8)."},
        refused_range{8, 0, "The local size of an nd_range must not be 0."}),
    [](const auto& info) {
        return "global_" + std::to_string(info.param.global) + "_local_" +
               std::to_string(info.param.local);
    });

}  // namespace
