// One-dimensional buffers: runtime-owned storage whose last handle waits for its commands.
#pragma once
#pragma GCC visibility push(default)

#include <cstddef>
#include <memory>
#include <type_traits>

#include <sycl/detail/runtime.hpp>
#include <sycl/types.hpp>

namespace sycl {

class handler;
template <typename DataT, int Dims, access_mode Mode, target Tgt, access::placeholder P>
class accessor;

template <typename T>
using buffer_allocator = std::allocator<T>;

namespace detail {
// The buffer's storage, shared by every copy of the buffer. Destroying the last copy waits for
// the commands that use the storage and writes it back to the host data if asked.
struct buffer_owner {
    std::shared_ptr<buffer_impl> impl;
    explicit buffer_owner(std::shared_ptr<buffer_impl> i) : impl(std::move(i)) {}
    buffer_owner(const buffer_owner&) = delete;
    buffer_owner& operator=(const buffer_owner&) = delete;
    ~buffer_owner() { release_buffer(impl); }
};
struct buffer_access;
}  // namespace detail

template <typename T,
          int Dimensions = 1,
          typename AllocatorT = buffer_allocator<std::remove_const_t<T>>>
class buffer {
    static_assert(Dimensions == 1, "only one-dimensional buffers are supported");

  public:
    using value_type = T;
    using reference = T&;
    using const_reference = const T&;
    using allocator_type = AllocatorT;

    // Storage of `r` elements, uninitialised, with nothing to write back.
    explicit buffer(const range<1>& r, const property_list& = {})
        : owner_(make(r.size(), nullptr, false)), count_(r.size()) {}
    // Storage initialised from `host_data`, written back there when the last copy is destroyed.
    buffer(T* host_data, const range<1>& r, const property_list& = {})
        : owner_(make(r.size(), host_data, !std::is_const_v<T>)), count_(r.size()) {}
    // Storage initialised from read-only host data, never written back.
    template <typename U = T, typename = std::enable_if_t<!std::is_const_v<U>>>
    buffer(const U* host_data, const range<1>& r, const property_list& = {})
        : owner_(make(r.size(), const_cast<U*>(host_data), false)), count_(r.size()) {}

    range<1> get_range() const { return range<1>(count_); }
    std::size_t size() const noexcept { return count_; }
    std::size_t get_count() const { return count_; }
    std::size_t byte_size() const noexcept { return count_ * sizeof(T); }
    std::size_t get_size() const { return byte_size(); }

    // Where the data go when the last copy is destroyed; null writes nothing back.
    void set_final_data(T* final_data) {
        detail::set_buffer_write_back(*owner_->impl, final_data, final_data != nullptr);
    }
    void set_final_data(std::nullptr_t) {
        detail::set_buffer_write_back(*owner_->impl, nullptr, false);
    }
    void set_write_back(bool flag = true) {
        detail::set_buffer_write_back(*owner_->impl, nullptr, flag);
    }

    template <access_mode Mode = access_mode::read_write, target Tgt = target::device>
    accessor<T, 1, Mode, Tgt, access::placeholder::false_t> get_access(handler& cgh);

    friend bool operator==(const buffer& a, const buffer& b) { return a.owner_ == b.owner_; }
    friend bool operator!=(const buffer& a, const buffer& b) { return a.owner_ != b.owner_; }

  private:
    friend struct detail::buffer_access;
    static std::shared_ptr<detail::buffer_owner> make(std::size_t n, T* host, bool write_back) {
        return std::make_shared<detail::buffer_owner>(detail::make_buffer(
            n, sizeof(T), const_cast<std::remove_const_t<T>*>(host), write_back));
    }

    std::shared_ptr<detail::buffer_owner> owner_;
    std::size_t count_;
};

template <typename T>
buffer(T*, const range<1>&, const property_list& = {}) -> buffer<T, 1>;

namespace detail {
struct buffer_access {
    template <typename T, int D, typename A>
    static const std::shared_ptr<buffer_impl>& impl(const buffer<T, D, A>& b) {
        return b.owner_->impl;
    }
};
}  // namespace detail

}  // namespace sycl

#pragma GCC visibility pop
