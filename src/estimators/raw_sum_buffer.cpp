// The exported raw_sum estimators, buffer form: weighted power sums of orders 1 to 4.
#include <sycl/sycl.hpp>

#include "estimators/buffer_frame.hpp"
#include "estimators/raw_sum.hpp"
#include "gpu/buffer_functors.hpp"
#include "gpu/moments_gpu_impl_buffer.hpp"

namespace tavrel::qnd::stats {

// Both method values name this one function. On the GPU, s1 is written whether it has elements
// or not; the runtime gives an empty buffer storage enough for that write.
template <int M, typename T, layout L>
void raw_sum(sycl::queue& queue,
             const dataset<L, sycl::buffer<T, 1>>& data,
             sycl::buffer<T, 1> s1,
             sycl::buffer<T, 1> s2,
             sycl::buffer<T, 1> s3,
             sycl::buffer<T, 1> s4) {
    detail::check_argument(s1.size() == 0 && s2.size() == 0 && s3.size() == 0 && s4.size() == 0,
                           "raw_sum", "all sums arrays length is 0");
    detail::route_buffer(
        queue, "raw_sum", QND_ON_CPU(detail::cpu::run_raw_sum<T, L>(queue, data, s1, s2, s3, s4)),
        [&] {
            sycl::buffer<T, 1> filler2{sycl::range<1>(1)};
            sycl::buffer<T, 1> filler3{sycl::range<1>(1)};
            sycl::buffer<T, 1> filler4{sycl::range<1>(1)};
            const auto func = detail::gpu::make_raw_func<detail::gpu::raw_sum_func_fast<T, false>>(
                s1, s2, s3, s4, filler2, filler3, filler4);
            detail::gpu::submit_basic(queue, data, func);
        });
}

#define QND_RAW_SUM_BUFFER(M, T, L)                                                            \
    template void raw_sum<M, T, L>(sycl::queue&, const dataset<L, sycl::buffer<T, 1>>&,        \
                                   sycl::buffer<T, 1>, sycl::buffer<T, 1>, sycl::buffer<T, 1>, \
                                   sycl::buffer<T, 1>);
QND_FOR_TYPES_AND_LAYOUTS(QND_RAW_SUM_BUFFER, 1)
QND_FOR_TYPES_AND_LAYOUTS(QND_RAW_SUM_BUFFER, 2)
#undef QND_RAW_SUM_BUFFER

}  // namespace tavrel::qnd::stats
