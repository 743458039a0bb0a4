// The check ladders of the nine offload adaptors: the exact status of each refusal and the order
// in which the checks come, that a refusal launches nothing and writes nothing, and which arrays
// the requests that pass write.
#include <cstdint>
#include <initializer_list>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "offload/adaptor_calls.hpp"
#include "support/data.hpp"
#include "support/launch_log.hpp"
#include "support/usm_array.hpp"

namespace {

namespace st = tavrel::qnd::stats;
namespace gpu = tavrel::qnd::stats::detail::gpu;
using namespace qnd_test;

constexpr std::int64_t n_dims = 3;
constexpr std::int64_t n_obs = 10;

struct check_case {
    adaptor a;
    std::int64_t method;
    std::uint64_t mask;
    std::vector<field> nulls;  // fields handed over as null; all others are present
    std::int32_t status;
    const char* why;
};

std::string describe_case(const check_case& c) {
    std::ostringstream text;
    text << adaptor_name(c.a) << " method " << c.method << " mask 0x" << std::hex << c.mask
         << " null {";
    for (field f : c.nulls)
        text << ' ' << field_name(f);
    text << " }: " << c.why;
    return text.str();
}

// Every refusal, grouped by adaptor, in the order of its ladder.
const std::vector<check_case>& refusals() {
    static const std::vector<check_case> cases{
        // Extremes: the method comes before the array.
        {adaptor::min, 256, 0, {f_min}, -4029, "method before array"},
        {adaptor::min, 2, 0, {}, -4029, "only method 1"},
        {adaptor::min, 1, 0, {f_min}, -4015, "min missing"},
        {adaptor::max, 256, 0, {f_max}, -4029, "method before array"},
        {adaptor::max, 0, 0, {}, -4029, "only method 1"},
        {adaptor::max, 1, 0, {f_max}, -4016, "max missing"},
        // Raw sums: method first, then the arrays asked for, lowest order first.
        {adaptor::raw_sum, 256, 0x1e000000, {}, -4029, "no caller's mean here"},
        {adaptor::raw_sum, 3, 0x2000000, {f_rs1}, -4029, "method before arrays"},
        {adaptor::raw_sum, 1, 0x2000000, {f_rs1}, -4074, "order 1 missing"},
        {adaptor::raw_sum, 1, 0x1e000000, {f_rs2, f_rs4}, -4075, "lowest missing first"},
        {adaptor::raw_sum, 1, 0x8000000, {f_rs3}, -4076, "order 3 missing"},
        {adaptor::raw_sum, 1, 0x10000000, {f_rs3, f_rs4}, -4077, "only the bits asked for"},
        // Raw moments.
        {adaptor::raw_moment, 256, 0xf, {}, -4029, "no caller's mean here"},
        {adaptor::raw_moment, 1, 0x1, {f_mean}, -4006, "mean missing"},
        {adaptor::raw_moment, 1, 0x2, {f_raw2}, -4007, "order 2 missing"},
        {adaptor::raw_moment, 1, 0xf, {f_raw3, f_raw4}, -4008, "lowest missing first"},
        {adaptor::raw_moment, 1, 0x8, {f_raw4}, -4009, "order 4 missing"},
        // Central moments: mean before everything, then the caller's mean path, then method 1.
        {adaptor::central_moment, 7, 0x70, {f_mean}, -4006, "mean before method"},
        {adaptor::central_moment, 256, 0x70, {f_mean}, -4006, "mean also with method 256"},
        {adaptor::central_moment, 256, 0x10, {f_cm2}, -4010, "method 256, order 2 missing"},
        {adaptor::central_moment, 256, 0x70, {f_cm3, f_cm4}, -4011, "method 256, lowest first"},
        {adaptor::central_moment, 256, 0x40, {f_cm4}, -4012, "method 256, order 4 missing"},
        {adaptor::central_moment, 3, 0x70, {}, -4029, "neither 1 nor 256"},
        {adaptor::central_moment, 1, 0x10, {f_cm2, f_raw2}, -4010, "result before raw moment"},
        {adaptor::central_moment, 1, 0x10, {f_raw2}, -4007, "order 2 needs raw 2"},
        {adaptor::central_moment, 1, 0x20, {f_cm3, f_raw2}, -4011, "result before raw"},
        {adaptor::central_moment, 1, 0x20, {f_raw2, f_raw3}, -4007, "lowest raw missing"},
        {adaptor::central_moment, 1, 0x20, {f_raw3}, -4008, "order 3 needs raw 3"},
        {adaptor::central_moment, 1, 0x40, {f_raw2, f_raw3}, -4007, "lowest raw missing"},
        {adaptor::central_moment, 1, 0x40, {f_raw3, f_raw4}, -4008, "lowest raw missing"},
        {adaptor::central_moment, 1, 0x40, {f_raw4}, -4009, "order 4 needs raw 4"},
        {adaptor::central_moment, 1, 0x40, {f_cm4, f_raw2}, -4012, "result before raw"},
        {adaptor::central_moment, 1, 0x60, {f_cm4, f_raw3}, -4008, "order 3 tested before 4"},
        {adaptor::central_moment, 1, 0x70, {f_raw2}, -4007, "order 2 first"},
        // Central sums: their own result codes, the raw-moment codes of the central moments.
        {adaptor::central_sum, 9, 0, {f_mean}, -4006, "mean before method"},
        {adaptor::central_sum, 256, 0x20000000, {f_cs2}, -4078, "method 256, order 2"},
        {adaptor::central_sum, 256, 0x40000000, {f_cs3}, -4079, "method 256, order 3"},
        {adaptor::central_sum, 256, 0x80000000, {f_cs4}, -4080, "method 256, order 4"},
        {adaptor::central_sum, 2, 0xe0000000, {}, -4029, "neither 1 nor 256"},
        {adaptor::central_sum, 1, 0x20000000, {f_raw2}, -4007, "raw moment, not raw sum"},
        {adaptor::central_sum, 1, 0x40000000, {f_cs3, f_raw3}, -4079, "result before raw"},
        {adaptor::central_sum, 1, 0x40000000, {f_raw3}, -4008, "order 3 needs raw 3"},
        {adaptor::central_sum, 1, 0x80000000, {f_raw2, f_raw4}, -4007, "lowest raw missing"},
        {adaptor::central_sum, 1, 0x80000000, {f_raw4}, -4009, "order 4 needs raw 4"},
        // Variation.
        {adaptor::variation, 5, 0, {f_mean}, -4006, "mean before method"},
        {adaptor::variation, 256, 0, {f_variation}, -4017, "method 256, result missing"},
        {adaptor::variation, 9, 0, {f_variation}, -4029, "method before result"},
        {adaptor::variation, 1, 0, {f_variation, f_raw2}, -4017, "result before raw"},
        {adaptor::variation, 1, 0, {f_raw2}, -4007, "raw 2 missing"},
        // Skewness: the highest missing raw moment first.
        {adaptor::skewness, 0, 0, {f_mean}, -4006, "mean before method"},
        {adaptor::skewness, 256, 0, {f_skewness}, -4014, "method 256, result missing"},
        {adaptor::skewness, 0, 0, {f_skewness}, -4029, "method before result"},
        {adaptor::skewness, 1, 0, {f_skewness, f_raw3}, -4014, "result before raw"},
        {adaptor::skewness, 1, 0, {f_raw2, f_raw3}, -4008, "highest raw missing"},
        {adaptor::skewness, 1, 0, {f_raw2}, -4007, "raw 2 missing"},
        // Kurtosis: the highest missing raw moment first.
        {adaptor::kurtosis, 2, 0, {f_mean}, -4006, "mean before method"},
        {adaptor::kurtosis, 256, 0, {f_kurtosis}, -4013, "method 256, result missing"},
        {adaptor::kurtosis, 2, 0, {}, -4029, "neither 1 nor 256"},
        {adaptor::kurtosis, 1, 0, {f_kurtosis, f_raw4}, -4013, "result before raw"},
        {adaptor::kurtosis, 1, 0, {f_raw2, f_raw3, f_raw4}, -4009, "highest raw missing"},
        {adaptor::kurtosis, 1, 0, {f_raw2, f_raw3}, -4008, "highest raw missing"},
        {adaptor::kurtosis, 1, 0, {f_raw2}, -4007, "raw 2 missing"},
        {adaptor::kurtosis, 1, 0, {f_raw2, f_raw4}, -4009, "highest raw missing"},
    };
    return cases;
}

struct checks : ::testing::Test {
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(4)};
    host_data<double> host = skewed_data<double>(n_dims, n_obs, st::row_major);
    usm_array<double> obs{q, host.observations};
    st::dataset<st::row_major, double*> data{n_dims, n_obs, obs.get()};

