// The moment engine's device-side handle on its temporaries: how a work-group folds the powers of
// its observations into partial sums, how a later step reloads and merges them, and how a
// finisher reads the finished sums.
#pragma once

#include <cstdint>
#include <type_traits>

#include <sycl/sycl.hpp>

namespace tavrel::qnd::stats::detail::gpu {

// What a finisher needs gathered: the kept powers and the plane count P that sizes `sums` and
// the local array of a next step. P counts up to the highest plane as if none were skipped.
struct sum_flags {
    bool f2;
    bool f3;
    bool f4;
    std::uint64_t planes;
};

// Raw families (raw_sum, raw_moment): the flags follow the orders asked for, independently,
// while P follows the highest one, so a gap (orders 1 and 4 only) reserves planes left unused.
inline sum_flags raw_flags(bool order2, bool order3, bool order4) {
    return {order2, order3, order4, std::uint64_t(order4 ? 4 : order3 ? 3 : order2 ? 2 : 1)};
}

// Central families from raw sums: order 2 always; order 4 needs the third raw sum as well.
inline sum_flags central_flags(bool order3, bool order4) {
    return {true, order3 || order4, order4, std::uint64_t(order4 ? 4 : order3 ? 3 : 2)};
}

// Central families around a caller's mean: deviations need no lower order (f2 is not used).
inline sum_flags user_mean_flags(bool order3, bool order4) {
    return {false, order3, order4, std::uint64_t(order4 ? 3 : order3 ? 2 : 1)};
}

// A read-write placeholder accessor on a temporary, registered on each command group.
template <typename T>
using temp_accessor = sycl::accessor<T, 1, sycl::access_mode::read_write, sycl::target::device>;

// The caller's mean as the kernels see it: a pointer in the pointer form, an accessor otherwise.
template <typename T, bool Usm>
using mean_input =
    std::conditional_t<Usm,
                       const T*,
                       sycl::accessor<T, 1, sycl::access_mode::read, sycl::target::device>>;

// Weight of one observation: its value when positive, 1 otherwise (zero, negative and NaN alike,
// so none is dropped).
template <typename T>
inline T effective_weight(T read) {
    return read > T(0) ? read : T(1);
}

// A work-item of the last group past the step's tail has no element. tail 0 wraps around, so a
// full last group has no idle work-item.
inline bool is_idle(const sycl::nd_item<1>& item, std::uint64_t tail) {
    return item.get_group(0) == item.get_group_range(0) - 1 &&
           tail - 1 < static_cast<std::uint64_t>(item.get_local_id(0));
}

// Sum over the work-group, starting from 0 (which also turns a -0 into +0).
template <typename T>
inline T group_sum(const sycl::nd_item<1>& item, T value) {
    return sycl::reduce_over_group(item.get_group(), value, T(0), sycl::plus<T>());
}

// Stores the group's sums of weights and squared weights. The weight sums are the same for every
// dimension, so they are gathered in the first dimension kept only.
template <typename Helper, typename T>
inline void store_weight_sums(const Helper& h,
                              const sycl::nd_item<1>& item,
                              T weight,
                              bool first_dim) {
    if (!(h.has_weights && first_dim))
        return;
    const std::uint64_t g = item.get_group(0);
    const T w = group_sum(item, weight);
    if (item.get_local_id(0) == 0)
        h.w_sum[g] = w;
    const T w2 = group_sum(item, weight * weight);
    if (item.get_local_id(0) == 0)
        h.w2_sum[g] = w2;
}

// Brings the previous level's partial sums of dimension d into the planes of the local array
// (plane p of work-item l at l + p * local_size); idle work-items contribute zeros. Element k of
// a row stands at k * element_stride (see merge_planes). A work-item touches only its own
// slots, so no barrier is needed before the merge.
template <typename Helper, typename Local>
inline void load_planes(const Helper& h,
                        const Local& values,
                        std::uint64_t d,
                        const sycl::nd_item<1>& item,
                        std::uint64_t tail,
                        std::uint64_t row_stride,
                        std::uint64_t element_stride,
                        bool first_dim) {
    using T = typename Helper::value_type;
    const std::uint64_t l = item.get_local_id(0);
    const std::uint64_t ls = item.get_local_range(0);
    const std::uint64_t at = item.get_global_id(0) * element_stride;
    const bool idle = is_idle(item, tail);
    const std::uint64_t src = at + d * row_stride;
    h.for_each_plane([&](std::uint64_t plane) {
        values[l + plane * ls] = idle ? T(0) : T(h.sums[src + plane * h.plane_stride]);
    });
    if (h.has_weights && first_dim) {
        values[l + h.plane_w * ls] = idle ? T(0) : T(h.w_sum[at]);
        values[l + h.plane_w2 * ls] = idle ? T(0) : T(h.w2_sum[at]);
    }
}

// Reduces each plane of the local array over the group and stores this level's sums.
//
// The launch that finishes (one group) stores dimension d at position d, where the finishers
// read it. A level of several groups stores in place, and each group stores into the first slot
// that it has itself read: group g at element g * local_size of the level it read, so that its
// row keeps the stride row_stride and its elements are element_stride * local_size apart. No
// group can overwrite a partial sum that another group has yet to read, whatever the order in
// which the groups run and however far one is ahead of another across dimensions; storing at
// g + d * G would overwrite entries of other groups' rows (group 1 of 5 at dimension 3 would
// overwrite entry 16 of row 0, which group 2 reads, with rows of 38).
template <typename Helper, typename Local>
inline void merge_planes(const Helper& h,
                         const Local& values,
                         std::uint64_t d,
                         const sycl::nd_item<1>& item,
                         std::uint64_t row_stride,
                         std::uint64_t element_stride,
                         bool first_dim) {
    using T = typename Helper::value_type;
    const std::uint64_t l = item.get_local_id(0);
    const std::uint64_t ls = item.get_local_range(0);
    const std::uint64_t g = item.get_group(0);
    const bool finishing = item.get_group_range(0) == 1;
    const std::uint64_t slot = g * ls * element_stride;
    const std::uint64_t base = finishing ? d : slot + d * row_stride;
    h.for_each_plane([&](std::uint64_t plane) {
        const T s = group_sum(item, T(values[l + plane * ls]));
        if (l == 0)
            h.sums[base + plane * h.plane_stride] = s;
    });
    if (h.has_weights && first_dim) {
        const T w = group_sum(item, T(values[l + h.plane_w * ls]));
        if (l == 0)
            h.w_sum[slot] = w;
        const T w2 = group_sum(item, T(values[l + h.plane_w2 * ls]));
        if (l == 0)
            h.w2_sum[slot] = w2;
    }
}

// What both kinds of helper share: the steps after the first level and the weight totals.
template <typename Derived, typename T>
struct sum_tmp_common {
    template <typename Local>
    void load(const Local& values,
              std::uint64_t d,
              const sycl::nd_item<1>& item,
              std::uint64_t tail,
              std::uint64_t row_stride,
              std::uint64_t element_stride,
              bool first_dim) const {
        load_planes(self(), values, d, item, tail, row_stride, element_stride, first_dim);
    }

