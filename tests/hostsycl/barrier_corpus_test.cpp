// Barrier-shape kernels at several group sizes with partial last groups, checked against
// host references computed group by group.
#include <gtest/gtest.h>

#include <sycl/sycl.hpp>

#include <cstdint>
#include <functional>
#include <ostream>
#include <vector>

namespace {

class barrier_in_loop;
class two_barriers;
class reduce_then_reuse;
class stencil;

using values = std::vector<std::int64_t>;

// Runs `n` observations in groups of `local` on an emulated GPU; the global size is rounded
// up to whole groups and the kernels idle the tail themselves.
struct corpus_case {
    std::size_t local;
    std::size_t n;
};

values inputs(std::size_t n) {
    values x(n);
    for (std::size_t i = 0; i < n; ++i)
        x[i] = static_cast<std::int64_t>((i * 7919) % 1000) - 500;
    return x;
}

// The group's inputs as the kernels see them: the tail of the last group reads as 0.
values group_inputs(const values& x, std::size_t group, std::size_t local) {
    values g(local, 0);
    for (std::size_t l = 0; l < local; ++l)
        if (group * local + l < x.size())
            g[l] = x[group * local + l];
    return g;
}

// Runs `fill(cgh, in, out, n, local)` on a fresh queue and returns the first `n` outputs.
values run(const corpus_case& c,
           const std::function<void(sycl::handler&,
                                    sycl::accessor<std::int64_t, 1, sycl::access_mode::read>,
                                    sycl::accessor<std::int64_t, 1, sycl::access_mode::write>,
                                    std::size_t)>& submit_kernel) {
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(256)};
    const values x = inputs(c.n);
    values out(c.n, -999999);
    {
        sycl::buffer<std::int64_t, 1> in_buf(x.data(), sycl::range<1>(c.n));
        sycl::buffer<std::int64_t, 1> out_buf(out.data(), sycl::range<1>(c.n));
        q.submit([&](sycl::handler& cgh) {
            sycl::accessor<std::int64_t, 1, sycl::access_mode::read> in(in_buf, cgh);
            sycl::accessor<std::int64_t, 1, sycl::access_mode::write> o(out_buf, cgh);
            submit_kernel(cgh, in, o, (c.n + c.local - 1) / c.local * c.local);
        });
        q.wait_and_throw();
    }
    return out;
}

void PrintTo(const corpus_case& c, std::ostream* os) {
    *os << c.n << " items in groups of " << c.local;
}

class barrier_corpus : public ::testing::TestWithParam<corpus_case> {};

TEST_P(barrier_corpus, barrier_in_a_loop_passes_values_around_the_group) {
    const corpus_case c = GetParam();
    constexpr int rounds = 4;
    const values out = run(c, [&](sycl::handler& cgh, auto in, auto o, std::size_t global) {
        sycl::local_accessor<std::int64_t, 1> loc(sycl::range<1>(c.local), cgh);
        const std::size_t n = c.n;
        cgh.parallel_for<barrier_in_loop>(sycl::nd_range<1>(global, c.local),
                                          [=](sycl::nd_item<1> it) {
                                              const std::size_t l = it.get_local_id(0);
                                              const std::size_t L = it.get_local_range(0);
                                              const std::size_t id = it.get_global_id(0);
                                              std::int64_t v = id < n ? in[id] : 0;
                                              for (int r = 0; r < rounds; ++r) {
                                                  loc[l] = v;
                                                  sycl::group_barrier(it.get_group());
                                                  v = v + loc[(l + 1) % L] * (r + 1);
                                                  sycl::group_barrier(it.get_group());
                                              }
                                              if (id < n)
                                                  o[id] = v;
                                          });
    });
    const values x = inputs(c.n);
    for (std::size_t g = 0; g * c.local < c.n; ++g) {
        values v = group_inputs(x, g, c.local);
        for (int r = 0; r < rounds; ++r) {
            const values prev = v;
            for (std::size_t l = 0; l < c.local; ++l)
                v[l] = prev[l] + prev[(l + 1) % c.local] * (r + 1);
        }
        for (std::size_t l = 0; l < c.local && g * c.local + l < c.n; ++l)
            ASSERT_EQ(out[g * c.local + l], v[l]) << "group " << g << " item " << l;
    }
}

