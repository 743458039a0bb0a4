// The finishing arithmetic shared by the moment functors: central sums expanded from raw sums,
// their normalisation, and how a functor holds its outputs.
#pragma once

#include <cstdint>
#include <type_traits>

#include <sycl/sycl.hpp>

namespace tavrel::qnd::stats::detail::gpu {

// An output array of a functor: a pointer in the pointer form, an accessor in the buffer form.
template <typename T, bool Usm>
using output_array =
    std::conditional_t<Usm,
                       T*,
                       sycl::accessor<T, 1, sycl::access_mode::read_write, sycl::target::device>>;

// Registers a buffer-form functor's output accessors on a command group, in the order given.
// Every step of a call registers them, so later work on an output waits for the whole call.
template <typename... Outputs>
inline void require_outputs(sycl::handler& cgh, const Outputs&... outputs) {
    (cgh.require(outputs), ...);
}

// a * b + c: the one place where the compiler may fuse a product into a sum. Every other
// product and sum below stands on its own, in the grouping written.
template <typename T>
inline T mad(T a, T b, T c) {
    return a * b + c;
}

// Central sums of one dimension, expanded from its raw sums S1..S4 and weight sum W. Orders 3
// and 4 are formed only when asked; what is not asked stays 0.
template <typename T>
struct central_sums {
    T m;   // the mean S1 / W
    T c2;  // S2 - 2mS1 + Wm^2
    T c3;  // S3 - 3mS2 + 3m^2S1 - Wm^3
    T c4;  // S4 - 4mS3 + 6m^2S2 - 4m^3S1 + Wm^4
};

// The terms are kept as written (W stays in the last term, S1 is not replaced by W * m), so
// that the rounding is that of the expansion itself.
template <typename T>
inline central_sums<T> expand_central(T s1, T s2, T s3, T s4, T w, bool order3, bool order4) {
    central_sums<T> r{};
    r.m = s1 / w;
    const T m = r.m;
    const T u = w * m;
    r.c2 = mad(u, m, mad(m * T(-2), s1, s2));
    if (order3) {
        const T b = m * T(3);
        T t = mad(-b, s2, s3);
        t = mad(b * m, s1, t);
        r.c3 = mad(u * (-m), m, t);
    }
    if (order4) {
        const T c = m * T(4);
        T t = mad(-c, s3, s4);
        t = mad((s2 * T(6)) * m, m, t);
        t = mad((c * m) * (-m), s1, t);
        r.c4 = mad(((u * m) * m), m, t);
    }
    return r;
}

// Expands the finished raw sums of dimension d of a raw-sum helper.
template <typename Tmp>
inline auto expand_central(const Tmp& tmp, std::uint64_t d, bool order3, bool order4) {
    return expand_central(tmp.s1(d), tmp.s2(d), tmp.s3(d), tmp.s4(d), tmp.w(), order3, order4);
}

// Variance from a second-order central sum: the unbiased estimate for reliability weights,
// C2 / (W - W2 / W), in the form C2 * (W / (W * W - W2)); unweighted, the division by n - 1.
template <typename T>
inline T variance(T c2, T w, T w2) {
    return c2 * (w / mad(w, w, -w2));
}

// Shape estimates from a variance V (corrected denominator) and third or fourth moments over W.
// The standard deviation cubed is taken as sqrt(V^3); kurtosis is the excess kurtosis.
template <typename T>
inline T skewness_of(T m3, T v) {
    return m3 / sycl::sqrt((v * v) * v);
}
template <typename T>
inline T kurtosis_of(T m4, T v) {
    return (m4 / (v * v)) + T(-3);
}

// The orders 2 to 4 of one dimension as central sums, or, with Moments, as central moments:
// order 2 over the corrected denominator, orders 3 and 4 over W.
template <typename T>
struct central_orders {
    T r2;
    T r3;
    T r4;
};

template <bool Moments, typename T>
inline central_orders<T> finish_orders(T c2, T c3, T c4, T w, T w2) {
    if constexpr (Moments) {
        return {variance(c2, w, w2), c3 / w, c4 / w};
    } else {
        return {c2, c3, c4};
    }
}

}  // namespace tavrel::qnd::stats::detail::gpu
