// Builders of the moment engine's buffer-form functors: flags from the sizes of the caller's
// output buffers, and accessors that fall back on one-element fillers where an order is absent.
#pragma once

#include <sycl/sycl.hpp>

#include "gpu/moment_formulas.hpp"

namespace tavrel::qnd::stats::detail::gpu {

// The accessor of an optional output: on the caller's buffer when it has elements, else on the
// filler, which the functor never writes since the order's flag is clear.
template <typename T>
output_array<T, false> output_or_filler(sycl::buffer<T, 1>& out, sycl::buffer<T, 1>& filler) {
    return out.size() != 0 ? output_array<T, false>(out) : output_array<T, false>(filler);
}

// A central finisher (sums or moments, from raw sums or around a caller's mean). Order 2 is
// always computed and has no filler: its accessor stands on out2 whatever its size.
template <typename F, typename T>
F make_central_func(sycl::buffer<T, 1>& out2,
                    sycl::buffer<T, 1>& out3,
                    sycl::buffer<T, 1>& out4,
                    sycl::buffer<T, 1>& filler3,
                    sycl::buffer<T, 1>& filler4) {
    F f{};
    f.has_order3 = out3.size() != 0;
    f.has_order4 = out4.size() != 0;
    f.out2 = output_array<T, false>(out2);
    f.out3 = output_or_filler(out3, filler3);
    f.out4 = output_or_filler(out4, filler4);
    return f;
}

// A raw finisher (raw_sum, raw_moment). Order 1 is written with no test and stands on out1
// whatever its size.
template <typename F, typename T>
F make_raw_func(sycl::buffer<T, 1>& out1,
                sycl::buffer<T, 1>& out2,
                sycl::buffer<T, 1>& out3,
                sycl::buffer<T, 1>& out4,
                sycl::buffer<T, 1>& filler2,
                sycl::buffer<T, 1>& filler3,
                sycl::buffer<T, 1>& filler4) {
    F f{};
    f.has_order2 = out2.size() != 0;
    f.has_order3 = out3.size() != 0;
    f.has_order4 = out4.size() != 0;
    f.out1 = output_array<T, false>(out1);
    f.out2 = output_or_filler(out2, filler2);
    f.out3 = output_or_filler(out3, filler3);
    f.out4 = output_or_filler(out4, filler4);
    return f;
}

// A single-output finisher: no flags, no fillers.
template <typename F, typename T>
F make_single_func(sycl::buffer<T, 1>& out) {
    F f{};
    f.out = output_array<T, false>(out);
    return f;
}

}  // namespace tavrel::qnd::stats::detail::gpu
