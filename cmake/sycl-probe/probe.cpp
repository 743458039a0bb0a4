// What the configure step asks of an external SYCL implementation, one feature per build.
#include <sycl/sycl.hpp>

int main() {
    sycl::queue queue;
    int* value = sycl::malloc_shared<int>(1, queue);
#if defined(QND_PROBE_KERNEL)
    // An nd_range kernel with local memory, a barrier and a group reduction.
    queue
        .submit([&](sycl::handler& cgh) {
            sycl::local_accessor<int, 1> local(sycl::range<1>(2), cgh);
            cgh.parallel_for<class probe_kernel>(
                sycl::nd_range<1>(sycl::range<1>(2), sycl::range<1>(2)),
                [=](sycl::nd_item<1> item) {
                    local[item.get_local_id(0)] = 1;
                    sycl::group_barrier(item.get_group());
                    const int sum = sycl::reduce_over_group(
                        item.get_group(), int(local[1 - item.get_local_id(0)]), sycl::plus<int>());
                    if (item.get_local_id(0) == 0)
                        *value = sum;
                });
        })
        .wait();
#elif defined(QND_PROBE_HOST_TASK)
    queue.submit([&](sycl::handler& cgh) { cgh.host_task([=] { *value = 2; }); }).wait();
#endif
    const int result = *value;
    sycl::free(value, queue);
    return result == 2 ? 0 : 1;
}
