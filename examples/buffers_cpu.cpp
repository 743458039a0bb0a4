// Mean, central moments and extremes in the buffer form on a CPU queue: the library orders its
// work through the buffers, and reading a result buffer's host accessor waits for it.
#include <cstdint>
#include <cstdio>
#include <vector>

#include <sycl/sycl.hpp>
#include <tavrel/qnd/stats.hpp>

namespace stats = tavrel::qnd::stats;

int main() {
    sycl::queue queue(sycl::cpu_selector_v);
    constexpr std::int64_t n_dims = 4, n_obs = 10000;

    std::vector<double> host(n_dims * n_obs);
    for (std::int64_t i = 0; i < n_obs; ++i)
        for (std::int64_t d = 0; d < n_dims; ++d)
            host[static_cast<std::size_t>(i * n_dims + d)] =
                static_cast<double>((i * (d + 3)) % 101) + 0.5 * static_cast<double>(d);

    sycl::buffer<double, 1> x(host.data(), sycl::range<1>(host.size()));
    sycl::buffer<double, 1> mean{sycl::range<1>(n_dims)};
    sycl::buffer<double, 1> c2{sycl::range<1>(n_dims)}, c3{sycl::range<1>(n_dims)},
        c4{sycl::range<1>(n_dims)};
    sycl::buffer<double, 1> lo{sycl::range<1>(n_dims)}, hi{sycl::range<1>(n_dims)};

    const stats::dataset<stats::col_major, sycl::buffer<double, 1>> data(n_dims, n_obs, x);
    stats::mean<stats::fast, double, stats::col_major>(queue, data, mean);
    stats::central_moment<stats::fast, double, stats::col_major>(queue, data, c2, c3, c4);
    stats::min_max<stats::fast, double, stats::col_major>(queue, data, lo, hi);

    sycl::host_accessor m(mean), v(c2), s(c3), k(c4), a(lo), b(hi);
    for (std::int64_t d = 0; d < n_dims; ++d)
        std::printf("dimension %lld: mean %.6g, c2 %.6g, c3 %.6g, c4 %.6g, min %g, max %g\n",
                    static_cast<long long>(d), m[d], v[d], s[d], k[d], a[d], b[d]);
    return 0;
}
