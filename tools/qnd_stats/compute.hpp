// Computation of the asked families through the library, a chunk of observations at a time.
#pragma once

#include <string>
#include <vector>

#include <sycl/sycl.hpp>
#include <tavrel/qnd/partial.hpp>

#include "data_source.hpp"
#include "options.hpp"
#include "stats_job.hpp"

namespace qnd_stats {

// One printed row: an output of a family, one value per dimension (NaN where the mask skips).
struct quantity {
    std::string name;
    std::vector<double> values;
};

// The queue of the device the options ask for; of several GPUs, the one at `index` modulo their
// number. Throws input_error if there is no such device.
sycl::queue make_queue(device_choice device, int index = 0);

// The number of observations in a chunk: --chunk-rows, or what fits in a share of the
// machine's memory (at most 256 MiB of observations), never more than the source holds.
std::int64_t chunk_rows(const tool_options& options, const data_source& data);

// What the chunks of one process give, before the processes' results are merged.
struct partial_results {
    std::vector<tavrel::qnd::stats::partial<double>> columns;  // one per column of the file
    double n_observations = 0;
    double n_weights = 0;     // read from a weights file, for the count check of the whole
    double weight_total = 0;  // of the observations computed
};

// Reads the share `of` of `data` a chunk at a time; each chunk goes to the library on the queue
// (its mean, raw sums, central sums and extremes, as the asked families need), and the chunks'
// partial results are merged exactly. On a GPU the central sums are taken in two passes, around
// the mean found first, and an extreme that meets the GPU's seed or clamp value is computed
// again on the CPU. first_row is the share's first observation in the file (-1 when unknown),
// where a weights file is read from.
partial_results compute(sycl::queue& queue,
                        data_source& data,
                        const stats_job& job,
                        const tool_options& options,
                        const share& of = {},
                        std::int64_t first_row = 0);

// Equal-width bins of one column over [low, high]: the number of observations in each, or the
// sum of their weights in a weighted run. The last bin holds high itself.
struct histogram {
    double low = 0;
    double high = 0;
    std::vector<double> bins;  // empty: the column is not kept, or its range is not finite
};

// Empty histograms of `bins` bins over each kept column's [min, max] of the merged results.
std::vector<histogram> histogram_ranges(const stats_job& job,
                                        const std::vector<double>& min_max,
                                        std::int64_t bins);

// The bins of the share `of`, read once more: weights and mask as in compute(); NaN and
// observations of weight 0 are not counted.
std::vector<histogram> count_histograms(sycl::queue& queue,
                                        data_source& data,
                                        const stats_job& job,
                                        const tool_options& options,
                                        std::vector<histogram> ranges,
                                        const share& of = {},
                                        std::int64_t first_row = 0);

// Merges the results of b (of later observations) into a, as stats::merge does.
void merge_into(partial_results& a, const partial_results& b, bool about_centre);

// The printed quantities of the merged results of all processes. Refuses what only the whole
// shows: no observations, a weights file of another length, weights that are all 0.
std::vector<quantity> finish_results(const stats_job& job,
                                     const partial_results& all,
                                     const tool_options& options);

}  // namespace qnd_stats
