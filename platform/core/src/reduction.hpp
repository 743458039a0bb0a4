// The parallel reduction of a task's matrix to one state per dimension: the cut into work items,
// the walk over cache-sized blocks inside an item, and the merge of items in a fixed order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kernel_set.hpp"
#include "parallel.hpp"
#include "task_view.hpp"

namespace qnd_core {

// Bytes of one dimension per block of the contiguous kernels: the second pass reads the block from
// the first-level cache.
constexpr int64_t contiguous_block_bytes = 32768;
// Bytes of a strided block (second-level cache), and the widest group of dimensions in one block.
constexpr int64_t strided_block_bytes = 131072;
constexpr int64_t strided_max_dims = 512;
// Smallest work item, in elements: below it the cost of a thread's start dominates.
constexpr int64_t item_grain = 65536;

// Rows of a strided block: at most strided_max_rows, so that no running sum of a block takes more
// than a few hundred terms (long chains of additions round with a bias on sums of powers).
constexpr int64_t strided_max_rows = 1024;

inline int64_t strided_rows(int64_t dims, int64_t element_size) {
    const int64_t rows = strided_block_bytes / (dims * element_size);
    return rows < 16 ? 16 : rows > strided_max_rows ? strided_max_rows : rows;
}

// Pairwise merging of a stream of block states: level k holds the merge of 2^k blocks, so that
// every block result goes through about log2(blocks) merges of states of like size instead of
// one merge per block into an ever larger total (the rounding of recursive summation).
struct moment_cascade {
    std::vector<moment_sums> levels;
    std::vector<char> full;

    void add(moment_sums b, int order) {
        for (std::size_t k = 0;; ++k) {
            if (k == levels.size()) {
                levels.push_back(b);
                full.push_back(1);
                return;
            }
            if (!full[k]) {
                levels[k] = b;
                full[k] = 1;
                return;
            }
            merge(levels[k], b, order);
            b = levels[k];
            full[k] = 0;
        }
    }

    // Adds the levels, smallest first, into out.
    void finish(moment_sums& out, int order) {
        for (std::size_t k = 0; k < levels.size(); ++k) {
            if (full[k]) {
                merge(out, levels[k], order);
            }
        }
        levels.clear();
        full.clear();
    }
};

// The centre offered to the next block of a walk, so that on data without jumps the kernels need
// one pass per block. It stays while blocks accept it (blocks of equal centres merge by plain
// addition). A block that made its own centre (the first, or one that refused the offer) puts in
// its place the mean of all blocks so far, around which the next block's mean scatters far less
// than around one block's mean; unless the data have moved away from that mean (drift, a jump),
// where the block's own centre is the better guess.
struct centre_offer {
    double centre = __builtin_nan("");
    double w = 0, sum = 0;

    void update(const moment_sums& b) {
        if (!(b.w > 0)) {
            return;
        }
        w += b.w;
        sum += b.c * b.w + b.d1;
        if (b.c != centre) {
            const double mean = sum / w;
            const double e = mean - b.c;
            // The kernels' test of a centre: within an eighth of a standard deviation.
            centre = 64 * e * e * b.w <= b.d2 ? mean : b.c;
        }
    }
};

// Moments of blocks, through the kernels or through the streaming update.
template <class T>
struct moment_policy {
    using state = moment_sums;
    const typed_kernels<T>* kernels;
    int order;
    bool streaming;

    bool contiguous(const T* x, const T* w, int64_t n, state& out) const {
        if (streaming) {
            return stream(x, w, n, 1, 1, &out);
        }
        constexpr int64_t contiguous_block = contiguous_block_bytes / sizeof(T);
        moment_cascade cascade;
        centre_offer offer;
        // The first block is cut short so that the others start on a cache line: a vector load
        // that straddles two lines costs two.
        const auto address = reinterpret_cast<uintptr_t>(x);
        const int64_t head =
            address % sizeof(T) == 0 ? static_cast<int64_t>(address % 64 / sizeof(T)) : 0;
        for (int64_t i = 0, len = 0; i < n; i += len) {
            const int64_t size = i == 0 ? contiguous_block - head : contiguous_block;
            len = n - i < size ? n - i : size;
            moment_sums b;
            if (!kernels->moments(x + i, w == nullptr ? nullptr : w + i, len, order, &offer.centre,
                                  &b)) {
                return false;
            }
            offer.update(b);
            cascade.add(b, order);
        }
        cascade.finish(out, order);
        return true;
    }

    bool strided(const T* x, const T* w, int64_t rows, int64_t ld, state* out) const {
        if (streaming) {
            return stream(x, w, rows, ld, ld, out);
        }
        if (ld == 1) {
            return contiguous(x, w, rows, *out);
        }
        const int64_t group = ld < strided_max_dims ? ld : strided_max_dims;
        const int64_t block_rows = strided_rows(group, sizeof(T));
        std::vector<moment_sums> b(group);
        std::vector<moment_cascade> cascades(ld);
        std::vector<centre_offer> offers(ld);
        std::vector<double> centres(ld, __builtin_nan(""));
        for (int64_t r = 0; r < rows; r += block_rows) {
            const int64_t len = rows - r < block_rows ? rows - r : block_rows;
            for (int64_t d = 0; d < ld; d += group) {
                const int64_t count = ld - d < group ? ld - d : group;
                if (!kernels->moments_strided(x + r * ld + d, w == nullptr ? nullptr : w + r, len,
                                              ld, count, order, centres.data() + d, b.data())) {
                    return false;
                }
                for (int64_t k = 0; k < count; ++k) {
                    offers[d + k].update(b[k]);
                    centres[d + k] = offers[d + k].centre;
                    cascades[d + k].add(b[k], order);
                }
            }
        }
        for (int64_t d = 0; d < ld; ++d) {
            cascades[d].finish(out[d], order);
        }
        return true;
    }

