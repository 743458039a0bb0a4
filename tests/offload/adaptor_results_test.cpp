// Results of the nine offload adaptors against long-double references: both layouts, both
// element types, weights, masks of 64-bit and of 32-bit entries, method 1 with the mean and raw
// moments it writes besides, and method 256 around a caller's mean, on emulated GPUs whose
// work-group sizes walk every branch of the launch tree.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "offload/adaptor_calls.hpp"
#include "support/data.hpp"
#include "support/launch_log.hpp"
#include "support/reference.hpp"
#include "support/usm_array.hpp"

namespace {

namespace st = tavrel::qnd::stats;
namespace gpu = tavrel::qnd::stats::detail::gpu;
using namespace qnd_test;

constexpr std::int64_t n_dims = 5;
// 40 observations: one step at the default size, first + final in groups of 8, and two
// intermediate steps in groups of 3 (14 groups, then 5, then 2).
constexpr std::int64_t n_obs = 40;
const std::vector<std::int64_t> kept_mask{1, 0, -1, 7, 0};  // any value but 0 keeps

// The caller's mean of method 256 lies off the data's mean, so that sums around it differ.
constexpr long double caller_mean_offset = 0.375L;

template <typename T, st::layout L, bool Idx64>
struct combo {
    using value_type = T;
    static constexpr st::layout layout = L;
    static constexpr bool idx64 = Idx64;
};

// The fields each adaptor writes with every array present: method 1, then method 256.
std::vector<field> fields_written(adaptor a, bool user_mean) {
    switch (a) {
        case adaptor::min:
            return {f_min};
        case adaptor::max:
            return {f_max};
        case adaptor::raw_sum:
            return {f_rs1, f_rs2, f_rs3, f_rs4};
        case adaptor::raw_moment:
            return {f_mean, f_raw2, f_raw3, f_raw4};
        case adaptor::central_sum:
            if (user_mean)
                return {f_cs2, f_cs3, f_cs4};
            return {f_mean, f_raw2, f_raw3, f_raw4, f_cs2, f_cs3, f_cs4};
        case adaptor::central_moment:
            if (user_mean)
                return {f_cm2, f_cm3, f_cm4};
            return {f_mean, f_raw2, f_raw3, f_raw4, f_cm2, f_cm3, f_cm4};
        case adaptor::variation:
            if (user_mean)
                return {f_variation};
            return {f_mean, f_raw2, f_variation};
        case adaptor::skewness:
            if (user_mean)
                return {f_skewness};
            return {f_mean, f_raw2, f_raw3, f_skewness};
        case adaptor::kurtosis:
            if (user_mean)
                return {f_kurtosis};
            return {f_mean, f_raw2, f_raw3, f_raw4, f_kurtosis};
    }
    return {};
}

// The reference value of a moment field, from sums around the data's mean or the caller's.
long double expected_moment(int f, const moment_reference& r) {
    switch (f) {
        case f_mean:
            return r.mean();
        case f_raw2:
        case f_raw3:
        case f_raw4:
            return r.raw_moment(f - f_raw2 + 2);
        case f_cm2:
        case f_cm3:
        case f_cm4:
            return r.central_moment(f - f_cm2 + 2);
        case f_rs1:
        case f_rs2:
        case f_rs3:
        case f_rs4:
            return r.raw[f - f_rs1 + 1];
        case f_cs2:
        case f_cs3:
        case f_cs4:
            return r.central_sum(f - f_cs2 + 2);
        case f_kurtosis:
            return r.kurtosis();
        case f_skewness:
            return r.skewness();
        case f_variation:
            return r.variation();
    }
    return 0;
}

// The extremes engine ignores weights, and stores a maximum at or below the smallest positive
// normal value as that value.
template <typename T>
long double expected_extreme(int f, const host_data<T>& host, std::int64_t d) {
    long double lo = host.value(d, 0);
    long double hi = lo;
    for (std::int64_t i = 1; i < host.n_observations; ++i) {
        lo = std::min<long double>(lo, host.value(d, i));
        hi = std::max<long double>(hi, host.value(d, i));
    }
    if (f == f_min)
        return lo;
    return std::max<long double>(hi, std::numeric_limits<T>::min());
}

template <typename C>
struct adaptor_results : ::testing::Test {
    using T = typename C::value_type;
    static constexpr st::layout L = C::layout;
    static constexpr bool Idx64 = C::idx64;

