// Results of the CPU path on a CPU queue, computed by the real core library, against long-double
// references: every moment family in both forms, with and without weights and masks, in both
// layouts, around the data's mean and a caller's, under method values 1 and 2; and the true
// extremes.
#include <algorithm>
#include <cstdlib>
#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "cpu/cpu_estimators.hpp"
#include "support/data.hpp"
#include "support/moment_families.hpp"
#include "support/reference.hpp"
#include "cpu/result_checks.hpp"

namespace {

using namespace tavrel::qnd::stats;
using namespace tavrel::qnd::stats::detail::cpu;
using qnd_test::moment_family;
using namespace cpu_checks;

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

template <typename T, layout L, int M>
void check_pointer_form() {
    cpu_checks::check_pointer_form<T, L, M>(
        [](moment_family f, sycl::queue& q, T* mean, const dataset<L, T*>& data,
           const std::array<T*, 4>& out) { return run_family<M, T, L>(f, q, mean, data, out); });
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

// Buffer outputs left empty: the order-4 sums and moments still come out right, while the
// empty order-3 result is stood in for by one element of filler that the core library is not
// asked to fill.
TEST(cpu_results, buffer_form_outputs_left_out) {
    sycl::queue queue{sycl::cpu_selector_v};
    const qnd_test::host_data<double> data = qnd_test::skewed_data<double>(4, 300, col_major);
    std::vector<double> order_2(4, untouched), order_4(4, untouched), sum_3(4, untouched);
    {
        sycl::buffer<double, 1> x(data.observations.data(),
                                  sycl::range<1>(data.observations.size()));
        const dataset<col_major, sycl::buffer<double, 1>> ds(4, 300, x);
        sycl::buffer<double, 1> none{sycl::range<1>(0)};
        sycl::buffer<double, 1> cs2(order_2.data(), sycl::range<1>(4));
        sycl::buffer<double, 1> cs4(order_4.data(), sycl::range<1>(4));
        run_central_sum<1, double, col_major>(queue, ds, cs2, none, cs4);
        sycl::buffer<double, 1> s3(sum_3.data(), sycl::range<1>(4));
        run_raw_sum<double, col_major>(queue, ds, none, none, s3, none);
    }
    for (std::int64_t d = 0; d < 4; ++d) {
        const qnd_test::moment_reference r = qnd_test::reference_of(data, d);
        EXPECT_TRUE(qnd_test::close_to(order_2[d], r.central_sum(2), cpu_tolerance<double>()));
        EXPECT_TRUE(qnd_test::close_to(order_4[d], r.central_sum(4), cpu_tolerance<double>()));
        EXPECT_TRUE(qnd_test::close_to(sum_3[d], r.raw[3], cpu_tolerance<double>()));
    }
    std::vector<double> moment_4(4, untouched);
    {
        sycl::buffer<double, 1> x(data.observations.data(),
                                  sycl::range<1>(data.observations.size()));
        const dataset<col_major, sycl::buffer<double, 1>> ds(4, 300, x);
        sycl::buffer<double, 1> none{sycl::range<1>(0)};
        sycl::buffer<double, 1> c4(moment_4.data(), sycl::range<1>(4));
        run_central_moment<2, double, col_major>(queue, ds, none, none, c4);
    }
    for (std::int64_t d = 0; d < 4; ++d)
        EXPECT_TRUE(qnd_test::close_to(moment_4[d],
                                       qnd_test::reference_of(data, d).central_moment(4),
                                       cpu_tolerance<double>()));
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

// Host tasks of several queues call the core library at once, the first calls binding the
// entries concurrently; every result is right.
TEST(cpu_results, concurrent_calls_from_several_queues) {
    const qnd_test::host_data<double> data = qnd_test::skewed_data<double>(3, 2000, row_major);
    sycl::queue shared{sycl::cpu_selector_v};
    double* x = sycl::malloc_shared<double>(data.observations.size(), shared);
    std::copy(data.observations.begin(), data.observations.end(), x);
    const dataset<row_major, double*> ds(3, 2000, x);
    constexpr int n_threads = 4;
    constexpr int n_calls = 8;
    std::vector<std::vector<double>> got(n_threads * n_calls);
    std::vector<std::thread> threads;
    for (int t = 0; t < n_threads; ++t) {
        threads.emplace_back([&, t] {
            sycl::queue queue{sycl::cpu_selector_v};
            double* out = sycl::malloc_shared<double>(3, queue);
            for (int k = 0; k < n_calls; ++k) {
                if (k % 2 == 0)
                    run_kurtosis<double, row_major>(queue, ds, out, {});
                else
                    run_skewness<double, row_major>(queue, ds, out, {});
                got[t * n_calls + k].assign(out, out + 3);
            }
            sycl::free(out, queue);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (int c = 0; c < n_threads * n_calls; ++c)
        for (std::int64_t d = 0; d < 3; ++d) {
            const qnd_test::moment_reference r = qnd_test::reference_of(data, d);
            const long double want = (c % n_calls) % 2 == 0 ? r.kurtosis() : r.skewness();
            EXPECT_TRUE(qnd_test::close_to(got[c][d], want, cpu_tolerance<double>()))
                << "call " << c << " dimension " << d;
        }
    sycl::free(x, shared);
}

// With the real threading layer, the process-ending paths print the layer's own messages.
TEST(cpu_results_death, a_missing_component_or_entry_ends_with_the_layers_messages) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto call_mean = [] {
        sycl::queue queue{sycl::cpu_selector_v};
        float* x = sycl::malloc_shared<float>(4, queue);
        float* out = sycl::malloc_shared<float>(1, queue);
        run_mean<float, row_major>(queue, dataset<row_major, float*>(1, 4, x), out, {}).wait();
        run_raw_sum<float, row_major>(queue, dataset<row_major, float*>(1, 4, x), out, nullptr,
                                      nullptr, nullptr, {})
            .wait();
    };
    const auto absent = [&] {
        setenv("QND_CORE_LIBRARY_PATH", CPU_DOUBLES_DIR "libqnd_core_absent.so.2", 1);
        call_mean();
    };
    EXPECT_EXIT(absent(), ::testing::ExitedWithCode(2),
                "qnd fatal error: the statistics component libqnd_core.so.2 could not be loaded");
    const auto partial = [&] {
        setenv("QND_CORE_LIBRARY_PATH", CPU_DOUBLES_DIR "libqnd_core_partial.so.2", 1);
        call_mean();
    };
    EXPECT_EXIT(
        partial(), ::testing::ExitedWithCode(2),
        "^qnd fatal error: the statistics component has no entry named __rtksSSEditSums\n$");
}

}  // namespace
