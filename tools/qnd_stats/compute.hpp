// Computation of the asked families through the library's public interface.
#pragma once

#include <string>
#include <vector>

#include <sycl/sycl.hpp>

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

// Calls the estimators of options.estimates on the queue, in that order, with the job's data in
// shared memory, in float or double as options.use_float says, and with the job's layout. Each
// call is waited for, so that an error of the device surfaces here as the exception the library
// or the runtime throws.
std::vector<quantity> compute(sycl::queue& queue,
                              const stats_job& job,
                              const tool_options& options);

}  // namespace qnd_stats
