// The generic finishers behind central_sum and central_moment (sums, or moments when Moments
// is true): from raw sums, from raw sums storing the mean and raw moments too, and from
// deviations around a caller's mean.
#pragma once

#include <cstdint>

#include "gpu/moment_formulas.hpp"
#include "gpu/sum_tmp_helper.hpp"

namespace tavrel::qnd::stats::detail::gpu {

// From raw sums: order 2 is written with no test, orders 3 and 4 when asked for.
template <bool Moments, typename T, typename Acc>
struct central_fast_finisher {
    std::uint8_t has_order3;
    std::uint8_t has_order4;

    template <typename Tmp>
    void operator()(
        const Tmp& tmp, std::uint64_t d, const Acc& out2, const Acc& out3, const Acc& out4) const {
        const central_sums<T> c = expand_central(tmp, d, has_order3, has_order4);
        const central_orders<T> r = finish_orders<Moments>(c.c2, c.c3, c.c4, tmp.w(), tmp.w2());
        out2[d] = r.r2;
        if (has_order3)
            out3[d] = r.r3;
        if (has_order4)
            out4[d] = r.r4;
    }
};

// As central_fast_finisher, storing besides the mean and the raw moments that the results rest
// on: order 4 alone stores raw3 but not out3.
template <bool Moments, typename T, typename Acc>
struct central_ex_finisher {
    std::uint8_t has_order3;
    std::uint8_t has_order4;

    template <typename Tmp>
    void operator()(const Tmp& tmp,
                    std::uint64_t d,
                    const Acc& mean,
                    const Acc& raw2,
                    const Acc& raw3,
                    const Acc& raw4,
                    const Acc& out2,
                    const Acc& out3,
                    const Acc& out4) const {
        const T w = tmp.w();
        const central_sums<T> c = expand_central(tmp, d, has_order3, has_order4);
        const central_orders<T> r = finish_orders<Moments>(c.c2, c.c3, c.c4, w, tmp.w2());
        mean[d] = c.m;
        raw2[d] = tmp.s2(d) / w;
        out2[d] = r.r2;
        if (has_order3) {
            raw3[d] = tmp.s3(d) / w;
            out3[d] = r.r3;
        }
        if (has_order4) {
            raw3[d] = tmp.s3(d) / w;
            raw4[d] = tmp.s4(d) / w;
            out4[d] = r.r4;
        }
    }
};

// The outputs of a central finisher from raw sums, and the call the kernel makes.
template <typename Base, typename T, bool Usm>
struct central_fast_outputs : Base {
    static constexpr bool user_mean = false;

    output_array<T, Usm> out2;
    output_array<T, Usm> out3;
    output_array<T, Usm> out4;

    void require(sycl::handler& cgh) const { require_outputs(cgh, out2, out3, out4); }

    sum_flags flags() const { return central_flags(this->has_order3, this->has_order4); }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        Base::operator()(tmp, d, out2, out3, out4);
    }
};

// The same for the finishers that store the mean and the raw moments too.
template <typename Base, typename T>
struct central_ex_outputs : Base {
    static constexpr bool user_mean = false;

    T* mean;
    T* raw2;
    T* raw3;
    T* raw4;
    T* out2;
    T* out3;
    T* out4;

    sum_flags flags() const { return central_flags(this->has_order3, this->has_order4); }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        Base::operator()(tmp, d, mean, raw2, raw3, raw4, out2, out3, out4);
    }
};

// Around a caller's mean: the gathered sums of deviations Q2..Q4 are the central sums; the
// moments divide them as the raw-sum form does.
template <bool Moments, typename T, bool Usm>
struct central_user_mean_finisher {
    static constexpr bool user_mean = true;

    std::uint8_t has_order3;
    std::uint8_t has_order4;
    output_array<T, Usm> out2;
    output_array<T, Usm> out3;
    output_array<T, Usm> out4;

    void require(sycl::handler& cgh) const { require_outputs(cgh, out2, out3, out4); }

    sum_flags flags() const { return user_mean_flags(has_order3, has_order4); }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        const central_orders<T> r =
            finish_orders<Moments>(tmp.q2(d), tmp.q3(d), tmp.q4(d), tmp.w(), tmp.w2());
        out2[d] = r.r2;
        if (has_order3)
            out3[d] = r.r3;
        if (has_order4)
            out4[d] = r.r4;
    }
};

// Builds a pointer-form central finisher F from the outputs given: the flags of orders 3 and 4
// follow the non-null outputs; order 2 has no flag.
template <typename F, typename T>
F make_central_func(T* out2, T* out3, T* out4) {
    F f{};
    f.has_order3 = out3 != nullptr;
    f.has_order4 = out4 != nullptr;
    f.out2 = out2;
    f.out3 = out3;
    f.out4 = out4;
    return f;
}

}  // namespace tavrel::qnd::stats::detail::gpu
