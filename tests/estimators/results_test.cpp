// Results of the exported estimators on every test device, both forms: the moment families against
// exact values and long-double references, outputs left out never written, the local memory of each
// launch; the extremes against the host's, for counts that walk every chain of launches.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "support/data.hpp"
#include "support/devices.hpp"
#include "support/extremes_data.hpp"
#include "support/launch_log.hpp"
#include "support/moment_families.hpp"
#include "support/reference.hpp"
#include "tavrel/qnd/stats.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;
using mf = moment_family;
constexpr mf rs = mf::raw_sum, rm = mf::raw_moment, cs = mf::central_sum, cm = mf::central_moment;
template <typename T>
using outputs = std::vector<std::vector<T>>;  // the family's outputs, each read back whole

constexpr double sentinel = 7777.0;
constexpr std::int64_t n_dims = 3, n_observations = 37;

// The caller's mean of dimension d in the forms that take one: near, not at, the data's mean.
template <typename T>
T given_mean(std::int64_t d) {
    return static_cast<T>(((d % 2 == 0) ? 1.0 : -1.0) * (1.0 + 0.25 * d) + 0.125);
}

// One call: family, method value, whether around the caller's mean, and the length of each
// output (0: left out, as null or as a buffer of size 0) and of the mean.
struct call {
    const moment_family_info& f;
    int method;
    bool user_mean;
    std::array<std::size_t, 4> lengths{n_dims, n_dims, n_dims, n_dims};
    std::size_t mean_length = n_dims;
};

// The call `c` in either form; outputs start at the sentinel.
template <typename T, st::layout L>
outputs<T> run(bool by_buffer, sycl::queue& q, const call& c, const host_data<T>& data) {
    std::vector<T> means{given_mean<T>(0), given_mean<T>(1), given_mean<T>(2)};
    means.resize(c.mean_length);
    const std::vector<T>* mean = c.user_mean ? &means : nullptr;
    const T s = static_cast<T>(sentinel);
    return c.method == 1 ? run_family<1, T, L>(q, c.f.family, by_buffer, data, mean, c.lengths, s)
                         : run_family<2, T, L>(q, c.f.family, by_buffer, data, mean, c.lengths, s);
}

// The core library on a CPU accumulates in double: float results carry little more than their
// own rounding there.
template <typename T>
long double tolerance_on(const sycl::device& dev) {
    return dev.is_cpu() ? (std::is_same_v<T, float> ? 1e-5L : 1e-11L) : moment_tolerance<T>();
}

// Each output given, in each kept dimension that it holds, against the long-double reference;
// outputs left out and masked dimensions keep the sentinel.
template <typename T>
void expect_reference(const sycl::device& dev,
                      const call& c,
                      const host_data<T>& data,
                      const outputs<T>& got) {
    for (int k = 0; k < c.f.n_outputs; ++k) {
        for (std::size_t d = 0; d < got[k].size(); ++d) {
            const long double centre = given_mean<T>(d);
            const long double want = expected_output(
                c.f.family, k, reference_of(data, d, c.user_mean ? &centre : nullptr));
            if (c.lengths[k] == 0 || !data.kept(d))
                EXPECT_EQ(got[k][d], static_cast<T>(sentinel)) << "output " << k << ", dim " << d;
            else
                EXPECT_TRUE(close_to(got[k][d], want, tolerance_on<T>(dev)))
                    << "output " << k << ", dimension " << d << ": " << got[k][d] << " vs " << want;
        }
    }
}

std::string trace_of(const call& c, bool weighted) {
    return std::string(c.f.name) + " method " + std::to_string(c.method) +
           (c.user_mean ? " around a mean" : "") + (weighted ? ", weighted and masked" : "");
}

class moments : public ::testing::TestWithParam<sycl::device> {};

struct exact_case {
    std::vector<double> values, weights;  // one dimension; no weights: unweighted
    moment_family family;
    int output;       // declaration order
    double expected;  // NaN: not a number expected
};

