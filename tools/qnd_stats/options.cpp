// Parsing of qnd-stats's command line into a tool_options record.
#include "options.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>

#include <CLI/CLI.hpp>

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

std::string in_quotes(const std::string& s) {
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
    throw usage_error(option + ": " + in_quotes(value) + " is not one of " + names);
}

std::int64_t positive_count(const std::string& option, const std::string& value) {
    std::int64_t n = 0;
    const char* end = value.data() + value.size();
    const auto r = std::from_chars(value.data(), end, n);
    if (value.empty() || r.ec != std::errc() || r.ptr != end || n < 1)
        throw usage_error(option + ": " + in_quotes(value) + " is not a positive whole number");
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
            throw usage_error("--estimates: " + in_quotes(item) +
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
        throw usage_error("--delimiter: " + in_quotes(value) +
                          " is not a single character that can separate numbers");
    return value[0];
}

}  // namespace

tool_options parse_options(int argc, const char* const* argv) {
    tool_options o;
    // Flags take no value, not even the "--flag=yes" that the parser would read as true.
    for (int i = 1; i < argc && std::string(argv[i]) != "--"; ++i)
        for (const char* flag : {"--help", "--version", "--header", "--no-header", "--histogram"})
            if (std::string(argv[i]).rfind(std::string(flag) + "=", 0) == 0)
                throw usage_error(std::string("option ") + flag + " takes no value");

    // The parser takes the words last first; "--name=value" becomes two of them, so that an
    // empty value stays a value.
    std::vector<std::string> words;
    bool after_separator = false;
    for (int i = argc - 1; i > 0; --i)
        words.push_back(argv[i]);
    for (std::size_t k = words.size(); k-- > 0;) {
        after_separator = after_separator || words[k] == "--";
        const std::size_t eq = words[k].find('=');
        if (!after_separator && words[k].rfind("--", 0) == 0 && eq != std::string::npos) {
            const std::string name = words[k].substr(0, eq);
            words[k] = words[k].substr(eq + 1);
            words.insert(words.begin() + static_cast<std::ptrdiff_t>(k) + 1, name);
        }
    }

    bool estimates_given = false;
    bool raw_options = false;
    CLI::App app;
    app.set_help_flag();
    app.allow_extras();
    app.add_option("file", o.file);
    app.add_flag("-h,--help", o.help);
    app.add_flag("-V,--version", o.version);
    app.add_flag_callback("--header", [&] { o.header = header_choice::present; });
    app.add_flag_callback("--no-header", [&] { o.header = header_choice::absent; });
    app.add_flag("--histogram", o.histogram);
    // Each value is checked here, so that its refusal names the option in the words of --help.
    const auto value = [&](const char* names, auto set) {
        const std::string name = std::string(names).substr(std::string(names).find("--"));
        app.add_option_function<std::string>(names,
                                             [set, name](const std::string& v) { set(name, v); });
    };
    value("-f,--format", [&](const std::string& n, const std::string& v) {
        o.format = choose<input_format>(n, v,
                                        {{"auto", input_format::automatic},
                                         {"text", input_format::text},
                                         {"csv", input_format::csv},
                                         {"npy", input_format::npy},
                                         {"raw", input_format::raw}});
    });
    value("--delimiter",
          [&](const std::string&, const std::string& v) { o.delimiter = parse_delimiter(v); });
    value("--raw-type", [&](const std::string& n, const std::string& v) {
        o.raw_float32 = choose<bool>(n, v, {{"float32", true}, {"float64", false}});
        raw_options = true;
    });
    value("--dims", [&](const std::string& n, const std::string& v) {
        o.raw_dims = positive_count(n, v);
        raw_options = true;
    });
    value("--observations", [&](const std::string& n, const std::string& v) {
        o.raw_observations = positive_count(n, v);
        raw_options = true;
    });
    value("--layout", [&](const std::string& n, const std::string& v) {
        o.raw_row_major = choose<bool>(n, v, {{"row_major", true}, {"col_major", false}});
        raw_options = true;
    });
    value("-d,--device", [&](const std::string& n, const std::string& v) {
        o.device =
            choose<device_choice>(n, v, {{"cpu", device_choice::cpu}, {"gpu", device_choice::gpu}});
    });
    value("--chunk-rows",
          [&](const std::string& n, const std::string& v) { o.chunk_rows = positive_count(n, v); });
    value("-t,--type", [&](const std::string& n, const std::string& v) {
        o.use_float = choose<bool>(n, v, {{"float", true}, {"double", false}});
    });
    value("--method", [&](const std::string& n, const std::string& v) {
        o.method = choose<int>(n, v, {{"fast", 1}, {"alternate", 2}});
    });
    const auto text = [&](const char* names, std::string& to, const char* empty) {
        value(names, [&to, empty](const std::string&, const std::string& v) {
            if (v.empty())
                throw usage_error(empty);
            to = v;
        });
    };
    text("-w,--weights", o.weights_file, "--weights: the file name is empty");
    text("--weight-column", o.weight_column, "--weight-column: the column is empty");
    text("-m,--mask", o.mask, "--mask: the list of dimensions is empty");
    text("--mean", o.user_mean, "--mean: the list of means is empty");
    value("-e,--estimates", [&](const std::string&, const std::string& v) {
        o.estimates = parse_estimates(v);
        estimates_given = true;
    });
    value("--bins", [&](const std::string& n, const std::string& v) {
        o.bins = positive_count(n, v);
        if (o.bins > 1000)
            throw usage_error(n + ": " + in_quotes(v) + " is more than 1000 bins");
    });
    value("-o,--output", [&](const std::string& n, const std::string& v) {
        o.output = choose<output_format>(n, v,
                                         {{"table", output_format::table},
                                          {"csv", output_format::csv},
                                          {"json", output_format::json}});
    });
    try {
        app.parse(words);
    } catch (const CLI::ArgumentMismatch& e) {
        // "--device: 1 required TEXT missing": an option at the end without its value.
        const std::string what = e.what();
        throw usage_error("option " + what.substr(0, what.find(':')) + " needs a value");
    } catch (const CLI::ParseError& e) {
        throw usage_error(e.what());
    }
    // What the parser did not take: an unknown option, or a second file.
    for (const std::string& extra : app.remaining()) {
        if (extra == "--")
            continue;
        if (extra.size() >= 2 && extra[0] == '-')
            throw usage_error("unknown option " + in_quotes(extra.substr(0, extra.find('='))) +
                              " (see --help)");
        throw usage_error("more than one data file given: " + in_quotes(o.file) + " and " +
                          in_quotes(extra));
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
  -d, --device D        cpu (default) or gpu. The CPU engine keeps full accuracy
                        for any data. On a GPU the central sums, variation,
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
      --histogram       also count each dimension's observations in equal-width
                        bins over [min, max] (one more pass over FILE; weighted
                        runs sum the weights): a line of bars in the table, the
                        bins in csv and json
      --bins N          number of bins (default 10, at most 1000)
  -h, --help            this text
  -V, --version         the version

Under mpirun (when built with MPI) every process reads its share of FILE and the
shares' results are merged exactly; process 0 prints them.

Exit status: 0 on success, 1 for data or a computation that fails, 2 for a
command line that cannot be used.
)";
}

}  // namespace qnd_stats
