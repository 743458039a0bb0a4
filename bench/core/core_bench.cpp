// Throughput of the core statistics component against the machine's read bandwidth, measured in
// the same run as a plain parallel sum over the same bytes, and against a straightforward
// two-pass loop. Every figure is reported as the counter `of_read_bw`: the component's rate over
// the plain sum's rate, both timed in alternation (medians of their iterations).
//
// QND_CORE_BENCH_SHORT=1 divides every size by 20, for a quick run in CI.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "qnd_core/ss.h"

namespace {

using clock_type = std::chrono::steady_clock;
using routine = int32_t (*)(qnd_ss_task*, uint64_t, int64_t, const qnd_ss_threader_row*);

// The component reached as the library reaches it: a threading layer opened at run time, the
// component loaded by that layer, the entries looked up by name.
struct engine {
    void* layer = nullptr;
    void* core = nullptr;
    qnd_ss_threader_row rows[QND_SS_THREADER_ROWS] = {};
    decltype(&__rtkdSSNewTask) new_d = nullptr;
    decltype(&__rtksSSNewTask) new_s = nullptr;
    decltype(&__rtkdSSEditTask) edit_d = nullptr;
    decltype(&__rtksSSEditTask) edit_s = nullptr;
    decltype(&__rtkSSDeleteTask) del = nullptr;
    routine basic_d = nullptr, basic_s = nullptr, minmax_d = nullptr, minmax_s = nullptr;

    engine() {
        layer = dlopen(QND_BENCH_LIB_DIR "/libqnd_pool_thread.so.2", RTLD_NOW | RTLD_LOCAL);
        if (layer == nullptr) {
            std::fprintf(stderr, "cannot open the pool layer: %s\n", dlerror());
            std::exit(1);
        }
        qnd_ss_threader_row r;
        r.for_each = sym<qnd_threader_for_fn>(layer, "qnd_rtk_serv_threader_for");
        r.for_ordered =
            sym<qnd_threader_for_ordered_fn>(layer, "qnd_rtk_serv_threader_for_ordered");
        r.sections = sym<qnd_threader_sections_fn>(layer, "qnd_rtk_serv_threader_sections");
        r.ordered = sym<qnd_threader_ordered_fn>(layer, "qnd_rtk_serv_threader_ordered");
        r.get_num_threads_limit = sym<qnd_threader_get_num_threads_limit_fn>(
            layer, "qnd_rtk_serv_threader_get_num_threads_limit");
        std::fill(std::begin(rows), std::end(rows), r);
        core = sym<void* (*)()>(layer, "qnd_serv_load_ktn")();
        if (core == nullptr) {
            std::fprintf(stderr, "the pool layer cannot load the component\n");
            std::exit(1);
        }
        new_d = sym<decltype(new_d)>(core, "__rtkdSSNewTask");
        new_s = sym<decltype(new_s)>(core, "__rtksSSNewTask");
        edit_d = sym<decltype(edit_d)>(core, "__rtkdSSEditTask");
        edit_s = sym<decltype(edit_s)>(core, "__rtksSSEditTask");
        del = sym<decltype(del)>(core, "__rtkSSDeleteTask");
        basic_d = sym<routine>(core, "_rtkdSSBasic");
        basic_s = sym<routine>(core, "_rtksSSBasic");
        minmax_d = sym<routine>(core, "_rtkdSSMinmax");
        minmax_s = sym<routine>(core, "_rtksSSMinmax");
    }

    template <class F>
    static F sym(void* h, const char* name) {
        void* p = dlsym(h, name);
        if (p == nullptr) {
            std::fprintf(stderr, "missing %s\n", name);
            std::exit(1);
        }
        return reinterpret_cast<F>(p);
    }

    template <class F>
    void parallel(int64_t n, F& f) const {
        rows[0].for_each(
            n, 0, &f, [](void* ctx, int64_t i, int32_t, int32_t) { (*static_cast<F*>(ctx))(i); });
    }
    int threads() const { return rows[0].get_num_threads_limit(); }
};

const engine& the_engine() {
    static engine e;
    return e;
}

int64_t scaled(int64_t n) {
    const char* s = std::getenv("QND_CORE_BENCH_SHORT");
    return s != nullptr && s[0] == '1' ? n / 20 : n;
}

struct data_case {
    const char* name;
    bool is_float;
    int64_t dims;
    int64_t n;
    int64_t storage;
};

const data_case cases[] = {
    {"16x4M_double_rowmajor", false, 16, 4000000, QND_SS_ROW_MAJOR},
    {"16x4M_double_colmajor", false, 16, 4000000, QND_SS_COL_MAJOR},
    {"1x50M_double", false, 1, 50000000, QND_SS_ROW_MAJOR},
    {"1x50M_float", true, 1, 50000000, QND_SS_ROW_MAJOR},
};

// The data of one case, made once; only one case's data live at a time.
struct case_data {
    const data_case* c = nullptr;
    std::vector<double> d;
    std::vector<float> f;
    int64_t n = 0;

