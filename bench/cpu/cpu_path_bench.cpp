// What the host-task path adds to the core library's own time: each estimate is timed through
// the public interface on a CPU queue and through the core library called directly on the same
// memory, in the same run, and reported as the ratio of the two; plus the end-to-end latency of
// a small mean.
//
// Counters: core_us and public_us, the medians of paired samples; added_us, their difference;
// public_over_core, their ratio. QND_CPU_BENCH_SHORT=1 divides the observation counts by 20, for
// a quick run in CI.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <sycl/sycl.hpp>

#include "qnd_core/ss.h"
#include "tavrel/qnd/stats.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using routine = int32_t (*)(qnd_ss_task*, uint64_t, int64_t, const qnd_ss_threader_row*);

template <class F>
F symbol(void* module, const char* name) {
    void* address = dlsym(module, name);
    if (address == nullptr) {
        std::fprintf(stderr, "missing %s\n", name);
        std::exit(1);
    }
    return reinterpret_cast<F>(address);
}

// The core library as the library reaches it: the pool layer from the library's directory, the
// component through that layer, the entries by name.
struct core_library {
    qnd_ss_threader_row rows[QND_SS_THREADER_ROWS] = {};
    decltype(&__rtkdSSNewTask) new_task = nullptr;
    decltype(&__rtkdSSEditTask) edit_task = nullptr;
    decltype(&__rtkdSSEditMoments) edit_moments = nullptr;
    decltype(&__rtkSSDeleteTask) delete_task = nullptr;
    routine basic = nullptr;

    core_library() {
        void* layer = dlopen(QND_BENCH_LIB_DIR "/libqnd_pool_thread.so.2", RTLD_NOW | RTLD_LOCAL);
        if (layer == nullptr) {
            std::fprintf(stderr, "cannot open the pool layer: %s\n", dlerror());
            std::exit(1);
        }
        qnd_ss_threader_row row;
        row.for_each = symbol<qnd_threader_for_fn>(layer, "qnd_rtk_serv_threader_for");
        row.for_ordered =
            symbol<qnd_threader_for_ordered_fn>(layer, "qnd_rtk_serv_threader_for_ordered");
        row.sections = symbol<qnd_threader_sections_fn>(layer, "qnd_rtk_serv_threader_sections");
        row.ordered = symbol<qnd_threader_ordered_fn>(layer, "qnd_rtk_serv_threader_ordered");
        row.get_num_threads_limit = symbol<qnd_threader_get_num_threads_limit_fn>(
            layer, "qnd_rtk_serv_threader_get_num_threads_limit");
        for (qnd_ss_threader_row& r : rows)
            r = row;
        void* core = symbol<void* (*)()>(layer, "qnd_serv_load_ktn")();
        if (core == nullptr) {
            std::fprintf(stderr, "the pool layer cannot load the component\n");
            std::exit(1);
        }
        new_task = symbol<decltype(new_task)>(core, "__rtkdSSNewTask");
        edit_task = symbol<decltype(edit_task)>(core, "__rtkdSSEditTask");
        edit_moments = symbol<decltype(edit_moments)>(core, "__rtkdSSEditMoments");
        delete_task = symbol<decltype(delete_task)>(core, "__rtkSSDeleteTask");
        basic = symbol<routine>(core, "_rtkdSSBasic");
    }
};

core_library& core() {
    static core_library library;
    return library;
}

// One matrix in shared memory, with every array either path needs.
struct workload {
    sycl::queue queue{sycl::cpu_selector_v};
    std::int64_t n_dims;
    std::int64_t n_observations;
    double* x;
    double* out;
    double* scratch[6];

    workload(std::int64_t dims, std::int64_t observations)
        : n_dims(dims), n_observations(observations) {
        x = sycl::malloc_shared<double>(static_cast<std::size_t>(dims * observations), queue);
        std::mt19937_64 gen(11);
        std::normal_distribution<double> normal(0.0, 1.0);
        for (std::int64_t k = 0; k < dims * observations; ++k)
            x[k] = 1000.0 + normal(gen);
        out = sycl::malloc_shared<double>(static_cast<std::size_t>(dims), queue);
        for (double*& s : scratch)
            s = sycl::malloc_shared<double>(static_cast<std::size_t>(dims), queue);
    }
    ~workload() {
        for (double* s : scratch)
            sycl::free(s, queue);
        sycl::free(out, queue);
        sycl::free(x, queue);
    }
};

enum class estimate { mean, kurtosis };

