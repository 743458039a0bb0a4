// The exported mean estimators, pointer form.
#include "estimators/mean.hpp"

#include "estimators/frame.hpp"
#include "gpu/moments_gpu_impl.hpp"

namespace tavrel::qnd::stats {

// Both method values name this one function.
template <int M, typename T, layout L>
sycl::event mean(sycl::queue& queue,
                 const dataset<L, T*>& data,
                 T* mean,
                 const std::vector<sycl::event>& dependencies) {
    detail::check_argument(mean == nullptr, "mean", "mean is nullptr");
    return detail::route_usm(
        queue, "mean", QND_ON_CPU(detail::cpu::run_mean<T, L>(queue, data, mean, dependencies)),
        [&] {
            return detail::gpu::submit_basic_usm(queue, data, detail::gpu::mean_func<T, true>{mean},
                                                 dependencies);
        });
}

#define QND_MEAN(M, T, L)                                                       \
    template sycl::event mean<M, T, L>(sycl::queue&, const dataset<L, T*>&, T*, \
                                       const std::vector<sycl::event>&);
QND_FOR_TYPES_AND_LAYOUTS(QND_MEAN, 1)
QND_FOR_TYPES_AND_LAYOUTS(QND_MEAN, 2)

}  // namespace tavrel::qnd::stats
