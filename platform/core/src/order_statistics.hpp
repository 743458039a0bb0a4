// Exact quantiles of every dimension of a task without sorting it: a random sample brackets the
// values each quantile needs, one parallel pass counts what lies below each bracket and copies
// what lies inside, and only those copies are ordered. The counts prove the bracket right; when
// the sample was unlucky the dimension is taken whole instead, so the result is always exact.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "parallel.hpp"
#include "quantile_rule.hpp"
#include "task_view.hpp"

namespace qnd_core {

// An observation of a weighted selection, ordered by value and ties by weight, so that the
// order (and with it every weighted definition) does not depend on the order of the data.
struct weighted_key {
    double x, w;
};
inline bool operator<(const weighted_key& a, const weighted_key& b) {
    return a.x < b.x || (a.x == b.x && a.w < b.w);
}
inline bool operator<=(const weighted_key& a, const weighted_key& b) {
    return !(b < a);
}
inline double value_of(double k) {
    return k;
}
inline double value_of(const weighted_key& k) {
    return k.x;
}
inline double weight_of(double) {
    return 1.0;
}
inline double weight_of(const weighted_key& k) {
    return k.w;
}

template <class K>
constexpr K lowest_key() {
    if constexpr (std::is_same_v<K, double>) {
        return -std::numeric_limits<double>::infinity();
    } else {
        return {-std::numeric_limits<double>::infinity(), -1.0};
    }
}
template <class K>
constexpr K highest_key() {
    if constexpr (std::is_same_v<K, double>) {
        return std::numeric_limits<double>::infinity();
    } else {
        return {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()};
    }
}

// Disjoint closed intervals of keys, ascending: the values kept by the pass.
template <class K>
struct bracket_plan {
    std::vector<K> lo, hi;
};

// What a share of the observations of one dimension leaves: per gap between brackets the
// count and weight of the keys in it, per bracket its keys, and the extremes (the weights of
// the first and last keys enter the weighted definitions).
template <class K>
struct share {
    std::vector<int64_t> gap_count;
    std::vector<double> gap_weight;
    std::vector<std::vector<K>> inside;
    int64_t kept = 0;
    double weight = 0;
    bool nan = false;
    K first = highest_key<K>(), last = lowest_key<K>();

