// Parsing of qnd-stats's command line into a tool_options record.
#include "options.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "tool_errors.hpp"

namespace qnd_stats {

const std::vector<std::string>& all_families() {
    static const std::vector<std::string> families = {
        "mean",     "raw_sum",  "raw_moment", "central_sum", "central_moment", "variation",
        "skewness", "kurtosis", "min",        "max",         "min_max"};
    return families;
}

std::vector<std::string> split_list(const std::string& text) {
    std::vector<std::string> items;
    std::size_t start = 0;
    while (true) {
        const std::size_t comma = text.find(',', start);
        items.push_back(text.substr(start, comma - start));
        if (comma == std::string::npos)
            return items;
        start = comma + 1;
    }
}

namespace {

std::string quoted(const std::string& s) {
    return "'" + s + "'";
}

// Picks a value out of a fixed set of words, naming the set when the value is not in it.
template <typename E>
E choose(const std::string& option,
         const std::string& value,
         const std::vector<std::pair<const char*, E>>& words) {
    std::string names;
    for (const auto& w : words) {
        if (value == w.first)
            return w.second;
        names += names.empty() ? "" : ", ";
        names += w.first;
    }
    throw usage_error(option + ": " + quoted(value) + " is not one of " + names);
}

std::int64_t positive_count(const std::string& option, const std::string& value) {
    std::int64_t n = 0;
    const char* end = value.data() + value.size();
    const auto r = std::from_chars(value.data(), end, n);
    if (value.empty() || r.ec != std::errc() || r.ptr != end || n < 1)
        throw usage_error(option + ": " + quoted(value) + " is not a positive whole number");
    return n;
}

std::vector<std::string> parse_estimates(const std::string& value) {
    std::vector<bool> wanted(all_families().size(), false);
    for (const std::string& item : split_list(value)) {
        if (item == "all") {
            for (std::size_t i = 0; i < wanted.size(); ++i)
                wanted[i] = all_families()[i] != "min" && all_families()[i] != "max";
            continue;
        }
        const auto it = std::find(all_families().begin(), all_families().end(), item);
        if (it == all_families().end())
            throw usage_error("--estimates: " + quoted(item) +
                              " is not an estimate (see --help for the list)");
        wanted[static_cast<std::size_t>(it - all_families().begin())] = true;
    }
    // min_max gives both extremes: min and max beside it would only repeat them.
    const std::size_t min_max = all_families().size() - 1;
    if (wanted[min_max])
        wanted[min_max - 1] = wanted[min_max - 2] = false;
    std::vector<std::string> families;
    for (std::size_t i = 0; i < wanted.size(); ++i)
        if (wanted[i])
            families.push_back(all_families()[i]);
    return families;
}

char parse_delimiter(const std::string& value) {
    if (value == "tab" || value == "\\t")
        return '\t';
    if (value.size() != 1 || value == "\"" || value == "." || value == "-" || value == "+")
        throw usage_error("--delimiter: " + quoted(value) +
                          " is not a single character that can separate numbers");
    return value[0];
}

}  // namespace

tool_options parse_options(int argc, const char* const* argv) {
    tool_options o;
    bool estimates_given = false;
    bool raw_options = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--") {
            for (++i; i < argc; ++i) {
                if (!o.file.empty())
                    throw usage_error("more than one data file given: " + quoted(o.file) + " and " +
                                      quoted(argv[i]));
                o.file = argv[i];
            }
            break;
        }
        if (arg.size() < 2 || arg[0] != '-') {
            if (!o.file.empty())
                throw usage_error("more than one data file given: " + quoted(o.file) + " and " +
                                  quoted(arg));
            o.file = arg;
            continue;
        }
        // "--name=value" or "--name value"; short options take their value as the next word.
        std::string name = arg;
        std::string value;
        bool has_inline_value = false;
        if (arg.rfind("--", 0) == 0) {
            const std::size_t eq = arg.find('=');
            if (eq != std::string::npos) {
                name = arg.substr(0, eq);
                value = arg.substr(eq + 1);
                has_inline_value = true;
            }
        }
        static const std::vector<std::pair<const char*, const char*>> short_names = {
            {"-h", "--help"},      {"-V", "--version"}, {"-d", "--device"},
            {"-t", "--type"},      {"-w", "--weights"}, {"-m", "--mask"},
            {"-e", "--estimates"}, {"-o", "--output"},  {"-f", "--format"}};
        for (const auto& s : short_names)
            if (name == s.first)
                name = s.second;

        auto flag = [&]() {
            if (has_inline_value)
                throw usage_error("option " + name + " takes no value");
        };
        auto take_value = [&]() -> std::string {
            if (has_inline_value)
                return value;
            if (i + 1 >= argc)
                throw usage_error("option " + name + " needs a value");
            return argv[++i];
        };

