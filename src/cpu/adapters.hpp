// The CPU adapters, one per estimator: which arrays a statistics task is given, which estimates
// it is asked for and with which method value.
#pragma once

#include <cstdint>
#include <memory>

#include <sycl/sycl.hpp>

#include "cpu/estimate_mask.hpp"
#include "cpu/ss_client.hpp"

namespace tavrel::qnd::stats::detail::cpu {

// One array of an adapter. The pointer form holds the pointer; an array the estimator does not
// want is null.
template <typename T, bool Usm>
struct cpu_array;

template <typename T>
struct cpu_array<T, true> {
    T* pointer = nullptr;

    bool given() const { return pointer != nullptr; }
    T* get() const { return pointer; }
    void require(sycl::handler&) const {}
};

// The buffer form holds a placeholder accessor and a flag; the pointer goes to the core library
// only with the flag (or where an adapter says otherwise, through `along`).
template <typename T>
struct cpu_array<T, false> {
    cpu_array(sycl::buffer<T, 1> buffer, bool flag) : accessor(buffer), flag(flag) {}

    sycl::accessor<T, 1, sycl::access_mode::read_write> accessor;
    bool flag;

    bool given() const { return flag; }
    T* get() const { return get(flag); }
    T* get(bool along) const { return along ? std::addressof(accessor[0]) : nullptr; }
    void require(sycl::handler& cgh) const { cgh.require(accessor); }
};

template <typename T, bool Usm>
inline std::uint64_t bit_if(const cpu_array<T, Usm>& array, std::uint64_t bit) {
    return array.given() ? bit : 0;
}

template <typename T, bool Usm>
struct mean_func {
    cpu_array<T, Usm> mean;
    std::int64_t method;

    void edit(ss_task* task) const { ss_edit_task(task, ss_edit_mean, mean.get()); }
    std::uint64_t mask() const { return est_mean; }
    std::int64_t method_value() const { return method; }
    void require(sycl::handler& cgh) const { mean.require(cgh); }
};

template <typename T, bool Usm>
struct min_func {
    cpu_array<T, Usm> min;
    std::int64_t method;

    void edit(ss_task* task) const { ss_edit_task(task, ss_edit_min, min.get()); }
    std::uint64_t mask() const { return est_min; }
    std::int64_t method_value() const { return method; }
    void require(sycl::handler& cgh) const { min.require(cgh); }
};

template <typename T, bool Usm>
struct max_func {
    cpu_array<T, Usm> max;
    std::int64_t method;

    void edit(ss_task* task) const { ss_edit_task(task, ss_edit_max, max.get()); }
    std::uint64_t mask() const { return est_max; }
    std::int64_t method_value() const { return method; }
    void require(sycl::handler& cgh) const { max.require(cgh); }
};

template <typename T, bool Usm>
struct min_max_func {
    cpu_array<T, Usm> min;
    cpu_array<T, Usm> max;
    std::int64_t method;

    void edit(ss_task* task) const {
        ss_edit_task(task, ss_edit_min, min.get());
        ss_edit_task(task, ss_edit_max, max.get());
    }
    std::uint64_t mask() const { return est_min | est_max; }
    std::int64_t method_value() const { return method; }
    void require(sycl::handler& cgh) const {
        min.require(cgh);
        max.require(cgh);
    }
};

// The order-1 sum is asked for even when s1 is left out; the core library answers for that.
template <typename T, bool Usm>
struct raw_sum_func {
    cpu_array<T, Usm> s1;
    cpu_array<T, Usm> s2;
    cpu_array<T, Usm> s3;
    cpu_array<T, Usm> s4;
    std::int64_t method;

