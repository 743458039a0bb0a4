// The exported variation estimators, buffer form: around the data's own mean, or around a
// caller's mean.
#include <sycl/sycl.hpp>

#include "estimators/buffer_frame.hpp"
#include "estimators/variation.hpp"
#include "gpu/buffer_functors.hpp"
#include "gpu/moments_gpu_impl_buffer.hpp"

namespace tavrel::qnd::stats {

// Both method values name this one function.
template <int M, typename T, layout L>
void variation(sycl::queue& queue,
               const dataset<L, sycl::buffer<T, 1>>& data,
               sycl::buffer<T, 1> variation) {
    detail::check_argument(variation.size() == 0, "variation", "variation array length is 0");
    detail::route_buffer(queue, "variation",
                         QND_ON_CPU(detail::cpu::run_variation<T, L>(queue, data, variation)), [&] {
                             using func = detail::gpu::variation_func_fast<T, false>;
                             detail::gpu::submit_basic(
                                 queue, data, detail::gpu::make_single_func<func>(variation));
                         });
}

// Around the caller's mean; the output is checked before the mean.
template <int M, typename T, layout L>
void variation(sycl::queue& queue,
               sycl::buffer<T, 1> mean,
               const dataset<L, sycl::buffer<T, 1>>& data,
               sycl::buffer<T, 1> variation) {
    detail::check_argument(variation.size() == 0, "variation", "variation array length is 0");
    detail::check_argument(mean.size() == 0, "variation", "mean array length is 0");
    detail::route_buffer(queue, "variation",
                         QND_ON_CPU(detail::cpu::run_variation<T, L>(queue, mean, data, variation)),
                         [&] {
                             using func = detail::gpu::variation_func_user_mean<T, false>;
                             detail::gpu::submit_basic(
                                 queue, mean, data, detail::gpu::make_single_func<func>(variation));
                         });
}

#define QND_VARIATION_BUFFER(M, T, L)                                                     \
    template void variation<M, T, L>(sycl::queue&, const dataset<L, sycl::buffer<T, 1>>&, \
                                     sycl::buffer<T, 1>);
#define QND_VARIATION_BUFFER_USER_MEAN(M, T, L)                        \
    template void variation<M, T, L>(sycl::queue&, sycl::buffer<T, 1>, \
                                     const dataset<L, sycl::buffer<T, 1>>&, sycl::buffer<T, 1>);
QND_FOR_TYPES_AND_LAYOUTS(QND_VARIATION_BUFFER, 1)
QND_FOR_TYPES_AND_LAYOUTS(QND_VARIATION_BUFFER, 2)
QND_FOR_TYPES_AND_LAYOUTS(QND_VARIATION_BUFFER_USER_MEAN, 1)
#undef QND_VARIATION_BUFFER
#undef QND_VARIATION_BUFFER_USER_MEAN

}  // namespace tavrel::qnd::stats
