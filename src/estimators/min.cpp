// The exported min estimators (the smallest value of each kept dimension), pointer and buffer
// forms, for method value 1.
#include <vector>

#include <sycl/sycl.hpp>

#include "estimators/min.hpp"
#include "estimators/buffer_frame.hpp"
#include "estimators/frame.hpp"
#include "gpu/minmax_gpu_impl.hpp"

namespace tavrel::qnd::stats {

template <int M, typename T, layout L>
sycl::event min(sycl::queue& queue,
                const dataset<L, T*>& data,
                T* min,
                const std::vector<sycl::event>& dependencies) {
    detail::check_argument(min == nullptr, "min", "min is nullptr");
    return detail::route_usm(
        queue, "min", QND_ON_CPU(detail::cpu::run_min<T, L>(queue, data, min, dependencies)), [&] {
            return detail::gpu::submit_minmax_usm(
                queue, data, detail::gpu::min_func_fast<T, true>{{min}}, dependencies);
        });
}

// The buffer form routes as the pointer form does; the engine's order comes from the buffers
// and nothing is handed back.
template <int M, typename T, layout L>
void min(sycl::queue& queue, const dataset<L, sycl::buffer<T, 1>>& data, sycl::buffer<T, 1> min) {
    detail::check_argument(min.size() == 0, "min", "min array length is 0");
    detail::route_buffer(
        queue, "min", QND_ON_CPU(detail::cpu::run_min<T, L>(queue, data, min)), [&] {
            detail::gpu::submit_minmax(
                queue, data,
                detail::gpu::min_func_fast<T, false>{detail::gpu::extreme_output<T, false>(min)});
        });
}

#define QND_MIN(M, T, L)                                                            \
    template sycl::event min<M, T, L>(sycl::queue&, const dataset<L, T*>&, T*,      \
                                      const std::vector<sycl::event>&);             \
    template void min<M, T, L>(sycl::queue&, const dataset<L, sycl::buffer<T, 1>>&, \
                               sycl::buffer<T, 1>);
QND_FOR_TYPES_AND_LAYOUTS(QND_MIN, 1)
#undef QND_MIN

}  // namespace tavrel::qnd::stats