    void edit(ss_task* task) const {
        T* none = nullptr;
        ss_edit_sums(task, s1.get(), s2.get(), s3.get(), s4.get(), none, none, none);
    }
    std::uint64_t mask() const {
        return est_raw_sum_1 | bit_if(s2, est_raw_sum_2) | bit_if(s3, est_raw_sum_3) |
               bit_if(s4, est_raw_sum_4);
    }
    std::int64_t method_value() const { return method; }
    void require(sycl::handler& cgh) const {
        s1.require(cgh);
        s2.require(cgh);
        s3.require(cgh);
        s4.require(cgh);
    }
};

template <typename T, bool Usm>
struct raw_moment_func {
    cpu_array<T, Usm> mean;
    cpu_array<T, Usm> r2;
    cpu_array<T, Usm> r3;
    cpu_array<T, Usm> r4;
    std::int64_t method;

    void edit(ss_task* task) const {
        T* none = nullptr;
        ss_edit_moments(task, mean.get(), r2.get(), r3.get(), r4.get(), none, none, none);
    }
    std::uint64_t mask() const {
        return est_mean | bit_if(r2, est_raw_moment_2) | bit_if(r3, est_raw_moment_3) |
               bit_if(r4, est_raw_moment_4);
    }
    std::int64_t method_value() const { return method; }
    void require(sycl::handler& cgh) const {
        mean.require(cgh);
        r2.require(cgh);
        r3.require(cgh);
        r4.require(cgh);
    }
};

// In the buffer form cs3 goes to the core library when order 3 or order 4 is asked for.
template <typename T, bool Usm>
inline T* central_sum_3_along(const cpu_array<T, Usm>& cs3, const cpu_array<T, Usm>& cs4) {
    if constexpr (Usm)
        return cs3.get();
    else
        return cs3.get(cs3.given() || cs4.given());
}

template <typename T, bool Usm>
inline std::uint64_t central_sum_mask(const cpu_array<T, Usm>& cs3, const cpu_array<T, Usm>& cs4) {
    return est_central_sum_2 | bit_if(cs3, est_central_sum_3) | bit_if(cs4, est_central_sum_4);
}

// Central sums around the data's mean through the raw moments. The method value is built in and
// differs between the forms: 2 in the pointer form, 1 in the buffer form.
template <typename T, bool Usm>
struct central_sum_func_fast {
    cpu_array<T, Usm> mean;
    cpu_array<T, Usm> r2;
    cpu_array<T, Usm> r3;
    cpu_array<T, Usm> r4;
    cpu_array<T, Usm> cs2;
    cpu_array<T, Usm> cs3;
    cpu_array<T, Usm> cs4;

    void edit(ss_task* task) const {
        T* none = nullptr;
        ss_edit_moments(task, mean.get(), r2.get(), r3.get(), r4.get(), none, none, none);
        ss_edit_sums(task, none, none, none, none, cs2.get(), central_sum_3_along(cs3, cs4),
                     cs4.get());
    }
    std::uint64_t mask() const { return central_sum_mask(cs3, cs4); }
    std::int64_t method_value() const { return Usm ? 2 : 1; }
    void require(sycl::handler& cgh) const {
        mean.require(cgh);
        r2.require(cgh);
        r3.require(cgh);
        r4.require(cgh);
        cs2.require(cgh);
        cs3.require(cgh);
        cs4.require(cgh);
    }
};

// Central sums with the mean alone: method 2 computes it, method 256 takes the caller's.
template <typename T, bool Usm>
struct central_sum_func {
    cpu_array<T, Usm> mean;
    cpu_array<T, Usm> cs2;
    cpu_array<T, Usm> cs3;
    cpu_array<T, Usm> cs4;
    std::int64_t method;

