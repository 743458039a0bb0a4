// The launch helpers of the extreme engine: each builds one command group that binds what its
// form needs, sets the nd_range and names one kernel.
#pragma once

#include <cstdint>

#include <sycl/sycl.hpp>

#include "gpu/range_check.hpp"
#include "gpu/minmax_gpu_impl_kernels.hpp"

namespace tavrel::qnd::stats::detail::gpu {

// A temporary as a command group binds it: a device pointer as it is, a buffer as a read-write
// accessor.
template <typename T>
T* bind_tmp(sycl::handler&, T* tmp) {
    return tmp;
}
template <typename T>
minmax_tmp<T, false> bind_tmp(sycl::handler& cgh, sycl::buffer<T, 1>& tmp) {
    return minmax_tmp<T, false>(tmp, cgh, sycl::read_write);
}

template <typename F, typename Storage, std::size_t N>
minmax_tmps<F> bind_tmps(sycl::handler& cgh, std::array<Storage, N>& storage) {
    static_assert(N == n_extremes<F>, "one temporary per extreme");
    if constexpr (N == 1)
        return {bind_tmp(cgh, storage[0])};
    else
        return {bind_tmp(cgh, storage[0]), bind_tmp(cgh, storage[1])};
}

// One work-group of local_size work-items over all observations.
template <typename F, typename T, layout L, bool Usm, bool Idx64>
sycl::event minmax_single_step(sycl::queue& queue,
                               const dataset_helper<T, L, Usm, Idx64>& data,
                               const F& functor,
                               std::uint64_t local_size) {
    using kernel = minmax_kernel_single_step<F, L == row_major, Idx64>;
    const sycl::nd_range<1> range{sycl::range<1>(local_size), sycl::range<1>(local_size)};
    check_launch_range(range.get_global_range()[0], range.get_local_range()[0]);
    return queue.submit([&](sycl::handler& cgh) {
        data.require(cgh);
        F bound = functor;
        bound.bind(cgh, local_size);
        cgh.parallel_for<kernel>(range, kernel{data, bound, local_size});
    });
}

// n_groups work-groups of group_size over the observations, into the temporaries.
template <typename F, typename T, layout L, bool Usm, bool Idx64, typename Storage, std::size_t N>
sycl::event minmax_first_step(sycl::queue& queue,
                              const dataset_helper<T, L, Usm, Idx64>& data,
                              const F& functor,
                              std::array<Storage, N>& tmp,
                              std::uint64_t group_size,
                              std::uint64_t n_groups,
                              std::uint64_t tail) {
    using kernel = minmax_kernel_first_step<F, L == row_major, Idx64>;
    const sycl::nd_range<1> range{sycl::range<1>(n_groups * group_size),
                                  sycl::range<1>(group_size)};
    check_launch_range(range.get_global_range()[0], range.get_local_range()[0]);
    return queue.submit([&](sycl::handler& cgh) {
        data.require(cgh);
        F bound = functor;
        bound.bind(cgh, group_size);
        cgh.parallel_for<kernel>(
            range, kernel{data, n_groups, tail, bound, group_size, bind_tmps<F>(cgh, tmp)});
    });
}

// n_groups work-groups of local_size over rows of partials, row d at d * row_stride with its
// elements element_stride apart. With Last, one group writes the user's result.
template <bool Last,
          typename F,
          typename T,
          layout L,
          bool Usm,
          bool Idx64,
          typename Storage,
          std::size_t N>
sycl::event minmax_next_step(sycl::queue& queue,
                             const dataset_helper<T, L, Usm, Idx64>& data,
                             const F& functor,
                             std::array<Storage, N>& tmp,
                             std::uint64_t n_groups,
                             std::uint64_t local_size,
                             std::uint64_t row_stride,
                             std::uint64_t element_stride,
                             std::uint64_t tail) {
    using kernel = minmax_kernel_next_step<F, L == row_major, Last, Idx64>;
    const sycl::nd_range<1> range{sycl::range<1>(n_groups * local_size),
                                  sycl::range<1>(local_size)};
    check_launch_range(range.get_global_range()[0], range.get_local_range()[0]);
    return queue.submit([&](sycl::handler& cgh) {
        data.require(cgh);
        F bound = functor;
        bound.bind(cgh, local_size);
        cgh.parallel_for<kernel>(range, kernel{data, n_groups, tail, bound, local_size, row_stride,
                                               element_stride, bind_tmps<F>(cgh, tmp)});
    });
}

}  // namespace tavrel::qnd::stats::detail::gpu
