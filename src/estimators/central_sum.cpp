// The exported central_sum estimators, pointer form: around the data's own mean, or around a
// caller's mean.
#include "estimators/central_sum.hpp"

#include "estimators/frame.hpp"
#include "gpu/moments_gpu_impl.hpp"

namespace tavrel::qnd::stats {

// On the GPU only method value 1 is computed, from raw sums; cs2 is written whether given or
// not.
template <int M, typename T, layout L>
sycl::event central_sum(sycl::queue& queue,
                        const dataset<L, T*>& data,
                        T* cs2,
                        T* cs3,
                        T* cs4,
                        const std::vector<sycl::event>& dependencies) {
    detail::check_argument(!cs2 && !cs3 && !cs4, "central_sum", "all sums are nullptr");
    return detail::route_usm(
        queue, "central_sum",
        QND_ON_CPU(detail::cpu::run_central_sum<M, T, L>(queue, data, cs2, cs3, cs4, dependencies)),
        [&]() -> sycl::event {
            if constexpr (M == alternate) {
                throw unimplemented("stats", "central_sum", "for this method");
            } else {
                using func = detail::gpu::central_sum_func_fast<T, true>;
                return detail::gpu::submit_basic_usm(
                    queue, data, detail::gpu::make_central_func<func>(cs2, cs3, cs4), dependencies);
            }
        });
}

// Sums of powers of deviations from the caller's mean, which must be device-accessible.
template <int M, typename T, layout L>
sycl::event central_sum(sycl::queue& queue,
                        T* mean,
                        const dataset<L, T*>& data,
                        T* cs2,
                        T* cs3,
                        T* cs4,
                        const std::vector<sycl::event>& dependencies) {
    detail::check_argument(!cs2 && !cs3 && !cs4, "central_sum", "all sums are nullptr");
    detail::check_argument(mean == nullptr, "central_sum", "mean is nullptr");
    return detail::route_usm(queue, "central_sum",
                             QND_ON_CPU(detail::cpu::run_central_sum<T, L>(queue, mean, data, cs2,
                                                                           cs3, cs4, dependencies)),
                             [&] {
                                 using func = detail::gpu::central_sum_func_user_mean<T, true>;
                                 return detail::gpu::submit_basic_usm(
                                     queue, mean, data,
                                     detail::gpu::make_central_func<func>(cs2, cs3, cs4),
                                     dependencies);
                             });
}

#define QND_CENTRAL_SUM(M, T, L)                                                               \
    template sycl::event central_sum<M, T, L>(sycl::queue&, const dataset<L, T*>&, T*, T*, T*, \
                                              const std::vector<sycl::event>&);
#define QND_CENTRAL_SUM_USER_MEAN(M, T, L)                                                         \
    template sycl::event central_sum<M, T, L>(sycl::queue&, T*, const dataset<L, T*>&, T*, T*, T*, \
                                              const std::vector<sycl::event>&);
QND_FOR_TYPES_AND_LAYOUTS(QND_CENTRAL_SUM, 1)
QND_FOR_TYPES_AND_LAYOUTS(QND_CENTRAL_SUM, 2)
QND_FOR_TYPES_AND_LAYOUTS(QND_CENTRAL_SUM_USER_MEAN, 1)

}  // namespace tavrel::qnd::stats
