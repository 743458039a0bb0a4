// The launch tree of the moment engine on emulated GPUs of tiny work-group sizes: which steps
// run with which ranges, and that every shape of tree gives the reference results.
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "support/data.hpp"
#include "support/launch_log.hpp"
#include "support/moment_families.hpp"
#include "support/reference.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/stats.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;

struct tree_case {
    std::size_t group_size;
    std::int64_t n_observations;
    const char* launches;  // expected, as describe() writes them
};

// n = g (single step), g + 1 (tail of 1), k * g (full last group), g * g (no intermediate
// step), g * g + 1 (one intermediate step), g^3 + 1 (two intermediate steps).
const std::vector<tree_case>& tree_cases() {
    static const std::vector<tree_case> cases{
        {2, 1, "single 1/1"},
        {2, 2, "single 2/2"},
        {2, 3, "first 4/2, last 2/2"},
        {2, 8, "first 8/2, next 4/2, last 2/2"},
        {2, 4, "first 4/2, last 2/2"},
        {2, 5, "first 6/2, next 4/2, last 2/2"},
        {2, 9, "first 10/2, next 6/2, next 4/2, last 2/2"},
        {3, 3, "single 3/3"},
        {3, 4, "first 6/3, last 2/2"},
        {3, 12, "first 12/3, next 6/3, last 2/2"},
        {3, 9, "first 9/3, last 3/3"},
        {3, 10, "first 12/3, next 6/3, last 2/2"},
        {3, 28, "first 30/3, next 12/3, next 6/3, last 2/2"},
        {8, 8, "single 8/8"},
        {8, 9, "first 16/8, last 2/2"},
        {8, 24, "first 24/8, last 3/3"},
        {8, 64, "first 64/8, last 8/8"},
        {8, 65, "first 72/8, next 16/8, last 2/2"},
        {8, 513, "first 520/8, next 72/8, next 16/8, last 2/2"},
        {32, 32, "single 32/32"},
        {32, 33, "first 64/32, last 2/2"},
        {32, 96, "first 96/32, last 3/3"},
        {32, 1024, "first 1024/32, last 32/32"},
        {32, 1025, "first 1056/32, next 64/32, last 2/2"},
    };
    return cases;
}

// The families that exercise both kinds of sums helper and every plane: mean (plane 0 alone),
// kurtosis (four planes), central_moment around a caller's mean (deviations, planes 0 and 2).
template <typename T, st::layout L>
void check_tree_case(const tree_case& tc, bool weighted) {
    sycl::queue q(sycl::ext::hostsycl::make_gpu_device(tc.group_size));
    constexpr std::int64_t n_dims = 3;
    host_data<T> host = skewed_data<T>(n_dims, tc.n_observations, L);
    if (weighted)
        host.weights = random_weights<T>(tc.n_observations);
    usm_array<T> obs(q, host.observations);
    usm_array<T> weights(q, weighted ? host.weights : std::vector<T>(1));
    const st::dataset<L, T*> data{n_dims, tc.n_observations, obs.get(),
                                  weighted ? weights.get() : nullptr};
    usm_array<T> centre(q, static_cast<std::size_t>(n_dims));
    for (std::int64_t d = 0; d < n_dims; ++d) {
        centre[static_cast<std::size_t>(d)] =
            static_cast<T>(reference_of(host, d).mean()) + T(0.25);
    }
    usm_array<T> mean(q, n_dims), kurt(q, n_dims), c2(q, n_dims), c4(q, n_dims);

    const auto log = record_launches([&] {
        st::mean<1, T, L>(q, data, mean.get()).wait();
        st::kurtosis<1, T, L>(q, data, kurt.get()).wait();
        st::central_moment<1, T, L>(q, centre.get(), data, c2.get(), nullptr, c4.get()).wait();
    });
    // Each of the three calls launches the same tree.
    ASSERT_EQ(log.size() % 3, 0u);
    const std::vector<sycl::ext::hostsycl::launch_record> first_call(
        log.begin(), log.begin() + static_cast<std::ptrdiff_t>(log.size() / 3));
    EXPECT_EQ(describe(first_call), tc.launches);

    for (std::int64_t d = 0; d < n_dims; ++d) {
        const auto i = static_cast<std::size_t>(d);
        const long double c = centre[i];
        const moment_reference own = reference_of(host, d);
        const moment_reference around = reference_of(host, d, &c);
        constexpr long double tol = moment_tolerance<T>();
        EXPECT_TRUE(close_to(mean[i], own.mean(), tol)) << "mean, dimension " << d;
        // With one observation the corrected variance divides by W * W - W2 = 0.
        if (tc.n_observations > 1) {
            EXPECT_TRUE(close_to(kurt[i], own.kurtosis(), tol)) << "kurtosis, dimension " << d;
            EXPECT_TRUE(close_to(c2[i], around.central_moment(2), tol)) << "c2, dimension " << d;
        }
        EXPECT_TRUE(close_to(c4[i], around.central_moment(4), tol)) << "c4, dimension " << d;
    }
}

template <typename T>
class MomentLaunchTree : public ::testing::Test {};
using element_types = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MomentLaunchTree, element_types);

TYPED_TEST(MomentLaunchTree, StepsAndResultsForEveryShapeOfTree) {
    for (const tree_case& tc : tree_cases()) {
        for (bool weighted : {false, true}) {
            SCOPED_TRACE("group size " + std::to_string(tc.group_size) + ", n = " +
                         std::to_string(tc.n_observations) + (weighted ? ", weighted" : ""));
            check_tree_case<TypeParam, st::row_major>(tc, weighted);
            check_tree_case<TypeParam, st::col_major>(tc, weighted);
        }
    }
}

// With no dimension the kernels still run, with loops that do nothing.
TEST(MomentLaunchTree, NoDimensionsRunsTheTreeAndWritesNothing) {
    sycl::queue q(sycl::ext::hostsycl::make_gpu_device(8));
    usm_array<double> obs(q, std::vector<double>(100, 1.0));
    usm_array<double> out(q, 1);
    out[0] = 42.0;
    const st::dataset<st::row_major, double*> data{0, 100, obs.get()};
    const auto log =
        record_launches([&] { st::skewness<1, double, st::row_major>(q, data, out.get()).wait(); });
    EXPECT_EQ(describe(log), "first 104/8, next 16/8, last 2/2");
    EXPECT_EQ(out[0], 42.0);
}

// The temporaries are released before the call returns, which waits for the last launch: the
// result is in place without waiting on the event handed back.
TEST(MomentLaunchTree, ResultIsInPlaceWhenTheCallReturns) {
    sycl::queue q(sycl::ext::hostsycl::make_gpu_device(4));
    std::vector<float> values(17);
    for (int i = 0; i < 17; ++i)
        values[static_cast<std::size_t>(i)] = float(i + 1);
    usm_array<float> obs(q, values);
    usm_array<float> out(q, 1);
    const st::dataset<st::col_major, float*> data{1, 17, obs.get()};
    st::mean<1, float, st::col_major>(q, data, out.get());
    EXPECT_EQ(out[0], 9.0f);
}

}  // namespace
