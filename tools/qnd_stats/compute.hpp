// Computation of the asked families through the library, a chunk of observations at a time.
#pragma once

#include <string>
#include <vector>

#include <sycl/sycl.hpp>

#include "data_source.hpp"
#include "options.hpp"
#include "stats_job.hpp"

namespace qnd_stats {

// One printed row: an output of a family, one value per dimension (NaN where the mask skips).
struct quantity {
    std::string name;
    std::vector<double> values;
};

// The queue of the device the options ask for. Throws input_error if there is no such device.
sycl::queue make_queue(device_choice device);

// The number of observations in a chunk: --chunk-rows, or what fits in a share of the
// machine's memory (at most 256 MiB of observations), never more than the source holds.
std::int64_t chunk_rows(const tool_options& options, const data_source& data);

// Reads `data` a chunk at a time; each chunk goes to the library on the queue (its mean, raw
// sums, central sums and extremes, as the asked families need), and the chunks' partial results
// are merged exactly. On a GPU the central sums are taken in two passes, around the mean found
// first, and an extreme that meets the GPU's seed or clamp value is computed again on the CPU.
// Sets job.n_observations.
std::vector<quantity> compute(sycl::queue& queue,
                              data_source& data,
                              stats_job& job,
                              const tool_options& options);

}  // namespace qnd_stats
