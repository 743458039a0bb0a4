// A library that instantiates one kernel, built with hidden visibility like the statistics
// library, so that the registry test can load it and find its kernel.
#include <sycl/sycl.hpp>

namespace probe {
template <typename T>
class registry_probe_kernel;
}  // namespace probe

// Sums 1..n on the device and returns the sum; the kernel is instantiated only here.
extern "C" __attribute__((visibility("default"))) long long hostsycl_probe_sum(std::size_t n) {
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(8)};
    long long* out = sycl::malloc_shared<long long>(1, q);
    q.submit([&](sycl::handler& cgh) {
         cgh.parallel_for<probe::registry_probe_kernel<long long>>(
             sycl::nd_range<1>(n, n), [=](sycl::nd_item<1> it) {
                 const long long v = static_cast<long long>(it.get_global_id(0)) + 1;
                 const long long s = sycl::reduce_over_group(it.get_group(), v, sycl::plus<>());
                 if (it.get_local_id(0) == 0)
                     *out = s;
             });
     }).wait();
    const long long result = *out;
    sycl::free(out, q);
    return result;
}

// Throws a sycl::exception from inside this hidden-visibility library, so that the caller can
// check that it catches it by type.
extern "C" __attribute__((visibility("default"))) void hostsycl_probe_throw() {
    throw sycl::exception(sycl::errc::kernel_argument, "thrown inside the probe library");
}
