// The three device kernels of the extreme engine: a single-group reduction straight into the
// user's result, a first step into per-group partials, and the steps that fold partials further.
#pragma once

#include <array>
#include <cstdint>
#include <type_traits>

#include <sycl/sycl.hpp>

#include "gpu/dataset_helper.hpp"
#include "gpu/minmax_gpu_impl_seeds.hpp"

namespace tavrel::qnd::stats::detail::gpu {

template <bool RowLayout>
inline constexpr layout layout_of = RowLayout ? row_major : col_major;

// A temporary of partial extremes as the kernels reach it.
template <typename T, bool Usm>
using minmax_tmp =
    std::conditional_t<Usm,
                       T*,
                       sycl::accessor<T, 1, sycl::access_mode::read_write, sycl::target::device>>;

// An extreme functor states what it computes (has_min, has_max); its temporaries come in the
// order minimum, maximum, each present only if computed.
template <typename F>
inline constexpr std::size_t n_extremes = std::size_t{F::has_min} + std::size_t{F::has_max};
template <typename F>
inline constexpr std::size_t max_slot = F::has_min ? 1 : 0;

template <typename F, bool Idx64, bool RowLayout>
using minmax_data = dataset_helper<typename F::value_type, layout_of<RowLayout>, F::usm, Idx64>;

template <typename F>
using minmax_tmps = std::array<minmax_tmp<typename F::value_type, F::usm>, n_extremes<F>>;

// Work-group minimum of one value per work-item, clamped; valid in every work-item.
template <typename T, typename Output>
inline T group_min(const sycl::nd_item<1>& item, const Output& output, T value) {
    const T offered = output.offer(item.get_local_id(0), value);
    return clamp_min(sycl::reduce_over_group(item.get_group(), offered, sycl::minimum<T>()));
}

// Work-group maximum of one value per work-item, clamped; valid in every work-item.
template <typename T, typename Output>
inline T group_max(const sycl::nd_item<1>& item, const Output& output, T value) {
    const T offered = output.offer(item.get_local_id(0), value);
    return clamp_max(sycl::reduce_over_group(item.get_group(), offered, sycl::maximum<T>()));
}

// A work-item past the end of the data: only in the last group, and only when tail is not 0
// (tail - 1 wraps around for a full last group).
inline bool minmax_idle(std::uint64_t g,
                        std::uint64_t l,
                        std::uint64_t n_groups,
                        std::uint64_t tail) {
    return g == n_groups - 1 && tail - 1 < l;
}

// All observations fit one work-group: one observation per work-item, results straight to the
// user's arrays through the functor.
template <typename F, bool RowLayout, bool Idx64>
struct minmax_kernel_single_step {
    using T = typename F::value_type;

    minmax_data<F, Idx64, RowLayout> data;
    F functor;
    std::uint64_t local_size;  // carried, not read

    void operator()(sycl::nd_item<1> item) const {
        const std::uint64_t l = item.get_local_id(0);
        const auto n_dims = static_cast<std::uint64_t>(data.n_dims);
        for (std::uint64_t d = 0; d < n_dims; ++d) {
            if (!data.keeps(d))
                continue;
            const T x = data.at(d, l);
            if constexpr (F::has_min) {
                const T result = group_min(item, functor.min, x);
                if (l == 0)
                    functor.min.store(d, result);
            }
            if constexpr (F::has_max) {
                const T result = group_max(item, functor.max, x);
                if (l == 0)
                    functor.max.store(d, result);
            }
        }
    }
};

// Many work-groups over the observations; local id 0 of group g leaves the group's extreme of
// dimension d at d * n_groups + g of each temporary.
template <typename F, bool RowLayout, bool Idx64>
struct minmax_kernel_first_step {
    using T = typename F::value_type;

    minmax_data<F, Idx64, RowLayout> data;
    std::uint64_t n_groups;
    std::uint64_t tail;
    F functor;  // its outputs are not written here; the buffer form stages through its local arrays
    std::uint64_t group_size;
    minmax_tmps<F> tmp;

    void operator()(sycl::nd_item<1> item) const {
        const std::uint64_t l = item.get_local_id(0);
        const std::uint64_t g = item.get_group(0);
        const std::uint64_t id = item.get_global_id(0);
        const bool idle = minmax_idle(g, l, n_groups, tail);
        const auto n_dims = static_cast<std::uint64_t>(data.n_dims);
        for (std::uint64_t d = 0; d < n_dims; ++d) {
            if (!data.keeps(d))
                continue;
            // Read once, offered to both reductions of min_max.
            const T x = idle ? T{} : data.at(d, id);
            const std::uint64_t slot = d * n_groups + g;
            if constexpr (F::has_min) {
                const T result = group_min(item, functor.min, idle ? minmax_seeds<T>::min_seed : x);
                if (l == 0)
                    tmp[0][slot] = result;
            }
            if constexpr (F::has_max) {
                const T result = group_max(item, functor.max, idle ? minmax_seeds<T>::max_seed : x);
                if (l == 0)
                    tmp[max_slot<F>][slot] = result;
            }
        }
    }
};

// Folds rows of partials per dimension by a factor of the group size, in place. Row d starts at
// d * row_stride and its elements stand element_stride apart. With Last the single group hands
// each result to the functor; otherwise local id 0 of group g stores into the first element that
// group g has itself read, so no group overwrites a partial that another group has yet to read,
// whatever order the groups run in and however far one is ahead of another across dimensions.
// RowLayout only names the kernel: partials have one layout of their own.
template <typename F, bool RowLayout, bool Last, bool Idx64>
struct minmax_kernel_next_step {
    using T = typename F::value_type;

    minmax_data<F, Idx64, RowLayout> data;
    std::uint64_t n_groups;
    std::uint64_t tail;
    F functor;
    std::uint64_t group_size;
    std::uint64_t row_stride;
    std::uint64_t element_stride;
    minmax_tmps<F> tmp;

    void operator()(sycl::nd_item<1> item) const {
        const std::uint64_t l = item.get_local_id(0);
        const std::uint64_t g = item.get_group(0);
        const bool idle = minmax_idle(g, l, n_groups, tail);
        const auto n_dims = static_cast<std::uint64_t>(data.n_dims);
        for (std::uint64_t d = 0; d < n_dims; ++d) {
            if (!data.keeps(d))
                continue;
            const std::uint64_t to = d * row_stride + g * group_size * element_stride;
            const std::uint64_t from = to + l * element_stride;
            if constexpr (F::has_min) {
                const T result =
                    group_min(item, functor.min, idle ? minmax_seeds<T>::min_seed : tmp[0][from]);
                if (l == 0) {
                    if constexpr (Last)
                        functor.min.store(d, result);
                    else
                        tmp[0][to] = result;
                }
            }
            if constexpr (F::has_max) {
                const T result = group_max(
                    item, functor.max, idle ? minmax_seeds<T>::max_seed : tmp[max_slot<F>][from]);
                if (l == 0) {
                    if constexpr (Last)
                        functor.max.store(d, result);
                    else
                        tmp[max_slot<F>][to] = result;
                }
            }
        }
    }
};

}  // namespace tavrel::qnd::stats::detail::gpu
