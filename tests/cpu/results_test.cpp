// Results of the CPU path on a CPU queue, computed by the real core library, against long-double
// references: every moment family in both forms, with and without weights and masks, in both
// layouts, around the data's mean and a caller's, under method values 1 and 2; and the true
// extremes.
#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "cpu/cpu_estimators.hpp"
#include "support/data.hpp"
#include "support/moment_families.hpp"
#include "support/reference.hpp"

namespace {

using namespace tavrel::qnd::stats;
using namespace tavrel::qnd::stats::detail::cpu;
using qnd_test::moment_family;

// The core library accumulates in double: float results carry their own rounding and little more.
template <typename T>
constexpr long double cpu_tolerance() {
    return std::is_same_v<T, float> ? 1e-5L : 1e-11L;
}

// What a masked dimension of an output keeps.
constexpr double untouched = 12345.0;

// Calls the CPU side of `family`'s pointer form, as the frame does.
template <int M, typename T, layout L>
sycl::event run_family(moment_family family,
                       sycl::queue& queue,
                       T* mean,
                       const dataset<L, T*>& data,
                       const std::array<T*, 4>& o) {
    switch (family) {
        case moment_family::mean:
            return run_mean<T, L>(queue, data, o[0], {});
        case moment_family::raw_sum:
            return run_raw_sum<T, L>(queue, data, o[0], o[1], o[2], o[3], {});
        case moment_family::raw_moment:
            return run_raw_moment<T, L>(queue, data, o[0], o[1], o[2], o[3], {});
        case moment_family::central_sum:
            if (mean)
                return run_central_sum<T, L>(queue, mean, data, o[0], o[1], o[2], {});
            return run_central_sum<M, T, L>(queue, data, o[0], o[1], o[2], {});
        case moment_family::central_moment:
            if (mean)
                return run_central_moment<T, L>(queue, mean, data, o[0], o[1], o[2], {});
            return run_central_moment<M, T, L>(queue, data, o[0], o[1], o[2], {});
        case moment_family::variation:
            if (mean)
                return run_variation<T, L>(queue, mean, data, o[0], {});
            return run_variation<T, L>(queue, data, o[0], {});
        case moment_family::skewness:
            if (mean)
                return run_skewness<T, L>(queue, mean, data, o[0], {});
            return run_skewness<T, L>(queue, data, o[0], {});
        case moment_family::kurtosis:
            if (mean)
                return run_kurtosis<T, L>(queue, mean, data, o[0], {});
            return run_kurtosis<T, L>(queue, data, o[0], {});
    }
    return {};
}

// The same through the buffer form.
template <int M, typename T, layout L>
void run_family(moment_family family,
                sycl::queue& queue,
                sycl::buffer<T, 1>* mean,
                const dataset<L, sycl::buffer<T, 1>>& data,
                std::array<sycl::buffer<T, 1>, 4>& o) {
    switch (family) {
        case moment_family::mean:
            return run_mean<T, L>(queue, data, o[0]);
        case moment_family::raw_sum:
            return run_raw_sum<T, L>(queue, data, o[0], o[1], o[2], o[3]);
        case moment_family::raw_moment:
            return run_raw_moment<T, L>(queue, data, o[0], o[1], o[2], o[3]);
        case moment_family::central_sum:
            if (mean)
                return run_central_sum<T, L>(queue, *mean, data, o[0], o[1], o[2]);
            return run_central_sum<M, T, L>(queue, data, o[0], o[1], o[2]);
        case moment_family::central_moment:
            if (mean)
                return run_central_moment<T, L>(queue, *mean, data, o[0], o[1], o[2]);
            return run_central_moment<M, T, L>(queue, data, o[0], o[1], o[2]);
        case moment_family::variation:
            if (mean)
                return run_variation<T, L>(queue, *mean, data, o[0]);
            return run_variation<T, L>(queue, data, o[0]);
        case moment_family::skewness:
            if (mean)
                return run_skewness<T, L>(queue, *mean, data, o[0]);
            return run_skewness<T, L>(queue, data, o[0]);
        case moment_family::kurtosis:
            if (mean)
                return run_kurtosis<T, L>(queue, *mean, data, o[0]);
            return run_kurtosis<T, L>(queue, data, o[0]);
    }
}

struct variant {
    bool weighted;
    bool masked;
    bool given_mean;
};

std::string label(const variant& v, const char* family, int method) {
    return std::string(family) + " method " + std::to_string(method) +
           (v.weighted ? " weighted" : "") + (v.masked ? " masked" : "") +
           (v.given_mean ? " around a caller's mean" : "");
}

const std::vector<variant>& variants() {
    static const std::vector<variant> all = [] {
        std::vector<variant> v;
        for (bool w : {false, true})
            for (bool m : {false, true})
                for (bool g : {false, true})
                    v.push_back({w, m, g});
        return v;
    }();
    return all;
}

constexpr std::int64_t test_dims = 5;
constexpr std::int64_t test_observations = 777;

template <typename T, layout L>
qnd_test::host_data<T> test_data(const variant& v) {
    qnd_test::host_data<T> data = qnd_test::skewed_data<T>(test_dims, test_observations, L);
    if (v.weighted)
        data.weights = qnd_test::random_weights<T>(test_observations);
    if (v.masked)
        data.indices = {1, 0, 1, 1, 0};
    return data;
}

// A caller's mean near, but not at, the data's own.
template <typename T>
std::vector<T> caller_mean(const qnd_test::host_data<T>& data) {
    std::vector<T> mean(static_cast<std::size_t>(data.n_dims));
    for (std::int64_t d = 0; d < data.n_dims; ++d)
        mean[d] = static_cast<T>(qnd_test::reference_of(data, d).mean() + 0.375L);
    return mean;
}

template <typename T>
void expect_outputs(moment_family family,
                    const qnd_test::host_data<T>& data,
                    const std::vector<T>* mean,
                    const std::array<std::vector<T>, 4>& outputs,
                    int n_outputs) {
    for (std::int64_t d = 0; d < data.n_dims; ++d) {
        long double centre = 0;
        if (mean)
            centre = (*mean)[d];
        const qnd_test::moment_reference r =
            qnd_test::reference_of(data, d, mean ? &centre : nullptr);
        for (int k = 0; k < n_outputs; ++k) {
            const long double got = outputs[k][d];
            if (!data.kept(d)) {
                EXPECT_EQ(got, untouched) << "masked dimension " << d << " output " << k;
                continue;
            }
            const long double want = qnd_test::expected_output(family, k, r);
            EXPECT_TRUE(qnd_test::close_to(got, want, cpu_tolerance<T>()))
                << "dimension " << d << " output " << k << ": " << static_cast<double>(got)
                << " against " << static_cast<double>(want);
        }
    }
}

template <typename T, layout L, int M>
void check_pointer_form() {
    sycl::queue queue{sycl::cpu_selector_v};
    for (const variant& v : variants()) {
        const qnd_test::host_data<T> data = test_data<T, L>(v);
        T* x = sycl::malloc_shared<T>(data.observations.size(), queue);
        std::copy(data.observations.begin(), data.observations.end(), x);
        T* w = v.weighted ? sycl::malloc_shared<T>(data.weights.size(), queue) : nullptr;
        if (w)
            std::copy(data.weights.begin(), data.weights.end(), w);
        std::int64_t* idx =
            v.masked ? sycl::malloc_shared<std::int64_t>(test_dims, queue) : nullptr;
        if (idx)
            std::copy(data.indices.begin(), data.indices.end(), idx);
        const std::vector<T> host_mean = caller_mean(data);
        T* mean = sycl::malloc_shared<T>(test_dims, queue);
        std::copy(host_mean.begin(), host_mean.end(), mean);
        std::array<T*, 4> out{};
        for (T*& o : out)
            o = sycl::malloc_shared<T>(test_dims, queue);
        const dataset<L, T*> ds(test_dims, test_observations, x, w, idx);

        for (const qnd_test::moment_family_info& f : qnd_test::moment_families()) {
            if (v.given_mean && !f.takes_user_mean)
                continue;
            SCOPED_TRACE(label(v, f.name, M));
            for (T* o : out)
                std::fill(o, o + test_dims, static_cast<T>(untouched));
            run_family<M, T, L>(f.family, queue, v.given_mean ? mean : nullptr, ds, out).wait();
            std::array<std::vector<T>, 4> got;
            for (int k = 0; k < 4; ++k)
                got[k].assign(out[k], out[k] + test_dims);
            expect_outputs(f.family, data, v.given_mean ? &host_mean : nullptr, got, f.n_outputs);
        }
        for (T* o : out)
            sycl::free(o, queue);
        sycl::free(mean, queue);
        sycl::free(x, queue);
        if (w)
            sycl::free(w, queue);
        if (idx)
            sycl::free(idx, queue);
    }
}

template <typename T, layout L, int M>
void check_buffer_form() {
    sycl::queue queue{sycl::cpu_selector_v};
    for (const variant& v : variants()) {
        const qnd_test::host_data<T> data = test_data<T, L>(v);
        sycl::buffer<T, 1> x(data.observations.data(), sycl::range<1>(data.observations.size()));
        sycl::buffer<T, 1> w = v.weighted ? sycl::buffer<T, 1>(data.weights.data(),
                                                               sycl::range<1>(data.weights.size()))
                                          : sycl::buffer<T, 1>(sycl::range<1>(0));
        sycl::buffer<std::int64_t, 1> idx =
            v.masked ? sycl::buffer<std::int64_t, 1>(data.indices.data(), sycl::range<1>(test_dims))
                     : sycl::buffer<std::int64_t, 1>(sycl::range<1>(0));
        const std::vector<T> host_mean = caller_mean(data);
        sycl::buffer<T, 1> mean(host_mean.data(), sycl::range<1>(test_dims));
        const dataset<L, sycl::buffer<T, 1>> ds(test_dims, test_observations, x, w, idx);

        for (const qnd_test::moment_family_info& f : qnd_test::moment_families()) {
            if (v.given_mean && !f.takes_user_mean)
                continue;
            SCOPED_TRACE(label(v, f.name, M) + ", buffer form");
            std::array<std::vector<T>, 4> got;
            {
                for (auto& g : got)
                    g.assign(test_dims, static_cast<T>(untouched));
                std::array<sycl::buffer<T, 1>, 4> out = {
                    sycl::buffer<T, 1>(got[0].data(), sycl::range<1>(test_dims)),
                    sycl::buffer<T, 1>(got[1].data(), sycl::range<1>(test_dims)),
                    sycl::buffer<T, 1>(got[2].data(), sycl::range<1>(test_dims)),
                    sycl::buffer<T, 1>(got[3].data(), sycl::range<1>(test_dims))};
                run_family<M, T, L>(f.family, queue, v.given_mean ? &mean : nullptr, ds, out);
            }  // the result buffers write back here
            expect_outputs(f.family, data, v.given_mean ? &host_mean : nullptr, got, f.n_outputs);
        }
    }
}

TEST(cpu_results, pointer_form_float_rows) {
    check_pointer_form<float, row_major, 1>();
}
TEST(cpu_results, pointer_form_float_columns) {
    check_pointer_form<float, col_major, 2>();
}
TEST(cpu_results, pointer_form_double_rows) {
    check_pointer_form<double, row_major, 2>();
}
TEST(cpu_results, pointer_form_double_columns) {
    check_pointer_form<double, col_major, 1>();
}
TEST(cpu_results, buffer_form_float_rows) {
    check_buffer_form<float, row_major, 2>();
}
TEST(cpu_results, buffer_form_float_columns) {
    check_buffer_form<float, col_major, 1>();
}
TEST(cpu_results, buffer_form_double_rows) {
    check_buffer_form<double, row_major, 1>();
}
TEST(cpu_results, buffer_form_double_columns) {
    check_buffer_form<double, col_major, 2>();
}

// Outputs left out are not written, whichever of them it is; the others are right.
TEST(cpu_results, optional_outputs_left_out_stay_untouched) {
    sycl::queue queue{sycl::cpu_selector_v};
    const qnd_test::host_data<double> data = qnd_test::skewed_data<double>(3, 500, row_major);
    double* x = sycl::malloc_shared<double>(data.observations.size(), queue);
    std::copy(data.observations.begin(), data.observations.end(), x);
    const dataset<row_major, double*> ds(3, 500, x);
    std::array<double*, 4> out{};
    for (double*& o : out)
        o = sycl::malloc_shared<double>(3, queue);

    struct partial {
        moment_family family;
        std::array<bool, 4> given;
        int method;
    };
    const std::vector<partial> cases = {
        {moment_family::raw_sum, {false, false, true, false}, 1},
        {moment_family::raw_sum, {false, true, false, true}, 1},
        {moment_family::raw_moment, {false, false, false, true}, 1},
        {moment_family::central_sum, {false, false, true, false}, 1},
        {moment_family::central_sum, {false, true, false, false}, 2},
        {moment_family::central_moment, {false, false, true, false}, 1},
        {moment_family::central_moment, {false, true, false, false}, 2},
    };
    for (const partial& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << "family " << static_cast<int>(c.family) << " given " << c.given[0]
                     << c.given[1] << c.given[2] << c.given[3] << " method " << c.method);
        std::array<double*, 4> passed{};
        for (int k = 0; k < 4; ++k) {
            std::fill(out[k], out[k] + 3, untouched);
            passed[k] = c.given[k] ? out[k] : nullptr;
        }
        if (c.method == 1)
            run_family<1, double, row_major>(c.family, queue, nullptr, ds, passed).wait();
        else
            run_family<2, double, row_major>(c.family, queue, nullptr, ds, passed).wait();
        for (std::int64_t d = 0; d < 3; ++d) {
            const qnd_test::moment_reference r = qnd_test::reference_of(data, d);
            for (int k = 0; k < 4; ++k) {
                if (!c.given[k]) {
                    EXPECT_EQ(out[k][d], untouched) << "output " << k;
                    continue;
                }
                EXPECT_TRUE(qnd_test::close_to(out[k][d], qnd_test::expected_output(c.family, k, r),
                                               cpu_tolerance<double>()))
                    << "output " << k << " dimension " << d;
            }
        }
    }
    for (double* o : out)
        sycl::free(o, queue);
    sycl::free(x, queue);
}

