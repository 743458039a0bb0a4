// The 64-bit mask of estimates that a statistics computation is asked for, and the groups of it
// that route to each routine of the core library.
#pragma once

#include <cstdint>

namespace tavrel::qnd::stats::detail::cpu {

// Bits whose meaning this library relies on.
enum estimate : std::uint64_t {
    est_mean = 0x1,
    est_raw_moment_2 = 0x2,
    est_raw_moment_3 = 0x4,
    est_raw_moment_4 = 0x8,
    est_central_moment_2 = 0x10,
    est_central_moment_3 = 0x20,
    est_central_moment_4 = 0x40,
    est_kurtosis = 0x80,
    est_skewness = 0x100,
    est_variation = 0x200,
    est_min = 0x400,
    est_max = 0x800,
    est_raw_sum_1 = 0x2000000,
    est_raw_sum_2 = 0x4000000,
    est_raw_sum_3 = 0x8000000,
    est_raw_sum_4 = 0x10000000,
    est_central_sum_2 = 0x20000000,
    est_central_sum_3 = 0x40000000,
    est_central_sum_4 = 0x80000000,
};

// Groups as the offload path tests them.
constexpr std::uint64_t est_raw_moments = 0xf;  // mean and raw moments
constexpr std::uint64_t est_central_moments = 0x70;
constexpr std::uint64_t est_raw_sums = 0x1e000000;
constexpr std::uint64_t est_central_sums = 0xe0000000;

// Estimates for which the dispatcher looks at n_dims alone: with any of them, observations and
// storage are left to the routines.
constexpr std::uint64_t est_dims_only = 0x1b00000;
// This bit sends the whole request to the missing-values routine and nothing else.
constexpr std::uint64_t est_missing_values = 0x400000;

}  // namespace tavrel::qnd::stats::detail::cpu
