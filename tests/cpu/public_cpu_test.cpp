// The exported estimators on a CPU queue, through the real core library: true extremes,
// concurrent first calls, dependencies, and the failures of the CPU path as a caller sees them.
// (Moment results on a CPU queue are checked with the buffer forms, in tests/estimators.)
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstdint>
#include <exception>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "support/data.hpp"
#include "support/reference.hpp"
#include "tavrel/qnd/exceptions.hpp"
#include "tavrel/qnd/stats.hpp"

namespace {

using namespace tavrel::qnd::stats;

// Extremes on the CPU are the true ones, in the pointer and the buffer form: negative maxima
// (no clamp), a subnormal minimum, and a masked dimension left as it was.
TEST(public_cpu, extremes_are_the_true_extremes) {
    sycl::queue queue{sycl::cpu_selector_v};
    std::vector<double> x = {-7.5, -3.25,  -9.0, -4.0,  // dimension 0: all negative
                             2.0,  1e-310, 0.5,  3.0,   // dimension 1: a subnormal minimum
                             5.0,  6.0,    7.0,  8.0};  // dimension 2: masked
    std::vector<std::int64_t> keep = {1, 1, 0};
    const double want_lo[3] = {-9.0, 1e-310, 99.0}, want_hi[3] = {-3.25, 3.0, 99.0};
    double* ux = sycl::malloc_shared<double>(x.size(), queue);
    std::copy(x.begin(), x.end(), ux);
    std::int64_t* uidx = sycl::malloc_shared<std::int64_t>(3, queue);
    std::copy(keep.begin(), keep.end(), uidx);
    std::array<double*, 4> out{};
    for (double*& o : out) {
        o = sycl::malloc_shared<double>(3, queue);
        std::fill(o, o + 3, 99.0);
    }
    const dataset<row_major, double*> ds(3, 4, ux, nullptr, uidx);
    min_max<1, double, row_major>(queue, ds, out[0], out[1]).wait();
    min<1, double, row_major>(queue, ds, out[2]).wait();
    max<1, double, row_major>(queue, ds, out[3]).wait();
    std::vector<double> blo(3, 99.0), bhi(3, 99.0), bmax(3, 99.0);
    {
        sycl::buffer<double, 1> bx(x.data(), sycl::range<1>(x.size()));
        sycl::buffer<std::int64_t, 1> bidx(keep.data(), sycl::range<1>(3));
        const dataset<row_major, sycl::buffer<double, 1>> bds(
            3, 4, bx, sycl::buffer<double, 1>(sycl::range<1>(0)), bidx);
        min_max<1, double, row_major>(queue, bds, sycl::buffer<double, 1>(blo.data(), 3),
                                      sycl::buffer<double, 1>(bhi.data(), 3));
        max<1, double, row_major>(queue, bds, sycl::buffer<double, 1>(bmax.data(), 3));
    }
    for (int d = 0; d < 3; ++d) {
        SCOPED_TRACE(testing::Message() << "dimension " << d);
        for (double got : {out[0][d], out[2][d], blo[d]})
            EXPECT_EQ(got, want_lo[d]);
        for (double got : {out[1][d], out[3][d], bhi[d], bmax[d]})
            EXPECT_EQ(got, want_hi[d]);
    }
    for (double* p : out)
        sycl::free(p, queue);
    sycl::free(ux, queue);
    sycl::free(uidx, queue);
}

// Host tasks of several queues call the core library at once, the first calls binding the
// entries concurrently; every result is right.
TEST(public_cpu, concurrent_calls_from_several_queues) {
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
                    kurtosis<1, double, row_major>(queue, ds, out).wait();
                else
                    skewness<1, double, row_major>(queue, ds, out).wait();
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
            EXPECT_TRUE(qnd_test::close_to(got[c][d], want, 1e-11L))
                << "call " << c << " dimension " << d;
        }
    sycl::free(x, shared);
}

