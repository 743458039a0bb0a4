// The work-group size of a call of the GPU engines, and the range tests that every launch passes
// before its kernel is declared.
#pragma once

#include <cstdint>

#include <sycl/sycl.hpp>

namespace tavrel::qnd::stats::detail::gpu {

// The kernels compute ids and ranges in 31 bits. A launch whose global or local size, offset, or
// offset plus global size reaches 2^31 is refused with errc::nd_range before anything runs.
inline void check_launch_range(std::uint64_t global_size,
                               std::uint64_t local_size,
                               std::uint64_t offset = 0) {
    constexpr std::uint64_t limit = std::uint64_t{1} << 31;
    static const char* const range_words =
        "Provided range is out of integer limits. Pass `-fno-sycl-id-queries-fit-in-int' to "
        "disable range check.";
    if (!(global_size < limit && local_size < limit)) {
        throw sycl::exception(sycl::make_error_code(sycl::errc::nd_range), range_words);
    }
    if ((offset & ~(limit - 1)) != 0) {
        throw sycl::exception(sycl::make_error_code(sycl::errc::nd_range),
                              "Provided offset is out of integer limits. Pass "
                              "`-fno-sycl-id-queries-fit-in-int' to disable offset check.");
    }
    if (!(offset + global_size < limit)) {
        throw sycl::exception(sycl::make_error_code(sycl::errc::nd_range), range_words);
    }
}

// The work-group size that a call plans its launches with: the device's maximum, its only tuning
// input.
inline std::uint64_t device_group_size(const sycl::queue& queue) {
    return queue.get_device().get_info<sycl::info::device::max_work_group_size>();
}

// A tree of work-groups of one item never shrinks and a size of zero divides by zero: a device
// that offers such groups is refused before anything is allocated or launched.
inline void check_group_size(std::uint64_t group_size, std::uint64_t n_observations) {
    if (group_size == 0 || (group_size == 1 && n_observations > 1)) {
        throw sycl::exception(sycl::make_error_code(sycl::errc::nd_range),
                              "The device's maximum work-group size is too small to reduce more "
                              "than one observation.");
    }
}

}  // namespace tavrel::qnd::stats::detail::gpu
