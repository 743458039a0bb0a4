// Address-space pointers (multi_ptr and its aliases); on the host every space is ordinary memory.
#pragma once
#pragma GCC visibility push(default)

#include <cstddef>
#include <type_traits>

#include <sycl/types.hpp>

namespace sycl {

template <typename T,
          access::address_space Space,
          access::decorated Decorated = access::decorated::legacy>
class multi_ptr {
  public:
    using element_type = T;
    using value_type = std::remove_cv_t<T>;
    using pointer = T*;
    using reference = T&;
    using difference_type = std::ptrdiff_t;
    static constexpr access::address_space address_space = Space;

    multi_ptr() = default;
    multi_ptr(std::nullptr_t) {}
    multi_ptr(T* p) : p_(p) {}
    template <typename U,
              access::decorated D,
              typename = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    multi_ptr(const multi_ptr<U, Space, D>& other) : p_(other.get()) {}

    T* get() const { return p_; }
    T* get_raw() const { return p_; }
    T* get_decorated() const { return p_; }
    operator T*() const { return p_; }

    T& operator*() const { return *p_; }
    T* operator->() const { return p_; }
    T& operator[](std::ptrdiff_t i) const { return p_[i]; }
    multi_ptr& operator++() {
        ++p_;
        return *this;
    }
    multi_ptr operator++(int) {
        multi_ptr t = *this;
        ++p_;
        return t;
    }
    multi_ptr& operator--() {
        --p_;
        return *this;
    }
    multi_ptr operator--(int) {
        multi_ptr t = *this;
        --p_;
        return t;
    }
    multi_ptr& operator+=(std::ptrdiff_t n) {
        p_ += n;
        return *this;
    }
    multi_ptr& operator-=(std::ptrdiff_t n) {
        p_ -= n;
        return *this;
    }
    friend multi_ptr operator+(multi_ptr a, std::ptrdiff_t n) { return multi_ptr(a.p_ + n); }
    friend multi_ptr operator-(multi_ptr a, std::ptrdiff_t n) { return multi_ptr(a.p_ - n); }
    friend std::ptrdiff_t operator-(multi_ptr a, multi_ptr b) { return a.p_ - b.p_; }

  private:
    T* p_ = nullptr;
};

template <typename T, access::decorated D = access::decorated::legacy>
using global_ptr = multi_ptr<T, access::address_space::global_space, D>;
template <typename T, access::decorated D = access::decorated::legacy>
using local_ptr = multi_ptr<T, access::address_space::local_space, D>;
template <typename T, access::decorated D = access::decorated::legacy>
using private_ptr = multi_ptr<T, access::address_space::private_space, D>;
template <typename T>
using decorated_global_ptr = global_ptr<T, access::decorated::yes>;
template <typename T>
using decorated_local_ptr = local_ptr<T, access::decorated::yes>;
template <typename T>
using raw_global_ptr = global_ptr<T, access::decorated::no>;
template <typename T>
using raw_local_ptr = local_ptr<T, access::decorated::no>;

template <access::address_space Space, access::decorated Decorated, typename T>
multi_ptr<T, Space, Decorated> address_space_cast(T* p) {
    return multi_ptr<T, Space, Decorated>(p);
}

}  // namespace sycl

#pragma GCC visibility pop