    void edit(ss_task* task) const {
        T* none = nullptr;
        ss_edit_task(task, ss_edit_mean, mean.get());
        ss_edit_sums(task, none, none, none, none, cs2.get(), central_sum_3_along(cs3, cs4),
                     cs4.get());
    }
    std::uint64_t mask() const { return central_sum_mask(cs3, cs4); }
    std::int64_t method_value() const { return method; }
    void require(sycl::handler& cgh) const {
        mean.require(cgh);
        cs2.require(cgh);
        cs3.require(cgh);
        cs4.require(cgh);
    }
};

template <typename T, bool Usm>
struct central_moment_func {
    cpu_array<T, Usm> mean;
    cpu_array<T, Usm> r2;
    cpu_array<T, Usm> r3;
    cpu_array<T, Usm> r4;
    cpu_array<T, Usm> c2;
    cpu_array<T, Usm> c3;
    cpu_array<T, Usm> c4;
    std::int64_t method;

    void edit(ss_task* task) const {
        ss_edit_moments(task, mean.get(), r2.get(), r3.get(), r4.get(), c2.get(), c3.get(),
                        c4.get());
    }
    std::uint64_t mask() const {
        return est_central_moment_2 | bit_if(c3, est_central_moment_3) |
               bit_if(c4, est_central_moment_4);
    }
    std::int64_t method_value() const { return method; }
    void require(sycl::handler& cgh) const {
        mean.require(cgh);
        r2.require(cgh);
        r3.require(cgh);
        r4.require(cgh);
        c2.require(cgh);
        c3.require(cgh);
        c4.require(cgh);
    }
};

template <typename T, bool Usm>
struct skewness_func {
    cpu_array<T, Usm> mean;
    cpu_array<T, Usm> r2;
    cpu_array<T, Usm> r3;
    cpu_array<T, Usm> c2;
    cpu_array<T, Usm> c3;
    cpu_array<T, Usm> skewness;
    std::int64_t method;

    void edit(ss_task* task) const {
        T* none = nullptr;
        ss_edit_moments(task, mean.get(), r2.get(), r3.get(), none, c2.get(), c3.get(), none);
        ss_edit_task(task, ss_edit_skewness, skewness.get());
    }
    std::uint64_t mask() const { return est_skewness; }
    std::int64_t method_value() const { return method; }
    void require(sycl::handler& cgh) const {
        mean.require(cgh);
        r2.require(cgh);
        r3.require(cgh);
        c2.require(cgh);
        c3.require(cgh);
        skewness.require(cgh);
    }
};

template <typename T, bool Usm>
struct kurtosis_func {
    cpu_array<T, Usm> mean;
    cpu_array<T, Usm> r2;
    cpu_array<T, Usm> r3;
    cpu_array<T, Usm> r4;
    cpu_array<T, Usm> c2;
    cpu_array<T, Usm> c4;
    cpu_array<T, Usm> kurtosis;
    std::int64_t method;

    void edit(ss_task* task) const {
        T* none = nullptr;
        ss_edit_moments(task, mean.get(), r2.get(), r3.get(), r4.get(), c2.get(), none, c4.get());
        ss_edit_task(task, ss_edit_kurtosis, kurtosis.get());
    }
    std::uint64_t mask() const { return est_kurtosis; }
    std::int64_t method_value() const { return method; }
    void require(sycl::handler& cgh) const {
        mean.require(cgh);
        r2.require(cgh);
        r3.require(cgh);
        r4.require(cgh);
        c2.require(cgh);
        c4.require(cgh);
        kurtosis.require(cgh);
    }
};

template <typename T, bool Usm>
struct variation_func {
    cpu_array<T, Usm> mean;
    cpu_array<T, Usm> r2;
    cpu_array<T, Usm> c2;
    cpu_array<T, Usm> variation;
    std::int64_t method;

    void edit(ss_task* task) const {
        T* none = nullptr;
        ss_edit_moments(task, mean.get(), r2.get(), none, none, c2.get(), none, none);
        ss_edit_task(task, ss_edit_variation, variation.get());
    }
    std::uint64_t mask() const { return est_variation; }
    std::int64_t method_value() const { return method; }
    void require(sycl::handler& cgh) const {
        mean.require(cgh);
        r2.require(cgh);
        c2.require(cgh);
        variation.require(cgh);
    }
};

}  // namespace tavrel::qnd::stats::detail::cpu
