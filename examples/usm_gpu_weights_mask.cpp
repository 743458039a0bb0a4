// Weighted mean, variance and extremes of three dimensions, two of them kept by a mask, in
// shared memory on a GPU queue.
#include <cstdint>
#include <cstdio>

#include <sycl/sycl.hpp>
#include <tavrel/qnd/stats.hpp>

namespace stats = tavrel::qnd::stats;

int main() {
    sycl::queue queue(sycl::gpu_selector_v);
    constexpr std::int64_t n_dims = 3, n_obs = 1000;

    // Row-major: the 1000 observations of each dimension lie together.
    double* x = sycl::malloc_shared<double>(n_dims * n_obs, queue);
    double* weights = sycl::malloc_shared<double>(n_obs, queue);
    std::int64_t* keep = sycl::malloc_shared<std::int64_t>(n_dims, queue);
    double* mean = sycl::malloc_shared<double>(n_dims, queue);
    double* c2 = sycl::malloc_shared<double>(n_dims, queue);
    double* lo = sycl::malloc_shared<double>(n_dims, queue);
    double* hi = sycl::malloc_shared<double>(n_dims, queue);
    for (std::int64_t i = 0; i < n_obs; ++i) {
        x[0 * n_obs + i] = static_cast<double>(i % 10);     // 0..9
        x[1 * n_obs + i] = 100.0 + static_cast<double>(i);  // 100..1099
        x[2 * n_obs + i] = -1.0;                            // skipped below
        weights[i] = i % 2 == 0 ? 1.0 : 3.0;
    }
    keep[0] = 1;
    keep[1] = 1;
    keep[2] = 0;  // a masked dimension: its outputs are left as they are

    const stats::dataset<stats::row_major, double*> data(n_dims, n_obs, x, weights, keep);
    // Each call returns an event; later calls may depend on earlier ones through their lists.
    sycl::event e1 = stats::mean<stats::fast, double, stats::row_major>(queue, data, mean);
    sycl::event e2 = stats::central_moment<stats::fast, double, stats::row_major>(queue, data, c2,
                                                                                  nullptr, nullptr);
    sycl::event e3 = stats::min_max<stats::fast, double, stats::row_major>(queue, data, lo, hi);
    sycl::event::wait_and_throw({e1, e2, e3});

    for (std::int64_t d = 0; d < 2; ++d)
        std::printf("dimension %lld: mean %.6g, variance %.6g, min %g, max %g\n",
                    static_cast<long long>(d), mean[d], c2[d], lo[d], hi[d]);

    for (void* p : {static_cast<void*>(x), static_cast<void*>(weights), static_cast<void*>(keep),
                    static_cast<void*>(mean), static_cast<void*>(c2), static_cast<void*>(lo),
                    static_cast<void*>(hi)})
        sycl::free(p, queue);
    return 0;
}
