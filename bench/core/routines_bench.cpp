// Throughput of the order-statistics and matrix routines of the core statistics component, with
// same-run baselines: the exact median against NumPy (timed by numpy_median.py in the same
// session; this program prints its own times), the covariance against a plain summing pass over
// the same array (counter of_read_bw: the pass's time over the covariance's), and the rank error
// of streaming quantiles on 10^7 values (counter max_rank_error, a fraction of the count).
//
// QND_CORE_BENCH_SHORT=1 divides every size by 20, for a quick run in CI.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "qnd_core/ss.h"

namespace {

int64_t scaled(int64_t n) {
    return std::getenv("QND_CORE_BENCH_SHORT") != nullptr ? n / 20 : n;
}

// Row 0 of the pool layer's threader table; nullptr runs on the calling thread.
const qnd_ss_threader_row* pool_table() {
    static qnd_ss_threader_row rows[QND_SS_THREADER_ROWS];
    static bool loaded = [] {
        void* h = dlopen(QND_BENCH_LIB_DIR "/libqnd_pool_thread.so.2", RTLD_NOW | RTLD_LOCAL);
        if (h == nullptr) {
            std::fprintf(stderr, "cannot open the pool layer: %s\n", dlerror());
            std::exit(1);
        }
        qnd_ss_threader_row r;
        r.for_each = reinterpret_cast<qnd_threader_for_fn>(dlsym(h, "qnd_rtk_serv_threader_for"));
        r.for_ordered = reinterpret_cast<qnd_threader_for_ordered_fn>(
            dlsym(h, "qnd_rtk_serv_threader_for_ordered"));
        r.sections =
            reinterpret_cast<qnd_threader_sections_fn>(dlsym(h, "qnd_rtk_serv_threader_sections"));
        r.ordered =
            reinterpret_cast<qnd_threader_ordered_fn>(dlsym(h, "qnd_rtk_serv_threader_ordered"));
        r.get_num_threads_limit = reinterpret_cast<qnd_threader_get_num_threads_limit_fn>(
            dlsym(h, "qnd_rtk_serv_threader_get_num_threads_limit"));
        std::fill(std::begin(rows), std::end(rows), r);
        return true;
    }();
    return loaded ? rows : nullptr;
}

// 16 x 4M doubles of N(0, 1), seed 5: the shape of the targets.
const std::vector<double>& data16() {
    static const std::vector<double> x = [] {
        std::vector<double> v(16 * scaled(4000000));
        std::mt19937_64 gen(5);
        std::normal_distribution<double> dist(0, 1);
        for (double& e : v) {
            e = 1e8 + dist(gen);
        }
        return v;
    }();
    return x;
}

struct task_of {
    int64_t dims, obs, storage;
    qnd_ss_task* task = nullptr;
    task_of(int64_t d, int64_t n, int64_t s, const double* x) : dims(d), obs(n), storage(s) {
        __rtkdSSNewTask(&task, &dims, &obs, &storage, x, nullptr, nullptr, 1);
    }
    ~task_of() { __rtkSSDeleteTask(&task); }
};

// args: threads (1 or 2).
void median_16x4m(benchmark::State& state) {
    const std::vector<double>& x = data16();
    const int64_t n = x.size() / 16;
    task_of t(16, n, QND_SS_ROW_MAJOR, x.data());
    std::vector<double> median(16);
    __rtkdSSEditTask(t.task, QND_SS_ED_MEDIAN, median.data());
    const qnd_ss_threader_row* table = state.range(0) == 2 ? pool_table() : nullptr;
    for (auto _ : state) {
        if (_rtkdSSQuantiles(t.task, QND_SS_MEDIAN, 1, table) != QND_SS_OK) {
            state.SkipWithError("quantiles refused");
        }
        benchmark::DoNotOptimize(median.data());
    }
}

// The plain pass the covariance is measured against: a sum of the array's doubles, in as many
// parallel shares as the covariance uses, four vector accumulators each.
double plain_sum(const std::vector<double>& x, const qnd_ss_threader_row* table) {
    const int64_t parts = 8;
    std::vector<double> partial(parts);
    auto body = [&](int64_t p) {
        const int64_t lo = x.size() * p / parts, hi = x.size() * (p + 1) / parts;
        typedef double v4 __attribute__((vector_size(32)));
        v4 s[4] = {};
        int64_t i = lo;
        for (; i + 16 <= hi; i += 16) {
            for (int u = 0; u < 4; ++u) {
                v4 v;
                std::memcpy(&v, x.data() + i + 4 * u, sizeof v);
                s[u] += v;
            }
        }
        const v4 t = (s[0] + s[1]) + (s[2] + s[3]);
        partial[p] = t[0] + t[1] + t[2] + t[3];
        for (; i < hi; ++i) {
            partial[p] += x[i];
        }
    };
    table->for_each(parts, 0, &body, [](void* ctx, int64_t i, int32_t, int32_t) {
        (*static_cast<decltype(body)*>(ctx))(i);
    });
    double s = 0;
    for (double v : partial) {
        s += v;
    }
    return s;
}

// args: row major (1) or column major (0). Both timed in alternation, two threads.
void covariance_16x4m(benchmark::State& state) {
    const bool row_major = state.range(0) == 1;
    static std::vector<double> cols;
    const std::vector<double>& rows = data16();
    const int64_t n = rows.size() / 16;
    if (!row_major && cols.empty()) {
        cols.resize(rows.size());
        for (int64_t d = 0; d < 16; ++d) {
            for (int64_t i = 0; i < n; ++i) {
                cols[i * 16 + d] = rows[d * n + i];
            }
        }
    }
    const std::vector<double>& x = row_major ? rows : cols;
    task_of t(16, n, row_major ? QND_SS_ROW_MAJOR : QND_SS_COL_MAJOR, x.data());
    std::vector<double> cov(256);
    __rtkdSSEditTask(t.task, QND_SS_ED_COVARIANCE, cov.data());
    const qnd_ss_threader_row* table = pool_table();
    using clock = std::chrono::steady_clock;
    std::vector<double> ratios;
    for (auto _ : state) {
        const auto a = clock::now();
        benchmark::DoNotOptimize(plain_sum(x, table));
        const auto b = clock::now();
        _rtkdSSBasic(t.task, QND_SS_COVARIANCE, 1, table);
        const auto c = clock::now();
        ratios.push_back(std::chrono::duration<double>(b - a).count() /
                         std::chrono::duration<double>(c - b).count());
        state.SetIterationTime(std::chrono::duration<double>(c - b).count());
    }
    std::sort(ratios.begin(), ratios.end());
    state.counters["of_read_bw"] = ratios[ratios.size() / 2];
}

// Streaming quantiles of 10^7 uniform values: the largest rank error over 99 orders.
void stream_quantiles_1e7(benchmark::State& state) {
    const int64_t n = scaled(10000000), m = 99;
    std::vector<double> x(n), orders(m), q(m);
    std::mt19937_64 gen(7);
    for (double& e : x) {
        e = std::uniform_real_distribution<double>(0, 1)(gen);
    }
    for (int j = 0; j < m; ++j) {
        orders[j] = (j + 1) / 100.0;
    }
    task_of t(1, n, QND_SS_ROW_MAJOR, x.data());
    __rtkdSSEditTask(t.task, QND_SS_ED_QUANTILE_ORDERS_COUNT, &m);
    __rtkdSSEditTask(t.task, QND_SS_ED_QUANTILE_ORDERS, orders.data());
    __rtkdSSEditTask(t.task, QND_SS_ED_STREAM_QUANTILES, q.data());
    for (auto _ : state) {
        _rtkdSSStreamQuantiles(t.task, QND_SS_STREAM_QUANTILES, 1, nullptr);
    }
    std::sort(x.begin(), x.end());
    double worst = 0;
    for (int j = 0; j < m; ++j) {
        const double lo = std::lower_bound(x.begin(), x.end(), q[j]) - x.begin();
        const double hi = std::upper_bound(x.begin(), x.end(), q[j]) - x.begin();
        worst = std::max(worst, std::max(lo - orders[j] * n, orders[j] * n - hi) / n);
    }
    state.counters["max_rank_error"] = worst;
}

}  // namespace

BENCHMARK(median_16x4m)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(covariance_16x4m)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK(stream_quantiles_1e7)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK_MAIN();
