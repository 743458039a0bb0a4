// Block kernels written once over the vector width of the including unit, which compiles them for
// one instruction set (QND_ISA names its namespace, QND_VECTOR_BYTES its vector size).
//
// Everything here lives in the per-set namespace and uses no out-of-line helper of another unit,
// so that no code of a wider set can be shared with a narrower one by the linker.
#pragma once

#include <immintrin.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "kernel_set.hpp"

#if !defined(QND_ISA) || !defined(QND_VECTOR_BYTES) || !defined(QND_SET) || !defined(QND_SET_NAME)
#error "define QND_ISA, QND_VECTOR_BYTES, QND_SET and QND_SET_NAME before this file"
#endif

namespace qnd_core {
namespace QND_ISA {
namespace {

constexpr int lanes = QND_VECTOR_BYTES / 8;
// Independent accumulators per sum: enough chains to cover the latency of the adds.
constexpr int unroll = 4;
constexpr double inf = __builtin_inf();

typedef double vdouble __attribute__((vector_size(QND_VECTOR_BYTES)));
typedef long long vmask __attribute__((vector_size(QND_VECTOR_BYTES)));
typedef float vfloat_half __attribute__((vector_size(QND_VECTOR_BYTES / 2)));

// Native vectors of T for the extremes, which need no conversion.
template <class T>
struct native;
template <>
struct native<double> {
    typedef double type __attribute__((vector_size(QND_VECTOR_BYTES)));
    typedef long long mask __attribute__((vector_size(QND_VECTOR_BYTES)));
    static constexpr int size = QND_VECTOR_BYTES / 8;
};
template <>
struct native<float> {
    typedef float type __attribute__((vector_size(QND_VECTOR_BYTES)));
    typedef int mask __attribute__((vector_size(QND_VECTOR_BYTES)));
    static constexpr int size = QND_VECTOR_BYTES / 4;
};

inline vdouble load_wide(const double* p) {
    vdouble v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Float data are widened on load: every sum is taken in double. One conversion instruction of the
// full width (the generic vector conversion splits it in halves).
inline vdouble load_wide(const float* p) {
#if QND_VECTOR_BYTES == 64
    return _mm512_cvtps_pd(_mm256_loadu_ps(p));
#elif QND_VECTOR_BYTES == 32
    return _mm256_cvtps_pd(_mm_loadu_ps(p));
#else
    vfloat_half v;
    std::memcpy(&v, p, sizeof v);
    return __builtin_convertvector(v, vdouble);
#endif
}

inline vdouble splat(double s) {
    return vdouble{} + s;
}

inline double lane_sum(vdouble v) {
    double s = 0;
    for (int l = 0; l < lanes; ++l) {
        s += v[l];
    }
    return s;
}

inline bool any(vmask m) {
    long long r = 0;
    for (int l = 0; l < lanes; ++l) {
        r |= m[l];
    }
    return r != 0;
}

template <class M, int N>
inline bool any_of(M m) {
    for (int l = 0; l < N; ++l) {
        if (m[l] != 0) {
            return true;
        }
    }
    return false;
}

// ---- moments of contiguous values ------------------------------------------------------------

// Terms per running vector sum before it is added into the block's total: long chains of
// additions round with a bias on sums of powers, short ones cost nothing.
constexpr int64_t chain = 64;

inline int64_t chunk_end(int64_t base, int64_t chunk, int64_t end) {
    return end - base < chunk ? end : base + chunk;
}

// Accumulators per power in the sums of deviations: as many as the vector registers hold next to
// the centre and two temporaries (16 registers below 512 bits, 32 with them). Spilled
// accumulators would cost a load and a store per term.
constexpr int deviation_unroll = QND_VECTOR_BYTES == 64 ? 4 : 3;

// The sum of U accumulators, pairwise where there are four.
template <int U>
inline vdouble tree_sum(const vdouble (&a)[U]) {
    if constexpr (U == 4) {
        return (a[0] + a[1]) + (a[2] + a[3]);
    } else {
        vdouble s = a[0];
        for (int u = 1; u < U; ++u) {
            s += a[u];
        }
        return s;
    }
}

struct power_sums {
    double s1 = 0, s2 = 0, s3 = 0, s4 = 0;
};

// Sums of (x - c)^k for k = 1..Order over n contiguous values. With Prefetch the lines just past
// the values are requested meanwhile, as the caller reads them next while these come from cache.
template <int Order, bool Prefetch, class T>
power_sums deviation_sums(const T* x, int64_t n, double c) {
    constexpr int U = deviation_unroll;
    constexpr int step = U * lanes;
    constexpr int lines_per_step = static_cast<int>((step * sizeof(T) + 63) / 64);
    const int64_t nv = n - n % step;
    const vdouble cv = splat(c);
    vdouble t1 = {}, t2 = {}, t3 = {}, t4 = {};
    for (int64_t base = 0; base < nv; base += chain * step) {
        const int64_t end = chunk_end(base, chain * step, nv);
        vdouble a1[U] = {}, a2[U] = {}, a3[U] = {}, a4[U] = {};
        for (int64_t i = base; i < end; i += step) {
            if (Prefetch) {
                for (int k = 0; k < lines_per_step; ++k) {
                    __builtin_prefetch(reinterpret_cast<const char*>(x + n + i) + 64 * k, 0, 3);
                }
            }
#pragma GCC unroll 4
            for (int u = 0; u < U; ++u) {
                const vdouble d = load_wide(x + i + u * lanes) - cv;
                const vdouble d2 = d * d;
                a1[u] += d;
                a2[u] += d2;
                if (Order >= 3) {
                    a3[u] += d2 * d;
                }
                if (Order >= 4) {
                    a4[u] += d2 * d2;
                }
            }
        }
        t1 += tree_sum(a1);
        t2 += tree_sum(a2);
        t3 += tree_sum(a3);
        t4 += tree_sum(a4);
    }
    power_sums p;
    p.s1 = lane_sum(t1);
    p.s2 = lane_sum(t2);
    p.s3 = lane_sum(t3);
    p.s4 = lane_sum(t4);
    for (int64_t i = nv; i < n; ++i) {
        const double d = static_cast<double>(x[i]) - c;
        const double d2 = d * d;
        p.s1 += d;
        p.s2 += d2;
        p.s3 += d2 * d;
        p.s4 += d2 * d2;
    }
    return p;
}

inline moment_sums unweighted_sums(int64_t n, double c, const power_sums& p) {
    moment_sums r;
    r.w = static_cast<double>(n);
    r.w2 = r.w;
    r.c = c;
    r.d1 = p.s1;
    r.d2 = p.s2;
    r.d3 = p.s3;
    r.d4 = p.s4;
    return r;
}

// Whether sums around a centre are as good as sums around the mean: the mean d1 / n lies within an
// eighth of a standard deviation of the centre, (d1 / n)^2 <= (d2 / n) / 64. False for NaN.
inline bool centre_close(double d1, double d2, double n) {
    return 64 * d1 * d1 <= d2 * n;
}

// With a candidate centre (offered by the walk over the blocks), one pass around it, kept if the
// centre is close to the block's mean: on data without jumps every block but the first is read
// once. Otherwise,
// or without a candidate, two passes: the block's mean, then the sums around it from cache.
template <int Order, class T>
bool moments_plain(const T* x, int64_t n, const double* centre, moment_sums* out) {
    if (Order > 1 && n > 0 && centre != nullptr && *centre == *centre) {
        const power_sums p = deviation_sums<Order, false>(x, n, *centre);
        if (centre_close(p.s1, p.s2, static_cast<double>(n))) {
            *out = unweighted_sums(n, *centre, p);
            return true;
        }
    }
    constexpr int step = unroll * lanes;
    const int64_t nv = n - n % step;
    vdouble total = {};
    for (int64_t base = 0; base < nv; base += chain * step) {
        const int64_t end = chunk_end(base, chain * step, nv);
        vdouble s[unroll] = {};
        for (int64_t i = base; i < end; i += step) {
#pragma GCC unroll 4
            for (int u = 0; u < unroll; ++u) {
                s[u] += load_wide(x + i + u * lanes);
            }
        }
        total += (s[0] + s[1]) + (s[2] + s[3]);
    }
    double sum = lane_sum(total);
    for (int64_t i = nv; i < n; ++i) {
        sum += static_cast<double>(x[i]);
    }
    if (Order == 1 || n == 0) {
        moment_sums r;
        r.w = static_cast<double>(n);
        r.w2 = r.w;
        r.d1 = sum;
        *out = r;
        return true;
    }
    const double c = sum / static_cast<double>(n);
    *out = unweighted_sums(n, c, deviation_sums<Order, true>(x, n, c));
    return true;
}

// Observations of weight 0 are dropped: their values are masked out before any product, so
// that a NaN of weight 0 leaves no trace.
template <int Order, class T>
bool moments_weighted(const T* x, const T* w, int64_t n, moment_sums* out) {
    const int64_t nv = n - n % lanes;
    const vdouble zero = {};
    vdouble sx = {}, sw = {}, sw2 = {};
    vmask bad = {};
    for (int64_t base = 0; base < nv; base += chain * lanes) {
        const int64_t end = chunk_end(base, chain * lanes, nv);
        vdouble cx = {}, cw = {}, cw2 = {};
        for (int64_t i = base; i < end; i += lanes) {
            const vdouble wv = load_wide(w + i);
            const vdouble xv = load_wide(x + i);
            bad |= ~(wv >= zero);
            cx += (wv > zero) ? xv * wv : zero;
            cw += wv;
            cw2 += wv * wv;
        }
        sx += cx;
        sw += cw;
        sw2 += cw2;
    }
    double sumx = lane_sum(sx), sumw = lane_sum(sw), sumw2 = lane_sum(sw2);
    bool ok = !any(bad);
    for (int64_t i = nv; i < n; ++i) {
        const double wi = static_cast<double>(w[i]);
        ok = ok && wi >= 0;
        if (wi > 0) {
            sumx += static_cast<double>(x[i]) * wi;
        }
        sumw += wi;
        sumw2 += wi * wi;
    }
    if (!ok) {
        return false;
    }
    moment_sums r;
    if (sumw == 0) {
        *out = r;
        return true;
    }
    r.w = sumw;
    r.w2 = sumw2;
    if (Order == 1) {
        r.d1 = sumx;
        *out = r;
        return true;
    }
    const double c = sumx / sumw;
    const vdouble cv = splat(c);
    vdouble t1 = {}, t2 = {}, t3 = {}, t4 = {};
    for (int64_t base = 0; base < nv; base += chain * lanes) {
        const int64_t end = chunk_end(base, chain * lanes, nv);
        vdouble a1 = {}, a2 = {}, a3 = {}, a4 = {};
        for (int64_t i = base; i < end; i += lanes) {
            const vdouble wv = load_wide(w + i);
            const vdouble d = (wv > zero) ? load_wide(x + i) - cv : zero;
            const vdouble wd = wv * d;
            const vdouble wd2 = wd * d;
            a1 += wd;
            a2 += wd2;
            if (Order >= 3) {
                const vdouble wd3 = wd2 * d;
                a3 += wd3;
                if (Order >= 4) {
                    a4 += wd3 * d;
                }
            }
        }
        t1 += a1;
        t2 += a2;
        t3 += a3;
        t4 += a4;
    }
    double s1 = lane_sum(t1), s2 = lane_sum(t2), s3 = lane_sum(t3), s4 = lane_sum(t4);
    for (int64_t i = nv; i < n; ++i) {
        const double wi = static_cast<double>(w[i]);
        if (wi > 0) {
            const double d = static_cast<double>(x[i]) - c;
            const double wd = wi * d;
            const double wd2 = wd * d;
            s1 += wd;
            s2 += wd2;
            s3 += wd2 * d;
            s4 += (wd2 * d) * d;
        }
    }
    r.c = c;
    r.d1 = s1;
    r.d2 = s2;
    r.d3 = s3;
    r.d4 = s4;
    *out = r;
    return true;
}

template <class T>
bool moments(const T* x, const T* w, int64_t n, int order, const double* centre, moment_sums* out) {
    if (w == nullptr) {
        switch (order) {
            case 1:
                return moments_plain<1>(x, n, centre, out);
            case 2:
                return moments_plain<2>(x, n, centre, out);
            case 3:
                return moments_plain<3>(x, n, centre, out);
            default:
                return moments_plain<4>(x, n, centre, out);
        }
    }
    switch (order) {
        case 1:
            return moments_weighted<1>(x, w, n, out);
        case 2:
            return moments_weighted<2>(x, w, n, out);
        case 3:
            return moments_weighted<3>(x, w, n, out);
        default:
            return moments_weighted<4>(x, w, n, out);
    }
}

// ---- moments of strided values: vector lanes run across adjacent dimensions -----------------

// Sums of weights of a block of rows; false if one is negative or not a number.
template <class T>
bool weight_sums(const T* w, int64_t rows, double* sumw, double* sumw2) {
    double a = 0, b = 0;
    bool ok = true;
    for (int64_t r = 0; r < rows; ++r) {
        const double wi = static_cast<double>(w[r]);
        ok = ok && wi >= 0;
        a += wi;
        b += wi * wi;
    }
    *sumw = a;
    *sumw2 = b;
    return ok;
}

// One group of `lanes` adjacent dimensions, one vector lane each.
template <int Order, class T>
void moments_column_group(
    const T* x, const T* w, int64_t rows, int64_t ld, double sumw, double sumw2, moment_sums* out) {
    vdouble s[unroll] = {};
    const int64_t rv = rows - rows % unroll;
    if (w == nullptr) {
        for (int64_t r = 0; r < rv; r += unroll) {
#pragma GCC unroll 4
            for (int u = 0; u < unroll; ++u) {
                s[u] += load_wide(x + (r + u) * ld);
            }
        }
        for (int64_t r = rv; r < rows; ++r) {
            s[0] += load_wide(x + r * ld);
        }
    } else {
        for (int64_t r = 0; r < rows; r += unroll) {
            for (int u = 0; u < unroll && r + u < rows; ++u) {
                const double wr = static_cast<double>(w[r + u]);
                if (wr > 0) {
                    s[u] += load_wide(x + (r + u) * ld) * wr;
                }
            }
        }
    }
    const vdouble sum = (s[0] + s[1]) + (s[2] + s[3]);
    if (Order == 1) {
        for (int l = 0; l < lanes; ++l) {
            moment_sums m;
            m.w = sumw;
            m.w2 = sumw2;
            m.d1 = sumw == 0 ? 0 : sum[l];
            out[l] = m;
        }
        return;
    }
    const vdouble cv = sum / sumw;
    vdouble a1[unroll] = {}, a2[unroll] = {}, a3[unroll] = {}, a4[unroll] = {};
    // The inner loop has constant bounds, so that every accumulator stays in a register.
    for (int64_t r = 0; r < rows; r += unroll) {
        for (int u = 0; u < unroll && r + u < rows; ++u) {
            const double wr = w == nullptr ? 1.0 : static_cast<double>(w[r + u]);
            if (w != nullptr && !(wr > 0)) {
                continue;
            }
            const vdouble d = load_wide(x + (r + u) * ld) - cv;
            const vdouble wd = w == nullptr ? d : d * wr;
            const vdouble wd2 = wd * d;
            a1[u] += wd;
            a2[u] += wd2;
            if (Order >= 3) {
                const vdouble wd3 = wd2 * d;
                a3[u] += wd3;
                if (Order >= 4) {
                    a4[u] += wd3 * d;
                }
            }
        }
    }
    const vdouble s1 = (a1[0] + a1[1]) + (a1[2] + a1[3]);
    const vdouble s2 = (a2[0] + a2[1]) + (a2[2] + a2[3]);
    const vdouble s3 = (a3[0] + a3[1]) + (a3[2] + a3[3]);
    const vdouble s4 = (a4[0] + a4[1]) + (a4[2] + a4[3]);
    for (int l = 0; l < lanes; ++l) {
        moment_sums m;
        if (sumw != 0) {
            m.w = sumw;
            m.w2 = sumw2;
            m.c = cv[l];
            m.d1 = s1[l];
            m.d2 = s2[l];
            m.d3 = s3[l];
            m.d4 = s4[l];
        }
        out[l] = m;
    }
}

// A single dimension of a strided block: the contiguous kernels' steps, one value per row, with
// `unroll` independent sums so that each sum takes a quarter of the rows.
template <int Order, class T>
void moments_column_single(
    const T* x, const T* w, int64_t rows, int64_t ld, double sumw, double sumw2, moment_sums* out) {
    moment_sums m;
    if (sumw == 0) {
        *out = m;
        return;
    }
    double s[unroll] = {};
    for (int64_t r = 0; r < rows; r += unroll) {
        for (int u = 0; u < unroll && r + u < rows; ++u) {
            const double wr = w == nullptr ? 1.0 : static_cast<double>(w[r + u]);
            if (wr > 0) {
                s[u] += static_cast<double>(x[(r + u) * ld]) * wr;
            }
        }
    }
    m.w = sumw;
    m.w2 = sumw2;
    const double sum = (s[0] + s[1]) + (s[2] + s[3]);
    if (Order == 1) {
        m.d1 = sum;
        *out = m;
        return;
    }
    m.c = sum / sumw;
    double a1[unroll] = {}, a2[unroll] = {}, a3[unroll] = {}, a4[unroll] = {};
    for (int64_t r = 0; r < rows; r += unroll) {
        for (int u = 0; u < unroll && r + u < rows; ++u) {
            const double wr = w == nullptr ? 1.0 : static_cast<double>(w[r + u]);
            if (wr > 0) {
                const double d = static_cast<double>(x[(r + u) * ld]) - m.c;
                const double wd = wr * d;
                const double wd2 = wd * d;
                a1[u] += wd;
                a2[u] += wd2;
                a3[u] += wd2 * d;
                a4[u] += (wd2 * d) * d;
            }
        }
    }
    m.d1 = (a1[0] + a1[1]) + (a1[2] + a1[3]);
    m.d2 = (a2[0] + a2[1]) + (a2[2] + a2[3]);
    m.d3 = (a3[0] + a3[1]) + (a3[2] + a3[3]);
    m.d4 = (a4[0] + a4[1]) + (a4[2] + a4[3]);
    *out = m;
}

// Vector groups of a row one pass can carry: each needs a sum per power and its centre in a
// register, next to two temporaries, out of 16 registers (32 with 512-bit vectors).
constexpr int row_groups_per_pass(int order) {
    const int registers = QND_VECTOR_BYTES == 64 ? 32 : 16;
    int g = 4;
    while (g > 1 && g * (order + 1) + 2 > registers) {
        --g;
    }
    return g;
}

// Sums of powers of deviations around cv of G groups of adjacent dimensions over rows [base, end),
// added into a1..a4; w is null or one weight per row, rows of weight 0 are skipped. The groups are
// taken as many at a time as the registers hold; the first pass over the rows asks for the rest of
// each row, which the next passes then find in the first-level cache.
template <int Order, int G, class T>
void row_deviation_sums(const T* x,
                        const T* w,
                        int64_t base,
                        int64_t end,
                        int64_t ld,
                        const vdouble (&cv)[G],
                        vdouble (&a1)[G],
                        vdouble (&a2)[G],
                        vdouble (&a3)[G],
                        vdouble (&a4)[G]) {
    constexpr int most = row_groups_per_pass(Order);
    constexpr int P = most < G ? most : G;
#pragma GCC unroll 4
    for (int g0 = 0; g0 < G; g0 += P) {
        vdouble b1[P] = {}, b2[P] = {}, b3[P] = {}, b4[P] = {};
        for (int64_t r = base; r < end; ++r) {
            const double wr = w == nullptr ? 1.0 : static_cast<double>(w[r]);
            if (w != nullptr && !(wr > 0)) {
                continue;
            }
            const T* row = x + r * ld;
            if (P < G && g0 == 0) {
                __builtin_prefetch(row + P * lanes, 0, 3);
                __builtin_prefetch(row + G * lanes - 1, 0, 3);
            }
            if (P < G && g0 + P >= G) {
                const T* ahead = row + (end - base) * ld;
                __builtin_prefetch(ahead, 0, 3);
                __builtin_prefetch(ahead + G * lanes - 1, 0, 3);
            }
#pragma GCC unroll 4
            for (int p = 0; p < P; ++p) {
                if (g0 + p < G) {
                    const vdouble d = load_wide(row + (g0 + p) * lanes) - cv[g0 + p];
                    if (w == nullptr) {
                        const vdouble d2 = d * d;
                        b1[p] += d;
                        if (Order >= 2) {
                            b2[p] += d2;
                        }
                        if (Order >= 3) {
                            b3[p] += d2 * d;
                        }
                        if (Order >= 4) {
                            b4[p] += d2 * d2;
                        }
                    } else {
                        const vdouble wd = d * wr;
                        const vdouble wd2 = wd * d;
                        b1[p] += wd;
                        b2[p] += wd2;
                        if (Order >= 3) {
                            const vdouble wd3 = wd2 * d;
                            b3[p] += wd3;
                            if (Order >= 4) {
                                b4[p] += wd3 * d;
                            }
                        }
                    }
                }
            }
        }
        for (int p = 0; p < P && g0 + p < G; ++p) {
            a1[g0 + p] += b1[p];
            a2[g0 + p] += b2[p];
            a3[g0 + p] += b3[p];
            a4[g0 + p] += b4[p];
        }
    }
}

// One pass around given centres (offered by the walk over the blocks), unweighted: accepted, and
// written to out, only if every dimension's mean lies within an eighth of its standard deviation of
// its centre, where sums around the centre lose nothing to sums around the mean. Otherwise the
// caller makes the two passes. Order 1 accepts any centre: a sum of first powers loses nothing to
// it.
template <int Order, int G, class T>
bool moments_rows_around(
    const T* x, int64_t rows, int64_t ld, const double* centres, moment_sums* out) {
    constexpr int dims = G * lanes;
    for (int d = 0; d < dims; ++d) {
        if (!(centres[d] == centres[d])) {
            return false;
        }
    }
    // When the rows hold these dimensions only, the walk may start `skip` elements in, where the
    // vector loads are aligned (none straddles two cache lines): every run of `dims` elements from
    // there is still one observation of each dimension, turned by `skip`. Its last run would end
    // past the block, so the last row's turned part and the first row's head are added one by one.
    int64_t skip = 0;
    const auto address = reinterpret_cast<uintptr_t>(x);
    if (ld == dims && address % sizeof(T) == 0) {
        skip = (lanes - static_cast<int64_t>(address / sizeof(T) % lanes)) % lanes;
    }
    const int64_t runs = skip == 0 ? rows : rows - 1;
    vdouble cv[G];
    for (int g = 0; g < G; ++g) {
        for (int l = 0; l < lanes; ++l) {
            cv[g][l] = centres[(skip + g * lanes + l) % dims];
        }
    }
    vdouble a1[G] = {}, a2[G] = {}, a3[G] = {}, a4[G] = {};
    for (int64_t base = 0; base < runs; base += chain) {
        row_deviation_sums<Order, G, T>(x + skip, nullptr, base, chunk_end(base, chain, runs), ld,
                                        cv, a1, a2, a3, a4);
    }
    double s1[dims], s2[dims], s3[dims], s4[dims];
    for (int g = 0; g < G; ++g) {
        for (int l = 0; l < lanes; ++l) {
            const int d = static_cast<int>((skip + g * lanes + l) % dims);
            s1[d] = a1[g][l];
            s2[d] = a2[g][l];
            s3[d] = a3[g][l];
            s4[d] = a4[g][l];
        }
    }
    if (runs < rows) {
        for (int d = 0; d < dims; ++d) {
            const T* v = d < skip ? x + d : x + (rows - 1) * ld + d;
            const double e = static_cast<double>(*v) - centres[d];
            const double e2 = e * e;
            s1[d] += e;
            s2[d] += Order >= 2 ? e2 : 0;
            s3[d] += Order >= 3 ? e2 * e : 0;
            s4[d] += Order >= 4 ? e2 * e2 : 0;
        }
    }
    const double n = static_cast<double>(rows);
    for (int d = 0; d < dims; ++d) {
        if (Order > 1 && !centre_close(s1[d], s2[d], n)) {
            return false;
        }
    }
    for (int d = 0; d < dims; ++d) {
        moment_sums m;
        m.w = n;
        m.w2 = n;
        m.c = centres[d];
        m.d1 = s1[d];
        m.d2 = s2[d];
        m.d3 = s3[d];
        m.d4 = s4[d];
        out[d] = m;
    }
    return true;
}

// All dimensions of a row at once, when they fill G vectors exactly (G = 2..4): every row is read
// once per pass, with G independent sums per power, instead of once per group of lanes.
template <int Order, int G, class T>
void moments_rows(
    const T* x, const T* w, int64_t rows, int64_t ld, double sumw, double sumw2, moment_sums* out) {
    vdouble s[2][G] = {};
    for (int64_t base = 0; base < rows; base += 2 * chain) {
        const int64_t end = chunk_end(base, 2 * chain, rows);
        vdouble c[2][G] = {};
        // Rows in pairs, into two sets of sums, with constant indices so that they stay in
        // registers at every optimisation level.
        auto add_row = [&](int64_t r, int u) {
            const double wr = w == nullptr ? 1.0 : static_cast<double>(w[r]);
            if (w != nullptr && !(wr > 0)) {
                return;
            }
#pragma GCC unroll 4
            for (int g = 0; g < G; ++g) {
                const vdouble v = load_wide(x + r * ld + g * lanes);
                c[u][g] += w == nullptr ? v : v * wr;
            }
        };
        int64_t r = base;
        for (; r + 2 <= end; r += 2) {
            add_row(r, 0);
            add_row(r + 1, 1);
        }
        if (r < end) {
            add_row(r, 0);
        }
        for (int g = 0; g < G; ++g) {
            s[0][g] += c[0][g];
            s[1][g] += c[1][g];
        }
    }
    vdouble cv[G];
    for (int g = 0; g < G; ++g) {
        const vdouble sum = s[0][g] + s[1][g];
        if (Order == 1) {
            for (int l = 0; l < lanes; ++l) {
                moment_sums m;
                m.w = sumw;
                m.w2 = sumw2;
                m.d1 = sumw == 0 ? 0 : sum[l];
                out[g * lanes + l] = m;
            }
        }
        cv[g] = sum / sumw;
    }
    if (Order == 1) {
        return;
    }
    vdouble a1[G] = {}, a2[G] = {}, a3[G] = {}, a4[G] = {};
    for (int64_t base = 0; base < rows; base += chain) {
        row_deviation_sums<Order, G>(x, w, base, chunk_end(base, chain, rows), ld, cv, a1, a2, a3,
                                     a4);
    }
    for (int g = 0; g < G; ++g) {
        for (int l = 0; l < lanes; ++l) {
            moment_sums m;
            if (sumw != 0) {
                m.w = sumw;
                m.w2 = sumw2;
                m.c = cv[g][l];
                m.d1 = a1[g][l];
                m.d2 = a2[g][l];
                m.d3 = a3[g][l];
                m.d4 = a4[g][l];
            }
            out[g * lanes + l] = m;
        }
    }
}

// Fewer dimensions than lanes, dividing them, without weights: the block is read as one contiguous
// array whose lane l always holds dimension l % ld, and the lanes of a dimension add up at the end.
template <int Order, class T>
void moments_periodic(const T* x, int64_t rows, int64_t ld, moment_sums* out) {
    constexpr int step = unroll * lanes;
    const int64_t n = rows * ld;
    const int64_t nv = n - n % step;
    vdouble s[unroll] = {};
    for (int64_t i = 0; i < nv; i += step) {
#pragma GCC unroll 4
        for (int u = 0; u < unroll; ++u) {
            s[u] += load_wide(x + i + u * lanes);
        }
    }
    const vdouble sv = (s[0] + s[1]) + (s[2] + s[3]);
    double sum[lanes] = {};
    for (int l = 0; l < lanes; ++l) {
        sum[l % ld] += sv[l];
    }
    for (int64_t i = nv; i < n; ++i) {
        sum[i % ld] += static_cast<double>(x[i]);
    }
    const double count = static_cast<double>(rows);
    if (Order == 1) {
        for (int64_t d = 0; d < ld; ++d) {
            moment_sums m;
            m.w = count;
            m.w2 = count;
            m.d1 = sum[d];
            out[d] = m;
        }
        return;
    }
    double c[lanes];
    vdouble cv;
    for (int l = 0; l < lanes; ++l) {
        c[l] = sum[l % ld] / count;
        cv[l] = c[l];
    }
    vdouble a1[unroll] = {}, a2[unroll] = {}, a3[unroll] = {}, a4[unroll] = {};
    for (int64_t i = 0; i < nv; i += step) {
#pragma GCC unroll 4
        for (int u = 0; u < unroll; ++u) {
            const vdouble d = load_wide(x + i + u * lanes) - cv;
            const vdouble d2 = d * d;
            a1[u] += d;
            a2[u] += d2;
            if (Order >= 3) {
                a3[u] += d2 * d;
            }
            if (Order >= 4) {
                a4[u] += d2 * d2;
            }
        }
    }
    const vdouble v1 = (a1[0] + a1[1]) + (a1[2] + a1[3]);
    const vdouble v2 = (a2[0] + a2[1]) + (a2[2] + a2[3]);
    const vdouble v3 = (a3[0] + a3[1]) + (a3[2] + a3[3]);
    const vdouble v4 = (a4[0] + a4[1]) + (a4[2] + a4[3]);
    double t1[lanes] = {}, t2[lanes] = {}, t3[lanes] = {}, t4[lanes] = {};
    for (int l = 0; l < lanes; ++l) {
        t1[l % ld] += v1[l];
        t2[l % ld] += v2[l];
        t3[l % ld] += v3[l];
        t4[l % ld] += v4[l];
    }
    for (int64_t i = nv; i < n; ++i) {
        const int64_t k = i % ld;
        const double d = static_cast<double>(x[i]) - c[k];
        const double d2 = d * d;
        t1[k] += d;
        t2[k] += d2;
        t3[k] += d2 * d;
        t4[k] += d2 * d2;
    }
    for (int64_t d = 0; d < ld; ++d) {
        moment_sums m;
        m.w = count;
        m.w2 = count;
        m.c = c[d];
        m.d1 = t1[d];
        m.d2 = t2[d];
        m.d3 = t3[d];
        m.d4 = t4[d];
        out[d] = m;
    }
}

// G groups of a row at once: one pass around the offered centres if they are close enough,
// otherwise two.
template <int Order, int G, class T>
void moments_row_groups(const T* x,
                        const T* w,
                        int64_t rows,
                        int64_t ld,
                        double sumw,
                        double sumw2,
                        const double* centres,
                        moment_sums* out) {
    if (Order == 1 && w == nullptr) {
        // Plain sums are the sums of deviations around 0, with the same aligned walk.
        static const double zeros[G * lanes] = {};
        moments_rows_around<1, G>(x, rows, ld, zeros, out);
        return;
    }
    if (Order == 1 || w != nullptr || centres == nullptr ||
        !moments_rows_around<Order, G>(x, rows, ld, centres, out)) {
        moments_rows<Order, G>(x, w, rows, ld, sumw, sumw2, out);
    }
}

template <int Order, class T>
bool moments_strided_order(const T* x,
                           const T* w,
                           int64_t rows,
                           int64_t ld,
                           int64_t count,
                           const double* centres,
                           moment_sums* out) {
    double sumw = static_cast<double>(rows), sumw2 = sumw;
    if (w != nullptr && !weight_sums(w, rows, &sumw, &sumw2)) {
        return false;
    }
    if (w == nullptr && count == ld && count < lanes && lanes % count == 0) {
        moments_periodic<Order>(x, rows, ld, out);
        return true;
    }
    switch (count % lanes == 0 ? count / lanes : 0) {
        case 2:
            moments_row_groups<Order, 2>(x, w, rows, ld, sumw, sumw2, centres, out);
            return true;
        case 3:
            moments_row_groups<Order, 3>(x, w, rows, ld, sumw, sumw2, centres, out);
            return true;
        case 4:
            moments_row_groups<Order, 4>(x, w, rows, ld, sumw, sumw2, centres, out);
            return true;
        default:
            break;
    }
    int64_t d = 0;
    for (; d + lanes <= count; d += lanes) {
        moments_column_group<Order>(x + d, w, rows, ld, sumw, sumw2, out + d);
    }
    for (; d < count; ++d) {
        moments_column_single<Order>(x + d, w, rows, ld, sumw, sumw2, out + d);
    }
    return true;
}

template <class T>
bool moments_strided(const T* x,
                     const T* w,
                     int64_t rows,
                     int64_t ld,
                     int64_t count,
                     int order,
                     const double* centres,
                     moment_sums* out) {
    switch (order) {
        case 1:
            return moments_strided_order<1>(x, w, rows, ld, count, centres, out);
        case 2:
            return moments_strided_order<2>(x, w, rows, ld, count, centres, out);
        case 3:
            return moments_strided_order<3>(x, w, rows, ld, count, centres, out);
        default:
            return moments_strided_order<4>(x, w, rows, ld, count, centres, out);
    }
}

// ---- extremes --------------------------------------------------------------------------------

template <class T>
inline typename native<T>::type load_native(const T* p) {
    typename native<T>::type v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <class T>
bool extremes(const T* x, const T* w, int64_t n, extreme_sums* out) {
    using V = typename native<T>::type;
    using M = typename native<T>::mask;
    constexpr int N = native<T>::size;
    const V vinf = V{} + static_cast<T>(inf);
    const V zero = {};
    V mn[unroll], mx[unroll];
    for (int u = 0; u < unroll; ++u) {
        mn[u] = vinf;
        mx[u] = -vinf;
    }
    M nan = {}, bad = {}, kept = {};
    int64_t i = 0;
    if (w == nullptr) {
        constexpr int step = unroll * N;
        for (; i + step <= n; i += step) {
#pragma GCC unroll 4
            for (int u = 0; u < unroll; ++u) {
                const V v = load_native(x + i + u * N);
                mn[u] = v < mn[u] ? v : mn[u];
                mx[u] = v > mx[u] ? v : mx[u];
                nan |= v != v;
            }
        }
        kept = (n > 0) ? ~M{} : M{};
    } else {
        for (; i + N <= n; i += N) {
            const V v = load_native(x + i);
            const V wv = load_native(w + i);
            const M pos = wv > zero;
            bad |= ~(wv >= zero);
            kept |= pos;
            mn[0] = (pos & (v < mn[0])) ? v : mn[0];
            mx[0] = (pos & (v > mx[0])) ? v : mx[0];
            nan |= pos & (v != v);
        }
    }
    extreme_sums r;
    for (int u = 0; u < unroll; ++u) {
        for (int l = 0; l < N; ++l) {
            r.min = mn[u][l] < r.min ? mn[u][l] : r.min;
            r.max = mx[u][l] > r.max ? mx[u][l] : r.max;
        }
    }
    r.nan = any_of<M, N>(nan);
    r.kept = any_of<M, N>(kept);
    bool ok = !any_of<M, N>(bad);
    for (; i < n; ++i) {
        const double v = static_cast<double>(x[i]);
        const double wi = w == nullptr ? 1.0 : static_cast<double>(w[i]);
        ok = ok && wi >= 0;
        if (wi > 0) {
            r.kept = 1;
            r.min = v < r.min ? v : r.min;
            r.max = v > r.max ? v : r.max;
            r.nan |= v != v;
        }
    }
    *out = r;
    return ok;
}

// Extremes of all dimensions of a row at once, when they fill G native vectors exactly.
template <int G, class T>
void extremes_rows(
    const T* x, const T* w, int64_t rows, int64_t ld, bool any_kept, extreme_sums* out) {
    using V = typename native<T>::type;
    using M = typename native<T>::mask;
    constexpr int N = native<T>::size;
    const V vinf = V{} + static_cast<T>(inf);
    V mn[G], mx[G];
    M nan[G] = {};
    for (int g = 0; g < G; ++g) {
        mn[g] = vinf;
        mx[g] = -vinf;
    }
    for (int64_t r = 0; r < rows; ++r) {
        if (w != nullptr && !(w[r] > 0)) {
            continue;
        }
#pragma GCC unroll 4
        for (int g = 0; g < G; ++g) {
            const V v = load_native(x + r * ld + g * N);
            mn[g] = v < mn[g] ? v : mn[g];
            mx[g] = v > mx[g] ? v : mx[g];
            nan[g] |= v != v;
        }
    }
    for (int g = 0; g < G; ++g) {
        for (int l = 0; l < N; ++l) {
            extreme_sums e;
            e.min = mn[g][l];
            e.max = mx[g][l];
            e.nan = nan[g][l] != 0;
            e.kept = any_kept;
            out[g * N + l] = e;
        }
    }
}

template <class T>
bool extremes_strided(
    const T* x, const T* w, int64_t rows, int64_t ld, int64_t count, extreme_sums* out) {
    using V = typename native<T>::type;
    using M = typename native<T>::mask;
    constexpr int N = native<T>::size;
    const V vinf = V{} + static_cast<T>(inf);
    bool ok = true;
    bool any_kept = w == nullptr && rows > 0;
    if (w != nullptr) {
        for (int64_t r = 0; r < rows; ++r) {
            const T wr = w[r];
            ok = ok && wr >= 0;
            any_kept = any_kept || wr > 0;
        }
        if (!ok) {
            return false;
        }
    }
    switch (count % N == 0 ? count / N : 0) {
        case 2:
            extremes_rows<2>(x, w, rows, ld, any_kept, out);
            return true;
        case 3:
            extremes_rows<3>(x, w, rows, ld, any_kept, out);
            return true;
        case 4:
            extremes_rows<4>(x, w, rows, ld, any_kept, out);
            return true;
        default:
            break;
    }
    int64_t d = 0;
    for (; d + N <= count; d += N) {
        V mn = vinf, mx = -vinf;
        M nan = {};
        for (int64_t r = 0; r < rows; ++r) {
            if (w != nullptr && !(w[r] > 0)) {
                continue;
            }
            const V v = load_native(x + r * ld + d);
            mn = v < mn ? v : mn;
            mx = v > mx ? v : mx;
            nan |= v != v;
        }
        for (int l = 0; l < N; ++l) {
            extreme_sums e;
            e.min = mn[l];
            e.max = mx[l];
            e.nan = nan[l] != 0;
            e.kept = any_kept;
            out[d + l] = e;
        }
    }
    for (; d < count; ++d) {
        extreme_sums e;
        e.kept = any_kept;
        for (int64_t r = 0; r < rows; ++r) {
            if (w != nullptr && !(w[r] > 0)) {
                continue;
            }
            const double v = static_cast<double>(x[r * ld + d]);
            e.min = v < e.min ? v : e.min;
            e.max = v > e.max ? v : e.max;
            e.nan |= v != v;
        }
        out[d] = e;
    }
    return true;
}

#include "co_moment_kernels.hpp"

}  // namespace
}  // namespace QND_ISA

extern const kernel_set QND_SET = {
    QND_SET_NAME,
    {&QND_ISA::moments<float>, &QND_ISA::moments_strided<float>, &QND_ISA::extremes<float>,
     &QND_ISA::extremes_strided<float>, &QND_ISA::co_moments<float>},
    {&QND_ISA::moments<double>, &QND_ISA::moments_strided<double>, &QND_ISA::extremes<double>,
     &QND_ISA::extremes_strided<double>, &QND_ISA::co_moments<double>},
};

}  // namespace qnd_core
