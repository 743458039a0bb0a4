// The checks of the moment families and their words, the order in which they are made, the
// refusals by device and method, and what stops a call before anything is enqueued: a failed
// dependency and a launch range past 31 bits.
#include <array>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "gpu/range_check.hpp"
#include "support/moment_families.hpp"
#include "support/refusals.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/exceptions.hpp"
#include "tavrel/qnd/stats.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;
using ds = st::dataset<st::row_major, double*>;

const std::string prefix = "tavrel::qnd::stats::";

// The forms with a caller's mean, which may be null here (call_moment_family takes a null mean
// for the form without one).
void call_with_mean(moment_family family, sycl::queue& q, double* m, const ds& d, double* o) {
    switch (family) {
        case moment_family::central_sum:
            st::central_sum<1, double, st::row_major>(q, m, d, nullptr, o, nullptr);
            return;
        case moment_family::central_moment:
            st::central_moment<1, double, st::row_major>(q, m, d, o, nullptr, nullptr);
            return;
        case moment_family::variation:
            st::variation<1, double, st::row_major>(q, m, d, o);
            return;
        case moment_family::skewness:
            st::skewness<1, double, st::row_major>(q, m, d, o);
            return;
        case moment_family::kurtosis:
            st::kurtosis<1, double, st::row_major>(q, m, d, o);
            return;
        default:
            FAIL() << "no form with a caller's mean";
    }
}

// The argument checks come first, on a GPU and on a CPU queue alike, under both method values
// (before the refusal of value 2 of the central families on a GPU). With a caller's mean the
// outputs are tested before the mean.
TEST(MomentChecks, MissingOutputsAreRefusedWithTheirWords) {
    for (const sycl::device& dev :
         {sycl::device(sycl::gpu_selector_v), sycl::device(sycl::cpu_selector_v)}) {
        sycl::queue q(dev);
        usm_array<double> obs(q, std::vector<double>{1, 2, 3});
        usm_array<double> out(q, 1), mean(q, 1);
        const ds data{1, 3, obs.get()};
        const std::array<double*, 4> none{};
        for (const moment_family_info& f : moment_families()) {
            const std::string head = prefix + f.name + ": invalid argument: ";
            const std::string outputs_text = head + missing_outputs(f.family, false);
            SCOPED_TRACE(std::string(f.name) + (dev.is_cpu() ? " on the CPU" : " on the GPU"));
            expect_refusal<tavrel::qnd::invalid_argument>(
                [&] { call_moment_family<1, double>(f.family, q, nullptr, data, none); },
                outputs_text);
            expect_refusal<tavrel::qnd::invalid_argument>(
                [&] { call_moment_family<2, double>(f.family, q, nullptr, data, none); },
                outputs_text);
            if (!f.takes_user_mean)
                continue;
            expect_refusal<tavrel::qnd::invalid_argument>(
                [&] { call_with_mean(f.family, q, nullptr, data, nullptr); }, outputs_text);
            expect_refusal<tavrel::qnd::invalid_argument>(
                [&] { call_with_mean(f.family, q, mean.get(), data, nullptr); }, outputs_text);
            expect_refusal<tavrel::qnd::invalid_argument>(
                [&] { call_with_mean(f.family, q, nullptr, data, out.get()); },
                head + "mean is nullptr");
        }
    }
}

// A family answers invalid_argument as an instance of the base class too.
TEST(MomentChecks, RefusalsAreCaughtAsTheLibrarysException) {
    sycl::queue q(sycl::gpu_selector_v);
    const ds data{1, 3, nullptr};
    auto call = [&] { st::mean<1, double, st::row_major>(q, data, nullptr); };
    EXPECT_THROW(call(), tavrel::qnd::exception);
    EXPECT_THROW(call(), std::exception);
}

// Method 2 of central_sum and central_moment has no GPU form.
TEST(MomentChecks, MethodTwoOfTheCentralFamiliesIsRefusedOnTheGpu) {
    sycl::queue q(sycl::gpu_selector_v);
    usm_array<float> obs(q, std::vector<float>{1, 2, 3});
    usm_array<float> out(q, 1);
    const st::dataset<st::col_major, float*> data{1, 3, obs.get()};
    expect_refusal<tavrel::qnd::unimplemented>(
        [&] { st::central_sum<2, float, st::col_major>(q, data, out.get(), nullptr, nullptr); },
        prefix + "central_sum: unimplemented functionality: for this method");
    expect_refusal<tavrel::qnd::unimplemented>(
        [&] { st::central_moment<2, float, st::col_major>(q, data, nullptr, nullptr, out.get()); },
        prefix + "central_moment: unimplemented functionality: for this method");
}

