// Long-double references of the moment estimates, computed directly from their definitions
// (two passes, no expansion of central sums), for comparison with the engines.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "support/data.hpp"

namespace qnd_test {

// The weight an observation counts with: its value when positive, else 1 (zero, negative, NaN).
template <typename T>
long double counted_weight(const host_data<T>& data, std::int64_t i) {
    if (data.weights.empty())
        return 1.0L;
    const long double w = data.weights[static_cast<std::size_t>(i)];
    return w > 0.0L ? w : 1.0L;
}

// Sums of one dimension and the estimates defined from them. `centre` is the data's weighted
// mean, or a caller's mean; dev[k] is the sum of w * (x - centre)^k.
struct moment_reference {
    long double w = 0;
    long double w2 = 0;
    long double raw[5] = {};
    long double centre = 0;
    long double dev[5] = {};

    long double mean() const { return raw[1] / w; }
    long double raw_moment(int k) const { return raw[k] / w; }
    long double central_sum(int k) const { return dev[k]; }
    // Order 2 with the reliability-weights denominator W - W2 / W; orders 3, 4 over W.
    long double variance() const { return dev[2] / (w - w2 / w); }
    long double central_moment(int k) const { return k == 2 ? variance() : dev[k] / w; }
    long double variation() const { return std::sqrt(variance()) / centre; }
    long double skewness() const { return (dev[3] / w) / std::pow(variance(), 1.5L); }
    long double kurtosis() const { return (dev[4] / w) / (variance() * variance()) - 3.0L; }
};

// The reference of dimension d, around the data's own mean unless `centre` is given.
template <typename T>
moment_reference reference_of(const host_data<T>& data,
                              std::int64_t d,
                              const long double* centre = nullptr) {
    moment_reference r;
    for (std::int64_t i = 0; i < data.n_observations; ++i) {
        const long double w = counted_weight(data, i);
        const long double x = data.value(d, i);
        r.w += w;
        r.w2 += w * w;
        long double p = w;
        for (int k = 1; k <= 4; ++k) {
            p *= x;
            r.raw[k] += p;
        }
    }
    r.centre = centre ? *centre : r.raw[1] / r.w;
    for (std::int64_t i = 0; i < data.n_observations; ++i) {
        const long double e = static_cast<long double>(data.value(d, i)) - r.centre;
        long double p = counted_weight(data, i);
        for (int k = 1; k <= 4; ++k) {
            p *= e;
            r.dev[k] += p;
        }
    }
    return r;
}

// Relative comparison with an absolute floor of 1: |got - want| <= tol * max(1, |want|).
inline bool close_to(long double got, long double want, long double tol) {
    if (std::isnan(want))
        return std::isnan(got);
    if (std::isinf(want))
        return got == want;
    return std::fabs(got - want) <= tol * std::max(1.0L, std::fabs(want));
}

// Tolerances of the engine's arithmetic in T against the long-double references, for the data
// of data.hpp (spreads and means of order 1, a few hundred observations per dimension).
template <typename T>
constexpr long double moment_tolerance() {
    return std::is_same_v<T, float> ? 2e-3L : 1e-10L;
}

}  // namespace qnd_test
