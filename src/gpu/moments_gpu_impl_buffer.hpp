// The moment engine's planner for the buffer form: the same tree of launches as the pointer
// form, with the data reached through placeholder accessors and no dependency list.
#pragma once

#include <cstdint>

#include <sycl/sycl.hpp>

#include "gpu/dataset_helper.hpp"
#include "gpu/moments_gpu_impl.hpp"
#include "gpu/sum_tmp_helper.hpp"
#include "tavrel/qnd/stats.hpp"

namespace tavrel::qnd::stats::detail::gpu {

// The plan of one buffer-form call in work-groups of group_size. `mean` is the caller's mean when
// UserMean, else unused. Earlier work on the caller's buffers is ordered by the runtime through
// the accessors, so nothing waits on the caller's thread before the first launch. The
// temporaries are buffers local to this call, so the call returns when the last kernel has
// finished.
template <bool UserMean, typename T, layout L, typename F>
sycl::event plan_basic(sycl::queue& queue,
                       std::uint64_t group_size,
                       sycl::buffer<T, 1>* mean,
                       dataset<L, sycl::buffer<T, 1>> data,
                       const F& func) {
    // One element each, never written and never read (their flags are clear when they stand
    // in), so that an accessor can always be formed.
    sycl::buffer<T, 1> values_filler{sycl::range<1>(1)};
    sycl::buffer<std::int64_t, 1> indices_filler{sycl::range<1>(1)};
    const auto helper = make_dataset_helper(data, values_filler, indices_filler);
    const auto n_observations = static_cast<std::uint64_t>(data.n_observations);
    check_group_size(group_size, n_observations);
    const std::uint64_t n_groups = (n_observations + group_size - 1) / group_size;
    const std::uint64_t plane_stride = static_cast<std::uint64_t>(data.n_dims) * n_groups;
    const sum_flags flags = func.flags();
    const std::uint64_t weight_len = helper.has_weights ? n_groups : 1;
    sycl::buffer<T, 1> sums{sycl::range<1>(flags.planes * plane_stride)};
    sycl::buffer<T, 1> w{sycl::range<1>(weight_len)};
    sycl::buffer<T, 1> w2{sycl::range<1>(weight_len)};
    if constexpr (UserMean) {
        const sum_tmp_helper<T, false, true> tmp(sums, mean_input<T, false>(*mean), w, w2, flags.f3,
                                                 flags.f4, helper.has_weights, plane_stride,
                                                 data.n_observations);
        return launch_basic_tree(queue, helper, tmp, func, group_size, n_groups, flags.planes);
    } else {
        const sum_tmp_helper<T, false, false> tmp(sums, w, w2, flags.f2, flags.f3, flags.f4,
                                                  helper.has_weights, plane_stride,
                                                  data.n_observations);
        return launch_basic_tree(queue, helper, tmp, func, group_size, n_groups, flags.planes);
    }
}

// Buffer form, sums of raw powers: `func` is a finisher of the UserMean = false kind whose
// outputs are placeholder accessors on the caller's buffers.
template <typename T, layout L, typename F>
sycl::event submit_basic(sycl::queue& queue,
                         const dataset<L, sycl::buffer<T, 1>>& data,
                         const F& func) {
    static_assert(!F::user_mean, "a finisher of sums around a caller's mean needs that mean");
    return plan_basic<false>(queue, device_group_size(queue),
                             static_cast<sycl::buffer<T, 1>*>(nullptr), data, func);
}

// Buffer form, sums of powers of deviations from the caller's `mean` (one per dimension).
template <typename T, layout L, typename F>
sycl::event submit_basic(sycl::queue& queue,
                         sycl::buffer<T, 1> mean,
                         const dataset<L, sycl::buffer<T, 1>>& data,
                         const F& func) {
    static_assert(F::user_mean, "sums around a caller's mean need a finisher of that kind");
    return plan_basic<true>(queue, device_group_size(queue), &mean, data, func);
}

}  // namespace tavrel::qnd::stats::detail::gpu
