// The extreme engine's planners called directly on emulated GPUs with tiny work-groups: the shape
// of each launch chain, the temporaries it allocates, and its results against host references.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <mutex>
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
using minmax_test::random_matrix;
using minmax_test::to_shared;

enum class kind { min, max, min_max };
constexpr kind all_kinds[] = {kind::min, kind::max, kind::min_max};
const char* name_of(kind k) {
    return k == kind::min ? "min" : k == kind::max ? "max" : "min_max";
}
std::size_t n_extremes_of(kind k) {
    return k == kind::min_max ? 2 : 1;
}

// One launch as the runtime saw it.
struct launch {
    std::string step;  // "single", "first" or "next"
    std::size_t global;
    std::size_t local;
    bool operator==(const launch& o) const {
        return step == o.step && global == o.global && local == o.local;
    }
};
std::ostream& operator<<(std::ostream& os, const launch& l) {
    return os << l.step << " " << l.global << "/" << l.local;
}

std::string step_of(const std::string& kernel_name) {
    for (const char* step : {"single", "first", "next"})
        if (kernel_name.find(std::string("minmax_kernel_") + step + "_step") != std::string::npos)
            return step;
    return "other: " + kernel_name;
}

// Launches and device allocations between construction and destruction.
struct runtime_trace {
    std::mutex lock;
    std::vector<launch> launches;
    std::vector<std::pair<void*, std::size_t>> device_mallocs;
    std::vector<void*> frees;

    runtime_trace() {
        hs::set_launch_observer([this](const hs::launch_record& r) {
            std::lock_guard<std::mutex> g(lock);
            launches.push_back({step_of(r.kernel_name), r.global_size, r.local_size});
        });
        hs::set_usm_observer([this](hs::usm_op op, void* p, std::size_t bytes) {
            std::lock_guard<std::mutex> g(lock);
            if (op == hs::usm_op::malloc_device)
                device_mallocs.emplace_back(p, bytes);
            else if (op == hs::usm_op::free)
                frees.push_back(p);
        });
    }
    ~runtime_trace() {
        hs::set_launch_observer(nullptr);
        hs::set_usm_observer(nullptr);
    }
};

// Runs one planner on a copy of the data and returns per dimension {min, max}; outputs that the
// kind does not compute, and masked dimensions, keep the sentinel.
constexpr double sentinel = 12345.0;

template <typename T, layout L, bool Idx64 = true>
std::vector<std::pair<T, T>> run_usm(sycl::queue& q,
                                     kind k,
                                     const minmax_test::matrix<T>& m,
                                     const std::vector<T>& weights,
                                     std::int64_t* indices) {
    auto obs = to_shared(q, m.stored(L));
    auto w = to_shared(q, weights);
    auto out_min = to_shared(q, std::vector<T>(m.n_dims, T(sentinel)));
    auto out_max = to_shared(q, std::vector<T>(m.n_dims, T(sentinel)));
    const dataset<L, T*> data(m.n_dims, m.n_observations, obs.get(),
                              weights.empty() ? nullptr : w.get(), indices);
    sycl::event e;
    if (k == kind::min)
        e = gpu::submit_minmax_usm<Idx64>(q, data, gpu::min_func_fast<T, true>{{out_min.get()}},
                                          {});
    else if (k == kind::max)
        e = gpu::submit_minmax_usm<Idx64>(q, data, gpu::max_func_fast<T, true>{{out_max.get()}},
                                          {});
    else if constexpr (Idx64)  // min_max exists with 64-bit masks only
        e = gpu::submit_minmax_usm(
            q, data, gpu::min_max_func_fast<T, true>{{out_min.get()}, {out_max.get()}}, {});
    e.wait();
    std::vector<std::pair<T, T>> r(m.n_dims);
    for (std::int64_t d = 0; d < m.n_dims; ++d)
        r[d] = {out_min[d], out_max[d]};
    return r;
}

