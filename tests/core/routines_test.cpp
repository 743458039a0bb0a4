// The order-statistics and matrix routines: quantiles under every definition, median, MAD and
// sort against a full sort in the test, covariance against long double, streaming quantiles
// against their rank bound, and their refusals.
#include <algorithm>
#include <limits>

#include "core_test_support.hpp"
#include "qnd_core/co_moments.hpp"
#include "qnd_core/kll_sketch.hpp"

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

// Covariance, correlation and cross products (three p x p arrays, then the means) of the rows
// [first, first + count) of column-major data, or of all of row-major data.
template <class T>
std::vector<double> matrices(const std::vector<T>& data,
                             bool row_major,
                             int64_t dims,
                             int64_t first,
                             int64_t count,
                             const T* w,
                             const qnd_ss_threader_row* table) {
    const int32_t yes = 1;
    std::vector<double> out(3 * dims * dims + dims, nan);
    task_fixture<T> f(dims, count, row_major ? QND_SS_ROW_MAJOR : QND_SS_COL_MAJOR,
                      data.data() + first * dims, w == nullptr ? nullptr : w + first);
    f.edit(QND_SS_ED_DOUBLE_RESULTS, &yes);
    f.edit(QND_SS_ED_MEAN, out.data() + 3 * dims * dims);
    for (int k = 0; k < 3; ++k)
        f.edit(QND_SS_ED_COVARIANCE + k, out.data() + k * dims * dims);
    const uint64_t bits =
        QND_SS_COVARIANCE | QND_SS_CORRELATION | QND_SS_CROSS_PRODUCT | QND_SS_MEAN;
    EXPECT_EQ(compute(f, bits, table), QND_SS_OK);
    return out;
}

// 1e8 + N(0, 1) data with correlated dimensions against long double, both layouts and element
// types, with and without weights (some 0), one and two threads; and two halves' reported results
// merged (qnd_core/co_moments.hpp) against the whole.
template <class T>
void check_covariance(bool row_major, bool weighted, const qnd_ss_threader_row* table) {
    const int64_t n = 60001, p = 5;
    std::vector<T> rows = offset_normal<T>(p * n, 1e8, 11), w(n);
    for (int64_t i = 0; i < n; ++i) {
        w[i] = T(i % 3);
        rows[n + i] = rows[i] + (rows[2 * n + i] - T(1e8));
    }
    const std::vector<T> data = row_major ? rows : transpose(rows, p, n);
    const T* wp = weighted ? w.data() : nullptr;
    const std::vector<double> got = matrices(data, row_major, p, 0, n, wp, table);
    long double W = 0, W2 = 0, mean[p] = {}, cross[p][p] = {};
    for (int64_t i = 0; i < n; ++i) {
        const long double wi = weighted ? w[i] : 1;
        W += wi, W2 += wi * wi;
        for (int a = 0; a < p; ++a)
            mean[a] += wi * rows[a * n + i];
    }
    for (int a = 0; a < p; ++a)
        mean[a] /= W;
    for (int64_t i = 0; i < n; ++i)
        for (int a = 0; a < p; ++a)
            for (int b = 0; b < p; ++b)
                cross[a][b] += (weighted ? w[i] : 1) * (rows[a * n + i] - mean[a]) *
                               (rows[b * n + i] - mean[b]);
    for (int a = 0; a < p; ++a)
        for (int b = 0; b < p; ++b) {
            const long double scale = std::sqrt(cross[a][a] * cross[b][b]);
            EXPECT_LT(relative_error(got[2 * p * p + a * p + b], cross[a][b], scale), 1e-10);
            EXPECT_LT(relative_error(got[a * p + b], cross[a][b] * W / (W * W - W2),
                                     scale * W / (W * W - W2)),
                      1e-10);
            EXPECT_LT(relative_error(got[p * p + a * p + b], cross[a][b] / scale, 1), 1e-10);
        }
    // Halves merge from their reported means, rounded near 1e8 to 7e-9: against the spread of
    // float data (steps of 8 there) that rounding is no longer negligible.
    if (row_major || sizeof(T) == 4)
        return;
    qnd_core::co_moment_sums merged(p);
    for (int64_t first : {int64_t(0), n / 3}) {
        const int64_t count = first == 0 ? n / 3 : n - n / 3;
        const std::vector<double> h = matrices(data, false, p, first, count, wp, table);
        double hw = 0, hw2 = 0;
        for (int64_t i = first; i < first + count; ++i)
            hw += weighted ? w[i] : 1, hw2 += weighted ? double(w[i]) * w[i] : 1;
        qnd_core::merge(merged, qnd_core::co_moments_of(p, hw, hw2, h.data() + 3 * p * p,
                                                        h.data() + 2 * p * p));
    }
    std::vector<double> mean_merged(p), cross_merged(p * p);
    qnd_core::finish_co_moments(merged, mean_merged.data(), cross_merged.data());
    for (int a = 0; a < p * p; ++a)
        EXPECT_NEAR(cross_merged[a], got[2 * p * p + a], 1e-10 * got[2 * p * p]);
}

