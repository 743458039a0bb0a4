// What qnd-stats hands to the library: the dimensions, the weights, the mask and a caller's mean.
#pragma once

#include <string>
#include <vector>

#include "data_matrix.hpp"
#include "options.hpp"

namespace qnd_stats {

struct stats_job {
    data_matrix data;                   // the dimensions only: a weight column has been taken out
    std::vector<std::string> names;     // one per dimension: the header's, or "x" + column
    std::vector<double> weights;        // one per observation; empty: unweighted
    std::vector<std::int64_t> indices;  // one per dimension, 0 skips it; empty: all kept
    std::vector<double> user_mean;      // one per dimension; empty: the data's own mean
};

// Resolves the weights, the mask and the mean of the options against the data. Column numbers
// and names are those of the file, counted from 1. Throws input_error naming the option or the
// weights file.
stats_job prepare_job(data_matrix data, const tool_options& options);

// True when the dimension is kept by the job's mask.
inline bool kept(const stats_job& job, std::int64_t dim) {
    return job.indices.empty() || job.indices[static_cast<std::size_t>(dim)] != 0;
}

}  // namespace qnd_stats
