// Data of the extreme-engine tests: matrices with planted extremes in either layout, masks,
// weights, device-accessible copies, and the extremes computed on the host.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include <sycl/sycl.hpp>

#include "tavrel/qnd/stats.hpp"

namespace minmax_test {

using tavrel::qnd::stats::layout;

// USM memory shared with the device, freed with its queue's context.
struct usm_free {
    sycl::context context;
    void operator()(void* p) const { sycl::free(p, context); }
};
template <typename T>
using usm_array = std::unique_ptr<T[], usm_free>;

template <typename T>
usm_array<T> to_shared(sycl::queue& queue, const std::vector<T>& host) {
    // One element at least, so that an empty vector still gives a valid pointer.
    T* p = sycl::malloc_shared<T>(std::max<std::size_t>(host.size(), 1), queue);
    if (!host.empty())
        std::memcpy(p, host.data(), host.size() * sizeof(T));
    return usm_array<T>(p, usm_free{queue.get_context()});
}

// An n_dims x n_observations matrix held by (dimension, observation), stored in either layout.
// Dimension d draws from [-10 (d + 1), 10 (d + 1)], so reading a neighbour dimension's values by
// mistake shows in the extremes; each dimension's extremes are planted at places where an
// off-by-one in a tail or a group boundary would miss them.
template <typename T>
struct matrix {
    std::int64_t n_dims;
    std::int64_t n_observations;
    std::vector<T> by_dim;  // d * n_observations + i

    T at(std::int64_t d, std::int64_t i) const { return by_dim[d * n_observations + i]; }
    void set(std::int64_t d, std::int64_t i, T v) { by_dim[d * n_observations + i] = v; }

    std::vector<T> stored(layout L) const {
        if (L == tavrel::qnd::stats::row_major)
            return by_dim;
        std::vector<T> out(by_dim.size());
        for (std::int64_t d = 0; d < n_dims; ++d)
            for (std::int64_t i = 0; i < n_observations; ++i)
                out[i * n_dims + d] = at(d, i);
        return out;
    }
    T true_min(std::int64_t d) const {
        T m = at(d, 0);
        for (std::int64_t i = 1; i < n_observations; ++i)
            m = at(d, i) < m ? at(d, i) : m;
        return m;
    }
    T true_max(std::int64_t d) const {
        T m = at(d, 0);
        for (std::int64_t i = 1; i < n_observations; ++i)
            m = at(d, i) > m ? at(d, i) : m;
        return m;
    }
};

template <typename T>
matrix<T> random_matrix(std::int64_t n_dims, std::int64_t n_observations, std::uint64_t seed) {
    matrix<T> m{n_dims, n_observations, std::vector<T>(n_dims * n_observations)};
    std::mt19937_64 rng(seed);
    for (std::int64_t d = 0; d < n_dims; ++d) {
        const T bound = static_cast<T>(10 * (d + 1));
        std::uniform_real_distribution<T> dist(-bound, bound);
        for (std::int64_t i = 0; i < n_observations; ++i)
            m.set(d, i, dist(rng));
    }
    if (n_observations < 2)
        return m;
    // Planted places cycle through: first, last, middle, and just before the last.
    const std::int64_t places[] = {0, n_observations - 1, n_observations / 2, n_observations - 2};
    for (std::int64_t d = 0; d < n_dims; ++d) {
        const T bound = static_cast<T>(10 * (d + 1));
        const std::int64_t lo = places[d % 4];
        const std::int64_t hi =
            places[(d + 1) % 4] == lo ? places[(d + 2) % 4] : places[(d + 1) % 4];
        m.set(d, lo, -bound - 1);
        m.set(d, hi, bound + 1);
    }
    return m;
}

// Weights that would change a weighted result: zeros, negatives, NaN and large values.
template <typename T>
std::vector<T> odd_weights(std::int64_t n_observations) {
    const T pattern[] = {0, -1, std::numeric_limits<T>::quiet_NaN(), 1e6, 0.5};
    std::vector<T> w(n_observations);
    for (std::int64_t i = 0; i < n_observations; ++i)
        w[i] = pattern[i % 5];
    return w;
}

// A 64-bit mask keeping every dimension except those with d % 3 == 1.
inline std::vector<std::int64_t> mask_every_third(std::int64_t n_dims) {
    std::vector<std::int64_t> mask(n_dims);
    for (std::int64_t d = 0; d < n_dims; ++d)
        mask[d] = d % 3 == 1 ? 0 : (d % 2 == 0 ? 1 : -7);
    return mask;
}

}  // namespace minmax_test
