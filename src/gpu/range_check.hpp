// The range test that every launch of the GPU engines passes before its kernel is declared.
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

}  // namespace tavrel::qnd::stats::detail::gpu
