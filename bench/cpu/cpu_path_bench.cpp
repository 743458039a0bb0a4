// What the host-task path adds to the core library's own time: each estimate is timed through
// the public interface on a CPU queue and through the core library called directly on the same
// memory, in the same run, and reported as the ratio of the two; plus the end-to-end latency of
// a small mean.
//
// QND_CPU_BENCH_SHORT=1 divides the observation counts by 20, for a quick run in CI.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <map>
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

std::map<std::string, double> seconds_of;  // real time per iteration, by benchmark name

// Keeps each run's time, to print the ratios at the end.
class ratio_reporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs)
            if (run.run_type == Run::RT_Iteration && !run.error_occurred)
                seconds_of[run.run_name.function_name] =
                    run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
        ConsoleReporter::ReportRuns(runs);
    }
};

std::string size_label(std::int64_t dims, std::int64_t observations) {
    return std::to_string(dims) + "x" + std::to_string(observations);
}

}  // namespace

int main(int argc, char** argv) {
    const bool short_run = std::getenv("QND_CPU_BENCH_SHORT") != nullptr;
    const std::int64_t large = short_run ? 50000 : 1000000;
    benchmark::Initialize(&argc, argv);

    struct pair_names {
        std::string label, core, path;
    };
    std::vector<pair_names> pairs;
    static std::vector<std::unique_ptr<workload>> workloads;
    workloads.push_back(std::make_unique<workload>(16, large));
    workloads.push_back(std::make_unique<workload>(1, 1000));
    const struct {
        workload* w;
        estimate e;
        const char* e_name;
        st::layout layout;
        const char* layout_name;
    } cases[] = {
        {workloads[0].get(), estimate::mean, "mean", st::row_major, "row_major"},
        {workloads[0].get(), estimate::mean, "mean", st::col_major, "col_major"},
        {workloads[0].get(), estimate::kurtosis, "kurtosis", st::row_major, "row_major"},
        {workloads[0].get(), estimate::kurtosis, "kurtosis", st::col_major, "col_major"},
        {workloads[1].get(), estimate::mean, "mean", st::row_major, "row_major"},
    };
    for (const auto& c : cases) {
        const std::string label = std::string(c.e_name) + "/" + c.layout_name + "/" +
                                  size_label(c.w->n_dims, c.w->n_observations);
        const std::string core_name = "core_direct/" + label;
        const std::string path_name = "public_cpu_queue/" + label;
        benchmark::RegisterBenchmark(
            core_name.c_str(),
            [c](benchmark::State& state) {
                for (auto _ : state)
                    core_direct(*c.w, c.e, c.layout);
                state.SetBytesProcessed(state.iterations() * c.w->n_dims * c.w->n_observations * 8);
            })
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(
            path_name.c_str(),
            [c](benchmark::State& state) {
                for (auto _ : state)
                    public_cpu(*c.w, c.e, c.layout);
                state.SetBytesProcessed(state.iterations() * c.w->n_dims * c.w->n_observations * 8);
            })
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
        pairs.push_back({label, core_name, path_name});
    }

    ratio_reporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nThe host-task path against the core library alone (same run):\n");
    for (const pair_names& p : pairs) {
        if (!seconds_of.count(p.core) || !seconds_of.count(p.path))
            continue;
        const double core_s = seconds_of[p.core], path_s = seconds_of[p.path];
        std::printf("  %-36s core %10.1f us  public %10.1f us  ratio %.3f (%+.1f%%, %+.1f us)\n",
                    p.label.c_str(), core_s * 1e6, path_s * 1e6, path_s / core_s,
                    (path_s / core_s - 1.0) * 100.0, (path_s - core_s) * 1e6);
    }
    workloads.clear();
    benchmark::Shutdown();
    return 0;
}
