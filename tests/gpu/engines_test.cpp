// Both GPU engines through their planners, called directly with tiny work-group sizes: one table
// of launch trees (single step, first and final, intermediate steps, tails) that the moment and
// the extreme engine walk alike, in both forms, with reference results; the local array of a next
// step; the clamps of stored extremes; NaN among numbers; no dimension; and the mask read with
// 64-bit and 32-bit entries. The tests build on any SYCL 2020 implementation; on hostsycl they
// also watch the launches and allocations through its observers.
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "gpu/buffer_functors.hpp"
#include "gpu/dataset_helper.hpp"
#include "gpu/minmax_gpu_impl.hpp"
#include "gpu/moments_gpu_impl.hpp"
#include "gpu/moments_gpu_impl_buffer.hpp"
#include "estimators/central_moment.hpp"
#include "estimators/kurtosis.hpp"
#include "estimators/max.hpp"
#include "estimators/mean.hpp"
#include "estimators/min.hpp"
#include "estimators/min_max.hpp"
#include "estimators/skewness.hpp"
#include "support/extremes_data.hpp"
#include "support/reference.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/stats.hpp"

#if __has_include(<sycl/ext/hostsycl.hpp>)
#define QND_TEST_OBSERVES 1
#include "support/launch_log.hpp"
#else
#define QND_TEST_OBSERVES 0
#endif

