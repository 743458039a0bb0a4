// The GPU finishers of central_sum: from raw sums, around a caller's mean, and (for the offload
// path) from raw sums storing the mean and raw moments as well.
#pragma once

#include "gpu/central_finishers.hpp"

namespace tavrel::qnd::stats::detail::gpu {

template <typename T, typename Acc>
struct central_sum_func_fast_base : central_fast_finisher<false, T, Acc> {};

template <typename T, bool Usm>
struct central_sum_func_fast
    : central_fast_outputs<central_sum_func_fast_base<T, output_array<T, Usm>>, T, Usm> {};

template <typename T, bool Usm>
struct central_sum_func_user_mean : central_user_mean_finisher<false, T, Usm> {};

namespace ex {

template <typename T, typename Acc>
struct central_sum_func_fast_base : central_ex_finisher<false, T, Acc> {};

template <typename T, bool Usm>
struct central_sum_func_fast;

template <typename T>
struct central_sum_func_fast<T, true> : central_ex_outputs<central_sum_func_fast_base<T, T*>, T> {};

}  // namespace ex
}  // namespace tavrel::qnd::stats::detail::gpu