    // The streaming method: every observation of positive weight updates its dimension's state
    // at once, dimension after dimension of a row.
    static bool stream(
        const T* x, const T* w, int64_t rows, int64_t ld, int64_t count, state* out) {
        for (int64_t r = 0; r < rows; ++r) {
            const double wr = w == nullptr ? 1.0 : static_cast<double>(w[r]);
            if (!(wr >= 0)) {
                return false;
            }
            if (wr == 0) {
                continue;
            }
            for (int64_t d = 0; d < count; ++d) {
                consume_one(out[d], static_cast<double>(x[r * ld + d]), wr);
            }
            if ((r + 1) % recentre_interval == 0) {
                for (int64_t d = 0; d < count; ++d) {
                    if (out[d].w > 0) {
                        shift_centre(out[d], out[d].c + out[d].d1 / out[d].w, 4);
                    }
                }
            }
        }
        return true;
    }
};

template <class T>
struct extreme_policy {
    using state = extreme_sums;
    const typed_kernels<T>* kernels;

    bool contiguous(const T* x, const T* w, int64_t n, state& out) const {
        extreme_sums b;
        if (!kernels->extremes(x, w, n, &b)) {
            return false;
        }
        merge(out, b);
        return true;
    }

    bool strided(const T* x, const T* w, int64_t rows, int64_t ld, state* out) const {
        const int64_t group = ld < strided_max_dims ? ld : strided_max_dims;
        const int64_t block_rows = strided_rows(group, sizeof(T));
        std::vector<extreme_sums> b(group);
        for (int64_t r = 0; r < rows; r += block_rows) {
            const int64_t len = rows - r < block_rows ? rows - r : block_rows;
            for (int64_t d = 0; d < ld; d += group) {
                const int64_t count = ld - d < group ? ld - d : group;
                if (!kernels->extremes_strided(x + r * ld + d, w == nullptr ? nullptr : w + r, len,
                                               ld, count, b.data())) {
                    return false;
                }
                for (int64_t k = 0; k < count; ++k) {
                    merge(out[d + k], b[k]);
                }
            }
        }
        return true;
    }
};

inline void merge_state(moment_sums& a, const moment_sums& b, int order) {
    merge(a, b, order);
}
inline void merge_state(extreme_sums& a, const extreme_sums& b, int) {
    merge(a, b);
}

// One state per dimension in `result` (dimensions the task skips stay empty). False when a
// weight is negative or not a number. The items of a dimension merge in rising order, so a
// result depends on the number of threads only through the rounding of those merges.
template <class T, class Policy>
bool reduce(const task_view& tv,
            const qnd_ss_threader_row* table,
            const Policy& policy,
            int order,
            std::vector<typename Policy::state>& result) {
    using state = typename Policy::state;
    const T* x = static_cast<const T*>(tv.observations);
    const T* w = static_cast<const T*>(tv.weights);
    const int64_t nd = tv.n_dims;
    const int64_t n = tv.n_observations;
    const int64_t wanted = 4 * static_cast<int64_t>(thread_limit(table));
    result.assign(nd, state{});
    if (tv.row_major) {
        std::vector<int64_t> kept;
        for (int64_t d = 0; d < nd; ++d) {
            if (dimension_kept(tv, d)) {
                kept.push_back(d);
            }
        }
        const int64_t k = static_cast<int64_t>(kept.size());
        if (k == 0) {
            return true;
        }
        const int64_t parts = part_count(n, (wanted + k - 1) / k, item_grain);
        const int64_t items = k * parts;
        std::vector<state> partial(items);
        std::vector<char> good(items, 1);
        auto body = [&](int64_t item) {
            const int64_t d = kept[item / parts];
            const int64_t p = item % parts;
            const int64_t lo = n * p / parts;
            const int64_t hi = n * (p + 1) / parts;
            good[item] = policy.contiguous(x + d * n + lo, w == nullptr ? nullptr : w + lo, hi - lo,
                                           partial[item]);
        };
        parallel_for(table, items, body);
        for (int64_t item = 0; item < items; ++item) {
            if (!good[item]) {
                return false;
            }
            merge_state(result[kept[item / parts]], partial[item], order);
        }
        return true;
    }
    int64_t parts = part_count(n * nd, wanted, item_grain);
    if (parts > n) {
        parts = n;
    }
    std::vector<state> partial(parts * nd);
    std::vector<char> good(parts, 1);
    auto body = [&](int64_t p) {
        const int64_t lo = n * p / parts;
        const int64_t hi = n * (p + 1) / parts;
        good[p] = policy.strided(x + lo * nd, w == nullptr ? nullptr : w + lo, hi - lo, nd,
                                 &partial[p * nd]);
    };
    parallel_for(table, parts, body);
    for (int64_t p = 0; p < parts; ++p) {
        if (!good[p]) {
            return false;
        }
        for (int64_t d = 0; d < nd; ++d) {
            merge_state(result[d], partial[p * nd + d], order);
        }
    }
    return true;
}

}  // namespace qnd_core
