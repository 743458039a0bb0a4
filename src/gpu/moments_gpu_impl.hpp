// The moment engine's planner for the pointer form: temporaries, the tree of launches, and the
// order in which they run.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include <sycl/sycl.hpp>

#include "gpu/dataset_helper.hpp"
#include "gpu/range_check.hpp"
#include "gpu/moments_launch.hpp"
#include "gpu/sum_tmp_helper.hpp"
#include "tavrel/qnd/stats.hpp"

namespace tavrel::qnd::stats::detail::gpu {

// Launches the tree over temporaries already made, and returns the event of the launch that runs
// the functor. One group suffices when n_observations <= group_size; otherwise a first step
// leaves rows of n_groups partial sums, and intermediate steps shrink them by group_size (in
// place, each level's entries group_size times further apart than the last) until one group can
// finish them. The launches are ordered by the accessors on the temporaries.
template <bool Usm, bool UserMean, typename T, layout L, typename F, bool Idx64>
sycl::event launch_basic_tree(sycl::queue& queue,
                              const dataset_helper<T, L, Usm, Idx64>& data,
                              const sum_tmp_helper<T, Usm, UserMean>& tmp,
                              const F& func,
                              std::uint64_t group_size,
                              std::uint64_t n_groups,
                              std::uint64_t planes) {
    const auto n_observations = static_cast<std::uint64_t>(data.n_observations);
    if (n_groups == 1) {
        return basic_single_step<Usm, UserMean, T, L, F, Idx64>(
            queue, data, tmp, func, std::min(n_observations, group_size));
    }
    basic_first_step<Usm, UserMean, T, L, F, Idx64>(queue, data, tmp, func, group_size, n_groups,
                                                    n_observations % group_size);
    const std::uint64_t row_stride = n_groups;
    std::uint64_t element_stride = 1;
    std::uint64_t current = n_groups;
    std::uint64_t next = (current + group_size - 1) / group_size;
    while (next > 1) {
        basic_next_step<false, Usm, UserMean, T, L, F, Idx64>(queue, data, tmp, func, next,
                                                              group_size, current % group_size,
                                                              row_stride, element_stride, planes);
        element_stride *= group_size;
        current = next;
        next = (current + group_size - 1) / group_size;
    }
    return basic_next_step<true, Usm, UserMean, T, L, F, Idx64>(queue, data, tmp, func, 1,
                                                                std::min(current, group_size), 0,
                                                                row_stride, element_stride, planes);
}

// The plan of one pointer-form call in work-groups of group_size. `mean` is the caller's mean
// when UserMean, else unused. The dependencies are waited for here, on the caller's thread,
// before anything is made or enqueued. The temporaries are buffers local to this call, so the
// call returns when the last kernel has finished.
template <bool UserMean, bool Idx64, typename T, layout L, typename F>
sycl::event plan_basic_usm(sycl::queue& queue,
                           std::uint64_t group_size,
                           const T* mean,
                           const dataset<L, T*>& data,
                           const F& func,
                           const std::vector<sycl::event>& dependencies) {
    sycl::event::wait_and_throw(dependencies);
    const auto helper = make_dataset_helper<Idx64>(data);
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
        const sum_tmp_helper<T, true, true> tmp(sums, mean, w, w2, flags.f3, flags.f4,
                                                helper.has_weights, plane_stride,
                                                data.n_observations);
        return launch_basic_tree(queue, helper, tmp, func, group_size, n_groups, flags.planes);
    } else {
        const sum_tmp_helper<T, true, false> tmp(sums, w, w2, flags.f2, flags.f3, flags.f4,
                                                 helper.has_weights, plane_stride,
                                                 data.n_observations);
        return launch_basic_tree(queue, helper, tmp, func, group_size, n_groups, flags.planes);
    }
}

// Pointer form, sums of raw powers: `func` is a finisher of the UserMean = false kind and says
// through flags() which powers it needs. Idx64 false reads a mask of 32-bit entries.
template <bool Idx64 = true, typename T, layout L, typename F>
sycl::event submit_basic_usm(sycl::queue& queue,
                             dataset<L, T*> data,
                             const F& func,
                             const std::vector<sycl::event>& dependencies) {
    static_assert(!F::user_mean, "a finisher of sums around a caller's mean needs that mean");
    return plan_basic_usm<false, Idx64>(queue, device_group_size(queue),
                                        static_cast<const T*>(nullptr), data, func, dependencies);
}

// Pointer form, sums of powers of deviations from the caller's `mean` (device-accessible, one
// per dimension).
template <bool Idx64 = true, typename T, layout L, typename F>
sycl::event submit_basic_usm(sycl::queue& queue,
                             const T* mean,
                             dataset<L, T*> data,
                             const F& func,
                             const std::vector<sycl::event>& dependencies) {
    static_assert(F::user_mean, "sums around a caller's mean need a finisher of that kind");
    return plan_basic_usm<true, Idx64>(queue, device_group_size(queue), mean, data, func,
                                       dependencies);
}

}  // namespace tavrel::qnd::stats::detail::gpu
