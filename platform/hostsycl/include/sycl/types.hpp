// Index spaces (range, id, nd_range), property lists and the enumerations shared by all parts.
#pragma once
#pragma GCC visibility push(default)

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <type_traits>
#include <typeindex>
#include <vector>

namespace sycl {

// Only one-dimensional index spaces are provided.
template <int Dimensions = 1>
class range {
    static_assert(Dimensions == 1, "only one-dimensional ranges are supported");

  public:
    range() = default;
    range(std::size_t n) : n_(n) {}  // implicit, as a one-dimensional range converts
    std::size_t get(int) const { return n_; }
    std::size_t& operator[](int) { return n_; }
    std::size_t operator[](int) const { return n_; }
    std::size_t size() const { return n_; }
    friend bool operator==(const range& a, const range& b) { return a.n_ == b.n_; }
    friend bool operator!=(const range& a, const range& b) { return a.n_ != b.n_; }

  private:
    std::size_t n_ = 0;
};

template <int Dimensions = 1>
class id {
    static_assert(Dimensions == 1, "only one-dimensional ids are supported");

  public:
    id() = default;
    id(std::size_t i) : i_(i) {}  // implicit, as a one-dimensional id converts to size_t
    std::size_t get(int) const { return i_; }
    std::size_t& operator[](int) { return i_; }
    std::size_t operator[](int) const { return i_; }
    operator std::size_t() const { return i_; }

  private:
    std::size_t i_ = 0;
};

range(std::size_t)->range<1>;
id(std::size_t)->id<1>;

template <int Dimensions = 1>
class nd_range {
    static_assert(Dimensions == 1, "only one-dimensional nd_ranges are supported");

  public:
    nd_range(range<1> global_size, range<1> local_size, id<1> offset = id<1>())
        : global_(global_size), local_(local_size), offset_(offset) {}
    range<1> get_global_range() const { return global_; }
    range<1> get_local_range() const { return local_; }
    range<1> get_group_range() const {
        return range<1>(local_.size() == 0 ? 0 : global_.size() / local_.size());
    }
    id<1> get_offset() const { return offset_; }

  private:
    range<1> global_;
    range<1> local_;
    id<1> offset_;
};

// Backends, by the numbers that native interoperation uses.
enum class backend : int {
    opencl = 1,
    ext_hostsycl_native = 2,  // hostsycl's own native layer
};

enum class memory_scope : int {
    work_item = 0,
    sub_group = 1,
    work_group = 2,
    device = 3,
    system = 4,
};
inline constexpr memory_scope memory_scope_work_item = memory_scope::work_item;
inline constexpr memory_scope memory_scope_sub_group = memory_scope::sub_group;
inline constexpr memory_scope memory_scope_work_group = memory_scope::work_group;
inline constexpr memory_scope memory_scope_device = memory_scope::device;
inline constexpr memory_scope memory_scope_system = memory_scope::system;

namespace access {
enum class mode : int {
    read = 1024,
    write = 1025,
    read_write = 1026,
    discard_write = 1027,
    discard_read_write = 1028,
    atomic = 1029,
};
enum class target : int {
    device = 2014,
    global_buffer = device,
    constant_buffer = 2015,
    local = 2016,
    host_task = 2017,
    host_buffer = 2018,
};
enum class placeholder : int { false_t = 0, true_t = 1 };
enum class address_space : int {
    private_space = 0,
    global_space = 1,
    constant_space = 2,
    local_space = 3,
    generic_space = 4,
};
enum class decorated : int { no = 0, yes = 1, legacy = 2 };
enum class fence_space : int { local_space = 0, global_space = 1, global_and_local = 2 };
}  // namespace access
using access_mode = access::mode;
using target = access::target;

namespace property {
// Properties are recorded by type; hostsycl honours in_order (it is always in order) and no_init.
namespace queue {
struct in_order {};
struct enable_profiling {};
}  // namespace queue
namespace buffer {
struct use_host_ptr {};
}  // namespace buffer
struct no_init {};
}  // namespace property
inline constexpr property::no_init no_init{};

template <typename T>
struct is_property : std::false_type {};
template <>
struct is_property<property::queue::in_order> : std::true_type {};
template <>
struct is_property<property::queue::enable_profiling> : std::true_type {};
template <>
struct is_property<property::buffer::use_host_ptr> : std::true_type {};
template <>
struct is_property<property::no_init> : std::true_type {};

// A set of properties, each held by its type.
class property_list {
  public:
    property_list() = default;
    template <
        typename... Props,
        typename = std::enable_if_t<(sizeof...(Props) > 0) && (is_property<Props>::value && ...)>>
    property_list(Props... props) : types_{std::type_index(typeid(props))...} {}
    template <typename Prop>
    bool has_property() const {
        for (const auto& t : types_)
            if (t == std::type_index(typeid(Prop)))
                return true;
        return false;
    }

  private:
    std::vector<std::type_index> types_;
};

}  // namespace sycl

#pragma GCC visibility pop