    // Runs every adaptor with every method it has on one device and one data variant, and
    // compares each array with its reference: written where the adaptor writes and the
    // dimension is kept, untouched everywhere else.
    void run(const sycl::device& device, bool weighted_and_masked) {
        SCOPED_TRACE(device_text(device) + (weighted_and_masked ? " weighted, masked" : " plain"));
        sycl::queue q{device};
        host_data<T> host = skewed_data<T>(n_dims, n_obs, L);
        usm_array<T> obs(q, host.observations);
        usm_array<T> weights(q, random_weights<T>(n_obs));
        // 64-bit entries, or 32-bit entries padded to whole 64-bit words.
        usm_array<std::int64_t> mask64(q, kept_mask);
        std::vector<std::int32_t> entries32(kept_mask.begin(), kept_mask.end());
        entries32.resize((entries32.size() + 1) / 2 * 2, 0);
        usm_array<std::int32_t> mask32(q, entries32);
        std::int64_t* mask_ptr = nullptr;
        if (weighted_and_masked) {
            host.weights = weights.to_vector();
            host.indices = kept_mask;
            mask_ptr = Idx64 ? mask64.get() : reinterpret_cast<std::int64_t*>(mask32.get());
        }
        const st::dataset<L, T*> data{n_dims, n_obs, obs.get(),
                                      weighted_and_masked ? weights.get() : nullptr, mask_ptr};

        for (adaptor a : all_adaptors()) {
            for (bool user_mean : {false, true}) {
                if (user_mean && !takes_user_mean(a))
                    continue;
                SCOPED_TRACE(std::string(adaptor_name(a)) + (user_mean ? " method 256" : ""));
                task_arrays<T> t(q, n_dims);
                std::vector<long double> centre(n_dims);
                for (std::int64_t d = 0; d < n_dims; ++d) {
                    centre[d] = static_cast<T>(reference_of(host, d).mean() + caller_mean_offset);
                    if (user_mean)
                        t.array(f_mean)[d] = static_cast<T>(centre[d]);
                }
                gpu::offload_result r;
                const auto log = record_launches([&] {
                    r = call_adaptor<T, L, Idx64>(a, q, t, data, user_mean ? 256 : 1,
                                                  ~std::uint64_t{0});
                });
                r.event.wait();
                ASSERT_EQ(r.status, 0);
                expect_kernels(log);
                expect_arrays(t, host, fields_written(a, user_mean), user_mean, centre);
            }
        }
    }

    // Every launch names the layout and the index width of this instantiation.
    void expect_kernels(const std::vector<sycl::ext::hostsycl::launch_record>& log) {
        ASSERT_FALSE(log.empty());
        for (const auto& launch : log) {
            const std::vector<std::string> args = template_arguments(launch.kernel_name);
            ASSERT_GE(args.size(), 3u) << launch.kernel_name;
            EXPECT_EQ(args[1], L == st::row_major ? "true" : "false") << launch.kernel_name;
            EXPECT_EQ(args.back(), Idx64 ? "true" : "false") << launch.kernel_name;
        }
    }

    void expect_arrays(const task_arrays<T>& t,
                       const host_data<T>& host,
                       const std::vector<field>& written,
                       bool user_mean,
                       const std::vector<long double>& centre) {
        for (int f = 0; f < n_fields; ++f) {
            const bool is_written = std::count(written.begin(), written.end(), f) != 0;
            for (std::int64_t d = 0; d < n_dims; ++d) {
                const long double got = t.array(f)[d];
                if (user_mean && f == f_mean) {
                    EXPECT_EQ(got, static_cast<T>(centre[d])) << "the caller's mean is read only";
                    continue;
                }
                if (!is_written || !host.kept(d)) {
                    EXPECT_EQ(got, task_arrays<T>::untouched) << field_name(f) << " dim " << d;
                    continue;
                }
                long double want;
                if (f == f_min || f == f_max) {
                    want = expected_extreme(f, host, d);
                } else {
                    const moment_reference ref =
                        user_mean ? reference_of(host, d, &centre[d]) : reference_of(host, d);
                    want = expected_moment(f, ref);
                }
                EXPECT_TRUE(close_to(got, want, moment_tolerance<T>()))
                    << field_name(f) << " dim " << d << ": got " << got << ", want " << want;
            }
        }
    }

    static std::string device_text(const sycl::device& device) {
        return "group size " +
               std::to_string(device.get_info<sycl::info::device::max_work_group_size>());
    }
};

using combos = ::testing::Types<combo<double, st::row_major, true>,
                                combo<double, st::col_major, false>,
                                combo<float, st::col_major, true>,
                                combo<float, st::row_major, false>>;
TYPED_TEST_SUITE(adaptor_results, combos);

TYPED_TEST(adaptor_results, plain_data_on_every_branch_of_the_launch_tree) {
    for (std::size_t size : {std::size_t{3}, std::size_t{8}})
        this->run(sycl::ext::hostsycl::make_gpu_device(size), false);
    this->run(sycl::device(sycl::gpu_selector_v), false);
}

TYPED_TEST(adaptor_results, weighted_and_masked_data_on_every_branch_of_the_launch_tree) {
    for (std::size_t size : {std::size_t{3}, std::size_t{8}})
        this->run(sycl::ext::hostsycl::make_gpu_device(size), true);
    this->run(sycl::device(sycl::gpu_selector_v), true);
}

}  // namespace
