// The exported raw_moment estimators, buffer form: the weighted mean and raw moments of orders 2
// to 4.
#include <sycl/sycl.hpp>

#include "estimators/buffer_frame.hpp"
#include "estimators/raw_moment.hpp"
#include "gpu/buffer_functors.hpp"
#include "gpu/moments_gpu_impl_buffer.hpp"

namespace tavrel::qnd::stats {

// Both method values name this one function. On the GPU, the mean is written whether it has
// elements or not; the runtime gives an empty buffer storage enough for that write.
template <int M, typename T, layout L>
void raw_moment(sycl::queue& queue,
                const dataset<L, sycl::buffer<T, 1>>& data,
                sycl::buffer<T, 1> mean,
                sycl::buffer<T, 1> r2,
                sycl::buffer<T, 1> r3,
                sycl::buffer<T, 1> r4) {
    detail::check_argument(mean.size() == 0 && r2.size() == 0 && r3.size() == 0 && r4.size() == 0,
                           "raw_moment", "all moments arrays length is 0");
    detail::route_buffer(
        queue, "raw_moment",
        QND_ON_CPU(detail::cpu::run_raw_moment<T, L>(queue, data, mean, r2, r3, r4)), [&] {
            sycl::buffer<T, 1> filler2{sycl::range<1>(1)};
            sycl::buffer<T, 1> filler3{sycl::range<1>(1)};
            sycl::buffer<T, 1> filler4{sycl::range<1>(1)};
            const auto func =
                detail::gpu::make_raw_func<detail::gpu::raw_moment_func_fast<T, false>>(
                    mean, r2, r3, r4, filler2, filler3, filler4);
            detail::gpu::submit_basic(queue, data, func);
        });
}

#define QND_RAW_SUM_BUFFER(M, T, L)                                                               \
    template void raw_moment<M, T, L>(sycl::queue&, const dataset<L, sycl::buffer<T, 1>>&,        \
                                      sycl::buffer<T, 1>, sycl::buffer<T, 1>, sycl::buffer<T, 1>, \
                                      sycl::buffer<T, 1>);
QND_FOR_TYPES_AND_LAYOUTS(QND_RAW_SUM_BUFFER, 1)
QND_FOR_TYPES_AND_LAYOUTS(QND_RAW_SUM_BUFFER, 2)
#undef QND_RAW_SUM_BUFFER

}  // namespace tavrel::qnd::stats