    template <bool Idx64>
    void expect_refusal(const check_case& c) {
        SCOPED_TRACE(describe_case(c));
        task_arrays<double> t(q, n_dims);
        for (field f : c.nulls)
            t.present[f] = false;
        gpu::offload_result r;
        const auto log = record_launches([&] {
            r = call_adaptor<double, st::row_major, Idx64>(
                c.a, q, t, data, static_cast<gpu::offload_method_int<Idx64>>(c.method), c.mask);
        });
        EXPECT_EQ(r.status, c.status);
        EXPECT_TRUE(log.empty()) << describe(log);
        for (int f = 0; f < n_fields; ++f)
            EXPECT_FALSE(t.written(f)) << field_name(f);
    }
};

TEST_F(checks, every_refusal_has_its_status_and_launches_nothing) {
    for (const check_case& c : refusals())
        expect_refusal<true>(c);
}

// The ladders are the same with 32-bit methods and masks of 32-bit entries.
TEST_F(checks, refusals_are_the_same_for_32_bit_methods) {
    for (const check_case& c : refusals())
        expect_refusal<false>(c);
}

struct pass_case {
    adaptor a;
    std::int64_t method;
    std::uint64_t mask;
    std::vector<field> nulls;
    std::set<int> written;  // the fields written, all others left as they were
    const char* why;
};

