// A mergeable quantile sketch of bounded size: the compactor hierarchy of Karnin, Lang and
// Liberty, "Optimal Quantile Approximation in Streams", FOCS 2016 (KLL). Header only, C++17;
// the streaming quantiles routine updates arrays of these, and callers keep them across chunks,
// merge them across devices or processes and read quantiles from them.
//
// Accuracy: the compactors' capacities shrink by 2/3 per level below the top, which holds k
// values, so that about 3k values are kept whatever the count. With k = 200 (the default) the rank
// of a reported quantile stays within 1.65% of the count of the order asked for; the tests check
// that bound at 99 orders on 10^6 values, and the routines benchmark on 10^7. The error falls
// roughly as 1 / k.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

namespace qnd_core {

constexpr int32_t kll_default_k = 200;
constexpr int32_t kll_min_width = 8;

// Level h holds values that each stand for 2^h values of the stream. nan records a NaN value,
// which makes every quantile NaN; random_state drives the coin of each compaction (fixed seed:
// the same stream gives the same sketch).
struct kll_sketch {
    int32_t k = kll_default_k;
    bool nan = false;
    uint64_t n = 0;
    uint64_t random_state = 0x6b6c6c5eedULL;
    std::vector<std::vector<double>> levels;
};

// Capacity of level h of H: k (2/3)^(H - 1 - h), at least kll_min_width; the top level is widest.
inline std::size_t kll_capacity(int32_t k, std::size_t levels, std::size_t h) {
    const double c = std::pow(2.0 / 3.0, static_cast<double>(levels - 1 - h));
    return std::max<std::size_t>(kll_min_width, static_cast<std::size_t>(std::ceil(k * c)));
}

// Halves every level at or over its capacity, from the lowest up: sorted, every other value
// (from a random first) rises a level with twice the weight; an odd value out stays. True when a
// level was halved.
inline bool kll_compact(kll_sketch& s) {
    bool any = false;
    for (std::size_t h = 0; h < s.levels.size(); ++h) {
        if (s.levels[h].size() < kll_capacity(s.k, s.levels.size(), h)) {
            continue;
        }
        if (h + 1 == s.levels.size()) {
            s.levels.emplace_back();
        }
        std::vector<double>& level = s.levels[h];
        std::sort(level.begin(), level.end());
        const std::size_t odd = level.size() % 2;
        uint64_t z = (s.random_state += 0x9e3779b97f4a7c15ULL);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        const std::size_t first = odd + ((z ^ (z >> 31)) & 1);
        std::vector<double>& up = s.levels[h + 1];
        for (std::size_t i = first; i < level.size(); i += 2) {
            up.push_back(level[i]);
        }
        level.resize(odd);
        any = true;
    }
    return any;
}

inline std::size_t kll_retained(const kll_sketch& s) {
    std::size_t r = 0;
    for (const auto& level : s.levels) {
        r += level.size();
    }
    return r;
}

inline void kll_update(kll_sketch& s, double x) {
    if (x != x) {
        s.nan = true;
        return;
    }
    if (s.levels.empty()) {
        s.levels.emplace_back();
    }
    s.levels[0].push_back(x);
    ++s.n;
    if (s.levels[0].size() >= kll_capacity(s.k, s.levels.size(), 0)) {
        kll_compact(s);
    }
}

// Adds b into a (a takes the larger k of the two, as a's k applies from now on).
inline void kll_merge(kll_sketch& a, const kll_sketch& b) {
    a.nan = a.nan || b.nan;
    a.k = std::max(a.k, b.k);
    a.n += b.n;
    if (a.levels.size() < b.levels.size()) {
        a.levels.resize(b.levels.size());
    }
    for (std::size_t h = 0; h < b.levels.size(); ++h) {
        a.levels[h].insert(a.levels[h].end(), b.levels[h].begin(), b.levels[h].end());
    }
    while (kll_compact(a)) {
    }
}

// The value at order p in [0, 1]: the first retained value whose cumulative weight reaches p n.
// NaN for an empty sketch or one that has seen a NaN.
inline double kll_quantile(const kll_sketch& s, double p) {
    if (s.n == 0 || s.nan) {
        return __builtin_nan("");
    }
    std::vector<std::pair<double, uint64_t>> items;
    for (std::size_t h = 0; h < s.levels.size(); ++h) {
        for (double v : s.levels[h]) {
            items.push_back({v, uint64_t(1) << h});
        }
    }
    std::sort(items.begin(), items.end());
    const double target = p * static_cast<double>(s.n);
    uint64_t cumulative = 0;
    for (const auto& item : items) {
        cumulative += item.second;
        if (static_cast<double>(cumulative) >= target) {
            return item.first;
        }
    }
    return items.back().first;
}

// The sketch as bytes and back, to send between processes: k, the NaN flag, n, the random
// state, the number of levels, then each level's size and values (host byte order).
inline std::vector<unsigned char> kll_to_bytes(const kll_sketch& s) {
    std::vector<unsigned char> out;
    auto put = [&](const void* p, std::size_t size) {
        const auto* c = static_cast<const unsigned char*>(p);
        out.insert(out.end(), c, c + size);
    };
    const uint64_t head[5] = {static_cast<uint64_t>(s.k), s.nan ? 1u : 0u, s.n, s.random_state,
                              s.levels.size()};
    put(head, sizeof head);
    for (const auto& level : s.levels) {
        const uint64_t size = level.size();
        put(&size, sizeof size);
        put(level.data(), size * sizeof(double));
    }
    return out;
}

// False, leaving s as it was, when the bytes are not a whole sketch.
inline bool kll_from_bytes(const unsigned char* bytes, std::size_t size, kll_sketch& s) {
    std::size_t at = 0;
    auto take = [&](void* p, std::size_t n) {
        if (size - at < n) {
            return false;
        }
        if (n != 0) {  // an empty level's data() may be null, which memcpy may not be given
            std::memcpy(p, bytes + at, n);
        }
        at += n;
        return true;
    };
    uint64_t head[5];
    if (!take(head, sizeof head) || head[0] < kll_min_width || head[4] > 64) {
        return false;
    }
    kll_sketch r;
    r.k = static_cast<int32_t>(head[0]);
    r.nan = head[1] != 0;
    r.n = head[2];
    r.random_state = head[3];
    r.levels.resize(head[4]);
    for (auto& level : r.levels) {
        uint64_t count = 0;
        if (!take(&count, sizeof count) || count > (size - at) / sizeof(double)) {
            return false;
        }
        level.resize(count);
        take(level.data(), count * sizeof(double));
    }
    s = std::move(r);
    return true;
}

}  // namespace qnd_core