template <typename T, layout L>
std::vector<std::pair<T, T>> run_buffer(sycl::queue& q,
                                        kind k,
                                        const minmax_test::matrix<T>& m,
                                        const std::vector<T>& weights,
                                        const std::vector<std::int64_t>& mask) {
    std::vector<T> host_min(m.n_dims, T(sentinel)), host_max(m.n_dims, T(sentinel));
    {
        const auto stored = m.stored(L);
        sycl::buffer<T, 1> obs(stored.data(), sycl::range<1>(stored.size()));
        sycl::buffer<T, 1> w(weights.data(), sycl::range<1>(weights.size()));
        sycl::buffer<std::int64_t, 1> idx(mask.data(), sycl::range<1>(mask.size()));
        sycl::buffer<T, 1> out_min(host_min.data(), sycl::range<1>(host_min.size()));
        sycl::buffer<T, 1> out_max(host_max.data(), sycl::range<1>(host_max.size()));
        const dataset<L, sycl::buffer<T, 1>> data(m.n_dims, m.n_observations, obs, w, idx);
        using out = gpu::extreme_output<T, false>;
        if (k == kind::min)
            gpu::submit_minmax(q, data, gpu::min_func_fast<T, false>{out(out_min)});
        else if (k == kind::max)
            gpu::submit_minmax(q, data, gpu::max_func_fast<T, false>{out(out_max)});
        else
            gpu::submit_minmax(q, data,
                               gpu::min_max_func_fast<T, false>{out(out_min), out(out_max)});
    }
    std::vector<std::pair<T, T>> r(m.n_dims);
    for (std::int64_t d = 0; d < m.n_dims; ++d)
        r[d] = {host_min[d], host_max[d]};
    return r;
}

template <typename T>
void expect_extremes(kind k,
                     const minmax_test::matrix<T>& m,
                     const std::vector<std::int64_t>& mask,
                     const std::vector<std::pair<T, T>>& got,
                     const std::string& where) {
    for (std::int64_t d = 0; d < m.n_dims; ++d) {
        const bool kept = mask.empty() || mask[d] != 0;
        const T want_min = kept && k != kind::max ? m.true_min(d) : T(sentinel);
        // A maximum never reads below the smallest positive normal value (see the clamp tests).
        const T true_max = std::max(m.true_max(d), std::numeric_limits<T>::min());
        const T want_max = kept && k != kind::min ? true_max : T(sentinel);
        EXPECT_EQ(got[d].first, want_min) << where << " min, dimension " << d;
        EXPECT_EQ(got[d].second, want_max) << where << " max, dimension " << d;
    }
}

// The chain for a group size and a count of observations, as the launch tree prescribes it.
struct chain_case {
    std::size_t group_size;
    std::int64_t n_observations;
    std::vector<launch> launches;
};

const std::vector<chain_case> chain_cases = {
    {4, 1, {{"single", 1, 1}}},
    {4, 3, {{"single", 3, 3}}},
    {4, 4, {{"single", 4, 4}}},                                   // g: one full group
    {4, 5, {{"first", 8, 4}, {"next", 2, 2}}},                    // g + 1: tail 1
    {4, 12, {{"first", 12, 4}, {"next", 3, 3}}},                  // 3 g: tail 0
    {4, 16, {{"first", 16, 4}, {"next", 4, 4}}},                  // g * g: no intermediate
    {4, 17, {{"first", 20, 4}, {"next", 8, 4}, {"next", 2, 2}}},  // g * g + 1
    {4, 65, {{"first", 68, 4}, {"next", 20, 4}, {"next", 8, 4}, {"next", 2, 2}}},  // g^3 + 1
    {3, 10, {{"first", 12, 3}, {"next", 6, 3}, {"next", 2, 2}}},
    {3, 28, {{"first", 30, 3}, {"next", 12, 3}, {"next", 6, 3}, {"next", 2, 2}}},
    {5, 23, {{"first", 25, 5}, {"next", 5, 5}}},
    {2, 9, {{"first", 10, 2}, {"next", 6, 2}, {"next", 4, 2}, {"next", 2, 2}}},
};