// Requests that pass their ladder: status 0, a launch, and the arrays that the functor writes,
// which follow the pointers and not the mask.
const std::vector<pass_case>& passes() {
    static const std::vector<pass_case> cases{
        {adaptor::min, 1, 0, {}, {f_min}, "the minimum only"},
        {adaptor::max, 1, 0, {}, {f_max}, "the maximum only"},
        {adaptor::raw_sum, 1, 0x2000000, {f_rs3}, {f_rs1, f_rs2, f_rs4}, "present arrays"},
        {adaptor::raw_sum, 1, 0, {f_rs2, f_rs3, f_rs4}, {f_rs1}, "order 1 always"},
        {adaptor::raw_moment,
         1,
         0x1,
         {f_raw3, f_raw4},
         {f_mean, f_raw2},
         "raw 2 present, so computed though not asked for"},
        {adaptor::raw_moment, 1, 0xf, {}, {f_mean, f_raw2, f_raw3, f_raw4}, "all four"},
        {adaptor::central_moment,
         1,
         0x10,
         {f_cm3, f_cm4, f_raw3, f_raw4},
         {f_mean, f_raw2, f_cm2},
         "order 2 with mean and raw 2"},
        {adaptor::central_moment,
         1,
         0x40,
         {f_cm3},
         {f_mean, f_raw2, f_raw3, f_raw4, f_cm2, f_cm4},
         "order 4 writes raw 3 without order 3"},
        {adaptor::central_moment,
         1,
         0,
         {},
         {f_mean, f_raw2, f_raw3, f_raw4, f_cm2, f_cm3, f_cm4},
         "no bit asked for: the pointers decide"},
        {adaptor::central_moment,
         256,
         0x70,
         {f_raw2, f_raw3, f_raw4},
         {f_cm2, f_cm3, f_cm4},
         "caller's mean: raw moments not looked at"},
        {adaptor::central_sum,
         1,
         0x20000000,
         {f_cs3, f_cs4, f_raw3, f_raw4},
         {f_mean, f_raw2, f_cs2},
         "order 2 with mean and raw 2"},
        {adaptor::central_sum,
         1,
         0xe0000000,
         {},
         {f_mean, f_raw2, f_raw3, f_raw4, f_cs2, f_cs3, f_cs4},
         "all orders"},
        {adaptor::central_sum,
         256,
         0x20000000,
         {f_cs3, f_raw2},
         {f_cs2, f_cs4},
         "caller's mean: present results"},
        {adaptor::variation, 1, 0, {}, {f_mean, f_raw2, f_variation}, "mean and raw 2 too"},
        {adaptor::variation, 256, 0, {f_raw2}, {f_variation}, "caller's mean"},
        {adaptor::skewness,
         1,
         0,
         {},
         {f_mean, f_raw2, f_raw3, f_skewness},
         "mean and raw 2, 3 too"},
        {adaptor::skewness, 256, 0, {f_raw2}, {f_skewness}, "caller's mean, raw 2 null runs"},
        {adaptor::kurtosis,
         1,
         0,
         {},
         {f_mean, f_raw2, f_raw3, f_raw4, f_kurtosis},
         "mean and raw 2 to 4 too"},
        {adaptor::kurtosis, 256, 0, {f_raw2, f_raw3, f_raw4}, {f_kurtosis}, "caller's mean"},
    };
    return cases;
}

TEST_F(checks, passing_requests_write_what_the_pointers_name) {
    for (const pass_case& c : passes()) {
        SCOPED_TRACE(std::string(adaptor_name(c.a)) + " method " + std::to_string(c.method) + ": " +
                     c.why);
        task_arrays<double> t(q, n_dims);
        for (field f : c.nulls)
            t.present[f] = false;
        // The caller's mean is an input: a value of its own, read and never written.
        constexpr double caller_mean = 0.25;
        if (c.method == 256)
            t.array(f_mean).fill(caller_mean);
        gpu::offload_result r;
        const auto log = record_launches([&] {
            r = call_adaptor<double, st::row_major, true>(c.a, q, t, data, c.method, c.mask);
        });
        r.event.wait();
        EXPECT_EQ(r.status, 0);
        EXPECT_FALSE(log.empty());
        for (int f = 0; f < n_fields; ++f) {
            if (c.method == 256 && f == f_mean) {
                EXPECT_EQ(t.array(f_mean)[0], caller_mean);
                continue;
            }
            if (!t.present[f])
                continue;
            EXPECT_EQ(t.written(f), c.written.count(f) != 0) << field_name(f);
        }
    }
}

}  // namespace
