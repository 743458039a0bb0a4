// The choice of a reader for a data file.
#include "data_source.hpp"

#include <cctype>

#include "tool_errors.hpp"

namespace qnd_stats {

input_format format_of(const std::string& path) {
    const std::size_t dot = path.find_last_of('.');
    const std::size_t slash = path.find_last_of('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return input_format::text;
    std::string ext = path.substr(dot + 1);
    for (char& c : ext)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (ext == "npy")
        return input_format::npy;
    if (ext == "bin" || ext == "raw")
        return input_format::raw;
    if (ext == "csv")
        return input_format::csv;
    return input_format::text;
}

std::unique_ptr<data_source> open_source(const std::string& path,
                                         const tool_options& o,
                                         const share& of) {
    const input_format format = o.format == input_format::automatic ? format_of(path) : o.format;
    if (format == input_format::raw && o.raw_dims == 0)
        throw usage_error(path + " is read as raw binary, which needs --dims (or give --format)");
    switch (format) {
        case input_format::npy:
            return open_npy(path, of);
        case input_format::raw:
            return open_raw(path, o.raw_float32, o.raw_dims, o.raw_observations, o.raw_row_major,
                            of);
        case input_format::csv:
            return open_text(path, o.delimiter ? o.delimiter : ',', o.header, of);
        default:
            return open_text(path, o.delimiter, o.header, of);
    }
}

}  // namespace qnd_stats