// Small cases known exactly. 1 2 3: m = 2, C2 = 2, M2 = 1. 1 2 3 4: m = 2.5, V = 5/3, C4 = 10.25,
// M4 = 2.5625. Weights that are zero, negative or not a number count as 1, in W and W2 too; all
// weights c give the unweighted variance. Zero variance and one observation give what IEEE
// arithmetic gives.
TEST_P(moments, small_cases_known_exactly) {
    const double v = 5.0 / 3.0, nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<double> a{1, 2, 3}, b{1, 2, 3, 4}, twos{2, 2, 2, 2};
    const std::vector<double> f{5, 5, 5, 5}, nw{-1, nan, 1, 1}, mw{2, -3, 1}, z{0, 0, 0, 0};
    // clang-format off
    const std::vector<exact_case> cases{
        {a, {}, mf::mean, 0, 2.0},      {a, {}, rs, 3, 98.0},      {a, {}, rs, 1, 14.0},
        {a, {}, rm, 2, 12.0},           {a, {}, cs, 0, 2.0},       {a, {}, cs, 1, 0.0},
        {a, {}, cs, 2, 2.0},            {a, {}, cm, 0, 1.0},       {a, {}, cm, 2, 2.0 / 3},
        {b, {}, cs, 2, 10.25},          {b, {}, cm, 2, 2.5625},    {b, {}, cm, 0, v},
        {b, {}, mf::skewness, 0, 0.0},  {b, {}, mf::kurtosis, 0, 2.5625 / (v * v) - 3},
        {b, {}, mf::variation, 0, std::sqrt(v) / 2.5}, {{-1, -2, -3}, {}, mf::variation, 0, -0.5},
        {b, z, mf::mean, 0, 2.5},       {b, z, cm, 0, v},          {b, nw, cm, 0, v},
        {a, mw, mf::mean, 0, 7.0 / 4.0}, {a, mw, rs, 0, 7.0},      {a, mw, rs, 1, 15.0},
        {b, twos, cm, 0, v},            {b, twos, cm, 2, 2.5625},  {b, twos, rs, 1, 60.0},
        {b, twos, mf::kurtosis, 0, 2.5625 / (v * v) - 3},          {f, {}, mf::skewness, 0, nan},
        {f, {}, mf::kurtosis, 0, nan},  {f, {}, mf::variation, 0, 0.0}, {{7}, {}, cm, 0, nan},
        {{1, nan, 3}, {}, mf::mean, 0, nan}};
    // clang-format on
    sycl::queue q(GetParam());
    for (const exact_case& c : cases) {
        // The CPU engine refuses weights that are not positive (reported, not tested here).
        if (GetParam().is_cpu() &&
            std::any_of(c.weights.begin(), c.weights.end(), [](double w) { return !(w > 0); }))
            continue;
        const moment_family_info& f = moment_families()[static_cast<int>(c.family)];
        SCOPED_TRACE(::testing::Message() << f.name << " output " << c.output << " of "
                                          << ::testing::PrintToString(c.values) << " weighted "
                                          << ::testing::PrintToString(c.weights));
        const auto n = static_cast<std::int64_t>(c.values.size());
        const auto check = [&](auto zero) {
            using T = decltype(zero);
            host_data<T> h = make_data<T>(
                1, n, st::row_major, [&](std::int64_t, std::int64_t i) { return c.values[i]; });
            h.weights.assign(c.weights.begin(), c.weights.end());
            const double got = run_family<1, T, st::row_major>(q, c.family, false, h, nullptr,
                                                               {1, 1, 1, 1}, T(0))[c.output][0];
            // float results are rounded a few times on the way; double ones nearly exact.
            const double tol = std::is_same_v<T, float> ? 1e-6 : 1e-14;
            if (std::isnan(c.expected))
                EXPECT_TRUE(std::isnan(got)) << "got " << got;
            else
                EXPECT_NEAR(got, c.expected, tol * std::max(1.0, std::fabs(c.expected)));
        };
        check(0.0f);
        check(0.0);
    }
}

