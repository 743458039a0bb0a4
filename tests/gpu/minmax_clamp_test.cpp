// The clamps of the extreme engine: every stored extreme is bounded by the seeds, so data without
// a positive normal value reads max_seed as its maximum, infinities past the seeds and results
// that are not a number read as the seeds; in every kernel of the chain and in both forms.
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "estimators/max.hpp"
#include "estimators/min.hpp"
#include "estimators/min_max.hpp"
#include "gpu/minmax_gpu_impl.hpp"
#include "gpu/minmax_test_data.hpp"

namespace {

using namespace tavrel::qnd::stats;
namespace gpu = tavrel::qnd::stats::detail::gpu;
namespace hs = sycl::ext::hostsycl;
using minmax_test::to_shared;

// The seeds as literal values, independent of how the engine spells them.
template <typename T>
struct seeds;
template <>
struct seeds<float> {
    static constexpr float min_seed = 3.4028234663852886e+38f;
    static constexpr float max_seed = 1.1754943508222875e-38f;
};
template <>
struct seeds<double> {
    static constexpr double min_seed = 1.7976931348623157e+308;
    static constexpr double max_seed = 2.2250738585072014e-308;
};

// Counts that walk the single launch, first + final, and one or two intermediate steps at group
// size 4.
constexpr std::int64_t group_size = 4;
constexpr std::int64_t counts[] = {3, 4, 9, 16, 17, 65};

template <typename T>
struct clamp_case {
    const char* hazard;
    std::function<T(std::int64_t)> value;  // observation i
    T want_min;
    T want_max;
};

template <typename T>
std::vector<clamp_case<T>> clamp_cases() {
    constexpr T inf = std::numeric_limits<T>::infinity();
    constexpr T nan = std::numeric_limits<T>::quiet_NaN();
    constexpr T denorm = std::numeric_limits<T>::denorm_min();
    constexpr T lowest = std::numeric_limits<T>::lowest();
    return {
        {"all negative", [](std::int64_t i) { return T(-1) - T(i % 3); }, T(-3),
         seeds<T>::max_seed},
        {"all zeros", [](std::int64_t) { return T(0); }, T(0), seeds<T>::max_seed},
        {"all negative zeros", [](std::int64_t) { return T(-0.0); }, T(-0.0), seeds<T>::max_seed},
        {"negative zeros and negatives", [](std::int64_t i) { return i % 2 ? T(-0.0) : T(-2); },
         T(-2), seeds<T>::max_seed},
        {"subnormal positives", [=](std::int64_t i) { return denorm * T(i + 1); }, denorm,
         seeds<T>::max_seed},
        {"most negative finite", [=](std::int64_t) { return lowest; }, lowest, seeds<T>::max_seed},
        {"all +inf", [=](std::int64_t) { return inf; }, seeds<T>::min_seed, inf},
        {"all -inf", [=](std::int64_t) { return -inf; }, -inf, seeds<T>::max_seed},
        {"both infinities", [=](std::int64_t i) { return i % 2 ? inf : -inf; }, -inf, inf},
        {"all NaN", [=](std::int64_t) { return nan; }, seeds<T>::min_seed, seeds<T>::max_seed},
        {"largest finite", [](std::int64_t) { return seeds<T>::min_seed; }, seeds<T>::min_seed,
         seeds<T>::min_seed},
        {"smallest normal", [](std::int64_t) { return seeds<T>::max_seed; }, seeds<T>::max_seed,
         seeds<T>::max_seed},
        {"just above smallest normal",
         [](std::int64_t) { return std::nextafter(seeds<T>::max_seed, T(1)); },
         std::nextafter(seeds<T>::max_seed, T(1)), std::nextafter(seeds<T>::max_seed, T(1))},
    };
}

template <typename T>
class MinmaxClamp : public ::testing::Test {};
using element_types = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MinmaxClamp, element_types);

// Dimension 0 holds the case's values, dimension 1 the plain numbers 1 to n: the clamp is per
// dimension, so the neighbour keeps its own extremes through every step of the chain.
template <typename T>
minmax_test::matrix<T> case_matrix(const clamp_case<T>& c, std::int64_t n) {
    minmax_test::matrix<T> m{2, n, std::vector<T>(2 * n)};
    for (std::int64_t i = 0; i < n; ++i) {
        m.set(0, i, c.value(i));
        m.set(1, i, T(i + 1));
    }
    return m;
}

