// Result checks of the CPU engine shared by the tests of its internals and of the public
// interface: data variants, long-double references and the pointer-form sweep over all moment
// families.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "support/data.hpp"
#include "support/moment_families.hpp"
#include "support/reference.hpp"
#include "tavrel/qnd/stats.hpp"

namespace cpu_checks {

using namespace tavrel::qnd::stats;
using qnd_test::moment_family;

// The core library accumulates in double: float results carry their own rounding and little more.
template <typename T>
constexpr long double cpu_tolerance() {
    return std::is_same_v<T, float> ? 1e-5L : 1e-11L;
}

// What a masked dimension of an output keeps.
constexpr double untouched = 12345.0;

struct variant {
    bool weighted;
    bool masked;
    bool given_mean;
};

std::string label(const variant& v, const char* family, int method) {
    return std::string(family) + " method " + std::to_string(method) +
           (v.weighted ? " weighted" : "") + (v.masked ? " masked" : "") +
           (v.given_mean ? " around a caller's mean" : "");
}

const std::vector<variant>& variants() {
    static const std::vector<variant> all = [] {
        std::vector<variant> v;
        for (bool w : {false, true})
            for (bool m : {false, true})
                for (bool g : {false, true})
                    v.push_back({w, m, g});
        return v;
    }();
    return all;
}

constexpr std::int64_t test_dims = 5;
constexpr std::int64_t test_observations = 777;

template <typename T, layout L>
qnd_test::host_data<T> test_data(const variant& v) {
    qnd_test::host_data<T> data = qnd_test::skewed_data<T>(test_dims, test_observations, L);
    if (v.weighted)
        data.weights = qnd_test::random_weights<T>(test_observations);
    if (v.masked)
        data.indices = {1, 0, 1, 1, 0};
    return data;
}

// A caller's mean near, but not at, the data's own.
template <typename T>
std::vector<T> caller_mean(const qnd_test::host_data<T>& data) {
    std::vector<T> mean(static_cast<std::size_t>(data.n_dims));
    for (std::int64_t d = 0; d < data.n_dims; ++d)
        mean[d] = static_cast<T>(qnd_test::reference_of(data, d).mean() + 0.375L);
    return mean;
}

template <typename T>
void expect_outputs(moment_family family,
                    const qnd_test::host_data<T>& data,
                    const std::vector<T>* mean,
                    const std::array<std::vector<T>, 4>& outputs,
                    int n_outputs) {
    for (std::int64_t d = 0; d < data.n_dims; ++d) {
        long double centre = 0;
        if (mean)
            centre = (*mean)[d];
        const qnd_test::moment_reference r =
            qnd_test::reference_of(data, d, mean ? &centre : nullptr);
        for (int k = 0; k < n_outputs; ++k) {
            const long double got = outputs[k][d];
            if (!data.kept(d)) {
                EXPECT_EQ(got, untouched) << "masked dimension " << d << " output " << k;
                continue;
            }
            const long double want = qnd_test::expected_output(family, k, r);
            EXPECT_TRUE(qnd_test::close_to(got, want, cpu_tolerance<T>()))
                << "dimension " << d << " output " << k << ": " << static_cast<double>(got)
                << " against " << static_cast<double>(want);
        }
    }
}

// Every moment family in the pointer form, through `call(family, queue, mean or null, data,
// outputs)`, for every variant, against the references.
template <typename T, layout L, int M, typename Call>
void check_pointer_form(Call call) {
    sycl::queue queue{sycl::cpu_selector_v};
    for (const variant& v : variants()) {
        const qnd_test::host_data<T> data = test_data<T, L>(v);
        T* x = sycl::malloc_shared<T>(data.observations.size(), queue);
        std::copy(data.observations.begin(), data.observations.end(), x);
        T* w = v.weighted ? sycl::malloc_shared<T>(data.weights.size(), queue) : nullptr;
        if (w)
            std::copy(data.weights.begin(), data.weights.end(), w);
        std::int64_t* idx =
            v.masked ? sycl::malloc_shared<std::int64_t>(test_dims, queue) : nullptr;
        if (idx)
            std::copy(data.indices.begin(), data.indices.end(), idx);
        const std::vector<T> host_mean = caller_mean(data);
        T* mean = sycl::malloc_shared<T>(test_dims, queue);
        std::copy(host_mean.begin(), host_mean.end(), mean);
        std::array<T*, 4> out{};
        for (T*& o : out)
            o = sycl::malloc_shared<T>(test_dims, queue);
        const dataset<L, T*> ds(test_dims, test_observations, x, w, idx);

        for (const qnd_test::moment_family_info& f : qnd_test::moment_families()) {
            if (v.given_mean && !f.takes_user_mean)
                continue;
            SCOPED_TRACE(label(v, f.name, M));
            for (T* o : out)
                std::fill(o, o + test_dims, static_cast<T>(untouched));
            call(f.family, queue, v.given_mean ? mean : nullptr, ds, out).wait();
            std::array<std::vector<T>, 4> got;
            for (int k = 0; k < 4; ++k)
                got[k].assign(out[k], out[k] + test_dims);
            expect_outputs(f.family, data, v.given_mean ? &host_mean : nullptr, got, f.n_outputs);
        }
        for (T* o : out)
            sycl::free(o, queue);
        sycl::free(mean, queue);
        sycl::free(x, queue);
        if (w)
            sycl::free(w, queue);
        if (idx)
            sycl::free(idx, queue);
    }
}

}  // namespace cpu_checks
