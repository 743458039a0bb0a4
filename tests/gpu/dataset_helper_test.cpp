// The kernels' copy of a dataset: how the mask is read with 64-bit and with 32-bit entries (its
// filling and the addressing by layout show in every result test).
#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "estimators/mean.hpp"
#include "gpu/dataset_helper.hpp"
#include "gpu/moments_gpu_impl.hpp"
#include "support/usm_array.hpp"

namespace {

namespace st = tavrel::qnd::stats;
namespace gpu = tavrel::qnd::stats::detail::gpu;
using namespace qnd_test;

// Any non-zero entry keeps its dimension; 32-bit entries are read in 64-bit words, low half
// first, and a negative entry in a high half stays non-zero under the arithmetic shift.
TEST(DatasetHelper, MaskWithSixtyFourAndThirtyTwoBitEntries) {
    const std::vector<std::int32_t> mask32{0, 1, -1, 0, 7, 0, 0, -2};
    std::vector<std::int64_t> words(mask32.size() / 2);
    std::memcpy(words.data(), mask32.data(), mask32.size() * sizeof(std::int32_t));
    const std::vector<std::int64_t> mask64(mask32.begin(), mask32.end());
    for (std::uint64_t d = 0; d < mask32.size(); ++d) {
        EXPECT_EQ(gpu::mask_keeps<false>(words.data(), d), mask32[d] != 0) << d;
        EXPECT_EQ(gpu::mask_keeps<true>(mask64.data(), d), mask64[d] != 0) << d;
    }
    // A 64-bit entry whose low half is 0 still keeps its dimension.
    const std::int64_t high_only = std::int64_t{1} << 40;
    EXPECT_TRUE(gpu::mask_keeps<true>(&high_only, 0));
}

// The planner with a mask of 32-bit entries and an odd count of dimensions: the last entry is
// the low half of a word whose high half lies behind the mask.
TEST(DatasetHelper, PlannerReadsThirtyTwoBitMasks) {
    sycl::queue q(sycl::ext::hostsycl::make_gpu_device(4));
    const std::int64_t n_dims = 3, n = 10;
    std::vector<double> values(static_cast<std::size_t>(n_dims * n));
    for (std::int64_t d = 0; d < n_dims; ++d)
        for (std::int64_t i = 0; i < n; ++i)
            values[static_cast<std::size_t>(d * n + i)] = double(d * 100 + i);
    usm_array<double> obs(q, values);
    usm_array<std::int64_t> words(q, 2);
    const std::int32_t mask32[4] = {5, 0, 1, 0};  // the fourth entry lies behind the mask
    std::memcpy(words.get(), mask32, sizeof(mask32));
    usm_array<double> mean(q, 3);
    mean.fill(-1.0);
    const st::dataset<st::row_major, double*> data{n_dims, n, obs.get(), nullptr, words.get()};
    gpu::submit_basic_usm<false>(q, data, gpu::mean_func<double, true>{mean.get()}, {});
    EXPECT_EQ(mean[0], 4.5);
    EXPECT_EQ(mean[1], -1.0);
    EXPECT_EQ(mean[2], 204.5);
}

}  // namespace
