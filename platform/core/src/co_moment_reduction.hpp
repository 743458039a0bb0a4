// The parallel reduction of a task's matrix to the co-moment sums of its kept dimensions: shares
// of the rows per work item, cache-sized blocks inside a share, blocks merged pairwise and shares
// merged in a fixed order; and the matrices written from the result.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "kernel_set.hpp"
#include "parallel.hpp"
#include "task_view.hpp"

namespace qnd_core {

// Pairwise merging of a stream of block sums, as moment_cascade does for one dimension.
struct co_moment_cascade {
    std::vector<co_moment_sums> levels;
    std::vector<char> full;

    void add(co_moment_sums b) {
        for (std::size_t k = 0;; ++k) {
            if (k == levels.size()) {
                levels.push_back(std::move(b));
                full.push_back(1);
                return;
            }
            if (!full[k]) {
                levels[k] = std::move(b);
                full[k] = 1;
                return;
            }
            merge(levels[k], std::move(b));
            b = std::move(levels[k]);
            full[k] = 0;
        }
    }
    void finish(co_moment_sums& out) {
        for (std::size_t k = 0; k < levels.size(); ++k) {
            if (full[k]) {
                merge(out, std::move(levels[k]));
            }
        }
    }
};

// Rows of a block for `count` dimensions: its deviations (one or two copies of count x rows
// doubles) stay in the first-level cache, and its mean is close enough to the share's running
// mean that most blocks take one pass.
inline int64_t co_moment_block_rows(int64_t count) {
    return std::clamp<int64_t>(4096 / count, 16, 512);
}

// The co-moment sums of the dimensions `dims` of the task over all its observations, weighted by
// `w` (null for none; the task's weights or a caller's substitute). False when a weight is
// negative or not a number; may throw std::bad_alloc.
template <class T>
bool reduce_co_moments(const task_view& tv,
                       const qnd_ss_threader_row* table,
                       const std::vector<int64_t>& dims,
                       const T* w,
                       co_moment_sums& out) {
    const typed_kernels<T>& k = kernels_for<T>(active_kernels());
    const T* x = static_cast<const T*>(tv.observations);
    const int64_t n = tv.n_observations, nd = tv.n_dims;
    const int64_t count = static_cast<int64_t>(dims.size());
    const int64_t block = co_moment_block_rows(count);
    const int64_t parts = part_count(n * count, 4 * static_cast<int64_t>(thread_limit(table)),
                                     std::max<int64_t>(65536, block * count));
    std::vector<co_moment_sums> partial(parts, co_moment_sums(count));
    std::vector<char> good(parts, 1);
    auto body = [&](int64_t p) {
        const int64_t first = n * p / parts, end = n * (p + 1) / parts;
        std::vector<double> scratch(2 * count * (block + 16));
        std::vector<int64_t> offsets(count);
        std::vector<double> offer, sums(count, 0.0);
        double running_w = 0;
        co_moment_cascade cascade;
        co_moment_sums b;
        for (int64_t r = first; r < end; r += block) {
            const int64_t rows = std::min(block, end - r);
            for (int64_t i = 0; i < count; ++i) {
                offsets[i] = tv.row_major ? dims[i] * n + r : r * nd + dims[i];
            }
            if (!k.co_moments(x, w == nullptr ? nullptr : w + r, rows, tv.row_major ? 1 : nd,
                              offsets.data(), count, offer.empty() ? nullptr : offer.data(),
                              scratch.data(), &b)) {
                good[p] = 0;
                return;
            }
            // The running mean of the share is offered to the next block: block means scatter
            // around it less than around any one block's mean.
            if (b.w > 0) {
                running_w += b.w;
                offer.resize(count);
                for (int64_t i = 0; i < count; ++i) {
                    sums[i] += b.centre[i] * b.w + b.d1[i];
                    offer[i] = sums[i] / running_w;
                }
            }
            cascade.add(std::move(b));
        }
        cascade.finish(partial[p]);
    };
    parallel_for(table, parts, body);
    out = co_moment_sums(count);
    for (int64_t p = 0; p < parts; ++p) {
        if (!good[p]) {
            return false;
        }
        merge(out, std::move(partial[p]));
    }
    return true;
}

// The kept dimensions of a task, in order.
inline std::vector<int64_t> kept_dimensions(const task_view& tv) {
    std::vector<int64_t> dims;
    for (int64_t d = 0; d < tv.n_dims; ++d) {
        if (dimension_kept(tv, d)) {
            dims.push_back(d);
        }
    }
    return dims;
}

// What the basic and pooled routines write of co-moment sums: the covariance, the correlation
// and the centred cross products, into n_dims x n_dims arrays at the kept dimensions (null
// arrays are skipped), and the means into an n_dims array.
struct matrix_outputs {
    void* covariance = nullptr;
    void* correlation = nullptr;
    void* cross = nullptr;
    void* mean = nullptr;
};

template <class T>
void write_matrices(const co_moment_sums& s,
                    const std::vector<int64_t>& dims,
                    int64_t nd,
                    const matrix_outputs& o,
                    bool dbl) {
    const int64_t p = s.dims;
    std::vector<double> mean(p), cross(p * p);
    if (s.w > 0) {
        finish_co_moments(s, mean.data(), cross.data());
    } else {
        std::fill(mean.begin(), mean.end(), __builtin_nan(""));
        std::fill(cross.begin(), cross.end(), __builtin_nan(""));
    }
    const double factor = covariance_factor(s);
    for (int64_t i = 0; i < p; ++i) {
        if (o.mean != nullptr) {
            store<T>(o.mean, dims[i], mean[i], dbl);
        }
        for (int64_t j = 0; j < p; ++j) {
            const int64_t at = dims[i] * nd + dims[j];
            if (o.covariance != nullptr) {
                store<T>(o.covariance, at, cross[i * p + j] * factor, dbl);
            }
            if (o.correlation != nullptr) {
                store<T>(o.correlation, at, correlation_of(cross.data(), p, i, j), dbl);
            }
            if (o.cross != nullptr) {
                store<T>(o.cross, at, cross[i * p + j], dbl);
            }
        }
    }
}

}  // namespace qnd_core