// The pointer form (float, rows) and the buffer form (double, columns) launch the same chain;
// only the pointer form allocates temporaries.
TEST(MinmaxPlanner, ChainsLaunchAllocateAndFreeAsPlanned) {
    constexpr std::int64_t n_dims = 3;
    for (const auto& c : chain_cases) {
        sycl::queue q{hs::make_gpu_device(c.group_size)};
        const auto m = random_matrix<float>(n_dims, c.n_observations, c.n_observations);
        const auto md = random_matrix<double>(n_dims, c.n_observations, 7 + c.n_observations);
        for (kind k : all_kinds) {
            const std::string where = std::string(name_of(k)) + ", g " +
                                      std::to_string(c.group_size) + ", n " +
                                      std::to_string(c.n_observations);
            {
                runtime_trace trace;
                expect_extremes(k, md, {}, run_buffer<double, col_major>(q, k, md, {}, {}),
                                "buffer, " + where);
                EXPECT_EQ(trace.launches, c.launches) << "buffer, " << where;
                EXPECT_TRUE(trace.device_mallocs.empty()) << "buffer, " << where;
            }
            runtime_trace trace;
            expect_extremes(k, m, {}, run_usm<float, row_major>(q, k, m, {}, nullptr), where);
            EXPECT_EQ(trace.launches, c.launches) << where;

            // Temporaries exist only for a chain of more than one launch: one array per extreme,
            // n_dims rows of the first step's group count, freed in the order made.
            if (c.launches.size() == 1) {
                EXPECT_TRUE(trace.device_mallocs.empty()) << where;
                continue;
            }
            const std::size_t n_groups = c.launches.front().global / c.group_size;
            ASSERT_EQ(trace.device_mallocs.size(), n_extremes_of(k)) << where;
            std::vector<void*> made;
            for (const auto& [p, bytes] : trace.device_mallocs) {
                EXPECT_EQ(bytes, n_dims * n_groups * sizeof(float)) << where;
                made.push_back(p);
            }
            // The test's own shared arrays are freed after the planner's temporaries.
            ASSERT_GE(trace.frees.size(), made.size()) << where;
            EXPECT_EQ(std::vector<void*>(trace.frees.begin(), trace.frees.begin() + made.size()),
                      made)
                << where;
        }
    }
}

// Results in every combination of element type and layout.
template <typename P>
class MinmaxPlannerResults : public ::testing::Test {};
template <typename T, layout L>
struct combo {
    using type = T;
    static constexpr layout value = L;
};
using combos = ::testing::Types<combo<float, row_major>,
                                combo<float, col_major>,
                                combo<double, row_major>,
                                combo<double, col_major>>;
TYPED_TEST_SUITE(MinmaxPlannerResults, combos);

// Chains of three launches and more at small work-group sizes, with several dimensions, a mask
// and weights that would change any weighted result: every kept dimension gets its own
// extremes, wherever they were planted; the same without weights and mask. (Shorter chains are
// walked by the chain tests above.)
TYPED_TEST(MinmaxPlannerResults, ChainsWithIntermediateStepsOnSeveralDimensions) {
    using T = typename TypeParam::type;
    constexpr layout L = TypeParam::value;
    constexpr std::int64_t n_dims = 5;
    const auto mask = minmax_test::mask_every_third(n_dims);
    for (std::size_t g : {std::size_t{2}, std::size_t{3}, std::size_t{4}}) {
        sycl::queue q{hs::make_gpu_device(g)};
        auto usm_mask = to_shared(q, mask);
        for (std::int64_t n : {std::int64_t(g * g + 1), std::int64_t(g * g * g + 1),
                               std::int64_t(g * g * g + g + 2), std::int64_t(g * g * g * 2)}) {
            const auto m = random_matrix<T>(n_dims, n, 200 + n);
            const auto weights = minmax_test::odd_weights<T>(n);
            for (kind k : all_kinds) {
                const std::string where = std::string(name_of(k)) + ", g " + std::to_string(g) +
                                          ", n " + std::to_string(n);
                expect_extremes(k, m, mask, run_usm<T, L>(q, k, m, weights, usm_mask.get()),
                                "pointer, " + where);
                expect_extremes(k, m, mask, run_buffer<T, L>(q, k, m, weights, mask),
                                "buffer, " + where);
                expect_extremes(k, m, {}, run_usm<T, L>(q, k, m, {}, nullptr),
                                "pointer, no mask, " + where);
            }
        }
    }
}