    template <typename Local>
    void merge(const Local& values,
               std::uint64_t d,
               const sycl::nd_item<1>& item,
               std::uint64_t row_stride,
               std::uint64_t element_stride,
               bool first_dim) const {
        merge_planes(self(), values, d, item, row_stride, element_stride, first_dim);
    }

    // The planes of the local array that load and merge address: the kept planes, packed, and
    // after them the two of the weight sums when weighted.
    std::uint64_t addressed_planes() const {
        return self().has_weights ? self().plane_w2 + 1 : self().plane_p4 + 1;
    }

    // Sum of weights and of squared weights, valid after the last step; the count when
    // unweighted.
    T w() const {
        return self().has_weights ? T(self().w_sum[0]) : static_cast<T>(self().n_observations);
    }
    T w2() const {
        return self().has_weights ? T(self().w2_sum[0]) : static_cast<T>(self().n_observations);
    }

  private:
    const Derived& self() const { return static_cast<const Derived&>(*this); }
};

// Layout of `sums`: plane p starts at p * plane_stride and holds one row of n_groups entries per
// dimension (row d at d * n_groups). The first step stores group g's entry of dimension d at
// g + d * n_groups; each next level in its groups' own slots (merge_planes); the finishing step
// leaves dimension d at d + p * plane_stride. Every operation below is collective: all
// work-items of the group call it, from uniform control flow, and only local id 0 stores.
template <typename T, bool Usm, bool UserMean>
struct sum_tmp_helper;

// Raw power sums: plane 0 holds sums of w * x, the kept higher powers follow, packed.
template <typename T, bool Usm>
struct sum_tmp_helper<T, Usm, false> : sum_tmp_common<sum_tmp_helper<T, Usm, false>, T> {
    using value_type = T;

