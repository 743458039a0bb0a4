// Every estimate of the basic and minmax routines on exact small cases and against long double
// references, over element types, layouts, weights, masks of dimensions and methods.
#include <limits>

#include "core_test_support.hpp"

using namespace core_test;

namespace {

constexpr double sentinel = 12345.0;
constexpr uint64_t all_basic = QND_SS_BASIC_ESTIMATES;

// One array per estimate, each of n_dims values preset to the sentinel, edited into a task.
template <class T>
struct outputs {
    std::vector<T> mean, r2, r3, r4, c2, c3, c4, s1, s2, s3, s4, cs2, cs3, cs4, kurtosis, skewness,
        variation, min, max;
    explicit outputs(int64_t dims) {
        for (auto* v : all()) {
            v->assign(dims, static_cast<T>(sentinel));
        }
    }
    std::vector<std::vector<T>*> all() {
        return {&mean, &r2,  &r3,  &r4,  &c2,       &c3,       &c4,        &s1,  &s2, &s3,
                &s4,   &cs2, &cs3, &cs4, &kurtosis, &skewness, &variation, &min, &max};
    }
    void attach(task_fixture<T>& f) {
        int32_t status;
        if constexpr (sizeof(T) == 4) {
            status = __rtksSSEditMoments(f.task, mean.data(), r2.data(), r3.data(), r4.data(),
                                         c2.data(), c3.data(), c4.data());
            EXPECT_EQ(status, QND_SS_OK);
            status = __rtksSSEditSums(f.task, s1.data(), s2.data(), s3.data(), s4.data(),
                                      cs2.data(), cs3.data(), cs4.data());
        } else {
            status = __rtkdSSEditMoments(f.task, mean.data(), r2.data(), r3.data(), r4.data(),
                                         c2.data(), c3.data(), c4.data());
            EXPECT_EQ(status, QND_SS_OK);
            status = __rtkdSSEditSums(f.task, s1.data(), s2.data(), s3.data(), s4.data(),
                                      cs2.data(), cs3.data(), cs4.data());
        }
        EXPECT_EQ(status, QND_SS_OK);
        EXPECT_EQ(f.edit(QND_SS_ED_KURTOSIS, kurtosis.data()), QND_SS_OK);
        EXPECT_EQ(f.edit(QND_SS_ED_SKEWNESS, skewness.data()), QND_SS_OK);
        EXPECT_EQ(f.edit(QND_SS_ED_VARIATION, variation.data()), QND_SS_OK);
        EXPECT_EQ(f.edit(QND_SS_ED_MIN, min.data()), QND_SS_OK);
        EXPECT_EQ(f.edit(QND_SS_ED_MAX, max.data()), QND_SS_OK);
    }
};

template <class T>
void expect_matches(outputs<T>& got, int64_t d, const reference& want, double tol) {
    auto near = [&](const char* what, T value, long double expected) {
        EXPECT_LT(relative_error(value, expected), tol) << what << " of dimension " << d;
    };
    near("mean", got.mean[d], want.mean);
    near("raw moment 2", got.r2[d], want.raw[1] / want.w);
    near("raw moment 3", got.r3[d], want.raw[2] / want.w);
    near("raw moment 4", got.r4[d], want.raw[3] / want.w);
    near("central moment 2", got.c2[d], want.m2());
    near("central moment 3", got.c3[d], want.c3 / want.w);
    near("central moment 4", got.c4[d], want.c4 / want.w);
    for (int k = 0; k < 4; ++k) {
        near("raw sum", std::vector<T>{got.s1[d], got.s2[d], got.s3[d], got.s4[d]}[k], want.raw[k]);
    }
    near("central sum 2", got.cs2[d], want.c2);
    near("central sum 3", got.cs3[d], want.c3);
    near("central sum 4", got.cs4[d], want.c4);
    near("skewness", got.skewness[d], want.skewness());
    near("kurtosis", got.kurtosis[d], want.kurtosis());
    near("variation", got.variation[d], want.variation());
    near("min", got.min[d], want.min);
    near("max", got.max[d], want.max);
}

// Exact small case: 1, 2, 3, 4.
template <class T>
void check_one_to_four() {
    const std::vector<T> x = {1, 2, 3, 4};
    task_fixture<T> f(1, 4, QND_SS_ROW_MAJOR, x.data());
    outputs<T> o(1);
    o.attach(f);
    ASSERT_EQ(f.basic(all_basic, QND_SS_METHOD_FAST), QND_SS_OK);
    ASSERT_EQ(f.minmax(QND_SS_MIN | QND_SS_MAX, QND_SS_METHOD_FAST), QND_SS_OK);
    const double v = 5.0 / 3.0;
    const struct {
        const char* what;
        T got;
        double want;
    } cases[] = {
        {"mean", o.mean[0], 2.5},
        {"r2", o.r2[0], 7.5},
        {"r3", o.r3[0], 25},
        {"r4", o.r4[0], 88.5},
        {"s1", o.s1[0], 10},
        {"s2", o.s2[0], 30},
        {"s3", o.s3[0], 100},
        {"s4", o.s4[0], 354},
        {"cs2", o.cs2[0], 5},
        {"cs3", o.cs3[0], 0},
        {"cs4", o.cs4[0], 10.25},
        {"c2", o.c2[0], v},
        {"c3", o.c3[0], 0},
        {"c4", o.c4[0], 2.5625},
        {"skewness", o.skewness[0], 0},
        {"kurtosis", o.kurtosis[0], 2.5625 / (v * v) - 3},
        {"variation", o.variation[0], std::sqrt(v) / 2.5},
        {"min", o.min[0], 1},
        {"max", o.max[0], 4},
    };
    const double tol = sizeof(T) == 4 ? 1e-6 : 1e-14;
    for (const auto& c : cases) {
        EXPECT_NEAR(c.got, c.want, tol * (1 + std::fabs(c.want))) << c.what;
    }
    EXPECT_NEAR(o.kurtosis[0], -2.0775, tol * 3);
}

TEST(SmallCases, OneToFourFloat) {
    check_one_to_four<float>();
}

TEST(SmallCases, OneToFourDouble) {
    check_one_to_four<double>();
}

TEST(SmallCases, CentralMomentOfOneTwoThreeIsOne) {
    const double x[] = {1, 2, 3};
    double c2 = 0;
    task_fixture<double> f(1, 3, QND_SS_ROW_MAJOR, x);
    ASSERT_EQ(f.edit(QND_SS_ED_CENTRAL_MOMENT_2, &c2), QND_SS_OK);
    ASSERT_EQ(f.basic(QND_SS_CENTRAL_MOMENT_2, QND_SS_METHOD_FAST), QND_SS_OK);
    EXPECT_DOUBLE_EQ(c2, 1.0);
}

// One observation: no spread, so the corrected variance is 0 / 0.
TEST(SmallCases, OneObservation) {
    const double x[] = {7};
    double mean = 0, c2 = 0, mn = 0;
    task_fixture<double> f(1, 1, QND_SS_ROW_MAJOR, x);
    f.edit(QND_SS_ED_MEAN, &mean);
    f.edit(QND_SS_ED_CENTRAL_MOMENT_2, &c2);
    f.edit(QND_SS_ED_MIN, &mn);
    ASSERT_EQ(f.basic(QND_SS_MEAN | QND_SS_CENTRAL_MOMENT_2, QND_SS_METHOD_FAST), QND_SS_OK);
    ASSERT_EQ(f.minmax(QND_SS_MIN, QND_SS_METHOD_FAST), QND_SS_OK);
    EXPECT_EQ(mean, 7);
    EXPECT_TRUE(std::isnan(c2));
    EXPECT_EQ(mn, 7);
}

TEST(SmallCases, ConstantDataHaveZeroSpread) {
    const std::vector<double> x(5000, 3.25);
    double c2 = -1, cs4 = -1;
    task_fixture<double> f(1, 5000, QND_SS_ROW_MAJOR, x.data());
    f.edit(QND_SS_ED_CENTRAL_MOMENT_2, &c2);
    f.edit(QND_SS_ED_CENTRAL_SUM_2 + 2, &cs4);
    ASSERT_EQ(f.basic(QND_SS_CENTRAL_MOMENT_2 | QND_SS_CENTRAL_SUM_4, QND_SS_METHOD_FAST),
              QND_SS_OK);
    EXPECT_EQ(c2, 0);
    EXPECT_EQ(cs4, 0);
}

struct reference_case {
    bool float_data;
    int64_t storage;
    bool weighted;
    bool masked;
    bool wide_ints;
    int64_t method;
};

class AgainstReference : public testing::TestWithParam<reference_case> {};

// Skewed positive data (an exponential draw plus an offset), so that no estimate is near zero
// and relative errors mean something; weights with zeros among them, on NaN observations.
template <class T>
void run_reference_case(const reference_case& c, int64_t dims) {
    const int64_t n = 20011;
    std::mt19937_64 gen(99);
    std::exponential_distribution<double> e(1.0);
    std::uniform_real_distribution<double> u(0.0, 2.0);
    std::vector<T> rows(dims * n);
    for (int64_t d = 0; d < dims; ++d) {
        for (int64_t i = 0; i < n; ++i) {
            rows[d * n + i] = static_cast<T>(10 * d + 3 + e(gen));
        }
    }
    std::vector<T> w;
    if (c.weighted) {
        w.resize(n);
        for (int64_t i = 0; i < n; ++i) {
            w[i] = i % 7 == 0 ? T(0) : static_cast<T>(u(gen));
            if (i % 7 == 0) {
                rows[(i % dims) * n + i] = std::numeric_limits<T>::quiet_NaN();
            }
        }
    }
    const std::vector<T> data = c.storage == QND_SS_ROW_MAJOR ? rows : transpose(rows, dims, n);
    std::vector<int64_t> mask64(dims);
    std::vector<int32_t> mask32(dims);
    for (int64_t d = 0; d < dims; ++d) {
        mask64[d] = mask32[d] = d % 5 == 1 || d % 5 == 4 ? 0 : 1 + d % 3;
    }
    const void* indices = !c.masked     ? nullptr
                          : c.wide_ints ? static_cast<const void*>(mask64.data())
                                        : static_cast<const void*>(mask32.data());
    task_fixture<T> f(dims, n, c.storage, data.data(), c.weighted ? w.data() : nullptr, indices,
                      c.wide_ints);
    outputs<T> o(dims);
    o.attach(f);
    layer pool("libqnd_pool_thread.so.2");
    ASSERT_EQ(f.minmax(QND_SS_MIN | QND_SS_MAX, c.method, pool.rows), QND_SS_OK);
    ASSERT_EQ(f.basic(all_basic, c.method, pool.rows), QND_SS_OK);
    const double tol = sizeof(T) == 4 ? 2e-6 : 1e-12;
    for (int64_t d = 0; d < dims; ++d) {
        if (c.masked && mask64[d] == 0) {
            for (auto* v : o.all()) {
                EXPECT_EQ((*v)[d], static_cast<T>(sentinel)) << "masked dimension " << d;
            }
            continue;
        }
        const reference want =
            reference_of<T>(rows.data() + d * n, c.weighted ? w.data() : nullptr, n, 1);
        expect_matches(o, d, want, tol);
    }
}

// Dimension counts that take every kernel shape: fewer than the lanes, a few full vectors per
// row, and a count that fits no vector, on every vector path.
TEST_P(AgainstReference, EveryEstimate) {
    const reference_case& c = GetParam();
    for (const char* isa : isa_names) {
        scoped_env env("QND_CORE_ISA", isa);
        for (int64_t dims : {2, 5, 16}) {
            SCOPED_TRACE(testing::Message() << isa << ", " << dims << " dimensions");
            if (c.float_data) {
                run_reference_case<float>(c, dims);
            } else {
                run_reference_case<double>(c, dims);
            }
        }
    }
}

std::vector<reference_case> reference_cases() {
    std::vector<reference_case> cases;
    for (bool fl : {false, true}) {
        for (int64_t storage : {QND_SS_ROW_MAJOR, QND_SS_COL_MAJOR}) {
            for (bool weighted : {false, true}) {
                for (int64_t method : {QND_SS_METHOD_FAST, QND_SS_METHOD_STREAMING}) {
                    cases.push_back({fl, storage, weighted, weighted, !weighted, method});
                }
            }
        }
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(Core, AgainstReference, testing::ValuesIn(reference_cases()));

// Method 256: central quantities around the caller's mean, which stays as given.
TEST(CallersMean, SumsAroundTheGivenMean) {
    const int64_t dims = 2, n = 3001;
    std::vector<double> x = offset_normal<double>(dims * n, 50, 8);
    std::vector<double> mean = {49.5, 51.0};
    std::vector<double> cs2(dims), cs3(dims), cs4(dims), c2(dims), skew(dims), kurt(dims),
        var(dims);
    task_fixture<double> f(dims, n, QND_SS_ROW_MAJOR, x.data());
    ASSERT_EQ(__rtkdSSEditMoments(f.task, mean.data(), nullptr, nullptr, nullptr, c2.data(),
                                  nullptr, nullptr),
              QND_SS_OK);
    ASSERT_EQ(__rtkdSSEditSums(f.task, nullptr, nullptr, nullptr, nullptr, cs2.data(), cs3.data(),
                               cs4.data()),
              QND_SS_OK);
    f.edit(QND_SS_ED_SKEWNESS, skew.data());
    f.edit(QND_SS_ED_KURTOSIS, kurt.data());
    f.edit(QND_SS_ED_VARIATION, var.data());
    ASSERT_EQ(f.basic(QND_SS_MEAN | QND_SS_CENTRAL_MOMENT_2 | QND_SS_CENTRAL_SUM_2 |
                          QND_SS_CENTRAL_SUM_3 | QND_SS_CENTRAL_SUM_4 | QND_SS_SKEWNESS |
                          QND_SS_KURTOSIS | QND_SS_VARIATION,
                      QND_SS_METHOD_USER_MEAN),
              QND_SS_OK);
    EXPECT_EQ(mean[0], 49.5);
    EXPECT_EQ(mean[1], 51.0);
    for (int64_t d = 0; d < dims; ++d) {
        long double q2 = 0, q3 = 0, q4 = 0;
        for (int64_t i = 0; i < n; ++i) {
            const long double e = static_cast<long double>(x[d * n + i]) - mean[d];
            q2 += e * e;
            q3 += e * e * e;
            q4 += e * e * e * e;
        }
        const long double v = q2 * (static_cast<long double>(n) / (1.0L * n * n - n));
        EXPECT_LT(relative_error(cs2[d], q2), 1e-13);
        EXPECT_LT(relative_error(cs3[d], q3), 1e-12);
        EXPECT_LT(relative_error(cs4[d], q4), 1e-13);
        EXPECT_LT(relative_error(c2[d], v), 1e-13);
        EXPECT_LT(relative_error(skew[d], (q3 / n) / std::pow(v, 1.5L)), 1e-12);
        // Kurtosis is the ratio minus 3: its error is that of the ratio, not of the difference.
        const long double ratio = (q4 / n) / (v * v);
        EXPECT_LT(relative_error(kurt[d] + 3, ratio), 1e-13);
        EXPECT_LT(relative_error(var[d], std::sqrt(v) / mean[d]), 1e-13);
    }
}

TEST(Extremes, NegativeNumbersAndTheVectorPaths) {
    const int64_t n = 1003;
    std::vector<double> x(n);
    for (int64_t i = 0; i < n; ++i) {
        x[i] = -1e6 - static_cast<double>((i * 7919) % n);
    }
    for (const char* isa : isa_names) {
        scoped_env env("QND_CORE_ISA", isa);
        for (int64_t storage : {QND_SS_ROW_MAJOR, QND_SS_COL_MAJOR}) {
            // One dimension is the same matrix in both layouts.
            double mn = 0, mx = 0;
            task_fixture<double> f(1, n, storage, x.data());
            f.edit(QND_SS_ED_MIN, &mn);
            f.edit(QND_SS_ED_MAX, &mx);
            ASSERT_EQ(f.minmax(QND_SS_MIN | QND_SS_MAX, QND_SS_METHOD_FAST), QND_SS_OK);
            EXPECT_EQ(mn, -1e6 - (n - 1)) << isa;
            EXPECT_EQ(mx, -1e6) << isa;
        }
    }
}

TEST(NotANumber, PropagatesUnlessItsWeightIsZero) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<double> x = {1, 2, nan, 4, 5, 6, 7, 8, 9, 10, 11};
    std::vector<double> w(x.size(), 1.0);
    double mean = 0, mn = 0, mx = 0;
    {
        task_fixture<double> f(1, x.size(), QND_SS_ROW_MAJOR, x.data());
        f.edit(QND_SS_ED_MEAN, &mean);
        f.edit(QND_SS_ED_MIN, &mn);
        f.edit(QND_SS_ED_MAX, &mx);
        ASSERT_EQ(f.basic(QND_SS_MEAN, QND_SS_METHOD_FAST), QND_SS_OK);
        ASSERT_EQ(f.minmax(QND_SS_MIN | QND_SS_MAX, QND_SS_METHOD_FAST), QND_SS_OK);
        EXPECT_TRUE(std::isnan(mean));
        EXPECT_TRUE(std::isnan(mn));
        EXPECT_TRUE(std::isnan(mx));
    }
    w[2] = 0;
    task_fixture<double> f(1, x.size(), QND_SS_ROW_MAJOR, x.data(), w.data());
    f.edit(QND_SS_ED_MEAN, &mean);
    f.edit(QND_SS_ED_MIN, &mn);
    f.edit(QND_SS_ED_MAX, &mx);
    ASSERT_EQ(f.basic(QND_SS_MEAN, QND_SS_METHOD_FAST), QND_SS_OK);
    ASSERT_EQ(f.minmax(QND_SS_MIN | QND_SS_MAX, QND_SS_METHOD_FAST), QND_SS_OK);
    EXPECT_DOUBLE_EQ(mean, 63.0 / 10.0);
    EXPECT_EQ(mn, 1);
    EXPECT_EQ(mx, 11);
}

TEST(Weights, AllZeroLeavesNothingToReport) {
    const double x[] = {1, 2, 3};
    const double w[] = {0, 0, 0};
    double mean = 0, mn = 0;
    task_fixture<double> f(1, 3, QND_SS_ROW_MAJOR, x, w);
    f.edit(QND_SS_ED_MEAN, &mean);
    f.edit(QND_SS_ED_MIN, &mn);
    ASSERT_EQ(f.basic(QND_SS_MEAN, QND_SS_METHOD_FAST), QND_SS_OK);
    ASSERT_EQ(f.minmax(QND_SS_MIN, QND_SS_METHOD_FAST), QND_SS_OK);
    EXPECT_TRUE(std::isnan(mean));
    EXPECT_TRUE(std::isnan(mn));
}

// Equal weights c: the corrected variance is the unweighted one, whatever c is.
TEST(Weights, EqualWeightsGiveTheUnweightedVariance) {
    const std::vector<double> x = offset_normal<double>(777, 2, 4);
    const std::vector<double> w(x.size(), 0.375);
    double plain = 0, weighted = 0;
    {
        task_fixture<double> f(1, x.size(), QND_SS_ROW_MAJOR, x.data());
        f.edit(QND_SS_ED_CENTRAL_MOMENT_2, &plain);
        ASSERT_EQ(f.basic(QND_SS_CENTRAL_MOMENT_2, QND_SS_METHOD_FAST), QND_SS_OK);
    }
    task_fixture<double> f(1, x.size(), QND_SS_ROW_MAJOR, x.data(), w.data());
    f.edit(QND_SS_ED_CENTRAL_MOMENT_2, &weighted);
    ASSERT_EQ(f.basic(QND_SS_CENTRAL_MOMENT_2, QND_SS_METHOD_FAST), QND_SS_OK);
    EXPECT_NEAR(weighted, plain, 1e-14 * plain);
}

}  // namespace
