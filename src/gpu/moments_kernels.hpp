// The three step kernels of the moment engine: their name types and their bodies, one
// observation per work-item and one pass over the dimensions inside each kernel.
#pragma once

#include <cstdint>
#include <type_traits>

#include <sycl/sycl.hpp>

#include "gpu/sum_tmp_helper.hpp"

namespace tavrel::qnd::stats::detail::gpu {

// Kernel names: one per functor, layout, mask width (and, for the next step, whether it is the
// launch that finishes).
template <typename F, bool RowLayout, bool Idx64>
class basic_kernel_single_step;
template <typename F, bool RowLayout, bool Idx64>
class basic_kernel_first_step;
template <typename F, bool RowLayout, bool Last, bool Idx64>
class basic_kernel_next_step;

// Stands in for the functor in a launch that finishes nothing.
struct no_finisher {};

// The weight of observation i under the rule of effective_weight; 1 when unweighted, without
// reading the absent array.
template <typename Data>
inline auto read_weight(const Data& data, std::uint64_t i) {
    using T = std::remove_cv_t<std::remove_reference_t<decltype(data.weights[0])>>;
    return data.has_weights ? effective_weight<T>(data.weights[i]) : T(1);
}

// Stages row d of row-major data (local_size contiguous values) into the local array, each
// work-item copying every local-range-th value; the caller's barrier completes the copy. A plain
// loop rather than a group's asynchronous copy, which not every SYCL implementation offers on
// local accessors.
template <typename Data, typename Local>
inline void stage_row(const sycl::nd_item<1>& item,
                      const Data& data,
                      const Local& local,
                      std::uint64_t d,
                      std::uint64_t local_size) {
    const std::uint64_t row = d * static_cast<std::uint64_t>(data.n_observations);
    const std::uint64_t step = item.get_local_range(0);
    for (std::uint64_t i = item.get_local_id(0); i < local_size; i += step)
        local[i] = data.observations[row + i];
}

// The whole data fits one work-group: reduce and finish in one launch. Every work-item runs
// the functor, so all of them store the same values.
template <bool RowLayout, typename Data, typename Local, typename Tmp, typename F>
void single_step_kernel(const sycl::nd_item<1>& item,
                        const Data& data,
                        const Local& local,
                        std::uint64_t local_size,
                        const Tmp& tmp,
                        const F& func) {
    const std::uint64_t l = item.get_local_id(0);
    bool first_dim = true;
    for (std::uint64_t d = 0; d < static_cast<std::uint64_t>(data.n_dims); ++d) {
        if (!data.keeps(d))
            continue;
        if constexpr (RowLayout) {
            stage_row(item, data, local, d, local_size);
        } else {
            local[l] = data.observations[l * static_cast<std::uint64_t>(data.n_dims) + d];
        }
        sycl::group_barrier(item.get_group(), sycl::memory_scope::work_group);
        tmp.calculate(local, d, item, read_weight(data, l), 0, first_dim);
        // Work-item 0's stores to the temporaries must be visible before the functor reads them.
        sycl::group_barrier(item.get_group(), sycl::memory_scope::device);
        func(tmp, d);
        first_dim = false;
    }
}

// Many groups: each leaves one partial sum per dimension and power; nothing is finished here.
// Work-items of the last group past `tail` stage 0 with weight 0 and read no memory.
template <bool RowLayout, typename Data, typename Local, typename Tmp>
void first_step_kernel(const sycl::nd_item<1>& item,
                       const Data& data,
                       std::uint64_t n_groups,
                       std::uint64_t tail,
                       const Local& local,
                       const Tmp& tmp) {
    using T = typename Local::value_type;
    const std::uint64_t l = item.get_local_id(0);
    const std::uint64_t id = item.get_global_id(0);
    const bool idle = item.get_group(0) == n_groups - 1 && tail - 1 < l;
    bool first_dim = true;
    for (std::uint64_t d = 0; d < static_cast<std::uint64_t>(data.n_dims); ++d) {
        if (!data.keeps(d))
            continue;
        T weight = T(0);
        if (idle) {
            local[l] = T(0);
        } else {
            local[l] = data.at(d, id);
            weight = read_weight(data, id);
        }
        sycl::group_barrier(item.get_group(), sycl::memory_scope::work_group);
        tmp.calculate(local, d, item, weight, tail, first_dim);
        first_dim = false;
    }
}

// One level of the tree: reduce rows of partial sums (row d at d * row_stride, its elements
// element_stride apart) to one entry per group. The last launch (one group) then runs the
// functor.
template <bool Last, typename Data, typename Tmp, typename Local, typename F>
void next_step_kernel(const sycl::nd_item<1>& item,
                      const Data& data,
                      const Tmp& tmp,
                      const Local& local,
                      std::uint64_t tail,
                      std::uint64_t row_stride,
                      std::uint64_t element_stride,
                      const F& func) {
    bool first_dim = true;
    for (std::uint64_t d = 0; d < static_cast<std::uint64_t>(data.n_dims); ++d) {
        if (!data.keeps(d))
            continue;
        tmp.load(local, d, item, tail, row_stride, element_stride, first_dim);
        tmp.merge(local, d, item, row_stride, element_stride, first_dim);
        if constexpr (Last) {
            sycl::group_barrier(item.get_group(), sycl::memory_scope::device);
            func(tmp, d);
        }
        first_dim = false;
    }
}

}  // namespace tavrel::qnd::stats::detail::gpu
