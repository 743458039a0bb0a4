// The exported min and max estimators, one text for both: the checks and their words, the routing
// by device, and results in both forms on emulated GPUs (the data of every dimension reaches above
// the smallest positive normal value, so the clamp of max does not show here).
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
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

// The two single-extreme families, told apart by their estimator and their host reference.
struct min_family {
    static constexpr const char* name = "min";
    template <typename T, layout L, typename... A>
    static auto call(A&&... a) {
        return stats::min<1, T, L>(std::forward<A>(a)...);
    }
    template <typename M>
    static auto want(const M& m, std::int64_t d) {
        return m.true_min(d);
    }
};
struct max_family {
    static constexpr const char* name = "max";
    template <typename T, layout L, typename... A>
    static auto call(A&&... a) {
        return stats::max<1, T, L>(std::forward<A>(a)...);
    }
    template <typename M>
    static auto want(const M& m, std::int64_t d) {
        return m.true_max(d);
    }
};

template <typename Family, typename T, layout L>
struct combo {
    using family = Family;
    using type = T;
    static constexpr layout value = L;
};
using combos = ::testing::Types<combo<min_family, float, row_major>,
                                combo<min_family, float, col_major>,
                                combo<min_family, double, row_major>,
                                combo<min_family, double, col_major>,
                                combo<max_family, float, row_major>,
                                combo<max_family, float, col_major>,
                                combo<max_family, double, row_major>,
                                combo<max_family, double, col_major>>;

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

template <typename Family>
void expect_null_result_refused() {
    float obs[4] = {1, 2, 3, 4};
    const dataset<row_major, float*> data(1, 4, obs);
    const std::string name = Family::name;
    for (sycl::queue q : {sycl::queue{sycl::cpu_selector_v}, sycl::queue{sycl::gpu_selector_v}})
        EXPECT_EQ(thrown_text<tavrel::qnd::invalid_argument>([&] {
                      Family::template call<float, row_major>(q, data,
                                                              static_cast<float*>(nullptr));
                  }),
                  "tavrel::qnd::stats::" + name + ": invalid argument: " + name + " is nullptr");
}

template <typename Family>
void expect_empty_result_buffer_refused() {
    sycl::buffer<double, 1> obs{sycl::range<1>(4)};
    const dataset<col_major, sycl::buffer<double, 1>> data(2, 2, obs);
    const std::string name = Family::name;
    for (sycl::queue q : {sycl::queue{sycl::cpu_selector_v}, sycl::queue{sycl::gpu_selector_v}})
        EXPECT_EQ(
            thrown_text<tavrel::qnd::invalid_argument>([&] {
                Family::template call<double, col_major>(
                    q, data, sycl::buffer<double, 1>{sycl::range<1>(0)});
            }),
            "tavrel::qnd::stats::" + name + ": invalid argument: " + name + " array length is 0");
}

TEST(ExtremeEstimators, NullResultIsRefusedBeforeTheDeviceIsAsked) {
    expect_null_result_refused<min_family>();
    expect_null_result_refused<max_family>();
}

TEST(ExtremeEstimators, EmptyResultBufferIsRefusedBeforeTheDeviceIsAsked) {
    expect_empty_result_buffer_refused<min_family>();
    expect_empty_result_buffer_refused<max_family>();
}

template <typename P>
class ExtremeEstimatorResults : public ::testing::Test {};
TYPED_TEST_SUITE(ExtremeEstimatorResults, combos);

TYPED_TEST(ExtremeEstimatorResults, MatchHostExtremesInBothForms) {
    using Family = typename TypeParam::family;
    using T = typename TypeParam::type;
    constexpr layout L = TypeParam::value;
    for (const auto& c : counts) {
        sycl::queue q = gpu_queue(c.group_size);
        const std::int64_t n = c.n;
        const std::string where = std::string(Family::name) + ", g " +
                                  std::to_string(c.group_size) + ", n " + std::to_string(n);
        const auto m = minmax_test::random_matrix<T>(n_dims, n, 11 * n);
        const auto stored = m.stored(L);
        const auto weights = minmax_test::odd_weights<T>(n);

        // Pointer form, ordered after the copy of the observations by its dependency list.
        auto obs = to_shared(q, std::vector<T>(stored.size(), T(0)));
        auto w = to_shared(q, weights);
        auto idx = to_shared(q, mask);
        auto out = to_shared(q, std::vector<T>(n_dims, T(untouched)));
        sycl::event copied = q.submit([&](sycl::handler& h) {
            h.host_task([dst = obs.get(), &stored] {
                std::memcpy(dst, stored.data(), stored.size() * sizeof(T));
            });
        });
        Family::template call<T, L>(q, dataset<L, T*>(n_dims, n, obs.get(), w.get(), idx.get()),
                                    out.get(), std::vector<sycl::event>{copied})
            .wait();

        // Buffer form.
        std::vector<T> b_result(n_dims, T(untouched));
        {
            sycl::buffer<T, 1> b_obs(stored.data(), sycl::range<1>(stored.size()));
            sycl::buffer<T, 1> b_w(weights.data(), sycl::range<1>(weights.size()));
            sycl::buffer<std::int64_t, 1> b_idx(mask.data(), sycl::range<1>(mask.size()));
            Family::template call<T, L>(
                q, dataset<L, sycl::buffer<T, 1>>(n_dims, n, b_obs, b_w, b_idx),
                sycl::buffer<T, 1>(b_result.data(), sycl::range<1>(n_dims)));
        }
        for (std::int64_t d = 0; d < n_dims; ++d) {
            const T want = mask[d] ? T(Family::want(m, d)) : T(untouched);
            EXPECT_EQ(out[d], want) << "pointer, " << where << ", dimension " << d;
            EXPECT_EQ(b_result[d], want) << "buffer, " << where << ", dimension " << d;
        }
    }
}

}  // namespace