// Every family and form with outputs given and left out, both method values, unweighted and
// weighted with a mask. Outputs left out are never written, not even the lowest order, which the
// GPU engine writes with no test. A next step asks for P planes of local memory (one more with
// weights), following the outputs given whatever gap they leave; single and first steps for one.
struct row {
    moment_family family;
    std::array<bool, 4> given;  // outputs given, in declaration order
    bool user_mean;
    std::size_t planes;  // P
};

template <typename T, st::layout L>
void check_rows(const sycl::device& dev) {
    // clang-format off
    const row rows[] = {
        {mf::mean, {1}, false, 1},  {rs, {1, 1, 1, 1}, false, 4}, {rs, {1, 0, 0, 0}, false, 1},
        {rs, {1, 1, 0, 0}, false, 2}, {rs, {1, 0, 1, 0}, false, 3}, {rs, {1, 0, 0, 1}, false, 4},
        {rs, {0, 0, 0, 1}, false, 4}, {rs, {0, 1, 0, 0}, false, 2}, {rm, {1, 1, 1, 1}, false, 4},
        {rm, {1, 1, 0, 0}, false, 2}, {rm, {0, 0, 1, 0}, false, 3}, {cs, {1, 1, 1}, false, 4},
        {cs, {1, 0, 0}, false, 2},    {cs, {1, 1, 0}, false, 3},    {cs, {0, 1, 0}, false, 3},
        {cs, {0, 0, 1}, false, 4},    {cm, {1, 1, 1}, false, 4},    {cm, {1, 0, 1}, false, 4},
        {cm, {0, 1, 1}, false, 4},    {cs, {1, 1, 1}, true, 3},     {cs, {1, 0, 0}, true, 1},
        {cs, {1, 1, 0}, true, 2},     {cs, {0, 1, 0}, true, 2},     {cm, {1, 1, 1}, true, 3},
        {cm, {1, 0, 1}, true, 3},     {cm, {0, 0, 1}, true, 3},     {mf::variation, {1}, false, 2},
        {mf::skewness, {1}, false, 3}, {mf::kurtosis, {1}, false, 4}, {mf::variation, {1}, true, 1},
        {mf::skewness, {1}, true, 2},  {mf::kurtosis, {1}, true, 3}};
    // clang-format on
    sycl::queue q(dev);
    for (bool weighted : {false, true}) {
        host_data<T> data = skewed_data<T>(n_dims, n_observations, L);
        if (weighted) {
            data.weights = random_weights<T>(n_observations);
            data.indices = {1, 0, 1};
        }
        for (const row& r : rows) {
            const moment_family_info& f = moment_families()[static_cast<int>(r.family)];
            const bool central = r.family == mf::central_sum || r.family == mf::central_moment;
            for (int method : {1, 2}) {
                // The forms with a mean have value 1 only; value 2 of the central families is
                // refused on a GPU (see the checks).
                if (method == 2 && (r.user_mean || (central && dev.is_gpu())))
                    continue;
                call c{f, method, r.user_mean};
                for (int k = 0; k < 4; ++k)
                    c.lengths[k] = r.given[k] ? n_dims : 0;
                std::array<outputs<T>, 2> got;
                for (bool by_buffer : {false, true}) {
                    // The pointer form writes the lowest order with no test: it must be given.
                    if (!by_buffer && !r.given[0])
                        continue;
                    SCOPED_TRACE(trace_of(c, weighted) + (by_buffer ? ", buffers" : ", pointers") +
                                 " given " + ::testing::PrintToString(r.given));
                    const auto log =
                        record_launches([&] { got[by_buffer] = run<T, L>(by_buffer, q, c, data); });
                    expect_reference(dev, c, data, got[by_buffer]);
                    for (const auto& launch : log) {
                        const std::string kind = step_kind(launch.kernel_name);
                        const std::size_t planes =
                            kind == "single" || kind == "first" ? 1 : r.planes + weighted;
                        EXPECT_EQ(launch.local_memory_bytes, planes * launch.local_size * sizeof(T))
                            << describe({launch});
                    }
                }
                // On the CPU, central_sum of value 1 without a mean asks the core library for its
                // method 2 in the pointer form, 1 in the buffer form: last bits may differ.
                if (!r.given[0] ||
                    (dev.is_cpu() && method == 1 && !r.user_mean && r.family == mf::central_sum))
                    continue;
                for (int k = 0; k < f.n_outputs; ++k)
                    if (r.given[k])
                        EXPECT_EQ(got[0][k], got[1][k])
                            << trace_of(c, weighted) << ", output " << k;
            }
        }
    }
}

