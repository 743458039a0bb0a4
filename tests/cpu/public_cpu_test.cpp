// The exported estimators on a CPU queue: results against long-double references for every
// moment family, agreement with the GPU engine, true extremes, the method value 2 of the central
// families, dependencies, and the errors of the CPU path as a caller sees them.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <exception>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "cpu/result_checks.hpp"
#include "support/data.hpp"
#include "support/moment_families.hpp"
#include "support/reference.hpp"
#include "tavrel/qnd/exceptions.hpp"
#include "tavrel/qnd/stats.hpp"

namespace {

using namespace tavrel::qnd::stats;
using qnd_test::moment_family;

template <typename T, layout L, int M>
void check_public() {
    cpu_checks::check_pointer_form<T, L, M>([](moment_family f, sycl::queue& q, T* mean,
                                               const dataset<L, T*>& data,
                                               const std::array<T*, 4>& out) {
        return qnd_test::call_moment_family<M, T, L>(f, q, mean, data, out);
    });
}

TEST(public_cpu, float_rows_method_1) {
    check_public<float, row_major, 1>();
}
TEST(public_cpu, float_columns_method_2) {
    check_public<float, col_major, 2>();
}
TEST(public_cpu, double_rows_method_2) {
    check_public<double, row_major, 2>();
}
TEST(public_cpu, double_columns_method_1) {
    check_public<double, col_major, 1>();
}

// The two engines agree on well-conditioned, positively weighted, masked data.
template <typename T, layout L>
void check_agreement() {
    sycl::queue cpu{sycl::cpu_selector_v};
    sycl::queue gpu{sycl::gpu_selector_v};
    qnd_test::host_data<T> data = qnd_test::skewed_data<T>(6, 1000, L);
    data.weights = qnd_test::random_weights<T>(1000);
    data.indices = {1, 1, 0, 1, 1, 1};
    T* x = sycl::malloc_shared<T>(data.observations.size(), cpu);
    T* w = sycl::malloc_shared<T>(data.weights.size(), cpu);
    std::int64_t* idx = sycl::malloc_shared<std::int64_t>(6, cpu);
    T* mean = sycl::malloc_shared<T>(6, cpu);
    std::copy(data.observations.begin(), data.observations.end(), x);
    std::copy(data.weights.begin(), data.weights.end(), w);
    std::copy(data.indices.begin(), data.indices.end(), idx);
    for (std::int64_t d = 0; d < 6; ++d)
        mean[d] = static_cast<T>(qnd_test::reference_of(data, d).mean() - 0.25L);
    std::array<T*, 4> on_cpu{}, on_gpu{};
    for (int k = 0; k < 4; ++k) {
        on_cpu[k] = sycl::malloc_shared<T>(6, cpu);
        on_gpu[k] = sycl::malloc_shared<T>(6, cpu);
    }
    const dataset<L, T*> ds(6, 1000, x, w, idx);
    for (const qnd_test::moment_family_info& f : qnd_test::moment_families()) {
        for (bool given_mean : {false, true}) {
            if (given_mean && !f.takes_user_mean)
                continue;
            SCOPED_TRACE(std::string(f.name) + (given_mean ? " around a caller's mean" : ""));
            T* m = given_mean ? mean : nullptr;
            qnd_test::call_moment_family<1, T, L>(f.family, cpu, m, ds, on_cpu).wait();
            qnd_test::call_moment_family<1, T, L>(f.family, gpu, m, ds, on_gpu).wait();
            for (int k = 0; k < f.n_outputs; ++k)
                for (std::int64_t d = 0; d < 6; ++d)
                    if (data.kept(d))
                        EXPECT_TRUE(qnd_test::close_to(on_cpu[k][d], on_gpu[k][d],
                                                       qnd_test::moment_tolerance<T>()))
                            << "output " << k << " dimension " << d << ": " << on_cpu[k][d]
                            << " on the CPU, " << on_gpu[k][d] << " on the GPU";
        }
    }
    for (int k = 0; k < 4; ++k) {
        sycl::free(on_cpu[k], cpu);
        sycl::free(on_gpu[k], cpu);
    }
    for (void* p : {static_cast<void*>(x), static_cast<void*>(w), static_cast<void*>(idx),
                    static_cast<void*>(mean)})
        sycl::free(p, cpu);
}

TEST(public_cpu, agrees_with_the_gpu_engine_float_rows) {
    check_agreement<float, row_major>();
}
TEST(public_cpu, agrees_with_the_gpu_engine_double_columns) {
    check_agreement<double, col_major>();
}

// Extremes on the CPU are the true ones, in the pointer and the buffer form.
TEST(public_cpu, extremes_are_the_true_extremes) {
    sycl::queue queue{sycl::cpu_selector_v};
    std::vector<double> x = {-7.5, -3.25,  -9.0, -4.0,  // dimension 0: all negative
                             2.0,  1e-310, 0.5,  3.0};  // dimension 1: a subnormal minimum
    double* ux = sycl::malloc_shared<double>(x.size(), queue);
    std::copy(x.begin(), x.end(), ux);
    double* lo = sycl::malloc_shared<double>(2, queue);
    double* hi = sycl::malloc_shared<double>(2, queue);
    double* lo_alone = sycl::malloc_shared<double>(2, queue);
    double* hi_alone = sycl::malloc_shared<double>(2, queue);
    const dataset<row_major, double*> ds(2, 4, ux);
    min_max<1, double, row_major>(queue, ds, lo, hi).wait();
    min<1, double, row_major>(queue, ds, lo_alone).wait();
    max<1, double, row_major>(queue, ds, hi_alone).wait();
    const double want_lo[2] = {-9.0, 1e-310}, want_hi[2] = {-3.25, 3.0};
    for (int d = 0; d < 2; ++d) {
        EXPECT_EQ(lo[d], want_lo[d]);
        EXPECT_EQ(hi[d], want_hi[d]);
        EXPECT_EQ(lo_alone[d], want_lo[d]);
        EXPECT_EQ(hi_alone[d], want_hi[d]);
    }
    std::vector<double> blo(2, 0.0), bhi(2, 0.0), bmax(2, 0.0);
    {
        sycl::buffer<double, 1> bx(x.data(), sycl::range<1>(x.size()));
        const dataset<row_major, sycl::buffer<double, 1>> bds(2, 4, bx);
        min_max<1, double, row_major>(queue, bds, sycl::buffer<double, 1>(blo.data(), 2),
                                      sycl::buffer<double, 1>(bhi.data(), 2));
        max<1, double, row_major>(queue, bds, sycl::buffer<double, 1>(bmax.data(), 2));
    }
    for (int d = 0; d < 2; ++d) {
        EXPECT_EQ(blo[d], want_lo[d]);
        EXPECT_EQ(bhi[d], want_hi[d]);
        EXPECT_EQ(bmax[d], want_hi[d]);
    }
    for (double* p : {ux, lo, hi, lo_alone, hi_alone})
        sycl::free(p, queue);
}

// Method value 2 of the central families is served on a CPU and refused on a GPU.
TEST(public_cpu, central_families_under_method_2_run_on_the_cpu_only) {
    sycl::queue cpu{sycl::cpu_selector_v};
    sycl::queue gpu{sycl::gpu_selector_v};
    const qnd_test::host_data<double> data = qnd_test::skewed_data<double>(2, 200, row_major);
    double* x = sycl::malloc_shared<double>(data.observations.size(), cpu);
    std::copy(data.observations.begin(), data.observations.end(), x);
    double* cs = sycl::malloc_shared<double>(2, cpu);
    const dataset<row_major, double*> ds(2, 200, x);
    central_sum<2, double, row_major>(cpu, ds, nullptr, nullptr, cs).wait();
    for (int d = 0; d < 2; ++d)
        EXPECT_TRUE(
            qnd_test::close_to(cs[d], qnd_test::reference_of(data, d).central_sum(4), 1e-11L));
    try {
        central_sum<2, double, row_major>(gpu, ds, nullptr, nullptr, cs);
        ADD_FAILURE() << "no exception";
    } catch (const tavrel::qnd::unimplemented& e) {
        EXPECT_STREQ(e.what(),
                     "tavrel::qnd::stats::central_sum: unimplemented functionality: for this "
                     "method");
    }
    sycl::free(cs, cpu);
    sycl::free(x, cpu);
}

// The output checks come first on a CPU queue too, before anything is enqueued.
TEST(public_cpu, argument_checks_come_before_the_cpu_path) {
    sycl::queue cpu{sycl::cpu_selector_v};
    double x[4] = {1, 2, 3, 4};
    const dataset<row_major, double*> ds(1, 4, x);
    try {
        kurtosis<1, double, row_major>(cpu, nullptr, ds, nullptr);
        ADD_FAILURE() << "no exception";
    } catch (const tavrel::qnd::invalid_argument& e) {
        EXPECT_STREQ(e.what(),
                     "tavrel::qnd::stats::kurtosis: invalid argument: kurtosis is nullptr");
    }
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

// A temporary that cannot be had is device_bad_alloc in the sibling domain's words.
TEST(public_cpu, an_unallocated_temporary_is_device_bad_alloc) {
    sycl::queue queue{sycl::cpu_selector_v};
    double* x = sycl::malloc_shared<double>(4, queue);
    double* out = sycl::malloc_shared<double>(1, queue);
    sycl::ext::hostsycl::fail_next_allocations(1);
    try {
        variation<1, double, row_major>(queue, dataset<row_major, double*>(1, 4, x), out);
        ADD_FAILURE() << "no exception";
    } catch (const tavrel::qnd::device_bad_alloc& e) {
        EXPECT_EQ(std::string(e.what()),
                  "tavrel::qnd::rng::variation: cannot allocate memory on " +
                      queue.get_device().get_info<sycl::info::device::name>());
    }
    sycl::ext::hostsycl::fail_next_allocations(0);
    sycl::free(out, queue);
    sycl::free(x, queue);
}

}  // namespace
