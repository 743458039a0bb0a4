// The matrix of observations as read from a file, before it goes to the library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qnd_stats {

// n_dims dimensions by n_observations observations, held in double whatever the file held.
// row_major as the library means it: the observations of one dimension are contiguous;
// otherwise the dimensions of one observation are (the order of a text file's rows).
struct data_matrix {
    std::int64_t n_dims = 0;
    std::int64_t n_observations = 0;
    bool row_major = false;
    std::vector<double> values;
    // Names of the dimensions from a header row; empty when the file has none.
    std::vector<std::string> names;

    double at(std::int64_t dim, std::int64_t obs) const {
        return values[static_cast<std::size_t>(row_major ? dim * n_observations + obs
                                                         : obs * n_dims + dim)];
    }
};

}  // namespace qnd_stats