    temp_accessor<T> sums;
    temp_accessor<T> w_sum;
    temp_accessor<T> w2_sum;
    std::uint8_t f2;
    std::uint8_t f3;
    std::uint8_t f4;
    std::uint8_t has_weights;
    std::uint64_t plane_stride;
    std::int64_t n_observations;
    std::uint64_t plane_p2;
    std::uint64_t plane_p3;
    std::uint64_t plane_p4;
    std::uint64_t plane_w;
    std::uint64_t plane_w2;

    sum_tmp_helper(sycl::buffer<T, 1>& sums_buf,
                   sycl::buffer<T, 1>& w_buf,
                   sycl::buffer<T, 1>& w2_buf,
                   bool keep2,
                   bool keep3,
                   bool keep4,
                   bool weighted,
                   std::uint64_t stride,
                   std::int64_t count)
        : sums(sums_buf),
          w_sum(w_buf),
          w2_sum(w2_buf),
          f2(keep2),
          f3(keep3),
          f4(keep4),
          has_weights(weighted),
          plane_stride(stride),
          n_observations(count),
          plane_p2(f2),
          plane_p3(plane_p2 + f3),
          plane_p4(plane_p3 + f4),
          plane_w(plane_p4 + has_weights),
          plane_w2(plane_w + has_weights) {}

    void require(sycl::handler& cgh) const {
        cgh.require(sums);
        cgh.require(w_sum);
        cgh.require(w2_sum);
    }

    // Plane 0, then each kept plane in rising order.
    template <typename Fn>
    void for_each_plane(Fn&& fn) const {
        fn(std::uint64_t{0});
        if (f2)
            fn(plane_p2);
        if (f3)
            fn(plane_p3);
        if (f4)
            fn(plane_p4);
    }

    // Folds the work-item's staged observation values[l], of weight `weight`, into the group's
    // partial sums of dimension d. An idle work-item has staged 0 with weight 0.
    template <typename Values>
    void calculate(const Values& values,
                   std::uint64_t d,
                   const sycl::nd_item<1>& item,
                   T weight,
                   std::uint64_t /*tail*/,
                   bool first_dim) const {
        const std::uint64_t base = item.get_group(0) + d * item.get_group_range(0);
        const bool leader = item.get_local_id(0) == 0;
        const T x = values[item.get_local_id(0)];
        const T p = weight * x;
        const T s1 = group_sum(item, p);
        if (leader)
            sums[base] = s1;
        if (f2) {
            const T s = group_sum(item, p * x);
            if (leader)
                sums[base + plane_p2 * plane_stride] = s;
        }
        if (f3) {
            const T s = group_sum(item, (p * x) * x);
            if (leader)
                sums[base + plane_p3 * plane_stride] = s;
        }
        if (f4) {
            const T s = group_sum(item, ((p * x) * x) * x);
            if (leader)
                sums[base + plane_p4 * plane_stride] = s;
        }
        store_weight_sums(*this, item, weight, first_dim);
    }

