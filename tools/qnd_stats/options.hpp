// The command line of qnd-stats: its options record and the parser that fills it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qnd_stats {

enum class input_format { automatic, text, csv, npy, raw };
enum class header_choice { automatic, present, absent };
enum class device_choice { cpu, gpu };
enum class output_format { table, csv, json };

// Everything the command line says; what needs the data (names, counts) is resolved later.
struct tool_options {
    std::string file;
    input_format format = input_format::automatic;
    header_choice header = header_choice::automatic;
    // 0 means the format's own: ',' for csv, any run of blanks for text.
    char delimiter = 0;

    // Raw binary only: element type, shape and layout.
    bool raw_float32 = false;
    std::int64_t raw_dims = 0;
    std::int64_t raw_observations = 0;  // 0: as many as the file holds
    bool raw_row_major = false;

    device_choice device = device_choice::cpu;
    std::int64_t chunk_rows = 0;  // observations per chunk; 0: sized from the machine's memory
    bool use_float = false;
    int method = 1;
    std::string weights_file;
    std::string weight_column;
    std::string mask;       // list of dimensions to keep, resolved against the data
    std::string user_mean;  // list of means, resolved against the data
    // Families of estimates, in the order of all_families(), without repeats.
    std::vector<std::string> estimates;
    output_format output = output_format::table;
    // Equal-width bins of each dimension over its [min, max], counted in one more pass.
    bool histogram = false;
    std::int64_t bins = 10;
    bool help = false;
    bool version = false;
};

// The eleven families, in the order in which they are computed and printed.
const std::vector<std::string>& all_families();

// Parses argv[1..argc-1]. Throws usage_error with a one-line text on anything it cannot use.
tool_options parse_options(int argc, const char* const* argv);

// The text printed by --help.
std::string help_text();

// Splits "a,b,,c" at commas, keeping empty items so that callers can refuse them.
std::vector<std::string> split_list(const std::string& text);

}  // namespace qnd_stats
