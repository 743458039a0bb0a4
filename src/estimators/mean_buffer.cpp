// The exported mean estimators, buffer form: the weighted mean of each kept dimension.
#include <sycl/sycl.hpp>

#include "estimators/buffer_frame.hpp"
#include "estimators/mean.hpp"
#include "gpu/moments_gpu_impl_buffer.hpp"

namespace tavrel::qnd::stats {

// Both method values name this one function.
template <int M, typename T, layout L>
void mean(sycl::queue& queue, const dataset<L, sycl::buffer<T, 1>>& data, sycl::buffer<T, 1> mean) {
    detail::check_argument(mean.size() == 0, "mean", "mean array length is 0");
    detail::route_buffer(
        queue, "mean", QND_ON_CPU(detail::cpu::run_mean<T, L>(queue, data, mean)), [&] {
            const detail::gpu::mean_func<T, false> func{detail::gpu::output_array<T, false>(mean)};
            detail::gpu::submit_basic(queue, data, func);
        });
}

#define QND_MEAN_BUFFER(M, T, L)                                                     \
    template void mean<M, T, L>(sycl::queue&, const dataset<L, sycl::buffer<T, 1>>&, \
                                sycl::buffer<T, 1>);
QND_FOR_TYPES_AND_LAYOUTS(QND_MEAN_BUFFER, 1)
QND_FOR_TYPES_AND_LAYOUTS(QND_MEAN_BUFFER, 2)
#undef QND_MEAN_BUFFER

}  // namespace tavrel::qnd::stats
