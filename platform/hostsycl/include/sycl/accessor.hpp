// Accessors: buffer accessors (device target, placeholder or bound), host accessors and
// local accessors.
#pragma once
#pragma GCC visibility push(default)

#include <cstddef>
#include <memory>
#include <type_traits>

#include <sycl/buffer.hpp>
#include <sycl/detail/runtime.hpp>
#include <sycl/multi_ptr.hpp>
#include <sycl/types.hpp>

namespace sycl {

class handler;

namespace detail {
// Registers a buffer on the command group being built (accessor construction and require).
void handler_require(handler& cgh, const std::shared_ptr<buffer_impl>& buffer);
// Reserves local memory on the command group's launch: `bytes` as asked, but never less than
// one element. Returns the byte offset in the group's arena.
std::size_t handler_reserve_local(handler& cgh,
                                  std::size_t bytes,
                                  std::size_t element_bytes,
                                  std::size_t align);
// Blocks until every command that uses the buffer is done.
void wait_buffer(const buffer_impl& buffer);
}  // namespace detail

template <access_mode Mode>
struct mode_tag_t {
    explicit mode_tag_t() = default;
};
inline constexpr mode_tag_t<access_mode::read> read_only{};
inline constexpr mode_tag_t<access_mode::write> write_only{};
inline constexpr mode_tag_t<access_mode::read_write> read_write{};

template <typename DataT,
          int Dimensions = 1,
          access_mode Mode = (std::is_const_v<DataT> ? access_mode::read : access_mode::read_write),
          target Tgt = target::device,
          access::placeholder IsPlaceholder = access::placeholder::false_t>
class accessor {
    static_assert(Dimensions == 1, "only one-dimensional accessors are supported");
    static_assert(Tgt == target::device || Tgt == target::host_task,
                  "accessors target the device (or a host task)");

  public:
    using value_type = std::conditional_t<Mode == access_mode::read, const DataT, DataT>;
    using reference = value_type&;
    using const_reference = const DataT&;
    using element_type = value_type;
    using buffer_type = buffer<std::remove_const_t<DataT>, 1>;

    accessor() = default;

    // A placeholder: registered on a command group later by handler::require.
    template <typename T, typename A>
    accessor(buffer<T, 1, A>& buf, const property_list& = {})
        : impl_(detail::buffer_access::impl(buf)), count_(buf.size()), placeholder_(true) {
        bind();
    }
    template <typename T, typename A, access_mode M>
    accessor(buffer<T, 1, A>& buf, mode_tag_t<M>, const property_list& = {}) : accessor(buf) {}
    // Bound to the command group `cgh`.
    template <typename T, typename A>
    accessor(buffer<T, 1, A>& buf, handler& cgh, const property_list& = {})
        : impl_(detail::buffer_access::impl(buf)), count_(buf.size()), placeholder_(false) {
        bind();
        detail::handler_require(cgh, impl_);
    }
    template <typename T, typename A, access_mode M>
    accessor(buffer<T, 1, A>& buf, handler& cgh, mode_tag_t<M>, const property_list& = {})
        : accessor(buf, cgh) {}

    // Element `i`; a buffer of size 0 still has one private element behind index 0.
    reference operator[](id<1> i) const { return data_[static_cast<std::size_t>(i)]; }

    std::size_t size() const noexcept { return count_; }
    std::size_t get_count() const { return count_; }
    std::size_t byte_size() const noexcept { return count_ * sizeof(DataT); }
    range<1> get_range() const { return range<1>(count_); }
    id<1> get_offset() const { return id<1>(0); }
    bool is_placeholder() const noexcept { return placeholder_; }
    bool empty() const noexcept { return count_ == 0; }

    global_ptr<value_type> get_pointer() const noexcept { return global_ptr<value_type>(data_); }
    template <access::decorated D>
    multi_ptr<value_type, access::address_space::global_space, D> get_multi_ptr() const noexcept {
        return multi_ptr<value_type, access::address_space::global_space, D>(data_);
    }
    value_type* begin() const noexcept { return data_; }
    value_type* end() const noexcept { return data_ + count_; }

    // The runtime's record of the buffer, for handler::require.
    const std::shared_ptr<detail::buffer_impl>& buffer_record() const { return impl_; }

  private:
    void bind() { data_ = static_cast<value_type*>(detail::buffer_data(*impl_)); }

