// Small cases of the moment families whose results are known exactly, on the default emulated
// GPU and on a GPU of work-group size 2 (where even three observations take a tree of launches).
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "support/moment_families.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/stats.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();

struct exact_case {
    const char* name;
    std::vector<double> values;   // one dimension
    std::vector<double> weights;  // empty: unweighted
    moment_family family;
    int output;       // declaration order
    double expected;  // NaN: not a number expected
};

const std::vector<exact_case>& exact_cases() {
    const double v1234 = 5.0 / 3.0;
    static const std::vector<exact_case> cases{
        // 1, 2, 3: m = 2, C2 = 2, M2 = 2 * (3 / 6) = 1.
        {"mean of 1 2 3", {1, 2, 3}, {}, moment_family::mean, 0, 2.0},
        {"raw sums of 1 2 3", {1, 2, 3}, {}, moment_family::raw_sum, 3, 98.0},
        {"raw sum 2 of 1 2 3", {1, 2, 3}, {}, moment_family::raw_sum, 1, 14.0},
        {"raw moment 3 of 1 2 3", {1, 2, 3}, {}, moment_family::raw_moment, 2, 12.0},
        {"C2 of 1 2 3", {1, 2, 3}, {}, moment_family::central_sum, 0, 2.0},
        {"C3 of 1 2 3", {1, 2, 3}, {}, moment_family::central_sum, 1, 0.0},
        {"C4 of 1 2 3", {1, 2, 3}, {}, moment_family::central_sum, 2, 2.0},
        {"M2 of 1 2 3", {1, 2, 3}, {}, moment_family::central_moment, 0, 1.0},
        {"M4 of 1 2 3", {1, 2, 3}, {}, moment_family::central_moment, 2, 2.0 / 3.0},
        // 1, 2, 3, 4: m = 2.5, V = 5/3, M3 = 0, C4 = 10.25, M4 = 2.5625.
        {"C4 of 1 2 3 4", {1, 2, 3, 4}, {}, moment_family::central_sum, 2, 10.25},
        {"M4 of 1 2 3 4", {1, 2, 3, 4}, {}, moment_family::central_moment, 2, 2.5625},
        {"variance of 1 2 3 4", {1, 2, 3, 4}, {}, moment_family::central_moment, 0, v1234},
        {"skewness of 1 2 3 4", {1, 2, 3, 4}, {}, moment_family::skewness, 0, 0.0},
        {"kurtosis of 1 2 3 4",
         {1, 2, 3, 4},
         {},
         moment_family::kurtosis,
         0,
         2.5625 / (v1234 * v1234) - 3.0},
        {"variation of 1 2 3 4",
         {1, 2, 3, 4},
         {},
         moment_family::variation,
         0,
         std::sqrt(v1234) / 2.5},
        // The sign of the mean is kept.
        {"variation of -1 -2 -3", {-1, -2, -3}, {}, moment_family::variation, 0, -0.5},
        // Weights that are zero, negative or not a number count as 1, in W and W2 too.
        {"mean, weights all 0", {1, 2, 3, 4}, {0, 0, 0, 0}, moment_family::mean, 0, 2.5},
        {"variance, weights all 0",
         {1, 2, 3, 4},
         {0, 0, 0, 0},
         moment_family::central_moment,
         0,
         v1234},
        {"variance, weights -1 NaN 1 1",
         {1, 2, 3, 4},
         {-1, nan_value, 1, 1},
         moment_family::central_moment,
         0,
         v1234},
        {"mean, weights 2 -3 1", {1, 2, 3}, {2, -3, 1}, moment_family::mean, 0, 7.0 / 4.0},
        {"raw sum 1, weights 2 -3 1", {1, 2, 3}, {2, -3, 1}, moment_family::raw_sum, 0, 7.0},
        {"raw sum 2, weights 2 -3 1", {1, 2, 3}, {2, -3, 1}, moment_family::raw_sum, 1, 15.0},
        // All weights c: W = nc, W2 = nc^2; M2 is the unweighted variance, M3, M4 plain.
        {"variance, weights all 2",
         {1, 2, 3, 4},
         {2, 2, 2, 2},
         moment_family::central_moment,
         0,
         v1234},
        {"M4, weights all 2", {1, 2, 3, 4}, {2, 2, 2, 2}, moment_family::central_moment, 2, 2.5625},
        {"kurtosis, weights all 2",
         {1, 2, 3, 4},
         {2, 2, 2, 2},
         moment_family::kurtosis,
         0,
         2.5625 / (v1234 * v1234) - 3.0},
        {"weighted sum of squares, weights all 2",
         {1, 2, 3, 4},
         {2, 2, 2, 2},
         moment_family::raw_sum,
         1,
         60.0},
        // What IEEE arithmetic gives, untested by the engine: zero variance, one observation.
        {"skewness of a constant", {5, 5, 5, 5}, {}, moment_family::skewness, 0, nan_value},
        {"kurtosis of a constant", {5, 5, 5, 5}, {}, moment_family::kurtosis, 0, nan_value},
        {"variation of a constant", {5, 5, 5, 5}, {}, moment_family::variation, 0, 0.0},
        {"variance of one observation", {7}, {}, moment_family::central_moment, 0, nan_value},
        {"mean with a NaN observation", {1, nan_value, 3}, {}, moment_family::mean, 0, nan_value},
    };
    return cases;
}

template <typename T>
class MomentExactCases : public ::testing::Test {};
using element_types = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MomentExactCases, element_types);

TYPED_TEST(MomentExactCases, KnownResults) {
    using T = TypeParam;
    // float results are rounded a few times on the way; double ones nearly exact.
    const double tol = std::is_same_v<T, float> ? 1e-6 : 1e-14;
    for (const sycl::device& dev :
         {sycl::device(sycl::gpu_selector_v), sycl::ext::hostsycl::make_gpu_device(2)}) {
        sycl::queue q(dev);
        for (const exact_case& c : exact_cases()) {
            SCOPED_TRACE(std::string(c.name) + " on a GPU of " +
                         std::to_string(dev.get_info<sycl::info::device::max_work_group_size>()));
            const auto n = static_cast<std::int64_t>(c.values.size());
            usm_array<T> obs(q, std::vector<T>(c.values.begin(), c.values.end()));
            usm_array<T> weights(q, std::vector<T>(c.weights.begin(), c.weights.end()));
            const st::dataset<st::row_major, T*> data{1, n, obs.get(),
                                                      c.weights.empty() ? nullptr : weights.get()};
            std::vector<std::unique_ptr<usm_array<T>>> outs;
            std::array<T*, 4> ptrs{};
            for (int k = 0; k < 4; ++k) {
                outs.push_back(std::make_unique<usm_array<T>>(q, 1));
                ptrs[static_cast<std::size_t>(k)] = outs.back()->get();
            }
            call_moment_family<1, T, st::row_major>(c.family, q, nullptr, data, ptrs).wait();
            const double got = (*outs[static_cast<std::size_t>(c.output)])[0];
            if (std::isnan(c.expected)) {
                EXPECT_TRUE(std::isnan(got)) << "got " << got;
            } else {
                EXPECT_NEAR(got, c.expected, tol * std::max(1.0, std::fabs(c.expected)));
            }
        }
    }
}

}  // namespace
