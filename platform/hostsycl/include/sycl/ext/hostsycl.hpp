// hostsycl's own extensions: emulated GPUs of any size, allocation failures and observers for
// tests, and the reference counts of the native layer.
#pragma once
#pragma GCC visibility push(default)

#include <cstddef>
#include <functional>
#include <string>

#include <sycl/device.hpp>

namespace sycl {
namespace ext {
namespace hostsycl {

// A new emulated GPU device (is_gpu() true) whose max_work_group_size is the given value (>= 1).
// It belongs to the one platform but is not listed by get_devices().
sycl::device make_gpu_device(std::size_t max_work_group_size);

// The next `n` USM or buffer allocations fail (USM: null result; buffer: sycl::exception
// with errc::memory_allocation). 0 clears it.
void fail_next_allocations(std::size_t n);

// The next `n` buffer releases fail: the last buffer handle's destructor then reports
// "exception in ~buffer" with the error's text and stops on a failed assertion. 0 clears it.
void fail_next_buffer_releases(std::size_t n);

// Observers for tests; pass an empty std::function to remove. Called on the calling thread.
enum class usm_op { malloc_device, malloc_shared, malloc_host, free };
using usm_observer = std::function<void(usm_op op, void* ptr, std::size_t bytes)>;
void set_usm_observer(usm_observer observer);

struct launch_record {
    std::string kernel_name;
    std::size_t global_size;
    std::size_t local_size;
    std::size_t local_memory_bytes;
};
using launch_observer = std::function<void(const launch_record&)>;
void set_launch_observer(launch_observer observer);  // called once per parallel_for, at submit

// Native contexts and queues count native references. The SYCL object that made a native
// object holds one; make_context/make_queue with keep_ownership false take one over. A native
// object whose count reaches 0 can no longer be turned into a SYCL object (errc::invalid).
// Each returns the count after the call; an unknown handle throws errc::invalid.
std::size_t native_retain(void* handle);
std::size_t native_release(void* handle);
std::size_t native_reference_count(void* handle);

}  // namespace hostsycl
}  // namespace ext
}  // namespace sycl

#pragma GCC visibility pop
