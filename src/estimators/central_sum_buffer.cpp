// The exported central_sum estimators, buffer form: around the data's own mean, or around a
// caller's mean.
#include <sycl/sycl.hpp>

#include "estimators/buffer_frame.hpp"
#include "estimators/central_sum.hpp"
#include "gpu/buffer_functors.hpp"
#include "gpu/moments_gpu_impl_buffer.hpp"

namespace tavrel::qnd::stats {

// On the GPU only method value 1 is computed, from raw sums; cs2 is written whether it has
// elements or not, and the runtime gives an empty buffer storage enough for that write.
template <int M, typename T, layout L>
void central_sum(sycl::queue& queue,
                 const dataset<L, sycl::buffer<T, 1>>& data,
                 sycl::buffer<T, 1> cs2,
                 sycl::buffer<T, 1> cs3,
                 sycl::buffer<T, 1> cs4) {
    detail::check_argument(cs2.size() == 0 && cs3.size() == 0 && cs4.size() == 0, "central_sum",
                           "all sums arrays length is 0");
    detail::route_buffer(
        queue, "central_sum",
        QND_ON_CPU(detail::cpu::run_central_sum<M, T, L>(queue, data, cs2, cs3, cs4)), [&] {
            if constexpr (M == alternate) {
                throw unimplemented("stats", "central_sum", "for this method");
            } else {
                sycl::buffer<T, 1> filler3{sycl::range<1>(1)};
                sycl::buffer<T, 1> filler4{sycl::range<1>(1)};
                using func = detail::gpu::central_sum_func_fast<T, false>;
                detail::gpu::submit_basic(
                    queue, data,
                    detail::gpu::make_central_func<func>(cs2, cs3, cs4, filler3, filler4));
            }
        });
}

// Sums of powers of deviations from the caller's mean.
template <int M, typename T, layout L>
void central_sum(sycl::queue& queue,
                 sycl::buffer<T, 1> mean,
                 const dataset<L, sycl::buffer<T, 1>>& data,
                 sycl::buffer<T, 1> cs2,
                 sycl::buffer<T, 1> cs3,
                 sycl::buffer<T, 1> cs4) {
    detail::check_argument(cs2.size() == 0 && cs3.size() == 0 && cs4.size() == 0, "central_sum",
                           "all sums arrays length is 0");
    detail::check_argument(mean.size() == 0, "central_sum", "mean array length is 0");
    detail::route_buffer(
        queue, "central_sum",
        QND_ON_CPU(detail::cpu::run_central_sum<T, L>(queue, mean, data, cs2, cs3, cs4)), [&] {
            sycl::buffer<T, 1> filler3{sycl::range<1>(1)};
            sycl::buffer<T, 1> filler4{sycl::range<1>(1)};
            using func = detail::gpu::central_sum_func_user_mean<T, false>;
            detail::gpu::submit_basic(
                queue, mean, data,
                detail::gpu::make_central_func<func>(cs2, cs3, cs4, filler3, filler4));
        });
}

#define QND_CENTRAL_SUM_BUFFER(M, T, L)                                                     \
    template void central_sum<M, T, L>(sycl::queue&, const dataset<L, sycl::buffer<T, 1>>&, \
                                       sycl::buffer<T, 1>, sycl::buffer<T, 1>,              \
                                       sycl::buffer<T, 1>);
#define QND_CENTRAL_SUM_BUFFER_USER_MEAN(M, T, L)                                                 \
    template void central_sum<M, T, L>(sycl::queue&, sycl::buffer<T, 1>,                          \
                                       const dataset<L, sycl::buffer<T, 1>>&, sycl::buffer<T, 1>, \
                                       sycl::buffer<T, 1>, sycl::buffer<T, 1>);
QND_FOR_TYPES_AND_LAYOUTS(QND_CENTRAL_SUM_BUFFER, 1)
QND_FOR_TYPES_AND_LAYOUTS(QND_CENTRAL_SUM_BUFFER, 2)
QND_FOR_TYPES_AND_LAYOUTS(QND_CENTRAL_SUM_BUFFER_USER_MEAN, 1)
#undef QND_CENTRAL_SUM_BUFFER
#undef QND_CENTRAL_SUM_BUFFER_USER_MEAN

}  // namespace tavrel::qnd::stats
