// Test data sets in host memory: a matrix in either layout with optional weights and mask,
// generated from a fixed seed.
#pragma once

#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "tavrel/qnd/stats.hpp"

namespace qnd_test {

// What an estimator sees, held on the host: the matrix laid out as `layout` says, weights (empty
// when unweighted) and the dimension mask (empty when every dimension is kept).
template <typename T>
struct host_data {
    std::int64_t n_dims = 0;
    std::int64_t n_observations = 0;
    tavrel::qnd::stats::layout layout = tavrel::qnd::stats::row_major;
    std::vector<T> observations;
    std::vector<T> weights;
    std::vector<std::int64_t> indices;

    std::size_t position(std::int64_t d, std::int64_t i) const {
        return layout == tavrel::qnd::stats::row_major
                   ? static_cast<std::size_t>(d * n_observations + i)
                   : static_cast<std::size_t>(i * n_dims + d);
    }
    T value(std::int64_t d, std::int64_t i) const { return observations[position(d, i)]; }
    bool kept(std::int64_t d) const { return indices.empty() || indices[d] != 0; }
};

// Builds a data set from a per-dimension column function value(d, i).
template <typename T, typename Value>
host_data<T> make_data(std::int64_t n_dims,
                       std::int64_t n_observations,
                       tavrel::qnd::stats::layout layout,
                       Value&& value) {
    host_data<T> data{n_dims, n_observations, layout,
                      std::vector<T>(static_cast<std::size_t>(n_dims * n_observations))};
    for (std::int64_t d = 0; d < n_dims; ++d)
        for (std::int64_t i = 0; i < n_observations; ++i)
            data.observations[data.position(d, i)] = static_cast<T>(value(d, i));
    return data;
}

// Skewed data (shifted and scaled exponential draws): dimension d has a mean of magnitude
// 1 + d / 4, negative for odd d, and a spread of 1 + d / 10, so that every shape estimate is
// far from zero and every dimension differs from the others.
template <typename T>
host_data<T> skewed_data(std::int64_t n_dims,
                         std::int64_t n_observations,
                         tavrel::qnd::stats::layout layout,
                         std::uint64_t seed = 20261122) {
    std::mt19937_64 gen(seed);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<double> draws(static_cast<std::size_t>(n_dims * n_observations));
    for (double& x : draws)
        x = -std::log1p(-unit(gen));  // exponential, mean 1
    return make_data<T>(n_dims, n_observations, layout, [&](std::int64_t d, std::int64_t i) {
        const double sign = (d % 2 == 0) ? 1.0 : -1.0;
        const double spread = 1.0 + 0.1 * static_cast<double>(d);
        const double centre = sign * (1.0 + 0.25 * static_cast<double>(d));
        return centre + spread * (draws[static_cast<std::size_t>(d * n_observations + i)] - 1.0);
    });
}

// Weights drawn uniformly from [0.5, 2).
template <typename T>
std::vector<T> random_weights(std::int64_t n_observations, std::uint64_t seed = 7) {
    std::mt19937_64 gen(seed);
    std::uniform_real_distribution<double> dist(0.5, 2.0);
    std::vector<T> weights(static_cast<std::size_t>(n_observations));
    for (T& w : weights)
        w = static_cast<T>(dist(gen));
    return weights;
}

}  // namespace qnd_test