// The core library alone: new task, edits, the routine, delete, on the calling thread.
void core_direct(const workload& w, estimate e, st::layout layout) {
    core_library& c = core();
    std::int64_t dims = w.n_dims, count = w.n_observations, storage = layout;
    qnd_ss_task* task = nullptr;
    int32_t status = c.new_task(&task, &dims, &count, &storage, w.x, nullptr, nullptr, 1);
    if (e == estimate::mean) {
        status |= c.edit_task(task, QND_SS_ED_MEAN, w.out);
        status |= c.basic(task, QND_SS_MEAN, QND_SS_METHOD_FAST, c.rows);
    } else {
        double* const* s = w.scratch;
        status |= c.edit_moments(task, s[0], s[1], s[2], s[3], s[4], nullptr, s[5]);
        status |= c.edit_task(task, QND_SS_ED_KURTOSIS, w.out);
        status |= c.basic(task, QND_SS_KURTOSIS, QND_SS_METHOD_FAST, c.rows);
    }
    status |= c.delete_task(&task);
    if (status != 0) {
        std::fprintf(stderr, "the core library failed\n");
        std::exit(1);
    }
}

// The public interface on the CPU queue: the frame, the temporaries, the host task.
void public_cpu(workload& w, estimate e, st::layout layout) {
    const auto run = [&](auto layout_value) {
        constexpr st::layout L = decltype(layout_value)::value;
        const st::dataset<L, double*> data(w.n_dims, w.n_observations, w.x);
        if (e == estimate::mean)
            st::mean<1, double, L>(w.queue, data, w.out).wait();
        else
            st::kurtosis<1, double, L>(w.queue, data, w.out).wait();
    };
    if (layout == st::row_major)
        run(std::integral_constant<st::layout, st::row_major>{});
    else
        run(std::integral_constant<st::layout, st::col_major>{});
}

double median(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    const std::size_t n = samples.size();
    return n % 2 == 1 ? samples[n / 2] : 0.5 * (samples[n / 2 - 1] + samples[n / 2]);
}

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// One iteration runs both paths back to back, in alternating order, so that both see the same
// state of a shared machine; the figures are the medians of the paired samples.
void paired(benchmark::State& state, workload& w, estimate e, st::layout layout) {
    std::vector<double> core_s, public_s;
    bool core_first = true;
    for (auto _ : state) {
        for (int k = 0; k < 2; ++k) {
            const auto start = std::chrono::steady_clock::now();
            if (core_first == (k == 0)) {
                core_direct(w, e, layout);
                core_s.push_back(seconds_since(start));
            } else {
                public_cpu(w, e, layout);
                public_s.push_back(seconds_since(start));
            }
        }
        core_first = !core_first;
    }
    const double core_median = median(core_s), public_median = median(public_s);
    state.counters["core_us"] = core_median * 1e6;
    state.counters["public_us"] = public_median * 1e6;
    state.counters["added_us"] = (public_median - core_median) * 1e6;
    state.counters["public_over_core"] = public_median / core_median;
    state.SetBytesProcessed(state.iterations() * 2 * w.n_dims * w.n_observations * 8);
}

std::string size_label(std::int64_t dims, std::int64_t observations) {
    return std::to_string(dims) + "x" + std::to_string(observations);
}

}  // namespace

int main(int argc, char** argv) {
    const bool short_run = std::getenv("QND_CPU_BENCH_SHORT") != nullptr;
    const std::int64_t large = short_run ? 50000 : 1000000;
    benchmark::Initialize(&argc, argv);

    std::vector<std::unique_ptr<workload>> workloads;
    workloads.push_back(std::make_unique<workload>(16, large));
    workloads.push_back(std::make_unique<workload>(1, 1000));
    struct bench_case {
        workload* w;
        estimate e;
        const char* e_name;
        st::layout layout;
        const char* layout_name;
    };
    const bench_case cases[] = {
        {workloads[0].get(), estimate::mean, "mean", st::row_major, "row_major"},
        {workloads[0].get(), estimate::mean, "mean", st::col_major, "col_major"},
        {workloads[0].get(), estimate::kurtosis, "kurtosis", st::row_major, "row_major"},
        {workloads[0].get(), estimate::kurtosis, "kurtosis", st::col_major, "col_major"},
        // The latency of the path: a call whose work is next to nothing.
        {workloads[1].get(), estimate::mean, "mean", st::row_major, "row_major"},
    };
    for (const bench_case& c : cases) {
        const std::string name = std::string("core_vs_public_cpu_queue/") + c.e_name + "/" +
                                 c.layout_name + "/" + size_label(c.w->n_dims, c.w->n_observations);
        benchmark::RegisterBenchmark(
            name.c_str(), [c](benchmark::State& state) { paired(state, *c.w, c.e, c.layout); })
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
