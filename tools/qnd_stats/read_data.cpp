// Reading a data file whole and handing it to the reader of its format.
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "progress.hpp"
#include "readers.hpp"
#include "tool_errors.hpp"

namespace qnd_stats {

namespace {
int close_unless_stdin(std::FILE* f) {
    return f == stdin ? 0 : std::fclose(f);
}
}  // namespace

std::string read_file(const std::string& path) {
    // "-" is standard input, as a pipe usually is: read to the end without a size.
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> f(
        path == "-" ? stdin : std::fopen(path.c_str(), "rb"), &close_unless_stdin);
    if (!f)
        throw input_error(path + ": cannot open: " + std::strerror(errno));
    std::string contents;
    if (std::fseek(f.get(), 0, SEEK_END) == 0) {
        const long size = std::ftell(f.get());
        if (size > 0)
            contents.reserve(static_cast<std::size_t>(size));
        std::rewind(f.get());
        progress_meter meter("reading " + path, size > 0 ? static_cast<std::uint64_t>(size) : 0);
        char chunk[1 << 16];
        std::size_t n;
        while ((n = std::fread(chunk, 1, sizeof chunk, f.get())) > 0) {
            contents.append(chunk, n);
            meter.update(contents.size());
        }
    } else {
        // A pipe or a device: read to the end without a size.
        char chunk[1 << 16];
        std::size_t n;
        while ((n = std::fread(chunk, 1, sizeof chunk, f.get())) > 0)
            contents.append(chunk, n);
    }
    if (std::ferror(f.get()))
        throw input_error(path + ": cannot read: " + std::strerror(errno));
    return contents;
}

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

data_matrix read_data(const std::string& path, const tool_options& o) {
    const input_format format = o.format == input_format::automatic ? format_of(path) : o.format;
    if (format == input_format::raw && o.raw_dims == 0)
        throw usage_error(path + " is read as raw binary, which needs --dims (or give --format)");
    const std::string contents = read_file(path);
    switch (format) {
        case input_format::npy:
            return parse_npy(path, contents);
        case input_format::raw:
            return parse_raw(path, contents, o.raw_float32, o.raw_dims, o.raw_observations,
                             o.raw_row_major);
        case input_format::csv:
            return parse_text(path, contents, o.delimiter ? o.delimiter : ',', o.header);
        default:
            return parse_text(path, contents, o.delimiter, o.header);
    }
}

}  // namespace qnd_stats
