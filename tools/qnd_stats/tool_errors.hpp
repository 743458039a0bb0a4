// The two kinds of failure qnd-stats reports to its user: a bad command line and bad input data.
#pragma once

#include <stdexcept>
#include <string>

namespace qnd_stats {

// The command line cannot be understood; the program exits with status 2.
struct usage_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A data, weights or option value that cannot be used; the text names the file, and the line and
// field when there is one. The program exits with status 1.
struct input_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace qnd_stats
