// What qnd-stats hands to the library: the dimensions, the weights, the mask and a caller's mean.
#pragma once

#include <string>
#include <vector>

#include "data_source.hpp"
#include "options.hpp"

namespace qnd_stats {

// Every column of the file goes to the library; a weight column and the columns that the mask
// leaves out are skipped there through the mask, so that a chunk is used as it was read.
struct stats_job {
    std::string path;                   // of the data file
    std::int64_t n_columns = 0;         // of the file
    std::vector<std::int64_t> columns;  // the file's column of each dimension of the report
    std::vector<std::string> names;     // one per dimension: the header's, or "x" + column
    std::vector<std::int64_t> indices;  // one per column, 0 skips it; empty: all kept
    std::int64_t weight_column = -1;    // the column that holds the weights, or -1
    std::string weights_file;           // a file of one weight per observation, or ""
    std::vector<double> user_mean;      // one per dimension; empty: the data's own mean
    std::int64_t n_observations = 0;    // counted while the data is read
};

// Resolves the weights, the mask and the mean of the options against the columns of the source.
// Column numbers and names are those of the file, counted from 1. Throws input_error naming the
// option.
stats_job prepare_job(const data_source& source, const tool_options& options);

// True when the dimension (of the report) is kept by the job's mask.
inline bool kept(const stats_job& job, std::size_t dim) {
    return job.indices.empty() || job.indices[static_cast<std::size_t>(job.columns[dim])] != 0;
}

inline bool weighted(const stats_job& job) {
    return job.weight_column >= 0 || !job.weights_file.empty();
}

}  // namespace qnd_stats
