// qnd-stats's results: each of the 20 quantities equal to the library called directly on the
// same data, on each device, in float and double, both layouts, with and without weights, mask
// and a caller's mean; and the library's refusals reach the caller unchanged. (The library's own
// results are checked against references in the library's tests.)
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>
#include <tavrel/qnd/exceptions.hpp>
#include <tavrel/qnd/stats.hpp>

#include "compute.hpp"
#include "options.hpp"
#include "stats_job.hpp"
#include "support/moment_families.hpp"
#include "support/usm_array.hpp"

namespace qnd_stats {
namespace {

namespace stats = tavrel::qnd::stats;

// 3 dimensions of 400 observations near 50, positive weights, stored as the layout says.
stats_job sample_job(bool row_major, bool weighted, bool masked, bool with_mean) {
    std::mt19937_64 gen(20261122);
    std::normal_distribution<double> noise(0.0, 1.0);
    std::uniform_real_distribution<double> weight(0.25, 2.0);
    stats_job job;
    data_matrix& m = job.data;
    m.n_dims = 3;
    m.n_observations = 400;
    m.row_major = row_major;
    m.values.resize(1200);
    for (std::int64_t i = 0; i < m.n_observations; ++i)
        for (std::int64_t d = 0; d < m.n_dims; ++d) {
            // Dimension 2 is skewed: squares of the noise.
            const double z = noise(gen);
            const double x = d == 2 ? 50 + z * z : 50 + (d + 1) * z;
            m.values[static_cast<std::size_t>(row_major ? d * m.n_observations + i
                                                        : i * m.n_dims + d)] = x;
        }
    job.names = {"x1", "x2", "x3"};
    if (weighted)
        for (std::int64_t i = 0; i < m.n_observations; ++i)
            job.weights.push_back(weight(gen));
    if (masked)
        job.indices = {1, 0, 1};
    if (with_mean)
        job.user_mean = {49.5, 50.0, 51.25};
    return job;
}

template <typename T>
std::vector<T> converted(const std::vector<double>& values) {
    return std::vector<T>(values.begin(), values.end());
}

// Every family through the library itself, on the job's data converted to T, in the order the
// tool prints them: the eight moment families, then min and max. Skipped dimensions are NaN.
template <typename T, stats::layout L>
std::vector<std::vector<double>> direct(sycl::queue& q, const stats_job& job) {
    using qnd_test::usm_array;
    const auto n_dims = static_cast<std::size_t>(job.data.n_dims);
    usm_array<T> x(q, converted<T>(job.data.values)), w(q, converted<T>(job.weights));
    usm_array<T> mean(q, converted<T>(job.user_mean));
    usm_array<std::int64_t> ix(q, job.indices);
    const stats::dataset<L, T*> data(job.data.n_dims, job.data.n_observations, x.get(),
                                     job.weights.empty() ? nullptr : w.get(),
                                     job.indices.empty() ? nullptr : ix.get());
    std::vector<std::vector<double>> rows;
    const auto run = [&](int n_outputs, auto call) {
        std::vector<std::unique_ptr<usm_array<T>>> outs;
        std::array<T*, 4> ptrs{};
        for (int k = 0; k < n_outputs; ++k) {
            outs.push_back(std::make_unique<usm_array<T>>(q, n_dims));
            outs.back()->fill(std::numeric_limits<T>::quiet_NaN());
            ptrs[k] = outs.back()->get();
        }
        call(ptrs).wait_and_throw();
        for (const auto& o : outs) {
            const std::vector<T> values = o->to_vector();
            rows.emplace_back(values.begin(), values.end());
        }
    };
    for (const qnd_test::moment_family_info& f : qnd_test::moment_families()) {
        T* m = f.takes_user_mean && !job.user_mean.empty() ? mean.get() : nullptr;
        run(f.n_outputs, [&](const std::array<T*, 4>& o) {
            return qnd_test::call_moment_family<1, T, L>(f.family, q, m, data, o);
        });
    }
    run(1, [&](const std::array<T*, 4>& o) { return stats::min<1, T, L>(q, data, o[0]); });
    run(1, [&](const std::array<T*, 4>& o) { return stats::max<1, T, L>(q, data, o[0]); });
    return rows;
}

struct device_case {
    const char* name;
    device_choice device;
};

class qnd_stats_results : public ::testing::TestWithParam<device_case> {};

TEST_P(qnd_stats_results, every_quantity_equals_the_library_called_directly) {
    sycl::queue q = make_queue(GetParam().device);
    const std::vector<std::string> names = {
        "mean", "s1",  "s2", "s3", "s4", "r1",        "r2",       "r3",       "r4",  "cs2",
        "cs3",  "cs4", "c2", "c3", "c4", "variation", "skewness", "kurtosis", "min", "max"};
    for (bool use_float : {false, true})
        for (bool row_major : {false, true})
            for (int shape = 0; shape < 3; ++shape) {
                const bool weighted = shape >= 1, masked = shape >= 1, with_mean = shape == 2;
                SCOPED_TRACE(std::string(use_float ? "float" : "double") +
                             (row_major ? " row_major" : " col_major") + " shape " +
                             std::to_string(shape));
                const stats_job job = sample_job(row_major, weighted, masked, with_mean);
                tool_options o;
                o.estimates = {"mean",        "raw_sum",        "raw_moment",
                               "central_sum", "central_moment", "variation",
                               "skewness",    "kurtosis",       "min_max"};
                o.use_float = use_float;
                const std::vector<quantity> got = compute(q, job, o);
                const auto want = use_float
                                      ? (row_major ? direct<float, stats::row_major>(q, job)
                                                   : direct<float, stats::col_major>(q, job))
                                      : (row_major ? direct<double, stats::row_major>(q, job)
                                                   : direct<double, stats::col_major>(q, job));
                ASSERT_EQ(got.size(), names.size());
                for (std::size_t k = 0; k < names.size(); ++k) {
                    EXPECT_EQ(got[k].name, names[k]);
                    for (std::size_t d = 0; d < 3; ++d) {
                        const double v = got[k].values[d];
                        if (!kept(job, static_cast<std::int64_t>(d)))
                            EXPECT_TRUE(std::isnan(v)) << names[k] << " of a skipped dimension";
                        else
                            EXPECT_EQ(v, want[k][d]) << names[k] << " of dimension " << d;
                    }
                }
            }
}

INSTANTIATE_TEST_SUITE_P(devices,
                         qnd_stats_results,
                         ::testing::Values(device_case{"gpu", device_choice::gpu},
                                           device_case{"cpu", device_choice::cpu}),
                         [](const auto& info) { return std::string(info.param.name); });

// The alternate method of the central families is refused on GPU devices.
TEST(qnd_stats_results_gpu, library_refusals_reach_the_caller_unchanged) {
    sycl::queue q = make_queue(device_choice::gpu);
    tool_options o;
    o.estimates = {"central_sum"};
    o.method = 2;
    try {
        compute(q, sample_job(false, false, false, false), o);
        ADD_FAILURE() << "no exception";
    } catch (const tavrel::qnd::unimplemented& e) {
        EXPECT_STREQ(e.what(),
                     "tavrel::qnd::stats::central_sum: unimplemented functionality: for this "
                     "method");
    }
}

}  // namespace
}  // namespace qnd_stats
