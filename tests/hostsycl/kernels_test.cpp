// nd_range kernels on every device: the barrier-shape corpus, the group collectives and copy
// that the engines use, and each group's private local memory, against host references.
#include <gtest/gtest.h>

#include <sycl/sycl.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <vector>

#include "support/devices.hpp"

namespace {

using values = std::vector<std::int64_t>;
enum shape { barrier_in_loop, two_barriers, reduce_then_reuse, stencil };

// Devices made when a test runs, after the environment test set its variable: 0 is the default
// emulated GPU, -1 the CPU device (groups of 256 here), others emulated GPUs of that group size.
class kernels : public ::testing::TestWithParam<long> {
  protected:
    sycl::queue q{GetParam() == 0  ? sycl::device(sycl::gpu_selector_v)
                  : GetParam() < 0 ? qnd_test::cpu_device()
                                   : sycl::ext::hostsycl::make_gpu_device(GetParam())};
    const std::size_t local = std::min<std::size_t>(qnd_test::group_size_of(q.get_device()), 256);
};

// One corpus kernel over `x`; the global size is rounded up to whole groups, the tail reads 0.
values run_corpus(sycl::queue& q, shape s, const values& x, std::size_t local) {
    const std::size_t n = x.size();
    auto* io = sycl::malloc_shared<std::int64_t>(2 * n, q);
    std::copy(x.begin(), x.end(), io);
    q.submit([&](sycl::handler& cgh) {
         sycl::local_accessor<std::int64_t, 1> loc(sycl::range<1>(local), cgh);
         const sycl::nd_range<1> r((n + local - 1) / local * local, local);
         cgh.parallel_for(r, [=](sycl::nd_item<1> it) {
             const std::size_t l = it.get_local_id(0), L = it.get_local_range(0);
             const std::size_t id = it.get_global_id(0);
             const auto g = it.get_group();
             const std::int64_t x = id < n ? io[id] : 0;
             std::int64_t v = x;
             loc[l] = x;
             it.barrier();
             if (s == barrier_in_loop) {
                 for (int round = 1; round <= 4; ++round) {
                     v += loc[(l + 1) % L] * round;
                     sycl::group_barrier(g);
                     loc[l] = v;
                     sycl::group_barrier(g, sycl::memory_scope::work_group);
                 }
             } else if (s == two_barriers) {
                 v = loc[L - 1 - l];
                 sycl::group_barrier(g);
                 loc[l] = v + 1;  // without the second barrier this would spoil other reads
             } else if (s == reduce_then_reuse) {
                 loc[l] = x * 2 + sycl::reduce_over_group(g, loc[l], sycl::plus<>());
                 sycl::group_barrier(g);
                 v = loc[(l + 1) % L];
             } else {
                 v = (l > 0 ? loc[l - 1] : 0) + 2 * x + (l + 1 < L ? loc[l + 1] : 0);
             }
             if (id < n)
                 io[n + id] = v;
         });
     }).wait_and_throw();
    const values out(io + n, io + 2 * n);
    sycl::free(io, q);
    return out;
}

// The corpus computed group by group on the host.
values reference(shape s, const values& x, std::size_t L) {
    values out(x.size());
    for (std::size_t first = 0; first < x.size(); first += L) {
        values in(L, 0);
        std::copy(x.begin() + first, x.begin() + std::min(first + L, x.size()), in.begin());
        const std::int64_t sum = std::accumulate(in.begin(), in.end(), std::int64_t{0});
        values v = in;
        for (int round = 1; s == barrier_in_loop && round <= 4; ++round) {
            const values last = v;
            for (std::size_t l = 0; l < L; ++l)
                v[l] = last[l] + last[(l + 1) % L] * round;
        }
        for (std::size_t l = 0; l < L && first + l < x.size(); ++l) {
            const std::int64_t left = l > 0 ? in[l - 1] : 0, right = l + 1 < L ? in[l + 1] : 0;
            const std::int64_t by_shape[] = {v[l], in[L - 1 - l], in[(l + 1) % L] * 2 + sum,
                                             left + 2 * in[l] + right};
            out[first + l] = by_shape[s];
        }
    }
    return out;
}

TEST_P(kernels, barrier_shapes_match_group_by_group_references) {
    for (std::size_t n : {local, 3 * local + local / 2 + 1}) {  // one group; a partial last one
        values x(n);
        for (std::size_t i = 0; i < n; ++i)
            x[i] = static_cast<std::int64_t>((i * 7919) % 1000) - 500;
        for (shape s : {barrier_in_loop, two_barriers, reduce_then_reuse, stencil})
            EXPECT_EQ(run_corpus(q, s, x, local), reference(s, x, local)) << s << ", n " << n;
    }
}

// The engines' collectives back to back after a group copy: each work-item must read a result
// before the next overwrites it, and sums fold in local id order (far-apart magnitudes show it).
TEST_P(kernels, collectives_give_every_work_item_the_results_folded_in_local_id_order) {
    const std::size_t n = 3 * local, L = local;
    float* in = sycl::malloc_device<float>(n, q);
    float* out = sycl::malloc_shared<float>(4 * n, q);
    for (std::size_t i = 0; i < n; ++i)
        in[i] = static_cast<float>((i * 2654435761u) % 20001) * (i % 2 == 0 ? 1e4f : -1e-2f);
    q.submit([&](sycl::handler& cgh) {
         sycl::local_accessor<float, 1> loc(sycl::range<1>(L), cgh);
         cgh.parallel_for(sycl::nd_range<1>(n, L), [=](sycl::nd_item<1> it) {
             constexpr auto yes = sycl::access::decorated::yes;
             const auto g = it.get_group();
             const std::size_t i = it.get_global_id(0), l = it.get_local_id(0);
             using space = sycl::access::address_space;
             const auto from = sycl::address_space_cast<space::global_space, yes>(in + i - l);
             it.async_work_group_copy(loc.get_multi_ptr<yes>(), from, L).wait();
             float* r = out + 4 * i;
             r[0] = sycl::reduce_over_group(g, loc[L - 1 - l], 0.5f, sycl::plus<float>());
             r[1] = sycl::reduce_over_group(g, loc[l], sycl::minimum<float>());
             r[2] = sycl::reduce_over_group(g, loc[l], sycl::maximum<float>());
             // A sum of negative zeros is negative; the initial value 0 makes it positive.
             r[3] = std::signbit(sycl::reduce_over_group(g, -0.0f, 0.0f, sycl::plus<float>()));
         });
     }).wait_and_throw();
    for (std::size_t i = 0; i < n; ++i) {
        const float* x = in + (i - i % L);
        float sum = x[L - 1];
        for (std::size_t l = 1; l < L; ++l)
            sum += x[L - 1 - l];
        const auto [lo, hi] = std::minmax_element(x, x + L);
        const float want[] = {0.5f + sum, *lo, *hi, 0.0f};
        for (std::size_t j = 0; j < 4; ++j)
            ASSERT_EQ(out[4 * i + j], want[j]) << "item " << i << ", result " << j;
    }
    sycl::free(in, q);
    sycl::free(out, q);
}

// Groups run concurrently on the pool: each fills its two local arrays and the slack behind the
// second with its own id, then counts what it reads back that is not its own.
TEST_P(kernels, each_group_runs_once_and_sees_only_its_own_local_memory_and_slack) {
    constexpr std::size_t groups = 64;
    int* runs = sycl::malloc_shared<int>(groups, q);
    std::fill(runs, runs + groups, 0);
    std::size_t local_bytes = 0;
    sycl::ext::hostsycl::set_launch_observer(
        [&](const sycl::ext::hostsycl::launch_record& r) { local_bytes = r.local_memory_bytes; });
    q.submit([&](sycl::handler& cgh) {
         sycl::local_accessor<int, 1> a(sycl::range<1>(local), cgh), b(sycl::range<1>(local), cgh);
         const std::size_t L = local;
         cgh.parallel_for(sycl::nd_range<1>(L * groups, L), [=](sycl::nd_item<1> it) {
             const int g = static_cast<int>(it.get_group(0));
             const std::size_t l = it.get_local_id(0);
             a[l] = g;
             b[l] = -g;
             b[L + l] = 1000 + g;  // one array past b: the group's private slack
             sycl::group_barrier(it.get_group());
             int wrong = 0;
             for (std::size_t j = 0; j < L; ++j)
                 wrong += (a[j] != g) + (b[j] != -g) + (b[L + j] != 1000 + g);
             wrong = sycl::reduce_over_group(it.get_group(), wrong, sycl::plus<int>());
             if (l == 0)
                 runs[g] += 1 + wrong;
         });
     }).wait_and_throw();
    sycl::ext::hostsycl::set_launch_observer({});
    EXPECT_EQ(local_bytes, 2 * local * sizeof(int));
    for (std::size_t g = 0; g < groups; ++g)
        EXPECT_EQ(runs[g], 1) << "group " << g;
    sycl::free(runs, q);
}

INSTANTIATE_TEST_SUITE_P(devices,
                         kernels,
                         ::testing::Values(0, -1, 1, 2, 3, 8, 32),
                         [](auto& info) {
                             return info.param < 0 ? "cpu" : "gpu" + std::to_string(info.param);
                         });

}  // namespace
