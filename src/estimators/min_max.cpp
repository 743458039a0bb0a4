// The exported min_max estimators (both extremes of each kept dimension), pointer and buffer
// forms, for method value 1.
#include <vector>

#include <sycl/sycl.hpp>

#include "estimators/min_max.hpp"
#include "estimators/buffer_frame.hpp"
#include "estimators/frame.hpp"
#include "gpu/minmax_gpu_impl.hpp"

namespace tavrel::qnd::stats {

template <int M, typename T, layout L>
sycl::event min_max(sycl::queue& queue,
                    const dataset<L, T*>& data,
                    T* min,
                    T* max,
                    const std::vector<sycl::event>& dependencies) {
    detail::check_argument(min == nullptr, "min_max", "min is nullptr");
    detail::check_argument(max == nullptr, "min_max", "max is nullptr");
    return detail::route_usm(
        queue, "min_max",
        QND_ON_CPU(detail::cpu::run_min_max<T, L>(queue, data, min, max, dependencies)), [&] {
            return detail::gpu::submit_minmax_usm(
                queue, data, detail::gpu::min_max_func_fast<T, true>{{min}, {max}}, dependencies);
        });
}

// The buffer form routes as the pointer form does; the engine's order comes from the buffers
// and nothing is handed back.
template <int M, typename T, layout L>
void min_max(sycl::queue& queue,
             const dataset<L, sycl::buffer<T, 1>>& data,
             sycl::buffer<T, 1> min,
             sycl::buffer<T, 1> max) {
    detail::check_argument(min.size() == 0, "min_max", "min array length is 0");
    detail::check_argument(max.size() == 0, "min_max", "max array length is 0");
    detail::route_buffer(
        queue, "min_max", QND_ON_CPU(detail::cpu::run_min_max<T, L>(queue, data, min, max)), [&] {
            detail::gpu::submit_minmax(queue, data,
                                       detail::gpu::min_max_func_fast<T, false>{
                                           detail::gpu::extreme_output<T, false>(min),
                                           detail::gpu::extreme_output<T, false>(max)});
        });
}

#define QND_MIN_MAX(M, T, L)                                                            \
    template sycl::event min_max<M, T, L>(sycl::queue&, const dataset<L, T*>&, T*, T*,  \
                                          const std::vector<sycl::event>&);             \
    template void min_max<M, T, L>(sycl::queue&, const dataset<L, sycl::buffer<T, 1>>&, \
                                   sycl::buffer<T, 1>, sycl::buffer<T, 1>);
QND_FOR_TYPES_AND_LAYOUTS(QND_MIN_MAX, 1)
#undef QND_MIN_MAX

}  // namespace tavrel::qnd::stats
