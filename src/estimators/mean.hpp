// The GPU finisher of mean: the weighted sum of each dimension divided by the sum of weights.
#pragma once

#include <cstdint>

#include "gpu/moment_formulas.hpp"
#include "gpu/sum_tmp_helper.hpp"

namespace tavrel::qnd::stats::detail::gpu {

template <typename T, bool Usm>
struct mean_func {
    static constexpr bool user_mean = false;

    output_array<T, Usm> mean;

    void require(sycl::handler& cgh) const { require_outputs(cgh, mean); }

    // Only the first-order sum is gathered.
    sum_flags flags() const { return {false, false, false, 1}; }

    template <typename Tmp>
    void operator()(const Tmp& tmp, std::uint64_t d) const {
        mean[d] = tmp.s1(d) / tmp.w();
    }
};

}  // namespace tavrel::qnd::stats::detail::gpu