    void reset(std::size_t brackets) {
        gap_count.assign(brackets + 1, 0);
        gap_weight.assign(brackets + 1, 0.0);
        inside.assign(brackets, {});
    }
    void add(share& b) {
        for (std::size_t g = 0; g < gap_count.size(); ++g) {
            gap_count[g] += b.gap_count[g];
            gap_weight[g] += b.gap_weight[g];
        }
        for (std::size_t g = 0; g < inside.size(); ++g) {
            inside[g].insert(inside[g].end(), b.inside[g].begin(), b.inside[g].end());
            std::vector<K>().swap(b.inside[g]);
        }
        kept += b.kept;
        weight += b.weight;
        nan = nan || b.nan;
        first = b.first < first ? b.first : first;
        last = last < b.last ? b.last : last;
    }
};

// How a selection reads the data: the values themselves, or their distances to a centre per
// dimension (the deviations of the median absolute deviation).
struct key_source {
    const double* centres = nullptr;
    double operator()(double x, int64_t d) const {
        return centres == nullptr ? x : std::fabs(x - centres[d]);
    }
};

// Sorts n values of one dimension's observations into `s`, at rising strides; false when a
// weight is negative or not a number.
template <class T, class K>
bool scan(const T* x,
          int64_t stride,
          const T* w,
          int64_t n,
          int64_t d,
          const key_source& key,
          const bracket_plan<K>& plan,
          share<K>& s) {
    constexpr bool weighted = !std::is_same_v<K, double>;
    const std::size_t brackets = plan.lo.size();
    const K* lo = plan.lo.data();
    const K* hi = plan.hi.data();
    int64_t nan = 0;
    for (int64_t i = 0; i < n; ++i) {
        double wi = 1.0;
        if constexpr (weighted) {
            wi = static_cast<double>(w[i]);
            if (!(wi >= 0)) {
                return false;
            }
            if (wi == 0) {
                continue;
            }
        }
        const double v = key(static_cast<double>(x[i * stride]), d);
        if (v != v) {
            ++nan;
            continue;
        }
        K k;
        if constexpr (weighted) {
            k = {v, wi};
            s.weight += wi;
            s.first = k < s.first ? k : s.first;
            s.last = s.last < k ? k : s.last;
        } else {
            k = v;
        }
        // The first bracket whose upper end is not below the key.
        std::size_t g = 0;
        if (brackets == 1) {
            g = hi[0] < k ? 1 : 0;
        } else {
            g = std::lower_bound(hi, hi + brackets, k,
                                 [](const K& a, const K& b) { return a < b; }) -
                hi;
        }
        if (g < brackets && lo[g] <= k) {
            s.inside[g].push_back(k);
        } else {
            ++s.gap_count[g];
            s.gap_weight[g] += wi;
        }
    }
    s.kept += weighted ? 0 : n - nan;
    s.nan = s.nan || nan != 0;
    return true;
}

// A small generator of sample positions (splitmix64): fixed seeds, the same sample every run.
inline uint64_t next_random(uint64_t& state) {
    uint64_t z = (state += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
}

// Below this many observations a dimension is taken whole.
constexpr int64_t whole_below = 16384;

// The keys of a dimension's random sample, ascending, NaN and weight 0 left out.
template <class T, class K>
std::vector<K> sample_keys(const task_view& tv, int64_t d, const key_source& key) {
    const T* x = static_cast<const T*>(tv.observations);
    const T* w = static_cast<const T*>(tv.weights);
    const int64_t n = tv.n_observations;
    const double root = std::cbrt(static_cast<double>(n));
    const int64_t size = std::min<int64_t>(65536, std::max<int64_t>(4096, root * root));
    std::vector<K> sample;
    sample.reserve(size);
    uint64_t state = 0x5eed0000ULL + static_cast<uint64_t>(d);
    for (int64_t j = 0; j < size; ++j) {
        const int64_t i = static_cast<int64_t>(next_random(state) % static_cast<uint64_t>(n));
        const double v =
            key(static_cast<double>(tv.row_major ? x[d * n + i] : x[i * tv.n_dims + d]), d);
        if (v != v) {
            continue;
        }
        if constexpr (std::is_same_v<K, double>) {
            sample.push_back(v);
        } else {
            const double wi = static_cast<double>(w[i]);
            if (wi > 0) {
                sample.push_back({v, wi});
            }
        }
    }
    std::sort(sample.begin(), sample.end());
    return sample;
}

// Brackets around the sample positions of the wanted fractions (of the count, or of the weight
// for weighted keys), wide enough that the true position falls inside but for rare samples.
template <class K>
bracket_plan<K> plan_brackets(const std::vector<K>& sample, const std::vector<double>& fractions) {
    bracket_plan<K> plan;
    const int64_t s = static_cast<int64_t>(sample.size());
    if (s < 64) {
        plan.lo.push_back(lowest_key<K>());
        plan.hi.push_back(highest_key<K>());
        return plan;
    }
    std::vector<double> cumulative;
    if constexpr (!std::is_same_v<K, double>) {
        double total = 0;
        for (const K& k : sample) {
            cumulative.push_back(total += k.w);
        }
        for (double& c : cumulative) {
            c /= total;
        }
    }
    std::vector<std::pair<K, K>> spans;
    for (double f : fractions) {
        int64_t j = static_cast<int64_t>(f * static_cast<double>(s));
        if (!cumulative.empty()) {
            j = std::lower_bound(cumulative.begin(), cumulative.end(), f) - cumulative.begin();
        }
        const double q = std::clamp(static_cast<double>(j) / static_cast<double>(s), 0.0, 1.0);
        // Four standard deviations of a sample rank, and a floor for the ends of the range.
        const int64_t margin =
            static_cast<int64_t>(4 * std::sqrt(static_cast<double>(s) * q * (1 - q))) + 16;
        const int64_t a = j - margin, b = j + margin;
        spans.push_back(
            {a < 0 ? lowest_key<K>() : sample[a], b >= s ? highest_key<K>() : sample[b]});
    }
    std::sort(spans.begin(), spans.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& sp : spans) {
        if (!plan.lo.empty() && sp.first <= plan.hi.back()) {
            plan.hi.back() = plan.hi.back() < sp.second ? sp.second : plan.hi.back();
        } else {
            plan.lo.push_back(sp.first);
            plan.hi.push_back(sp.second);
        }
    }
    return plan;
}

// One pass over the kept dimensions `dims`, each with its plan, in parallel over the dimensions
// and over shares of the observations; the shares of a dimension add up in `out`. False when a
// weight is negative or not a number.
template <class T, class K>
bool scan_task(const task_view& tv,
               const qnd_ss_threader_row* table,
               const std::vector<int64_t>& dims,
               const std::vector<bracket_plan<K>>& plans,
               const key_source& key,
               std::vector<share<K>>& out) {
    const T* x = static_cast<const T*>(tv.observations);
    const T* w = static_cast<const T*>(tv.weights);
    const int64_t n = tv.n_observations, nd = tv.n_dims;
    const int64_t k = static_cast<int64_t>(dims.size());
    const int64_t wanted = 4 * static_cast<int64_t>(thread_limit(table));
    out.assign(k, share<K>{});
    for (int64_t j = 0; j < k; ++j) {
        out[j].reset(plans[j].lo.size());
    }
    if (k == 0) {
        return true;
    }
    // Row major: items are shares of one dimension. Column major: shares of the rows, walked in
    // blocks of rows that stay in cache while every dimension is read from them.
    const int64_t parts = tv.row_major ? part_count(n, (wanted + k - 1) / k, 65536)
                                       : std::min<int64_t>(n, part_count(n * k, wanted, 65536));
    const int64_t items = tv.row_major ? k * parts : parts;
    std::vector<std::vector<share<K>>> partial(items);
    std::vector<char> good(items, 1);
    auto body = [&](int64_t item) {
        const int64_t p = item % parts;
        const int64_t first = n * p / parts, end = n * (p + 1) / parts;
        const int64_t j0 = tv.row_major ? item / parts : 0, j1 = tv.row_major ? j0 + 1 : k;
        std::vector<share<K>>& mine = partial[item];
        mine.resize(j1 - j0);
        for (int64_t j = j0; j < j1; ++j) {
            mine[j - j0].reset(plans[j].lo.size());
        }
        const T* wp = w == nullptr ? nullptr : w + first;
        if (tv.row_major) {
            good[item] = scan(x + dims[j0] * n + first, 1, wp, end - first, dims[j0], key,
                              plans[j0], mine[0]);
            return;
        }
        constexpr int64_t block = 256;
        for (int64_t r = first; r < end && good[item]; r += block) {
            const int64_t len = std::min(block, end - r);
            for (int64_t j = 0; j < k; ++j) {
                good[item] =
                    good[item] && scan(x + r * nd + dims[j], nd, w == nullptr ? nullptr : w + r,
                                       len, dims[j], key, plans[j], mine[j]);
            }
        }
    };
    parallel_for(table, items, body);
    for (int64_t item = 0; item < items; ++item) {
        if (!good[item]) {
            return false;
        }
        const int64_t j0 = tv.row_major ? item / parts : 0;
        for (std::size_t j = 0; j < partial[item].size(); ++j) {
            out[j0 + j].add(partial[item][j]);
        }
    }
    return true;
}

// The quantiles of one dimension at `orders` from its pass, into out[0..orders); false when a
// bracket turns out not to hold what an order needs (the caller then takes the dimension whole).
template <class K>
bool finish_quantiles(share<K>& s, int32_t def, const std::vector<double>& orders, double* out) {
    constexpr bool weighted = !std::is_same_v<K, double>;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    if (s.nan || (weighted ? !(s.weight > 0) : s.kept == 0)) {
        std::fill(out, out + orders.size(), nan);
        return true;
    }
    const std::size_t brackets = s.inside.size();
    // Count and weight below each bracket.
    std::vector<int64_t> below(brackets);
    std::vector<double> weight_below(brackets);
    int64_t count = 0;
    double weight = 0;
    for (std::size_t g = 0; g < brackets; ++g) {
        count += s.gap_count[g];
        weight += s.gap_weight[g];
        below[g] = count;
        weight_below[g] = weight;
        count += static_cast<int64_t>(s.inside[g].size());
        for (const K& k : s.inside[g]) {
            weight += weight_of(k);
        }
    }
    count += s.gap_count[brackets];
    const int64_t kept = weighted ? count : s.kept;
    if constexpr (!weighted) {
        // Every needed rank, per bracket, found by successive partitions of the bracket's copy.
        std::vector<read_point> points(orders.size());
        std::vector<std::vector<int64_t>> ranks(brackets);
        std::vector<std::size_t> where(orders.size());
        for (std::size_t j = 0; j < orders.size(); ++j) {
            points[j] = unweighted_point(def, kept, orders[j]);
            std::size_t g = 0;
            while (g < brackets &&
                   !(below[g] <= points[j].lo &&
                     points[j].hi < below[g] + static_cast<int64_t>(s.inside[g].size()))) {
                ++g;
            }
            if (g == brackets) {
                return false;
            }
            where[j] = g;
            ranks[g].push_back(points[j].lo - below[g]);
            ranks[g].push_back(points[j].hi - below[g]);
        }
        for (std::size_t g = 0; g < brackets; ++g) {
            std::vector<int64_t>& r = ranks[g];
            std::sort(r.begin(), r.end());
            r.erase(std::unique(r.begin(), r.end()), r.end());
            auto begin = s.inside[g].begin();
            int64_t from = 0;
            for (int64_t rank : r) {
                std::nth_element(begin + from, begin + rank, s.inside[g].end());
                from = rank + 1;
            }
        }
        for (std::size_t j = 0; j < orders.size(); ++j) {
            const std::vector<K>& v = s.inside[where[j]];
            const int64_t b = below[where[j]];
            out[j] = interpolate(v[points[j].lo - b], v[points[j].hi - b], points[j].g);
        }
        return true;
    } else {
        // Midpoints c_k = S_(k-1) + w_k / 2 on the scale of cumulative weight; the first and
        // last midpoints stand for the orders 0 and 1.
        const double total = s.weight;
        const double c_first = s.first.w / 2, c_last = total - s.last.w / 2;
        for (std::size_t g = 0; g < brackets; ++g) {
            std::sort(s.inside[g].begin(), s.inside[g].end());
        }
        for (std::size_t j = 0; j < orders.size(); ++j) {
            const double p = orders[j];
            bool found = false;
            for (std::size_t g = 0; g < brackets && !found; ++g) {
                const std::vector<K>& v = s.inside[g];
                const bool ends_data = below[g] + static_cast<int64_t>(v.size()) == count;
                if (v.empty()) {
                    continue;
                }
                double before = weight_below[g];
                if (def == QND_SS_QUANTILE_TYPE_1) {
                    // The first value whose share of the cumulative weight reaches p.
                    if (below[g] > 0 && before / total >= p) {
                        continue;
                    }
                    for (std::size_t i = 0; i < v.size(); ++i) {
                        before += v[i].w;
                        if (before / total >= p || (ends_data && i + 1 == v.size())) {
                            out[j] = v[i].x;
                            found = true;
                            break;
                        }
                    }
                    continue;
                }
                const double target = c_first + p * (c_last - c_first);
                if (before + v[0].w / 2 > target && below[g] > 0) {
                    continue;
                }
                for (std::size_t i = 0; i < v.size(); ++i) {
                    const double c = before + v[i].w / 2;
                    const bool last_of_data = ends_data && i + 1 == v.size();
                    if (last_of_data) {
                        out[j] = v[i].x;
                        found = true;
                        break;
                    }
                    if (i + 1 == v.size()) {
                        break;  // the next observation lies beyond this bracket
                    }
                    const double c_next = before + v[i].w + v[i + 1].w / 2;
                    if (c_next > target) {
                        const double f = std::clamp((target - c) / (c_next - c), 0.0, 1.0);
                        const bool even = (below[g] + static_cast<int64_t>(i)) % 2 == 0;
                        out[j] = weighted_value_at(def, v[i].x, v[i + 1].x, f, even);
                        found = true;
                        break;
                    }
                    before += v[i].w;
                }
            }
            if (!found) {
                return false;
            }
        }
        return true;
    }
}

// Quantiles at `orders` of every kept dimension into out (n_dims x orders, row by dimension),
// under definition `def`, of the keys `key` makes of the observations. False when a weight is
// negative or not a number; may throw std::bad_alloc.
template <class T, class K>
bool select_quantiles(const task_view& tv,
                      const qnd_ss_threader_row* table,
                      int32_t def,
                      const std::vector<double>& orders,
                      const key_source& key,
                      std::vector<double>& out) {
    const int64_t nd = tv.n_dims, n = tv.n_observations;
    const std::size_t m = orders.size();
    out.assign(nd * m, std::numeric_limits<double>::quiet_NaN());
    std::vector<int64_t> dims;
    for (int64_t d = 0; d < nd; ++d) {
        if (dimension_kept(tv, d)) {
            dims.push_back(d);
        }
    }
    // Fractions of the data each order needs: both ranks of an unweighted read.
    std::vector<double> fractions;
    for (double p : orders) {
        if constexpr (std::is_same_v<K, double>) {
            const read_point r = unweighted_point(def, n, p);
            fractions.push_back(static_cast<double>(r.lo) / static_cast<double>(n));
            fractions.push_back(static_cast<double>(r.hi + 1) / static_cast<double>(n));
        } else {
            fractions.push_back(p);
        }
    }
    std::vector<bracket_plan<K>> plans(dims.size());
    auto plan_one = [&](int64_t j) {
        if (n < whole_below) {
            plans[j] = plan_brackets<K>({}, fractions);
        } else {
            plans[j] = plan_brackets<K>(sample_keys<T, K>(tv, dims[j], key), fractions);
        }
    };
    parallel_for(table, static_cast<int64_t>(dims.size()), plan_one);
    std::vector<share<K>> shares;
    if (!scan_task<T, K>(tv, table, dims, plans, key, shares)) {
        return false;
    }
    // Dimensions whose sample missed are taken whole, in a second pass of their own.
    std::vector<char> missed(dims.size(), 0);
    auto finish = [&](int64_t j) {
        missed[j] = !finish_quantiles(shares[j], def, orders, &out[dims[j] * m]);
        shares[j] = share<K>{};
    };
    parallel_for(table, static_cast<int64_t>(dims.size()), finish);
    std::vector<int64_t> again;
    std::vector<bracket_plan<K>> whole;
    for (std::size_t j = 0; j < dims.size(); ++j) {
        if (missed[j]) {
            again.push_back(dims[j]);
            whole.push_back(plan_brackets<K>({}, fractions));
        }
    }
    if (again.empty()) {
        return true;
    }
    if (!scan_task<T, K>(tv, table, again, whole, key, shares)) {
        return false;
    }
    for (std::size_t j = 0; j < again.size(); ++j) {
        finish_quantiles(shares[j], def, orders, &out[again[j] * m]);
    }
    return true;
}

}  // namespace qnd_core
