// The exported skewness estimators, pointer form: third central moment over the variance to the
// power 3/2, around the data's own mean or a caller's mean.
#include "estimators/skewness.hpp"

#include "estimators/frame.hpp"
#include "gpu/moments_gpu_impl.hpp"

namespace tavrel::qnd::stats {

// Both method values name this one function.
template <int M, typename T, layout L>
sycl::event skewness(sycl::queue& queue,
                     const dataset<L, T*>& data,
                     T* skewness,
                     const std::vector<sycl::event>& dependencies) {
    detail::check_argument(skewness == nullptr, "skewness", "skewness is nullptr");
    return detail::route_usm(
        queue, "skewness",
        QND_ON_CPU(detail::cpu::run_skewness<T, L>(queue, data, skewness, dependencies)), [&] {
            return detail::gpu::submit_basic_usm(
                queue, data, detail::gpu::skewness_func_fast<T, true>{{}, skewness}, dependencies);
        });
}

// The caller's mean must be device-accessible.
template <int M, typename T, layout L>
sycl::event skewness(sycl::queue& queue,
                     T* mean,
                     const dataset<L, T*>& data,
                     T* skewness,
                     const std::vector<sycl::event>& dependencies) {
    detail::check_argument(skewness == nullptr, "skewness", "skewness is nullptr");
    detail::check_argument(mean == nullptr, "skewness", "mean is nullptr");
    return detail::route_usm(
        queue, "skewness",
        QND_ON_CPU(detail::cpu::run_skewness<T, L>(queue, mean, data, skewness, dependencies)),
        [&] {
            return detail::gpu::submit_basic_usm(
                queue, mean, data, detail::gpu::skewness_func_user_mean<T, true>{skewness},
                dependencies);
        });
}

#define QND_SKEWNESS(M, T, L)                                                       \
    template sycl::event skewness<M, T, L>(sycl::queue&, const dataset<L, T*>&, T*, \
                                           const std::vector<sycl::event>&);
#define QND_SKEWNESS_USER_MEAN(M, T, L)                                                 \
    template sycl::event skewness<M, T, L>(sycl::queue&, T*, const dataset<L, T*>&, T*, \
                                           const std::vector<sycl::event>&);
QND_FOR_TYPES_AND_LAYOUTS(QND_SKEWNESS, 1)
QND_FOR_TYPES_AND_LAYOUTS(QND_SKEWNESS, 2)
QND_FOR_TYPES_AND_LAYOUTS(QND_SKEWNESS_USER_MEAN, 1)

}  // namespace tavrel::qnd::stats
