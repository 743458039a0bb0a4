// 16 threads make 1,000 estimator calls each on three shared queues (CPU, two emulated GPUs), of
// every family, form, layout, weighting and masking; each result equals, bit for bit, the call
// alone.
#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "support/data.hpp"
#include "support/devices.hpp"
#include "support/extremes_data.hpp"
#include "support/moment_families.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;

constexpr std::int64_t n_dims = 3, n_observations = 37;

struct call_kind {
    int queue;   // index into the shared queues
    int family;  // the moment families, then min, max and min_max
    bool buffer_form, row_major, weighted, masked;
};

struct stress : ::testing::Test {
    std::vector<sycl::queue> queues{sycl::queue(cpu_device()), sycl::queue(sycl::gpu_selector_v),
                                    sycl::queue(sycl::ext::hostsycl::make_gpu_device(4))};
    std::vector<host_data<double>> data;  // by row_major, weighted, masked
    std::vector<call_kind> kinds;

    stress() {
        for (int k = 0; k < 8; ++k) {
            host_data<double> h =
                skewed_data<double>(n_dims, n_observations, k & 4 ? st::row_major : st::col_major);
            if (k & 2)
                h.weights = random_weights<double>(n_observations);
            if (k & 1)
                h.indices = {1, 0, 1};
            data.push_back(h);
        }
        const int families = static_cast<int>(moment_families().size()) + 3;
        for (int q = 0; q < 3; ++q)
            for (int f = 0; f < families; ++f)
                for (int k = 0; k < 16; ++k)
                    kinds.push_back({q, f, (k & 8) != 0, (k & 4) != 0, (k & 2) != 0, (k & 1) != 0});
    }

    std::vector<double> run(const call_kind& c) {
        sycl::queue& q = queues[c.queue];
        const host_data<double>& h = data[(c.row_major ? 4 : 0) + (c.weighted ? 2 : 0) + c.masked];
        const int n_moments = static_cast<int>(moment_families().size());
        std::vector<double> out;
        if (c.family >= n_moments) {
            const auto e = static_cast<extreme>(c.family - n_moments);
            for (const auto& [lo, hi] :
                 c.row_major ? run_extreme<double, st::row_major>(q, e, c.buffer_form, h, -7.0)
                             : run_extreme<double, st::col_major>(q, e, c.buffer_form, h, -7.0))
                out.insert(out.end(), {lo, hi});
            return out;
        }
        const moment_family f = moment_families()[c.family].family;
        const std::array<std::size_t, 4> all{n_dims, n_dims, n_dims, n_dims};
        for (const std::vector<double>& o :
             c.row_major
                 ? run_family<1, double, st::row_major>(q, f, c.buffer_form, h, nullptr, all, -7.0)
                 : run_family<1, double, st::col_major>(q, f, c.buffer_form, h, nullptr, all, -7.0))
            out.insert(out.end(), o.begin(), o.end());
        return out;
    }
};

TEST_F(stress, sixteen_threads_on_shared_queues_give_the_results_of_calls_made_alone) {
    std::vector<std::vector<double>> alone;
    for (const call_kind& c : kinds) {
        alone.push_back(run(c));
        EXPECT_NE(alone.back(), std::vector<double>(alone.back().size(), -7.0))
            << "computed nothing";
    }

    constexpr int n_threads = 16, calls_per_thread = 1000;
    std::vector<int> mismatches(n_threads, 0), first_bad(n_threads, -1);
    std::vector<std::thread> threads;
    for (int t = 0; t < n_threads; ++t) {
        threads.emplace_back([&, t] {
            std::mt19937 pick(static_cast<unsigned>(t) + 1);
            std::uniform_int_distribution<std::size_t> any(0, kinds.size() - 1);
            for (int k = 0; k < calls_per_thread; ++k) {
                const std::size_t i = any(pick);
                const std::vector<double> got = run(kinds[i]);
                if (got.size() != alone[i].size() ||
                    std::memcmp(got.data(), alone[i].data(), got.size() * sizeof(double)) != 0) {
                    ++mismatches[t];
                    first_bad[t] = static_cast<int>(i);
                }
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    for (int t = 0; t < n_threads; ++t) {
        if (first_bad[t] < 0)
            continue;
        const call_kind& c = kinds[first_bad[t]];
        ADD_FAILURE() << "thread " << t << ": " << mismatches[t] << " results differ, e.g. queue "
                      << c.queue << " family " << c.family << (c.buffer_form ? " buffer" : " usm")
                      << (c.row_major ? " row" : " col") << (c.weighted ? " weighted" : "")
                      << (c.masked ? " masked" : "");
    }
}

}  // namespace
