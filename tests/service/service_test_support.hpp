// What the GPU service tests share: death tests that re-run the program, the devices of hostsycl
// and their native handles.
#pragma once

#include <gtest/gtest.h>

#include <sycl/sycl.hpp>

namespace service_test {

inline constexpr sycl::backend native_backend = sycl::backend::ext_hostsycl_native;

// The runtime keeps threads: a death test's child starts the program afresh.
inline void use_threadsafe_death_tests() {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
}

inline sycl::device gpu() {
    return sycl::device(sycl::gpu_selector_v);
}

// A queue on the GPU in a context of its own, so that its native context is new to the caches.
inline sycl::queue fresh_gpu_queue() {
    const sycl::device device = gpu();
    return sycl::queue(sycl::context(device), device);
}

template <typename Object>
void* native(const Object& object) {
    return sycl::get_native<native_backend>(object);
}

// The message the threading layer prints for a missing entry, as a regular expression.
inline std::string missing_entry_message(const std::string& name) {
    return "qnd error: a runtime library this program needs has no entry '" + name + "'";
}

}  // namespace service_test