// Every kernel of the chain stores clamped extremes, in both forms: min, max and min_max by
// pointer, min_max and max by buffer.
TYPED_TEST(MinmaxClamp, BothFormsStoreClampedExtremes) {
    using T = TypeParam;
    sycl::queue q{hs::make_gpu_device(group_size)};
    for (const auto& c : clamp_cases<T>()) {
        for (std::int64_t n : counts) {
            const std::string where = std::string(c.hazard) + ", n " + std::to_string(n);
            const auto m = case_matrix(c, n);
            auto obs = to_shared(q, m.stored(row_major));
            std::vector<minmax_test::usm_array<T>> got;
            for (int k = 0; k < 4; ++k)
                got.push_back(to_shared(q, std::vector<T>(2, T(7))));
            const dataset<row_major, T*> data(2, n, obs.get());
            gpu::submit_minmax_usm(q, data, gpu::min_func_fast<T, true>{{got[0].get()}}, {}).wait();
            gpu::submit_minmax_usm(q, data, gpu::max_func_fast<T, true>{{got[1].get()}}, {}).wait();
            gpu::submit_minmax_usm(
                q, data, gpu::min_max_func_fast<T, true>{{got[2].get()}, {got[3].get()}}, {})
                .wait();
            const auto values = m.stored(col_major);
            std::vector<T> b_min(2, T(7)), b_max(2, T(7)), b_only_max(2, T(7));
            {
                sycl::buffer<T, 1> b_obs(values.data(), sycl::range<1>(values.size()));
                sycl::buffer<T, 1> out_min(b_min.data(), sycl::range<1>(2));
                sycl::buffer<T, 1> out_max(b_max.data(), sycl::range<1>(2));
                sycl::buffer<T, 1> out_only_max(b_only_max.data(), sycl::range<1>(2));
                const dataset<col_major, sycl::buffer<T, 1>> b_data(2, n, b_obs);
                using out = gpu::extreme_output<T, false>;
                gpu::submit_minmax(q, b_data,
                                   gpu::min_max_func_fast<T, false>{out(out_min), out(out_max)});
                gpu::submit_minmax(q, b_data, gpu::max_func_fast<T, false>{out(out_only_max)});
            }
            const T* mins[] = {got[0].get(), got[2].get(), b_min.data()};
            const T* maxs[] = {got[1].get(), got[3].get(), b_max.data(), b_only_max.data()};
            for (const T* mn : mins) {
                EXPECT_EQ(mn[0], c.want_min) << where;
                EXPECT_EQ(std::signbit(mn[0]), std::signbit(c.want_min)) << where;
                EXPECT_EQ(mn[1], T(1)) << where << ", neighbour";
            }
            for (const T* mx : maxs) {
                EXPECT_EQ(mx[0], c.want_max) << where;
                EXPECT_EQ(mx[1], T(n)) << where << ", neighbour";
            }
        }
    }
}

// A NaN among numbers: whatever the group reduction makes of it, nothing stored is a NaN.
TYPED_TEST(MinmaxClamp, NaNAmongNumbersIsNeverStored) {
    using T = TypeParam;
    sycl::queue q{hs::make_gpu_device(group_size)};
    for (std::int64_t n : counts) {
        for (std::int64_t at = 0; at < n; at += 2) {
            std::vector<T> v(n);
            for (std::int64_t i = 0; i < n; ++i)
                v[i] = T(i + 1);
            v[at] = std::numeric_limits<T>::quiet_NaN();
            auto obs = to_shared(q, v);
            auto mn = to_shared(q, std::vector<T>(1, T(0)));
            auto mx = to_shared(q, std::vector<T>(1, T(0)));
            gpu::submit_minmax_usm(q, dataset<row_major, T*>(1, n, obs.get()),
                                   gpu::min_max_func_fast<T, true>{{mn.get()}, {mx.get()}}, {})
                .wait();
            EXPECT_FALSE(std::isnan(mn[0])) << "n " << n << ", NaN at " << at;
            EXPECT_FALSE(std::isnan(mx[0])) << "n " << n << ", NaN at " << at;
        }
    }
}

// min_max stores its minimum before its maximum: given one array for both, the maximum stands.
TEST(MinmaxClamp, MinMaxStoresTheMinimumFirst) {
    sycl::queue q{hs::make_gpu_device(group_size)};
    for (std::int64_t n : counts) {
        std::vector<double> v(n);
        for (std::int64_t i = 0; i < n; ++i)
            v[i] = double(i) - 1.5;
        auto obs = to_shared(q, v);
        auto both = to_shared(q, std::vector<double>(1, 0.0));
        gpu::submit_minmax_usm(q, dataset<row_major, double*>(1, n, obs.get()),
                               gpu::min_max_func_fast<double, true>{{both.get()}, {both.get()}}, {})
            .wait();
        EXPECT_EQ(both[0], double(n) - 2.5) << "n " << n;
    }
}

}  // namespace
