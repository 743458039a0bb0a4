// The GPU finisher of raw_sum: the weighted power sums of each dimension, as gathered.
#pragma once

#include <cstdint>

#include "gpu/moment_formulas.hpp"
#include "gpu/sum_tmp_helper.hpp"

namespace tavrel::qnd::stats::detail::gpu {

// Orders 2 to 4 are written when their flag is set; order 1 always, with no test.
template <typename T, bool Usm>
struct raw_sum_func_fast {
    static constexpr bool user_mean = false;

    std::uint8_t has_order2;
    std::uint8_t has_order3;
    std::uint8_t has_order4;
    output_array<T, Usm> out1;
    output_array<T, Usm> out2;
    output_array<T, Usm> out3;
    output_array<T, Usm> out4;

    void require(sycl::handler& cgh) const { require_outputs(cgh, out1, out2, out3, out4); }

    sum_flags flags() const { return raw_flags(has_order2, has_order3, has_order4); }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        out1[d] = tmp.s1(d);
        if (has_order2)
            out2[d] = tmp.s2(d);
        if (has_order3)
            out3[d] = tmp.s3(d);
        if (has_order4)
            out4[d] = tmp.s4(d);
    }
};

}  // namespace tavrel::qnd::stats::detail::gpu
