// The extreme engine on emulated GPUs of tiny work-group sizes: the chain of launches for every
// shape and the temporaries it allocates, the intermediate steps run by hand (each group stores
// into the first element it read), and the clamps of every stored extreme.
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
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
#include "support/extremes_data.hpp"
#include "support/launch_log.hpp"
#include "support/usm_array.hpp"

namespace {

namespace st = tavrel::qnd::stats;
namespace gpu = tavrel::qnd::stats::detail::gpu;
namespace hs = sycl::ext::hostsycl;
using namespace qnd_test;

constexpr double sentinel = 12345.0;
constexpr extreme all_kinds[] = {extreme::min, extreme::max, extreme::min_max};

// Launches and device allocations while an instance lives.
struct runtime_trace {
    std::vector<hs::launch_record> launches;
    std::vector<std::pair<void*, std::size_t>> mallocs;
    std::vector<void*> frees;
    runtime_trace() {
        hs::set_launch_observer([this](const hs::launch_record& r) { launches.push_back(r); });
        hs::set_usm_observer([this](hs::usm_op op, void* p, std::size_t bytes) {
            if (op == hs::usm_op::malloc_device)
                mallocs.emplace_back(p, bytes);
            else if (op == hs::usm_op::free)
                frees.push_back(p);
        });
    }
    ~runtime_trace() {
        hs::set_launch_observer({});
        hs::set_usm_observer({});
    }
};

struct chain_case {
    std::size_t group_size;
    std::int64_t n_observations;
    const char* launches;  // as describe() writes them
};

// The chain for a group size and a count, in both forms (float rows by pointer, double columns
// by buffer). Only the pointer form allocates, and only for more than one launch: one array per
// extreme of n_dims rows of the first step's group count, freed in the order made, before the
// test's own arrays.
TEST(minmax_engine, chains_launch_allocate_and_free_as_planned) {
    const chain_case cases[] = {{4, 1, "single 1/1"},
                                {4, 3, "single 3/3"},
                                {4, 4, "single 4/4"},
                                {4, 5, "first 8/4, last 2/2"},
                                {4, 12, "first 12/4, last 3/3"},
                                {4, 16, "first 16/4, last 4/4"},
                                {4, 17, "first 20/4, next 8/4, last 2/2"},
                                {4, 65, "first 68/4, next 20/4, next 8/4, last 2/2"},
                                {3, 10, "first 12/3, next 6/3, last 2/2"},
                                {3, 28, "first 30/3, next 12/3, next 6/3, last 2/2"},
                                {5, 23, "first 25/5, last 5/5"},
                                {2, 9, "first 10/2, next 6/2, next 4/2, last 2/2"}};
    constexpr std::int64_t n_dims = 3;
    const sycl::device gpu_device(sycl::gpu_selector_v);
    for (const chain_case& c : cases) {
        sycl::queue q{hs::make_gpu_device(c.group_size)};
        const auto f = banded_data<float>(n_dims, c.n_observations, st::row_major, 5);
        const auto d = banded_data<double>(n_dims, c.n_observations, st::col_major, 6);
        for (extreme k : all_kinds) {
            SCOPED_TRACE(::testing::Message() << "kind " << int(k) << ", g " << c.group_size
                                              << ", n " << c.n_observations);
            {
                runtime_trace trace;
                expect_extremes(k, d, gpu_device,
                                run_extreme<double, st::col_major>(q, k, true, d, -1.0), -1.0);
                EXPECT_EQ(describe(trace.launches), c.launches) << "buffer";
                EXPECT_TRUE(trace.mallocs.empty()) << "buffer";
            }
            runtime_trace trace;
            expect_extremes(k, f, gpu_device,
                            run_extreme<float, st::row_major>(q, k, false, f, -1.0f), -1.0f);
            EXPECT_EQ(describe(trace.launches), c.launches);
            const std::size_t n_temporaries =
                trace.launches.size() == 1 ? 0 : (k == extreme::min_max ? 2 : 1);
            ASSERT_EQ(trace.mallocs.size(), n_temporaries);
            std::vector<void*> made;
            for (const auto& [p, bytes] : trace.mallocs) {
                EXPECT_EQ(bytes,
                          n_dims * (trace.launches[0].global_size / c.group_size) * sizeof(float));
                made.push_back(p);
            }
            ASSERT_GE(trace.frees.size(), made.size());
            EXPECT_EQ(std::vector<void*>(trace.frees.begin(), trace.frees.begin() + made.size()),
                      made);
        }
    }
}

// The intermediate and final steps by hand, at group size 3 over rows of 11 partials for 3
// dimensions, the middle one masked. The first level reads elements 1 apart, four groups each
// storing into the first element it read (0, 3, 6, 9); the second reads 0, 3, 6 and 9, two
// groups storing into 0 and 9; the final group reads 0 and 9. Every other place, the masked row
// and the guard behind the rows keep their values.
TEST(minmax_engine, intermediate_steps_store_into_the_first_element_each_group_read) {
    constexpr std::uint64_t g = 3, row_stride = 11;
    sycl::queue q{hs::make_gpu_device(g)};
    usm_array<std::int64_t> mask(q, std::vector<std::int64_t>{1, 0, 1});
    const auto helper = gpu::make_dataset_helper(
        st::dataset<st::row_major, double*>(3, 33, nullptr, nullptr, mask.get()));
    const std::vector<double> row1 = {-50, 40, -30, 20, -10, 0, 10, -20, 30, -40, 50};
    const auto rows = [&](std::vector<double> r0, const std::vector<double>& r2, double guard) {
        r0.insert(r0.end(), row1.begin(), row1.end());
        r0.insert(r0.end(), r2.begin(), r2.end());
        r0.insert(r0.end(), 7, guard);
        return r0;
    };
    usm_array<double> lo(q, rows({5, -2, 7, 1, 0, 9, 3, -4, 8, 2, 6},
                                 {15, 11, 19, 14, 18, 12, 16, 10, 13, 17, 13.5}, -100));
    usm_array<double> hi(q, lo.to_vector());
    for (std::size_t i = 0; i < 7; ++i)
        hi[33 + i] = 100;
    std::array<double*, 2> tmp = {lo.get(), hi.get()};
    usm_array<double> out_lo(q, 3), out_hi(q, 3);
    out_lo.fill(sentinel);
    out_hi.fill(sentinel);
    const gpu::min_max_func_fast<double, true> functor{{out_lo.get()}, {out_hi.get()}};
    const auto expect_tmp = [&](const std::vector<double>& want_lo,
                                const std::vector<double>& want_hi) {
        EXPECT_EQ(lo.to_vector(), want_lo);
        EXPECT_EQ(hi.to_vector(), want_hi);
        EXPECT_EQ(out_lo.to_vector(), std::vector<double>(3, sentinel))
            << "a result before the end";
        EXPECT_EQ(out_hi.to_vector(), std::vector<double>(3, sentinel))
            << "a result before the end";
    };
    // 11 partials: groups {0 1 2} {3 4 5} {6 7 8} {9 10 _}.
    gpu::minmax_next_step<false>(q, helper, functor, tmp, 4, g, row_stride, 1, 11 % g).wait();
    expect_tmp(rows({-2, -2, 7, 0, 0, 9, -4, -4, 8, 2, 6},
                    {11, 11, 19, 12, 18, 12, 10, 10, 13, 13.5, 13.5}, -100),
               rows({7, -2, 7, 9, 0, 9, 8, -4, 8, 6, 6},
                    {19, 11, 19, 18, 18, 12, 16, 10, 13, 17, 13.5}, 100));
    // 4 partials 3 apart: groups {0 3 6} {9 _ _}.
    gpu::minmax_next_step<false>(q, helper, functor, tmp, 2, g, row_stride, g, 4 % g).wait();
    const auto lo2 = rows({-4, -2, 7, 0, 0, 9, -4, -4, 8, 2, 6},
                          {10, 11, 19, 12, 18, 12, 10, 10, 13, 13.5, 13.5}, -100);
    const auto hi2 = rows({9, -2, 7, 9, 0, 9, 8, -4, 8, 6, 6},
                          {19, 11, 19, 18, 18, 12, 16, 10, 13, 17, 13.5}, 100);
    expect_tmp(lo2, hi2);
    // 2 partials 9 apart, one group of 2: the results; the partials stay as they were.
    gpu::minmax_next_step<true>(q, helper, functor, tmp, 1, 2, row_stride, g * g, 0).wait();
    EXPECT_EQ(lo.to_vector(), lo2);
    EXPECT_EQ(hi.to_vector(), hi2);
    EXPECT_EQ(out_lo.to_vector(), (std::vector<double>{-4, sentinel, 10}));
    EXPECT_EQ(out_hi.to_vector(), (std::vector<double>{9, sentinel, 19}));
}

// The seeds as literal values, independent of how the engine spells them.
template <typename T>
struct seeds;
template <>
struct seeds<float> {
    static constexpr float min = 3.4028234663852886e+38f, max = 1.1754943508222875e-38f;
};
template <>
struct seeds<double> {
    static constexpr double min = 1.7976931348623157e+308, max = 2.2250738585072014e-308;
};

// Every stored extreme is bounded by the seeds, in every kernel of the chain and in both forms:
// data without a positive normal value read max_seed as their maximum, infinities past the
// seeds and results that are not a number read as the seeds. Dimension 0 holds the case's
// values, dimension 1 the numbers 1 to n, which keep their own extremes.
template <typename T>
void check_clamps() {
    constexpr T inf = std::numeric_limits<T>::infinity(), nan = std::numeric_limits<T>::quiet_NaN();
    constexpr T denorm = std::numeric_limits<T>::denorm_min(),
                lowest = std::numeric_limits<T>::lowest();
    const T above = std::nextafter(seeds<T>::max, T(1));
    struct clamp_case {
        const char* hazard;
        std::function<T(std::int64_t)> value;
        T want_min, want_max;
    };
    const clamp_case cases[] = {
        {"all negative", [](std::int64_t i) { return T(-1) - T(i % 3); }, T(-3), seeds<T>::max},
        {"all zeros", [](std::int64_t) { return T(0); }, T(0), seeds<T>::max},
        {"all negative zeros", [](std::int64_t) { return T(-0.0); }, T(-0.0), seeds<T>::max},
        {"negative zeros and negatives", [](std::int64_t i) { return i % 2 ? T(-0.0) : T(-2); },
         T(-2), seeds<T>::max},
        {"subnormal positives", [=](std::int64_t i) { return denorm * T(i + 1); }, denorm,
         seeds<T>::max},
        {"most negative finite", [=](std::int64_t) { return lowest; }, lowest, seeds<T>::max},
        {"all +inf", [=](std::int64_t) { return inf; }, seeds<T>::min, inf},
        {"all -inf", [=](std::int64_t) { return -inf; }, -inf, seeds<T>::max},
        {"both infinities", [=](std::int64_t i) { return i % 2 ? inf : -inf; }, -inf, inf},
        {"all NaN", [=](std::int64_t) { return nan; }, seeds<T>::min, seeds<T>::max},
        {"largest finite", [](std::int64_t) { return seeds<T>::min; }, seeds<T>::min,
         seeds<T>::min},
        {"smallest normal", [](std::int64_t) { return seeds<T>::max; }, seeds<T>::max,
         seeds<T>::max},
        {"just above smallest normal", [=](std::int64_t) { return above; }, above, above},
    };
    sycl::queue q{hs::make_gpu_device(4)};
    for (const clamp_case& c : cases) {
        for (std::int64_t n : {3, 4, 9, 16, 17, 65}) {
            SCOPED_TRACE(::testing::Message() << c.hazard << ", n " << n);
            const auto h = make_data<T>(2, n, st::row_major, [&](std::int64_t d, std::int64_t i) {
                return d ? T(i + 1) : c.value(i);
            });
            for (extreme k : all_kinds) {
                for (bool by_buffer : {false, true}) {
                    const auto got = run_extreme<T, st::row_major>(q, k, by_buffer, h, T(7));
                    if (k != extreme::max) {
                        EXPECT_EQ(got[0].first, c.want_min);
                        EXPECT_EQ(std::signbit(got[0].first), std::signbit(c.want_min));
                        EXPECT_EQ(got[1].first, T(1));
                    }
                    if (k != extreme::min) {
                        EXPECT_EQ(got[0].second, c.want_max);
                        EXPECT_EQ(got[1].second, T(n));
                    }
                }
            }
        }
    }
}

TEST(minmax_engine, stored_extremes_are_clamped) {
    check_clamps<float>();
    check_clamps<double>();
}

// A NaN among numbers, wherever it falls: nothing stored is a NaN. min_max stores its minimum
// before its maximum: given one array for both, the maximum stands. With no dimension the chain
// runs and writes nothing.
TEST(minmax_engine, nan_among_numbers_store_order_and_no_dimension) {
    sycl::queue q{hs::make_gpu_device(4)};
    for (std::int64_t n : {3, 4, 9, 16, 17, 65}) {
        std::vector<double> v(n);
        for (std::int64_t i = 0; i < n; ++i)
            v[i] = double(i) - 1.5;
        usm_array<double> obs(q, v), both(q, 1);
        st::min_max<1, double>(q, st::dataset<st::row_major, double*>(1, n, obs.get()), both.get(),
                               both.get())
            .wait();
        EXPECT_EQ(both[0], double(n) - 2.5) << "n " << n;
        for (std::int64_t at = 0; at < n; at += 2) {
            host_data<float> h =
                make_data<float>(1, n, st::row_major, [&](std::int64_t, std::int64_t i) {
                    return i == at ? std::numeric_limits<float>::quiet_NaN() : float(i + 1);
                });
            const auto got = run_extreme<float, st::row_major>(q, extreme::min_max, false, h, 0.0f);
            EXPECT_FALSE(std::isnan(got[0].first) || std::isnan(got[0].second))
                << "n " << n << ", NaN at " << at;
        }
    }
    usm_array<float> obs(q, std::vector<float>(9, 1.0f)), out(q, std::vector<float>{5.0f});
    const auto log = record_launches([&] {
        st::min<1, float>(q, st::dataset<st::row_major, float*>(0, 9, obs.get()), out.get()).wait();
    });
    EXPECT_EQ(out[0], 5.0f);
    EXPECT_EQ(describe(log), "first 12/4, last 3/3");
}

}  // namespace
