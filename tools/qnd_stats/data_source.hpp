// Sources of observations read a chunk at a time: delimited text, NumPy .npy and raw binary.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "options.hpp"
#include "share.hpp"

namespace qnd_stats {

// Where a chunk goes: an array of float or of double (one of the two is set). A chunk of r
// observations lies as the source's layout says, with r as the number of observations.
struct chunk_array {
    double* f64 = nullptr;
    float* f32 = nullptr;

    void put(std::size_t i, double v) const {
        if (f64)
            f64[i] = v;
        else
            f32[i] = static_cast<float>(v);
    }
};

// What a source knows before its observations are read, and the reading itself.
struct data_source {
    virtual ~data_source() = default;

    // Reads the next observations, at most max_rows of them, into `to`. Returns how many; 0 at
    // the end. Throws input_error naming the file (and line and field) for data it cannot use.
    virtual std::int64_t read(const chunk_array& to, std::int64_t max_rows) = 0;

    std::string path;
    std::int64_t n_dims = 0;
    // Names of the dimensions from a header row; empty when the file has none.
    std::vector<std::string> names;
    // As the library means it: the observations of one dimension are contiguous. Otherwise the
    // dimensions of one observation are (the order of a text file's rows).
    bool row_major = false;
    // The number of observations, or -1 while unknown (text, and raw from a pipe).
    std::int64_t total = -1;
    // The first observation in the file, of a share of several processes; -1 when unknown
    // (the lines of a text share are not counted before it is read).
    std::int64_t first_row = 0;
};

// The format that --format auto picks for a file name.
input_format format_of(const std::string& path);

// Opens a data file as the options say and reads what comes before its observations (a header
// row, a .npy header). Refuses a file that cannot hold what it claims before reading on. Of
// several processes, each reads its own share: a range of observations of a binary file, the
// lines of a text file that start in a range of its bytes.
std::unique_ptr<data_source> open_source(const std::string& path,
                                         const tool_options& options,
                                         const share& of = {});

// Text and CSV: rows are observations, fields are dimensions. delimiter 0 splits at runs of
// blanks. Blank lines and lines starting with '#' are skipped. Rows are parsed by all cores.
std::unique_ptr<data_source> open_text(const std::string& path,
                                       char delimiter,
                                       header_choice header,
                                       const share& of = {});

// A version 1, 2 or 3 .npy file of little- or big-endian float32 or float64, of shape (n) or
// (n, d): n observations of d dimensions, in C or Fortran order.
std::unique_ptr<data_source> open_npy(const std::string& path, const share& of = {});

// A headerless file of float32 or float64 in the machine's byte order; observations 0 means as
// many as the file holds.
std::unique_ptr<data_source> open_raw(const std::string& path,
                                      bool float32,
                                      std::int64_t dims,
                                      std::int64_t observations,
                                      bool row_major,
                                      const share& of = {});

}  // namespace qnd_stats
