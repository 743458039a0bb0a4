// One dataset split between two queues (here the CPU device and a GPU), each computing its half,
// and the halves merged exactly into the statistics of the whole: what a machine with several
// devices, or a program that reads its data in parts, does.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

#include <sycl/sycl.hpp>
#include <tavrel/qnd/partial.hpp>
#include <tavrel/qnd/stats.hpp>

namespace stats = tavrel::qnd::stats;

// The partial results of n observations of one dimension on a queue: weight sums (the count,
// unweighted), the mean, central sums around it, raw sums and extremes.
stats::partial<double> describe(sycl::queue& q, const std::vector<double>& values) {
    const auto n = static_cast<std::int64_t>(values.size());
    double* x = sycl::malloc_shared<double>(values.size(), q);
    double* out = sycl::malloc_shared<double>(10, q);
    for (std::size_t i = 0; i < values.size(); ++i)
        x[i] = values[i];
    const stats::dataset<stats::row_major, double*> data(1, n, x);
    stats::mean<stats::fast, double, stats::row_major>(q, data, out).wait_and_throw();
    // Around the part's own mean, given as a caller's mean: the form every device sums directly.
    stats::central_sum<stats::fast, double, stats::row_major>(q, out, data, out + 1, out + 2,
                                                              out + 3)
        .wait_and_throw();
    stats::raw_sum<stats::fast, double, stats::row_major>(q, data, out + 4, out + 5, out + 6,
                                                          out + 7)
        .wait_and_throw();
    stats::min_max<stats::fast, double, stats::row_major>(q, data, out + 8, out + 9)
        .wait_and_throw();
    stats::partial<double> p;
    p.w = p.w2 = static_cast<double>(n);
    p.mean = out[0];
    p.cs2 = out[1], p.cs3 = out[2], p.cs4 = out[3];
    p.s1 = out[4], p.s2 = out[5], p.s3 = out[6], p.s4 = out[7];
    p.min = out[8], p.max = out[9];
    sycl::free(x, q);
    sycl::free(out, q);
    return p;
}

int main() {
    std::vector<double> first, second;
    for (int i = 0; i < 1000; ++i)
        (i < 600 ? first : second).push_back(100 + 10 * std::sin(i * 0.7) + (i % 13));

    sycl::queue cpu(sycl::cpu_selector_v);
    sycl::queue gpu(sycl::gpu_selector_v);
    const stats::partial<double> all = stats::merge(describe(cpu, first), describe(gpu, second));
    const stats::finished<double> e = stats::finish(all, all.mean);
    std::printf(
        "%g observations: mean %.10g, variance %.10g, skewness %.6g, kurtosis %.6g, "
        "min %g, max %g\n",
        all.w, e.mean, e.c2, e.skewness, e.kurtosis, all.min, all.max);
    return 0;
}
