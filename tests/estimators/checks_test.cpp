// What stops an exported estimator before anything is launched, in order and in its words: argument
// checks in both forms, GPU-only refusals, a failed dependency and launch ranges past 31 bits.
#include <array>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "gpu/range_check.hpp"
#include "support/devices.hpp"
#include "support/launch_log.hpp"
#include "support/moment_families.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/stats.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;
using buf = sycl::buffer<double, 1>;
using ptr_data = st::dataset<st::row_major, double*>;
using buf_data = st::dataset<st::row_major, buf>;
using refusal = std::pair<std::function<void()>, std::string>;  // a call and its exact words

// Each call throws with exactly its words and launches nothing. The only SYCL errors among them
// are launch ranges, with errc::nd_range.
void expect_refusals(const std::vector<refusal>& refusals) {
    for (const auto& [call, words] : refusals) {
        std::string got = "no exception";
        const auto log = record_launches([&, &call = call] {
            try {
                call();
            } catch (const std::exception& e) {
                got = e.what();
                if (const auto* s = dynamic_cast<const sycl::exception*>(&e))
                    EXPECT_EQ(s->code(), sycl::make_error_code(sycl::errc::nd_range)) << got;
            }
        });
        EXPECT_EQ(got, words);
        EXPECT_TRUE(log.empty()) << words << ": launched " << describe(log);
    }
}

// The pointer forms with a caller's mean, which may be null here, and one output.
void call_with_mean(moment_family family, sycl::queue& q, double* m, const ptr_data& d, double* o) {
    using mf = moment_family;
    // clang-format off
    switch (family) {
        case mf::central_sum: st::central_sum<1, double>(q, m, d, o, nullptr, nullptr); break;
        case mf::central_moment: st::central_moment<1, double>(q, m, d, o, nullptr, nullptr); break;
        case mf::variation: st::variation<1, double>(q, m, d, o); break;
        case mf::skewness: st::skewness<1, double>(q, m, d, o); break;
        default: st::kurtosis<1, double>(q, m, d, o);
    }
    // clang-format on
}

class checks : public ::testing::TestWithParam<sycl::device> {};

// Missing outputs are named first, then a missing caller's mean; under both method values, so
// before the refusal of value 2 of the central families on a GPU. "all ..." takes the plural.
TEST_P(checks, moment_families_name_what_is_missing) {
    const std::string missing[] = {"mean",        "all sums",  "all moments", "all sums",
                                   "all moments", "variation", "skewness",    "kurtosis"};
    sycl::queue q(GetParam());
    usm_array<double> obs(q, std::vector<double>{1, 2, 3}), out(q, 3), mean(q, 3);
    const ptr_data data{1, 3, obs.get()};
    buf none{sycl::range<1>(0)};
    const buf_data b_data{1, 3, buf{sycl::range<1>(3)}};
    std::array<buf, 4> empty{none, none, none, none};
    for (const moment_family_info& f : moment_families()) {
        const std::string head =
            std::string("tavrel::qnd::stats::") + f.name + ": invalid argument: ";
        const std::string& it = missing[static_cast<int>(f.family)];
        const bool plural = it.rfind("all ", 0) == 0;
        const std::string words = head + it + (plural ? " are nullptr" : " is nullptr");
        const std::string b_words = head + it + (plural ? " arrays" : " array") + " length is 0";
        const auto fm = f.family;
        std::vector<refusal> refusals{
            {[&] { call_moment_family<1, double>(fm, q, nullptr, data, {}); }, words},
            {[&] { call_moment_family<2, double>(fm, q, nullptr, data, {}); }, words},
            {[&] { call_buffer_form<1, double>(fm, q, nullptr, b_data, empty); }, b_words},
            {[&] { call_buffer_form<2, double>(fm, q, nullptr, b_data, empty); }, b_words},
        };
        std::array<buf, 4> last_given = empty;
        last_given[f.n_outputs - 1] = buf{sycl::range<1>(1)};
        // clang-format off
        if (f.takes_user_mean)
            refusals.insert(refusals.end(), {
                {[&] { call_with_mean(fm, q, nullptr, data, nullptr); }, words},
                {[&] { call_with_mean(fm, q, mean.get(), data, nullptr); }, words},
                {[&] { call_with_mean(fm, q, nullptr, data, out.get()); }, head + "mean is nullptr"},
                {[&] { call_buffer_form<1, double>(fm, q, &none, b_data, empty); }, b_words},
                {[&] { call_buffer_form<1, double>(fm, q, &none, b_data, last_given); },
                 head + "mean array length is 0"}});
        // clang-format on
        expect_refusals(refusals);
    }
}