// Each dimension in a band of its own, so that a partial carried from one dimension into another
// moves that dimension's minimum or maximum out of its band. Group sizes 2 and 3 with enough
// observations for two intermediate levels or more: a fold that stores a partial where another
// group has yet to read, in the same or a later dimension, fails here.
template <typename T>
minmax_test::matrix<T> banded_matrix(std::int64_t n_dims, std::int64_t n_observations) {
    minmax_test::matrix<T> m{n_dims, n_observations, std::vector<T>(n_dims * n_observations)};
    for (std::int64_t d = 0; d < n_dims; ++d)
        for (std::int64_t i = 0; i < n_observations; ++i)
            m.set(d, i, T(100 * (d + 1)) + T((i * 7 + d * 3) % 50));
    return m;
}

TEST(MinmaxPlanner, PartialsNeverCrossDimensionsInLongChains) {
    constexpr std::int64_t n_dims = 6;
    const std::vector<std::int64_t> mask = {1, 1, 0, 1, 1, 1};
    for (std::size_t g : {std::size_t{2}, std::size_t{3}}) {
        sycl::queue q{hs::make_gpu_device(g)};
        auto usm_mask = to_shared(q, mask);
        for (std::int64_t n : {std::int64_t(g * g * g + 1), std::int64_t(g * g * g * g + 1),
                               std::int64_t(g * g * g * g * 3 - 1)}) {
            const auto m = banded_matrix<double>(n_dims, n);
            const auto f = banded_matrix<float>(n_dims, n);
            for (kind k : all_kinds) {
                const std::string where = std::string(name_of(k)) + ", g " + std::to_string(g) +
                                          ", n " + std::to_string(n);
                expect_extremes(k, m, {}, run_usm<double, row_major>(q, k, m, {}, nullptr),
                                "pointer, row-major, " + where);
                expect_extremes(k, m, mask, run_usm<double, col_major>(q, k, m, {}, usm_mask.get()),
                                "pointer, column-major, mask, " + where);
                expect_extremes(k, f, mask, run_buffer<float, row_major>(q, k, f, {}, mask),
                                "buffer, row-major, mask, " + where);
                expect_extremes(k, f, {}, run_buffer<float, col_major>(q, k, f, {}, {}),
                                "buffer, column-major, " + where);
                if (k != kind::min_max)  // 32-bit masks serve min and max only
                    expect_extremes(k, f, {},
                                    run_usm<float, col_major, false>(q, k, f, {}, nullptr),
                                    "pointer, 32-bit mask words, " + where);
            }
        }
    }
}

