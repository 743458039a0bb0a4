// Helpers of the core tests: tasks that own their integers, long double references, seeded data,
// the threader tables of the real threading layers and scoped environment variables.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "qnd_core/ss.h"

namespace core_test {

// A task over x. The integers it points to live as long as it does, in both widths; `wide`
// picks the 64-bit ones.
template <class T>
struct task_fixture {
    static constexpr bool single = sizeof(T) == 4;
    int64_t dims64, obs64, storage64;
    int32_t dims32, obs32, storage32;
    qnd_ss_task* task = nullptr;

    task_fixture(int64_t dims,
                 int64_t obs,
                 int64_t storage,
                 const T* x,
                 const T* w = nullptr,
                 const void* indices = nullptr,
                 bool wide = true)
        : dims64(dims),
          obs64(obs),
          storage64(storage),
          dims32(dims),
          obs32(obs),
          storage32(storage) {
        const void* d = wide ? static_cast<const void*>(&dims64) : &dims32;
        const void* o = wide ? static_cast<const void*>(&obs64) : &obs32;
        const void* s = wide ? static_cast<const void*>(&storage64) : &storage32;
        if constexpr (single)
            EXPECT_EQ(__rtksSSNewTask(&task, d, o, s, x, w, indices, wide), QND_SS_OK);
        else
            EXPECT_EQ(__rtkdSSNewTask(&task, d, o, s, x, w, indices, wide), QND_SS_OK);
    }
    ~task_fixture() { EXPECT_EQ(__rtkSSDeleteTask(&task), QND_SS_OK); }
    task_fixture(const task_fixture&) = delete;

    int32_t edit(int32_t parameter, const void* value) {
        return (single ? __rtksSSEditTask : __rtkdSSEditTask)(task, parameter, value);
    }
    int32_t basic(uint64_t estimates, int64_t method, const qnd_ss_threader_row* table = nullptr) {
        return (single ? _rtksSSBasic : _rtkdSSBasic)(task, estimates, method, table);
    }
    int32_t minmax(uint64_t estimates, int64_t method, const qnd_ss_threader_row* table = nullptr) {
        return (single ? _rtksSSMinmax : _rtkdSSMinmax)(task, estimates, method, table);
    }
};

// The record word (11, mean, to 29, max) that edit parameter 7 + k sets.
constexpr int word_of_parameter[19] = {11, 12, 13, 14, 15, 16, 17, 25, 26, 28,
                                       29, 27, 18, 19, 20, 21, 22, 23, 24};

// Every estimate of one dimension, in long double.
struct reference {
    long double w = 0, w2 = 0, mean = 0, c2 = 0, c3 = 0, c4 = 0;
    long double raw[4] = {0, 0, 0, 0};  // raw sums of order 1 to 4
    long double min = INFINITY, max = -INFINITY;

    long double m2() const { return c2 * (w / (w * w - w2)); }
    long double skewness() const { return (c3 / w) / std::pow(m2(), 1.5L); }
    long double kurtosis() const { return (c4 / w) / (m2() * m2()) - 3; }
    long double variation() const { return std::sqrt(m2()) / mean; }
};

// Two passes in long double over deviations from a pivot observation: x - pivot is exact for
// data within a factor of two of the pivot, so the mean is held to long double precision in
// the deviations, where the rounding of a long double mean near 1e8 would not be. Observations
// of weight 0 are left out.
template <class T>
reference reference_of(const T* x, const T* w, int64_t n) {
    reference r;
    long double pivot = 0, sum_dev = 0;
    for (int64_t i = n - 1; i >= 0; --i)
        if (w == nullptr || w[i] > 0)
            pivot = x[i];
    for (int64_t i = 0; i < n; ++i) {
        const long double wi = w == nullptr ? 1 : w[i], v = x[i];
        if (wi == 0)
            continue;
        sum_dev += wi * (v - pivot);
        r.w += wi;
        r.w2 += wi * wi;
        long double p = wi;
        for (int k = 0; k < 4; ++k)
            r.raw[k] += (p *= v);
        r.min = std::fmin(r.min, v);
        r.max = std::fmax(r.max, v);
    }
    const long double mean_dev = sum_dev / r.w;
    r.mean = pivot + mean_dev;
    for (int64_t i = 0; i < n; ++i) {
        const long double wi = w == nullptr ? 1 : w[i];
        const long double e = (static_cast<long double>(x[i]) - pivot) - mean_dev;
        if (wi != 0) {
            r.c2 += wi * e * e;
            r.c3 += wi * e * e * e;
            r.c4 += wi * e * e * e * e;
        }
    }
    return r;
}

// |got - want| relative to the larger of |want| and `floor`.
inline double relative_error(double got, long double want, long double floor = 0) {
    const long double scale = std::fmax(std::fabs(want), floor);
    const long double error = std::fabs(static_cast<long double>(got) - want);
    return static_cast<double>(scale == 0 ? error : error / scale);
}

// offset + N(0, 1) draws, fixed seed.
template <class T>
std::vector<T> offset_normal(int64_t n, double offset, uint64_t seed) {
    std::mt19937_64 gen(seed);
    std::normal_distribution<double> dist(0.0, 1.0);
    std::vector<T> v(n);
    for (auto& x : v)
        x = static_cast<T>(offset + dist(gen));
    return v;
}

// Row-major (dims x n) to column-major (n x dims).
template <class T>
std::vector<T> transpose(const std::vector<T>& rows, int64_t dims, int64_t n) {
    std::vector<T> cols(rows.size());
    for (int64_t d = 0; d < dims; ++d)
        for (int64_t i = 0; i < n; ++i)
            cols[i * dims + d] = rows[d * n + i];
    return cols;
}

// A threading layer opened from the build's library directory, and its threader table.
struct layer {
    void* handle = nullptr;
    qnd_ss_threader_row rows[QND_SS_THREADER_ROWS] = {};

    explicit layer(const std::string& file) {
        handle = dlopen((QND_TEST_LIB_DIR "/" + file).c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr)
            ADD_FAILURE() << "cannot open " << file << ": " << dlerror();
        for (auto& row : rows)
            row = {symbol<qnd_threader_for_fn>("qnd_rtk_serv_threader_for"),
                   symbol<qnd_threader_for_ordered_fn>("qnd_rtk_serv_threader_for_ordered"),
                   symbol<qnd_threader_sections_fn>("qnd_rtk_serv_threader_sections"),
                   symbol<qnd_threader_ordered_fn>("qnd_rtk_serv_threader_ordered"),
                   symbol<qnd_threader_get_num_threads_limit_fn>(
                       "qnd_rtk_serv_threader_get_num_threads_limit")};
    }
    template <class F>
    F symbol(const char* name) const {
        return handle == nullptr ? nullptr : reinterpret_cast<F>(dlsym(handle, name));
    }
};

const char* const layer_files[] = {"libqnd_sequential.so.2", "libqnd_omp_thread.so.2",
                                   "libqnd_pool_thread.so.2"};

// Sets (or with null, unsets) an environment variable for the life of the object.
struct scoped_env {
    std::string name, old;
    bool had;
    scoped_env(const char* n, const char* value) : name(n), had(std::getenv(n) != nullptr) {
        old = had ? std::getenv(n) : "";
        value == nullptr ? unsetenv(n) : setenv(n, value, 1);
    }
    ~scoped_env() { had ? setenv(name.c_str(), old.c_str(), 1) : unsetenv(name.c_str()); }
};

// The instruction sets worth forcing in a test; the component never exceeds the processor's.
const char* const isa_names[] = {"sse2", "avx2", "avx512"};

}  // namespace core_test
