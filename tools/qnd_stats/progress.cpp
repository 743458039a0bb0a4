// The progress meter: silent unless standard error is a terminal and the file is large.
#include "progress.hpp"

#include <cstdio>
#include <unistd.h>

namespace qnd_stats {

namespace {
// Smaller files are read before a person could see the meter.
constexpr std::uint64_t min_bytes_to_show = 16u << 20;
}  // namespace

progress_meter::progress_meter(std::string label_, std::uint64_t total_)
    : label(std::move(label_)),
      total(total_),
      active(total_ >= min_bytes_to_show && isatty(STDERR_FILENO) == 1) {}

progress_meter::~progress_meter() {
    finish();
}

void progress_meter::update(std::uint64_t done) {
    if (!active)
        return;
    const int percent = static_cast<int>(done * 100 / total);
    if (percent == shown)
        return;
    shown = percent;
    std::fprintf(stderr, "\r%s: %d%%", label.c_str(), percent);
    std::fflush(stderr);
}

void progress_meter::finish() {
    if (!active)
        return;
    active = false;
    // Carriage return, erase to the end of the line.
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
}

}  // namespace qnd_stats
