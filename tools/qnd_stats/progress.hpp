// A percentage shown on standard error while a large file is read, when that is a terminal.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace qnd_stats {

// Shows "LABEL: P%" (say "reading data.csv") on one line of the terminal, rewritten in place, and
// erases it at the end so that nothing of it stays between the program's real output and errors.
struct progress_meter {
    // Files smaller than this are read before a person could see the meter.
    static constexpr std::uint64_t default_min_bytes = 16u << 20;

    // Shows on `out` (standard error by default) only if it is a terminal and total >= min_bytes.
    progress_meter(std::string label,
                   std::uint64_t total,
                   std::FILE* out = stderr,
                   std::uint64_t min_bytes = default_min_bytes);
    ~progress_meter();
    progress_meter(const progress_meter&) = delete;
    progress_meter& operator=(const progress_meter&) = delete;

    void update(std::uint64_t done);
    void finish();

    std::string label;
    std::FILE* out = nullptr;
    std::uint64_t total = 0;
    bool active = false;
    int shown = -1;
};

}  // namespace qnd_stats