    std::shared_ptr<detail::buffer_impl> impl_;
    value_type* data_ = nullptr;
    std::size_t count_ = 0;
    bool placeholder_ = true;
};

template <typename T, typename A>
accessor(buffer<T, 1, A>&) -> accessor<T, 1, access_mode::read_write, target::device>;
template <typename T, typename A, access_mode M>
accessor(buffer<T, 1, A>&, mode_tag_t<M>) -> accessor<T, 1, M, target::device>;
template <typename T, typename A>
accessor(buffer<T, 1, A>&, handler&) -> accessor<T, 1, access_mode::read_write, target::device>;
template <typename T, typename A, access_mode M>
accessor(buffer<T, 1, A>&, handler&, mode_tag_t<M>) -> accessor<T, 1, M, target::device>;
template <typename T, typename A, access_mode M>
accessor(buffer<T, 1, A>&, mode_tag_t<M>, const property_list&)
    -> accessor<T, 1, M, target::device>;
template <typename T, typename A, access_mode M>
accessor(buffer<T, 1, A>&, handler&, mode_tag_t<M>, const property_list&)
    -> accessor<T, 1, M, target::device>;

template <typename T, int D, typename A>
template <access_mode Mode, target Tgt>
accessor<T, 1, Mode, Tgt, access::placeholder::false_t> buffer<T, D, A>::get_access(handler& cgh) {
    return accessor<T, 1, Mode, Tgt, access::placeholder::false_t>(*this, cgh);
}

// Host access to a buffer: construction waits for every command that uses the buffer.
template <typename DataT,
          int Dimensions = 1,
          access_mode Mode = (std::is_const_v<DataT> ? access_mode::read : access_mode::read_write)>
class host_accessor {
    static_assert(Dimensions == 1, "only one-dimensional accessors are supported");

  public:
    using value_type = std::conditional_t<Mode == access_mode::read, const DataT, DataT>;
    using reference = value_type&;

    template <typename T, typename A>
    explicit host_accessor(buffer<T, 1, A>& buf, const property_list& = {})
        : impl_(detail::buffer_access::impl(buf)), count_(buf.size()) {
        detail::wait_buffer(*impl_);
        data_ = static_cast<value_type*>(detail::buffer_data(*impl_));
    }
    template <typename T, typename A, access_mode M>
    host_accessor(buffer<T, 1, A>& buf, mode_tag_t<M>, const property_list& = {})
        : host_accessor(buf) {}

    reference operator[](id<1> i) const { return data_[static_cast<std::size_t>(i)]; }
    std::size_t size() const noexcept { return count_; }
    value_type* get_pointer() const noexcept { return data_; }
    value_type* begin() const noexcept { return data_; }
    value_type* end() const noexcept { return data_ + count_; }

  private:
    std::shared_ptr<detail::buffer_impl> impl_;
    value_type* data_ = nullptr;
    std::size_t count_ = 0;
};

template <typename T, typename A>
host_accessor(buffer<T, 1, A>&) -> host_accessor<T, 1, access_mode::read_write>;
template <typename T, typename A, access_mode M>
host_accessor(buffer<T, 1, A>&, mode_tag_t<M>) -> host_accessor<T, 1, M>;

// Work-group local memory: each group of a launch sees its own copy, placed in the group's arena.
template <typename DataT, int Dimensions = 1>
class local_accessor {
    static_assert(Dimensions == 1, "only one-dimensional local accessors are supported");

  public:
    using value_type = DataT;
    using reference = DataT&;
    using element_type = DataT;

    local_accessor() = default;
    // `r` elements per group; an accessor of 0 elements still has one private element.
    local_accessor(range<1> r, handler& cgh)
        : offset_(detail::handler_reserve_local(
              cgh, r.size() * sizeof(DataT), sizeof(DataT), alignof(DataT))),
          count_(r.size()) {}

    reference operator[](id<1> i) const { return data()[static_cast<std::size_t>(i)]; }
    std::size_t size() const noexcept { return count_; }
    std::size_t get_count() const { return count_; }
    std::size_t byte_size() const noexcept { return count_ * sizeof(DataT); }
    range<1> get_range() const { return range<1>(count_); }
    bool empty() const noexcept { return count_ == 0; }

    local_ptr<DataT> get_pointer() const noexcept { return local_ptr<DataT>(data()); }
    template <access::decorated D>
    multi_ptr<DataT, access::address_space::local_space, D> get_multi_ptr() const noexcept {
        return multi_ptr<DataT, access::address_space::local_space, D>(data());
    }

  private:
    DataT* data() const noexcept {
        return reinterpret_cast<DataT*>(detail::local_arena_base + offset_);
    }
    std::size_t offset_ = 0;
    std::size_t count_ = 0;
};

}  // namespace sycl

#pragma GCC visibility pop
