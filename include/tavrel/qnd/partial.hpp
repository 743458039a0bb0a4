// Partial results of one dimension over a part of its observations, their exact merge, and the
// estimates that follow from them. A caller who splits the observations (in chunks read one
// after another, over several queues, devices or processes) computes each part with the
// estimators, merges the parts in any order and grouping, and finishes once:
//
//     partial<double> all;                   // no observation yet
//     for (each part) all = merge(all, part);
//     finished<double> e = finish(all);
//
// A part records its weight sums W = sum w_i and W2 = sum w_i^2 (both the count n when
// unweighted), its mean, its central sums of orders 2 to 4 and its raw sums of orders 1 to 4.
// Central sums are taken either around the part's own mean (merge) or around one centre that
// every part shares, such as a caller's mean (merge_about_centre). The merge of central sums is
// the pairwise update of means and central sums: exact in real arithmetic, and in floating point
// as accurate as a single pass over all observations, whatever the parts' sizes.
#pragma once

#include <cmath>
#include <limits>

namespace tavrel::qnd::stats {

template <typename T>
struct partial {
    T w = 0;     // sum of the weights of the part's observations
    T w2 = 0;    // sum of their squares
    T mean = 0;  // weighted mean; 0 for a part without weight
    T cs2 = 0;   // sum w_i (x_i - c)^k, c the part's mean or the shared centre
    T cs3 = 0;
    T cs4 = 0;
    T s1 = 0;  // sum w_i x_i^k
    T s2 = 0;
    T s3 = 0;
    T s4 = 0;
    T min = std::numeric_limits<T>::infinity();
    T max = -std::numeric_limits<T>::infinity();
};

namespace detail {

// Merges everything but the central sums: weights, mean, raw sums and extremes.
template <typename T>
partial<T> merge_common(const partial<T>& a, const partial<T>& b) {
    partial<T> r;
    r.w = a.w + b.w;
    r.w2 = a.w2 + b.w2;
    r.mean = r.w > 0 ? a.mean + (b.mean - a.mean) * (b.w / r.w) : T(0);
    r.s1 = a.s1 + b.s1;
    r.s2 = a.s2 + b.s2;
    r.s3 = a.s3 + b.s3;
    r.s4 = a.s4 + b.s4;
    // NaN in either part is kept, as a single pass over all observations would keep it.
    r.min = std::isnan(a.min) || std::isnan(b.min) ? std::numeric_limits<T>::quiet_NaN()
                                                   : (b.min < a.min ? b.min : a.min);
    r.max = std::isnan(a.max) || std::isnan(b.max) ? std::numeric_limits<T>::quiet_NaN()
                                                   : (b.max > a.max ? b.max : a.max);
    return r;
}

}  // namespace detail

// Merges two parts whose central sums are taken around their own means.
template <typename T>
partial<T> merge(const partial<T>& a, const partial<T>& b) {
    // A part without weight adds nothing; this also keeps 0/0 out of the update below.
    if (!(b.w > 0) && !(a.w > 0))
        return detail::merge_common(a, b);
    partial<T> r = detail::merge_common(a, b);
    if (!(b.w > 0) || !(a.w > 0)) {
        const partial<T>& only = a.w > 0 ? a : b;
        r.cs2 = only.cs2;
        r.cs3 = only.cs3;
        r.cs4 = only.cs4;
        return r;
    }
    const T w = r.w;
    const T d = b.mean - a.mean;
    const T da = d * (b.w / w);  // how far a's mean moves: r.mean - a.mean
    const T db = d * (a.w / w);  // how far b's mean moves, the other way: b.mean - r.mean
    // Each part's sums around the merged mean, by the binomial shift of their centre; the cross
    // terms of order 1 vanish because each part's first central sum is 0.
    r.cs2 = a.cs2 + b.cs2 + a.w * da * da + b.w * db * db;
    r.cs3 =
        a.cs3 + b.cs3 - 3 * da * a.cs2 + 3 * db * b.cs2 - a.w * da * da * da + b.w * db * db * db;
    r.cs4 = a.cs4 + b.cs4 - 4 * da * a.cs3 + 4 * db * b.cs3 + 6 * da * da * a.cs2 +
            6 * db * db * b.cs2 + a.w * da * da * da * da + b.w * db * db * db * db;
    return r;
}

// Merges two parts whose central sums are taken around one shared centre: they add.
template <typename T>
partial<T> merge_about_centre(const partial<T>& a, const partial<T>& b) {
    partial<T> r = detail::merge_common(a, b);
    r.cs2 = a.cs2 + b.cs2;
    r.cs3 = a.cs3 + b.cs3;
    r.cs4 = a.cs4 + b.cs4;
    return r;
}

// The estimates of a merged part, by the estimators' own definitions: raw moments S_k / W,
// central moment of order 2 C2 / (W - W2 / W) (unweighted: C2 / (n - 1)), of orders 3 and 4
// C_k / W, variation sqrt(c2) / centre, skewness c3 / c2^(3/2), excess kurtosis c4 / c2^2 - 3.
template <typename T>
struct finished {
    T mean, r2, r3, r4;
    T c2, c3, c4;
    T variation, skewness, kurtosis;
};

// `centre` is the mean the central sums were taken around: the part's own mean after merge, the
// shared centre after merge_about_centre. A part without weight gives NaN throughout.
template <typename T>
finished<T> finish(const partial<T>& p, T centre) {
    finished<T> f;
    const T nan = std::numeric_limits<T>::quiet_NaN();
    const T w = p.w > 0 ? p.w : nan;
    f.mean = p.w > 0 ? p.mean : nan;
    f.r2 = p.s2 / w;
    f.r3 = p.s3 / w;
    f.r4 = p.s4 / w;
    f.c2 = p.cs2 / (w - p.w2 / w);
    f.c3 = p.cs3 / w;
    f.c4 = p.cs4 / w;
    f.variation = std::sqrt(f.c2) / centre;
    f.skewness = f.c3 / (f.c2 * std::sqrt(f.c2));
    f.kurtosis = f.c4 / (f.c2 * f.c2) - 3;
    return f;
}

}  // namespace tavrel::qnd::stats
