// The buffer forms of the eight moment families: the same results as the pointer forms on the
// GPU and on the CPU, outputs of size 0 left unwritten, shorter outputs accepted, the words of
// their checks, and where method values 1 and 2 differ.
#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "support/data.hpp"
#include "support/devices.hpp"
#include "support/refusals.hpp"
#include "support/moment_families.hpp"
#include "support/reference.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/exceptions.hpp"
#include "tavrel/qnd/stats.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;

template <typename T>
using buf = sycl::buffer<T, 1>;

constexpr double sentinel = 7777.0;
constexpr std::int64_t n_dims = 3;
constexpr std::int64_t n_observations = 37;

// Calls the buffer form of `family` with method M; `mean`, if not null, selects the form with
// the caller's mean. Outputs beyond the family's count are ignored.
template <int M, typename T, st::layout L>
void call_buffer_family(moment_family family,
                        sycl::queue& q,
                        buf<T>* mean,
                        const st::dataset<L, buf<T>>& data,
                        std::array<buf<T>, 4>& o) {
    switch (family) {
        case moment_family::mean:
            return st::mean<M, T, L>(q, data, o[0]);
        case moment_family::raw_sum:
            return st::raw_sum<M, T, L>(q, data, o[0], o[1], o[2], o[3]);
        case moment_family::raw_moment:
            return st::raw_moment<M, T, L>(q, data, o[0], o[1], o[2], o[3]);
        case moment_family::central_sum:
            if (mean)
                return st::central_sum<1, T, L>(q, *mean, data, o[0], o[1], o[2]);
            return st::central_sum<M, T, L>(q, data, o[0], o[1], o[2]);
        case moment_family::central_moment:
            if (mean)
                return st::central_moment<1, T, L>(q, *mean, data, o[0], o[1], o[2]);
            return st::central_moment<M, T, L>(q, data, o[0], o[1], o[2]);
        case moment_family::variation:
            if (mean)
                return st::variation<1, T, L>(q, *mean, data, o[0]);
            return st::variation<M, T, L>(q, data, o[0]);
        case moment_family::skewness:
            if (mean)
                return st::skewness<1, T, L>(q, *mean, data, o[0]);
            return st::skewness<M, T, L>(q, data, o[0]);
        case moment_family::kurtosis:
            if (mean)
                return st::kurtosis<1, T, L>(q, *mean, data, o[0]);
            return st::kurtosis<M, T, L>(q, data, o[0]);
    }
}

// The caller's mean of dimension d in the forms that take one: near, not at, the data's mean.
template <typename T>
T given_mean(std::int64_t d) {
    return static_cast<T>(((d % 2 == 0) ? 1.0 : -1.0) * (1.0 + 0.25 * d) + 0.125);
}

template <typename T>
host_data<T> test_data(st::layout layout, bool weighted, bool masked) {
    host_data<T> data = skewed_data<T>(n_dims, n_observations, layout);
    if (weighted)
        data.weights = random_weights<T>(n_observations);
    if (masked)
        data.indices = {1, 0, 1};
    return data;
}

// Outputs of one call, on the host: n_outputs arrays of `length` elements.
template <typename T>
using outputs = std::vector<std::vector<T>>;

// The pointer form on USM copies of `data`; outputs start at the sentinel.
template <int M, typename T, st::layout L>
outputs<T> run_pointer(sycl::queue& q,
                       const moment_family_info& f,
                       const host_data<T>& data,
                       bool user_mean) {
    usm_array<T> obs(q, data.observations);
    usm_array<T> weights(q, data.weights);
    usm_array<std::int64_t> indices(q, data.indices);
    std::vector<T> means(n_dims);
    for (std::int64_t d = 0; d < n_dims; ++d)
        means[d] = given_mean<T>(d);
    usm_array<T> mean(q, means);
    std::vector<std::unique_ptr<usm_array<T>>> outs;
    std::array<T*, 4> ptrs{};
    for (int k = 0; k < f.n_outputs; ++k) {
        outs.push_back(std::make_unique<usm_array<T>>(q, n_dims));
        outs.back()->fill(static_cast<T>(sentinel));
        ptrs[k] = outs.back()->get();
    }
    const st::dataset<L, T*> ds{n_dims, n_observations, obs.get(),
                                data.weights.empty() ? nullptr : weights.get(),
                                data.indices.empty() ? nullptr : indices.get()};
    call_moment_family<M, T, L>(f.family, q, user_mean ? mean.get() : nullptr, ds, ptrs).wait();
    q.wait();
    outputs<T> result;
    for (const auto& o : outs)
        result.push_back(o->to_vector());
    return result;
}