// With Idx64 false the mask has 32-bit entries read through 64-bit words; an odd count of
// dimensions reads the last entry from the low half of a word that reaches past the array.
TEST(MinmaxPlanner, ThirtyTwoBitMaskKeepsAndSkipsByEachHalfOfAWord) {
    sycl::queue q{hs::make_gpu_device(4)};
    for (std::int64_t n_dims : {5, 6}) {
        // Entries whose zero halves sit beside non-zero ones, and a negative entry that keeps.
        const std::vector<std::int32_t> entries = {0, 7, -1, 0, 0, 9};
        std::vector<std::int32_t> mask32(entries.begin(), entries.begin() + n_dims);
        const std::size_t words = (n_dims + 1) / 2;
        std::vector<std::int64_t> storage(words, 0);
        // The 4 bytes behind an odd count are read by the last load and must not matter.
        std::vector<std::int32_t> padded(words * 2, 0x7fffffff);
        std::copy(mask32.begin(), mask32.end(), padded.begin());
        std::memcpy(storage.data(), padded.data(), words * sizeof(std::int64_t));
        auto usm_mask = to_shared(q, storage);

        std::vector<std::int64_t> mask64(mask32.begin(), mask32.end());
        for (std::int64_t n : {3, 5, 16, 65}) {
            const auto m = random_matrix<float>(n_dims, n, 31 * n + n_dims);
            for (kind k : {kind::min, kind::max}) {
                const std::string where = std::string(name_of(k)) + ", n_dims " +
                                          std::to_string(n_dims) + ", n " + std::to_string(n);
                expect_extremes(k, m, mask64,
                                run_usm<float, row_major, false>(q, k, m, {}, usm_mask.get()),
                                where);
            }
        }
    }
}

// The intermediate and final steps on their own, by hand, at group size 3 over rows of 11
// partials (a first step of 11 groups) for 3 dimensions, the middle one masked. The first level
// reads elements 1 apart, four groups each storing into the first element it read (0, 3, 6, 9);
// the second reads 0, 3, 6 and 9, two groups storing into 0 and 9; the final group reads 0 and 9.
// Every other place, the masked row and the guard behind the rows keep their values. The row
// after each row (or the guard) holds what an idle work-item of the tail would read by mistake.
TEST(MinmaxPlanner, IntermediateStepsStoreIntoTheFirstElementEachGroupRead) {
    constexpr std::uint64_t g = 3;
    constexpr std::uint64_t row_stride = 11;
    constexpr std::int64_t n_dims = 3;
    sycl::queue q{hs::make_gpu_device(g)};
    auto mask = to_shared(q, std::vector<std::int64_t>{1, 0, 1});
    const auto helper = gpu::make_dataset_helper(
        dataset<row_major, double*>(n_dims, 33, nullptr, nullptr, mask.get()));

    const std::vector<double> row0 = {5, -2, 7, 1, 0, 9, 3, -4, 8, 2, 6};
    const std::vector<double> row1 = {-50, 40, -30, 20, -10, 0, 10, -20, 30, -40, 50};
    const std::vector<double> row2 = {15, 11, 19, 14, 18, 12, 16, 10, 13, 17, 13.5};
    const auto joined = [&](const std::vector<double>& r0, const std::vector<double>& r2,
                            double guard) {
        std::vector<double> all = r0;
        all.insert(all.end(), row1.begin(), row1.end());
        all.insert(all.end(), r2.begin(), r2.end());
        all.insert(all.end(), 7, guard);
        return all;
    };
    auto lo = to_shared(q, joined(row0, row2, -100));
    auto hi = to_shared(q, joined(row0, row2, 100));
    std::array<double*, 2> tmp = {lo.get(), hi.get()};
    const auto expect_tmp = [&](const std::vector<double>& want_lo,
                                const std::vector<double>& want_hi, const char* level) {
        for (std::size_t i = 0; i < want_lo.size(); ++i) {
            EXPECT_EQ(lo[i], want_lo[i]) << level << ", minimum at " << i;
            EXPECT_EQ(hi[i], want_hi[i]) << level << ", maximum at " << i;
        }
    };

    auto out_lo = to_shared(q, std::vector<double>(n_dims, sentinel));
    auto out_hi = to_shared(q, std::vector<double>(n_dims, sentinel));
    const gpu::min_max_func_fast<double, true> functor{{out_lo.get()}, {out_hi.get()}};

    // 11 partials: groups {0 1 2} {3 4 5} {6 7 8} {9 10 _}.
    gpu::minmax_next_step<false>(q, helper, functor, tmp, 4, g, row_stride, 1, 11 % g).wait();
    const std::vector<double> lo1 = joined({-2, -2, 7, 0, 0, 9, -4, -4, 8, 2, 6},
                                           {11, 11, 19, 12, 18, 12, 10, 10, 13, 13.5, 13.5}, -100);
    const std::vector<double> hi1 = joined({7, -2, 7, 9, 0, 9, 8, -4, 8, 6, 6},
                                           {19, 11, 19, 18, 18, 12, 16, 10, 13, 17, 13.5}, 100);
    expect_tmp(lo1, hi1, "first level");

    // 4 partials 3 apart: groups {0 3 6} {9 _ _}.
    gpu::minmax_next_step<false>(q, helper, functor, tmp, 2, g, row_stride, g, 4 % g).wait();
    const std::vector<double> lo2 = joined({-4, -2, 7, 0, 0, 9, -4, -4, 8, 2, 6},
                                           {10, 11, 19, 12, 18, 12, 10, 10, 13, 13.5, 13.5}, -100);
    const std::vector<double> hi2 = joined({9, -2, 7, 9, 0, 9, 8, -4, 8, 6, 6},
                                           {19, 11, 19, 18, 18, 12, 16, 10, 13, 17, 13.5}, 100);
    expect_tmp(lo2, hi2, "second level");
    for (std::int64_t d = 0; d < n_dims; ++d) {
        EXPECT_EQ(out_lo[d], sentinel) << "an intermediate step wrote a result, dimension " << d;
        EXPECT_EQ(out_hi[d], sentinel) << "an intermediate step wrote a result, dimension " << d;
    }

    // 2 partials 9 apart, one group of 2: the results, and the partials stay as they were.
    gpu::minmax_next_step<true>(q, helper, functor, tmp, 1, 2, row_stride, g * g, 0).wait();
    expect_tmp(lo2, hi2, "final step");
    EXPECT_EQ(out_lo[0], -4.0);
    EXPECT_EQ(out_hi[0], 9.0);
    EXPECT_EQ(out_lo[1], sentinel);
    EXPECT_EQ(out_hi[1], sentinel);
    EXPECT_EQ(out_lo[2], 10.0);
    EXPECT_EQ(out_hi[2], 19.0);
}

