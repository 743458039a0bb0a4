// Every estimate of the basic and minmax routines against long double references, over types,
// layouts, weights, masks, integer widths, methods and vector paths; on data far from zero or
// drifting; at every start of the data in a cache line; whatever the layer and its threads.
#include <algorithm>
#include <initializer_list>
#include <limits>

#include "core_test_support.hpp"

using namespace core_test;

namespace {

using refs = std::vector<reference>;
using word_list = std::initializer_list<int>;
constexpr double untouched = -777.0;
constexpr uint64_t every_estimate = QND_SS_BASIC_ESTIMATES | QND_SS_MIN | QND_SS_MAX;
// The standardised shape of offset data: variance, skewness and kurtosis (record words 15, 26, 25).
constexpr word_list shape_words = {11, 15, 25, 26};
constexpr double offset_data_tolerance = 1e-10;  // relative, on the shape
const word_list every_word = {11, 12, 13, 14, 15, 16, 17, 18, 19, 20,
                              21, 22, 23, 24, 25, 26, 27, 28, 29};
// What a result word holds, from the reference.
long double expected(const reference& r, int word) {
    const long double v[] = {r.mean,        r.raw[1] / r.w, r.raw[2] / r.w, r.raw[3] / r.w,
                             r.m2(),        r.c3 / r.w,     r.c4 / r.w,     r.raw[0],
                             r.raw[1],      r.raw[2],       r.raw[3],       r.c2,
                             r.c3,          r.c4,           r.kurtosis(),   r.skewness(),
                             r.variation(), r.min,          r.max};
    return v[word - 11];
}

struct run_options {
    int64_t storage = QND_SS_ROW_MAJOR, method = QND_SS_METHOD_FAST;
    const qnd_ss_threader_row* table = nullptr;
    const void *weights = nullptr, *indices = nullptr;
    bool wide = true;
    uint64_t estimates = every_estimate;
};

// One output array of n_dims doubles per result word, preset to `untouched`.
using outputs = std::vector<std::vector<double>>;

// Both routines on one task over x (dims x n in the layout of o.storage), results as doubles.
template <class T>
outputs compute(const T* x, int64_t dims, int64_t n, const run_options& o) {
    task_fixture<T> f(dims, n, o.storage, x, static_cast<const T*>(o.weights), o.indices, o.wide);
    outputs out(30, std::vector<double>(dims, untouched));
    const int32_t yes = 1;
    EXPECT_EQ(f.edit(QND_SS_ED_DOUBLE_RESULTS, &yes), QND_SS_OK);
    for (int k = 0; k < 19; ++k)
        EXPECT_EQ(f.edit(7 + k, out[word_of_parameter[k]].data()), QND_SS_OK);
    EXPECT_EQ(f.basic(o.estimates, o.method, o.table), QND_SS_OK);
    EXPECT_EQ(f.minmax(o.estimates, o.method, o.table), QND_SS_OK);
    return out;
}

// The references of the dimensions of `rows` (dims x n, row-major).
template <class T>
auto references(const std::vector<T>& rows, int64_t dims, int64_t n, const T* w = nullptr) {
    std::vector<reference> want;
    for (int64_t d = 0; d < dims; ++d)
        want.push_back(reference_of<T>(rows.data() + d * n, w, n));
    return want;
}

// `words` of every dimension within `tolerance` of the reference, relative to the larger of the
// reference and `floor`; a dimension without reference (w = 0) is left untouched in every word.
void expect_near(
    const outputs& got, const refs& want, word_list words, double tolerance, double floor = 0) {
    for (size_t d = 0; d < want.size(); ++d) {
        for (int word = 11; word < 30; ++word) {
            SCOPED_TRACE(testing::Message() << "dimension " << d << ", record word " << word);
            if (want[d].w == 0)
                EXPECT_EQ(got[word][d], untouched);
            else if (std::find(words.begin(), words.end(), word) != words.end())
                EXPECT_LT(relative_error(got[word][d], expected(want[d], word), floor), tolerance);
        }
    }
}

// Skewed data (an exponential draw plus an offset), so that no estimate is near zero and
// relative errors mean something.
template <class T>
void run_reference_case(int64_t dims, int64_t storage, bool weighted, int64_t method) {
    const int64_t n = 20011;
    std::mt19937_64 gen(99);
    std::exponential_distribution<double> e(1.0);
    std::uniform_real_distribution<double> u(0.0, 2.0);
    std::vector<T> rows(dims * n), w(n);
    // Odd dimensions negative, so that the extremes see both signs.
    for (int64_t i = 0; i < dims * n; ++i)
        rows[i] = static_cast<T>(((i / n) % 2 ? -1 : 1) * (10 * (i / n) + 3 + e(gen)));
    for (int64_t i = 0; i < n; ++i) {
        w[i] = i % 7 == 0 ? T(0) : static_cast<T>(u(gen));
        if (weighted && i % 7 == 0)
            rows[(i % dims) * n + i] = std::numeric_limits<T>::quiet_NaN();
    }
    // Masked runs read 32-bit integers, the others 64-bit ones.
    std::vector<int32_t> mask(dims);
    for (int64_t d = 0; d < dims; ++d)
        mask[d] = d % 5 == 1 || d % 5 == 4 ? 0 : 1 + d % 3;
    const std::vector<T> data = storage == QND_SS_ROW_MAJOR ? rows : transpose(rows, dims, n);
    const T* weights = weighted ? w.data() : nullptr;
    const layer pool("libqnd_pool_thread.so.2");
    const run_options o{storage,  method, pool.rows, weights, weighted ? mask.data() : nullptr,
                        !weighted};
    refs want = references(rows, dims, n, weights);
    for (int64_t d = 0; d < dims; ++d)
        if (weighted && mask[d] == 0)
            want[d] = reference{};
    expect_near(compute(data.data(), dims, n, o), want, every_word, sizeof(T) == 4 ? 2e-6 : 1e-12);
}

class AgainstReference : public testing::TestWithParam<bool> {};  // floats (true) and doubles

// Dimension counts that take every kernel shape (fewer than the lanes, a few full vectors per row,
// and a count that fits no vector) on every vector path, in both layouts, unweighted and with
// weights (zeros among them, on NaN observations) and a mask of dimensions, by both methods.
TEST_P(AgainstReference, EveryEstimate) {
    for (const char* isa : isa_names) {
        scoped_env env("QND_CORE_ISA", isa);
        for (int64_t dims : {2, 5, 16})
            for (int64_t storage : {QND_SS_ROW_MAJOR, QND_SS_COL_MAJOR})
                for (int weighted = 0; weighted < 2; ++weighted)
                    for (int64_t method : {QND_SS_METHOD_FAST, QND_SS_METHOD_STREAMING}) {
                        SCOPED_TRACE(testing::Message()
                                     << isa << ", " << dims << " dimensions, storage " << storage
                                     << ", weighted " << weighted << ", method " << method);
                        GetParam() ? run_reference_case<float>(dims, storage, weighted, method)
                                   : run_reference_case<double>(dims, storage, weighted, method);
                    }
    }
}

INSTANTIATE_TEST_SUITE_P(Core, AgainstReference, testing::Bool());

// The shape of `rows` (dims x n, row-major) within `tolerance` of the reference, relative to the
// larger of the reference and `floor`, and the mean alone, which takes a walk of its own: in both
// layouts, on every vector path, with the data starting at each of the first `starts` elements
// of a buffer.
template <class T>
void check_shape(const std::vector<T>& rows,
                 int64_t dims,
                 int64_t method,
                 int64_t starts = 1,
                 double floor = 0) {
    const int64_t n = rows.size() / dims;
    const refs want = references(rows, dims, n);
    const std::vector<T> cols = transpose(rows, dims, n);
    std::vector<T> buffer(rows.size() + starts);
    const layer pool("libqnd_pool_thread.so.2");
    for (const char* isa : isa_names) {
        scoped_env env("QND_CORE_ISA", isa);
        for (int64_t storage : {QND_SS_ROW_MAJOR, QND_SS_COL_MAJOR})
            for (int64_t start = 0; start < starts; ++start) {
                SCOPED_TRACE(testing::Message()
                             << isa << ", storage " << storage << ", start " << start);
                const std::vector<T>& data = storage == QND_SS_ROW_MAJOR ? rows : cols;
                std::copy(data.begin(), data.end(), buffer.begin() + start);
                run_options o{storage, method, pool.rows};
                expect_near(compute(buffer.data() + start, dims, n, o), want, shape_words,
                            offset_data_tolerance, floor);
                o.estimates = QND_SS_MEAN;
                expect_near(compute(buffer.data() + start, dims, n, o), want, {11}, 1e-15);
            }
    }
}

// Doubles near 1e8 and floats near 1e4 as one, four and sixteen dimensions; the streaming method
// holds the same bound.
TEST(LargeOffset, ShapeOfDataFarFromZero) {
    const std::vector<double> x = offset_normal<double>(10000000, 1e8, 42);
    const std::vector<float> y = offset_normal<float>(1000000, 1e4, 7);
    for (int64_t dims : {1, 4, 16}) {
        check_shape(x, dims, QND_SS_METHOD_FAST);
        check_shape(y, dims, QND_SS_METHOD_FAST);
    }
    check_shape(offset_normal<double>(1000000, 1e8, 3), 2, QND_SS_METHOD_STREAMING);
}

// Data that drift (quadratically, so that they are skewed) by many standard deviations along the
// observations: a fixed shift from the first observation would lose the variance, the blockwise
// centres must not, with either method.
TEST(MergeStability, DriftingData) {
    const int64_t n = 3000000;
    std::vector<double> x = offset_normal<double>(n, 0, 11);
    for (int64_t i = 0; i < n; ++i)
        x[i] += 1e6 + 1e5 * (static_cast<double>(i) / n) * (static_cast<double>(i) / n);
    for (int64_t method : {QND_SS_METHOD_FAST, QND_SS_METHOD_STREAMING})
        check_shape(x, 1, method);
    check_shape(x, 16, QND_SS_METHOD_FAST);
}

// The kernels start their vector loads where they are aligned and take the elements before one by
// one: every start of the data in a cache line must give the same estimates. Several blocks per
// dimension, so that blocks summed around an offered centre are among them. Skewness and
// kurtosis are of scale 1 whatever the data, so their bound is absolute (9000 normal draws have a
// shape near 0).
TEST(Alignment, EveryStartOfTheDataGivesTheSameEstimates) {
    check_shape(offset_normal<double>(16 * 9000, 1e6, 13), 16, QND_SS_METHOD_FAST, 8, 1);
    check_shape(offset_normal<float>(16 * 9000, 1e3, 13), 16, QND_SS_METHOD_FAST, 16, 1);
}

// Through each layer's table, whatever its number of threads, the estimates are those of the
// calling thread alone up to rounding.
TEST(Threads, ResultsDependOnTheLayerAndNumberOfThreadsOnlyThroughRounding) {
    const int64_t dims = 3, n = 400000;
    const std::vector<double> rows = offset_normal<double>(dims * n, 1e3, 5);
    const std::vector<double> cols = transpose(rows, dims, n);
    for (int64_t storage : {QND_SS_ROW_MAJOR, QND_SS_COL_MAJOR}) {
        run_options o{storage};
        const double* x = storage == QND_SS_ROW_MAJOR ? rows.data() : cols.data();
        const outputs alone = compute(x, dims, n, o);
        for (const char* file : layer_files) {
            const layer l(file);
            o.table = l.rows;
            for (const char* threads : {"1", "2", "3", "7", "16"}) {
                scoped_env env("QND_NUM_THREADS", threads);
                const outputs many = compute(x, dims, n, o);
                for (int word = 11; word < 30; ++word)
                    for (int64_t d = 0; d < dims; ++d)
                        EXPECT_LT(relative_error(many[word][d], alone[word][d], 1), 1e-11)
                            << file << ", " << threads << " threads, storage " << storage
                            << ", word " << word;
            }
        }
    }
}

}  // namespace
