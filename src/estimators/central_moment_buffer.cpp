// The exported central_moment estimators, buffer form: around the data's own mean, or around a
// caller's mean.
#include <sycl/sycl.hpp>

#include "estimators/buffer_frame.hpp"
#include "estimators/central_moment.hpp"
#include "gpu/buffer_functors.hpp"
#include "gpu/moments_gpu_impl_buffer.hpp"

namespace tavrel::qnd::stats {

// On the GPU only method value 1 is computed, from raw sums; c2 is written whether it has
// elements or not, and the runtime gives an empty buffer storage enough for that write.
template <int M, typename T, layout L>
void central_moment(sycl::queue& queue,
                    const dataset<L, sycl::buffer<T, 1>>& data,
                    sycl::buffer<T, 1> c2,
                    sycl::buffer<T, 1> c3,
                    sycl::buffer<T, 1> c4) {
    detail::check_argument(c2.size() == 0 && c3.size() == 0 && c4.size() == 0, "central_moment",
                           "all moments arrays length is 0");
    detail::route_buffer(
        queue, "central_moment",
        QND_ON_CPU(detail::cpu::run_central_moment<M, T, L>(queue, data, c2, c3, c4)), [&] {
            if constexpr (M == alternate) {
                throw unimplemented("stats", "central_moment", "for this method");
            } else {
                sycl::buffer<T, 1> filler3{sycl::range<1>(1)};
                sycl::buffer<T, 1> filler4{sycl::range<1>(1)};
                using func = detail::gpu::central_moment_func_fast<T, false>;
                detail::gpu::submit_basic(
                    queue, data,
                    detail::gpu::make_central_func<func>(c2, c3, c4, filler3, filler4));
            }
        });
}

// Central moments around the caller's mean.
template <int M, typename T, layout L>
void central_moment(sycl::queue& queue,
                    sycl::buffer<T, 1> mean,
                    const dataset<L, sycl::buffer<T, 1>>& data,
                    sycl::buffer<T, 1> c2,
                    sycl::buffer<T, 1> c3,
                    sycl::buffer<T, 1> c4) {
    detail::check_argument(c2.size() == 0 && c3.size() == 0 && c4.size() == 0, "central_moment",
                           "all moments arrays length is 0");
    detail::check_argument(mean.size() == 0, "central_moment", "mean array length is 0");
    detail::route_buffer(
        queue, "central_moment",
        QND_ON_CPU(detail::cpu::run_central_moment<T, L>(queue, mean, data, c2, c3, c4)), [&] {
            sycl::buffer<T, 1> filler3{sycl::range<1>(1)};
            sycl::buffer<T, 1> filler4{sycl::range<1>(1)};
            using func = detail::gpu::central_moment_func_user_mean<T, false>;
            detail::gpu::submit_basic(
                queue, mean, data,
                detail::gpu::make_central_func<func>(c2, c3, c4, filler3, filler4));
        });
}

#define QND_CENTRAL_MOMENT_BUFFER(M, T, L)                                                     \
    template void central_moment<M, T, L>(sycl::queue&, const dataset<L, sycl::buffer<T, 1>>&, \
                                          sycl::buffer<T, 1>, sycl::buffer<T, 1>,              \
                                          sycl::buffer<T, 1>);
#define QND_CENTRAL_MOMENT_BUFFER_USER_MEAN(M, T, L)                             \
    template void central_moment<M, T, L>(                                       \
        sycl::queue&, sycl::buffer<T, 1>, const dataset<L, sycl::buffer<T, 1>>&, \
        sycl::buffer<T, 1>, sycl::buffer<T, 1>, sycl::buffer<T, 1>);
QND_FOR_TYPES_AND_LAYOUTS(QND_CENTRAL_MOMENT_BUFFER, 1)
QND_FOR_TYPES_AND_LAYOUTS(QND_CENTRAL_MOMENT_BUFFER, 2)
QND_FOR_TYPES_AND_LAYOUTS(QND_CENTRAL_MOMENT_BUFFER_USER_MEAN, 1)
#undef QND_CENTRAL_MOMENT_BUFFER
#undef QND_CENTRAL_MOMENT_BUFFER_USER_MEAN

}  // namespace tavrel::qnd::stats