// The buffer form on buffers over host copies of `data`; each output k has lengths[k] elements
// (0: left out) and starts at the sentinel. The results are read back when the buffers go.
template <int M, typename T, st::layout L>
outputs<T> run_buffer(sycl::queue& q,
                      const moment_family_info& f,
                      const host_data<T>& data,
                      bool user_mean,
                      const std::vector<std::size_t>& lengths,
                      std::size_t mean_length = n_dims) {
    outputs<T> result(f.n_outputs);
    for (int k = 0; k < f.n_outputs; ++k)
        result[k].assign(std::max<std::size_t>(lengths[k], 1), static_cast<T>(sentinel));
    std::vector<T> means(n_dims);
    for (std::int64_t d = 0; d < n_dims; ++d)
        means[d] = given_mean<T>(d);
    {
        buf<T> obs(data.observations.data(), sycl::range<1>(data.observations.size()));
        buf<T> weights(data.weights.data(), sycl::range<1>(data.weights.size()));
        buf<std::int64_t> indices(data.indices.data(), sycl::range<1>(data.indices.size()));
        buf<T> mean(static_cast<const T*>(means.data()), sycl::range<1>(mean_length));
        // A left-out output is a buffer of size 0 over the host sentinel, so that a write
        // through it would show.
        std::array<buf<T>, 4> outs{buf<T>(sycl::range<1>(0)), buf<T>(sycl::range<1>(0)),
                                   buf<T>(sycl::range<1>(0)), buf<T>(sycl::range<1>(0))};
        for (int k = 0; k < f.n_outputs; ++k)
            outs[k] = buf<T>(result[k].data(), sycl::range<1>(lengths[k]));
        const st::dataset<L, buf<T>> ds(n_dims, n_observations, obs, weights, indices);
        call_buffer_family<M, T, L>(f.family, q, user_mean ? &mean : nullptr, ds, outs);
        q.wait_and_throw();
    }
    return result;
}

std::vector<std::size_t> full_lengths() {
    return {n_dims, n_dims, n_dims, n_dims};
}

std::string trace_of(const sycl::device& dev,
                     const moment_family_info& f,
                     int method,
                     bool user_mean,
                     bool weighted) {
    return device_label(dev) + " " + f.name + " method " + std::to_string(method) +
           (user_mean ? " with a mean" : "") + (weighted ? " weighted and masked" : "");
}

// The core library on a CPU accumulates in double: float results carry little more than their
// own rounding there.
template <typename T>
long double tolerance_on(const sycl::device& dev) {
    if (dev.is_cpu())
        return std::is_same_v<T, float> ? 1e-5L : 1e-11L;
    return moment_tolerance<T>();
}

// Checks each kept dimension of each given output against the long-double reference; masked
// dimensions keep the sentinel.
template <typename T>
void expect_reference(const sycl::device& dev,
                      const moment_family_info& f,
                      const host_data<T>& data,
                      bool user_mean,
                      const outputs<T>& got,
                      const std::vector<int>& given = {0, 1, 2, 3}) {
    for (std::int64_t d = 0; d < n_dims; ++d) {
        const long double centre = given_mean<T>(d);
        const moment_reference r = reference_of(data, d, user_mean ? &centre : nullptr);
        for (int k : given) {
            if (k >= f.n_outputs || static_cast<std::size_t>(d) >= got[k].size())
                continue;
            if (!data.kept(d)) {
                EXPECT_EQ(got[k][d], static_cast<T>(sentinel)) << "masked dimension " << d;
                continue;
            }
            const long double want = expected_output(f.family, k, r);
            EXPECT_TRUE(close_to(got[k][d], want, tolerance_on<T>(dev)))
                << "output " << k << " dimension " << d << ": " << got[k][d] << " vs " << want;
        }
    }
}

// Pointer and buffer forms of every family and form give identical results on `dev`.
template <typename T, st::layout L, int M>
void compare_forms(const sycl::device& dev) {
    sycl::queue q(dev);
    for (bool weighted : {false, true}) {
        const host_data<T> data = test_data<T>(L, weighted, weighted);
        for (const moment_family_info& f : moment_families()) {
            const bool central =
                f.family == moment_family::central_sum || f.family == moment_family::central_moment;
            for (bool user_mean : {false, true}) {
                if (user_mean && !f.takes_user_mean)
                    continue;
                // Value 2 of the central families is refused on a GPU; tested apart.
                if (!user_mean && central && M == 2 && dev.is_gpu())
                    continue;
                SCOPED_TRACE(trace_of(dev, f, M, user_mean, weighted));
                const outputs<T> by_pointer = run_pointer<M, T, L>(q, f, data, user_mean);
                const outputs<T> by_buffer =
                    run_buffer<M, T, L>(q, f, data, user_mean, full_lengths());
                // On the CPU, central_sum of value 1 without a mean asks the core library for
                // its method 2 in the pointer form and 1 in the buffer form: the same quantities
                // by two computations, which may differ in the last bits.
                const bool two_computations =
                    dev.is_cpu() && M == 1 && !user_mean && f.family == moment_family::central_sum;
                if (!two_computations)
                    EXPECT_EQ(by_pointer, by_buffer);
                expect_reference(dev, f, data, user_mean, by_pointer);
                expect_reference(dev, f, data, user_mean, by_buffer);
            }
        }
    }
}