// A dependency that failed surfaces from the call itself, before anything is launched, and the
// outputs stay as they were.
TEST(MomentChecks, FailedDependencyStopsTheCallBeforeAnyLaunch) {
    struct dependency_failed : std::runtime_error {
        using std::runtime_error::runtime_error;
    };
    sycl::queue producer(sycl::gpu_selector_v, [](sycl::exception_list errors) {
        for (const std::exception_ptr& e : errors)
            std::rethrow_exception(e);
    });
    sycl::event failed = producer.submit([](sycl::handler& cgh) {
        cgh.host_task([] { throw dependency_failed("producer failed"); });
    });
    sycl::queue q(sycl::gpu_selector_v);
    usm_array<double> obs(q, std::vector<double>{1, 2, 3});
    usm_array<double> out(q, 1);
    out[0] = -1.0;
    const ds data{1, 3, obs.get()};
    bool thrown = false;
    const auto log = record_launches([&] {
        try {
            st::kurtosis<1, double, st::row_major>(q, data, out.get(), {failed});
        } catch (const dependency_failed& e) {
            thrown = true;
            EXPECT_EQ(std::string(e.what()), "producer failed");
        }
    });
    EXPECT_TRUE(thrown);
    EXPECT_TRUE(log.empty()) << describe(log);
    EXPECT_EQ(out[0], -1.0);
}

const char* const range_words =
    "Provided range is out of integer limits. Pass `-fno-sycl-id-queries-fit-in-int' to disable "
    "range check.";

// 2^31 observations make the first step's global range 2^31: refused before it is declared.
// The observations are never read, so one element stands in for them.
TEST(MomentChecks, LaunchRangeOf2To31IsRefused) {
    sycl::queue q(sycl::gpu_selector_v);
    usm_array<float> obs(q, 1);
    usm_array<float> out(q, 1);
    for (std::int64_t n : {std::int64_t{1} << 31, (std::int64_t{1} << 31) - 1}) {
        SCOPED_TRACE(n);
        const st::dataset<st::row_major, float*> data{1, n, obs.get()};
        bool thrown = false;
        const auto log = record_launches([&] {
            try {
                st::mean<1, float, st::row_major>(q, data, out.get());
            } catch (const sycl::exception& e) {
                thrown = true;
                EXPECT_EQ(e.code(), sycl::make_error_code(sycl::errc::nd_range));
                EXPECT_EQ(std::string(e.what()), range_words);
            }
        });
        EXPECT_TRUE(thrown);
        EXPECT_TRUE(log.empty()) << describe(log);
    }
}

// The range test itself, in its order: sizes, then offset bits, then offset plus size.
TEST(MomentChecks, RangeTestWordsAndOrder) {
    namespace gpu = st::detail::gpu;
    const std::uint64_t limit = std::uint64_t{1} << 31;
    const std::string offset_words =
        "Provided offset is out of integer limits. Pass `-fno-sycl-id-queries-fit-in-int' to "
        "disable offset check.";
    struct range_case {
        std::uint64_t global, local, offset;
        std::string words;  // empty: accepted
    };
    const std::vector<range_case> cases{
        {limit - 1, limit - 1, 0, ""},  {limit, 1, 0, range_words},
        {1, limit, 0, range_words},     {limit, 1, limit, range_words},  // sizes are tested first
        {1, 1, limit, offset_words},    {1, 1, std::uint64_t{1} << 40, offset_words},
        {limit - 1, 1, 1, range_words},  // offset + global reaches 2^31
        {limit - 2, 1, 1, ""},
    };
    for (const range_case& c : cases) {
        SCOPED_TRACE(std::to_string(c.global) + "/" + std::to_string(c.local) + "+" +
                     std::to_string(c.offset));
        try {
            gpu::check_launch_range(c.global, c.local, c.offset);
            EXPECT_TRUE(c.words.empty()) << "accepted";
        } catch (const sycl::exception& e) {
            EXPECT_EQ(e.code(), sycl::make_error_code(sycl::errc::nd_range));
            EXPECT_EQ(std::string(e.what()), c.words);
        }
    }
}

}  // namespace
