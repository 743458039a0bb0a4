// The planners of the extreme engine: from n_observations and the device's work-group size they
// choose a single launch or a chain of first, intermediate and final steps, in the pointer form
// (device allocations, host waits between launches) and the buffer form (accessors only).
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include <sycl/sycl.hpp>

#include "gpu/dataset_helper.hpp"
#include "gpu/range_check.hpp"
#include "gpu/minmax_gpu_impl_launch.hpp"

namespace tavrel::qnd::stats::detail::gpu {

// Partials per group of the first step, rounded up; 0 observations give 0 groups, which is not
// a single launch.
inline std::uint64_t minmax_groups(std::uint64_t n_items, std::uint64_t group_size) {
    return (n_items + group_size - 1) / group_size;
}

// Runs the chain after its first step: intermediate steps while the rows of partials need two
// groups or more, then one final group. `wait` is what the form does after each launch.
template <typename F, typename Data, typename Storage, std::size_t N, typename Wait>
sycl::event minmax_fold(sycl::queue& queue,
                        const Data& data,
                        const F& functor,
                        std::array<Storage, N>& tmp,
                        std::uint64_t group_size,
                        std::uint64_t n_items,
                        Wait wait) {
    // Rows keep the first step's stride; each level's partials stand group_size times further
    // apart than the last's.
    const std::uint64_t row_stride = n_items;
    std::uint64_t element_stride = 1;
    for (std::uint64_t next = minmax_groups(n_items, group_size); next >= 2;
         next = minmax_groups(n_items, group_size)) {
        const std::uint64_t tail = n_items % group_size;
        wait(minmax_next_step<false>(queue, data, functor, tmp, next, group_size, row_stride,
                                     element_stride, tail));
        element_stride *= group_size;
        n_items = next;
    }
    const std::uint64_t local_size = std::min(n_items, group_size);
    sycl::event last = minmax_next_step<true>(queue, data, functor, tmp, 1, local_size, row_stride,
                                              element_stride, 0);
    wait(last);
    return last;
}

// Pointer form, in work-groups of group_size. Waits for `dependencies` on the caller's thread
// first. One group's worth of observations costs one launch, no allocation and no wait, and its
// event is returned live; otherwise the temporaries are device allocations of n_dims * n_groups
// elements each (minimum first), every launch is waited for, and the returned event is complete.
// The temporaries are freed only on the normal path.
template <bool Idx64 = true, typename F, typename T, layout L>
sycl::event plan_minmax_usm(sycl::queue& queue,
                            std::uint64_t group_size,
                            const dataset<L, T*>& data,
                            const F& functor,
                            const std::vector<sycl::event>& dependencies) {
    sycl::event::wait_and_throw(dependencies);
    const auto helper = make_dataset_helper<Idx64>(data);
    const auto n_observations = static_cast<std::uint64_t>(data.n_observations);
    check_group_size(group_size, n_observations);
    const std::uint64_t n_groups = minmax_groups(n_observations, group_size);

    if (n_groups == 1)
        return minmax_single_step(queue, helper, functor, std::min(n_observations, group_size));

    const std::uint64_t count = static_cast<std::uint64_t>(data.n_dims) * n_groups;
    std::array<T*, n_extremes<F>> tmp;
    for (auto& t : tmp)
        t = sycl::malloc_device<T>(count, queue);

    const auto wait = [](sycl::event e) { e.wait(); };
    wait(minmax_first_step(queue, helper, functor, tmp, group_size, n_groups,
                           n_observations % group_size));
    sycl::event last = minmax_fold(queue, helper, functor, tmp, group_size, n_groups, wait);

    for (auto* t : tmp)
        sycl::free(t, queue.get_context());
    return last;
}

// Pointer form in work-groups of the device's size.
template <bool Idx64 = true, typename F, typename T, layout L>
sycl::event submit_minmax_usm(sycl::queue& queue,
                              const dataset<L, T*>& data,
                              const F& functor,
                              const std::vector<sycl::event>& dependencies) {
    return plan_minmax_usm<Idx64>(queue, device_group_size(queue), data, functor, dependencies);
}

// Buffer form, in work-groups of group_size. Nothing waits here: the accessors on the shared
// buffers order the chain, and the end of the temporaries' and fillers' lifetime blocks until it
// is done.
template <typename F, typename T, layout L>
void plan_minmax(sycl::queue& queue,
                 std::uint64_t group_size,
                 const dataset<L, sycl::buffer<T, 1>>& data,
                 const F& functor) {
    sycl::buffer<T, 1> values_filler{sycl::range<1>(1)};
    sycl::buffer<std::int64_t, 1> indices_filler{sycl::range<1>(1)};
    const auto helper = make_dataset_helper(data, values_filler, indices_filler);
    const auto n_observations = static_cast<std::uint64_t>(data.n_observations);
    check_group_size(group_size, n_observations);
    const std::uint64_t n_groups = minmax_groups(n_observations, group_size);

    if (n_groups == 1) {
        minmax_single_step(queue, helper, functor, std::min(n_observations, group_size));
        return;
    }

    const sycl::range<1> count{static_cast<std::size_t>(data.n_dims) * n_groups};
    std::array<sycl::buffer<T, 1>, n_extremes<F>> tmp = [&] {
        if constexpr (n_extremes<F> == 1)
            return std::array<sycl::buffer<T, 1>, 1>{sycl::buffer<T, 1>(count)};
        else
            return std::array<sycl::buffer<T, 1>, 2>{sycl::buffer<T, 1>(count),
                                                     sycl::buffer<T, 1>(count)};
    }();

    const auto no_wait = [](const sycl::event&) {};
    minmax_first_step(queue, helper, functor, tmp, group_size, n_groups,
                      n_observations % group_size);
    minmax_fold(queue, helper, functor, tmp, group_size, n_groups, no_wait);
}

// Buffer form in work-groups of the device's size.
template <typename F, typename T, layout L>
void submit_minmax(sycl::queue& queue,
                   const dataset<L, sycl::buffer<T, 1>>& data,
                   const F& functor) {
    plan_minmax(queue, device_group_size(queue), data, functor);
}

}  // namespace tavrel::qnd::stats::detail::gpu