// min_max tests its minimum first: with both missing, the minimum is named. What is given stays.
TEST_P(checks, extreme_families_name_what_is_missing) {
    sycl::queue q(GetParam());
    usm_array<float> obs(q, std::vector<float>{1, 2, 3, 4}), given(q, std::vector<float>{-7, -7});
    float *const lo = given.get(), *const hi = lo + 1;
    const st::dataset<st::row_major, float*> data(1, 4, obs.get());
    using fbuf = sycl::buffer<float, 1>;
    const st::dataset<st::row_major, fbuf> b_data(1, 4, fbuf{sycl::range<1>(4)});
    fbuf none{sycl::range<1>(0)}, one{sycl::range<1>(1)};
    const auto words = [](const char* family, const char* what) {
        return std::string("tavrel::qnd::stats::") + family + ": invalid argument: " + what;
    };
    const char *min_null = "min is nullptr", *max_null = "max is nullptr";
    const char *min_empty = "min array length is 0", *max_empty = "max array length is 0";
    // clang-format off
    expect_refusals({
        {[&] { st::min<1, float>(q, data, nullptr); }, words("min", min_null)},
        {[&] { st::max<1, float>(q, data, nullptr); }, words("max", max_null)},
        {[&] { st::min_max<1, float>(q, data, nullptr, nullptr); }, words("min_max", min_null)},
        {[&] { st::min_max<1, float>(q, data, nullptr, hi); }, words("min_max", min_null)},
        {[&] { st::min_max<1, float>(q, data, lo, nullptr); }, words("min_max", max_null)},
        {[&] { st::min<1, float>(q, b_data, none); }, words("min", min_empty)},
        {[&] { st::max<1, float>(q, b_data, none); }, words("max", max_empty)},
        {[&] { st::min_max<1, float>(q, b_data, none, none); }, words("min_max", min_empty)},
        {[&] { st::min_max<1, float>(q, b_data, none, one); }, words("min_max", min_empty)},
        {[&] { st::min_max<1, float>(q, b_data, one, none); }, words("min_max", max_empty)},
    });
    // clang-format on
    EXPECT_EQ(given.to_vector(), std::vector<float>(2, -7.0f));
}

INSTANTIATE_TEST_SUITE_P(devices,
                         checks,
                         ::testing::Values(cpu_device(), sycl::device(sycl::gpu_selector_v)),
                         device_name());

const std::string range_words =
    "Provided range is out of integer limits. Pass `-fno-sycl-id-queries-fit-in-int' to disable "
    "range check.";

