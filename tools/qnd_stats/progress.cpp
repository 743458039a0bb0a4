// The progress meter: silent unless standard error is a terminal and the file is large.
#include "progress.hpp"

#include <cstdio>
#include <unistd.h>

namespace qnd_stats {

progress_meter::progress_meter(std::string label_,
                               std::uint64_t total_,
                               std::FILE* out_,
                               std::uint64_t min_bytes)
    : label(std::move(label_)),
      out(out_),
      total(total_),
      active(total_ > 0 && total_ >= min_bytes && isatty(fileno(out_)) == 1) {}

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
    std::fprintf(out, "\r%s: %d%%", label.c_str(), percent);
    std::fflush(out);
}

void progress_meter::finish() {
    if (!active)
        return;
    active = false;
    // Carriage return, erase to the end of the line.
    std::fprintf(out, "\r\033[K");
    std::fflush(out);
}

}  // namespace qnd_stats
