// The kernels' copy of a dataset, in the pointer form (Usm) and the buffer form (accessors),
// shared by the moment and the extreme engines.
#pragma once

#include <cstdint>

#include <sycl/sycl.hpp>

#include "tavrel/qnd/stats.hpp"

namespace tavrel::qnd::stats::detail::gpu {

// Reading of the dimension mask. With 64-bit entries the entry of dimension d is indices[d].
// With 32-bit entries (Idx64 false) the array is read in 64-bit words: word d / 2 holds dimension
// d in its low half when d is even and in its high half when d is odd.
template <bool Idx64, typename Indices>
inline bool mask_keeps(const Indices& indices, std::uint64_t d) {
    if constexpr (Idx64) {
        return indices[d] != 0;
    } else {
        const std::int64_t word = indices[d / 2];
        const std::int32_t entry =
            (d % 2 == 0) ? static_cast<std::int32_t>(word) : static_cast<std::int32_t>(word >> 32);
        return entry != 0;
    }
}

// Observation i of dimension d under layout L.
template <layout L, typename Data>
inline auto observation_at(const Data& observations,
                           std::int64_t n_dims,
                           std::int64_t n_observations,
                           std::uint64_t d,
                           std::uint64_t i) {
    if constexpr (L == row_major) {
        return observations[d * static_cast<std::uint64_t>(n_observations) + i];
    } else {
        return observations[i * static_cast<std::uint64_t>(n_dims) + d];
    }
}

template <typename T, layout L, bool Usm, bool Idx64>
struct dataset_helper;

// Pointer form: the dataset's arrays as they are. The fields keep the dataset's order.
template <typename T, layout L, bool Idx64>
struct dataset_helper<T, L, true, Idx64> {
    std::int64_t n_dims;
    std::int64_t n_observations;
    std::int64_t layout;  // carried along, read by no kernel
    const T* observations;
    const T* weights;
    const std::int64_t* indices;
    std::uint8_t has_weights;
    std::uint8_t has_indices;

    // False when the mask is present and skips dimension d.
    bool keeps(std::uint64_t d) const { return !has_indices || mask_keeps<Idx64>(indices, d); }
    T at(std::uint64_t d, std::uint64_t i) const {
        return observation_at<L>(observations, n_dims, n_observations, d, i);
    }
    // Nothing to register: pointers need no accessor.
    void require(sycl::handler&) const {}
};

// Buffer form: read-only placeholder accessors. An absent weights or indices buffer is
// replaced by a one-element filler, never read since its flag is clear.
template <typename T, layout L, bool Idx64>
struct dataset_helper<T, L, false, Idx64> {
    using values_accessor = sycl::accessor<T, 1, sycl::access_mode::read, sycl::target::device>;
    using indices_accessor =
        sycl::accessor<std::int64_t, 1, sycl::access_mode::read, sycl::target::device>;

    std::int64_t n_dims;
    std::int64_t n_observations;
    std::int64_t layout;
    values_accessor observations;
    values_accessor weights;
    indices_accessor indices;
    std::uint8_t has_weights;
    std::uint8_t has_indices;

    bool keeps(std::uint64_t d) const { return !has_indices || mask_keeps<Idx64>(indices, d); }
    T at(std::uint64_t d, std::uint64_t i) const {
        return observation_at<L>(observations, n_dims, n_observations, d, i);
    }
    // Registers the three placeholder accessors on a command group.
    void require(sycl::handler& cgh) const {
        cgh.require(observations);
        cgh.require(weights);
        cgh.require(indices);
    }
};

// Fills the pointer-form helper in the order of its fields; presence is a test against null.
template <bool Idx64 = true, typename T, layout L>
dataset_helper<T, L, true, Idx64> make_dataset_helper(const dataset<L, T*>& data) {
    return {data.n_dims,
            data.n_observations,
            static_cast<std::int64_t>(L),
            data.observations,
            data.weights,
            data.indices,
            static_cast<std::uint8_t>(data.weights != nullptr),
            static_cast<std::uint8_t>(data.indices != nullptr)};
}

// Fills the buffer-form helper; presence is a size other than 0, and the fillers stand in for
// absent arrays.
template <typename T, layout L>
dataset_helper<T, L, false, true> make_dataset_helper(
    const dataset<L, sycl::buffer<T, 1>>& data,
    sycl::buffer<T, 1>& values_filler,
    sycl::buffer<std::int64_t, 1>& indices_filler) {
    using helper = dataset_helper<T, L, false, true>;
    auto data_copy = data;
    const bool has_weights = data_copy.weights.size() != 0;
    const bool has_indices = data_copy.indices.size() != 0;
    return {data_copy.n_dims,
            data_copy.n_observations,
            static_cast<std::int64_t>(L),
            typename helper::values_accessor(data_copy.observations),
            typename helper::values_accessor(has_weights ? data_copy.weights : values_filler),
            typename helper::indices_accessor(has_indices ? data_copy.indices : indices_filler),
            static_cast<std::uint8_t>(has_weights),
            static_cast<std::uint8_t>(has_indices)};
}

}  // namespace tavrel::qnd::stats::detail::gpu
