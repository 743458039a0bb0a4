// The moment engine on the default emulated GPU (mean and kurtosis, 16 dimensions by 1,000,000
// observations, both layouts) against a plain single-threaded loop over the same data, measured
// in the same run; the ratios are printed after the table.
#include <cmath>
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

namespace st = tavrel::qnd::stats;

constexpr std::int64_t n_dims = 16;
constexpr std::int64_t n_obs = 1000000;

// One layout's data in shared USM memory, made once and kept for the whole run.
struct bench_data {
    sycl::queue queue{sycl::gpu_selector_v};
    float* observations = nullptr;
    float* out = nullptr;

    explicit bench_data(st::layout layout) {
        observations = sycl::malloc_shared<float>(n_dims * n_obs, queue);
        out = sycl::malloc_shared<float>(n_dims, queue);
        std::mt19937 gen(42);
        std::normal_distribution<float> dist(3.0f, 2.0f);
        for (std::int64_t d = 0; d < n_dims; ++d) {
            for (std::int64_t i = 0; i < n_obs; ++i) {
                const std::int64_t at = layout == st::row_major ? d * n_obs + i : i * n_dims + d;
                observations[at] = dist(gen) + static_cast<float>(d);
            }
        }
    }
    ~bench_data() {
        sycl::free(observations, queue);
        sycl::free(out, queue);
    }
};

bench_data& data_for(st::layout layout) {
    static std::map<st::layout, std::unique_ptr<bench_data>> cache;
    auto& slot = cache[layout];
    if (!slot)
        slot = std::make_unique<bench_data>(layout);
    return *slot;
}

// The baseline: one pass in memory order, raw power sums per dimension in double, then the
// same definitions as the engine (reliability-weights variance, excess kurtosis).
template <st::layout L>
void plain_loop(const float* x, float* out, bool kurtosis) {
    std::vector<double> s1(n_dims), s2(n_dims), s3(n_dims), s4(n_dims);
    auto add = [&](std::int64_t d, double v) {
        s1[d] += v;
        if (kurtosis) {
            const double v2 = v * v;
            s2[d] += v2;
            s3[d] += v2 * v;
            s4[d] += v2 * v2;
        }
    };
    if (L == st::row_major) {
        for (std::int64_t d = 0; d < n_dims; ++d)
            for (std::int64_t i = 0; i < n_obs; ++i)
                add(d, x[d * n_obs + i]);
    } else {
        for (std::int64_t i = 0; i < n_obs; ++i)
            for (std::int64_t d = 0; d < n_dims; ++d)
                add(d, x[i * n_dims + d]);
    }
    const double n = static_cast<double>(n_obs);
    for (std::int64_t d = 0; d < n_dims; ++d) {
        const double m = s1[d] / n;
        if (!kurtosis) {
            out[d] = static_cast<float>(m);
            continue;
        }
        const double c2 = s2[d] - 2 * m * s1[d] + n * m * m;
        const double c4 =
            s4[d] - 4 * m * s3[d] + 6 * m * m * s2[d] - 4 * m * m * m * s1[d] + n * m * m * m * m;
        const double v = c2 / (n - 1);
        out[d] = static_cast<float>((c4 / n) / (v * v) - 3);
    }
}

template <st::layout L>
void BM_plain_loop_mean(benchmark::State& state) {
    bench_data& b = data_for(L);
    for (auto _ : state) {
        plain_loop<L>(b.observations, b.out, false);
        benchmark::DoNotOptimize(b.out[0]);
    }
}

template <st::layout L>
void BM_plain_loop_kurtosis(benchmark::State& state) {
    bench_data& b = data_for(L);
    for (auto _ : state) {
        plain_loop<L>(b.observations, b.out, true);
        benchmark::DoNotOptimize(b.out[0]);
    }
}

template <st::layout L>
void BM_engine_mean(benchmark::State& state) {
    bench_data& b = data_for(L);
    const st::dataset<L, float*> data{n_dims, n_obs, b.observations};
    for (auto _ : state) {
        st::mean<1, float, L>(b.queue, data, b.out).wait();
        benchmark::DoNotOptimize(b.out[0]);
    }
}

template <st::layout L>
void BM_engine_kurtosis(benchmark::State& state) {
    bench_data& b = data_for(L);
    const st::dataset<L, float*> data{n_dims, n_obs, b.observations};
    for (auto _ : state) {
        st::kurtosis<1, float, L>(b.queue, data, b.out).wait();
        benchmark::DoNotOptimize(b.out[0]);
    }
}

#define QND_MOMENT_BENCH(fn)                                                            \
    BENCHMARK_TEMPLATE(fn, st::row_major)->Unit(benchmark::kMillisecond)->MinTime(0.2); \
    BENCHMARK_TEMPLATE(fn, st::col_major)->Unit(benchmark::kMillisecond)->MinTime(0.2);
QND_MOMENT_BENCH(BM_plain_loop_mean)
QND_MOMENT_BENCH(BM_plain_loop_kurtosis)
QND_MOMENT_BENCH(BM_engine_mean)
QND_MOMENT_BENCH(BM_engine_kurtosis)

// Keeps each benchmark's real time per iteration, so that the ratios can be formed at the end.
class ratio_reporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            times_[run.run_name.function_name] = run.GetAdjustedRealTime();
        ConsoleReporter::ReportRuns(runs);
    }
    void print_ratios() const {
        std::printf("\nengine time / plain single-threaded loop time (same run):\n");
        for (const char* estimate : {"mean", "kurtosis"}) {
            for (const char* layout : {"st::row_major", "st::col_major"}) {
                const std::string suffix = std::string(estimate) + "<" + layout + ">";
                const auto engine = times_.find("BM_engine_" + suffix);
                const auto plain = times_.find("BM_plain_loop_" + suffix);
                if (engine == times_.end() || plain == times_.end())
                    continue;
                std::printf("  %-9s %-14s %8.2f\n", estimate, layout + 4,
                            engine->second / plain->second);
            }
        }
    }

  private:
    std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    ratio_reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.print_ratios();
    benchmark::Shutdown();
    return 0;
}
