// The nine adaptors of the offload path: each checks what the task interface promises about its
// arrays and method, picks its functor and runs the pointer-form planner on the entry point's
// queue, answering refusals with a status instead of an exception.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include <sycl/sycl.hpp>

#include "cpu/estimate_mask.hpp"
#include "estimators/central_moment.hpp"
#include "estimators/central_sum.hpp"
#include "estimators/kurtosis.hpp"
#include "estimators/max.hpp"
#include "estimators/min.hpp"
#include "estimators/raw_moment.hpp"
#include "estimators/raw_sum.hpp"
#include "estimators/skewness.hpp"
#include "estimators/variation.hpp"
#include "gpu/minmax_gpu_impl.hpp"
#include "gpu/moments_gpu_impl.hpp"
#include "offload/offload_result.hpp"
#include "tavrel/qnd/stats.hpp"

// Every adaptor is a template over T (float, double), the layout L chosen by the entry point
// from the task's storage format, and Idx64 (false when `indices` holds 32-bit entries, as in
// the lp64 entry points; this also makes `method` a 32-bit integer). Exceptions of the runtime
// pass through to the entry point. Each adaptor starts from an empty list of dependencies.
namespace tavrel::qnd::stats::detail::gpu {

namespace offload_detail {

inline offload_result refused(std::int32_t status) {
    return {sycl::event(), status};
}

inline offload_result submitted(sycl::event event) {
    return {std::move(event), offload_status::ok};
}

// The two extremes: method 1 only, tested before the array.
template <typename Func, bool Idx64, typename T, layout L, typename Method>
offload_result run_extreme(
    sycl::queue& queue, T* out, std::int32_t out_code, const dataset<L, T*>& data, Method method) {
    if (method != offload_method_fast)
        return refused(offload_status::method_refused);
    if (out == nullptr)
        return refused(out_code);
    return submitted(
        submit_minmax_usm<Idx64>(queue, data, Func{{out}}, std::vector<sycl::event>()));
}

// The words that tell raw moments and raw sums apart in their common ladder.
struct raw_words {
    std::uint64_t bits[4];  // orders 1 to 4 (the mean is the raw moment of order 1)
    std::int32_t codes[4];  // missing output of orders 1 to 4
};

inline constexpr raw_words raw_moment_words{
    {cpu::est_mean, cpu::est_raw_moment_2, cpu::est_raw_moment_3, cpu::est_raw_moment_4},
    {offload_status::mean_missing, offload_status::raw_moment_2_missing,
     offload_status::raw_moment_3_missing, offload_status::raw_moment_4_missing}};

inline constexpr raw_words raw_sum_words{
    {cpu::est_raw_sum_1, cpu::est_raw_sum_2, cpu::est_raw_sum_3, cpu::est_raw_sum_4},
    {offload_status::raw_sum_1_missing, offload_status::raw_sum_2_missing,
     offload_status::raw_sum_3_missing, offload_status::raw_sum_4_missing}};

// The two raw groups: method 1 only, then the outputs asked for, lowest order first. The
// functor computes the orders whose arrays are present, each on its own, and writes order 1 in
// every case.
template <typename Func, bool Idx64, typename T, layout L, typename Method>
offload_result run_raw(sycl::queue& queue,
                       T* out1,
                       T* out2,
                       T* out3,
                       T* out4,
                       const dataset<L, T*>& data,
                       Method method,
                       std::uint64_t mask,
                       const raw_words& words) {
    if (method != offload_method_fast)
        return refused(offload_status::method_refused);
    const T* const outs[4] = {out1, out2, out3, out4};
    for (int k = 0; k < 4; ++k) {
        if ((mask & words.bits[k]) && outs[k] == nullptr)
            return refused(words.codes[k]);
    }
    Func func{};
    func.has_order2 = out2 != nullptr;
    func.has_order3 = out3 != nullptr;
    func.has_order4 = out4 != nullptr;
    func.out1 = out1;
    func.out2 = out2;
    func.out3 = out3;
    func.out4 = out4;
    return submitted(submit_basic_usm<Idx64>(queue, data, func, std::vector<sycl::event>()));
}

// The words that tell central moments and central sums apart in their common ladder.
struct central_words {
    std::uint64_t bits[3];  // orders 2, 3, 4
    std::int32_t codes[3];  // missing result of orders 2, 3, 4
};

inline constexpr central_words central_moment_words{
    {cpu::est_central_moment_2, cpu::est_central_moment_3, cpu::est_central_moment_4},
    {offload_status::central_moment_2_missing, offload_status::central_moment_3_missing,
     offload_status::central_moment_4_missing}};

inline constexpr central_words central_sum_words{
    {cpu::est_central_sum_2, cpu::est_central_sum_3, cpu::est_central_sum_4},
    {offload_status::central_sum_2_missing, offload_status::central_sum_3_missing,
     offload_status::central_sum_4_missing}};

// The ladder of the two central groups. raw[k] is the raw moment of order k + 2 and out[k] the
// result of order k + 2. A missing mean is refused for every method. With the caller's mean only
// the results asked for are looked at. With method 1 an order asked for needs its result and
// every raw moment from 2 up to it: the result is reported first, then the lowest raw moment
// missing (a raw-moment code in both groups).
template <typename Method>
std::int32_t central_ladder(const void* mean,
                            const void* const (&raw)[3],
                            const void* const (&out)[3],
                            Method method,
                            std::uint64_t mask,
                            const central_words& words) {
    if (mean == nullptr)
        return offload_status::mean_missing;
    if (method == offload_method_user_mean) {
        for (int k = 0; k < 3; ++k) {
            if ((mask & words.bits[k]) && out[k] == nullptr)
                return words.codes[k];
        }
        return offload_status::ok;
    }
    if (method != offload_method_fast)
        return offload_status::method_refused;
    const std::int32_t raw_codes[3] = {offload_status::raw_moment_2_missing,
                                       offload_status::raw_moment_3_missing,
                                       offload_status::raw_moment_4_missing};
    for (int k = 0; k < 3; ++k) {
        if (!(mask & words.bits[k]))
            continue;
        if (out[k] == nullptr)
            return words.codes[k];
        for (int r = 0; r <= k; ++r) {
            if (raw[r] == nullptr)
                return raw_codes[r];
        }
    }
    return offload_status::ok;
}

// The two central groups launch alike: from raw sums storing the mean and raw moments too
// (Ex), or around the caller's mean (UserMean).
template <typename Ex, typename UserMean, bool Idx64, typename T, layout L, typename Method>
offload_result run_central(sycl::queue& queue,
                           T* mean,
                           T* raw2,
                           T* raw3,
                           T* raw4,
                           T* out2,
                           T* out3,
                           T* out4,
                           const dataset<L, T*>& data,
                           Method method,
                           std::uint64_t mask,
                           const central_words& words) {
    const std::int32_t status =
        central_ladder(mean, {raw2, raw3, raw4}, {out2, out3, out4}, method, mask, words);
    if (status != offload_status::ok)
        return refused(status);
    const std::vector<sycl::event> no_dependencies;
    if (method == offload_method_user_mean) {
        return submitted(submit_basic_usm<Idx64>(queue, static_cast<const T*>(mean), data,
                                                 make_central_func<UserMean>(out2, out3, out4),
                                                 no_dependencies));
    }
    Ex func{};
    func.has_order3 = out3 != nullptr;
    func.has_order4 = out4 != nullptr;
    func.mean = mean;
    func.raw2 = raw2;
    func.raw3 = raw3;
    func.raw4 = raw4;
    func.out2 = out2;
    func.out3 = out3;
    func.out4 = out4;
    return submitted(submit_basic_usm<Idx64>(queue, data, func, no_dependencies));
}

// The head of the three shape ladders: a missing mean first, then with the caller's mean only the
// estimate's own array. Returns true when the ladder is settled, with `status` holding its end.
template <typename Method>
bool shape_ladder_head(
    const void* mean, const void* out, std::int32_t out_code, Method method, std::int32_t& status) {
    status = offload_status::ok;
    if (mean == nullptr) {
        status = offload_status::mean_missing;
        return true;
    }
    if (method == offload_method_user_mean) {
        if (out == nullptr)
            status = out_code;
        return true;
    }
    if (method != offload_method_fast) {
        status = offload_status::method_refused;
        return true;
    }
    if (out == nullptr) {
        status = out_code;
        return true;
    }
    return false;
}

}  // namespace offload_detail

// Minimum of each kept dimension.
template <typename T, layout L, bool Idx64>
offload_result offload_min(sycl::queue& queue,
                           T* min,
                           const dataset<L, T*>& data,
                           offload_method_int<Idx64> method) {
    using namespace offload_detail;
    return run_extreme<min_func_fast<T, true>, Idx64>(queue, min, offload_status::min_missing, data,
                                                      method);
}

// Maximum of each kept dimension, never below the smallest positive normal value.
template <typename T, layout L, bool Idx64>
offload_result offload_max(sycl::queue& queue,
                           T* max,
                           const dataset<L, T*>& data,
                           offload_method_int<Idx64> method) {
    using namespace offload_detail;
    return run_extreme<max_func_fast<T, true>, Idx64>(queue, max, offload_status::max_missing, data,
                                                      method);
}

// Weighted power sums of orders 1 to 4. The mask guards the arrays asked for; the arrays present
// decide what is computed, and raw_sum_1 is written in every case.
template <typename T, layout L, bool Idx64>
offload_result offload_raw_sum(sycl::queue& queue,
                               T* raw_sum_1,
                               T* raw_sum_2,
                               T* raw_sum_3,
                               T* raw_sum_4,
                               const dataset<L, T*>& data,
                               offload_method_int<Idx64> method,
                               std::uint64_t mask) {
    using namespace offload_detail;
    return run_raw<raw_sum_func_fast<T, true>, Idx64>(queue, raw_sum_1, raw_sum_2, raw_sum_3,
                                                      raw_sum_4, data, method, mask, raw_sum_words);
}

// Mean and raw moments of orders 2 to 4, alike: `mean` is written in every case.
template <typename T, layout L, bool Idx64>
offload_result offload_raw_moment(sycl::queue& queue,
                                  T* mean,
                                  T* raw_moment_2,
                                  T* raw_moment_3,
                                  T* raw_moment_4,
                                  const dataset<L, T*>& data,
                                  offload_method_int<Idx64> method,
                                  std::uint64_t mask) {
    using namespace offload_detail;
    return run_raw<raw_moment_func_fast<T, true>, Idx64>(queue, mean, raw_moment_2, raw_moment_3,
                                                         raw_moment_4, data, method, mask,
                                                         raw_moment_words);
}

// Central sums of orders 2 to 4. Method 1 stores the mean and the raw moments they rest on as
// well; method 256 sums around the caller's `mean`.
template <typename T, layout L, bool Idx64>
offload_result offload_central_sum(sycl::queue& queue,
                                   T* mean,
                                   T* raw_moment_2,
                                   T* raw_moment_3,
                                   T* raw_moment_4,
                                   T* central_sum_2,
                                   T* central_sum_3,
                                   T* central_sum_4,
                                   const dataset<L, T*>& data,
                                   offload_method_int<Idx64> method,
                                   std::uint64_t mask) {
    using namespace offload_detail;
    return run_central<ex::central_sum_func_fast<T, true>, central_sum_func_user_mean<T, true>,
                       Idx64>(queue, mean, raw_moment_2, raw_moment_3, raw_moment_4, central_sum_2,
                              central_sum_3, central_sum_4, data, method, mask, central_sum_words);
}

// Central moments of orders 2 to 4, as offload_central_sum.
template <typename T, layout L, bool Idx64>
offload_result offload_central_moment(sycl::queue& queue,
                                      T* mean,
                                      T* raw_moment_2,
                                      T* raw_moment_3,
                                      T* raw_moment_4,
                                      T* central_moment_2,
                                      T* central_moment_3,
                                      T* central_moment_4,
                                      const dataset<L, T*>& data,
                                      offload_method_int<Idx64> method,
                                      std::uint64_t mask) {
    using namespace offload_detail;
    return run_central<ex::central_moment_func_fast<T, true>,
                       central_moment_func_user_mean<T, true>, Idx64>(
        queue, mean, raw_moment_2, raw_moment_3, raw_moment_4, central_moment_2, central_moment_3,
        central_moment_4, data, method, mask, central_moment_words);
}

// Variation. Method 1 stores the mean and second raw moment too.
template <typename T, layout L, bool Idx64>
offload_result offload_variation(sycl::queue& queue,
                                 T* mean,
                                 T* raw_moment_2,
                                 T* variation,
                                 const dataset<L, T*>& data,
                                 offload_method_int<Idx64> method) {
    using namespace offload_detail;
    std::int32_t status;
    if (!shape_ladder_head(mean, variation, offload_status::variation_missing, method, status) &&
        raw_moment_2 == nullptr) {
        status = offload_status::raw_moment_2_missing;
    }
    if (status != offload_status::ok)
        return refused(status);
    if (method == offload_method_user_mean) {
        return submitted(submit_basic_usm<Idx64>(queue, static_cast<const T*>(mean), data,
                                                 variation_func_user_mean<T, true>{variation},
                                                 std::vector<sycl::event>()));
    }
    return submitted(submit_basic_usm<Idx64>(
        queue, data, ex::variation_func_fast<T, true>{mean, raw_moment_2, variation},
        std::vector<sycl::event>()));
}

// Skewness. Method 1 stores the mean and raw moments 2 and 3 too; the higher missing raw
// moment is reported first.
template <typename T, layout L, bool Idx64>
offload_result offload_skewness(sycl::queue& queue,
                                T* mean,
                                T* raw_moment_2,
                                T* raw_moment_3,
                                T* skewness,
                                const dataset<L, T*>& data,
                                offload_method_int<Idx64> method) {
    using namespace offload_detail;
    std::int32_t status;
    if (!shape_ladder_head(mean, skewness, offload_status::skewness_missing, method, status)) {
        if (raw_moment_3 == nullptr)
            status = offload_status::raw_moment_3_missing;
        else if (raw_moment_2 == nullptr)
            status = offload_status::raw_moment_2_missing;
    }
    if (status != offload_status::ok)
        return refused(status);
    if (method == offload_method_user_mean) {
        return submitted(submit_basic_usm<Idx64>(queue, static_cast<const T*>(mean), data,
                                                 skewness_func_user_mean<T, true>{skewness},
                                                 std::vector<sycl::event>()));
    }
    ex::skewness_func_fast<T, true> func{};
    func.mean = mean;
    func.raw2 = raw_moment_2;
    func.raw3 = raw_moment_3;
    func.out = skewness;
    return submitted(submit_basic_usm<Idx64>(queue, data, func, std::vector<sycl::event>()));
}

// Excess kurtosis. Method 1 stores the mean and raw moments 2 to 4 too; the highest missing raw
// moment is reported first.
template <typename T, layout L, bool Idx64>
offload_result offload_kurtosis(sycl::queue& queue,
                                T* mean,
                                T* raw_moment_2,
                                T* raw_moment_3,
                                T* raw_moment_4,
                                T* kurtosis,
                                const dataset<L, T*>& data,
                                offload_method_int<Idx64> method) {
    using namespace offload_detail;
    std::int32_t status;
    if (!shape_ladder_head(mean, kurtosis, offload_status::kurtosis_missing, method, status)) {
        if (raw_moment_4 == nullptr)
            status = offload_status::raw_moment_4_missing;
        else if (raw_moment_3 == nullptr)
            status = offload_status::raw_moment_3_missing;
        else if (raw_moment_2 == nullptr)
            status = offload_status::raw_moment_2_missing;
    }
    if (status != offload_status::ok)
        return refused(status);
    if (method == offload_method_user_mean) {
        return submitted(submit_basic_usm<Idx64>(queue, static_cast<const T*>(mean), data,
                                                 kurtosis_func_user_mean<T, true>{kurtosis},
                                                 std::vector<sycl::event>()));
    }
    ex::kurtosis_func_fast<T, true> func{};
    func.mean = mean;
    func.raw2 = raw_moment_2;
    func.raw3 = raw_moment_3;
    func.raw4 = raw_moment_4;
    func.out = kurtosis;
    return submitted(submit_basic_usm<Idx64>(queue, data, func, std::vector<sycl::event>()));
}

}  // namespace tavrel::qnd::stats::detail::gpu
