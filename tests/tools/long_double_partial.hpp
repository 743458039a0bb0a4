// Partial results of a run of observations, summed in long double: the reference that merged
// and chunked results are held to.
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include <tavrel/qnd/partial.hpp>

namespace qnd_test {

// The partial of observations [b, e) of x (w empty: unweighted). Central sums are taken around
// `centre` when given, else around the part's mean as R holds it. Extremes skip weights of 0.
template <typename R>
tavrel::qnd::stats::partial<R> direct(const std::vector<double>& x,
                                      const std::vector<double>& w,
                                      std::size_t b,
                                      std::size_t e,
                                      const long double* centre = nullptr) {
    long double w2 = 0, s[5] = {}, cs[5] = {};  // s[k]: sum of w x^k, so s[0] is the weight
    tavrel::qnd::stats::partial<R> p;
    for (std::size_t i = b; i < e; ++i) {
        const long double wi = w.empty() ? 1 : w[i];
        w2 += wi * wi;
        for (int k = 0; k <= 4; ++k)
            s[k] += wi * std::pow(static_cast<long double>(x[i]), k);
        if (wi > 0) {
            p.min = std::min<R>(p.min, x[i]);
            p.max = std::max<R>(p.max, x[i]);
        }
    }
    p.mean = s[0] > 0 ? static_cast<R>(s[1] / s[0]) : 0;
    const long double c = centre ? *centre : p.mean;
    for (std::size_t i = b; i < e; ++i)
        for (int k = 2; k <= 4; ++k)
            cs[k] += (w.empty() ? 1 : w[i]) * std::pow(x[i] - c, k);
    p.w = s[0], p.w2 = w2, p.s1 = s[1], p.s2 = s[2], p.s3 = s[3], p.s4 = s[4];
    p.cs2 = cs[2], p.cs3 = cs[3], p.cs4 = cs[4];
    return p;
}

}  // namespace qnd_test
