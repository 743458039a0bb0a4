// The exported raw_moment estimators, pointer form.
#include "estimators/raw_moment.hpp"

#include "estimators/frame.hpp"
#include "gpu/moments_gpu_impl.hpp"

namespace tavrel::qnd::stats {

// Both method values name this one function. On the GPU, mean is written whether given or not.
template <int M, typename T, layout L>
sycl::event raw_moment(sycl::queue& queue,
                       const dataset<L, T*>& data,
                       T* mean,
                       T* r2,
                       T* r3,
                       T* r4,
                       const std::vector<sycl::event>& dependencies) {
    detail::check_argument(!mean && !r2 && !r3 && !r4, "raw_moment", "all moments are nullptr");
    return detail::route_usm(
        queue, "raw_moment",
        QND_ON_CPU(detail::cpu::run_raw_moment<T, L>(queue, data, mean, r2, r3, r4, dependencies)),
        [&] {
            detail::gpu::raw_moment_func_fast<T, true> func{};
            func.has_order2 = r2 != nullptr;
            func.has_order3 = r3 != nullptr;
            func.has_order4 = r4 != nullptr;
            func.out1 = mean;
            func.out2 = r2;
            func.out3 = r3;
            func.out4 = r4;
            return detail::gpu::submit_basic_usm(queue, data, func, dependencies);
        });
}

#define QND_RAW_MOMENT(M, T, L)                                                                   \
    template sycl::event raw_moment<M, T, L>(sycl::queue&, const dataset<L, T*>&, T*, T*, T*, T*, \
                                             const std::vector<sycl::event>&);
QND_FOR_TYPES_AND_LAYOUTS(QND_RAW_MOMENT, 1)
QND_FOR_TYPES_AND_LAYOUTS(QND_RAW_MOMENT, 2)

}  // namespace tavrel::qnd::stats
