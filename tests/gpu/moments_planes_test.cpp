// Plane counts and keeping flags of the moment engine: the local memory that each finisher
// asks for in a next step, and correct results where the kept powers leave gaps. Also the
// finishers that store the mean and raw moments besides (used by the offload path), through
// the planner.
#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "estimators/central_moment.hpp"
#include "estimators/central_sum.hpp"
#include "estimators/kurtosis.hpp"
#include "estimators/skewness.hpp"
#include "estimators/variation.hpp"
#include "gpu/moments_gpu_impl.hpp"
#include "support/data.hpp"
#include "support/launch_log.hpp"
#include "support/moment_families.hpp"
#include "support/reference.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/stats.hpp"

namespace {

namespace st = tavrel::qnd::stats;
namespace gpu = tavrel::qnd::stats::detail::gpu;
using namespace qnd_test;

constexpr std::int64_t n_dims = 2;
constexpr std::int64_t n_obs = 20;  // on a GPU of 4: first 20/4, next 8/4, last 2/2
constexpr std::size_t group_size = 4;
constexpr double untouched = -321.5;

// One weighted or unweighted data set on a GPU of 4, with outputs to write into.
struct fixture {
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(group_size)};
    host_data<double> host;
    usm_array<double> obs;
    usm_array<double> weights;
    usm_array<double> centre;
    std::vector<std::unique_ptr<usm_array<double>>> outs;
    st::dataset<st::row_major, double*> data;

    explicit fixture(bool weighted)
        : host(skewed_data<double>(n_dims, n_obs, st::row_major)),
          obs(q, host.observations),
          weights(q, random_weights<double>(n_obs)),
          centre(q, static_cast<std::size_t>(n_dims)) {
        if (weighted)
            host.weights = weights.to_vector();
        data = {n_dims, n_obs, obs.get(), weighted ? weights.get() : nullptr};
        for (std::int64_t d = 0; d < n_dims; ++d) {
            centre[static_cast<std::size_t>(d)] = reference_of(host, d).mean() - 0.5;
        }
        for (int k = 0; k < 8; ++k) {
            outs.push_back(
                std::make_unique<usm_array<double>>(q, static_cast<std::size_t>(n_dims)));
            outs.back()->fill(untouched);
        }
    }
    double* out(int k) { return outs[static_cast<std::size_t>(k)]->get(); }
    double at(int k, std::int64_t d) {
        return (*outs[static_cast<std::size_t>(k)])[static_cast<std::size_t>(d)];
    }
    moment_reference own(std::int64_t d) const { return reference_of(host, d); }
    moment_reference around(std::int64_t d) {
        const long double c = centre[static_cast<std::size_t>(d)];
        return reference_of(host, d, &c);
    }
};

// Local memory of the intermediate and the finishing next step, in elements of double.
std::pair<std::size_t, std::size_t> next_step_local_elements(const std::function<void()>& call) {
    const auto log = record_launches(call);
    EXPECT_EQ(describe(log), "first 20/4, next 8/4, last 2/2");
    if (log.size() != 3)
        return {0, 0};
    EXPECT_EQ(log[0].local_memory_bytes, group_size * sizeof(double));
    return {log[1].local_memory_bytes / sizeof(double), log[2].local_memory_bytes / sizeof(double)};
}

struct plane_case {
    moment_family family;
    std::array<bool, 4> given;  // outputs given, in declaration order
    bool user_mean;
    std::size_t planes;  // P
};

