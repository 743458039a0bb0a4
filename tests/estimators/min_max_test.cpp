// The exported min_max estimators: the checks in their order and words, the routing by device,
// and results in both forms on the default emulated GPU.
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "gpu/minmax_test_data.hpp"
#include "tavrel/qnd/exceptions.hpp"
#include "tavrel/qnd/stats.hpp"

namespace {

namespace stats = tavrel::qnd::stats;
using minmax_test::to_shared;
using stats::col_major;
using stats::dataset;
using stats::layout;
using stats::row_major;

// Runs f and returns the text of the exception of type E that it throws.
template <typename E, typename F>
std::string thrown_text(F&& f) {
    try {
        f();
    } catch (const E& e) {
        return e.what();
    } catch (const std::exception& e) {
        return std::string("other exception: ") + e.what();
    }
    return "no exception";
}

template <typename T, layout L>
struct combo {
    using type = T;
    static constexpr layout value = L;
};
using combos = ::testing::Types<combo<float, row_major>,
                                combo<float, col_major>,
                                combo<double, row_major>,
                                combo<double, col_major>>;

// Counts of a single launch (one full group too) and of first and final steps on the default
// emulated GPU (work-groups of 256), and chains of three to six launches on an emulated GPU with
// work-groups of 3.
struct sized_count {
    std::size_t group_size;  // 0: the default GPU
    std::int64_t n;
};
constexpr sized_count counts[] = {{0, 40}, {0, 256}, {0, 300}, {0, 512},
                                  {3, 10}, {3, 28},  {3, 250}};
sycl::queue gpu_queue(std::size_t group_size) {
    return group_size == 0 ? sycl::queue{sycl::gpu_selector_v}
                           : sycl::queue{sycl::ext::hostsycl::make_gpu_device(group_size)};
}
constexpr std::int64_t n_dims = 4;
const std::vector<std::int64_t> mask = {1, 0, 5, 1};
constexpr double untouched = -777.0;

TEST(MinMaxEstimator, PointerChecksTestMinThenMax) {
    float obs[4] = {1, 2, 3, 4};
    float given[1] = {untouched};
    const dataset<row_major, float*> data(1, 4, obs);
    for (sycl::queue q : {sycl::queue{sycl::cpu_selector_v}, sycl::queue{sycl::gpu_selector_v}}) {
        EXPECT_EQ(thrown_text<tavrel::qnd::invalid_argument>(
                      [&] { stats::min_max<1, float, row_major>(q, data, nullptr, nullptr); }),
                  "tavrel::qnd::stats::min_max: invalid argument: min is nullptr");
        EXPECT_EQ(thrown_text<tavrel::qnd::invalid_argument>(
                      [&] { stats::min_max<1, float, row_major>(q, data, nullptr, given); }),
                  "tavrel::qnd::stats::min_max: invalid argument: min is nullptr");
        EXPECT_EQ(thrown_text<tavrel::qnd::invalid_argument>(
                      [&] { stats::min_max<1, float, row_major>(q, data, given, nullptr); }),
                  "tavrel::qnd::stats::min_max: invalid argument: max is nullptr");
        EXPECT_EQ(given[0], float(untouched));
    }
}

TEST(MinMaxEstimator, BufferChecksTestMinThenMax) {
    sycl::buffer<double, 1> obs{sycl::range<1>(4)};
    const dataset<row_major, sycl::buffer<double, 1>> data(1, 4, obs);
    const auto empty = [] { return sycl::buffer<double, 1>{sycl::range<1>(0)}; };
    const auto given = [] { return sycl::buffer<double, 1>{sycl::range<1>(1)}; };
    for (sycl::queue q : {sycl::queue{sycl::cpu_selector_v}, sycl::queue{sycl::gpu_selector_v}}) {
        EXPECT_EQ(thrown_text<tavrel::qnd::invalid_argument>(
                      [&] { stats::min_max<1, double, row_major>(q, data, empty(), empty()); }),
                  "tavrel::qnd::stats::min_max: invalid argument: min array length is 0");
        EXPECT_EQ(thrown_text<tavrel::qnd::invalid_argument>(
                      [&] { stats::min_max<1, double, row_major>(q, data, empty(), given()); }),
                  "tavrel::qnd::stats::min_max: invalid argument: min array length is 0");
        EXPECT_EQ(thrown_text<tavrel::qnd::invalid_argument>(
                      [&] { stats::min_max<1, double, row_major>(q, data, given(), empty()); }),
                  "tavrel::qnd::stats::min_max: invalid argument: max array length is 0");
    }
}

template <typename P>
class MinMaxEstimatorResults : public ::testing::Test {};
TYPED_TEST_SUITE(MinMaxEstimatorResults, combos);

TYPED_TEST(MinMaxEstimatorResults, MatchHostExtremesInBothForms) {
    using T = typename TypeParam::type;
    constexpr layout L = TypeParam::value;
    for (const auto& c : counts) {
        sycl::queue q = gpu_queue(c.group_size);
        const std::int64_t n = c.n;
        const std::string where = "g " + std::to_string(c.group_size) + ", n " + std::to_string(n);
        const auto m = minmax_test::random_matrix<T>(n_dims, n, 13 * n);
        const auto stored = m.stored(L);
        const auto weights = minmax_test::odd_weights<T>(n);

        auto obs = to_shared(q, stored);
        auto w = to_shared(q, weights);
        auto idx = to_shared(q, mask);
        auto lo = to_shared(q, std::vector<T>(n_dims, T(untouched)));
        auto hi = to_shared(q, std::vector<T>(n_dims, T(untouched)));
        stats::min_max<1, T, L>(q, dataset<L, T*>(n_dims, n, obs.get(), w.get(), idx.get()),
                                lo.get(), hi.get())
            .wait();

        std::vector<T> b_lo(n_dims, T(untouched)), b_hi(n_dims, T(untouched));
        {
            sycl::buffer<T, 1> b_obs(stored.data(), sycl::range<1>(stored.size()));
            sycl::buffer<std::int64_t, 1> b_idx(mask.data(), sycl::range<1>(mask.size()));
            stats::min_max<1, T, L>(
                q,
                dataset<L, sycl::buffer<T, 1>>(n_dims, n, b_obs,
                                               sycl::buffer<T, 1>{sycl::range<1>(0)}, b_idx),
                sycl::buffer<T, 1>(b_lo.data(), sycl::range<1>(n_dims)),
                sycl::buffer<T, 1>(b_hi.data(), sycl::range<1>(n_dims)));
        }
        for (std::int64_t d = 0; d < n_dims; ++d) {
            const T want_lo = mask[d] ? m.true_min(d) : T(untouched);
            const T want_hi = mask[d] ? m.true_max(d) : T(untouched);
            EXPECT_EQ(lo[d], want_lo) << "pointer, " << where << ", dimension " << d;
            EXPECT_EQ(hi[d], want_hi) << "pointer, " << where << ", dimension " << d;
            EXPECT_EQ(b_lo[d], want_lo) << "buffer, " << where << ", dimension " << d;
            EXPECT_EQ(b_hi[d], want_hi) << "buffer, " << where << ", dimension " << d;
        }
    }
}

// Three launches at the default work-group size on several dimensions, one of them masked, in
// both forms and layouts.
TEST(MinMaxEstimator, ThreeLaunchChainOnSeveralDimensions) {
    constexpr std::int64_t n = 256 * 256 + 3;
    constexpr std::int64_t dims = 3;
    const std::vector<std::int64_t> chain_mask = {1, 0, -2};
    sycl::queue q{sycl::gpu_selector_v};
    const auto m = minmax_test::random_matrix<double>(dims, n, 5);
    const auto expect_results = [&](const double* lo, const double* hi, const char* form) {
        for (std::int64_t d = 0; d < dims; ++d) {
            EXPECT_EQ(lo[d], chain_mask[d] ? m.true_min(d) : untouched) << form << ", " << d;
            EXPECT_EQ(hi[d], chain_mask[d] ? m.true_max(d) : untouched) << form << ", " << d;
        }
    };

    auto obs = to_shared(q, m.stored(row_major));
    auto idx = to_shared(q, chain_mask);
    auto lo = to_shared(q, std::vector<double>(dims, untouched));
    auto hi = to_shared(q, std::vector<double>(dims, untouched));
    stats::min_max<1, double, row_major>(
        q, dataset<row_major, double*>(dims, n, obs.get(), nullptr, idx.get()), lo.get(), hi.get())
        .wait();
    expect_results(lo.get(), hi.get(), "pointer, row-major");

    std::vector<double> b_lo(dims, untouched), b_hi(dims, untouched);
    {
        const auto stored = m.stored(col_major);
        sycl::buffer<double, 1> b_obs(stored.data(), sycl::range<1>(stored.size()));
        sycl::buffer<std::int64_t, 1> b_idx(chain_mask.data(), sycl::range<1>(dims));
        stats::min_max<1, double, col_major>(
            q,
            dataset<col_major, sycl::buffer<double, 1>>(
                dims, n, b_obs, sycl::buffer<double, 1>{sycl::range<1>(0)}, b_idx),
            sycl::buffer<double, 1>(b_lo.data(), sycl::range<1>(dims)),
            sycl::buffer<double, 1>(b_hi.data(), sycl::range<1>(dims)));
    }
    expect_results(b_lo.data(), b_hi.data(), "buffer, column-major");
}

// A failed dependency surfaces on the caller's thread, through the queue's asynchronous handler,
// before anything of the call is launched or allocated.
TEST(MinMaxEstimator, FailedDependencyThrowsBeforeAnyLaunch) {
    struct dependency_failed {};
    sycl::queue q{sycl::gpu_selector_v, [](sycl::exception_list errors) {
                      for (const auto& e : errors)
                          std::rethrow_exception(e);
                  }};
    auto obs = to_shared(q, std::vector<float>(600, 1.0f));
    auto lo = to_shared(q, std::vector<float>{float(untouched)});
    auto hi = to_shared(q, std::vector<float>{float(untouched)});
    sycl::event failed =
        q.submit([](sycl::handler& h) { h.host_task([] { throw dependency_failed{}; }); });

    std::size_t launches = 0, device_mallocs = 0;
    sycl::ext::hostsycl::set_launch_observer(
        [&](const sycl::ext::hostsycl::launch_record&) { ++launches; });
    sycl::ext::hostsycl::set_usm_observer([&](sycl::ext::hostsycl::usm_op op, void*, std::size_t) {
        device_mallocs += op == sycl::ext::hostsycl::usm_op::malloc_device;
    });
    const auto call = [&] {
        stats::min_max<1, float, row_major>(q, dataset<row_major, float*>(1, 600, obs.get()),
                                            lo.get(), hi.get(), {failed});
    };
    EXPECT_THROW(call(), dependency_failed);
    sycl::ext::hostsycl::set_launch_observer(nullptr);
    sycl::ext::hostsycl::set_usm_observer(nullptr);
    EXPECT_EQ(launches, 0u);
    EXPECT_EQ(device_mallocs, 0u);
    EXPECT_EQ(lo[0], float(untouched));
    EXPECT_EQ(hi[0], float(untouched));
}

}  // namespace
