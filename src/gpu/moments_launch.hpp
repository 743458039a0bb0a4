// The three launch helpers of the moment engine: each tests its range, registers the
// accessors, sizes the local array and submits one step kernel.
#pragma once

#include <algorithm>
#include <cstdint>

#include <sycl/sycl.hpp>

#include "gpu/dataset_helper.hpp"
#include "gpu/moments_kernels.hpp"
#include "gpu/range_check.hpp"
#include "gpu/sum_tmp_helper.hpp"

namespace tavrel::qnd::stats::detail::gpu {

// Registers what a moment command group touches, in the order dataset, functor, temporaries.
// Pointer-form functors hold no accessor.
template <bool Usm, typename Data, typename F, typename Tmp>
inline void require_all(sycl::handler& cgh, const Data& data, const F& func, const Tmp& tmp) {
    data.require(cgh);
    if constexpr (!Usm)
        func.require(cgh);
    tmp.require(cgh);
}

// The elements of a next step's local array: P planes of local_size, one more with weights. With
// weights and no gap in the kept orders the kernels address one plane past that, which only a
// runtime that pads each work-group's local memory absorbs (QND_LOCAL_MEMORY_SLACK, defined by
// builds on the project's host runtime); elsewhere the request covers every plane addressed.
template <typename Tmp>
inline std::uint64_t next_step_local_elements(const Tmp& tmp,
                                              std::uint64_t planes,
                                              std::uint64_t local_size) {
    const std::uint64_t w = tmp.has_weights ? 1 : 0;
    const std::uint64_t stated = planes == 1 ? (local_size << w) : (planes + w) * local_size;
#ifdef QND_LOCAL_MEMORY_SLACK
    return stated;
#else
    return std::max(stated, tmp.addressed_planes() * local_size);
#endif
}

// One work-group of local_size work-items reduces everything and runs the functor.
template <bool Usm, bool UserMean, typename T, layout L, typename F, bool Idx64>
sycl::event basic_single_step(sycl::queue& queue,
                              const dataset_helper<T, L, Usm, Idx64>& data,
                              const sum_tmp_helper<T, Usm, UserMean>& tmp,
                              const F& func,
                              std::uint64_t local_size) {
    check_launch_range(local_size, local_size);
    return queue.submit([&](sycl::handler& cgh) {
        require_all<Usm>(cgh, data, func, tmp);
        sycl::local_accessor<T, 1> local(sycl::range<1>(local_size), cgh);
        cgh.parallel_for<basic_kernel_single_step<F, L == row_major, Idx64>>(
            sycl::nd_range<1>(sycl::range<1>(local_size), sycl::range<1>(local_size)),
            [data, local, local_size, tmp, func](sycl::nd_item<1> item) {
                single_step_kernel<L == row_major>(item, data, local, local_size, tmp, func);
            });
    });
}

// n_groups groups of group_size work-items leave one partial sum each; `tail` is the count of
// busy work-items of the last group, 0 when it is full.
template <bool Usm, bool UserMean, typename T, layout L, typename F, bool Idx64>
sycl::event basic_first_step(sycl::queue& queue,
                             const dataset_helper<T, L, Usm, Idx64>& data,
                             const sum_tmp_helper<T, Usm, UserMean>& tmp,
                             const F& func,
                             std::uint64_t group_size,
                             std::uint64_t n_groups,
                             std::uint64_t tail) {
    const std::uint64_t global_size = n_groups * group_size;
    check_launch_range(global_size, group_size);
    return queue.submit([&](sycl::handler& cgh) {
        require_all<Usm>(cgh, data, func, tmp);
        sycl::local_accessor<T, 1> local(sycl::range<1>(group_size), cgh);
        cgh.parallel_for<basic_kernel_first_step<F, L == row_major, Idx64>>(
            sycl::nd_range<1>(sycl::range<1>(global_size), sycl::range<1>(group_size)),
            [data, n_groups, tail, local, tmp](sycl::nd_item<1> item) {
                first_step_kernel<L == row_major>(item, data, n_groups, tail, local, tmp);
            });
    });
}

// `groups` groups of local_size work-items reduce one level of partial sums: rows row_stride
// apart, elements element_stride apart, `tail` busy work-items in the last group (0: full).
// `planes` is the plane count P of the call.
template <bool Last, bool Usm, bool UserMean, typename T, layout L, typename F, bool Idx64>
sycl::event basic_next_step(sycl::queue& queue,
                            const dataset_helper<T, L, Usm, Idx64>& data,
                            const sum_tmp_helper<T, Usm, UserMean>& tmp,
                            const F& func,
                            std::uint64_t groups,
                            std::uint64_t local_size,
                            std::uint64_t tail,
                            std::uint64_t row_stride,
                            std::uint64_t element_stride,
                            std::uint64_t planes) {
    const std::uint64_t global_size = groups * local_size;
    const std::uint64_t local_elements = next_step_local_elements(tmp, planes, local_size);
    check_launch_range(global_size, local_size);
    return queue.submit([&](sycl::handler& cgh) {
        require_all<Usm>(cgh, data, func, tmp);
        sycl::local_accessor<T, 1> local(sycl::range<1>(local_elements), cgh);
        const sycl::nd_range<1> range{sycl::range<1>(global_size), sycl::range<1>(local_size)};
        using name = basic_kernel_next_step<F, L == row_major, Last, Idx64>;
        if constexpr (Last) {
            cgh.parallel_for<name>(range, [data, tmp, local, tail, row_stride, element_stride,
                                           func](sycl::nd_item<1> item) {
                next_step_kernel<true>(item, data, tmp, local, tail, row_stride, element_stride,
                                       func);
            });
        } else {
            // An intermediate step finishes nothing and carries no functor.
            cgh.parallel_for<name>(
                range, [data, tmp, local, tail, row_stride, element_stride](sycl::nd_item<1> item) {
                    next_step_kernel<false>(item, data, tmp, local, tail, row_stride,
                                            element_stride, no_finisher{});
                });
        }
    });
}

}  // namespace tavrel::qnd::stats::detail::gpu
