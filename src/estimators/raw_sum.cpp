// The exported raw_sum estimators, pointer form.
#include "estimators/raw_sum.hpp"

#include "estimators/frame.hpp"
#include "gpu/moments_gpu_impl.hpp"

namespace tavrel::qnd::stats {

// Both method values name this one function. On the GPU, s1 is written whether given or not.
template <int M, typename T, layout L>
sycl::event raw_sum(sycl::queue& queue,
                    const dataset<L, T*>& data,
                    T* s1,
                    T* s2,
                    T* s3,
                    T* s4,
                    const std::vector<sycl::event>& dependencies) {
    detail::check_argument(!s1 && !s2 && !s3 && !s4, "raw_sum", "all sums are nullptr");
    return detail::route_usm(
        queue, "raw_sum",
        QND_ON_CPU(detail::cpu::run_raw_sum<T, L>(queue, data, s1, s2, s3, s4, dependencies)), [&] {
            const detail::gpu::raw_sum_func_fast<T, true> func{
                s2 != nullptr, s3 != nullptr, s4 != nullptr, s1, s2, s3, s4};
            return detail::gpu::submit_basic_usm(queue, data, func, dependencies);
        });
}

#define QND_RAW_SUM(M, T, L)                                                                   \
    template sycl::event raw_sum<M, T, L>(sycl::queue&, const dataset<L, T*>&, T*, T*, T*, T*, \
                                          const std::vector<sycl::event>&);
QND_FOR_TYPES_AND_LAYOUTS(QND_RAW_SUM, 1)
QND_FOR_TYPES_AND_LAYOUTS(QND_RAW_SUM, 2)

}  // namespace tavrel::qnd::stats