TEST_P(moments, every_family_and_form_with_outputs_given_and_left_out) {
    check_rows<float, st::row_major>(GetParam());
    check_rows<float, st::col_major>(GetParam());
    check_rows<double, st::row_major>(GetParam());
    check_rows<double, st::col_major>(GetParam());
}

INSTANTIATE_TEST_SUITE_P(devices, moments, ::testing::ValuesIn(test_devices()), device_name());

// The buffer forms refuse only a length of 0: on a GPU, outputs (and a mean) of one element
// serve a mask that keeps the first dimension alone.
TEST(moments_gpu, outputs_shorter_than_n_dims_are_accepted) {
    host_data<double> data = skewed_data<double>(n_dims, n_observations, st::row_major);
    data.weights = random_weights<double>(n_observations);
    data.indices = {1, 0, 0};
    for (const sycl::device& dev : test_gpus()) {
        sycl::queue q(dev);
        for (const moment_family_info& f : moment_families()) {
            for (bool user_mean : {false, f.takes_user_mean}) {
                const call c{f, 1, user_mean, {1, 1, 1, 1}, 1};
                SCOPED_TRACE(device_label(dev) + " " + trace_of(c, true));
                expect_reference(dev, c, data, run<double, st::row_major>(true, q, c, data));
            }
        }
    }
}

// A mask entry keeps its dimension when it is not 0, also when only its high half is not.
template <typename T, st::layout L>
void check_extremes(const sycl::device& dev) {
    sycl::queue q(dev);
    // Up to 600: a single launch, a full group, a tail of 1, and chains with one and two
    // intermediate steps where the group size allows.
    const std::int64_t g = std::min<std::int64_t>(group_size_of(dev), 600), most = 600;
    const std::set<std::int64_t> counts{
        1, 2, g, g + 1, std::min(g * g + 1, most), std::min(g * g * g + g + 2, most)};
    for (std::int64_t n : counts) {
        for (bool weighted : {false, true}) {
            host_data<T> h = banded_data<T>(4, n, L, 11 * n);
            if (weighted) {
                // The CPU engine refuses weights that are not positive (reported, not tested
                // here); the GPU engine reads none.
                h.weights = dev.is_cpu() ? random_weights<T>(n) : odd_weights<T>(n);
                h.indices = {1, 0, std::int64_t{1} << 40, -7};
            }
            for (extreme e : {extreme::min, extreme::max, extreme::min_max}) {
                for (bool by_buffer : {false, true}) {
                    SCOPED_TRACE(::testing::Message() << "extreme " << int(e) << ", n " << n
                                                      << (by_buffer ? ", buffers" : "")
                                                      << (weighted ? ", weighted and masked" : ""));
                    expect_extremes(e, h, dev.is_gpu(),
                                    run_extreme<T, L>(q, e, by_buffer, h, T(-777)), T(-777));
                }
            }
        }
    }
}

class extremes : public ::testing::TestWithParam<sycl::device> {};

TEST_P(extremes, both_forms_match_the_host_extremes) {
    check_extremes<float, st::row_major>(GetParam());
    check_extremes<float, st::col_major>(GetParam());
    check_extremes<double, st::row_major>(GetParam());
    check_extremes<double, st::col_major>(GetParam());
}

INSTANTIATE_TEST_SUITE_P(devices, extremes, ::testing::ValuesIn(test_devices()), device_name());

}  // namespace