        if (name == "--help") {
            flag();
            o.help = true;
        } else if (name == "--version") {
            flag();
            o.version = true;
        } else if (name == "--header") {
            flag();
            o.header = header_choice::present;
        } else if (name == "--no-header") {
            flag();
            o.header = header_choice::absent;
        } else if (name == "--format") {
            o.format = choose<input_format>(name, take_value(),
                                            {{"auto", input_format::automatic},
                                             {"text", input_format::text},
                                             {"csv", input_format::csv},
                                             {"npy", input_format::npy},
                                             {"raw", input_format::raw}});
        } else if (name == "--delimiter") {
            o.delimiter = parse_delimiter(take_value());
        } else if (name == "--raw-type") {
            o.raw_float32 =
                choose<bool>(name, take_value(), {{"float32", true}, {"float64", false}});
            raw_options = true;
        } else if (name == "--dims") {
            o.raw_dims = positive_count(name, take_value());
            raw_options = true;
        } else if (name == "--observations") {
            o.raw_observations = positive_count(name, take_value());
            raw_options = true;
        } else if (name == "--layout") {
            o.raw_row_major =
                choose<bool>(name, take_value(), {{"row_major", true}, {"col_major", false}});
            raw_options = true;
        } else if (name == "--device") {
            o.device = choose<device_choice>(
                name, take_value(), {{"cpu", device_choice::cpu}, {"gpu", device_choice::gpu}});
        } else if (name == "--chunk-rows") {
            o.chunk_rows = positive_count(name, take_value());
        } else if (name == "--type") {
            o.use_float = choose<bool>(name, take_value(), {{"float", true}, {"double", false}});
        } else if (name == "--method") {
            o.method = choose<int>(name, take_value(), {{"fast", 1}, {"alternate", 2}});
        } else if (name == "--weights") {
            o.weights_file = take_value();
            if (o.weights_file.empty())
                throw usage_error("--weights: the file name is empty");
        } else if (name == "--weight-column") {
            o.weight_column = take_value();
            if (o.weight_column.empty())
                throw usage_error("--weight-column: the column is empty");
        } else if (name == "--mask") {
            o.mask = take_value();
            if (o.mask.empty())
                throw usage_error("--mask: the list of dimensions is empty");
        } else if (name == "--mean") {
            o.user_mean = take_value();
            if (o.user_mean.empty())
                throw usage_error("--mean: the list of means is empty");
        } else if (name == "--estimates") {
            o.estimates = parse_estimates(take_value());
            estimates_given = true;
        } else if (name == "--output") {
            o.output = choose<output_format>(name, take_value(),
                                             {{"table", output_format::table},
                                              {"csv", output_format::csv},
                                              {"json", output_format::json}});
        } else {
            throw usage_error("unknown option " + quoted(arg) + " (see --help)");
        }
    }
    if (o.help || o.version)
        return o;

    if (o.file.empty())
        throw usage_error("no data file given (see --help)");
    if (!estimates_given)
        o.estimates = parse_estimates("all");
    if (!o.weights_file.empty() && !o.weight_column.empty())
        throw usage_error("--weights and --weight-column cannot be used together");
    if (!o.user_mean.empty() && o.method == 2)
        throw usage_error("--mean works with --method fast only");
    if (o.device == device_choice::gpu && o.method == 2)
        throw usage_error("--method alternate works with --device cpu only");
    if (o.format == input_format::raw && o.raw_dims == 0)
        throw usage_error("raw input needs --dims");
    if (raw_options && o.format != input_format::raw && o.format != input_format::automatic)
        throw usage_error(
            "--raw-type, --dims, --observations and --layout apply to raw input only");
    if (o.format == input_format::raw || o.format == input_format::npy) {
        if (o.header != header_choice::automatic || o.delimiter != 0)
            throw usage_error("--header, --no-header and --delimiter apply to text and csv only");
    }
    return o;
}

std::string help_text() {
    return R"(Usage: qnd-stats [options] FILE

Computes summary statistics of each dimension (column) of the data in FILE
(- for standard input, read as text unless --format says otherwise).

Input:
  -f, --format F        auto (default), text, csv, npy or raw. auto picks npy for
                        .npy, raw for .bin and .raw, csv for .csv, text otherwise
                        (fields separated by blanks).
      --header          the first row names the dimensions
      --no-header       the first row holds numbers
                        (default: a header when a field of the first row is not
                        a number)
      --delimiter C     field separator of csv (default ','; 'tab' for a tab)
      --raw-type T      raw: float32 or float64 (default float64)
      --dims N          raw: number of dimensions (required)
      --observations N  raw: number of observations (default: all in the file)
      --layout L        raw: col_major (default: the dimensions of one
                        observation are contiguous) or row_major (the
                        observations of one dimension are contiguous)

Computation:
  -d, --device D        cpu (default) or gpu. The CPU engine is exact to the last
                        digits for any data. On a GPU the central sums, variation,
                        skewness and kurtosis are taken in two passes (the mean
                        first, then sums of deviations around it), and a minimum
                        or maximum that meets the GPU's seed or clamp value is
                        computed again on the CPU. hostsycl's GPU is emulated on
                        host threads: a test device, much slower than cpu.
  -t, --type T          arithmetic in double (default) or float
      --method M        fast (default) or alternate (cpu only)
      --chunk-rows N    observations read and computed at a time (default: as
                        many as fill 1/32 of the memory, at most 256 MiB); the
                        chunks' results are merged exactly, so a file of any
                        size, or a pipe, is described in bounded memory
  -w, --weights FILE    one weight per observation, in a file of one column
      --weight-column C the column (number from 1, or name) that holds the
                        weights; it is not a dimension
  -m, --mask LIST       dimensions to keep, by number from 1, range or name:
                        1,3-4 or height,width (default: all)
      --mean LIST       the caller's mean: one value, or one per dimension;
                        central sums and moments, variation, skewness and
                        kurtosis are then taken around it
  -e, --estimates LIST  any of mean, raw_sum, raw_moment, central_sum,
                        central_moment, variation, skewness, kurtosis, min,
                        max, min_max, all (default: all, with min_max)

Output:
  -o, --output O        table (default), csv or json
  -h, --help            this text
  -V, --version         the version

Exit status: 0 on success, 1 for data or a computation that fails, 2 for a
command line that cannot be used.
)";
}

}  // namespace qnd_stats
