// The accumulation state of one dimension: weighted sums of powers of deviations around a centre,
// with the exact shift between centres, the pairwise merge and the per-observation update.
#pragma once

#include <cstdint>

namespace qnd_core {

// Sums over the observations of positive weight: w = sum w, w2 = sum w^2, and
// dk = sum w (x - c)^k for k = 1..4 around the centre c. d1 is carried, not assumed zero: the
// centre is a rounded double and d1 is what makes that rounding cost nothing.
struct moment_sums {
    double w = 0, w2 = 0, c = 0, d1 = 0, d2 = 0, d3 = 0, d4 = 0;
};

// Moves the centre of s to c_new. With e = c - c_new, x - c_new = (x - c) + e, and the binomial
// expansion of (x - c_new)^k in the sums of lower order is exact algebra; when both centres are
// nearby doubles e itself is exact, so only the rounding of the products remains.
inline void shift_centre(moment_sums& s, double c_new, int order) {
    const double e = s.c - c_new;
    s.c = c_new;
    if (e == 0) {
        return;
    }
    const double e2 = e * e;
    const double e3 = e2 * e;
    if (order >= 4) {
        s.d4 += ((4 * e * s.d3 + 6 * e2 * s.d2) + 4 * e3 * s.d1) + e2 * e2 * s.w;
    }
    if (order >= 3) {
        s.d3 += (3 * e * s.d2 + 3 * e2 * s.d1) + e3 * s.w;
    }
    if (order >= 2) {
        s.d2 += 2 * e * s.d1 + e2 * s.w;
    }
    s.d1 += e * s.w;
}

// Adds b into a. The merged centre is the merged mean rounded to a double; both sides move to it
// exactly (shift_centre) and their sums add. An empty side changes nothing. This is the pairwise
// update of weighted central sums (Chan, Golub and LeVeque; Pebay for orders 3 and 4) written as
// two shifts to a common centre; tests MergeStability.DriftingData and LargeOffset pin it.
inline void merge(moment_sums& a, moment_sums b, int order) {
    // Order 1 keeps every centre at 0: d1 is then the plain weighted sum, and sums just add.
    if (order == 1 && a.c == 0 && b.c == 0) {
        a.w += b.w;
        a.w2 += b.w2;
        a.d1 += b.d1;
        return;
    }
    if (b.w == 0) {
        return;
    }
    if (a.w == 0) {
        a = b;
        return;
    }
    if (a.c == b.c) {
        a.w += b.w;
        a.w2 += b.w2;
        a.d1 += b.d1;
        a.d2 += b.d2;
        a.d3 += b.d3;
        a.d4 += b.d4;
        return;
    }
    const double w = a.w + b.w;
    const double c = a.c + ((a.d1 + b.d1) + b.w * (b.c - a.c)) / w;
    shift_centre(a, c, order);
    shift_centre(b, c, order);
    a.w = w;
    a.w2 += b.w2;
    a.d1 += b.d1;
    a.d2 += b.d2;
    a.d3 += b.d3;
    a.d4 += b.d4;
}

// One observation of weight w > 0 into s, the streaming method's step. The centre starts at the
// first observation; the caller moves it to the running mean every recentre_interval rows, so
// that it never drifts far from the data whatever their order.
constexpr int64_t recentre_interval = 64;

inline void consume_one(moment_sums& s, double x, double w) {
    if (s.w == 0) {
        s.c = x;
    }
    const double d = x - s.c;
    const double wd = w * d;
    const double wd2 = wd * d;
    s.w += w;
    s.w2 += w * w;
    s.d1 += wd;
    s.d2 += wd2;
    s.d3 += wd2 * d;
    s.d4 += (wd2 * d) * d;
}

// Central sums around the true mean c + d1 / w: the shift by t = d1 / w written out, with
// d1 = t w folded in (so the last terms are 2 t^2 d1 and -3 t^3 d1). t is small, as c is a
// rounded mean of the same data; this is where the rounding of the centre is paid back
// (LargeOffset.TenMillionDoublesNearOneE8 fails without the d1 terms).
struct central_sums {
    double mean, c2, c3, c4;
};

inline central_sums finish_central(const moment_sums& s) {
    const double t = s.d1 / s.w;
    central_sums r;
    r.mean = s.c + t;
    r.c2 = s.d2 - t * s.d1;
    r.c3 = (s.d3 - 3 * t * s.d2) + 2 * t * t * s.d1;
    r.c4 = ((s.d4 - 4 * t * s.d3) + 6 * t * t * s.d2) - 3 * t * t * t * s.d1;
    return r;
}

// Extremes of the observations of positive weight.
struct extreme_sums {
    double min = __builtin_inf(), max = -__builtin_inf();
    int32_t nan = 0;   // a kept observation is not a number
    int32_t kept = 0;  // at least one observation has a positive weight
};

inline void merge(extreme_sums& a, const extreme_sums& b) {
    a.min = b.min < a.min ? b.min : a.min;
    a.max = b.max > a.max ? b.max : a.max;
    a.nan |= b.nan;
    a.kept |= b.kept;
}

}  // namespace qnd_core
