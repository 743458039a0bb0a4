// What an offload adaptor answers (the event of its last launch and a status), the status codes
// of the offload path, and the method values of the task interface.
#pragma once

#include <cstdint>
#include <type_traits>

#include <sycl/sycl.hpp>

namespace tavrel::qnd::stats::detail::gpu {

// `event` is default-constructed when the adaptor refused; `status` is 0 when the work was
// submitted.
struct offload_result {
    sycl::event event;
    std::int32_t status;
};

// The codes share the number range of the core library's statistics component.
namespace offload_status {
constexpr std::int32_t ok = 0;
constexpr std::int32_t n_dims_below_one = -4001;
constexpr std::int32_t n_observations_below_one = -4002;
constexpr std::int32_t mean_missing = -4006;
constexpr std::int32_t raw_moment_2_missing = -4007;
constexpr std::int32_t raw_moment_3_missing = -4008;
constexpr std::int32_t raw_moment_4_missing = -4009;
constexpr std::int32_t central_moment_2_missing = -4010;
constexpr std::int32_t central_moment_3_missing = -4011;
constexpr std::int32_t central_moment_4_missing = -4012;
constexpr std::int32_t kurtosis_missing = -4013;
constexpr std::int32_t skewness_missing = -4014;
constexpr std::int32_t min_missing = -4015;
constexpr std::int32_t max_missing = -4016;
constexpr std::int32_t variation_missing = -4017;
constexpr std::int32_t method_refused = -4029;
constexpr std::int32_t observations_missing = -4032;
constexpr std::int32_t raw_sum_1_missing = -4074;
constexpr std::int32_t raw_sum_2_missing = -4075;
constexpr std::int32_t raw_sum_3_missing = -4076;
constexpr std::int32_t raw_sum_4_missing = -4077;
constexpr std::int32_t central_sum_2_missing = -4078;
constexpr std::int32_t central_sum_3_missing = -4079;
constexpr std::int32_t central_sum_4_missing = -4080;
}  // namespace offload_status

// Method values of the task interface (not the `method` template values of the estimators):
// compute everything from the observations, or take `mean` as the caller's mean.
constexpr std::int64_t offload_method_fast = 1;
constexpr std::int64_t offload_method_user_mean = 256;

// The method integer has the width of the entry point: 64-bit with 64-bit indices, else 32-bit.
template <bool Idx64>
using offload_method_int = std::conditional_t<Idx64, std::int64_t, std::int32_t>;

}  // namespace tavrel::qnd::stats::detail::gpu
