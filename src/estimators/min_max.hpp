// The GPU functor of the min_max family: both extremes of each kept dimension, the minimum first.
#pragma once

#include <sycl/sycl.hpp>

#include "gpu/minmax_gpu_impl_output.hpp"

namespace tavrel::qnd::stats::detail::gpu {

// The two outputs behave as those of min_func_fast and max_func_fast; each work-group reduces
// and stores the minimum before the maximum.
template <typename T, bool Usm>
struct min_max_func_fast {
    using value_type = T;
    static constexpr bool usm = Usm;
    static constexpr bool has_min = true;
    static constexpr bool has_max = true;

    extreme_output<T, Usm> min;
    extreme_output<T, Usm> max;

    // Called on the functor's copy inside each command group.
    void bind(sycl::handler& cgh, std::size_t local_size) {
        min.bind(cgh, local_size);
        max.bind(cgh, local_size);
    }
};

}  // namespace tavrel::qnd::stats::detail::gpu