// Extremes on the CPU are the true ones, negative values and all, in both layouts and forms.
template <typename T, layout L>
void check_extremes() {
    sycl::queue queue{sycl::cpu_selector_v};
    qnd_test::host_data<T> data = qnd_test::skewed_data<T>(4, 301, L);
    // Dimension 3 lies wholly below zero; dimension 2 is masked.
    for (std::int64_t i = 0; i < data.n_observations; ++i)
        data.observations[data.position(3, i)] =
            static_cast<T>(-1000.0 - static_cast<double>(i % 17));
    data.indices = {1, 1, 0, 1};
    T* x = sycl::malloc_shared<T>(data.observations.size(), queue);
    std::copy(data.observations.begin(), data.observations.end(), x);
    std::int64_t* idx = sycl::malloc_shared<std::int64_t>(4, queue);
    std::copy(data.indices.begin(), data.indices.end(), idx);
    const dataset<L, T*> ds(4, data.n_observations, x, nullptr, idx);
    T* lo = sycl::malloc_shared<T>(4, queue);
    T* hi = sycl::malloc_shared<T>(4, queue);
    T* lo_alone = sycl::malloc_shared<T>(4, queue);
    T* hi_alone = sycl::malloc_shared<T>(4, queue);
    for (T* o : {lo, hi, lo_alone, hi_alone})
        std::fill(o, o + 4, static_cast<T>(untouched));
    run_min_max<T, L>(queue, ds, lo, hi, {}).wait();
    run_min<T, L>(queue, ds, lo_alone, {}).wait();
    run_max<T, L>(queue, ds, hi_alone, {}).wait();

    std::vector<T> buffer_lo(4, static_cast<T>(untouched)), buffer_hi(4, static_cast<T>(untouched));
    {
        sycl::buffer<T, 1> bx(data.observations.data(), sycl::range<1>(data.observations.size()));
        sycl::buffer<std::int64_t, 1> bidx(data.indices.data(), sycl::range<1>(4));
        const dataset<L, sycl::buffer<T, 1>> bds(4, data.n_observations, bx,
                                                 sycl::buffer<T, 1>(sycl::range<1>(0)), bidx);
        sycl::buffer<T, 1> blo(buffer_lo.data(), sycl::range<1>(4));
        sycl::buffer<T, 1> bhi(buffer_hi.data(), sycl::range<1>(4));
        run_min_max<T, L>(queue, bds, blo, bhi);
    }
    for (std::int64_t d = 0; d < 4; ++d) {
        T want_lo = std::numeric_limits<T>::infinity(), want_hi = -want_lo;
        for (std::int64_t i = 0; i < data.n_observations; ++i) {
            want_lo = std::min(want_lo, data.value(d, i));
            want_hi = std::max(want_hi, data.value(d, i));
        }
        if (!data.kept(d)) {
            want_lo = want_hi = static_cast<T>(untouched);
        }
        SCOPED_TRACE(testing::Message() << "dimension " << d);
        EXPECT_EQ(lo[d], want_lo);
        EXPECT_EQ(hi[d], want_hi);
        EXPECT_EQ(lo_alone[d], want_lo);
        EXPECT_EQ(hi_alone[d], want_hi);
        EXPECT_EQ(buffer_lo[d], want_lo);
        EXPECT_EQ(buffer_hi[d], want_hi);
    }
    EXPECT_LT(hi[3], static_cast<T>(-999.0)) << "a negative maximum, not a clamp";
    for (T* o : {lo, hi, lo_alone, hi_alone, x})
        sycl::free(o, queue);
    sycl::free(idx, queue);
}

TEST(cpu_results, extremes_float_rows) {
    check_extremes<float, row_major>();
}
TEST(cpu_results, extremes_double_columns) {
    check_extremes<double, col_major>();
}

}  // namespace