// Each row leaves out what makes the kept powers leave a gap, or keeps them all.
const std::vector<plane_case>& plane_cases() {
    using mf = moment_family;
    static const std::vector<plane_case> cases{
        {mf::mean, {1, 0, 0, 0}, false, 1},
        {mf::raw_sum, {1, 0, 0, 0}, false, 1},
        {mf::raw_sum, {1, 1, 0, 0}, false, 2},
        {mf::raw_sum, {1, 0, 1, 0}, false, 3},
        {mf::raw_sum, {1, 0, 0, 1}, false, 4},  // the fourth power sits in plane 1
        {mf::raw_moment, {1, 1, 0, 0}, false, 2},
        {mf::central_sum, {1, 0, 0, 0}, false, 2},
        {mf::central_sum, {1, 1, 0, 0}, false, 3},  // order 3 without order 4
        {mf::central_moment, {1, 0, 1, 0}, false, 4},
        {mf::central_sum, {1, 0, 0, 0}, true, 1},
        {mf::central_sum, {1, 1, 0, 0}, true, 2},
        {mf::central_moment, {1, 0, 1, 0}, true, 3},
        {mf::variation, {1, 0, 0, 0}, false, 2},
        {mf::skewness, {1, 0, 0, 0}, false, 3},
        {mf::kurtosis, {1, 0, 0, 0}, false, 4},
        {mf::variation, {1, 0, 0, 0}, true, 1},
        {mf::skewness, {1, 0, 0, 0}, true, 2},
        {mf::kurtosis, {1, 0, 0, 0}, true, 3},  // no third power: the fourth in plane 1
    };
    return cases;
}

// A next step asks for P planes of local memory, one more with weights (for P = 1 computed as
// a shift), whatever gap the kept powers leave; the outputs given are right and the others
// unwritten.
TEST(MomentPlanes, LocalMemoryOfNextStepsFollowsPlaneCount) {
    for (bool weighted : {false, true}) {
        for (const plane_case& pc : plane_cases()) {
            const moment_family_info& info = moment_families()[static_cast<int>(pc.family)];
            SCOPED_TRACE(testing::Message()
                         << info.name << (pc.user_mean ? " around a mean" : "") << " given "
                         << pc.given[0] << pc.given[1] << pc.given[2] << pc.given[3]
                         << (weighted ? ", weighted" : ""));
            fixture f(weighted);
            std::array<double*, 4> outs{};
            for (int k = 0; k < 4; ++k)
                outs[k] = pc.given[k] ? f.out(k) : nullptr;
            const auto [intermediate, last] = next_step_local_elements([&] {
                call_moment_family<1, double>(
                    pc.family, f.q, pc.user_mean ? f.centre.get() : nullptr, f.data, outs);
            });
            const std::size_t planes = pc.planes + (weighted ? 1 : 0);
            EXPECT_EQ(intermediate, planes * group_size);
            EXPECT_EQ(last, planes * 2);
            for (std::int64_t d = 0; d < n_dims; ++d) {
                const moment_reference r = pc.user_mean ? f.around(d) : f.own(d);
                for (int k = 0; k < info.n_outputs; ++k) {
                    if (!pc.given[k])
                        EXPECT_EQ(f.at(k, d), untouched) << "output " << k;
                    else
                        EXPECT_TRUE(close_to(f.at(k, d), expected_output(pc.family, k, r),
                                             moment_tolerance<double>()))
                            << "output " << k << ", dimension " << d;
                }
            }
        }
    }
}

// The finishers of the offload path: the estimate, the mean and the raw moments it rests on.
TEST(MomentPlanes, FinishersStoringMeanAndRawMoments) {
    for (bool weighted : {false, true}) {
        SCOPED_TRACE(weighted ? "weighted" : "unweighted");
        fixture f(weighted);
        // Order 4 alone: raw3 is stored, out3 is not.
        gpu::ex::central_moment_func_fast<double, true> cm{};
        cm.has_order3 = 0;
        cm.has_order4 = 1;
        cm.mean = f.out(0);
        cm.raw2 = f.out(1);
        cm.raw3 = f.out(2);
        cm.raw4 = f.out(3);
        cm.out2 = f.out(4);
        cm.out3 = f.out(5);
        cm.out4 = f.out(6);
        const auto [intermediate, last] =
            next_step_local_elements([&] { gpu::submit_basic_usm(f.q, f.data, cm, {}); });
        EXPECT_EQ(last, (4u + (weighted ? 1u : 0u)) * 2u);
        (void)intermediate;
        for (std::int64_t d = 0; d < n_dims; ++d) {
            const moment_reference r = f.own(d);
            EXPECT_TRUE(close_to(f.at(0, d), r.mean(), 1e-12L));
            EXPECT_TRUE(close_to(f.at(1, d), r.raw_moment(2), 1e-12L));
            EXPECT_TRUE(close_to(f.at(2, d), r.raw_moment(3), 1e-12L));
            EXPECT_TRUE(close_to(f.at(3, d), r.raw_moment(4), 1e-12L));
            EXPECT_TRUE(close_to(f.at(4, d), r.central_moment(2), 1e-10L));
            EXPECT_EQ(f.at(5, d), untouched);
            EXPECT_TRUE(close_to(f.at(6, d), r.central_moment(4), 1e-10L));
        }
    }
}