TEST(Covariance, LargeOffsetAgainstLongDoubleAndMergedHalves) {
    layer pool(layer_files[2]);
    for (const qnd_ss_threader_row* table : {static_cast<qnd_ss_threader_row*>(nullptr), pool.rows})
        for (bool row_major : {true, false})
            for (bool weighted : {false, true}) {
                check_covariance<double>(row_major, weighted, table);
                check_covariance<float>(row_major, weighted, table);
            }
}

// Pooled over three groups (an index -1 leaves its row out) against long double sums per group;
// partial covariance given one control against S_ab - S_az S_zb / S_zz, from the observations and
// from a covariance array given in place of them.
TEST(Covariance, PooledAndPartial) {
    const int64_t n = 3000, p = 3, groups = 3;
    std::vector<double> x = offset_normal<double>(p * n, 10, 5);
    std::vector<int64_t> group(n);
    for (int64_t i = 0; i < n; ++i) {
        group[i] = i % 7 == 6 ? -1 : i % 3;
        x[i] += group[i];
        x[n + i] += 0.5 * x[2 * n + i];
    }
    std::vector<double> pooled(p * p), cov(p * p), gmean(groups * p), all_mean(p), pc(p * p),
        pr(p * p);
    task_fixture<double> f(p, n, QND_SS_ROW_MAJOR, x.data());
    f.edit(QND_SS_ED_GROUPS_COUNT, &groups);
    f.edit(QND_SS_ED_GROUP_INDICES, group.data());
    void* outs[] = {pooled.data(), nullptr, all_mean.data(), gmean.data()};
    for (int k = 0; k < 4; ++k)
        f.edit(QND_SS_ED_POOLED_COVARIANCE + k, outs[k]);
    ASSERT_EQ(compute(f, QND_SS_POOLED_COVARIANCE | QND_SS_POOLED_MEAN | QND_SS_GROUP_MEAN),
              QND_SS_OK);
    long double count[groups] = {}, mean[groups][p] = {}, cross[p][p] = {};
    for (int64_t i = 0; i < n; ++i)
        for (int a = 0; a < p && group[i] >= 0; ++a)
            count[group[i]] += a == 0, mean[group[i]][a] += x[a * n + i];
    for (int g = 0; g < groups; ++g)
        for (int a = 0; a < p; ++a)
            EXPECT_NEAR(gmean[g * p + a], mean[g][a] /= count[g], 1e-12);
    for (int64_t i = 0; i < n; ++i)
        for (int a = 0; a < p && group[i] >= 0; ++a)
            for (int b = 0; b < p; ++b)
                cross[a][b] +=
                    (x[a * n + i] - mean[group[i]][a]) * (x[b * n + i] - mean[group[i]][b]);
    const long double kept = count[0] + count[1] + count[2];
    for (int a = 0; a < p; ++a) {
        EXPECT_NEAR(all_mean[a],
                    (mean[0][a] * count[0] + mean[1][a] * count[1] + mean[2][a] * count[2]) / kept,
                    1e-12);
        for (int b = 0; b < p; ++b)
            EXPECT_NEAR(pooled[a * p + b], cross[a][b] / (kept - groups), 1e-12);
    }
    // Partial, dimension 2 controlling; then the same from the covariance alone.
    const int64_t controls[p] = {0, 0, 1};
    f.edit(QND_SS_ED_COVARIANCE, cov.data());
    f.edit(QND_SS_ED_PARTIAL_CONTROLS, controls);
    f.edit(QND_SS_ED_PARTIAL_COVARIANCE, pc.data());
    f.edit(QND_SS_ED_PARTIAL_CORRELATION, pr.data());
    const uint64_t partial = QND_SS_PARTIAL_COVARIANCE | QND_SS_PARTIAL_CORRELATION;
    ASSERT_EQ(compute(f, QND_SS_COVARIANCE | partial), QND_SS_OK);
    const std::vector<double> from_data = pc;
    f.edit(QND_SS_ED_OBSERVATIONS, nullptr);
    std::fill(pc.begin(), pc.end(), nan);
    ASSERT_EQ(compute(f, partial), QND_SS_OK);
    for (int a = 0; a < 2; ++a)
        for (int b = 0; b < 2; ++b) {
            const double want = cov[a * p + b] - cov[a * p + 2] * cov[2 * p + b] / cov[8];
            EXPECT_NEAR(from_data[a * p + b], want, 1e-12);
            EXPECT_NEAR(pc[a * p + b], want, 1e-12);
            EXPECT_NEAR(pr[a * p + b], want / std::sqrt(pc[a * p + a] * pc[b * p + b]), 1e-12);
        }
}

