// Work-items and work-groups of a one-dimensional nd_range, and group-wide copies.
#pragma once
#pragma GCC visibility push(default)

#include <cstddef>

#include <sycl/detail/runtime.hpp>
#include <sycl/multi_ptr.hpp>
#include <sycl/types.hpp>

namespace sycl {

// The event of a group-wide copy. The copy is complete when the call that made it returns,
// so waiting has nothing left to do.
class device_event {
  public:
    void wait() noexcept {}
};

namespace detail {
// Group-wide strided copy, performed by work-item 0 alone. Between two barriers the executor
// always runs work-item 0 first, so the copy is complete before any other work-item of the
// group reaches the same call.
template <typename T>
device_event group_copy(std::size_t local_id,
                        T* dest,
                        const T* src,
                        std::size_t n,
                        std::size_t dest_stride,
                        std::size_t src_stride) {
    if (local_id == 0)
        for (std::size_t i = 0; i < n; ++i)
            dest[i * dest_stride] = src[i * src_stride];
    return device_event();
}
}  // namespace detail

template <int Dimensions = 1>
class group {
    static_assert(Dimensions == 1, "only one-dimensional groups are supported");

  public:
    static constexpr int dimensions = 1;
    using id_type = id<1>;
    using range_type = range<1>;
    using linear_id_type = std::size_t;
    static constexpr memory_scope fence_scope = memory_scope::work_group;

    explicit group(const detail::item_state& s) : s_(s) {}

    id<1> get_group_id() const { return id<1>(s_.group_id); }
    std::size_t get_group_id(int) const { return s_.group_id; }
    id<1> get_local_id() const { return id<1>(s_.local_id); }
    std::size_t get_local_id(int) const { return s_.local_id; }
    range<1> get_local_range() const { return range<1>(s_.local_range); }
    range<1> get_group_range() const { return range<1>(s_.group_range); }
    range<1> get_max_local_range() const { return range<1>(s_.local_range); }
    std::size_t get_group_linear_id() const { return s_.group_id; }
    std::size_t get_local_linear_id() const { return s_.local_id; }
    std::size_t get_local_linear_range() const { return s_.local_range; }
    std::size_t get_group_linear_range() const { return s_.group_range; }
    std::size_t operator[](int) const { return s_.group_id; }
    bool leader() const { return s_.local_id == 0; }

    template <typename T, access::decorated DD, access::decorated SD>
    device_event async_work_group_copy(multi_ptr<T, access::address_space::local_space, DD> dest,
                                       multi_ptr<T, access::address_space::global_space, SD> src,
                                       std::size_t n,
                                       std::size_t src_stride = 1) const {
        return detail::group_copy<T>(s_.local_id, dest.get(), src.get(), n, 1, src_stride);
    }
    template <typename T, access::decorated DD, access::decorated SD>
    device_event async_work_group_copy(multi_ptr<T, access::address_space::global_space, DD> dest,
                                       multi_ptr<T, access::address_space::local_space, SD> src,
                                       std::size_t n,
                                       std::size_t dest_stride = 1) const {
        return detail::group_copy<T>(s_.local_id, dest.get(), src.get(), n, dest_stride, 1);
    }
    template <typename T, access::decorated DD, access::decorated SD>
    device_event async_work_group_copy(
        multi_ptr<T, access::address_space::local_space, DD> dest,
        multi_ptr<const T, access::address_space::global_space, SD> src,
        std::size_t n,
        std::size_t src_stride = 1) const {
        return detail::group_copy<T>(s_.local_id, dest.get(), src.get(), n, 1, src_stride);
    }
    template <typename... Events>
    void wait_for(Events... events) const {
        (events.wait(), ...);
    }

    detail::group_state* state() const { return s_.group; }

  private:
    detail::item_state s_;
};

template <int Dimensions = 1>
class nd_item {
    static_assert(Dimensions == 1, "only one-dimensional nd_items are supported");

  public:
    static constexpr int dimensions = 1;

    explicit nd_item(const detail::item_state& s) : s_(s) {}

    id<1> get_global_id() const { return id<1>(global()); }
    std::size_t get_global_id(int) const { return global(); }
    std::size_t get_global_linear_id() const { return global(); }
    id<1> get_local_id() const { return id<1>(s_.local_id); }
    std::size_t get_local_id(int) const { return s_.local_id; }
    std::size_t get_local_linear_id() const { return s_.local_id; }
    group<1> get_group() const { return group<1>(s_); }
    std::size_t get_group(int) const { return s_.group_id; }
    std::size_t get_group_linear_id() const { return s_.group_id; }
    range<1> get_global_range() const { return range<1>(s_.local_range * s_.group_range); }
    std::size_t get_global_range(int) const { return s_.local_range * s_.group_range; }
    range<1> get_local_range() const { return range<1>(s_.local_range); }
    std::size_t get_local_range(int) const { return s_.local_range; }
    range<1> get_group_range() const { return range<1>(s_.group_range); }
    std::size_t get_group_range(int) const { return s_.group_range; }
    id<1> get_offset() const { return id<1>(0); }
    nd_range<1> get_nd_range() const { return nd_range<1>(get_global_range(), get_local_range()); }

    // A work-group barrier; the older member form of group_barrier.
    void barrier(access::fence_space = access::fence_space::global_and_local) const {
        detail::group_barrier(s_.group);
    }

    template <typename T, access::decorated DD, access::decorated SD>
    device_event async_work_group_copy(multi_ptr<T, access::address_space::local_space, DD> dest,
                                       multi_ptr<T, access::address_space::global_space, SD> src,
                                       std::size_t n,
                                       std::size_t src_stride = 1) const {
        return detail::group_copy<T>(s_.local_id, dest.get(), src.get(), n, 1, src_stride);
    }
    template <typename T, access::decorated DD, access::decorated SD>
    device_event async_work_group_copy(multi_ptr<T, access::address_space::global_space, DD> dest,
                                       multi_ptr<T, access::address_space::local_space, SD> src,
                                       std::size_t n,
                                       std::size_t dest_stride = 1) const {
        return detail::group_copy<T>(s_.local_id, dest.get(), src.get(), n, dest_stride, 1);
    }
    template <typename T, access::decorated DD, access::decorated SD>
    device_event async_work_group_copy(
        multi_ptr<T, access::address_space::local_space, DD> dest,
        multi_ptr<const T, access::address_space::global_space, SD> src,
        std::size_t n,
        std::size_t src_stride = 1) const {
        return detail::group_copy<T>(s_.local_id, dest.get(), src.get(), n, 1, src_stride);
    }
    template <typename... Events>
    void wait_for(Events... events) const {
        (events.wait(), ...);
    }

  private:
    std::size_t global() const { return s_.group_id * s_.local_range + s_.local_id; }
    detail::item_state s_;
};

}  // namespace sycl

#pragma GCC visibility pop