namespace {

namespace st = tavrel::qnd::stats;
namespace gpu = tavrel::qnd::stats::detail::gpu;
using namespace qnd_test;

constexpr std::int64_t n_dims = 3;
constexpr extreme all_kinds[] = {extreme::min, extreme::max, extreme::min_max};

struct tree_case {
    std::size_t group_size;
    std::int64_t n_observations;
    const char* launches;  // as describe() writes them
};

// n = 1, below g, g (single step), g + 1 (tail of 1), k g (full last group), g^2 (no
// intermediate step), g^2 + 1 (one intermediate step), g^3 + 1 (two).
// clang-format off
const tree_case tree_cases[] = {
    {2, 1, "single 1/1"},                          {2, 2, "single 2/2"},
    {2, 3, "first 4/2, last 2/2"},                 {2, 4, "first 4/2, last 2/2"},
    {2, 5, "first 6/2, next 4/2, last 2/2"},       {2, 8, "first 8/2, next 4/2, last 2/2"},
    {2, 9, "first 10/2, next 6/2, next 4/2, last 2/2"},
    {3, 3, "single 3/3"},                          {3, 4, "first 6/3, last 2/2"},
    {3, 9, "first 9/3, last 3/3"},                 {3, 10, "first 12/3, next 6/3, last 2/2"},
    {3, 12, "first 12/3, next 6/3, last 2/2"},
    {3, 28, "first 30/3, next 12/3, next 6/3, last 2/2"},
    {4, 3, "single 3/3"},                          {4, 5, "first 8/4, last 2/2"},
    {4, 16, "first 16/4, last 4/4"},               {4, 17, "first 20/4, next 8/4, last 2/2"},
    {4, 65, "first 68/4, next 20/4, next 8/4, last 2/2"},
    {5, 23, "first 25/5, last 5/5"},               {8, 8, "single 8/8"},
    {8, 9, "first 16/8, last 2/2"},                {8, 24, "first 24/8, last 3/3"},
    {8, 64, "first 64/8, last 8/8"},               {8, 65, "first 72/8, next 16/8, last 2/2"},
    {8, 513, "first 520/8, next 72/8, next 16/8, last 2/2"},
    {32, 32, "single 32/32"},                      {32, 33, "first 64/32, last 2/2"},
    {32, 96, "first 96/32, last 3/3"},             {32, 1024, "first 1024/32, last 32/32"},
    {32, 1025, "first 1056/32, next 64/32, last 2/2"}};
// clang-format on

// The buffer form leaves an array out as a buffer of size 0, which not every SYCL implementation
// can make; where it cannot, only the pointer form runs, and the run says so once.
std::vector<bool> forms() {
    static const bool empty_buffers = [] {
        bool works = false;
        try {
            works = sycl::buffer<int, 1>(sycl::range<1>(0)).size() == 0;
        } catch (const sycl::exception&) {
        }
        if (!works)
            std::printf(
                "note: this SYCL implementation has no buffers of size 0: buffer form not run\n");
        return works;
    }();
    return empty_buffers ? std::vector<bool>{false, true} : std::vector<bool>{false};
}

// The dataset of `h` in the pointer form, over device copies that live as long as it is used.
template <typename T, st::layout L>
struct usm_dataset {
    usm_dataset(sycl::queue& q, const host_data<T>& h)
        : obs(q, h.observations), w(q, h.weights), idx(q, h.indices) {
        data = st::dataset<L, T*>(h.n_dims, h.n_observations, obs.get(),
                                  h.weights.empty() ? nullptr : w.get(),
                                  h.indices.empty() ? nullptr : idx.get());
    }
    usm_array<T> obs, w;
    usm_array<std::int64_t> idx;
    st::dataset<L, T*> data{0, 0, nullptr};
};

// The dataset of `h` in the buffer form; absent arrays are buffers of size 0.
template <typename T, st::layout L>
struct buffer_dataset {
    explicit buffer_dataset(const host_data<T>& h)
        : obs(h.observations.data(), sycl::range<1>(h.observations.size())),
          w(h.weights.data(), sycl::range<1>(h.weights.size())),
          idx(h.indices.data(), sycl::range<1>(h.indices.size())),
          data(h.n_dims, h.n_observations, obs, w, idx) {}
    sycl::buffer<T, 1> obs, w;
    sycl::buffer<std::int64_t, 1> idx;
    st::dataset<L, sycl::buffer<T, 1>> data;
};

// Three plans that reach both kinds of sums helper and every plane, in work-groups of g: mean
// (plane 0 alone), kurtosis (four planes) and central_moment around a caller's mean (deviations,
// planes 0 and 2). Outputs: mean, kurtosis, second and fourth moments around the mean.
template <typename T, st::layout L>
std::vector<T> three_calls(sycl::queue& q,
                           std::uint64_t g,
                           bool by_buffer,
                           const host_data<T>& h,
                           const std::vector<T>& centre) {
    std::vector<T> out(4 * n_dims, T(0));
    if (by_buffer) {
        using buf = sycl::buffer<T, 1>;
        {  // the output buffers write back when they end
            const buffer_dataset<T, L> b(h);
            const sycl::range<1> n(n_dims);
            buf mean(out.data(), n), kurtosis(out.data() + n_dims, n);
            buf c2(out.data() + 2 * n_dims, n), c4(out.data() + 3 * n_dims, n);
            buf m(centre.data(), n), none(sycl::range<1>(0));
            buf filler3(sycl::range<1>(1)), filler4(sycl::range<1>(1));
            gpu::plan_basic<false>(q, g, static_cast<buf*>(nullptr), b.data,
                                   gpu::mean_func<T, false>{gpu::output_array<T, false>(mean)});
            gpu::plan_basic<false>(
                q, g, static_cast<buf*>(nullptr), b.data,
                gpu::make_single_func<gpu::kurtosis_func_fast<T, false>>(kurtosis));
            using around = gpu::central_moment_func_user_mean<T, false>;
            gpu::plan_basic<true>(q, g, &m, b.data,
                                  gpu::make_central_func<around>(c2, none, c4, filler3, filler4));
        }
        return out;
    }
    const usm_dataset<T, L> u(q, h);
    usm_array<T> m(q, centre), o(q, out);
    const T* own = nullptr;
    gpu::plan_basic_usm<false, true>(q, g, own, u.data, gpu::mean_func<T, true>{o.get()}, {});
    gpu::plan_basic_usm<false, true>(q, g, own, u.data,
                                     gpu::kurtosis_func_fast<T, true>{{}, o.get() + n_dims}, {});
    using around = gpu::central_moment_func_user_mean<T, true>;
    gpu::plan_basic_usm<true, true>(
        q, g, m.get(), u.data,
        gpu::make_central_func<around>(o.get() + 2 * n_dims, static_cast<T*>(nullptr),
                                       o.get() + 3 * n_dims),
        {});
    return o.to_vector();
}

// Extreme `k` of `h` through the extreme engine's planner in work-groups of g, in either form.
// Per dimension {min, max}; what `k` does not compute, and masked dimensions, keep `untouched`.
template <typename T, st::layout L>
std::vector<std::pair<T, T>> planned_extremes(sycl::queue& q,
                                              std::uint64_t g,
                                              extreme k,
                                              bool by_buffer,
                                              const host_data<T>& h,
                                              T untouched) {
    std::vector<T> lo(h.n_dims, untouched), hi(h.n_dims, untouched);
    if (by_buffer) {
        const buffer_dataset<T, L> b(h);
        sycl::buffer<T, 1> b_lo(lo.data(), sycl::range<1>(lo.size()));
        sycl::buffer<T, 1> b_hi(hi.data(), sycl::range<1>(hi.size()));
        const auto out = [](sycl::buffer<T, 1>& x) { return gpu::extreme_output<T, false>(x); };
        if (k == extreme::min)
            gpu::plan_minmax(q, g, b.data, gpu::min_func_fast<T, false>{out(b_lo)});
        else if (k == extreme::max)
            gpu::plan_minmax(q, g, b.data, gpu::max_func_fast<T, false>{out(b_hi)});
        else
            gpu::plan_minmax(q, g, b.data, gpu::min_max_func_fast<T, false>{out(b_lo), out(b_hi)});
    } else {
        const usm_dataset<T, L> u(q, h);
        usm_array<T> u_lo(q, lo), u_hi(q, hi);
        if (k == extreme::min)
            gpu::plan_minmax_usm(q, g, u.data, gpu::min_func_fast<T, true>{{u_lo.get()}}, {})
                .wait();
        else if (k == extreme::max)
            gpu::plan_minmax_usm(q, g, u.data, gpu::max_func_fast<T, true>{{u_hi.get()}}, {})
                .wait();
        else
            gpu::plan_minmax_usm(q, g, u.data,
                                 gpu::min_max_func_fast<T, true>{{u_lo.get()}, {u_hi.get()}}, {})
                .wait();
        lo = u_lo.to_vector();
        hi = u_hi.to_vector();
    }
    std::vector<std::pair<T, T>> r;
    for (std::int64_t d = 0; d < h.n_dims; ++d)
        r.push_back({lo[d], hi[d]});
    return r;
}

// Each of the three plans launches the tree, in both forms, with the same local memory; every
// shape of tree gives the reference results, the same to the bit in both forms.
template <typename T, st::layout L>
void check_moment_tree(const tree_case& tc, bool weighted) {
    sycl::queue q;
    host_data<T> h = skewed_data<T>(n_dims, tc.n_observations, L);
    if (weighted)
        h.weights = random_weights<T>(tc.n_observations);
    std::vector<T> centre(n_dims);
    for (std::int64_t d = 0; d < n_dims; ++d)
        centre[d] = static_cast<T>(reference_of(h, d).mean()) + T(0.25);
    std::array<std::vector<T>, 2> outs;
#if QND_TEST_OBSERVES
    std::array<std::vector<sycl::ext::hostsycl::launch_record>, 2> logs;
    for (bool b : forms())
        logs[b] =
            record_launches([&] { outs[b] = three_calls<T, L>(q, tc.group_size, b, h, centre); });
    ASSERT_EQ(logs[0].size() % 3, 0u);
    EXPECT_EQ(describe({logs[0].begin(), logs[0].begin() + logs[0].size() / 3}), tc.launches);
    ASSERT_EQ(logs[0].size(), logs[1].size());
    for (std::size_t i = 0; i < logs[0].size(); ++i) {
        EXPECT_EQ(describe({logs[0][i]}), describe({logs[1][i]}));
        EXPECT_EQ(logs[0][i].local_memory_bytes, logs[1][i].local_memory_bytes);
    }
#else
    for (bool b : forms())
        outs[b] = three_calls<T, L>(q, tc.group_size, b, h, centre);
#endif
    // To the bit, which also holds between the NaN of one observation's kurtosis.
    if (!outs[1].empty())
        EXPECT_EQ(std::memcmp(outs[0].data(), outs[1].data(), outs[0].size() * sizeof(T)), 0);
    for (std::int64_t d = 0; d < n_dims; ++d) {
        const long double c = centre[d];
        const moment_reference own = reference_of(h, d), around = reference_of(h, d, &c);
        constexpr long double tol = moment_tolerance<T>();
        EXPECT_TRUE(close_to(outs[0][d], own.mean(), tol)) << "mean, dimension " << d;
        // With one observation the corrected variance divides by W * W - W2 = 0.
        if (tc.n_observations > 1) {
            EXPECT_TRUE(close_to(outs[0][n_dims + d], own.kurtosis(), tol)) << "kurtosis " << d;
            EXPECT_TRUE(close_to(outs[0][2 * n_dims + d], around.central_moment(2), tol)) << d;
        }
        EXPECT_TRUE(close_to(outs[0][3 * n_dims + d], around.central_moment(4), tol)) << d;
    }
}

// The extreme engine walks the same tree, in both forms (double columns by buffer, float rows by
// pointer). Only the pointer form allocates, and only for more than one launch: one array per
// extreme of n_dims rows of the first step's group count, freed in the order made.
void check_extreme_tree(const tree_case& c) {
    sycl::queue q;
    const auto f = banded_data<float>(n_dims, c.n_observations, st::row_major, 5);
    const auto d = banded_data<double>(n_dims, c.n_observations, st::col_major, 6);
    for (extreme k : all_kinds) {
        SCOPED_TRACE(::testing::Message() << "extreme " << int(k));
        const auto run = [&](bool by_buffer) {
            if (by_buffer)
                expect_extremes(
                    k, d, true,
                    planned_extremes<double, st::col_major>(q, c.group_size, k, true, d, -1.0),
                    -1.0);
            else
                expect_extremes(
                    k, f, true,
                    planned_extremes<float, st::row_major>(q, c.group_size, k, false, f, -1.0f),
                    -1.0f);
        };
#if QND_TEST_OBSERVES
        namespace hs = sycl::ext::hostsycl;
        std::vector<std::pair<void*, std::size_t>> mallocs;
        std::vector<void*> frees;
        hs::set_usm_observer([&](hs::usm_op op, void* p, std::size_t bytes) {
            if (op == hs::usm_op::malloc_device)
                mallocs.emplace_back(p, bytes);
            else if (op == hs::usm_op::free)
                frees.push_back(p);
        });
        EXPECT_EQ(describe(record_launches([&] { run(true); })), c.launches) << "buffer";
        EXPECT_TRUE(mallocs.empty()) << "buffer";
        const auto log = record_launches([&] { run(false); });
        hs::set_usm_observer({});
        EXPECT_EQ(describe(log), c.launches);
        ASSERT_EQ(mallocs.size(), log.size() == 1 ? 0u : (k == extreme::min_max ? 2u : 1u));
        std::vector<void*> made;
        for (const auto& [p, bytes] : mallocs) {
            EXPECT_EQ(bytes, n_dims * (log[0].global_size / c.group_size) * sizeof(float));
            made.push_back(p);
        }
        ASSERT_GE(frees.size(), made.size());
        EXPECT_EQ(std::vector<void*>(frees.begin(), frees.begin() + made.size()), made);
#else
        for (bool b : forms())
            run(b);
#endif
    }
}

TEST(engines, every_shape_of_tree_in_both_forms) {
    for (const tree_case& tc : tree_cases) {
        SCOPED_TRACE(::testing::Message()
                     << "group size " << tc.group_size << ", n " << tc.n_observations);
        check_extreme_tree(tc);
        for (bool weighted : {false, true}) {
            SCOPED_TRACE(weighted ? "weighted" : "unweighted");
            check_moment_tree<float, st::row_major>(tc, weighted);
            check_moment_tree<float, st::col_major>(tc, weighted);
            check_moment_tree<double, st::row_major>(tc, weighted);
            check_moment_tree<double, st::col_major>(tc, weighted);
        }
    }
}

// The local array of a next step, in planes of local_size: P, one more with weights. A runtime
// that pads each work-group's local memory (hostsycl) is asked for that alone; elsewhere the
// request also covers every plane the kernels address, which with weights and no gap in the kept
// orders is one more.
TEST(engines, next_step_local_array) {
    struct row {
        const char* call;
        gpu::sum_flags flags;
        bool user_mean, weighted;
        std::uint64_t padded, exact;
    };
    const row rows[] = {
        {"mean", gpu::raw_flags(false, false, false), false, false, 1, 1},
        {"mean, weights", gpu::raw_flags(false, false, false), false, true, 2, 3},
        {"kurtosis", gpu::central_flags(true, true), false, false, 4, 4},
        {"kurtosis, weights", gpu::central_flags(true, true), false, true, 5, 6},
        {"orders 1 and 4, weights", gpu::raw_flags(false, false, true), false, true, 5, 5},
        {"around a mean, orders 2 and 4, weights", gpu::user_mean_flags(false, true), true, true, 4,
         4},
        {"around a mean, orders 2 to 4, weights", gpu::user_mean_flags(true, true), true, true, 4,
         5},
    };
    sycl::buffer<double, 1> b{sycl::range<1>(1)};
    const double* mean = nullptr;
    for (const row& r : rows) {
        const gpu::sum_flags& f = r.flags;
        const std::uint64_t got =
            r.user_mean
                ? gpu::next_step_local_elements(gpu::sum_tmp_helper<double, true, true>(
                                                    b, mean, b, b, f.f3, f.f4, r.weighted, 1, 1),
                                                f.planes, 8)
                : gpu::next_step_local_elements(gpu::sum_tmp_helper<double, true, false>(
                                                    b, b, b, f.f2, f.f3, f.f4, r.weighted, 1, 1),
                                                f.planes, 8);
#ifdef QND_LOCAL_MEMORY_SLACK
        EXPECT_EQ(got, 8 * r.padded) << r.call;
#else
        EXPECT_EQ(got, 8 * r.exact) << r.call;
#endif
    }
}

// The seeds as literal values, independent of how the engine spells them.
template <typename T>
struct seeds {
    static constexpr T min = 3.4028234663852886e+38f, max = 1.1754943508222875e-38f;
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
    constexpr T denorm = std::numeric_limits<T>::denorm_min(), lo = seeds<T>::max;
    const T above = std::nextafter(lo, T(1)), lowest = std::numeric_limits<T>::lowest();
    struct clamp_case {
        const char* hazard;
        std::function<T(std::int64_t)> value;
        T want_min, want_max;
    };
    const clamp_case cases[] = {
        {"all negative", [](std::int64_t i) { return T(-1) - T(i % 3); }, T(-3), lo},
        {"all zeros", [](std::int64_t) { return T(0); }, T(0), lo},
        {"negative zeros and negatives", [](std::int64_t i) { return i % 2 ? T(-0.0) : T(-2); },
         T(-2), lo},
        {"all negative zeros", [](std::int64_t) { return T(-0.0); }, T(-0.0), lo},
        {"subnormal positives", [=](std::int64_t i) { return denorm * T(i + 1); }, denorm, lo},
        {"most negative finite", [=](std::int64_t) { return lowest; }, lowest, lo},
        {"all +inf", [=](std::int64_t) { return inf; }, seeds<T>::min, inf},
        {"all -inf", [=](std::int64_t) { return -inf; }, -inf, lo},
        {"both infinities", [=](std::int64_t i) { return i % 2 ? inf : -inf; }, -inf, inf},
        {"all NaN", [=](std::int64_t) { return nan; }, seeds<T>::min, lo},
        {"largest finite", [](std::int64_t) { return seeds<T>::min; }, seeds<T>::min,
         seeds<T>::min},
        {"smallest normal", [](std::int64_t) { return lo; }, lo, lo},
        {"just above smallest normal", [=](std::int64_t) { return above; }, above, above},
    };
    sycl::queue q;
    for (const clamp_case& c : cases) {
        for (std::int64_t n : {3, 4, 9, 16, 17, 65}) {
            SCOPED_TRACE(::testing::Message() << c.hazard << ", n " << n);
            const auto h = make_data<T>(2, n, st::row_major, [&](std::int64_t d, std::int64_t i) {
                return d ? T(i + 1) : c.value(i);
            });
            for (extreme k : all_kinds) {
                for (bool by_buffer : forms()) {
                    const auto got =
                        planned_extremes<T, st::row_major>(q, 4, k, by_buffer, h, T(7));
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

TEST(engines, stored_extremes_are_clamped) {
    check_clamps<float>();
    check_clamps<double>();
}

// A NaN among numbers, wherever it falls: nothing stored is a NaN. min_max stores its minimum
// before its maximum: given one array for both, the maximum stands. With no dimension both trees
// run, with loops that do nothing; the temporaries are released before a call returns, so a
// result is in place without waiting on the event handed back.
TEST(engines, nan_among_numbers_store_order_and_no_dimension) {
    sycl::queue q;
    for (std::int64_t n : {3, 4, 9, 16, 17, 65}) {
        std::vector<double> v(n);
        for (std::int64_t i = 0; i < n; ++i)
            v[i] = double(i) - 1.5;
        usm_array<double> obs(q, v), both(q, 1);
        gpu::plan_minmax_usm(q, 4, st::dataset<st::row_major, double*>(1, n, obs.get()),
                             gpu::min_max_func_fast<double, true>{{both.get()}, {both.get()}}, {})
            .wait();
        EXPECT_EQ(both[0], double(n) - 2.5) << "n " << n;
        for (std::int64_t at = 0; at < n; at += 2) {
            host_data<float> h =
                make_data<float>(1, n, st::row_major, [&](std::int64_t, std::int64_t i) {
                    return i == at ? std::numeric_limits<float>::quiet_NaN() : float(i + 1);
                });
            const auto got =
                planned_extremes<float, st::row_major>(q, 4, extreme::min_max, false, h, 0.0f);
            EXPECT_FALSE(std::isnan(got[0].first) || std::isnan(got[0].second))
                << "n " << n << ", NaN at " << at;
        }
    }
    usm_array<double> obs(q, 100), out(q, std::vector<double>{5.0});
    for (std::size_t i = 0; i < 100; ++i)
        obs[i] = double(i + 1);
    const double* own = nullptr;
    const auto no_dimension = [&] {
        gpu::plan_minmax_usm(q, 4, st::dataset<st::row_major, double*>(0, 9, obs.get()),
                             gpu::min_func_fast<double, true>{{out.get()}}, {})
            .wait();
        gpu::plan_basic_usm<false, true>(q, 4, own,
                                         st::dataset<st::row_major, double*>{0, 100, obs.get()},
                                         gpu::skewness_func_fast<double, true>{{}, out.get()}, {});
    };
#if QND_TEST_OBSERVES
    EXPECT_EQ(describe(record_launches(no_dimension)),
              "first 12/4, last 3/3, first 100/4, next 28/4, next 8/4, last 2/2");
#else
    no_dimension();
#endif
    EXPECT_EQ(out[0], 5.0);
    gpu::plan_basic_usm<false, true>(q, 4, own,
                                     st::dataset<st::col_major, double*>{1, 100, obs.get()},
                                     gpu::mean_func<double, true>{out.get()}, {});
    EXPECT_EQ(out[0], 50.5);
}

// Any non-zero entry keeps its dimension. 32-bit entries are read in 64-bit words, low half
// first, and a negative entry in a high half stays non-zero under the arithmetic shift; a 64-bit
// entry whose low half is 0 still keeps. Through the planner, an odd count of dimensions reads
// the last entry from the low half of a word whose high half lies behind the mask.
TEST(engines, mask_with_64_and_32_bit_entries) {
    const std::vector<std::int32_t> mask32{0, 1, -1, 0, 7, 0, 0, -2};
    std::vector<std::int64_t> words(mask32.size() / 2);
    std::memcpy(words.data(), mask32.data(), mask32.size() * sizeof(std::int32_t));
    const std::vector<std::int64_t> mask64{0, 1, -1, 0, std::int64_t{1} << 40, 0, 0, -2};
    for (std::uint64_t d = 0; d < mask32.size(); ++d) {
        EXPECT_EQ(gpu::mask_keeps<false>(words.data(), d), mask32[d] != 0) << d;
        EXPECT_EQ(gpu::mask_keeps<true>(mask64.data(), d), mask64[d] != 0) << d;
    }
    sycl::queue q;
    std::vector<double> values(3 * 10);
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = double((i / 10) * 100 + i % 10);
    usm_array<double> obs(q, values), mean(q, std::vector<double>(3, -1.0));
    usm_array<std::int64_t> packed(q, 2);
    const std::int32_t entries[4] = {5, 0, 1, 0};  // the fourth lies behind the mask
    std::memcpy(packed.get(), entries, sizeof(entries));
    const st::dataset<st::row_major, double*> data{3, 10, obs.get(), nullptr, packed.get()};
    gpu::plan_basic_usm<false, false>(q, 4, static_cast<const double*>(nullptr), data,
                                      gpu::mean_func<double, true>{mean.get()}, {});
    EXPECT_EQ(mean.to_vector(), (std::vector<double>{4.5, -1.0, 204.5}));
}

}  // namespace
