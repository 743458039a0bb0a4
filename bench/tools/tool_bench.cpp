// How fast qnd-stats reads its inputs, as a ratio to a plain read of the same file from the page
// cache measured in the same run, and how much memory a whole run takes on a file many times
// larger than its chunk.
//
// Counters: MB/s of the file (bytes_per_second); over_plain_read, the reader's time over the
// plain read's; peak_MB, the program's peak resident memory, beside file_MB and chunk_MB.
// QND_TOOL_BENCH_SHORT=1 makes the files 32 times smaller, for a quick run in CI.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "data_source.hpp"

namespace {

using namespace qnd_stats;

std::size_t scaled(std::size_t n) {
    return std::getenv("QND_TOOL_BENCH_SHORT") ? n / 32 : n;
}

// A file of this run, removed when the program ends.
std::string bench_path(const char* name) {
    struct made_files {
        std::vector<std::string> paths;
        ~made_files() {
            for (const std::string& p : paths)
                std::remove(p.c_str());
        }
    };
    static made_files made;
    made.paths.push_back((std::getenv("TMPDIR") ? std::string(std::getenv("TMPDIR")) : "/tmp") +
                         "/qnd_tool_bench_" + std::to_string(getpid()) + "_" + name);
    return made.paths.back();
}

// A numeric CSV of 6 columns with a header, about 64 MB.
const std::string& csv_file() {
    static const std::string path = [] {
        const std::string p = bench_path("data.csv");
        std::FILE* f = std::fopen(p.c_str(), "w");
        std::mt19937_64 gen(1);
        std::normal_distribution<double> z(0, 100);
        std::fputs("a,b,c,d,e,f\n", f);
        for (std::size_t i = 0, n = scaled(1000000); i < n; ++i)
            std::fprintf(f, "%.6f,%.6f,%.6f,%.6f,%.6f,%.6f\n", z(gen), z(gen), z(gen), z(gen),
                         z(gen), z(gen));
        std::fclose(f);
        return p;
    }();
    return path;
}

// A float64 .npy file of 8 columns in C order, 256 MB.
const std::string& npy_file() {
    static const std::string path = [] {
        const std::string p = bench_path("data.npy");
        const std::size_t rows = scaled(4 << 20), cols = 8;
        std::string header = "{'descr': '<f8', 'fortran_order': False, 'shape': (" +
                             std::to_string(rows) + ", 8), }";
        while ((10 + header.size() + 1) % 64 != 0)
            header += ' ';
        header += '\n';
        std::FILE* f = std::fopen(p.c_str(), "wb");
        std::fwrite("\x93NUMPY\x01\x00", 1, 8, f);
        const unsigned char len[2] = {static_cast<unsigned char>(header.size() & 0xff),
                                      static_cast<unsigned char>(header.size() >> 8)};
        std::fwrite(len, 1, 2, f);
        std::fputs(header.c_str(), f);
        std::vector<double> row(cols * 4096);
        for (std::size_t i = 0; i < rows; i += 4096) {
            for (std::size_t k = 0; k < row.size(); ++k)
                row[k] = static_cast<double>(i * cols + k);
            std::fwrite(row.data(), sizeof(double), row.size(), f);
        }
        std::fclose(f);
        return p;
    }();
    return path;
}

double file_bytes(const std::string& path) {
    struct stat st {};
    ::stat(path.c_str(), &st);
    return static_cast<double>(st.st_size);
}

// Seconds of a plain read of the whole file into a buffer (the baseline).
double plain_read_seconds(const std::string& path) {
    std::vector<char> buf(1 << 20);
    const auto start = std::chrono::steady_clock::now();
    const int fd = open(path.c_str(), O_RDONLY);
    while (read(fd, buf.data(), buf.size()) > 0) {
    }
    close(fd);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Reads the whole source a chunk of 65,536 observations at a time, as the program does.
double source_seconds(const std::string& path, const tool_options& o) {
    const auto start = std::chrono::steady_clock::now();
    const auto s = open_source(path, o);
    std::vector<double> chunk(static_cast<std::size_t>(65536 * s->n_dims));
    while (s->read({chunk.data()}, 65536) > 0) {
    }
    benchmark::DoNotOptimize(chunk.data());
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void reader(benchmark::State& state, const std::string& path) {
    tool_options o;
    double plain = 0, ours = 0;
    for (auto _ : state) {
        const double p = plain_read_seconds(path);
        const double s = source_seconds(path, o);
        plain += p;
        ours += s;
        state.SetIterationTime(s);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(file_bytes(path) * state.iterations()));
    state.counters["over_plain_read"] = ours / plain;
}

void BM_csv_reader(benchmark::State& state) {
    reader(state, csv_file());
}
BENCHMARK(BM_csv_reader)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_npy_reader(benchmark::State& state) {
    reader(state, npy_file());
}
BENCHMARK(BM_npy_reader)->UseManualTime()->Unit(benchmark::kMillisecond);

// The whole program on the CSV with chunks of 1/8 of the file: its peak memory stays near a
// few chunks, however large the file.
void BM_run_peak_memory(benchmark::State& state) {
    const std::string& path = csv_file();
    const std::size_t rows = scaled(1000000) / 8;
    long peak_kb = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const pid_t pid = fork();
        if (pid == 0) {
            const int null = open("/dev/null", O_WRONLY);
            dup2(null, 1);
            const std::string chunk = std::to_string(rows);
            execl(QND_STATS_BIN, "qnd-stats", "--chunk-rows", chunk.c_str(), path.c_str(), nullptr);
            _exit(127);
        }
        int status = 0;
        struct rusage usage {};
        wait4(pid, &status, 0, &usage);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
            state.SkipWithError("qnd-stats failed");
        peak_kb = std::max(peak_kb, usage.ru_maxrss);
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(file_bytes(path) * state.iterations()));
    state.counters["file_MB"] = file_bytes(path) / 1e6;
    state.counters["chunk_MB"] = static_cast<double>(rows * 6 * 8) / 1e6;
    state.counters["peak_MB"] = static_cast<double>(peak_kb) * 1024 / 1e6;
}
BENCHMARK(BM_run_peak_memory)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

#ifdef QND_MPIEXEC
// A raw float64 file of 4 columns, 1 GiB, for runs of several processes.
const std::string& raw_file() {
    static const std::string path = [] {
        const std::string p = bench_path("data.bin");
        std::FILE* f = std::fopen(p.c_str(), "wb");
        std::vector<double> block(1 << 20);
        for (std::size_t i = 0, n = scaled(128); i < n; ++i) {
            for (std::size_t k = 0; k < block.size(); ++k)
                block[k] = static_cast<double>((i * block.size() + k) % 1000003) * 1e-3;
            std::fwrite(block.data(), sizeof(double), block.size(), f);
        }
        std::fclose(f);
        return p;
    }();
    return path;
}

// The whole program under mpirun on the raw file, against a plain read of it in the same run.
void BM_mpi_run(benchmark::State& state) {
    const std::string& path = raw_file();
    setenv("OMPI_ALLOW_RUN_AS_ROOT", "1", 1);
    setenv("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1", 1);
    const std::string command = std::string(QND_MPIEXEC) + " --quiet --oversubscribe -n " +
                                std::to_string(state.range(0)) + " '" + QND_STATS_BIN +
                                "' --dims 4 '" + path + "' > /dev/null";
    double plain = 0, ours = 0;
    for (auto _ : state) {
        plain += plain_read_seconds(path);
        const auto start = std::chrono::steady_clock::now();
        if (std::system(command.c_str()) != 0)
            state.SkipWithError("mpirun qnd-stats failed");
        const double s =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        ours += s;
        state.SetIterationTime(s);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(file_bytes(path) * state.iterations()));
    state.counters["over_plain_read"] = ours / plain;
}
BENCHMARK(BM_mpi_run)
    ->Arg(1)
    ->Arg(2)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2);
#endif

}  // namespace

BENCHMARK_MAIN();
