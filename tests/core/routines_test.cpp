// The order-statistics and matrix routines: quantiles under every definition, median, MAD and
// sort against a full sort in the test, covariance against long double, streaming quantiles
// against their rank bound, and their refusals.
#include <algorithm>
#include <limits>

#include "core_test_support.hpp"

using namespace core_test;

namespace {

const double nan = std::numeric_limits<double>::quiet_NaN();

// Runs the routing entry on f's task with the mask `bits`.
template <class T>
int32_t compute(task_fixture<T>& f, uint64_t bits, const qnd_ss_threader_row* table = nullptr) {
    return sizeof(T) == 4 ? qnd_ss_compute_s(f.task, bits, 1, table)
                          : qnd_ss_compute_d(f.task, bits, 1, table);
}

// The linear quantile read from values sorted in the test: the reference of the large cases.
double linear_quantile(const std::vector<double>& sorted, double p) {
    const double h = (sorted.size() - 1) * p, f = std::floor(h);
    const size_t k = static_cast<size_t>(f);
    return k + 1 < sorted.size() ? sorted[k] + (h - f) * (sorted[k + 1] - sorted[k]) : sorted[k];
}

// 3, 1, 4, 1, 5, 9, 2, 6 at five orders under each definition, as NumPy 1.24's quantile gives.
TEST(Quantiles, EveryDefinitionOnASmallCase) {
    const double x[] = {3, 1, 4, 1, 5, 9, 2, 6}, orders[] = {0.05, 0.25, 0.5, 0.8, 1};
    const struct {
        int32_t def;
        double want[5];
    } cases[] = {{0, {1, 1.75, 3.5, 5.6, 9}},
                 {10, {1, 1, 3, 5, 9}},
                 {11, {1, 2, 4, 6, 9}},
                 {12, {1, 2, 4, 6, 9}},
                 {13, {1, 1.5, 3.5, 5.5, 9}},
                 {1, {1, 1, 3, 6, 9}},
                 {2, {1, 1.5, 3.5, 6, 9}},
                 {3, {1, 1, 3, 5, 9}},
                 {4, {1, 1, 3, 5.4, 9}},
                 {5, {1, 1.5, 3.5, 5.9, 9}},
                 {6, {1, 1.25, 3.5, 6.6, 9}},
                 {7, {1, 1.75, 3.5, 5.6, 9}},
                 {8, {1, 1.25 + 1.0 / 6, 3.5, 6, 9}},
                 {9, {1, 1.4375, 3.5, 5.975, 9}}};
    for (const auto& c : cases) {
        task_fixture<double> f(1, 8, QND_SS_ROW_MAJOR, x);
        const int64_t m = 5;
        double q[5];
        f.edit(QND_SS_ED_QUANTILE_ORDERS_COUNT, &m);
        f.edit(QND_SS_ED_QUANTILE_ORDERS, orders);
        f.edit(QND_SS_ED_QUANTILES, q);
        f.edit(QND_SS_ED_QUANTILE_DEFINITION, &c.def);
        ASSERT_EQ(compute(f, QND_SS_QUANTILES), QND_SS_OK);
        for (int j = 0; j < 5; ++j)
            EXPECT_NEAR(q[j], c.want[j], 1e-15 * c.want[j]) << "definition " << c.def;
    }
}

// Quantiles, median, MAD and sort of random, tied and constant dimensions of 100,000 (past the
// size below which a dimension is taken whole, so the sampled brackets are what is tested),
// both layouts, both element types, one and two threads, against a full sort in the test.
template <class T>
void check_order_statistics(bool row_major, const qnd_ss_threader_row* table) {
    const int64_t n = 100000, dims = 3;
    std::mt19937_64 gen(17);
    std::vector<T> rows(dims * n);
    for (int64_t i = 0; i < n; ++i) {
        rows[i] = static_cast<T>(std::normal_distribution<double>(5, 2)(gen));
        rows[n + i] = static_cast<T>(gen() % 7);
        rows[2 * n + i] = T(2.5);
    }
    const std::vector<double> orders = {0, 1e-5, 0.1, 0.5, 0.77, 0.99999, 1};
    const int64_t m = orders.size();
    std::vector<double> q(dims * m), median(dims), mad(dims), scaled(dims), sorted(dims * n);
    const int32_t yes = 1;
    std::vector<T> data = row_major ? rows : transpose(rows, dims, n);
    task_fixture<T> f(dims, n, row_major ? QND_SS_ROW_MAJOR : QND_SS_COL_MAJOR, data.data());
    f.edit(QND_SS_ED_DOUBLE_RESULTS, &yes);
    f.edit(QND_SS_ED_QUANTILE_ORDERS_COUNT, &m);
    f.edit(QND_SS_ED_QUANTILE_ORDERS, orders.data());
    void* outputs[] = {q.data(), median.data(), sorted.data(), mad.data(), scaled.data()};
    for (int k = 0; k < 5; ++k)
        f.edit(QND_SS_ED_QUANTILES + k, outputs[k]);
    ASSERT_EQ(
        compute(f, QND_SS_QUANTILES | QND_SS_MEDIAN | QND_SS_MAD | QND_SS_MAD_SCALED | QND_SS_SORT,
                table),
        QND_SS_OK);
    for (int64_t d = 0; d < dims; ++d) {
        std::vector<double> v(rows.begin() + d * n, rows.begin() + (d + 1) * n), dev(n);
        std::sort(v.begin(), v.end());
        for (int64_t j = 0; j < m; ++j)
            EXPECT_EQ(q[d * m + j], linear_quantile(v, orders[j])) << d << " " << j;
        EXPECT_EQ(median[d], linear_quantile(v, 0.5));
        for (int64_t i = 0; i < n; ++i)
            dev[i] = std::fabs(v[i] - median[d]);
        std::sort(dev.begin(), dev.end());
        EXPECT_EQ(mad[d], linear_quantile(dev, 0.5));
        EXPECT_EQ(scaled[d], 1.4826 * mad[d]);
        for (int64_t i = 0; i < n; ++i)
            ASSERT_EQ(sorted[row_major ? d * n + i : i * dims + d], v[i]);
    }
}

TEST(Quantiles, LargeDimensionsAgainstAFullSort) {
    layer pool(layer_files[2]);
    for (const qnd_ss_threader_row* table : {static_cast<qnd_ss_threader_row*>(nullptr), pool.rows})
        for (bool row_major : {true, false}) {
            check_order_statistics<double>(row_major, table);
            check_order_statistics<float>(row_major, table);
        }
}

// Weighted: a case by hand, equal weights as no weights, weight 0 as absent, NaN as NaN.
TEST(Quantiles, WeightedDefinitions) {
    // Midpoints of 1, 2, 3 with weights 1, 2, 1 at 0.5, 2, 3.5 stand for the orders 0, 0.5, 1.
    const double x[] = {3, 1, 2}, w[] = {1, 1, 2}, orders[] = {0.25, 0.5, 1};
    task_fixture<double> hand(1, 3, QND_SS_ROW_MAJOR, x, w);
    const int64_t three = 3;
    double q[3];
    hand.edit(QND_SS_ED_QUANTILE_ORDERS_COUNT, &three);
    hand.edit(QND_SS_ED_QUANTILE_ORDERS, orders);
    hand.edit(QND_SS_ED_QUANTILES, q);
    ASSERT_EQ(compute(hand, QND_SS_QUANTILES), QND_SS_OK);
    EXPECT_TRUE(q[0] == 1.5 && q[1] == 2 && q[2] == 3);

    // The first n - 1 rows unweighted, with equal weights, and all n rows with a weight 0 on
    // the last, whose outlier must leave no trace.
    const int64_t n = 50000, m = 9;
    std::mt19937_64 gen(3);
    std::vector<double> v(2 * n), same(n, 0.75), zero_last(n, 1.0), p(m);
    for (double& e : v)
        e = std::round(std::normal_distribution<double>(0, 3)(gen));
    for (double& e : p)
        e = std::uniform_real_distribution<double>(0, 1)(gen);
    v[2 * n - 1] = 1e9;
    zero_last[n - 1] = 0;
    for (int32_t def : {0, 10, 11, 12, 13, 1}) {
        std::vector<double> got[3];
        for (int k = 0; k < 3; ++k) {
            const double* weights[] = {nullptr, same.data(), zero_last.data()};
            task_fixture<double> f(2, k == 2 ? n : n - 1, QND_SS_COL_MAJOR, v.data(), weights[k]);
            got[k].resize(2 * m);
            f.edit(QND_SS_ED_QUANTILE_ORDERS_COUNT, &m);
            f.edit(QND_SS_ED_QUANTILE_ORDERS, p.data());
            f.edit(QND_SS_ED_QUANTILES, got[k].data());
            f.edit(QND_SS_ED_QUANTILE_DEFINITION, &def);
            ASSERT_EQ(compute(f, QND_SS_QUANTILES), QND_SS_OK);
        }
        for (int j = 0; j < 2 * m; ++j)
            for (int k = 1; k < 3; ++k)
                EXPECT_NEAR(got[k][j], got[0][j], 1e-12) << def << " " << k;
    }
    double xn[] = {1, nan, 2}, out = 0;
    task_fixture<double> f(1, 3, QND_SS_ROW_MAJOR, xn);
    f.edit(QND_SS_ED_MEDIAN, &out);
    ASSERT_EQ(compute(f, QND_SS_MEDIAN), QND_SS_OK);
    EXPECT_TRUE(std::isnan(out));
}

}  // namespace