// Streaming quantiles of 10^6 random, ascending and descending values, read as two chunks into
// the caller's sketches, and as two sketches merged after a round trip through bytes: every
// reported order's rank within the stated 1.65% of the count (k = 200).
TEST(StreamQuantiles, WithinTheRankBoundChunkedAndMerged) {
    const int64_t n = 1000000, p = 3, m = 99, half = n / 2;
    std::vector<double> x(p * n), orders(m), q(p * m);
    std::mt19937_64 gen(29);
    for (int64_t i = 0; i < n; ++i)
        x[i] = std::uniform_real_distribution<double>(0, 1)(gen), x[n + i] = i, x[2 * n + i] = -i;
    for (int j = 0; j < m; ++j)
        orders[j] = (j + 1) / 100.0;
    std::vector<qnd_core::kll_sketch> chunked(p), second(p);
    const std::vector<double> cols = transpose(x, p, n);
    for (int64_t first : {int64_t(0), half}) {  // column major: a chunk is a range of rows
        task_fixture<double> f(p, half, QND_SS_COL_MAJOR, cols.data() + first * p);
        f.edit(QND_SS_ED_QUANTILE_ORDERS_COUNT, &m);
        f.edit(QND_SS_ED_QUANTILE_ORDERS, orders.data());
        f.edit(QND_SS_ED_STREAM_QUANTILES, q.data());
        f.edit(QND_SS_ED_STREAM_SKETCHES, chunked.data());
        ASSERT_EQ(compute(f, QND_SS_STREAM_QUANTILES), QND_SS_OK);
        if (first == 0)
            continue;
        std::vector<double> unused(p * m);
        f.edit(QND_SS_ED_STREAM_QUANTILES, unused.data());
        f.edit(QND_SS_ED_STREAM_SKETCHES, second.data());
        ASSERT_EQ(compute(f, QND_SS_STREAM_QUANTILES), QND_SS_OK);
    }
    for (int64_t d = 0; d < p; ++d) {
        std::vector<double> v(x.begin() + d * n, x.begin() + (d + 1) * n);
        std::sort(v.begin(), v.end());
        qnd_core::kll_sketch merged, first_half;
        for (int64_t i = 0; i < half; ++i)
            qnd_core::kll_update(first_half, x[d * n + i]);
        const std::vector<unsigned char> bytes = qnd_core::kll_to_bytes(second[d]);
        ASSERT_TRUE(qnd_core::kll_from_bytes(bytes.data(), bytes.size(), merged));
        qnd_core::kll_merge(merged, first_half);
        EXPECT_LT(qnd_core::kll_retained(merged), 1000u);
        for (int j = 0; j < m; ++j)
            for (double got : {q[d * m + j], qnd_core::kll_quantile(merged, orders[j])}) {
                const double lo = std::lower_bound(v.begin(), v.end(), got) - v.begin();
                const double hi = std::upper_bound(v.begin(), v.end(), got) - v.begin();
                const double target = orders[j] * n;
                EXPECT_LE(std::max(lo - target, target - hi), 0.0165 * n) << d << " " << j;
            }
    }
}

}  // namespace