template <typename T, st::layout L>
void compare_both_methods(const sycl::device& dev) {
    compare_forms<T, L, 1>(dev);
    compare_forms<T, L, 2>(dev);
}

void compare_all(const sycl::device& dev) {
    compare_both_methods<float, st::row_major>(dev);
    compare_both_methods<float, st::col_major>(dev);
    compare_both_methods<double, st::row_major>(dev);
    compare_both_methods<double, st::col_major>(dev);
}

TEST(moments_buffer, same_results_as_pointer_form_on_default_gpu) {
    compare_all(sycl::device(sycl::gpu_selector_v));
}

// Work-groups of 3 over 37 observations: a first step, an intermediate step and a last one.
TEST(moments_buffer, same_results_as_pointer_form_on_small_gpu) {
    compare_all(sycl::ext::hostsycl::make_gpu_device(3));
}

TEST(moments_buffer, same_results_as_pointer_form_on_cpu) {
    compare_all(cpu_device());
}

// ---- Outputs of size 0 ----

struct subset_case {
    moment_family family;
    std::vector<int> given;  // outputs given, by position; the others have size 0
};

const std::vector<subset_case>& subset_cases() {
    static const std::vector<subset_case> cases{
        {moment_family::raw_sum, {0, 2}},        {moment_family::raw_sum, {3}},
        {moment_family::raw_sum, {1}},           {moment_family::raw_moment, {0, 3}},
        {moment_family::raw_moment, {2}},        {moment_family::central_sum, {1}},
        {moment_family::central_sum, {0, 2}},    {moment_family::central_moment, {2}},
        {moment_family::central_moment, {1, 2}},
    };
    return cases;
}

const moment_family_info& info_of(moment_family family) {
    for (const moment_family_info& f : moment_families())
        if (f.family == family)
            return f;
    throw std::logic_error("no such family");
}

// What is given is right; what has size 0 is never written, not even the lowest order that the
// GPU engine writes with no test (its write lands in storage that belongs to no caller). On the
// CPU method value 2 too, where the central families take another computation with other
// fillers.
template <typename T, st::layout L>
void check_subsets(const sycl::device& dev) {
    sycl::queue q(dev);
    const host_data<T> data = test_data<T>(L, true, false);
    for (const subset_case& c : subset_cases()) {
        const moment_family_info& f = info_of(c.family);
        for (int method : {1, 2}) {
            for (bool user_mean : {false, true}) {
                if ((user_mean && !f.takes_user_mean) || (method == 2 && !dev.is_cpu()))
                    continue;
                SCOPED_TRACE(trace_of(dev, f, method, user_mean, false) + " given " +
                             ::testing::PrintToString(c.given));
                std::vector<std::size_t> lengths(4, 0);
                for (int k : c.given)
                    lengths[k] = n_dims;
                const outputs<T> got = method == 1
                                           ? run_buffer<1, T, L>(q, f, data, user_mean, lengths)
                                           : run_buffer<2, T, L>(q, f, data, user_mean, lengths);
                for (int k = 0; k < f.n_outputs; ++k) {
                    if (lengths[k] == 0)
                        EXPECT_EQ(got[k], std::vector<T>{static_cast<T>(sentinel)})
                            << "output " << k;
                }
                expect_reference(dev, f, data, user_mean, got, c.given);
            }
        }
    }
}

TEST(moments_buffer, outputs_of_size_0_are_not_written) {
    for (const sycl::device& dev : {sycl::device(sycl::gpu_selector_v),
                                    sycl::ext::hostsycl::make_gpu_device(3), cpu_device()}) {
        check_subsets<float, st::row_major>(dev);
        check_subsets<double, st::col_major>(dev);
    }
}

