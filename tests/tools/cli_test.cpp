// The qnd-stats program as a person runs it: exit statuses, one-line errors with nothing on
// standard output, pipes, and output formats that read back to the numbers computed.
#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "compute.hpp"
#include "run_program.hpp"

namespace qnd_stats {
namespace {

// Runs a shell command line in which QND stands for the program.
run_result run(std::string command) {
    for (std::size_t at; (at = command.find("QND")) != std::string::npos;)
        command.replace(at, 3, std::string("'") + QND_STATS_BIN + "'");
    return run_command(command);
}

const std::string weather = QND_SOURCE_DIR "/examples/data/weather.csv";

TEST(qnd_stats_cli, bad_input_gives_one_line_and_a_status) {
    const std::string ragged = write_file("ragged.csv", "a,b\n1,2\n3,4\n5\n");
    const std::string raw = write_file("odd.bin", std::string(20, '\0'));
    const std::string data = write_file("d.txt", "1 5\n2 -1\n3 2\n");
    const std::string zeros = write_file("z.txt", "1 0\n2 0\n");
    const std::string w2 = write_file("w2.txt", "1\n2\n");
    const std::string w4 = write_file("w4.txt", "1\n2\n3\n4\n");
    // A header that claims more data than the file holds: refused before reading any.
    const std::string big = write_file(
        "big.npy", npy("{'descr': '<f8', 'fortran_order': False, 'shape': (1000000000, 1000), }",
                       std::string(16, '\0')));
    // clang-format off
    const std::vector<std::tuple<std::string, int, std::string>> cases = {
        {"", 2, "no data file given (see --help)"},
        {"--frobnicate x", 2, "unknown option '--frobnicate' (see --help)"},
        {"--chunk-rows 0 x", 2, "--chunk-rows: '0' is not a positive whole number"},
        {"--chunk-rows many x", 2, "--chunk-rows: 'many' is not a positive whole number"},
        {"-d gpu --method alternate x", 2, "--method alternate works with --device cpu only"},
        {"/nonexistent/d.csv", 1, "/nonexistent/d.csv: cannot open: No such file or directory"},
        {ragged, 1, ragged + ", line 4: 1 field, expected 2 as on line 1"},
        {"--dims 3 " + raw, 1, raw + ": 20 bytes are not a whole number of observations of 3 float64 values (24 bytes each)"},
        {raw, 2, raw + " is read as raw binary, which needs --dims (or give --format)"},
        {"-m 9 " + weather, 1, "--mask: column 9 is not in 1 to 6"},
        {"--weight-column 2 " + data, 1, data + ", column 2, observation 2: the weight -1 is negative (weights are finite, 0 or more)"},
        {"--weight-column 2 " + zeros, 1, zeros + ", column 2: every weight is 0, so no observation counts"},
        {"--chunk-rows 2 -w " + w2 + " " + data, 1, w2 + ": 2 weights for 3 observations"},
        {"--chunk-rows 1 -w " + w4 + " " + data, 1, w4 + ": 4 weights for 3 observations"},
        {big, 1, big + ": shape (1000000000, 1000) of float64 needs 8000000000000 bytes of data, the file holds 16"},
    };
    // clang-format on
    for (const auto& [args, status, err] : cases)  // nothing is printed when the run fails
        EXPECT_EQ(run("QND " + args), (run_result{status, "", "qnd-stats: " + err + "\n"})) << args;
}

TEST(qnd_stats_cli, pipes_are_read_a_chunk_at_a_time) {
    const std::string text = write_file("in.txt", "1 10\n2 20\n3 60\n");
    const run_result want{0, "dimension,mean,min,max\nx1,2,1,3\nx2,30,10,60\n", ""};
    EXPECT_EQ(run("cat '" + text + "' | QND -e mean,min_max -o csv --chunk-rows 2 -"), want);
    // Binary data of unknown length, and Fortran order, whose columns lie far apart.
    const std::string values = bytes_of(std::vector<double>{1, 10, 2, 20, 3, 60});
    const std::string raw = write_file("in.bin", values);
    EXPECT_EQ(
        run("cat '" + raw + "' | QND -f raw --dims 2 -e mean,min_max -o csv --chunk-rows 2 -"),
        want);
    EXPECT_EQ(run("cat '" + raw + "' | QND -f raw --dims 2 --layout row_major -e mean -o csv -"),
              (run_result{0, "dimension,mean\nx1,4.333333333333333\nx2,27.666666666666668\n", ""}));
    // A .npy file of known length from a pipe: all of it, then nothing more; or a byte too many.
    const std::string npy_file = write_file(
        "in.npy", npy("{'descr': '<f8', 'fortran_order': False, 'shape': (3, 2), }", values));
    EXPECT_EQ(run("cat '" + npy_file + "' | QND -f npy -e mean,min_max -o csv -"), want);
    const run_result longer = run("(cat '" + npy_file + "'; echo) | QND -f npy -");
    EXPECT_EQ(longer.err,
              "qnd-stats: -: shape (3, 2) of float64 needs 48 bytes of data, the file holds 49\n");
    EXPECT_EQ(run("cat '" + write_file("bad.txt", "1 2\n3\n") + "' | QND -"),
              (run_result{1, "", "qnd-stats: -, line 2: 1 field, expected 2 as on line 1\n"}));
}

TEST(qnd_stats_cli, help_and_version) {
    EXPECT_EQ(run("QND --help"), (run_result{0, help_text(), ""}));
    EXPECT_EQ(run("QND -V"), (run_result{0, std::string("qnd-stats ") + QND_VERSION + "\n", ""}));
}

// What compute() gives for the weather data, by quantity and then dimension name.
std::map<std::string, std::map<std::string, double>> computed(const tool_options& o) {
    const auto source = open_source(weather, o);
    stats_job job = prepare_job(*source, o);
    sycl::queue q = make_queue(o.device);
    std::map<std::string, std::map<std::string, double>> values;
    for (const quantity& qy : finish_results(job, compute(q, *source, job, o), o))
        for (std::size_t d = 0; d < job.names.size(); ++d)
            if (kept(job, d))
                values[qy.name][job.names[d]] = qy.values[d];
    return values;
}

TEST(qnd_stats_cli, json_and_csv_read_back_to_the_computed_numbers) {
    for (const char* type : {"double", "float"}) {
        SCOPED_TRACE(type);
        const run_result r =
            run(std::string("QND -o json -t ") + type + " --weight-column day -m 2,4-6 " + weather);
        ASSERT_EQ(r.status, 0) << r.err;
        tool_options o;
        o.estimates = parse_options(2, std::vector<const char*>{"x", "f"}.data()).estimates;
        o.use_float = std::string(type) == "float";
        o.weight_column = "day";
        o.mask = "2,4-6";
        const auto want = computed(o);
        const nlohmann::json doc = nlohmann::json::parse(r.out);
        EXPECT_EQ(std::make_tuple(doc["file"], doc["device"], doc["type"], doc["observations"],
                                  doc["weighted"]),
                  std::make_tuple(weather, "hostsycl CPU", type, 180, true));
        // Float results are written with the 9 digits that bring the same float back.
        const auto in_type = [&](double x) { return o.use_float ? double(float(x)) : x; };
        std::vector<std::string> names;
        for (const auto& dim : doc["dimensions"]) {
            names.push_back(dim["name"]);
            EXPECT_EQ(dim.size(), want.size() + 1);
            for (const auto& [quantity, by_dim] : want) {
                const double v = by_dim.at(names.back());
                if (!std::isfinite(v))
                    EXPECT_TRUE(dim[quantity].is_null()) << quantity;
                else
                    EXPECT_EQ(in_type(dim[quantity].get<double>()), in_type(v)) << quantity;
            }
        }
        EXPECT_EQ(names, (std::vector<std::string>{"temperature_c", "wind_m_s", "pressure_hpa",
                                                   "rain_mm"}));
    }
    // Names as JSON strings: quotes and backslashes escaped, control characters as \u.
    const std::string odd = write_file("odd.csv", "\"a b\",\"q\"\"\\\",\"t\tx\"\n1,2,3\n");
    EXPECT_NE(run("QND -o json -e mean " + odd).out.find(R"({"name": "a b", "mean": 1},
    {"name": "q\"\\", "mean": 2},
    {"name": "t\u0009x", "mean": 3})"),
              std::string::npos);
    const run_result c = run("QND -o csv -e mean,kurtosis,min_max --mean 10 " + weather);
    ASSERT_EQ(c.status, 0) << c.err;
    tool_options o;
    o.estimates = {"mean", "kurtosis", "min_max"};
    o.user_mean = "10";
    const auto want = computed(o);
    EXPECT_EQ(c.out.substr(0, c.out.find('\n')), "dimension,mean,kurtosis,min,max");
    const named_values got = values_of(c.out);
    EXPECT_EQ(std::count(c.out.begin(), c.out.end(), '\n'), 1 + 6);  // a row per dimension
    EXPECT_EQ(got.size(), 6u * 4);                                   // of four values
    for (const auto& [quantity, by_dim] : want)
        for (const auto& [name, v] : by_dim)
            EXPECT_EQ(got.at(name + " " + quantity), v) << name << " " << quantity;
}

TEST(qnd_stats_cli, the_table_names_the_device_and_is_aligned) {
    for (const char* device : {"cpu", "gpu"}) {
        const run_result t = run(std::string("QND -e mean,min_max -d ") + device + " " + weather);
        ASSERT_EQ(t.status, 0) << t.err;
        std::istringstream lines(t.out);
        std::string first, line;
        std::getline(lines, first);
        EXPECT_EQ(first,
                  weather + ": 180 observations, 6 dimensions; double on " +
                      (device == std::string("cpu") ? "hostsycl CPU" : "hostsycl emulated GPU"));
        std::size_t width = 0, rows = 0;
        for (; std::getline(lines, line); ++rows) {
            width = width ? width : line.size();
            EXPECT_EQ(line.size(), width) << line;
        }
        EXPECT_EQ(rows, 4u);  // names, mean, min, max
    }
}

}  // namespace
}  // namespace qnd_stats