TEST_P(barrier_corpus, two_barriers_guard_a_reversal_in_place) {
    const corpus_case c = GetParam();
    const values out = run(c, [&](sycl::handler& cgh, auto in, auto o, std::size_t global) {
        sycl::local_accessor<std::int64_t, 1> loc(sycl::range<1>(c.local), cgh);
        const std::size_t n = c.n;
        cgh.parallel_for<two_barriers>(
            sycl::nd_range<1>(global, c.local), [=](sycl::nd_item<1> it) {
                const std::size_t l = it.get_local_id(0);
                const std::size_t L = it.get_local_range(0);
                const std::size_t id = it.get_global_id(0);
                loc[l] = id < n ? in[id] : 0;
                sycl::group_barrier(it.get_group());
                const std::int64_t mirrored = loc[L - 1 - l];
                sycl::group_barrier(it.get_group());
                loc[l] = mirrored + 1;  // without the second barrier this would spoil other reads
                if (id < n)
                    o[id] = mirrored;
            });
    });
    const values x = inputs(c.n);
    for (std::size_t g = 0; g * c.local < c.n; ++g) {
        const values v = group_inputs(x, g, c.local);
        for (std::size_t l = 0; l < c.local && g * c.local + l < c.n; ++l)
            ASSERT_EQ(out[g * c.local + l], v[c.local - 1 - l]) << "group " << g << " item " << l;
    }
}

TEST_P(barrier_corpus, reduction_then_reuse_of_local_memory) {
    const corpus_case c = GetParam();
    const values out = run(c, [&](sycl::handler& cgh, auto in, auto o, std::size_t global) {
        sycl::local_accessor<std::int64_t, 1> loc(sycl::range<1>(c.local), cgh);
        const std::size_t n = c.n;
        cgh.parallel_for<reduce_then_reuse>(
            sycl::nd_range<1>(global, c.local), [=](sycl::nd_item<1> it) {
                const std::size_t l = it.get_local_id(0);
                const std::size_t L = it.get_local_range(0);
                const std::size_t id = it.get_global_id(0);
                const std::int64_t x = id < n ? in[id] : 0;
                loc[l] = x;
                sycl::group_barrier(it.get_group());
                const std::int64_t sum =
                    sycl::reduce_over_group(it.get_group(), loc[l], sycl::plus<std::int64_t>());
                loc[l] = x * 2 + sum;
                sycl::group_barrier(it.get_group());
                if (id < n)
                    o[id] = loc[(l + 1) % L];
            });
    });
    const values x = inputs(c.n);
    for (std::size_t g = 0; g * c.local < c.n; ++g) {
        const values v = group_inputs(x, g, c.local);
        std::int64_t sum = 0;
        for (auto e : v)
            sum += e;
        for (std::size_t l = 0; l < c.local && g * c.local + l < c.n; ++l)
            ASSERT_EQ(out[g * c.local + l], v[(l + 1) % c.local] * 2 + sum)
                << "group " << g << " item " << l;
    }
}

TEST_P(barrier_corpus, three_point_stencil_inside_each_group) {
    const corpus_case c = GetParam();
    const values out = run(c, [&](sycl::handler& cgh, auto in, auto o, std::size_t global) {
        sycl::local_accessor<std::int64_t, 1> loc(sycl::range<1>(c.local), cgh);
        const std::size_t n = c.n;
        cgh.parallel_for<stencil>(sycl::nd_range<1>(global, c.local), [=](sycl::nd_item<1> it) {
            const std::size_t l = it.get_local_id(0);
            const std::size_t L = it.get_local_range(0);
            const std::size_t id = it.get_global_id(0);
            loc[l] = id < n ? in[id] : 0;
            sycl::group_barrier(it.get_group(), sycl::memory_scope::work_group);
            const std::int64_t left = l > 0 ? loc[l - 1] : 0;
            const std::int64_t right = l + 1 < L ? loc[l + 1] : 0;
            if (id < n)
                o[id] = left + 2 * loc[l] + right;
        });
    });
    const values x = inputs(c.n);
    for (std::size_t g = 0; g * c.local < c.n; ++g) {
        const values v = group_inputs(x, g, c.local);
        for (std::size_t l = 0; l < c.local && g * c.local + l < c.n; ++l) {
            const std::int64_t left = l > 0 ? v[l - 1] : 0;
            const std::int64_t right = l + 1 < c.local ? v[l + 1] : 0;
            ASSERT_EQ(out[g * c.local + l], left + 2 * v[l] + right)
                << "group " << g << " item " << l;
        }
    }
}

// Group sizes 2, 7, 64 and 256, each with a partial last group, and a case of one group.
INSTANTIATE_TEST_SUITE_P(group_sizes,
                         barrier_corpus,
                         ::testing::Values(corpus_case{2, 9},
                                           corpus_case{7, 100},
                                           corpus_case{64, 1000},
                                           corpus_case{256, 1000},
                                           corpus_case{256, 256},
                                           corpus_case{1, 5}),
                         [](const auto& info) {
                             return "local_" + std::to_string(info.param.local) + "_n_" +
                                    std::to_string(info.param.n);
                         });

}  // namespace
