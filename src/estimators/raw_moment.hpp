// The GPU finisher of raw_moment: each weighted power sum divided by the sum of weights.
#pragma once

#include <cstdint>

#include "estimators/raw_sum.hpp"
#include "gpu/moment_formulas.hpp"
#include "gpu/sum_tmp_helper.hpp"

namespace tavrel::qnd::stats::detail::gpu {

template <typename T, typename Acc>
struct raw_moment_func_fast_base {
    std::uint8_t has_order2;
    std::uint8_t has_order3;
    std::uint8_t has_order4;

    // out1 (the mean) is written with no test; the others when their flag is set.
    template <typename Tmp>
    void operator()(const Tmp& tmp,
                    std::uint64_t d,
                    const Acc& out1,
                    const Acc& out2,
                    const Acc& out3,
                    const Acc& out4) const {
        const T w = tmp.w();
        out1[d] = tmp.s1(d) / w;
        if (has_order2)
            out2[d] = tmp.s2(d) / w;
        if (has_order3)
            out3[d] = tmp.s3(d) / w;
        if (has_order4)
            out4[d] = tmp.s4(d) / w;
    }
};

template <typename T, bool Usm>
struct raw_moment_func_fast : raw_moment_func_fast_base<T, output_array<T, Usm>> {
    using base = raw_moment_func_fast_base<T, output_array<T, Usm>>;
    static constexpr bool user_mean = false;

    output_array<T, Usm> out1;
    output_array<T, Usm> out2;
    output_array<T, Usm> out3;
    output_array<T, Usm> out4;

    void require(sycl::handler& cgh) const { require_outputs(cgh, out1, out2, out3, out4); }

    sum_flags flags() const {
        return raw_flags(this->has_order2, this->has_order3, this->has_order4);
    }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        base::operator()(tmp, d, out1, out2, out3, out4);
    }
};

}  // namespace tavrel::qnd::stats::detail::gpu
