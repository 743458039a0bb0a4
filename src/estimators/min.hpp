// The GPU functor of the min family: the smallest value of each kept dimension.
#pragma once

#include <sycl/sycl.hpp>

#include "gpu/minmax_gpu_impl_output.hpp"

namespace tavrel::qnd::stats::detail::gpu {

// Usm true holds the user's pointer, Usm false a local array and a write accessor (see
// extreme_output). A minimum above the largest finite value, or not a number, is stored as the
// largest finite value.
template <typename T, bool Usm>
struct min_func_fast {
    using value_type = T;
    static constexpr bool usm = Usm;
    static constexpr bool has_min = true;
    static constexpr bool has_max = false;

    extreme_output<T, Usm> min;

    // Called on the functor's copy inside each command group.
    void bind(sycl::handler& cgh, std::size_t local_size) { min.bind(cgh, local_size); }
};

}  // namespace tavrel::qnd::stats::detail::gpu
