// The GPU finishers of skewness: third central moment over the variance to the power 3/2, from
// raw sums, around a caller's mean, and (for the offload path) storing the mean and raw moments.
#pragma once

#include <cstdint>

#include "gpu/moment_formulas.hpp"
#include "gpu/sum_tmp_helper.hpp"

namespace tavrel::qnd::stats::detail::gpu {

template <typename T, typename Acc>
struct skewness_func_fast_base {
    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d, const Acc& out) const {
        const T w = tmp.w();
        const central_sums<T> c = expand_central(tmp, d, true, false);
        out[d] = skewness_of(c.c3 / w, variance(c.c2, w, tmp.w2()));
    }
};

template <typename T, bool Usm>
struct skewness_func_fast : skewness_func_fast_base<T, output_array<T, Usm>> {
    static constexpr bool user_mean = false;

    output_array<T, Usm> out;

    void require(sycl::handler& cgh) const { require_outputs(cgh, out); }

    sum_flags flags() const { return {true, true, false, 3}; }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        skewness_func_fast_base<T, output_array<T, Usm>>::operator()(tmp, d, out);
    }
};

template <typename T, bool Usm>
struct skewness_func_user_mean {
    static constexpr bool user_mean = true;

    output_array<T, Usm> out;

    void require(sycl::handler& cgh) const { require_outputs(cgh, out); }

    sum_flags flags() const { return user_mean_flags(true, false); }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        const T w = tmp.w();
        out[d] = skewness_of(tmp.q3(d) / w, variance(tmp.q2(d), w, tmp.w2()));
    }
};

namespace ex {

template <typename T, typename Acc>
struct skewness_func_fast_base {
    template <typename Tmp>
    void operator()(const Tmp& tmp,
                    std::uint64_t d,
                    const Acc& mean,
                    const Acc& raw2,
                    const Acc& raw3,
                    const Acc& out) const {
        const T w = tmp.w();
        const central_sums<T> c = expand_central(tmp, d, true, false);
        mean[d] = c.m;
        raw2[d] = tmp.s2(d) / w;
        raw3[d] = tmp.s3(d) / w;
        out[d] = skewness_of(c.c3 / w, variance(c.c2, w, tmp.w2()));
    }
};

template <typename T, bool Usm>
struct skewness_func_fast;

template <typename T>
struct skewness_func_fast<T, true> : skewness_func_fast_base<T, T*> {
    static constexpr bool user_mean = false;

    T* mean;
    T* raw2;
    T* raw3;
    T* out;

    sum_flags flags() const { return {true, true, false, 3}; }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        skewness_func_fast_base<T, T*>::operator()(tmp, d, mean, raw2, raw3, out);
    }
};

}  // namespace ex
}  // namespace tavrel::qnd::stats::detail::gpu