TEST(MomentPlanes, ShapeFinishersStoringMeanAndRawMoments) {
    for (bool weighted : {false, true}) {
        SCOPED_TRACE(weighted ? "weighted" : "unweighted");
        fixture f(weighted);
        gpu::submit_basic_usm(
            f.q, f.data, gpu::ex::variation_func_fast<double, true>{f.out(0), f.out(1), f.out(2)},
            {});
        gpu::ex::skewness_func_fast<double, true> skew{};
        skew.mean = f.out(3);
        skew.raw2 = f.out(4);
        skew.raw3 = f.out(5);
        skew.out = f.out(6);
        gpu::submit_basic_usm(f.q, f.data, skew, {});
        for (std::int64_t d = 0; d < n_dims; ++d) {
            const moment_reference r = f.own(d);
            EXPECT_TRUE(close_to(f.at(0, d), r.mean(), 1e-12L));
            EXPECT_TRUE(close_to(f.at(1, d), r.raw_moment(2), 1e-12L));
            EXPECT_TRUE(close_to(f.at(2, d), r.variation(), 1e-10L));
            EXPECT_TRUE(close_to(f.at(3, d), r.mean(), 1e-12L));
            EXPECT_TRUE(close_to(f.at(6, d), r.skewness(), 1e-10L));
        }
        fixture g(weighted);
        gpu::ex::kurtosis_func_fast<double, true> kurt{};
        kurt.mean = g.out(0);
        kurt.raw2 = g.out(1);
        kurt.raw3 = g.out(2);
        kurt.raw4 = g.out(3);
        kurt.out = g.out(4);
        gpu::ex::central_sum_func_fast<double, true> cs{};
        cs.has_order3 = 1;
        cs.has_order4 = 1;
        cs.mean = g.out(5);
        cs.raw2 = g.out(6);
        cs.raw3 = g.out(7);
        cs.raw4 = g.out(7);
        cs.out2 = g.out(6);
        cs.out3 = g.out(7);
        cs.out4 = g.out(7);
        gpu::submit_basic_usm(g.q, g.data, kurt, {});
        for (std::int64_t d = 0; d < n_dims; ++d) {
            const moment_reference r = g.own(d);
            EXPECT_TRUE(close_to(g.at(2, d), r.raw_moment(3), 1e-12L));
            EXPECT_TRUE(close_to(g.at(3, d), r.raw_moment(4), 1e-12L));
            EXPECT_TRUE(close_to(g.at(4, d), r.kurtosis(), 1e-10L));
        }
        // Outputs share arrays here; what stays is the last store of each: out2, then out4.
        gpu::submit_basic_usm(g.q, g.data, cs, {});
        for (std::int64_t d = 0; d < n_dims; ++d) {
            const moment_reference r = g.own(d);
            EXPECT_TRUE(close_to(g.at(5, d), r.mean(), 1e-12L));
            EXPECT_TRUE(close_to(g.at(6, d), r.central_sum(2), 1e-10L));
            EXPECT_TRUE(close_to(g.at(7, d), r.central_sum(4), 1e-10L));
        }
    }
}

}  // namespace
