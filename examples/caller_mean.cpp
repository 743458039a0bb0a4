// Spread around a known centre: central moments, skewness and kurtosis around the caller's mean
// instead of the data's, on the default device.
#include <cstdint>
#include <cstdio>
#include <vector>

#include <sycl/sycl.hpp>
#include <tavrel/qnd/stats.hpp>

namespace stats = tavrel::qnd::stats;

int main() {
    sycl::queue queue;
    constexpr std::int64_t n_dims = 2, n_obs = 5;

    // Column-major: the two dimensions of each observation lie together, as in a table's rows.
    const std::vector<float> rows = {9.8f,  20.1f, 10.1f, 19.7f, 10.0f,
                                     20.4f, 9.9f,  19.9f, 10.3f, 20.2f};
    float* x = sycl::malloc_shared<float>(rows.size(), queue);
    float* centre = sycl::malloc_shared<float>(n_dims, queue);
    float* c2 = sycl::malloc_shared<float>(n_dims, queue);
    float* skewness = sycl::malloc_shared<float>(n_dims, queue);
    float* kurtosis = sycl::malloc_shared<float>(n_dims, queue);
    for (std::size_t k = 0; k < rows.size(); ++k)
        x[k] = rows[k];
    centre[0] = 10.0f;  // the nominal values the measurements should have
    centre[1] = 20.0f;

    const stats::dataset<stats::col_major, float*> data(n_dims, n_obs, x);
    // The mean comes before the dataset: that is the form that sums around it.
    stats::central_moment<stats::fast, float, stats::col_major>(queue, centre, data, c2, nullptr,
                                                                nullptr)
        .wait_and_throw();
    stats::skewness<stats::fast, float, stats::col_major>(queue, centre, data, skewness)
        .wait_and_throw();
    stats::kurtosis<stats::fast, float, stats::col_major>(queue, centre, data, kurtosis)
        .wait_and_throw();

    for (std::int64_t d = 0; d < n_dims; ++d)
        std::printf("dimension %lld around %g: second moment %.4g, skewness %.4g, kurtosis %.4g\n",
                    static_cast<long long>(d), centre[d], c2[d], skewness[d], kurtosis[d]);

    for (float* p : {x, centre, c2, skewness, kurtosis})
        sycl::free(p, queue);
    return 0;
}
