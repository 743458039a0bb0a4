// The merge of partial results: any split of the observations, merged in any order and
// grouping, finishes to the estimates of all observations, as long-double references give them.
#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <tavrel/qnd/partial.hpp>

#include "long_double_partial.hpp"

namespace {

namespace stats = tavrel::qnd::stats;
using qnd_test::direct;

// The sums and extremes of p, then its estimates as finished in R.
template <typename R>
std::vector<double> fields(const stats::partial<R>& p, R centre) {
    const auto f = stats::finish(p, centre);
    return {double(p.w),       double(p.w2),  double(p.s1),        double(p.s2),
            double(p.s3),      double(p.s4),  double(p.cs2),       double(p.cs3),
            double(p.cs4),     double(p.min), double(p.max),       double(f.mean),
            double(f.r2),      double(f.r3),  double(f.r4),        double(f.c2),
            double(f.c3),      double(f.c4),  double(f.variation), double(f.skewness),
            double(f.kurtosis)};
}

TEST(partial_merge, any_split_in_any_order_matches_long_double_references) {
    // Skewed data away from zero, so that every central quantity is well away from 0.
    std::mt19937_64 gen(7);
    std::exponential_distribution<double> tail(0.5);
    std::uniform_real_distribution<double> weight(0.25, 2.0);
    const std::size_t n = 41;
    std::vector<double> x(n), w(n);
    for (std::size_t i = 0; i < n; ++i)
        x[i] = 50 + tail(gen), w[i] = weight(gen);
    for (std::size_t i = 10; i < 17; ++i)
        w[i] = 0;  // the part [14, 16) of the split into sevens has no weight at all

    const long double given = 49.0;
    const std::tuple<const char*, bool, const long double*> cases[] = {
        {"unweighted", false, nullptr},
        {"weighted, with weights of 0", true, nullptr},
        {"around a caller's centre", true, &given}};
    // clang-format off
    const std::vector<std::vector<std::size_t>> splits = {
        {41}, std::vector<std::size_t>(41, 1), {2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 1},
        {7, 7, 7, 7, 7, 6}, {1, 40}, {20, 1, 20}};
    // clang-format on
    using merge_fn = std::function<stats::partial<double>(const stats::partial<double>&,
                                                          const stats::partial<double>&)>;
    for (const auto& [what, weighted, centre] : cases) {
        const std::vector<double> wc = weighted ? w : std::vector<double>{};
        const auto whole = direct<long double>(x, wc, 0, n, centre);
        const std::vector<double> want = fields(whole, centre ? *centre : whole.mean);
        const merge_fn merge =
            centre ? merge_fn(stats::merge_about_centre<double>) : merge_fn(stats::merge<double>);
        for (const auto& sizes : splits) {
            std::vector<stats::partial<double>> parts;
            std::size_t at = 0;
            for (std::size_t size : sizes) {
                parts.push_back(direct<double>(x, wc, at, at + size, centre));
                at += size;
            }
            ASSERT_EQ(at, n);
            // Left to right from an empty part, right to left, and as a balanced tree.
            stats::partial<double> left, right;
            for (const auto& p : parts)
                left = merge(left, p);
            for (auto it = parts.rbegin(); it != parts.rend(); ++it)
                right = merge(*it, right);
            std::vector<stats::partial<double>> level = parts;
            while (level.size() > 1) {
                std::vector<stats::partial<double>> up;
                for (std::size_t k = 0; k + 1 < level.size(); k += 2)
                    up.push_back(merge(level[k], level[k + 1]));
                if (level.size() % 2)
                    up.push_back(level.back());
                level = up;
            }
            for (const auto* got : {&left, &right, &level[0]}) {
                SCOPED_TRACE(std::string(what) + ", " + std::to_string(sizes.size()) + " parts");
                const std::vector<double> v = fields(*got, centre ? double(*centre) : got->mean);
                for (std::size_t k = 0; k < want.size(); ++k)
                    EXPECT_NEAR(v[k], want[k], 1e-12 * std::abs(want[k])) << "field " << k;
            }
        }
    }
}

TEST(partial_merge, nothing_merged_finishes_to_nan) {
    const auto f =
        stats::finish(stats::merge(stats::partial<double>{}, stats::partial<double>{}), 0.0);
    for (double v : {f.mean, f.r2, f.c2, f.c4, f.variation, f.skewness, f.kurtosis})
        EXPECT_TRUE(std::isnan(v));
    stats::partial<double> nan_min;
    nan_min.w = nan_min.w2 = 1;
    nan_min.min = nan_min.max = std::nan("");
    stats::partial<double> one = nan_min;
    one.min = one.max = 3;
    EXPECT_TRUE(std::isnan(stats::merge(one, nan_min).min));
    EXPECT_TRUE(std::isnan(stats::merge(nan_min, one).max));
}

}  // namespace
