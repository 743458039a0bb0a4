// One work-group of an nd_range launch, run to its end on the calling thread.
#pragma once

#include <cstddef>

#include "objects.hpp"

namespace sycl {
namespace detail {

// Runs every work-item of group `group_id` of `group_count`; a kernel's exception propagates
// after the group's fibers are unwound.
void run_group(const launch_desc& launch, std::size_t group_id, std::size_t group_count);

}  // namespace detail
}  // namespace sycl
