// Exact small cases of the basic and minmax routines, and their values where the data leave
// nothing to estimate: one observation, constant data, NaN, weights of zero.
#include <limits>

#include "core_test_support.hpp"

using namespace core_test;

namespace {

const double nan = std::numeric_limits<double>::quiet_NaN();

// 1, 2, 3, 4 in the task's own element type: every estimate is a known fraction.
template <class T>
void check_one_to_four() {
    const T x[] = {1, 2, 3, 4};
    T out[19];
    std::fill(out, out + 19, T(-1));
    task_fixture<T> f(1, 4, QND_SS_ROW_MAJOR, x);
    // Parameters 7 to 25: mean, r2-r4, c2-c4, kurtosis, skewness, min, max, variation, s1-4, cs2-4.
    for (int32_t p = 7; p <= 25; ++p)
        ASSERT_EQ(f.edit(p, out + p - 7), QND_SS_OK);
    ASSERT_EQ(f.basic(QND_SS_BASIC_ESTIMATES, QND_SS_METHOD_FAST), QND_SS_OK);
    ASSERT_EQ(f.minmax(QND_SS_MIN | QND_SS_MAX, QND_SS_METHOD_FAST), QND_SS_OK);
    const double v = 5.0 / 3.0;
    const double want[19] = {
        2.5, 7.5, 25,  88.5, v, 0, 2.5625, 2.5625 / (v * v) - 3, 0, 1, 4, std::sqrt(v) / 2.5,
        10,  30,  100, 354,  5, 0, 10.25};
    const double tol = sizeof(T) == 4 ? 1e-6 : 1e-14;
    for (int k = 0; k < 19; ++k)
        EXPECT_NEAR(out[k], want[k], tol * (1 + std::fabs(want[k]))) << "parameter " << k + 7;
    EXPECT_NEAR(out[7], -2.0775, tol * 3);
}

TEST(SmallCases, OneToFour) {
    check_one_to_four<float>();
    check_one_to_four<double>();
}

// One dimension `x` with weights `w` (none if empty): its mean, variance and extremes (NaN == NaN).
struct small_case {
    const char* name;
    std::vector<double> x, w;
    double mean, variance, min, max;
};

TEST(SmallCases, ExactValues) {
    const std::vector<double> constant(5000, 3.25);
    const std::vector<double> with_nan = {1, 2, nan, 4, 5, 6, 7, 8, 9, 10, 11};
    std::vector<double> nan_weights(with_nan.size(), 1.0);
    nan_weights[2] = 0;
    const double m = -1e6;
    const small_case cases[] = {
        {"one two three", {1, 2, 3}, {}, 2, 1, 1, 3},
        // One observation: no spread, so the corrected variance is 0 / 0.
        {"one observation", {7}, {}, 7, nan, 7, 7},
        {"constant data", constant, {}, 3.25, 0, 3.25, 3.25},
        {"NaN propagates", with_nan, {}, nan, nan, nan, nan},
        {"NaN of weight zero is left out", with_nan, nan_weights, 6.3, 100.1 / 9, 1, 11},
        {"all weights zero", {1, 2, 3}, {0, 0, 0}, nan, nan, nan, nan},
        // Equal weights c: the corrected variance is the unweighted one, whatever c is.
        {"equal weights", {1, 2, 3, 6}, {0.375, 0.375, 0.375, 0.375}, 3, 14.0 / 3, 1, 6},
        {"negative numbers", {m - 3, m, m - 7, m - 1}, {}, m - 2.75, 28.75 / 3, m - 7, m},
    };
    const auto same = [](double got, double want) {
        return std::isnan(want) ? std::isnan(got)
                                : std::fabs(got - want) <= 1e-13 * std::fabs(want);
    };
    for (const small_case& c : cases) {
        SCOPED_TRACE(c.name);
        double mean = -1, variance = -1, mn = -1, mx = -1, cs4 = -1;
        task_fixture<double> f(1, c.x.size(), QND_SS_ROW_MAJOR, c.x.data(),
                               c.w.empty() ? nullptr : c.w.data());
        f.edit(QND_SS_ED_MEAN, &mean);
        f.edit(QND_SS_ED_CENTRAL_MOMENT_2, &variance);
        f.edit(QND_SS_ED_CENTRAL_SUM_2 + 2, &cs4);
        f.edit(QND_SS_ED_MIN, &mn);
        f.edit(QND_SS_ED_MAX, &mx);
        ASSERT_EQ(f.basic(QND_SS_MEAN | QND_SS_CENTRAL_MOMENT_2 | QND_SS_CENTRAL_SUM_4, 1), 0);
        ASSERT_EQ(f.minmax(QND_SS_MIN | QND_SS_MAX, 1), 0);
        EXPECT_TRUE(same(mean, c.mean) && same(variance, c.variance) && same(mn, c.min) &&
                    same(mx, c.max))
            << mean << ", " << variance << ", " << mn << ", " << mx;
        EXPECT_TRUE(c.variance != 0 || cs4 == 0) << "constant data: no spread at all";
    }
}

}  // namespace
