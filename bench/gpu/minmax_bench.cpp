// Extremes beside the mean on the same data, on the default emulated GPU: min_max, min and max
// against mean (the baseline), pointer form, each ratio measured in the same run.
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <sycl/sycl.hpp>

#include "tavrel/qnd/stats.hpp"

namespace {

namespace stats = tavrel::qnd::stats;

// n_dims x n_observations of float in row-major order, in USM shared memory.
struct bench_data {
    sycl::queue queue{sycl::gpu_selector_v};
    std::int64_t n_dims;
    std::int64_t n_observations;
    float* observations;
    float* out_a;
    float* out_b;

    bench_data(std::int64_t dims, std::int64_t n) : n_dims(dims), n_observations(n) {
        observations = sycl::malloc_shared<float>(dims * n, queue);
        out_a = sycl::malloc_shared<float>(dims, queue);
        out_b = sycl::malloc_shared<float>(dims, queue);
        std::mt19937 rng(42);
        std::normal_distribution<float> dist(3.0f, 2.0f);
        for (std::int64_t i = 0; i < dims * n; ++i)
            observations[i] = dist(rng);
    }
    ~bench_data() {
        sycl::free(observations, queue);
        sycl::free(out_a, queue);
        sycl::free(out_b, queue);
    }
    stats::dataset<stats::row_major, float*> data() const {
        return {n_dims, n_observations, observations};
    }
};

bench_data& data_for(std::int64_t n) {
    static std::map<std::int64_t, std::unique_ptr<bench_data>> cache;
    auto& slot = cache[n];
    if (!slot)
        slot = std::make_unique<bench_data>(8, n);
    return *slot;
}

void set_rate(benchmark::State& state, const bench_data& b) {
    state.SetItemsProcessed(state.iterations() * b.n_dims * b.n_observations);
}

void BM_mean(benchmark::State& state) {
    auto& b = data_for(state.range(0));
    for (auto _ : state)
        stats::mean<1, float, stats::row_major>(b.queue, b.data(), b.out_a).wait();
    set_rate(state, b);
}

void BM_min_max(benchmark::State& state) {
    auto& b = data_for(state.range(0));
    for (auto _ : state)
        stats::min_max<1, float, stats::row_major>(b.queue, b.data(), b.out_a, b.out_b).wait();
    set_rate(state, b);
}

void BM_min(benchmark::State& state) {
    auto& b = data_for(state.range(0));
    for (auto _ : state)
        stats::min<1, float, stats::row_major>(b.queue, b.data(), b.out_a).wait();
    set_rate(state, b);
}

void BM_max(benchmark::State& state) {
    auto& b = data_for(state.range(0));
    for (auto _ : state)
        stats::max<1, float, stats::row_major>(b.queue, b.data(), b.out_a).wait();
    set_rate(state, b);
}

// One group (single launch), two launches, and three launches at 256 work-items per group.
// Wall time: the calling thread mostly waits for the device.
#define QND_SIZES ->Arg(200)->Arg(50000)->Arg(300000)->UseRealTime()->Unit(benchmark::kMicrosecond)
BENCHMARK(BM_mean) QND_SIZES;
BENCHMARK(BM_min_max) QND_SIZES;
BENCHMARK(BM_min) QND_SIZES;
BENCHMARK(BM_max) QND_SIZES;
#undef QND_SIZES

// Prints each extreme's time over the mean's time for the same count, after the usual table.
class ratio_reporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const auto& run : runs) {
            if (run.run_type != Run::RT_Iteration)
                continue;
            const std::string name = run.benchmark_name();
            const auto slash = name.find('/');
            const std::int64_t size = std::stoll(name.substr(slash + 1));
            times_[size][name.substr(0, slash)] = run.GetAdjustedRealTime();
        }
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\nTime relative to BM_mean on the same data (lower is faster):\n");
        for (const auto& [size, by_name] : times_) {
            const auto mean = by_name.find("BM_mean");
            if (mean == by_name.end())
                continue;
            for (const auto& [name, time] : by_name)
                if (name != "BM_mean")
                    std::printf("  n %-8lld %-12s %.2f\n", static_cast<long long>(size),
                                name.c_str(), time / mean->second);
        }
    }

  private:
    std::map<std::int64_t, std::map<std::string, double>> times_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    ratio_reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
