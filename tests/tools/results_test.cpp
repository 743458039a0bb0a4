// qnd-stats's results: equal to the library called directly on the same data, and close to
// long-double references of every quantity, on each device, in float and double, both layouts.
#include <cmath>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>
#include <tavrel/qnd/stats.hpp>

#include "compute.hpp"
#include "options.hpp"
#include "stats_job.hpp"

namespace qnd_stats {
namespace {

namespace stats = tavrel::qnd::stats;

// Relative to the scale at which a quantity is conditioned (see condition_scale): central
// quantities may be formed from raw sums, so their error follows the raw sums' size.
constexpr double double_tolerance = 1e-12;
constexpr double float_tolerance = 1e-4;

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

// Definitions in long double, around the data's weighted mean or the caller's.
std::map<std::string, long double> reference(const stats_job& job, std::int64_t d) {
    long double w = 0, w2 = 0, raw[5] = {}, dev[5] = {};
    long double lo = INFINITY, hi = -INFINITY;
    const auto& m = job.data;
    auto weight = [&](std::int64_t i) {
        return job.weights.empty() ? 1.0L : static_cast<long double>(job.weights[i]);
    };
    for (std::int64_t i = 0; i < m.n_observations; ++i) {
        const long double x = m.at(d, i);
        w += weight(i);
        w2 += weight(i) * weight(i);
        for (int k = 1; k <= 4; ++k)
            raw[k] += weight(i) * std::pow(x, k);
        lo = std::min(lo, x);
        hi = std::max(hi, x);
    }
    const long double mean = raw[1] / w;
    const long double centre = job.user_mean.empty() ? mean : job.user_mean[d];
    for (std::int64_t i = 0; i < m.n_observations; ++i)
        for (int k = 2; k <= 4; ++k)
            dev[k] += weight(i) * std::pow(m.at(d, i) - centre, k);
    const long double var = dev[2] / (w - w2 / w);
    return {{"mean", mean},
            {"s1", raw[1]},
            {"s2", raw[2]},
            {"s3", raw[3]},
            {"s4", raw[4]},
            {"r1", mean},
            {"r2", raw[2] / w},
            {"r3", raw[3] / w},
            {"r4", raw[4] / w},
            {"cs2", dev[2]},
            {"cs3", dev[3]},
            {"cs4", dev[4]},
            {"c2", var},
            {"c3", dev[3] / w},
            {"c4", dev[4] / w},
            {"variation", std::sqrt(var) / centre},
            {"skewness", dev[3] / w / std::pow(var, 1.5L)},
            {"kurtosis", dev[4] / w / (var * var) - 3},
            {"min", lo},
            {"max", hi}};
}

// The size of the terms a quantity is formed from: itself for raw quantities, the raw sum of its
// order for central ones, and the propagated relative errors for the ratios.
long double condition_scale(const std::map<std::string, long double>& ref,
                            const std::string& name) {
    auto at = [&](const char* k) { return std::fabs(ref.at(k)); };
    const long double rel2 = at("r2") / at("c2");
    if (name == "cs2" || name == "cs3" || name == "cs4")
        return at(name == "cs2" ? "s2" : name == "cs3" ? "s3" : "s4");
    if (name == "c2" || name == "c3" || name == "c4")
        return at(name == "c2" ? "r2" : name == "c3" ? "r3" : "r4");
    if (name == "variation")
        return at("variation") * rel2;
    if (name == "skewness")
        return at("r3") / std::pow(at("c2"), 1.5L) + 1.5L * at("skewness") * rel2;
    if (name == "kurtosis")
        return (at("kurtosis") + 3) * (at("r4") / at("c4") + 2 * rel2);
    return std::fabs(ref.at(name));
}

struct device_case {
    const char* name;
    device_choice device;
};

class qnd_stats_results : public ::testing::TestWithParam<device_case> {};

TEST_P(qnd_stats_results, every_quantity_matches_long_double_references) {
    sycl::queue q = make_queue(GetParam().device);
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
                ASSERT_EQ(got.size(), 20u);
                const double tol = use_float ? float_tolerance : double_tolerance;
                for (std::int64_t d = 0; d < 3; ++d) {
                    const auto ref = reference(job, d);
                    for (const quantity& qy : got) {
                        const double v = qy.values[static_cast<std::size_t>(d)];
                        if (!kept(job, d)) {
                            EXPECT_TRUE(std::isnan(v)) << qy.name << " of a skipped dimension";
                            continue;
                        }
                        const long double r = ref.at(qy.name);
                        const long double scale = condition_scale(ref, qy.name);
                        EXPECT_LE(std::fabs(v - r), tol * scale)
                            << qy.name << " of dimension " << d << ": " << v << " against "
                            << static_cast<double>(r);
                    }
                }
            }
}

TEST_P(qnd_stats_results, equal_to_the_library_called_directly) {
    sycl::queue q = make_queue(GetParam().device);
    const stats_job job = sample_job(false, true, true, true);
    tool_options o;
    o.estimates = {"mean", "central_moment", "kurtosis", "min_max"};
    const std::vector<quantity> got = compute(q, job, o);

    // The same data, copied into shared memory by hand, through the estimators themselves.
    const std::size_t n = job.data.values.size();
    double* x = sycl::malloc_shared<double>(n, q);
    double* w = sycl::malloc_shared<double>(400, q);
    std::int64_t* ix = sycl::malloc_shared<std::int64_t>(3, q);
    double* um = sycl::malloc_shared<double>(3, q);
    double* out = sycl::malloc_shared<double>(8 * 3, q);
    std::copy(job.data.values.begin(), job.data.values.end(), x);
    std::copy(job.weights.begin(), job.weights.end(), w);
    std::copy(job.indices.begin(), job.indices.end(), ix);
    std::copy(job.user_mean.begin(), job.user_mean.end(), um);
    std::fill(out, out + 24, 0.0);
    const stats::dataset<stats::col_major, double*> data(3, 400, x, w, ix);
    stats::mean<1, double, stats::col_major>(q, data, out).wait_and_throw();
    stats::central_moment<1, double, stats::col_major>(q, um, data, out + 3, out + 6, out + 9)
        .wait_and_throw();
    stats::kurtosis<1, double, stats::col_major>(q, um, data, out + 12).wait_and_throw();
    stats::min_max<1, double, stats::col_major>(q, data, out + 15, out + 18).wait_and_throw();
    q.wait_and_throw();

    const std::vector<std::string> names = {"mean", "c2", "c3", "c4", "kurtosis", "min", "max"};
    ASSERT_EQ(got.size(), names.size());
    for (std::size_t k = 0; k < names.size(); ++k) {
        EXPECT_EQ(got[k].name, names[k]);
        for (std::size_t d : {0u, 2u})
            EXPECT_EQ(got[k].values[d], out[3 * k + d]) << names[k] << " of dimension " << d;
    }
    for (void* p : {static_cast<void*>(x), static_cast<void*>(w), static_cast<void*>(ix),
                    static_cast<void*>(um), static_cast<void*>(out)})
        sycl::free(p, q);
}

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

INSTANTIATE_TEST_SUITE_P(devices,
                         qnd_stats_results,
                         ::testing::Values(device_case{"gpu", device_choice::gpu},
                                           device_case{"cpu", device_choice::cpu}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace qnd_stats
