// The exported variation estimators, pointer form: standard deviation over mean, around the data's
// own mean or a caller's mean.
#include "estimators/variation.hpp"

#include "estimators/frame.hpp"
#include "gpu/moments_gpu_impl.hpp"

namespace tavrel::qnd::stats {

// Both method values name this one function.
template <int M, typename T, layout L>
sycl::event variation(sycl::queue& queue,
                      const dataset<L, T*>& data,
                      T* variation,
                      const std::vector<sycl::event>& dependencies) {
    detail::check_argument(variation == nullptr, "variation", "variation is nullptr");
    return detail::route_usm(
        queue, "variation",
        QND_ON_CPU(detail::cpu::run_variation<T, L>(queue, data, variation, dependencies)), [&] {
            return detail::gpu::submit_basic_usm(
                queue, data, detail::gpu::variation_func_fast<T, true>{variation}, dependencies);
        });
}

// The caller's mean must be device-accessible.
template <int M, typename T, layout L>
sycl::event variation(sycl::queue& queue,
                      T* mean,
                      const dataset<L, T*>& data,
                      T* variation,
                      const std::vector<sycl::event>& dependencies) {
    detail::check_argument(variation == nullptr, "variation", "variation is nullptr");
    detail::check_argument(mean == nullptr, "variation", "mean is nullptr");
    return detail::route_usm(
        queue, "variation",
        QND_ON_CPU(detail::cpu::run_variation<T, L>(queue, mean, data, variation, dependencies)),
        [&] {
            return detail::gpu::submit_basic_usm(
                queue, mean, data, detail::gpu::variation_func_user_mean<T, true>{variation},
                dependencies);
        });
}

#define QND_VARIATION(M, T, L)                                                       \
    template sycl::event variation<M, T, L>(sycl::queue&, const dataset<L, T*>&, T*, \
                                            const std::vector<sycl::event>&);
#define QND_VARIATION_USER_MEAN(M, T, L)                                                 \
    template sycl::event variation<M, T, L>(sycl::queue&, T*, const dataset<L, T*>&, T*, \
                                            const std::vector<sycl::event>&);
QND_FOR_TYPES_AND_LAYOUTS(QND_VARIATION, 1)
QND_FOR_TYPES_AND_LAYOUTS(QND_VARIATION, 2)
QND_FOR_TYPES_AND_LAYOUTS(QND_VARIATION_USER_MEAN, 1)

}  // namespace tavrel::qnd::stats
