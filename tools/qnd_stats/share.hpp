// This process's share of the observations when several processes describe one file.
#pragma once

#include <cstdint>

namespace qnd_stats {

// Process `rank` of `size` takes the observations from first_of(n) up to first_of(n, 1): shares
// that differ by at most one observation, in rank order.
struct share {
    int rank = 0;
    int size = 1;

    std::int64_t first_of(std::int64_t n, int after = 0) const {
        return static_cast<std::int64_t>(static_cast<__int128>(n) * (rank + after) / size);
    }
};

}  // namespace qnd_stats
