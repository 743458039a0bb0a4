// The buffer-form planner of the moment engine beside the pointer form's: the same launches
// with the same sizes and local memory, kernels named after the accessor functors, and the
// same sums, at every branch of the launch tree.
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "estimators/central_moment.hpp"
#include "estimators/raw_sum.hpp"
#include "gpu/buffer_functors.hpp"
#include "gpu/moments_gpu_impl.hpp"
#include "gpu/moments_gpu_impl_buffer.hpp"
#include "support/data.hpp"
#include "support/launch_log.hpp"
#include "support/usm_array.hpp"

namespace {

namespace st = tavrel::qnd::stats;
namespace gpu = tavrel::qnd::stats::detail::gpu;
using namespace qnd_test;
using launch_log = std::vector<sycl::ext::hostsycl::launch_record>;

constexpr std::int64_t n_dims = 3;
constexpr double sentinel = -5.0;

struct plan_case {
    std::size_t group_size;
    std::int64_t n_observations;
    bool weighted;
    std::array<bool, 3> orders;  // orders 2, 3, 4 asked for (order 1 always)
};

std::vector<plan_case> plan_cases() {
    std::vector<plan_case> cases;
    for (std::size_t g : {2, 3, 8})
        for (std::int64_t n : {1, 2, 7, 37, 100})
            for (bool w : {false, true})
                cases.push_back({g, n, w, {n % 2 == 0, false, true}});
    cases.push_back({3, 37, true, {true, true, true}});
    cases.push_back({3, 37, false, {false, false, false}});
    return cases;
}

struct run_result {
    launch_log log;
    std::vector<std::vector<double>> outputs;
};

// raw_sum's finisher through the pointer-form planner.
run_result run_pointer(sycl::queue& q, const host_data<double>& data, const plan_case& c) {
    usm_array<double> obs(q, data.observations), weights(q, data.weights);
    usm_array<std::int64_t> indices(q, data.indices);
    std::vector<std::unique_ptr<usm_array<double>>> outs;
    for (int k = 0; k < 4; ++k) {
        outs.push_back(std::make_unique<usm_array<double>>(q, n_dims));
        outs.back()->fill(sentinel);
    }
    const st::dataset<st::row_major, double*> ds{n_dims, data.n_observations, obs.get(),
                                                 c.weighted ? weights.get() : nullptr,
                                                 indices.get()};
    const gpu::raw_sum_func_fast<double, true> func{c.orders[0],
                                                    c.orders[1],
                                                    c.orders[2],
                                                    outs[0]->get(),
                                                    c.orders[0] ? outs[1]->get() : nullptr,
                                                    c.orders[1] ? outs[2]->get() : nullptr,
                                                    c.orders[2] ? outs[3]->get() : nullptr};
    run_result r;
    r.log = record_launches([&] { gpu::submit_basic_usm(q, ds, func, {}).wait(); });
    for (const auto& o : outs)
        r.outputs.push_back(o->to_vector());
    return r;
}

// The same through the buffer-form planner; orders not asked for have buffers of size 0.
run_result run_buffer(sycl::queue& q, const host_data<double>& data, const plan_case& c) {
    run_result r;
    r.outputs.assign(4, std::vector<double>(n_dims, sentinel));
    {
        sycl::buffer<double, 1> obs(data.observations.data(),
                                    sycl::range<1>(data.observations.size()));
        sycl::buffer<double, 1> weights(data.weights.data(),
                                        sycl::range<1>(c.weighted ? data.weights.size() : 0));
        sycl::buffer<std::int64_t, 1> indices(data.indices.data(),
                                              sycl::range<1>(data.indices.size()));
        std::vector<sycl::buffer<double, 1>> outs;
        for (int k = 0; k < 4; ++k) {
            const bool given = k == 0 || c.orders[k - 1];
            outs.emplace_back(r.outputs[k].data(), sycl::range<1>(given ? n_dims : 0));
        }
        sycl::buffer<double, 1> f2{sycl::range<1>(1)}, f3{sycl::range<1>(1)}, f4{sycl::range<1>(1)};
        const auto func = gpu::make_raw_func<gpu::raw_sum_func_fast<double, false>>(
            outs[0], outs[1], outs[2], outs[3], f2, f3, f4);
        const st::dataset<st::row_major, sycl::buffer<double, 1>> ds(n_dims, data.n_observations,
                                                                     obs, weights, indices);
        r.log = record_launches([&] { gpu::submit_basic(q, ds, func); });
    }
    return r;
}

// The functor of a moment kernel's name, its first template argument.
std::string functor_of(const std::string& kernel_name) {
    const std::vector<std::string> args = template_arguments(kernel_name);
    return args.empty() ? std::string() : args[0];
}

TEST(moments_buffer_planner, same_launches_and_sums_as_the_pointer_form) {
    for (const plan_case& c : plan_cases()) {
        SCOPED_TRACE("group " + std::to_string(c.group_size) + ", n " +
                     std::to_string(c.n_observations) + (c.weighted ? ", weighted" : ""));
        sycl::queue q(sycl::ext::hostsycl::make_gpu_device(c.group_size));
        host_data<double> data = skewed_data<double>(n_dims, c.n_observations, st::row_major);
        data.weights = random_weights<double>(c.n_observations);
        data.indices = {1, 0, 1};
        const run_result by_pointer = run_pointer(q, data, c);
        const run_result by_buffer = run_buffer(q, data, c);
        EXPECT_EQ(describe(by_pointer.log), describe(by_buffer.log));
        ASSERT_EQ(by_pointer.log.size(), by_buffer.log.size());
        for (std::size_t i = 0; i < by_pointer.log.size(); ++i) {
            EXPECT_EQ(by_pointer.log[i].local_memory_bytes, by_buffer.log[i].local_memory_bytes);
            EXPECT_EQ(functor_of(by_buffer.log[i].kernel_name),
                      "tavrel::qnd::stats::detail::gpu::raw_sum_func_fast<double, false>");
            EXPECT_EQ(functor_of(by_pointer.log[i].kernel_name),
                      "tavrel::qnd::stats::detail::gpu::raw_sum_func_fast<double, true>");
        }
        // Orders not asked for: the pointer form's arrays keep the sentinel, as do the host
        // arrays behind the buffer form's empty buffers.
        EXPECT_EQ(by_pointer.outputs, by_buffer.outputs);
        EXPECT_NE(by_buffer.outputs[0][0], sentinel);
        EXPECT_EQ(by_buffer.outputs[0][1], sentinel);  // masked dimension
    }
}

// Around a caller's mean: the mean is read through an accessor in the buffer form.
TEST(moments_buffer_planner, caller_mean_reaches_the_kernels_through_its_buffer) {
    for (std::size_t g : {2, 3, 256}) {
        SCOPED_TRACE("group " + std::to_string(g));
        sycl::queue q(sycl::ext::hostsycl::make_gpu_device(g));
        const host_data<double> data = skewed_data<double>(n_dims, 37, st::col_major);
        std::vector<double> means{0.5, -1.0, 2.0};
        std::vector<double> c_ptr(3 * n_dims, sentinel), c_buf(3 * n_dims, sentinel);
        {
            usm_array<double> obs(q, data.observations), mean(q, means);
            usm_array<double> out(q, 3 * n_dims);
            const st::dataset<st::col_major, double*> ds{n_dims, 37, obs.get()};
            const auto func =
                gpu::make_central_func<gpu::central_moment_func_user_mean<double, true>>(
                    out.get(), out.get() + n_dims, out.get() + 2 * n_dims);
            gpu::submit_basic_usm(q, mean.get(), ds, func, {}).wait();
            c_ptr = out.to_vector();
        }
        {
            sycl::buffer<double, 1> obs(data.observations.data(),
                                        sycl::range<1>(data.observations.size()));
            sycl::buffer<double, 1> mean(means.data(), sycl::range<1>(n_dims));
            sycl::buffer<double, 1> o2(c_buf.data(), sycl::range<1>(n_dims));
            sycl::buffer<double, 1> o3(c_buf.data() + n_dims, sycl::range<1>(n_dims));
            sycl::buffer<double, 1> o4(c_buf.data() + 2 * n_dims, sycl::range<1>(n_dims));
            sycl::buffer<double, 1> f3{sycl::range<1>(1)}, f4{sycl::range<1>(1)};
            const st::dataset<st::col_major, sycl::buffer<double, 1>> ds(n_dims, 37, obs);
            gpu::submit_basic(
                q, mean, ds,
                gpu::make_central_func<gpu::central_moment_func_user_mean<double, false>>(
                    o2, o3, o4, f3, f4));
        }
        EXPECT_EQ(c_ptr, c_buf);
        // Second moment of dimension 0 around 0.5, by hand in long double.
        long double q2 = 0;
        for (std::int64_t i = 0; i < 37; ++i) {
            const long double e = static_cast<long double>(data.value(0, i)) - 0.5L;
            q2 += e * e;
        }
        EXPECT_NEAR(c_buf[0], static_cast<double>(q2 / (37.0L - 1.0L)), 1e-12 * (1 + q2));
    }
}

}  // namespace