// On a GPU, what stops a call before any launch, outputs untouched: method value 2 of the central
// families (no GPU form); a first step of 2^31 work-items (the observations are never read); and,
// before any allocation, a failed dependency (raised on the caller's thread) and one-item groups,
// which cannot shrink a tree of partials (one observation needs none).
TEST(checks_gpu, calls_stopped_before_anything_runs) {
    const auto rethrow = [](sycl::exception_list errors) {
        for (const std::exception_ptr& e : errors)
            std::rethrow_exception(e);
    };
    sycl::queue q(sycl::gpu_selector_v, rethrow), one(sycl::ext::hostsycl::make_gpu_device(1));
    usm_array<double> obs(q, std::vector<double>(600, 1.0)), out(q, std::vector<double>{-1, -1});
    const ptr_data data{1, 600, obs.get()}, two{1, 2, obs.get()};
    std::vector<double> host_out{-1.0};
    const buf_data b_data{1, 3, buf{sycl::range<1>(3)}};
    buf none{sycl::range<1>(0)}, b_out(host_out.data(), sycl::range<1>(1));
    const std::string too_small =
        "The device's maximum work-group size is too small to reduce more than one observation.";
    const std::int64_t big = std::int64_t{1} << 31;
    const auto failed = [&] {
        return q.submit([](sycl::handler& h) {
            h.host_task([] { throw std::runtime_error("dependency failed"); });
        });
    };
    const std::string no_form = ": unimplemented functionality: for this method",
                      dep = "dependency failed";
    const std::string no_cs = "tavrel::qnd::stats::central_sum" + no_form,
                      no_cm = "tavrel::qnd::stats::central_moment" + no_form;
    // clang-format off
    expect_refusals({
        {[&] { st::central_sum<2, double>(q, data, out.get(), nullptr, nullptr); }, no_cs},
        {[&] { st::central_moment<2, double>(q, data, out.get(), nullptr, nullptr); }, no_cm},
        {[&] { st::central_sum<2, double>(q, b_data, b_out, none, none); }, no_cs},
        {[&] { st::central_moment<2, double>(q, b_data, b_out, none, none); }, no_cm},
        {[&] { st::mean<1, double>(q, ptr_data(1, big, obs.get()), out.get()); }, range_words},
        {[&] { st::mean<1, double>(q, ptr_data(1, big - 1, obs.get()), out.get()); }, range_words},
        {[&] { st::min<1, double>(q, ptr_data(0, big, obs.get()), out.get()); }, range_words},
    });
    std::size_t device_mallocs = 0;
    sycl::ext::hostsycl::set_usm_observer([&](sycl::ext::hostsycl::usm_op op, void*, std::size_t) {
        device_mallocs += op == sycl::ext::hostsycl::usm_op::malloc_device;
    });
    expect_refusals({
        {[&] { st::kurtosis<1, double>(q, data, out.get(), {failed()}); }, dep},
        {[&] { st::min_max<1, double>(q, data, out.get(), out.get() + 1, {failed()}); }, dep},
        {[&] { st::mean<1, double>(one, two, out.get()); }, too_small},
        {[&] { st::kurtosis<1, double>(one, two, out.get()); }, too_small},
        {[&] { st::min_max<1, double>(one, two, out.get(), out.get() + 1); }, too_small},
        {[&] { st::mean<1, double>(one, b_data, b_out); }, too_small},
        {[&] { st::max<1, double>(one, b_data, b_out); }, too_small},
    });
    // clang-format on
    sycl::ext::hostsycl::set_usm_observer({});
    EXPECT_EQ(device_mallocs, 0u);
    EXPECT_EQ(out.to_vector(), std::vector<double>(2, -1.0));
    st::mean<1, double>(one, ptr_data(1, 1, obs.get()), out.get()).wait();
    EXPECT_EQ(out.to_vector(), (std::vector<double>{1, -1}));
    b_out = buf{sycl::range<1>(0)};  // writes back
    EXPECT_EQ(host_out[0], -1.0);
}

// The range test itself, in its order: sizes, then offset bits, then offset plus size.
TEST(checks_gpu, range_test_words_and_order) {
    const std::uint64_t limit = std::uint64_t{1} << 31;
    const std::string offset_words =
        "Provided offset is out of integer limits. Pass `-fno-sycl-id-queries-fit-in-int' to "
        "disable offset check.";
    struct range_case {
        std::uint64_t global, local, offset;
        std::string words;  // empty: accepted
    };
    const range_case cases[] = {
        {limit - 1, limit - 1, 0, ""},  {limit, 1, 0, range_words},
        {1, limit, 0, range_words},     {limit, 1, limit, range_words},
        {1, 1, limit, offset_words},    {1, 1, std::uint64_t{1} << 40, offset_words},
        {limit - 1, 1, 1, range_words}, {limit - 2, 1, 1, ""},
    };
    for (const range_case& c : cases) {
        std::string got;
        try {
            st::detail::gpu::check_launch_range(c.global, c.local, c.offset);
        } catch (const sycl::exception& e) {
            EXPECT_EQ(e.code(), sycl::make_error_code(sycl::errc::nd_range));
            got = e.what();
        }
        EXPECT_EQ(got, c.words) << c.global << "/" << c.local << "+" << c.offset;
    }
}

}  // namespace
