// Cost per work-item of a barrier-heavy kernel and of a group reduction, each reported as a
// ratio against a plain host loop doing the same arithmetic, measured in the same run.
#include <benchmark/benchmark.h>

#include <sycl/sycl.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <vector>

namespace {

class barrier_rounds_kernel;
class group_sum_kernel;

constexpr std::size_t items = std::size_t(1) << 18;
constexpr int rounds = 8;

using clock_type = std::chrono::steady_clock;

double seconds_since(clock_type::time_point t0) {
    return std::chrono::duration<double>(clock_type::now() - t0).count();
}

// The arithmetic of the barrier kernel, group by group, as a host loop.
void barrier_rounds_on_host(const std::vector<float>& x,
                            std::vector<float>& out,
                            std::size_t local) {
    std::vector<float> v(local), prev(local);
    for (std::size_t g = 0; g < x.size() / local; ++g) {
        std::copy(x.begin() + g * local, x.begin() + (g + 1) * local, v.begin());
        for (int r = 0; r < rounds; ++r) {
            prev = v;
            for (std::size_t l = 0; l < local; ++l)
                v[l] = prev[l] + 0.5f * prev[(l + 1) % local];
        }
        std::copy(v.begin(), v.end(), out.begin() + g * local);
    }
}

void group_sums_on_host(const std::vector<float>& x, std::vector<float>& out, std::size_t local) {
    for (std::size_t g = 0; g < x.size() / local; ++g) {
        float s = 0;
        for (std::size_t l = 0; l < local; ++l)
            s += x[g * local + l];
        out[g] = s;
    }
}

// Best of a few runs of the host loop, per item.
template <typename F>
double baseline_per_item(F&& loop) {
    double best = 1e30;
    for (int k = 0; k < 5; ++k) {
        const auto t0 = clock_type::now();
        loop();
        best = std::min(best, seconds_since(t0));
    }
    return best / items;
}

void report(benchmark::State& state, double total_seconds, double baseline) {
    const double per_item = total_seconds / (static_cast<double>(state.iterations()) * items);
    state.counters["ns_per_item"] = per_item * 1e9;
    state.counters["host_loop_ns_per_item"] = baseline * 1e9;
    state.counters["ratio_to_host_loop"] = per_item / baseline;
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(items));
}

void barrier_heavy(benchmark::State& state) {
    const std::size_t local = static_cast<std::size_t>(state.range(0));
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(local)};
    std::vector<float> x(items), ref(items);
    for (std::size_t i = 0; i < items; ++i)
        x[i] = static_cast<float>(i % 97);
    const double baseline = baseline_per_item([&] {
        barrier_rounds_on_host(x, ref, local);
        benchmark::DoNotOptimize(ref.data());
    });
    float* in = sycl::malloc_shared<float>(items, q);
    float* out = sycl::malloc_shared<float>(items, q);
    std::copy(x.begin(), x.end(), in);
    double total = 0;
    for (auto _ : state) {
        const auto t0 = clock_type::now();
        q.submit([&](sycl::handler& cgh) {
             sycl::local_accessor<float, 1> loc(sycl::range<1>(local), cgh);
             cgh.parallel_for<barrier_rounds_kernel>(sycl::nd_range<1>(items, local),
                                                     [=](sycl::nd_item<1> it) {
                                                         const std::size_t l = it.get_local_id(0);
                                                         float v = in[it.get_global_id(0)];
                                                         for (int r = 0; r < rounds; ++r) {
                                                             loc[l] = v;
                                                             sycl::group_barrier(it.get_group());
                                                             v = v + 0.5f * loc[(l + 1) % local];
                                                             sycl::group_barrier(it.get_group());
                                                         }
                                                         out[it.get_global_id(0)] = v;
                                                     });
         }).wait();
        total += seconds_since(t0);
        state.SetIterationTime(seconds_since(t0));
    }
    if (!std::equal(ref.begin(), ref.end(), out))
        state.SkipWithError("kernel and host loop disagree");
    report(state, total, baseline);
    sycl::free(in, q);
    sycl::free(out, q);
}

void group_reduction(benchmark::State& state) {
    const std::size_t local = static_cast<std::size_t>(state.range(0));
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(local)};
    std::vector<float> x(items), ref(items / local);
    for (std::size_t i = 0; i < items; ++i)
        x[i] = static_cast<float>(i % 13);
    const double baseline = baseline_per_item([&] {
        group_sums_on_host(x, ref, local);
        benchmark::DoNotOptimize(ref.data());
    });
    float* in = sycl::malloc_shared<float>(items, q);
    float* out = sycl::malloc_shared<float>(items / local, q);
    std::copy(x.begin(), x.end(), in);
    double total = 0;
    for (auto _ : state) {
        const auto t0 = clock_type::now();
        q.submit([&](sycl::handler& cgh) {
             cgh.parallel_for<group_sum_kernel>(
                 sycl::nd_range<1>(items, local), [=](sycl::nd_item<1> it) {
                     const float s = sycl::reduce_over_group(
                         it.get_group(), in[it.get_global_id(0)], sycl::plus<float>());
                     if (it.get_local_id(0) == 0)
                         out[it.get_group(0)] = s;
                 });
         }).wait();
        total += seconds_since(t0);
        state.SetIterationTime(seconds_since(t0));
    }
    if (!std::equal(ref.begin(), ref.end(), out))
        state.SkipWithError("kernel and host loop disagree");
    report(state, total, baseline);
    sycl::free(in, q);
    sycl::free(out, q);
}

BENCHMARK(barrier_heavy)->Arg(64)->Arg(256)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(group_reduction)->Arg(64)->Arg(256)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
