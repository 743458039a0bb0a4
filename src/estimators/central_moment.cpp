// The exported central_moment estimators, pointer form: around the data's own mean, or around a
// caller's mean.
#include "estimators/central_moment.hpp"

#include "estimators/frame.hpp"
#include "gpu/moments_gpu_impl.hpp"

namespace tavrel::qnd::stats {

// On the GPU only method value 1 is computed, from raw sums; c2 is written whether given or
// not.
template <int M, typename T, layout L>
sycl::event central_moment(sycl::queue& queue,
                           const dataset<L, T*>& data,
                           T* c2,
                           T* c3,
                           T* c4,
                           const std::vector<sycl::event>& dependencies) {
    detail::check_argument(!c2 && !c3 && !c4, "central_moment", "all moments are nullptr");
    return detail::route_usm(
        queue, "central_moment",
        QND_ON_CPU(detail::cpu::run_central_moment<M, T, L>(queue, data, c2, c3, c4, dependencies)),
        [&]() -> sycl::event {
            if constexpr (M == alternate) {
                throw unimplemented("stats", "central_moment", "for this method");
            } else {
                using func = detail::gpu::central_moment_func_fast<T, true>;
                return detail::gpu::submit_basic_usm(
                    queue, data, detail::gpu::make_central_func<func>(c2, c3, c4), dependencies);
            }
        });
}

// Sums of powers of deviations from the caller's mean, which must be device-accessible.
template <int M, typename T, layout L>
sycl::event central_moment(sycl::queue& queue,
                           T* mean,
                           const dataset<L, T*>& data,
                           T* c2,
                           T* c3,
                           T* c4,
                           const std::vector<sycl::event>& dependencies) {
    detail::check_argument(!c2 && !c3 && !c4, "central_moment", "all moments are nullptr");
    detail::check_argument(mean == nullptr, "central_moment", "mean is nullptr");
    return detail::route_usm(
        queue, "central_moment",
        QND_ON_CPU(
            detail::cpu::run_central_moment<T, L>(queue, mean, data, c2, c3, c4, dependencies)),
        [&] {
            using func = detail::gpu::central_moment_func_user_mean<T, true>;
            return detail::gpu::submit_basic_usm(
                queue, mean, data, detail::gpu::make_central_func<func>(c2, c3, c4), dependencies);
        });
}

#define QND_CENTRAL_MOMENT(M, T, L)                                                               \
    template sycl::event central_moment<M, T, L>(sycl::queue&, const dataset<L, T*>&, T*, T*, T*, \
                                                 const std::vector<sycl::event>&);
#define QND_CENTRAL_MOMENT_USER_MEAN(M, T, L)                                                     \
    template sycl::event central_moment<M, T, L>(sycl::queue&, T*, const dataset<L, T*>&, T*, T*, \
                                                 T*, const std::vector<sycl::event>&);
QND_FOR_TYPES_AND_LAYOUTS(QND_CENTRAL_MOMENT, 1)
QND_FOR_TYPES_AND_LAYOUTS(QND_CENTRAL_MOMENT, 2)
QND_FOR_TYPES_AND_LAYOUTS(QND_CENTRAL_MOMENT_USER_MEAN, 1)

}  // namespace tavrel::qnd::stats