// With the real threading layer, the process-ending paths print the layer's own messages.
TEST(public_cpu_death, a_missing_component_or_entry_ends_with_the_layers_messages) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto call_with = [](const char* component) {
        setenv("QND_CORE_LIBRARY_PATH", component, 1);
        sycl::queue queue{sycl::cpu_selector_v};
        float* x = sycl::malloc_shared<float>(4, queue);
        float* out = sycl::malloc_shared<float>(1, queue);
        mean<1, float, row_major>(queue, dataset<row_major, float*>(1, 4, x), out).wait();
        raw_sum<1, float, row_major>(queue, dataset<row_major, float*>(1, 4, x), out, nullptr,
                                     nullptr, nullptr)
            .wait();
    };
    EXPECT_EXIT(call_with(CPU_DOUBLES_DIR "libqnd_core_absent.so.2"), ::testing::ExitedWithCode(2),
                "qnd fatal error: the statistics component libqnd_core.so.2 could not be loaded");
    EXPECT_EXIT(
        call_with(CPU_DOUBLES_DIR "libqnd_core_partial.so.2"), ::testing::ExitedWithCode(2),
        "^qnd fatal error: the statistics component has no entry named __rtksSSEditSums\n$");
}

// A pointer-form call without temporaries returns at once and runs after its dependencies.
TEST(public_cpu, the_host_task_waits_for_the_dependencies) {
    sycl::queue queue{sycl::cpu_selector_v};
    double* x = sycl::malloc_shared<double>(4, queue);
    double* out = sycl::malloc_shared<double>(1, queue);
    std::fill(x, x + 4, 0.0);
    const sycl::event fill = queue.submit([&](sycl::handler& cgh) {
        cgh.host_task([=] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            for (int i = 0; i < 4; ++i)
                x[i] = 10.0 + i;
        });
    });
    const dataset<row_major, double*> ds(1, 4, x);
    mean<1, double, row_major>(queue, ds, out, {fill}).wait();
    EXPECT_EQ(out[0], 11.5);
    sycl::free(out, queue);
    sycl::free(x, queue);
}

// What the core library refuses reaches the queue's asynchronous handler as computation_error.
TEST(public_cpu, a_refusal_of_the_core_library_reaches_the_async_handler) {
    std::mutex lock;
    std::vector<std::string> texts;
    sycl::queue queue{sycl::cpu_selector_v, [&](sycl::exception_list list) {
                          for (const std::exception_ptr& e : list) {
                              try {
                                  std::rethrow_exception(e);
                              } catch (const tavrel::qnd::computation_error& error) {
                                  std::lock_guard<std::mutex> guard(lock);
                                  texts.push_back(error.what());
                              } catch (...) {
                                  std::lock_guard<std::mutex> guard(lock);
                                  texts.push_back("another exception");
                              }
                          }
                      }};
    double* x = sycl::malloc_shared<double>(4, queue);
    double* w = sycl::malloc_shared<double>(4, queue);
    double* out = sycl::malloc_shared<double>(1, queue);
    std::fill(x, x + 4, 1.0);
    std::fill(w, w + 4, 1.0);
    w[2] = -1.0;  // the core library refuses negative weights
    out[0] = 99.0;
    mean<1, double, row_major>(queue, dataset<row_major, double*>(1, 4, x, w), out).wait();
    // No dimension at all: the frame lets it through, the dispatcher refuses it.
    raw_moment<2, double, col_major>(queue, dataset<col_major, double*>(0, 4, x), out, nullptr,
                                     nullptr, nullptr)
        .wait();
    queue.wait_and_throw();
    EXPECT_EQ(texts, (std::vector<std::string>{"tavrel::qnd::stats: computation error",
                                               "tavrel::qnd::stats: computation error"}));
    EXPECT_EQ(out[0], 99.0) << "nothing written on a refusal";
    for (double* p : {x, w, out})
        sycl::free(p, queue);
}

}  // namespace
