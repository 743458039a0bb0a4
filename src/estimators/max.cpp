// The exported max estimators (the largest value of each kept dimension, never below the smallest
// positive normal value), pointer and buffer forms, for method value 1.
#include <vector>

#include <sycl/sycl.hpp>

#include "estimators/max.hpp"
#include "estimators/buffer_frame.hpp"
#include "estimators/frame.hpp"
#include "gpu/minmax_gpu_impl.hpp"

namespace tavrel::qnd::stats {

template <int M, typename T, layout L>
sycl::event max(sycl::queue& queue,
                const dataset<L, T*>& data,
                T* max,
                const std::vector<sycl::event>& dependencies) {
    detail::check_argument(max == nullptr, "max", "max is nullptr");
    return detail::route_usm(
        queue, "max", QND_ON_CPU(detail::cpu::run_max<T, L>(queue, data, max, dependencies)), [&] {
            return detail::gpu::submit_minmax_usm(
                queue, data, detail::gpu::max_func_fast<T, true>{{max}}, dependencies);
        });
}

// The buffer form routes as the pointer form does; the engine's order comes from the buffers
// and nothing is handed back.
template <int M, typename T, layout L>
void max(sycl::queue& queue, const dataset<L, sycl::buffer<T, 1>>& data, sycl::buffer<T, 1> max) {
    detail::check_argument(max.size() == 0, "max", "max array length is 0");
    detail::route_buffer(
        queue, "max", QND_ON_CPU(detail::cpu::run_max<T, L>(queue, data, max)), [&] {
            detail::gpu::submit_minmax(
                queue, data,
                detail::gpu::max_func_fast<T, false>{detail::gpu::extreme_output<T, false>(max)});
        });
}

#define QND_MAX(M, T, L)                                                            \
    template sycl::event max<M, T, L>(sycl::queue&, const dataset<L, T*>&, T*,      \
                                      const std::vector<sycl::event>&);             \
    template void max<M, T, L>(sycl::queue&, const dataset<L, sycl::buffer<T, 1>>&, \
                               sycl::buffer<T, 1>);
QND_FOR_TYPES_AND_LAYOUTS(QND_MAX, 1)
#undef QND_MAX

}  // namespace tavrel::qnd::stats
