// The binary operations of group reductions: plus, multiplies, minimum, maximum.
#pragma once
#pragma GCC visibility push(default)

namespace sycl {

template <typename T = void>
struct plus {
    T operator()(const T& x, const T& y) const { return x + y; }
};
template <typename T = void>
struct multiplies {
    T operator()(const T& x, const T& y) const { return x * y; }
};
// Ordered comparisons: with a NaN on either side the comparison is false and the second
// operand is the result.
template <typename T = void>
struct minimum {
    T operator()(const T& x, const T& y) const { return (x < y) ? x : y; }
};
template <typename T = void>
struct maximum {
    T operator()(const T& x, const T& y) const { return (x > y) ? x : y; }
};

template <>
struct plus<void> {
    template <typename T>
    T operator()(const T& x, const T& y) const {
        return x + y;
    }
};
template <>
struct multiplies<void> {
    template <typename T>
    T operator()(const T& x, const T& y) const {
        return x * y;
    }
};
template <>
struct minimum<void> {
    template <typename T>
    T operator()(const T& x, const T& y) const {
        return (x < y) ? x : y;
    }
};
template <>
struct maximum<void> {
    template <typename T>
    T operator()(const T& x, const T& y) const {
        return (x > y) ? x : y;
    }
};

}  // namespace sycl

#pragma GCC visibility pop
