// The exported kurtosis estimators, pointer form: excess kurtosis, around the data's own mean or a
// caller's mean.
#include "estimators/kurtosis.hpp"

#include "estimators/frame.hpp"
#include "gpu/moments_gpu_impl.hpp"

namespace tavrel::qnd::stats {

// Both method values name this one function.
template <int M, typename T, layout L>
sycl::event kurtosis(sycl::queue& queue,
                     const dataset<L, T*>& data,
                     T* kurtosis,
                     const std::vector<sycl::event>& dependencies) {
    detail::check_argument(kurtosis == nullptr, "kurtosis", "kurtosis is nullptr");
    return detail::route_usm(
        queue, "kurtosis",
        QND_ON_CPU(detail::cpu::run_kurtosis<T, L>(queue, data, kurtosis, dependencies)), [&] {
            return detail::gpu::submit_basic_usm(
                queue, data, detail::gpu::kurtosis_func_fast<T, true>{{}, kurtosis}, dependencies);
        });
}

// The caller's mean must be device-accessible.
template <int M, typename T, layout L>
sycl::event kurtosis(sycl::queue& queue,
                     T* mean,
                     const dataset<L, T*>& data,
                     T* kurtosis,
                     const std::vector<sycl::event>& dependencies) {
    detail::check_argument(kurtosis == nullptr, "kurtosis", "kurtosis is nullptr");
    detail::check_argument(mean == nullptr, "kurtosis", "mean is nullptr");
    return detail::route_usm(
        queue, "kurtosis",
        QND_ON_CPU(detail::cpu::run_kurtosis<T, L>(queue, mean, data, kurtosis, dependencies)),
        [&] {
            return detail::gpu::submit_basic_usm(
                queue, mean, data, detail::gpu::kurtosis_func_user_mean<T, true>{kurtosis},
                dependencies);
        });
}

#define QND_KURTOSIS(M, T, L)                                                       \
    template sycl::event kurtosis<M, T, L>(sycl::queue&, const dataset<L, T*>&, T*, \
                                           const std::vector<sycl::event>&);
#define QND_KURTOSIS_USER_MEAN(M, T, L)                                                 \
    template sycl::event kurtosis<M, T, L>(sycl::queue&, T*, const dataset<L, T*>&, T*, \
                                           const std::vector<sycl::event>&);
QND_FOR_TYPES_AND_LAYOUTS(QND_KURTOSIS, 1)
QND_FOR_TYPES_AND_LAYOUTS(QND_KURTOSIS, 2)
QND_FOR_TYPES_AND_LAYOUTS(QND_KURTOSIS_USER_MEAN, 1)

}  // namespace tavrel::qnd::stats