    const void* data() const { return c->is_float ? static_cast<const void*>(f.data()) : d.data(); }
    size_t bytes() const { return c->dims * n * (c->is_float ? 4 : 8); }
};

const case_data& data_for(const data_case& c) {
    static case_data current;
    if (current.c != &c) {
        current = case_data{};
        current.c = &c;
        current.n = scaled(c.n);
        const int64_t total = c.dims * current.n;
        std::mt19937_64 gen(1);
        std::normal_distribution<double> dist(0.0, 1.0);
        // Offset data, as users' data are: a mean far from zero.
        if (c.is_float) {
            current.f.resize(total);
            for (auto& v : current.f) {
                v = static_cast<float>(1e4 + dist(gen));
            }
        } else {
            current.d.resize(total);
            for (auto& v : current.d) {
                v = 1e8 + dist(gen);
            }
        }
    }
    return current;
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// The plain parallel sum over the case's bytes, one contiguous range per item. The bytes are
// summed as 64-bit integers whatever the element type: converting float elements to double on
// the way would make the baseline bound by conversions instead of by memory, and integers
// cannot meet subnormal slow paths.
inline uint64_t plain_sum(const void* bytes, int64_t n_bytes) {
    const engine& e = the_engine();
    const auto* x = static_cast<const uint64_t*>(bytes);
    const int64_t total = n_bytes / 8;
    const int64_t parts = 4 * e.threads();
    std::vector<uint64_t> partial(parts);
    auto body = [&](int64_t p) {
        const int64_t lo = total * p / parts, hi = total * (p + 1) / parts;
        typedef uint64_t v2 __attribute__((vector_size(16)));
        v2 s[4] = {};
        int64_t i = lo;
        for (; i + 8 <= hi; i += 8) {
            // Unrolled at every optimisation level, so that the baseline does not depend on it.
#pragma GCC unroll 4
            for (int u = 0; u < 4; ++u) {
                v2 v;
                std::memcpy(&v, x + i + 2 * u, sizeof(v));
                s[u] += v;
            }
        }
        uint64_t r = 0;
        for (; i < hi; ++i) {
            r += x[i];
        }
        const v2 t = (s[0] + s[1]) + (s[2] + s[3]);
        partial[p] = r + t[0] + t[1];
    };
    e.parallel(parts, body);
    uint64_t sum = 0;
    for (uint64_t p : partial) {
        sum += p;
    }
    return sum;
}

double run_plain_sum(const case_data& cd) {
    const void* bytes = cd.c->is_float ? static_cast<const void*>(cd.f.data())
                                       : static_cast<const void*>(cd.d.data());
    return static_cast<double>(plain_sum(bytes, static_cast<int64_t>(cd.bytes())));
}

// Times the work of a benchmark and, in alternation with it, the plain parallel sum over the same
// bytes, so that both see the same state of the machine; reports the work's rate as a fraction
// of the plain sum's (medians of the iterations).
template <class F>
void measure(benchmark::State& state, const case_data& cd, F&& work) {
    std::vector<double> plain, timed;
    for (auto _ : state) {
        auto t0 = clock_type::now();
        benchmark::DoNotOptimize(run_plain_sum(cd));
        auto t1 = clock_type::now();
        work();
        auto t2 = clock_type::now();
        plain.push_back(std::chrono::duration<double>(t1 - t0).count());
        timed.push_back(std::chrono::duration<double>(t2 - t1).count());
    }
    const double bw = cd.bytes() / median(plain);
    const double rate = cd.bytes() / median(timed);
    state.counters["of_read_bw"] = rate / bw;
    state.counters["GBps"] = rate / 1e9;
    state.counters["read_bw_GBps"] = bw / 1e9;
}

constexpr uint64_t mean_mask = QND_SS_MEAN;
constexpr uint64_t moments_mask =
    0x3ff;  // mean, raw 2-4, central 2-4, kurtosis, skewness, variation
constexpr uint64_t minmax_mask = QND_SS_MIN | QND_SS_MAX;

// A task over the case with every output of the mask, run once per call.
struct task_run {
    const engine& e;
    const case_data& cd;
    std::vector<double> out[14];
    int64_t dims, n, storage;
    qnd_ss_task* task = nullptr;

    task_run(const engine& eng, const case_data& c) : e(eng), cd(c) {
        dims = cd.c->dims;
        n = cd.n;
        storage = cd.c->storage;
        int32_t status;
        if (cd.c->is_float) {
            status = e.new_s(&task, &dims, &n, &storage, cd.f.data(), nullptr, nullptr, 1);
        } else {
            status = e.new_d(&task, &dims, &n, &storage, cd.d.data(), nullptr, nullptr, 1);
        }
        if (status != 0) {
            std::fprintf(stderr, "task creation failed: %d\n", status);
            std::exit(1);
        }
        // Outputs in double for both element types (one array each, edited by parameter).
        const int32_t yes = 1;
        edit(QND_SS_ED_DOUBLE_RESULTS, &yes);
        const int32_t params[14] = {7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 23};
        for (int k = 0; k < 14; ++k) {
            out[k].assign(dims, 0);
            edit(params[k], out[k].data());
        }
    }
    ~task_run() { e.del(&task); }
    void edit(int32_t p, const void* v) {
        cd.c->is_float ? e.edit_s(task, p, v) : e.edit_d(task, p, v);
    }
    void run(routine r, uint64_t mask) {
        const int32_t status = r(task, mask, QND_SS_METHOD_FAST, e.rows);
        if (status != 0) {
            std::fprintf(stderr, "routine failed: %d\n", status);
            std::exit(1);
        }
        benchmark::DoNotOptimize(out[0].data());
    }
};

void bm_read_bandwidth(benchmark::State& state, const data_case* c) {
    const case_data& cd = data_for(*c);
    measure(state, cd, [&] { benchmark::DoNotOptimize(run_plain_sum(cd)); });
}

void bm_basic(benchmark::State& state, const data_case* c, uint64_t mask) {
    const engine& e = the_engine();
    const case_data& cd = data_for(*c);
    task_run t(e, cd);
    measure(state, cd, [&] { t.run(c->is_float ? e.basic_s : e.basic_d, mask); });
}

void bm_minmax(benchmark::State& state, const data_case* c) {
    const engine& e = the_engine();
    const case_data& cd = data_for(*c);
    task_run t(e, cd);
    measure(state, cd, [&] { t.run(c->is_float ? e.minmax_s : e.minmax_d, minmax_mask); });
}

// The straightforward alternative: mean in one parallel pass, then the sums of powers of
// deviations in a second, then the shape estimates, per dimension.
template <class T>
void two_pass(const T* x, int64_t dims, int64_t n, bool row_major, double* result) {
    const engine& e = the_engine();
    const int64_t parts = 4 * e.threads();
    std::vector<double> mean(dims, 0.0);
    std::vector<double> partial(parts * dims * 3);
    auto at = [&](int64_t i, int64_t d) { return row_major ? x[d * n + i] : x[i * dims + d]; };
    auto first = [&](int64_t p) {
        const int64_t lo = n * p / parts, hi = n * (p + 1) / parts;
        for (int64_t d = 0; d < dims; ++d) {
            double s = 0;
            for (int64_t i = lo; i < hi; ++i) {
                s += at(i, d);
            }
            partial[p * dims + d] = s;
        }
    };
    e.parallel(parts, first);
    for (int64_t d = 0; d < dims; ++d) {
        for (int64_t p = 0; p < parts; ++p) {
            mean[d] += partial[p * dims + d];
        }
        mean[d] /= n;
    }
    auto second = [&](int64_t p) {
        const int64_t lo = n * p / parts, hi = n * (p + 1) / parts;
        for (int64_t d = 0; d < dims; ++d) {
            double s2 = 0, s3 = 0, s4 = 0;
            for (int64_t i = lo; i < hi; ++i) {
                const double v = at(i, d) - mean[d];
                s2 += v * v;
                s3 += v * v * v;
                s4 += v * v * v * v;
            }
            double* o = &partial[(p * dims + d) * 3];
            o[0] = s2;
            o[1] = s3;
            o[2] = s4;
        }
    };
    e.parallel(parts, second);
    for (int64_t d = 0; d < dims; ++d) {
        double s2 = 0, s3 = 0, s4 = 0;
        for (int64_t p = 0; p < parts; ++p) {
            const double* o = &partial[(p * dims + d) * 3];
            s2 += o[0];
            s3 += o[1];
            s4 += o[2];
        }
        const double var = s2 / (n - 1);
        result[d * 3] = var;
        result[d * 3 + 1] = (s3 / n) / std::pow(var, 1.5);
        result[d * 3 + 2] = (s4 / n) / (var * var) - 3;
    }
}

void bm_two_pass(benchmark::State& state, const data_case* c) {
    const case_data& cd = data_for(*c);
    std::vector<double> result(c->dims * 3);
    const bool row = c->storage == QND_SS_ROW_MAJOR;
    measure(state, cd, [&] {
        if (c->is_float) {
            two_pass(cd.f.data(), c->dims, cd.n, row, result.data());
        } else {
            two_pass(cd.d.data(), c->dims, cd.n, row, result.data());
        }
        benchmark::DoNotOptimize(result.data());
    });
}

// Registered case by case, so that one case's data serve all its benchmarks.
int register_all() {
    for (const data_case& c : cases) {
        const std::string n = c.name;
        benchmark::RegisterBenchmark(("read_bandwidth/" + n).c_str(), bm_read_bandwidth, &c);
        benchmark::RegisterBenchmark(("mean/" + n).c_str(), bm_basic, &c, mean_mask);
        benchmark::RegisterBenchmark(("moments_skewness_kurtosis_variation/" + n).c_str(), bm_basic,
                                     &c, moments_mask);
        benchmark::RegisterBenchmark(("min_max/" + n).c_str(), bm_minmax, &c);
        benchmark::RegisterBenchmark(("two_pass_loop/" + n).c_str(), bm_two_pass, &c);
    }
    return 0;
}

const int registered = register_all();

}  // namespace

BENCHMARK_MAIN();
