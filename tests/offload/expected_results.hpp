// What the offload adaptors write, and the check of a task's arrays against long-double
// references: written where the adaptor writes and the dimension is kept, untouched elsewhere.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "offload/adaptor_calls.hpp"
#include "support/data.hpp"
#include "support/reference.hpp"

namespace qnd_test {

// The fields each adaptor writes with every array present: method 1, then method 256.
inline std::vector<field> fields_written(adaptor a, bool user_mean) {
    switch (a) {
        case adaptor::min:
            return {f_min};
        case adaptor::max:
            return {f_max};
        case adaptor::raw_sum:
            return {f_rs1, f_rs2, f_rs3, f_rs4};
        case adaptor::raw_moment:
            return {f_mean, f_raw2, f_raw3, f_raw4};
        case adaptor::central_sum:
            if (user_mean)
                return {f_cs2, f_cs3, f_cs4};
            return {f_mean, f_raw2, f_raw3, f_raw4, f_cs2, f_cs3, f_cs4};
        case adaptor::central_moment:
            if (user_mean)
                return {f_cm2, f_cm3, f_cm4};
            return {f_mean, f_raw2, f_raw3, f_raw4, f_cm2, f_cm3, f_cm4};
        case adaptor::variation:
            if (user_mean)
                return {f_variation};
            return {f_mean, f_raw2, f_variation};
        case adaptor::skewness:
            if (user_mean)
                return {f_skewness};
            return {f_mean, f_raw2, f_raw3, f_skewness};
        case adaptor::kurtosis:
            if (user_mean)
                return {f_kurtosis};
            return {f_mean, f_raw2, f_raw3, f_raw4, f_kurtosis};
    }
    return {};
}

// The reference value of a moment field, from sums around the data's mean or the caller's.
inline long double expected_moment(int f, const moment_reference& r) {
    switch (f) {
        case f_mean:
            return r.mean();
        case f_raw2:
        case f_raw3:
        case f_raw4:
            return r.raw_moment(f - f_raw2 + 2);
        case f_cm2:
        case f_cm3:
        case f_cm4:
            return r.central_moment(f - f_cm2 + 2);
        case f_rs1:
        case f_rs2:
        case f_rs3:
        case f_rs4:
            return r.raw[f - f_rs1 + 1];
        case f_cs2:
        case f_cs3:
        case f_cs4:
            return r.central_sum(f - f_cs2 + 2);
        case f_kurtosis:
            return r.kurtosis();
        case f_skewness:
            return r.skewness();
        case f_variation:
            return r.variation();
    }
    return 0;
}

// The extremes engine ignores weights, and stores a maximum at or below the smallest positive
// normal value as that value.
template <typename T>
long double expected_extreme(int f, const host_data<T>& host, std::int64_t d) {
    long double lo = host.value(d, 0);
    long double hi = lo;
    for (std::int64_t i = 1; i < host.n_observations; ++i) {
        lo = std::min<long double>(lo, host.value(d, i));
        hi = std::max<long double>(hi, host.value(d, i));
    }
    if (f == f_min)
        return lo;
    return std::max<long double>(hi, std::numeric_limits<T>::min());
}

// Compares every array of `t` with its reference. `written` lists the fields that the call
// writes; under the caller's mean (`centre`, one per dimension) `mean` is an input and must
// still hold the centre.
template <typename T>
void expect_results(const task_arrays<T>& t,
                    const host_data<T>& host,
                    const std::vector<field>& written,
                    bool user_mean,
                    const std::vector<long double>& centre) {
    for (int f = 0; f < n_fields; ++f) {
        if (!t.present[f])
            continue;
        const bool is_written = std::count(written.begin(), written.end(), f) != 0;
        for (std::int64_t d = 0; d < host.n_dims; ++d) {
            const long double got = t.array(f)[d];
            if (user_mean && f == f_mean) {
                EXPECT_EQ(got, static_cast<T>(centre[d])) << "the caller's mean is read only";
                continue;
            }
            if (!is_written || !host.kept(d)) {
                EXPECT_EQ(got, task_arrays<T>::untouched) << field_name(f) << " dim " << d;
                continue;
            }
            long double want;
            if (f == f_min || f == f_max) {
                want = expected_extreme(f, host, d);
            } else {
                const moment_reference ref =
                    user_mean ? reference_of(host, d, &centre[d]) : reference_of(host, d);
                want = expected_moment(f, ref);
            }
            EXPECT_TRUE(close_to(got, want, moment_tolerance<T>()))
                << field_name(f) << " dim " << d << ": got " << got << ", want " << want;
        }
    }
}

// The caller's means of method 256: off the data's means, so that sums around them differ,
// and representable in T.
template <typename T>
std::vector<long double> caller_means(const host_data<T>& host) {
    std::vector<long double> centre(static_cast<std::size_t>(host.n_dims));
    for (std::int64_t d = 0; d < host.n_dims; ++d)
        centre[d] = static_cast<T>(reference_of(host, d).mean() + 0.375L);
    return centre;
}

}  // namespace qnd_test