    // Finished sums of dimension d, valid after the last step; a power not kept reads as 0.
    T s1(std::uint64_t d) const { return sums[d]; }
    T s2(std::uint64_t d) const { return f2 ? T(sums[d + plane_p2 * plane_stride]) : T(0); }
    T s3(std::uint64_t d) const { return f3 ? T(sums[d + plane_p3 * plane_stride]) : T(0); }
    T s4(std::uint64_t d) const { return f4 ? T(sums[d + plane_p4 * plane_stride]) : T(0); }
};

// Sums of powers of deviations from the caller's mean: plane 0 holds sums of (w * e) * e, the
// kept third and fourth powers follow, packed.
template <typename T, bool Usm>
struct sum_tmp_helper<T, Usm, true> : sum_tmp_common<sum_tmp_helper<T, Usm, true>, T> {
    using value_type = T;

    temp_accessor<T> sums;
    mean_input<T, Usm> mean;
    temp_accessor<T> w_sum;
    temp_accessor<T> w2_sum;
    std::uint8_t f3;
    std::uint8_t f4;
    std::uint8_t has_weights;
    std::uint64_t plane_stride;
    std::int64_t n_observations;
    std::uint64_t plane_p3;
    std::uint64_t plane_p4;
    std::uint64_t plane_w;
    std::uint64_t plane_w2;

    sum_tmp_helper(sycl::buffer<T, 1>& sums_buf,
                   mean_input<T, Usm> user_mean,
                   sycl::buffer<T, 1>& w_buf,
                   sycl::buffer<T, 1>& w2_buf,
                   bool keep3,
                   bool keep4,
                   bool weighted,
                   std::uint64_t stride,
                   std::int64_t count)
        : sums(sums_buf),
          mean(user_mean),
          w_sum(w_buf),
          w2_sum(w2_buf),
          f3(keep3),
          f4(keep4),
          has_weights(weighted),
          plane_stride(stride),
          n_observations(count),
          plane_p3(f3),
          plane_p4(plane_p3 + f4),
          plane_w(plane_p4 + has_weights),
          plane_w2(plane_w + has_weights) {}

    void require(sycl::handler& cgh) const {
        cgh.require(sums);
        if constexpr (!Usm)
            cgh.require(mean);
        cgh.require(w_sum);
        cgh.require(w2_sum);
    }

    template <typename Fn>
    void for_each_plane(Fn&& fn) const {
        fn(std::uint64_t{0});
        if (f3)
            fn(plane_p3);
        if (f4)
            fn(plane_p4);
    }

    // As the raw form, on deviations e = x - mean[d]. What an idle work-item staged is not an
    // observation, and its deviation from the mean would not be 0: the idle test leaves it out.
    template <typename Values>
    void calculate(const Values& values,
                   std::uint64_t d,
                   const sycl::nd_item<1>& item,
                   T weight,
                   std::uint64_t tail,
                   bool first_dim) const {
        const std::uint64_t base = item.get_group(0) + d * item.get_group_range(0);
        const bool leader = item.get_local_id(0) == 0;
        const T e = is_idle(item, tail) ? T(0) : T(values[item.get_local_id(0)] - mean[d]);
        const T q = (weight * e) * e;
        const T s2 = group_sum(item, q);
        if (leader)
            sums[base] = s2;
        if (f3) {
            const T s = group_sum(item, q * e);
            if (leader)
                sums[base + plane_p3 * plane_stride] = s;
        }
        if (f4) {
            const T s = group_sum(item, (q * e) * e);
            if (leader)
                sums[base + plane_p4 * plane_stride] = s;
        }
        store_weight_sums(*this, item, weight, first_dim);
    }

    // Finished sums of powers of deviations of dimension d: order 2 always, 3 and 4 if kept.
    T q2(std::uint64_t d) const { return sums[d]; }
    T q3(std::uint64_t d) const { return f3 ? T(sums[d + plane_p3 * plane_stride]) : T(0); }
    T q4(std::uint64_t d) const { return f4 ? T(sums[d + plane_p4 * plane_stride]) : T(0); }
};

}  // namespace tavrel::qnd::stats::detail::gpu
