// The GPU finishers of variation: standard deviation over mean, from raw sums, around a caller's
// mean, and (for the offload path) storing the mean and second raw moment as well.
#pragma once

#include <cstdint>

#include "gpu/moment_formulas.hpp"
#include "gpu/sum_tmp_helper.hpp"

namespace tavrel::qnd::stats::detail::gpu {

template <typename T, bool Usm>
struct variation_func_fast {
    static constexpr bool user_mean = false;

    output_array<T, Usm> out;

    void require(sycl::handler& cgh) const { require_outputs(cgh, out); }

    sum_flags flags() const { return {true, false, false, 2}; }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        const central_sums<T> c = expand_central(tmp, d, false, false);
        out[d] = sycl::sqrt(variance(c.c2, tmp.w(), tmp.w2())) / c.m;
    }
};

// Divides by the caller's mean, as read through the sums helper.
template <typename T, bool Usm>
struct variation_func_user_mean {
    static constexpr bool user_mean = true;

    output_array<T, Usm> out;

    void require(sycl::handler& cgh) const { require_outputs(cgh, out); }

    sum_flags flags() const { return user_mean_flags(false, false); }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        out[d] = sycl::sqrt(variance(tmp.q2(d), tmp.w(), tmp.w2())) / tmp.mean[d];
    }
};

namespace ex {

template <typename T, bool Usm>
struct variation_func_fast;

template <typename T>
struct variation_func_fast<T, true> {
    static constexpr bool user_mean = false;

    T* mean;
    T* raw2;
    T* out;

    sum_flags flags() const { return {true, false, false, 2}; }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        const T w = tmp.w();
        const central_sums<T> c = expand_central(tmp, d, false, false);
        mean[d] = c.m;
        raw2[d] = tmp.s2(d) / w;
        out[d] = sycl::sqrt(variance(c.c2, w, tmp.w2())) / c.m;
    }
};

}  // namespace ex
}  // namespace tavrel::qnd::stats::detail::gpu
