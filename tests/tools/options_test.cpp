// Parsing of qnd-stats's command line: what each option sets, and the exact text of each refusal.
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "options.hpp"
#include "tool_errors.hpp"

namespace qnd_stats {
namespace {

tool_options parse(std::vector<const char*> args) {
    args.insert(args.begin(), "qnd-stats");
    return parse_options(static_cast<int>(args.size()), args.data());
}

// What parse() refuses `args` with, or "(no error)".
std::string refusal_of(const std::vector<const char*>& args) {
    try {
        parse(args);
    } catch (const usage_error& e) {
        return e.what();
    }
    return "(no error)";
}

TEST(qnd_stats_options, accepted_command_lines_set_their_fields) {
    using v = std::vector<std::string>;
    // clang-format off
    const std::vector<std::tuple<std::vector<const char*>, std::function<bool(const tool_options&)>, const char*>> cases = {
        {{"d.csv"}, [](const tool_options& o) {
             return o.file == "d.csv" && o.device == device_choice::cpu && o.chunk_rows == 0 && !o.use_float &&
                    o.method == 1 && o.output == output_format::table && o.format == input_format::automatic &&
                    o.header == header_choice::automatic; }, "defaults"},
        {{"d.csv"}, [](const tool_options& o) {
             return o.estimates == v{"mean", "raw_sum", "raw_moment", "central_sum", "central_moment", "variation",
                                     "skewness", "kurtosis", "min_max"}; }, "all estimates by default, extremes through min_max"},
        {{"-d", "cpu", "d.csv"}, [](const tool_options& o) { return o.device == device_choice::cpu; }, "short device"},
        {{"--device=gpu", "d.csv"}, [](const tool_options& o) { return o.device == device_choice::gpu; }, "inline value"},
        {{"d.csv", "--type", "float"}, [](const tool_options& o) { return o.use_float; }, "options after the file"},
        {{"--method", "alternate", "--chunk-rows", "1000", "d.csv"}, [](const tool_options& o) { return o.method == 2 && o.chunk_rows == 1000; }, "method, chunk rows"},
        {{"-e", "kurtosis,mean,min", "d.csv"}, [](const tool_options& o) { return o.estimates == v{"mean", "kurtosis", "min"}; }, "estimates in canonical order"},
        {{"-e", "min,max,min_max,mean,mean", "d.csv"}, [](const tool_options& o) { return o.estimates == v{"mean", "min_max"}; }, "min_max absorbs min and max, repeats collapse"},
        {{"-o", "json", "d.csv"}, [](const tool_options& o) { return o.output == output_format::json; }, "json output"},
        {{"--output=csv", "d.csv"}, [](const tool_options& o) { return o.output == output_format::csv; }, "csv output"},
        {{"--format", "raw", "--dims", "3", "--raw-type", "float32", "--layout", "row_major", "--observations", "7", "d"}, [](const tool_options& o) { return o.format == input_format::raw && o.raw_dims == 3 && o.raw_float32 && o.raw_row_major && o.raw_observations == 7; }, "raw shape"},
        {{"--dims", "2", "d.bin"}, [](const tool_options& o) { return o.raw_dims == 2; }, "raw options with the format picked by extension"},
        {{"--delimiter", "tab", "--no-header", "d.tsv"}, [](const tool_options& o) { return o.delimiter == '\t' && o.header == header_choice::absent; }, "delimiter tab"},
        {{"--delimiter=;", "--header", "d.csv"}, [](const tool_options& o) { return o.delimiter == ';' && o.header == header_choice::present; }, "delimiter and header"},
        {{"-w", "w.txt", "-m", "1,3-4", "--mean", "0.5", "d.csv"}, [](const tool_options& o) { return o.weights_file == "w.txt" && o.mask == "1,3-4" && o.user_mean == "0.5"; }, "weights, mask, mean kept as text"},
        {{"--weight-column", "w", "d.csv"}, [](const tool_options& o) { return o.weight_column == "w"; }, "weight column"},
        {{"--", "-odd-name.csv"}, [](const tool_options& o) { return o.file == "-odd-name.csv"; }, "a file after --"},
        {{"--help"}, [](const tool_options& o) { return o.help; }, "help needs no file"},
        {{"-V"}, [](const tool_options& o) { return o.version; }, "version needs no file"},
    };
    // clang-format on
    for (const auto& [args, check, what] : cases) {
        SCOPED_TRACE(what);
        tool_options o;
        ASSERT_NO_THROW(o = parse(args));
        EXPECT_TRUE(check(o));
    }
}

TEST(qnd_stats_options, refused_command_lines_say_why) {
    // clang-format off
    const std::vector<std::pair<std::vector<const char*>, std::string>> cases = {
        {{}, "no data file given (see --help)"},
        {{"a.csv", "b.csv"}, "more than one data file given: 'a.csv' and 'b.csv'"},
        {{"--bogus", "a.csv"}, "unknown option '--bogus' (see --help)"},
        {{"-x", "a.csv"}, "unknown option '-x' (see --help)"},
        {{"a.csv", "--device"}, "option --device needs a value"},
        {{"-d", "tpu", "a.csv"}, "--device: 'tpu' is not one of cpu, gpu"},
        {{"-t", "half", "a.csv"}, "--type: 'half' is not one of float, double"},
        {{"--method", "3", "a.csv"}, "--method: '3' is not one of fast, alternate"},
        {{"-o", "xml", "a.csv"}, "--output: 'xml' is not one of table, csv, json"},
        {{"-f", "xls", "a.csv"}, "--format: 'xls' is not one of auto, text, csv, npy, raw"},
        {{"--help=yes"}, "option --help takes no value"},
        {{"-e", "mean,median", "a.csv"}, "--estimates: 'median' is not an estimate (see --help for the list)"},
        {{"-e", "mean,", "a.csv"}, "--estimates: '' is not an estimate (see --help for the list)"},
        {{"--format", "raw", "a"}, "raw input needs --dims"},
        {{"--format", "raw", "--dims", "0", "a"}, "--dims: '0' is not a positive whole number"},
        {{"--format", "raw", "--dims", "2x", "a"}, "--dims: '2x' is not a positive whole number"},
        {{"--format", "csv", "--dims", "2", "a"}, "--raw-type, --dims, --observations and --layout apply to raw input only"},
        {{"--format", "raw", "--dims", "2", "--layout", "rows", "a"}, "--layout: 'rows' is not one of row_major, col_major"},
        {{"--format", "npy", "--header", "a"}, "--header, --no-header and --delimiter apply to text and csv only"},
        {{"--delimiter", ".", "a.csv"}, "--delimiter: '.' is not a single character that can separate numbers"},
        {{"--delimiter", ";;", "a.csv"}, "--delimiter: ';;' is not a single character that can separate numbers"},
        {{"-w", "w.txt", "--weight-column", "3", "a.csv"}, "--weights and --weight-column cannot be used together"},
        {{"--mean", "1", "--method", "alternate", "a.csv"}, "--mean works with --method fast only"},
        {{"--mask=", "a.csv"}, "--mask: the list of dimensions is empty"},
        {{"--mean", "", "a.csv"}, "--mean: the list of means is empty"},
    };
    // clang-format on
    for (const auto& c : cases)
        EXPECT_EQ(refusal_of(c.first), c.second);
}

TEST(qnd_stats_options, help_names_every_option_the_parser_takes) {
    const std::string help = help_text();
    for (const char* name :
         {"--format",    "--header",       "--no-header",     "--delimiter", "--raw-type",
          "--dims",      "--observations", "--layout",        "--device",    "--type",
          "--method",    "--weights",      "--weight-column", "--mask",      "--mean",
          "--estimates", "--output",       "--help",          "--version",   "--chunk-rows"}) {
        EXPECT_NE(help.find(name), std::string::npos) << name;
        // And the parser knows each one it documents.
        EXPECT_EQ(refusal_of({name}).find("unknown option"), std::string::npos) << name;
    }
}

}  // namespace
}  // namespace qnd_stats
