// The GPU functor of the max family: the largest value of each kept dimension, never below the
// smallest positive normal value.
#pragma once

#include <sycl/sycl.hpp>

#include "gpu/minmax_gpu_impl_output.hpp"

namespace tavrel::qnd::stats::detail::gpu {

// Usm true holds the user's pointer, Usm false a local array and a write accessor (see
// extreme_output). A maximum at or below the smallest positive normal value, or not a number,
// is stored as that value: a dimension of zeros or negative numbers reads as it.
template <typename T, bool Usm>
struct max_func_fast {
    using value_type = T;
    static constexpr bool usm = Usm;
    static constexpr bool has_min = false;
    static constexpr bool has_max = true;

    extreme_output<T, Usm> max;

    // Called on the functor's copy inside each command group.
    void bind(sycl::handler& cgh, std::size_t local_size) { max.bind(cgh, local_size); }
};

}  // namespace tavrel::qnd::stats::detail::gpu
