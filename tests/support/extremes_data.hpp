// Data of the extreme-estimator tests: dimensions in bands of their own with planted extremes,
// weights that would change any weighted result, a uniform call of min, max and min_max in either
// form, and the extremes that a device stores.
#pragma once

#include <algorithm>
#include <cstring>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "support/data.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/stats.hpp"

namespace qnd_test {

// Dimension d draws from [c - 10, c + 10] around c = 100 (d + 1), negated for odd d, so that a
// value carried from one dimension into another moves that dimension's minimum out of its band.
// Its minimum c - 11 and its maximum 1000 (d + 1) + 11 are planted at two of: first, last,
// middle, one before last, where an off-by-one at a tail or a group boundary would miss them.
template <typename T>
host_data<T> banded_data(std::int64_t n_dims,
                         std::int64_t n,
                         tavrel::qnd::stats::layout layout,
                         std::uint64_t seed) {
    std::mt19937_64 gen(seed);
    std::uniform_real_distribution<double> spread(-10.0, 10.0);
    const std::int64_t places[] = {0, n - 1, n / 2, n - 2};
    return make_data<T>(n_dims, n, layout, [&](std::int64_t d, std::int64_t i) {
        const double c = (d % 2 ? -100.0 : 100.0) * static_cast<double>(d + 1);
        const std::int64_t lo = places[d % 4];
        const std::int64_t hi =
            places[(d + 1) % 4] == lo ? places[(d + 2) % 4] : places[(d + 1) % 4];
        if (n >= 2 && i == lo)
            return c - 11.0;
        if (n >= 2 && i == hi)
            return 1000.0 * static_cast<double>(d + 1) + 11.0;
        return c + spread(gen);
    });
}

// Zeros, negatives, NaN and large values, repeated.
template <typename T>
std::vector<T> odd_weights(std::int64_t n) {
    const T pattern[] = {0, -1, std::numeric_limits<T>::quiet_NaN(), T(1e6), T(0.5)};
    std::vector<T> w(static_cast<std::size_t>(n));
    for (std::size_t i = 0; i < w.size(); ++i)
        w[i] = pattern[i % 5];
    return w;
}

enum class extreme { min, max, min_max };

// `e` through the exported pointer form (ordered after a host task that copies the observations
// in, by its dependency list) or buffer form, on `h` with its weights and mask. Per dimension
// {min, max}; what `e` does not compute, and masked dimensions, keep `untouched`.
template <typename T, tavrel::qnd::stats::layout L>
std::vector<std::pair<T, T>> run_extreme(
    sycl::queue& q, extreme e, bool by_buffer, const host_data<T>& h, T untouched) {
    namespace st = tavrel::qnd::stats;
    std::vector<T> lo(h.n_dims, untouched), hi(h.n_dims, untouched);
    // `e` on `data` into the minima and maxima (buffers or pointers), after deps.
    const auto call = [&](const auto& data, auto to_lo, auto to_hi, const auto&... deps) {
        return e == extreme::min   ? st::min<1, T, L>(q, data, to_lo, deps...)
               : e == extreme::max ? st::max<1, T, L>(q, data, to_hi, deps...)
                                   : st::min_max<1, T, L>(q, data, to_lo, to_hi, deps...);
    };
    if (by_buffer) {
        sycl::buffer<T, 1> obs(h.observations.data(), sycl::range<1>(h.observations.size()));
        sycl::buffer<T, 1> w(h.weights.data(), sycl::range<1>(h.weights.size()));
        sycl::buffer<std::int64_t, 1> idx(h.indices.data(), sycl::range<1>(h.indices.size()));
        sycl::buffer<T, 1> b_lo(lo.data(), sycl::range<1>(lo.size()));
        sycl::buffer<T, 1> b_hi(hi.data(), sycl::range<1>(hi.size()));
        const st::dataset<L, sycl::buffer<T, 1>> data(h.n_dims, h.n_observations, obs, w, idx);
        call(data, b_lo, b_hi);
    } else {
        usm_array<T> obs(q, h.observations.size()), w(q, h.weights), u_lo(q, lo), u_hi(q, hi);
        usm_array<std::int64_t> idx(q, h.indices);
        const std::vector<sycl::event> copied{q.submit([&](auto& cgh) {
            cgh.host_task([&] {
                std::memcpy(obs.get(), h.observations.data(), h.observations.size() * sizeof(T));
            });
        })};
        const st::dataset<L, T*> data(h.n_dims, h.n_observations, obs.get(),
                                      h.weights.empty() ? nullptr : w.get(),
                                      h.indices.empty() ? nullptr : idx.get());
        call(data, u_lo.get(), u_hi.get(), copied).wait();
        lo = u_lo.to_vector();
        hi = u_hi.to_vector();
    }
    std::vector<std::pair<T, T>> r;
    for (std::int64_t d = 0; d < h.n_dims; ++d)
        r.push_back({lo[d], hi[d]});
    return r;
}

// The smallest and largest value of dimension d. The GPU engine (`gpu`) never stores a maximum
// below the smallest positive normal value (its clamp).
template <typename T>
std::pair<T, T> extremes_of(const host_data<T>& data, std::int64_t d, bool gpu) {
    T lo = data.value(d, 0), hi = data.value(d, 0);
    for (std::int64_t i = 1; i < data.n_observations; ++i) {
        lo = std::min(lo, data.value(d, i));
        hi = std::max(hi, data.value(d, i));
    }
    return {lo, gpu ? std::max(hi, std::numeric_limits<T>::min()) : hi};
}

// Each dimension of `got` against extremes_of: kept dimensions hold what `e` computes, the rest
// `untouched`.
template <typename T>
void expect_extremes(extreme e,
                     const host_data<T>& h,
                     bool gpu,
                     const std::vector<std::pair<T, T>>& got,
                     T untouched) {
    for (std::int64_t d = 0; d < h.n_dims; ++d) {
        const auto [lo, hi] = extremes_of(h, d, gpu);
        EXPECT_EQ(got[d], std::make_pair(h.kept(d) && e != extreme::max ? lo : untouched,
                                         h.kept(d) && e != extreme::min ? hi : untouched))
            << "{min, max}, dim " << d;
    }
}

}  // namespace qnd_test
