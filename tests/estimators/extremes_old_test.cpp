// The exported extreme estimators, min, max and min_max: their checks in order and words on both
// devices and in both forms, results in both forms against the host extremes along launch chains
// (the data reach above the smallest positive normal value, so the clamp of max does not show
// here), and a failed dependency that stops a call before anything runs.
#include <cstdint>
#include <cstring>
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

enum class extreme { min, max, min_max };

const char* name_of(extreme e) {
    return e == extreme::min ? "min" : e == extreme::max ? "max" : "min_max";
}
bool stores_min(extreme e) {
    return e != extreme::max;
}
bool stores_max(extreme e) {
    return e != extreme::min;
}

// The pointer form of `e`: min writes `lo`, max writes `hi`, min_max both.
template <typename T, layout L>
sycl::event call(extreme e,
                 sycl::queue& q,
                 const dataset<L, T*>& data,
                 T* lo,
                 T* hi,
                 const std::vector<sycl::event>& deps = {}) {
    if (e == extreme::min)
        return stats::min<1, T, L>(q, data, lo, deps);
    if (e == extreme::max)
        return stats::max<1, T, L>(q, data, hi, deps);
    return stats::min_max<1, T, L>(q, data, lo, hi, deps);
}

// The buffer form, likewise.
template <typename T, layout L>
void call(extreme e,
          sycl::queue& q,
          const dataset<L, sycl::buffer<T, 1>>& data,
          sycl::buffer<T, 1> lo,
          sycl::buffer<T, 1> hi) {
    if (e == extreme::min)
        return stats::min<1, T, L>(q, data, lo);
    if (e == extreme::max)
        return stats::max<1, T, L>(q, data, hi);
    stats::min_max<1, T, L>(q, data, lo, hi);
}

// Runs f and returns the text of the invalid_argument that it throws.
template <typename F>
std::string refusal_text(F&& f) {
    try {
        f();
    } catch (const tavrel::qnd::invalid_argument& e) {
        return e.what();
    } catch (const std::exception& e) {
        return std::string("other exception: ") + e.what();
    }
    return "no exception";
}

constexpr double untouched = -777.0;

