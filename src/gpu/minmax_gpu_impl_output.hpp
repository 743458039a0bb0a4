// One extreme's output as an extreme functor holds it: the user's array, and in the buffer form
// also the local array through which a work-item hands its value to the group reduction.
#pragma once

#include <cstdint>

#include <sycl/sycl.hpp>

namespace tavrel::qnd::stats::detail::gpu {

template <typename T, bool Usm>
struct extreme_output;

// Pointer form: the user's array in device-accessible memory.
template <typename T>
struct extreme_output<T, true> {
    T* result;

    void bind(sycl::handler&, std::size_t) {}
    T offer(std::size_t, T value) const { return value; }
    void store(std::uint64_t d, T value) const { result[d] = value; }
};

// Buffer form: a placeholder write accessor on the user's buffer, and a local array of the
// launch's local size that is made when a command group binds the output. A work-item only
// reads back its own slot, so no barrier is needed.
template <typename T>
struct extreme_output<T, false> {
    using result_accessor = sycl::accessor<T, 1, sycl::access_mode::write, sycl::target::device>;

    explicit extreme_output(sycl::buffer<T, 1>& result) : result(result) {}

    void bind(sycl::handler& cgh, std::size_t local_size) {
        cgh.require(result);
        local = sycl::local_accessor<T, 1>(sycl::range<1>(local_size), cgh);
    }
    T offer(std::size_t l, T value) const {
        local[l] = value;
        return local[l];
    }
    void store(std::uint64_t d, T value) const { result[d] = value; }

    sycl::local_accessor<T, 1> local;
    result_accessor result;
};

}  // namespace tavrel::qnd::stats::detail::gpu