// The check refuses only a length of 0: outputs (and a mean) of one element serve a mask that
// keeps the first dimension alone.
TEST(moments_buffer, outputs_shorter_than_n_dims_are_accepted) {
    for (const sycl::device& dev :
         {sycl::device(sycl::gpu_selector_v), sycl::ext::hostsycl::make_gpu_device(3)}) {
        sycl::queue q(dev);
        host_data<double> data = test_data<double>(st::row_major, true, false);
        data.indices = {1, 0, 0};
        for (const moment_family_info& f : moment_families()) {
            for (bool user_mean : {false, true}) {
                if (user_mean && !f.takes_user_mean)
                    continue;
                SCOPED_TRACE(trace_of(dev, f, 1, user_mean, true));
                const outputs<double> got =
                    run_buffer<1, double, st::row_major>(q, f, data, user_mean, {1, 1, 1, 1}, 1);
                expect_reference(dev, f, data, user_mean, got);
            }
        }
    }
}

// ---- Checks and their words ----

// Every output of size 0, then (in the forms with a caller's mean) a mean of size 0 as well, or
// alone: the outputs are tested first.
TEST(moments_buffer, refusals_name_the_empty_array_before_any_launch) {
    const host_data<double> data = test_data<double>(st::row_major, false, false);
    for (const sycl::device& dev : {sycl::device(sycl::gpu_selector_v), cpu_device()}) {
        sycl::queue q(dev);
        for (const moment_family_info& f : moment_families()) {
            const std::string outputs_text = missing_outputs(f.family, true);
            std::vector<std::size_t> last_given(4, 0);
            last_given[f.n_outputs - 1] = n_dims;
            struct refusal {
                bool user_mean;
                std::vector<std::size_t> lengths;
                std::size_t mean_length;
                std::string text;
            };
            std::vector<refusal> refusals{{false, {0, 0, 0, 0}, n_dims, outputs_text}};
            if (f.takes_user_mean) {
                refusals.push_back({true, {0, 0, 0, 0}, 0, outputs_text});
                refusals.push_back({true, last_given, 0, "mean array length is 0"});
            }
            for (const refusal& r : refusals) {
                SCOPED_TRACE(trace_of(dev, f, 1, r.user_mean, false) + ": " + r.text);
                expect_refusal<tavrel::qnd::invalid_argument>(
                    [&] {
                        run_buffer<1, double, st::row_major>(q, f, data, r.user_mean, r.lengths,
                                                             r.mean_length);
                    },
                    std::string("tavrel::qnd::stats::") + f.name + ": invalid argument: " + r.text);
            }
        }
    }
}

// ---- Method values 1 and 2 ----

// On a GPU, value 2 of central_sum and central_moment is refused after the argument checks, in
// the buffer form too, with nothing launched and nothing written.
TEST(moments_buffer, method_2_of_central_families_is_refused_on_gpu) {
    sycl::queue q(sycl::gpu_selector_v);
    const host_data<double> data = test_data<double>(st::row_major, false, false);
    for (moment_family family : {moment_family::central_sum, moment_family::central_moment}) {
        const moment_family_info& f = info_of(family);
        SCOPED_TRACE(f.name);
        expect_refusal<tavrel::qnd::unimplemented>(
            [&] { run_buffer<2, double, st::row_major>(q, f, data, false, full_lengths()); },
            std::string("tavrel::qnd::stats::") + f.name +
                ": unimplemented functionality: for this method");
        // The argument check still comes first.
        expect_refusal<tavrel::qnd::invalid_argument>(
            [&] {
                run_buffer<2, double, st::row_major>(q, f, data, false, {0, 0, 0, 0});
            },
            std::string("tavrel::qnd::stats::") + f.name +
                ": invalid argument: " + missing_outputs(family, true));
    }
}

// Everywhere else the two values are one function: identical results on the GPU for every
// family, and on the CPU for all but the central families without a mean, whose value 2 is a
// different computation of the same quantities.
template <typename T>
void compare_methods(const sycl::device& dev) {
    sycl::queue q(dev);
    const host_data<T> data = test_data<T>(st::col_major, true, true);
    for (const moment_family_info& f : moment_families()) {
        const bool central =
            f.family == moment_family::central_sum || f.family == moment_family::central_moment;
        if (central && dev.is_gpu())
            continue;
        SCOPED_TRACE(trace_of(dev, f, 2, false, true));
        const outputs<T> one = run_buffer<1, T, st::col_major>(q, f, data, false, full_lengths());
        const outputs<T> two = run_buffer<2, T, st::col_major>(q, f, data, false, full_lengths());
        if (central) {
            expect_reference(dev, f, data, false, one);
            expect_reference(dev, f, data, false, two);
        } else {
            EXPECT_EQ(one, two);
        }
    }
}

TEST(moments_buffer, method_values_differ_only_in_central_families) {
    for (const sycl::device& dev : {sycl::device(sycl::gpu_selector_v),
                                    sycl::ext::hostsycl::make_gpu_device(3), cpu_device()}) {
        compare_methods<float>(dev);
        compare_methods<double>(dev);
    }
}

}  // namespace