// min_max tests its minimum first: with both missing, the minimum is named.
TEST(ExtremeEstimators, ChecksNameTheMissingResultMinFirst) {
    struct check_case {
        extreme family;
        bool lo_given, hi_given;
        const char* missing;
    };
    const std::vector<check_case> cases = {
        {extreme::min, false, true, "min"},      {extreme::max, true, false, "max"},
        {extreme::min_max, false, false, "min"}, {extreme::min_max, false, true, "min"},
        {extreme::min_max, true, false, "max"},
    };
    float obs[4] = {1, 2, 3, 4};
    const dataset<row_major, float*> data(1, 4, obs);
    sycl::buffer<float, 1> b_obs{sycl::range<1>(4)};
    const dataset<row_major, sycl::buffer<float, 1>> b_data(1, 4, b_obs);
    for (sycl::queue q : {sycl::queue{sycl::cpu_selector_v}, sycl::queue{sycl::gpu_selector_v}}) {
        for (const check_case& c : cases) {
            const std::string prefix = std::string("tavrel::qnd::stats::") + name_of(c.family) +
                                       ": invalid argument: " + c.missing;
            SCOPED_TRACE(prefix + (q.get_device().is_cpu() ? " on the CPU" : " on the GPU"));
            float given[2] = {float(untouched), float(untouched)};
            EXPECT_EQ(refusal_text([&] {
                          call<float, row_major>(c.family, q, data, c.lo_given ? given : nullptr,
                                                 c.hi_given ? given + 1 : nullptr);
                      }),
                      prefix + " is nullptr");
            EXPECT_EQ(given[0], float(untouched));
            EXPECT_EQ(given[1], float(untouched));
            const auto sized = [](bool given) {
                return sycl::buffer<float, 1>{sycl::range<1>(given ? 1 : 0)};
            };
            EXPECT_EQ(refusal_text([&] {
                          call<float, row_major>(c.family, q, b_data, sized(c.lo_given),
                                                 sized(c.hi_given));
                      }),
                      prefix + " array length is 0");
        }
    }
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

template <typename P>
class ExtremeEstimatorResults : public ::testing::Test {};
TYPED_TEST_SUITE(ExtremeEstimatorResults, combos);

// Counts of a single launch (one full group too) and of first and final steps on the default
// emulated GPU (work-groups of 256), and chains of three to six launches on an emulated GPU with
// work-groups of 3; weights that would change a weighted result, and a mask.
TYPED_TEST(ExtremeEstimatorResults, MatchHostExtremesInBothForms) {
    using T = typename TypeParam::type;
    constexpr layout L = TypeParam::value;
    struct sized_count {
        std::size_t group_size;  // 0: the default GPU
        std::int64_t n;
    };
    constexpr sized_count counts[] = {{0, 40}, {0, 256}, {0, 300}, {0, 512},
                                      {3, 10}, {3, 28},  {3, 250}};
    constexpr std::int64_t n_dims = 4;
    const std::vector<std::int64_t> mask = {1, 0, 5, 1};
    for (const auto& c : counts) {
        sycl::queue q = c.group_size == 0
                            ? sycl::queue{sycl::gpu_selector_v}
                            : sycl::queue{sycl::ext::hostsycl::make_gpu_device(c.group_size)};
        const std::int64_t n = c.n;
        const auto m = minmax_test::random_matrix<T>(n_dims, n, 11 * n);
        const auto stored = m.stored(L);
        const auto weights = minmax_test::odd_weights<T>(n);
        for (extreme e : {extreme::min, extreme::max, extreme::min_max}) {
            SCOPED_TRACE(std::string(name_of(e)) + ", g " + std::to_string(c.group_size) + ", n " +
                         std::to_string(n));
            // Pointer form, ordered after the copy of the observations by its dependency list.
            auto obs = to_shared(q, std::vector<T>(stored.size(), T(0)));
            auto w = to_shared(q, weights);
            auto idx = to_shared(q, mask);
            auto lo = to_shared(q, std::vector<T>(n_dims, T(untouched)));
            auto hi = to_shared(q, std::vector<T>(n_dims, T(untouched)));
            sycl::event copied = q.submit([&](sycl::handler& h) {
                h.host_task([dst = obs.get(), &stored] {
                    std::memcpy(dst, stored.data(), stored.size() * sizeof(T));
                });
            });
            call<T, L>(e, q, dataset<L, T*>(n_dims, n, obs.get(), w.get(), idx.get()), lo.get(),
                       hi.get(), {copied})
                .wait();

            std::vector<T> b_lo(n_dims, T(untouched)), b_hi(n_dims, T(untouched));
            {
                sycl::buffer<T, 1> b_obs(stored.data(), sycl::range<1>(stored.size()));
                sycl::buffer<T, 1> b_w(weights.data(), sycl::range<1>(weights.size()));
                sycl::buffer<std::int64_t, 1> b_idx(mask.data(), sycl::range<1>(mask.size()));
                call<T, L>(e, q, dataset<L, sycl::buffer<T, 1>>(n_dims, n, b_obs, b_w, b_idx),
                           sycl::buffer<T, 1>(b_lo.data(), sycl::range<1>(n_dims)),
                           sycl::buffer<T, 1>(b_hi.data(), sycl::range<1>(n_dims)));
            }
            for (std::int64_t d = 0; d < n_dims; ++d) {
                const T want_lo = mask[d] && stores_min(e) ? m.true_min(d) : T(untouched);
                const T want_hi = mask[d] && stores_max(e) ? m.true_max(d) : T(untouched);
                EXPECT_EQ(lo[d], want_lo) << "pointer, dimension " << d;
                EXPECT_EQ(hi[d], want_hi) << "pointer, dimension " << d;
                EXPECT_EQ(b_lo[d], want_lo) << "buffer, dimension " << d;
                EXPECT_EQ(b_hi[d], want_hi) << "buffer, dimension " << d;
            }
        }
    }
}

// A failed dependency surfaces on the caller's thread, through the queue's asynchronous handler,
// before anything of the call is launched or allocated.
TEST(ExtremeEstimators, FailedDependencyThrowsBeforeAnyLaunch) {
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
    const auto run = [&] {
        stats::min_max<1, float, row_major>(q, dataset<row_major, float*>(1, 600, obs.get()),
                                            lo.get(), hi.get(), {failed});
    };
    EXPECT_THROW(run(), dependency_failed);
    sycl::ext::hostsycl::set_launch_observer(nullptr);
    sycl::ext::hostsycl::set_usm_observer(nullptr);
    EXPECT_EQ(launches, 0u);
    EXPECT_EQ(device_mallocs, 0u);
    EXPECT_EQ(lo[0], float(untouched));
    EXPECT_EQ(hi[0], float(untouched));
}

}  // namespace
