// The GPU finishers of kurtosis: the excess kurtosis, fourth central moment over the squared
// variance minus 3, from raw sums, around a caller's mean, and (for the offload path) storing
// the mean and raw moments.
#pragma once

#include <cstdint>

#include "gpu/moment_formulas.hpp"
#include "gpu/sum_tmp_helper.hpp"

namespace tavrel::qnd::stats::detail::gpu {

template <typename T, typename Acc>
struct kurtosis_func_fast_base {
    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d, const Acc& out) const {
        const T w = tmp.w();
        const central_sums<T> c = expand_central(tmp, d, false, true);
        out[d] = kurtosis_of(c.c4 / w, variance(c.c2, w, tmp.w2()));
    }
};

template <typename T, bool Usm>
struct kurtosis_func_fast : kurtosis_func_fast_base<T, output_array<T, Usm>> {
    static constexpr bool user_mean = false;

    output_array<T, Usm> out;

    void require(sycl::handler& cgh) const { require_outputs(cgh, out); }

    sum_flags flags() const { return {true, true, true, 4}; }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        kurtosis_func_fast_base<T, output_array<T, Usm>>::operator()(tmp, d, out);
    }
};

// Third powers play no part: the fourth power stands in plane 1, yet P is 3.
template <typename T, bool Usm>
struct kurtosis_func_user_mean {
    static constexpr bool user_mean = true;

    output_array<T, Usm> out;

    void require(sycl::handler& cgh) const { require_outputs(cgh, out); }

    sum_flags flags() const { return user_mean_flags(false, true); }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        const T w = tmp.w();
        out[d] = kurtosis_of(tmp.q4(d) / w, variance(tmp.q2(d), w, tmp.w2()));
    }
};

namespace ex {

template <typename T, typename Acc>
struct kurtosis_func_fast_base {
    template <typename Tmp>
    void operator()(const Tmp& tmp,
                    std::uint64_t d,
                    const Acc& mean,
                    const Acc& raw2,
                    const Acc& raw3,
                    const Acc& raw4,
                    const Acc& out) const {
        const T w = tmp.w();
        const central_sums<T> c = expand_central(tmp, d, false, true);
        mean[d] = c.m;
        raw2[d] = tmp.s2(d) / w;
        raw3[d] = tmp.s3(d) / w;
        raw4[d] = tmp.s4(d) / w;
        out[d] = kurtosis_of(c.c4 / w, variance(c.c2, w, tmp.w2()));
    }
};

template <typename T, bool Usm>
struct kurtosis_func_fast;

template <typename T>
struct kurtosis_func_fast<T, true> : kurtosis_func_fast_base<T, T*> {
    static constexpr bool user_mean = false;

    T* mean;
    T* raw2;
    T* raw3;
    T* raw4;
    T* out;

    sum_flags flags() const { return {true, true, true, 4}; }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        kurtosis_func_fast_base<T, T*>::operator()(tmp, d, mean, raw2, raw3, raw4, out);
    }
};

}  // namespace ex
}  // namespace tavrel::qnd::stats::detail::gpu