TEST(MinmaxPlanner, NoDimensionsRunsTheChainAndWritesNothing) {
    sycl::queue q{hs::make_gpu_device(4)};
    const minmax_test::matrix<float> m{0, 9, {}};
    std::vector<float> obs(9, 1.0f);
    auto usm_obs = to_shared(q, obs);
    auto out = to_shared(q, std::vector<float>(1, 5.0f));
    runtime_trace trace;
    gpu::submit_minmax_usm(q, dataset<row_major, float*>(0, 9, usm_obs.get()),
                           gpu::min_func_fast<float, true>{{out.get()}}, {})
        .wait();
    EXPECT_EQ(out[0], 5.0f);
    const std::vector<launch> want = {{"first", 12, 4}, {"next", 3, 3}};
    EXPECT_EQ(trace.launches, want);
}

// A first step of 2^31 work-items is refused before anything runs, with the runtime's words.
TEST(MinmaxPlanner, FirstStepAtTwoToTheThirtyOneIsOutOfRange) {
    sycl::queue q{hs::make_gpu_device(256)};
    auto usm_out = to_shared(q, std::vector<float>(1, 0.0f));
    runtime_trace trace;
    try {
        // No dimensions: the observations are never read, only the launch sizes matter.
        gpu::submit_minmax_usm(q,
                               dataset<row_major, float*>(0, std::int64_t{1} << 31, usm_out.get()),
                               gpu::min_func_fast<float, true>{{usm_out.get()}}, {});
        FAIL() << "no exception";
    } catch (const sycl::exception& e) {
        EXPECT_EQ(e.code(), sycl::make_error_code(sycl::errc::nd_range));
        EXPECT_STREQ(e.what(),
                     "Provided range is out of integer limits. Pass "
                     "`-fno-sycl-id-queries-fit-in-int' to disable range check.");
    }
    EXPECT_TRUE(trace.launches.empty());
}

}  // namespace
