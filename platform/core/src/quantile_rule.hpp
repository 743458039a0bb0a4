// Where each quantile definition reads a sorted sample: for unweighted data the two ranks it
// interpolates between and the fraction of the way, for weighted data the point on the scale of
// cumulative weight. The definitions are those of qnd_core/ss.h (QND_SS_QUANTILE_*).
#pragma once

#include <cmath>
#include <cstdint>

#include "qnd_core/ss.h"

namespace qnd_core {

inline bool known_definition(int32_t def) {
    return (def >= 0 && def <= 9) ||
           (def >= QND_SS_QUANTILE_LOWER && def <= QND_SS_QUANTILE_MIDPOINT);
}

// The definitions that have a weighted form.
inline bool weighted_definition(int32_t def) {
    return def == QND_SS_QUANTILE_LINEAR || def == QND_SS_QUANTILE_TYPE_7 ||
           def == QND_SS_QUANTILE_TYPE_1 ||
           (def >= QND_SS_QUANTILE_LOWER && def <= QND_SS_QUANTILE_MIDPOINT);
}

// a + (b - a) g, from the nearer end so that g = 1 gives b exactly; equal ends give that value
// also when they are infinite.
inline double interpolate(double a, double b, double g) {
    if (a == b) {
        return a;
    }
    const double d = b - a;
    return g >= 0.5 ? b - d * (1 - g) : a + d * g;
}

// The result is interpolate(v[lo], v[hi], g) over the n values sorted ascending.
struct read_point {
    int64_t lo, hi;
    double g;
};

inline read_point unweighted_point(int32_t def, int64_t n, double p) {
    const double dn = static_cast<double>(n);
    const double last = dn - 1;
    // An index of the definition, clipped into the sample.
    auto at = [&](double i) {
        const int64_t k = !(i > 0) ? 0 : i >= last ? n - 1 : static_cast<int64_t>(i);
        return read_point{k, k, 0};
    };
    // A virtual index between two ranks.
    auto between = [&](double h) {
        if (!(h > 0)) {
            return read_point{0, 0, 0};
        }
        if (h >= last) {
            return read_point{n - 1, n - 1, 0};
        }
        const double f = std::floor(h);
        const int64_t k = static_cast<int64_t>(f);
        return read_point{k, k + 1, h - f};
    };
    // Hyndman and Fan's continuous types, by their (alpha, beta).
    auto continuous = [&](double a, double b) {
        return between(dn * p + (a + p * (1 - a - b)) - 1);
    };
    const double h = last * p;
    switch (def) {
        case QND_SS_QUANTILE_LOWER:
            return at(std::floor(h));
        case QND_SS_QUANTILE_HIGHER:
            return at(std::ceil(h));
        case QND_SS_QUANTILE_NEAREST:
            return at(std::nearbyint(h));  // ties to even under the default rounding
        case QND_SS_QUANTILE_MIDPOINT: {
            const read_point r = between(h);
            return r.g == 0 ? r : read_point{r.lo, r.hi, 0.5};
        }
        case QND_SS_QUANTILE_TYPE_1: {
            const double i = dn * p - 1, f = std::floor(i);
            return at(i == f ? f : f + 1);
        }
        case QND_SS_QUANTILE_TYPE_2: {
            // At a step, also the first, the mean of the values on either side.
            const double i = dn * p - 1, f = std::floor(i);
            if (i >= 0 && i < last) {
                const int64_t k = static_cast<int64_t>(f);
                return read_point{k, k + 1, i == f ? 0.5 : 1.0};
            }
            return between(i);
        }
        case QND_SS_QUANTILE_TYPE_3: {
            const double i = dn * p - 1.5, f = std::floor(i);
            return at(i == f && std::fmod(f, 2) == 0 ? f : f + 1);
        }
        case QND_SS_QUANTILE_TYPE_4:
            return continuous(0, 1);
        case QND_SS_QUANTILE_TYPE_5:
            return continuous(0.5, 0.5);
        case QND_SS_QUANTILE_TYPE_6:
            return continuous(0, 0);
        case QND_SS_QUANTILE_TYPE_8:
            return continuous(1.0 / 3, 1.0 / 3);
        case QND_SS_QUANTILE_TYPE_9:
            return continuous(3.0 / 8, 3.0 / 8);
        default:  // linear and type 7
            return between(h);
    }
}

// The value of a weighted definition once the observation k (in the order of values, ties by
// weight) whose midpoint c_k is the last at or below the target is found: v_k, v_next the
// following value and g the fraction of the way from c_k to c_next (0 when k is the last).
// `even` tells whether k counts an even number of observations before it.
inline double weighted_value_at(int32_t def, double v_k, double v_next, double g, bool even) {
    switch (def) {
        case QND_SS_QUANTILE_LOWER:
            return v_k;
        case QND_SS_QUANTILE_HIGHER:
            return g > 0 ? v_next : v_k;
        case QND_SS_QUANTILE_NEAREST:
            return g < 0.5 || (g == 0.5 && even) ? v_k : v_next;
        case QND_SS_QUANTILE_MIDPOINT:
            return g > 0 ? interpolate(v_k, v_next, 0.5) : v_k;
        default:
            return interpolate(v_k, v_next, g);
    }
}

}  // namespace qnd_core
