// Accuracy of variance, skewness and kurtosis on data far from zero, against long double, in
// both layouts, on every vector path, and independence of the number of threads.
#include <algorithm>

#include "core_test_support.hpp"

using namespace core_test;

namespace {

// Bound on the relative error of variance, skewness and kurtosis on offset data.
constexpr double offset_data_tolerance = 1e-10;

constexpr uint64_t shape_estimates =
    QND_SS_MEAN | QND_SS_CENTRAL_MOMENT_2 | QND_SS_SKEWNESS | QND_SS_KURTOSIS;

struct shape_results {
    std::vector<double> mean, variance, skewness, kurtosis;
    explicit shape_results(int64_t dims)
        : mean(dims), variance(dims), skewness(dims), kurtosis(dims) {}
};

// Results in double for either element type: a float task is told to write doubles, so that the
// check sees the accumulation and not the rounding of the output to float.
template <class T>
shape_results shapes(const std::vector<T>& x,
                     int64_t dims,
                     int64_t n,
                     int64_t storage,
                     int64_t method,
                     const qnd_ss_threader_row* table) {
    shape_results r(dims);
    task_fixture<T> f(dims, n, storage, x.data());
    const int32_t yes = 1;
    EXPECT_EQ(f.edit(QND_SS_ED_DOUBLE_RESULTS, &yes), QND_SS_OK);
    EXPECT_EQ(f.edit(QND_SS_ED_MEAN, r.mean.data()), QND_SS_OK);
    EXPECT_EQ(f.edit(QND_SS_ED_CENTRAL_MOMENT_2, r.variance.data()), QND_SS_OK);
    EXPECT_EQ(f.edit(QND_SS_ED_SKEWNESS, r.skewness.data()), QND_SS_OK);
    EXPECT_EQ(f.edit(QND_SS_ED_KURTOSIS, r.kurtosis.data()), QND_SS_OK);
    EXPECT_EQ(f.basic(shape_estimates, method, table), QND_SS_OK);
    return r;
}

// `rows` holds the data row-major (dims x n); each layout and each vector path is checked.
template <class T>
void check_offset_data(const std::vector<T>& rows, int64_t dims, int64_t n, int64_t method) {
    std::vector<reference> want;
    for (int64_t d = 0; d < dims; ++d) {
        want.push_back(reference_of<T>(rows.data() + d * n, nullptr, n, 1));
    }
    const std::vector<T> cols = transpose(rows, dims, n);
    layer pool("libqnd_pool_thread.so.2");
    for (const char* isa : isa_names) {
        scoped_env env("QND_CORE_ISA", isa);
        for (int64_t storage : {QND_SS_ROW_MAJOR, QND_SS_COL_MAJOR}) {
            const auto& data = storage == QND_SS_ROW_MAJOR ? rows : cols;
            const shape_results got = shapes(data, dims, n, storage, method, pool.rows);
            for (int64_t d = 0; d < dims; ++d) {
                SCOPED_TRACE(testing::Message() << isa << " storage " << storage << " dim " << d);
                EXPECT_LT(relative_error(got.mean[d], want[d].mean), 1e-15);
                EXPECT_LT(relative_error(got.variance[d], want[d].m2()), offset_data_tolerance);
                EXPECT_LT(relative_error(got.skewness[d], want[d].skewness()),
                          offset_data_tolerance);
                EXPECT_LT(relative_error(got.kurtosis[d], want[d].kurtosis()),
                          offset_data_tolerance);
            }
        }
    }
}

TEST(LargeOffset, TenMillionDoublesNearOneE8) {
    const int64_t n = 10000000;
    const std::vector<double> x = offset_normal<double>(n, 1e8, 42);
    // One dimension of ten million, and the same numbers as four and as sixteen dimensions.
    check_offset_data(x, 1, n, QND_SS_METHOD_FAST);
    check_offset_data(x, 4, n / 4, QND_SS_METHOD_FAST);
    check_offset_data(x, 16, n / 16, QND_SS_METHOD_FAST);
}

TEST(LargeOffset, OneMillionFloatsNearOneE4) {
    const int64_t n = 1000000;
    const std::vector<float> x = offset_normal<float>(n, 1e4, 7);
    check_offset_data(x, 1, n, QND_SS_METHOD_FAST);
    check_offset_data(x, 4, n / 4, QND_SS_METHOD_FAST);
    check_offset_data(x, 16, n / 16, QND_SS_METHOD_FAST);
}

TEST(LargeOffset, StreamingMethodHoldsTheSameBound) {
    const int64_t n = 1000000;
    const std::vector<double> x = offset_normal<double>(n, 1e8, 3);
    check_offset_data(x, 2, n / 2, QND_SS_METHOD_STREAMING);
}

// Data that drift (quadratically, so that they are skewed) by many standard deviations along the
// observations: a fixed shift from the first observation would lose the variance, the blockwise
// centres must not, in either layout.
TEST(MergeStability, DriftingData) {
    const int64_t n = 3000000;
    std::vector<double> x = offset_normal<double>(n, 0, 11);
    for (int64_t i = 0; i < n; ++i) {
        const double t = static_cast<double>(i) / n;
        x[i] += 1e6 + 1e5 * t * t;
    }
    const reference want = reference_of<double>(x.data(), nullptr, n, 1);
    for (int64_t method : {QND_SS_METHOD_FAST, QND_SS_METHOD_STREAMING}) {
        const shape_results got = shapes(x, 1, n, QND_SS_ROW_MAJOR, method, nullptr);
        EXPECT_LT(relative_error(got.variance[0], want.m2()), 1e-12) << method;
        EXPECT_LT(relative_error(got.skewness[0], want.skewness()), 1e-10) << method;
        EXPECT_LT(relative_error(got.kurtosis[0], want.kurtosis()), 1e-10) << method;
    }
    const int64_t dims = 16, rows = n / dims;
    std::vector<double> cols(n);
    for (int64_t i = 0; i < rows; ++i) {
        for (int64_t d = 0; d < dims; ++d) {
            cols[i * dims + d] = x[d * rows + i];
        }
    }
    for (const char* isa : isa_names) {
        scoped_env env("QND_CORE_ISA", isa);
        const shape_results got = shapes(cols, dims, rows, QND_SS_COL_MAJOR, 1, nullptr);
        for (int64_t d = 0; d < dims; ++d) {
            const reference r = reference_of<double>(x.data() + d * rows, nullptr, rows, 1);
            EXPECT_LT(relative_error(got.variance[d], r.m2()), 1e-12) << isa << " " << d;
            EXPECT_LT(relative_error(got.skewness[d], r.skewness()), 1e-10) << isa << " " << d;
            EXPECT_LT(relative_error(got.kurtosis[d], r.kurtosis()), 1e-10) << isa << " " << d;
        }
    }
}

// The kernels start their vector loads where they are aligned and take the elements before one by
// one, in both layouts: every start of the data in memory must give the same estimates. Several
// blocks per dimension, so that blocks summed around an offered centre are among them.
template <class T>
void check_every_start(double offset, double tolerance) {
    const int64_t dims = 16, n = 9000;
    const std::vector<T> rows = offset_normal<T>(dims * n, offset, 13);
    const std::vector<T> cols = transpose(rows, dims, n);
    std::vector<reference> want;
    for (int64_t d = 0; d < dims; ++d) {
        want.push_back(reference_of<T>(rows.data() + d * n, nullptr, n, 1));
    }
    constexpr int64_t starts = 64 / sizeof(T);
    std::vector<T> buffer(dims * n + starts);
    for (const char* isa : isa_names) {
        scoped_env env("QND_CORE_ISA", isa);
        for (int64_t storage : {QND_SS_ROW_MAJOR, QND_SS_COL_MAJOR}) {
            const std::vector<T>& data = storage == QND_SS_ROW_MAJOR ? rows : cols;
            for (int64_t start = 0; start < starts; ++start) {
                std::copy(data.begin(), data.end(), buffer.begin() + start);
                task_fixture<T> f(dims, n, storage, buffer.data() + start);
                shape_results got(dims);
                const int32_t yes = 1;
                ASSERT_EQ(f.edit(QND_SS_ED_DOUBLE_RESULTS, &yes), QND_SS_OK);
                ASSERT_EQ(f.edit(QND_SS_ED_MEAN, got.mean.data()), QND_SS_OK);
                ASSERT_EQ(f.edit(QND_SS_ED_CENTRAL_MOMENT_2, got.variance.data()), QND_SS_OK);
                ASSERT_EQ(f.edit(QND_SS_ED_SKEWNESS, got.skewness.data()), QND_SS_OK);
                ASSERT_EQ(f.edit(QND_SS_ED_KURTOSIS, got.kurtosis.data()), QND_SS_OK);
                ASSERT_EQ(f.basic(shape_estimates, QND_SS_METHOD_FAST), QND_SS_OK);
                // The mean alone takes a walk of its own.
                std::vector<double> mean_alone(dims);
                ASSERT_EQ(f.edit(QND_SS_ED_MEAN, mean_alone.data()), QND_SS_OK);
                ASSERT_EQ(f.basic(QND_SS_MEAN, QND_SS_METHOD_FAST), QND_SS_OK);
                for (int64_t d = 0; d < dims; ++d) {
                    SCOPED_TRACE(testing::Message() << isa << " storage " << storage << " start "
                                                    << start << " dim " << d);
                    EXPECT_LT(relative_error(got.mean[d], want[d].mean), 1e-15);
                    EXPECT_LT(relative_error(mean_alone[d], want[d].mean), 1e-15);
                    EXPECT_LT(relative_error(got.variance[d], want[d].m2()), tolerance);
                    // Standardised, so of scale 1 whatever the data: an absolute bound, which
                    // stays meaningful for shapes near 0 (9000 draws of a normal law).
                    EXPECT_NEAR(got.skewness[d], static_cast<double>(want[d].skewness()),
                                tolerance);
                    EXPECT_NEAR(got.kurtosis[d], static_cast<double>(want[d].kurtosis()),
                                tolerance);
                }
            }
        }
    }
}

TEST(Alignment, EveryStartOfTheDataGivesTheSameEstimates) {
    check_every_start<double>(1e6, offset_data_tolerance);
    check_every_start<float>(1e3, offset_data_tolerance);
}

TEST(Threads, ResultsDependOnTheNumberOfThreadsOnlyThroughRounding) {
    const int64_t dims = 3, n = 400000;
    const std::vector<double> x = offset_normal<double>(dims * n, 1e3, 5);
    const std::vector<double> cols = transpose(x, dims, n);
    layer pool("libqnd_pool_thread.so.2");
    for (int64_t storage : {QND_SS_ROW_MAJOR, QND_SS_COL_MAJOR}) {
        const auto& data = storage == QND_SS_ROW_MAJOR ? x : cols;
        shape_results one(dims);
        {
            scoped_env env("QND_NUM_THREADS", "1");
            one = shapes(data, dims, n, storage, QND_SS_METHOD_FAST, pool.rows);
        }
        for (const char* threads : {"2", "3", "7", "16"}) {
            scoped_env env("QND_NUM_THREADS", threads);
            const shape_results many =
                shapes(data, dims, n, storage, QND_SS_METHOD_FAST, pool.rows);
            for (int64_t d = 0; d < dims; ++d) {
                SCOPED_TRACE(testing::Message() << threads << " threads, storage " << storage);
                EXPECT_NEAR(many.mean[d], one.mean[d], 1e-15 * std::fabs(one.mean[d]));
                EXPECT_NEAR(many.variance[d], one.variance[d], 1e-13 * one.variance[d]);
                EXPECT_NEAR(many.skewness[d], one.skewness[d], 1e-11);
                EXPECT_NEAR(many.kurtosis[d], one.kurtosis[d], 1e-11);
            }
        }
    }
}

}  // namespace
