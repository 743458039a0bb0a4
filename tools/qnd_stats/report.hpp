// The three ways qnd-stats prints its results: an aligned table, CSV and JSON.
#pragma once

#include <string>
#include <vector>

#include "compute.hpp"
#include "options.hpp"
#include "stats_job.hpp"

namespace qnd_stats {

// What the report says besides the numbers.
struct report_context {
    std::string file;
    std::string device;
    bool use_float = false;
    std::vector<histogram> histograms;  // one per column of the file, when asked
};

// The whole output as one string, so that nothing is printed before everything is known.
// Dimensions that the mask skips are left out. CSV and JSON carry every digit needed to read
// the same value back (17 significant digits in double, 9 in float); the table shows 7. A value
// that is not finite is "nan", "inf" or "-inf" in the table and CSV, and null in JSON. Histograms
// are a line of bars in the table, their bins separated by blanks in CSV, and an object with
// the range and the bins in JSON.
std::string format_report(const report_context& context,
                          const stats_job& job,
                          const std::vector<quantity>& results,
                          output_format format);

}  // namespace qnd_stats
