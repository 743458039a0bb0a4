// Readers of the three kinds of data file: delimited text, NumPy .npy and raw binary.
#pragma once

#include <string>

#include "data_matrix.hpp"
#include "options.hpp"

namespace qnd_stats {

// The whole file, read with a progress meter. Throws input_error if it cannot be read.
std::string read_file(const std::string& path);

// Rows are observations, fields are dimensions. delimiter 0 splits at runs of blanks. Blank
// lines and lines starting with '#' are skipped. Every error names the file, the line and, for
// a field, its number from 1.
data_matrix parse_text(const std::string& path,
                       const std::string& contents,
                       char delimiter,
                       header_choice header);

// A version 1, 2 or 3 .npy file of little- or big-endian float32 or float64, of shape (n) or
// (n, d): n observations of d dimensions, in C or Fortran order.
data_matrix parse_npy(const std::string& path, const std::string& contents);

// A headerless file of float32 or float64 in the machine's byte order.
data_matrix parse_raw(const std::string& path,
                      const std::string& contents,
                      bool float32,
                      std::int64_t dims,
                      std::int64_t observations,
                      bool row_major);

// The format that --format auto picks for a file name.
input_format format_of(const std::string& path);

// Reads a data file as the options say.
data_matrix read_data(const std::string& path, const tool_options& options);

}  // namespace qnd_stats
