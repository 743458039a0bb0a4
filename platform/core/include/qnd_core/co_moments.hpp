// Co-moment sums of several dimensions around per-dimension centres, their exact shift between
// centres, their merge and what they finish into (means, centred cross products, covariance,
// correlation). Header only, C++17: the partial results of disjoint shares of the observations
// (chunks of a file, devices, processes) merge into the result of the whole, as the component
// merges its own blocks.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

namespace qnd_core {

// Over the observations of positive weight: w = sum w, w2 = sum w^2, d1_i = sum w (x_i - c_i)
// and cross_ij = sum w (x_i - c_i)(x_j - c_j) (dims x dims, row by row, symmetric). d1 is
// carried, not assumed zero: the centres are rounded doubles, and d1 makes that rounding cost
// nothing when the sums are finished around the true means.
struct co_moment_sums {
    int64_t dims = 0;
    double w = 0, w2 = 0;
    std::vector<double> centre, d1, cross;

    explicit co_moment_sums(int64_t p = 0)
        : dims(p), centre(p, 0.0), d1(p, 0.0), cross(p * p, 0.0) {}
};

// Moves the centres to c_new. With e = c - c_new, (x_i - c_new_i) = (x_i - c_i) + e_i, so
// cross_ij gains e_i d1_j + e_j d1_i + e_i e_j w and d1_i gains e_i w: exact algebra, and e is
// exact when the centres are nearby doubles.
inline void shift_centres(co_moment_sums& s, const double* c_new) {
    const int64_t p = s.dims;
    std::vector<double> e(p);
    bool moved = false;
    for (int64_t i = 0; i < p; ++i) {
        e[i] = s.centre[i] - c_new[i];
        moved = moved || e[i] != 0;
        s.centre[i] = c_new[i];
    }
    if (!moved) {
        return;
    }
    for (int64_t i = 0; i < p; ++i) {
        for (int64_t j = 0; j < p; ++j) {
            s.cross[i * p + j] += (e[i] * s.d1[j] + e[j] * s.d1[i]) + e[i] * e[j] * s.w;
        }
    }
    for (int64_t i = 0; i < p; ++i) {
        s.d1[i] += e[i] * s.w;
    }
}

// Adds b into a, both of the same dimensions. Both move to the merged means rounded to doubles
// and their sums add: the pairwise update of co-moments (Chan, Golub and LeVeque's formula for
// the variance, applied to each pair of dimensions) written as two exact shifts. An empty side
// changes nothing.
inline void merge(co_moment_sums& a, co_moment_sums b) {
    if (b.w == 0) {
        return;
    }
    if (a.w == 0) {
        a = std::move(b);
        return;
    }
    const double w = a.w + b.w;
    if (a.centre != b.centre) {
        std::vector<double> c(a.dims);
        for (int64_t i = 0; i < a.dims; ++i) {
            c[i] = a.centre[i] + ((a.d1[i] + b.d1[i]) + b.w * (b.centre[i] - a.centre[i])) / w;
        }
        shift_centres(a, c.data());
        shift_centres(b, c.data());
    }
    a.w = w;
    a.w2 += b.w2;
    for (int64_t i = 0; i < a.dims; ++i) {
        a.d1[i] += b.d1[i];
    }
    for (std::size_t k = 0; k < a.cross.size(); ++k) {
        a.cross[k] += b.cross[k];
    }
}

// The state of a share from what the component reports of it: the weight sums (the count of
// observations twice without weights), the means (QND_SS_MEAN) and the centred cross products
// (QND_SS_CROSS_PRODUCT), p x p row by row.
inline co_moment_sums co_moments_of(
    int64_t p, double w, double w2, const double* mean, const double* cross) {
    co_moment_sums s(p);
    s.w = w;
    s.w2 = w2;
    s.centre.assign(mean, mean + p);
    s.cross.assign(cross, cross + p * p);
    return s;
}

// The means and the cross products around them: with t_i = d1_i / w, the sums around the true
// means are cross_ij - t_i d1_j (t is small, as the centres are rounded means of the same data).
inline void finish_co_moments(const co_moment_sums& s, double* mean, double* cross) {
    const int64_t p = s.dims;
    for (int64_t i = 0; i < p; ++i) {
        mean[i] = s.centre[i] + s.d1[i] / s.w;
        for (int64_t j = 0; j < p; ++j) {
            cross[i * p + j] = s.cross[i * p + j] - (s.d1[i] / s.w) * s.d1[j];
        }
    }
}

// The factor from centred cross products to the covariance, with reliability weights:
// w / (w^2 - w2), which is 1 / (n - 1) without weights.
inline double covariance_factor(const co_moment_sums& s) {
    return s.w / (s.w * s.w - s.w2);
}

// Correlation from centred cross products: C_ij / sqrt(C_ii C_jj).
inline double correlation_of(const double* cross, int64_t p, int64_t i, int64_t j) {
    return cross[i * p + j] / std::sqrt(cross[i * p + i] * cross[j * p + j]);
}

}  // namespace qnd_core
