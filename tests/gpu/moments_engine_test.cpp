// The moment engine on emulated GPUs of tiny work-group sizes: the launch tree for every shape
// (single step, first and final, intermediate steps, tails), the same in both forms, with
// reference results; the mask read with 64-bit and 32-bit entries; the finishers of the offload
// path that store the mean and raw moments besides; and a tree with no dimension.
#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "estimators/central_moment.hpp"
#include "estimators/central_sum.hpp"
#include "estimators/kurtosis.hpp"
#include "estimators/mean.hpp"
#include "estimators/skewness.hpp"
#include "estimators/variation.hpp"
#include "gpu/dataset_helper.hpp"
#include "gpu/moments_gpu_impl.hpp"
#include "support/data.hpp"
#include "support/launch_log.hpp"
#include "support/reference.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/stats.hpp"

namespace {

namespace st = tavrel::qnd::stats;
namespace gpu = tavrel::qnd::stats::detail::gpu;
using namespace qnd_test;
using launch_log = std::vector<sycl::ext::hostsycl::launch_record>;
template <typename T>
using buf = sycl::buffer<T, 1>;

constexpr std::int64_t n_dims = 3;

struct tree_case {
    std::size_t group_size;
    std::int64_t n_observations;
    const char* launches;  // as describe() writes them
};

// n = 1, g (single step), g + 1 (tail of 1), k g (full last group), g^2 (no intermediate step),
// g^2 + 1 (one intermediate step), g^3 + 1 (two).
const tree_case tree_cases[] = {{2, 1, "single 1/1"},
                                {2, 2, "single 2/2"},
                                {2, 3, "first 4/2, last 2/2"},
                                {2, 4, "first 4/2, last 2/2"},
                                {2, 5, "first 6/2, next 4/2, last 2/2"},
                                {2, 8, "first 8/2, next 4/2, last 2/2"},
                                {2, 9, "first 10/2, next 6/2, next 4/2, last 2/2"},
                                {3, 3, "single 3/3"},
                                {3, 4, "first 6/3, last 2/2"},
                                {3, 9, "first 9/3, last 3/3"},
                                {3, 10, "first 12/3, next 6/3, last 2/2"},
                                {3, 12, "first 12/3, next 6/3, last 2/2"},
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
                                {32, 1025, "first 1056/32, next 64/32, last 2/2"}};

// Three calls that reach both kinds of sums helper and every plane: mean (plane 0 alone),
// kurtosis (four planes) and central_moment around a caller's mean (deviations, planes 0 and 2).
// Outputs: mean, kurtosis, second and fourth moments around the mean.
template <typename T, st::layout L>
std::vector<T> three_calls_by_pointer(sycl::queue& q,
                                      const host_data<T>& h,
                                      const std::vector<T>& centre) {
    usm_array<T> obs(q, h.observations), weights(q, h.weights), mean(q, centre), out(q, 4 * n_dims);
    const st::dataset<L, T*> data{n_dims, h.n_observations, obs.get(),
                                  h.weights.empty() ? nullptr : weights.get()};
    st::mean<1, T, L>(q, data, out.get()).wait();
    st::kurtosis<1, T, L>(q, data, out.get() + n_dims).wait();
    st::central_moment<1, T, L>(q, mean.get(), data, out.get() + 2 * n_dims, nullptr,
                                out.get() + 3 * n_dims)
        .wait();
    return out.to_vector();
}

template <typename T, st::layout L>
std::vector<T> three_calls_by_buffer(sycl::queue& q,
                                     const host_data<T>& h,
                                     const std::vector<T>& centre) {
    std::vector<T> out(4 * n_dims);
    {
        buf<T> obs(h.observations.data(), sycl::range<1>(h.observations.size()));
        buf<T> weights(h.weights.data(), sycl::range<1>(h.weights.size()));
        buf<T> mean(centre.data(), sycl::range<1>(n_dims)), none{sycl::range<1>(0)};
        const auto part = [&](int k) {
            return buf<T>(out.data() + k * n_dims, sycl::range<1>(n_dims));
        };
        const st::dataset<L, buf<T>> data{n_dims, h.n_observations, obs, weights};
        st::mean<1, T, L>(q, data, part(0));
        st::kurtosis<1, T, L>(q, data, part(1));
        st::central_moment<1, T, L>(q, mean, data, part(2), none, part(3));
    }
    return out;
}

// Each of the three calls launches the same tree, in both forms, with the same local memory;
// every shape of tree gives the reference results.
template <typename T, st::layout L>
void check_tree(const tree_case& tc, bool weighted) {
    sycl::queue q(sycl::ext::hostsycl::make_gpu_device(tc.group_size));
    host_data<T> h = skewed_data<T>(n_dims, tc.n_observations, L);
    if (weighted)
        h.weights = random_weights<T>(tc.n_observations);
    std::vector<T> centre(n_dims);
    for (std::int64_t d = 0; d < n_dims; ++d)
        centre[d] = static_cast<T>(reference_of(h, d).mean()) + T(0.25);
    std::array<std::vector<T>, 2> outs;
    std::array<launch_log, 2> logs;
    logs[0] = record_launches([&] { outs[0] = three_calls_by_pointer<T, L>(q, h, centre); });
    logs[1] = record_launches([&] { outs[1] = three_calls_by_buffer<T, L>(q, h, centre); });
    ASSERT_EQ(logs[0].size() % 3, 0u);
    EXPECT_EQ(describe(launch_log(logs[0].begin(), logs[0].begin() + logs[0].size() / 3)),
              tc.launches);
    ASSERT_EQ(logs[0].size(), logs[1].size());
    for (std::size_t i = 0; i < logs[0].size(); ++i) {
        EXPECT_EQ(describe({logs[0][i]}), describe({logs[1][i]}));
        EXPECT_EQ(logs[0][i].local_memory_bytes, logs[1][i].local_memory_bytes);
    }
    // To the bit, which also holds between the NaN of one observation's kurtosis.
    EXPECT_EQ(std::memcmp(outs[0].data(), outs[1].data(), outs[0].size() * sizeof(T)), 0)
        << ::testing::PrintToString(outs[0]) << " vs " << ::testing::PrintToString(outs[1]);
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

TEST(moments_engine, every_shape_of_tree_in_both_forms) {
    for (const tree_case& tc : tree_cases) {
        for (bool weighted : {false, true}) {
            SCOPED_TRACE(::testing::Message()
                         << "group size " << tc.group_size << ", n " << tc.n_observations
                         << (weighted ? ", weighted" : ""));
            check_tree<float, st::row_major>(tc, weighted);
            check_tree<float, st::col_major>(tc, weighted);
            check_tree<double, st::row_major>(tc, weighted);
            check_tree<double, st::col_major>(tc, weighted);
        }
    }
}

// With no dimension the tree still runs, with loops that do nothing. The temporaries are
// released before a call returns, which waits for the last launch: the result is in place
// without waiting on the event handed back.
TEST(moments_engine, no_dimension_runs_the_tree_and_results_are_in_place_on_return) {
    sycl::queue q(sycl::ext::hostsycl::make_gpu_device(8));
    std::vector<double> values(100);
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = double(i + 1);
    usm_array<double> obs(q, values), out(q, 1);
    out[0] = 42.0;
    const auto log = record_launches([&] {
        st::skewness<1, double>(q, st::dataset<st::row_major, double*>{0, 100, obs.get()},
                                out.get());
    });
    EXPECT_EQ(describe(log), "first 104/8, next 16/8, last 2/2");
    EXPECT_EQ(out[0], 42.0);
    st::mean<1, double>(q, st::dataset<st::col_major, double*>{1, 100, obs.get()}, out.get());
    EXPECT_EQ(out[0], 50.5);
}

// Any non-zero entry keeps its dimension. 32-bit entries are read in 64-bit words, low half
// first, and a negative entry in a high half stays non-zero under the arithmetic shift; a 64-bit
// entry whose low half is 0 still keeps. Through the planner, an odd count of dimensions reads
// the last entry from the low half of a word whose high half lies behind the mask.
TEST(moments_engine, mask_with_64_and_32_bit_entries) {
    const std::vector<std::int32_t> mask32{0, 1, -1, 0, 7, 0, 0, -2};
    std::vector<std::int64_t> words(mask32.size() / 2);
    std::memcpy(words.data(), mask32.data(), mask32.size() * sizeof(std::int32_t));
    const std::vector<std::int64_t> mask64{0, 1, -1, 0, std::int64_t{1} << 40, 0, 0, -2};
    for (std::uint64_t d = 0; d < mask32.size(); ++d) {
        EXPECT_EQ(gpu::mask_keeps<false>(words.data(), d), mask32[d] != 0) << d;
        EXPECT_EQ(gpu::mask_keeps<true>(mask64.data(), d), mask64[d] != 0) << d;
    }
    sycl::queue q(sycl::ext::hostsycl::make_gpu_device(4));
    std::vector<double> values(3 * 10);
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = double((i / 10) * 100 + i % 10);
    usm_array<double> obs(q, values), mean(q, 3);
    usm_array<std::int64_t> packed(q, 2);
    const std::int32_t entries[4] = {5, 0, 1, 0};  // the fourth lies behind the mask
    std::memcpy(packed.get(), entries, sizeof(entries));
    mean.fill(-1.0);
    const st::dataset<st::row_major, double*> data{3, 10, obs.get(), nullptr, packed.get()};
    gpu::submit_basic_usm<false>(q, data, gpu::mean_func<double, true>{mean.get()}, {});
    EXPECT_EQ(mean.to_vector(), (std::vector<double>{4.5, -1.0, 204.5}));
}

// The finishers of the offload path store the estimate and the mean and raw moments it rests
// on, each into its own array: central_moment with order 4 alone stores raw3 but not out3.
// central_sum given one array for several outputs leaves the last store of each.
TEST(moments_engine, finishers_storing_mean_and_raw_moments) {
    sycl::queue q(sycl::ext::hostsycl::make_gpu_device(4));
    constexpr double untouched = -321.5;
    for (bool weighted : {false, true}) {
        SCOPED_TRACE(weighted ? "weighted" : "unweighted");
        host_data<double> h = skewed_data<double>(2, 20, st::row_major);
        if (weighted)
            h.weights = random_weights<double>(20);
        usm_array<double> obs(q, h.observations), weights(q, h.weights), o(q, 2 * 22);
        o.fill(untouched);
        const st::dataset<st::row_major, double*> data{2, 20, obs.get(),
                                                       weighted ? weights.get() : nullptr};
        const auto at = [&](int k) { return o.get() + 2 * k; };
        gpu::ex::central_moment_func_fast<double, true> cm{};
        cm.has_order4 = 1;
        cm.mean = at(0), cm.raw2 = at(1), cm.raw3 = at(2), cm.raw4 = at(3);
        cm.out2 = at(4), cm.out3 = at(5), cm.out4 = at(6);
        const launch_log log = record_launches([&] { gpu::submit_basic_usm(q, data, cm, {}); });
        EXPECT_EQ(describe(log), "first 20/4, next 8/4, last 2/2");
        EXPECT_EQ(log.back().local_memory_bytes, (4u + weighted) * 2u * sizeof(double));
        gpu::submit_basic_usm(q, data,
                              gpu::ex::variation_func_fast<double, true>{at(7), at(8), at(9)}, {});
        gpu::ex::skewness_func_fast<double, true> sk{};
        sk.mean = at(10), sk.raw2 = at(11), sk.raw3 = at(12), sk.out = at(13);
        gpu::submit_basic_usm(q, data, sk, {});
        gpu::ex::kurtosis_func_fast<double, true> ku{};
        ku.mean = at(14), ku.raw2 = at(15), ku.raw3 = at(16), ku.raw4 = at(17), ku.out = at(18);
        gpu::submit_basic_usm(q, data, ku, {});
        gpu::ex::central_sum_func_fast<double, true> cs{};
        cs.has_order3 = cs.has_order4 = 1;
        cs.mean = at(19), cs.raw2 = cs.out2 = at(20);
        cs.raw3 = cs.raw4 = cs.out3 = cs.out4 = at(21);
        gpu::submit_basic_usm(q, data, cs, {});
        for (std::int64_t d = 0; d < 2; ++d) {
            const moment_reference r = reference_of(h, d);
            const long double want[] = {r.mean(),
                                        r.raw_moment(2),
                                        r.raw_moment(3),
                                        r.raw_moment(4),
                                        r.variance(),
                                        untouched,
                                        r.central_moment(4),
                                        r.mean(),
                                        r.raw_moment(2),
                                        r.variation(),
                                        r.mean(),
                                        r.raw_moment(2),
                                        r.raw_moment(3),
                                        r.skewness(),
                                        r.mean(),
                                        r.raw_moment(2),
                                        r.raw_moment(3),
                                        r.raw_moment(4),
                                        r.kurtosis(),
                                        r.mean(),
                                        r.central_sum(2),
                                        r.central_sum(4)};
            for (int k = 0; k < 22; ++k)
                EXPECT_TRUE(close_to(o[2 * k + d], want[k], 1e-10L))
                    << "slot " << k << ", dim " << d;
        }
    }
}

}  // namespace
