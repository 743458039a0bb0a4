// Results of the nine offload adaptors against long-double references: both layouts, both
// element types, weights, masks of 64-bit and of 32-bit entries, method 1 with the mean and raw
// moments it writes besides, and method 256 around a caller's mean, on emulated GPUs whose
// work-group sizes walk every branch of the launch tree.
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "offload/adaptor_calls.hpp"
#include "offload/expected_results.hpp"
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

template <typename T, st::layout L, bool Idx64>
struct combo {
    using value_type = T;
    static constexpr st::layout layout = L;
    static constexpr bool idx64 = Idx64;
};

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
                const std::vector<long double> centre = caller_means(host);
                if (user_mean) {
                    for (std::int64_t d = 0; d < n_dims; ++d)
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
                expect_results(t, host, fields_written(a, user_mean), user_mean, centre);
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
