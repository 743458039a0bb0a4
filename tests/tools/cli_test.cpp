// The qnd-stats program as a person runs it: exit statuses, one-line errors with nothing on
// standard output, and output formats that read back to the numbers the library computed.
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "compute.hpp"
#include "json_reader.hpp"
#include "readers.hpp"
#include "stats_job.hpp"
#include "temp_files.hpp"

namespace qnd_stats {
namespace {

struct run_result {
    int status = -1;
    std::string out, err;
};

std::string slurp(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

run_result run(const std::string& args) {
    const std::string out = temp_path("out"), err = temp_path("err");
    const std::string cmd =
        std::string("'") + QND_STATS_BIN + "' " + args + " > '" + out + "' 2> '" + err + "'";
    const int raw = std::system(cmd.c_str());
    run_result r;
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.out = slurp(out);
    r.err = slurp(err);
    return r;
}

const char* weather = QND_SOURCE_DIR "/examples/data/weather.csv";

TEST(qnd_stats_cli, bad_input_gives_one_line_and_a_status) {
    const std::string ragged = write_file("ragged.csv", "a,b\n1,2\n3,4\n5\n");
    const std::string word = write_file("word.txt", "1 2\n3 4\n5 six\n");
    const std::string raw = write_file("odd.bin", std::string(20, '\0'));
    struct cli_case {
        std::string args;
        int status;
        std::string err;
    };
    const std::vector<cli_case> cases = {
        {"", 2, "qnd-stats: no data file given (see --help)\n"},
        {"--frobnicate x", 2, "qnd-stats: unknown option '--frobnicate' (see --help)\n"},
        {"/nonexistent/d.csv", 1,
         "qnd-stats: /nonexistent/d.csv: cannot open: No such file or directory\n"},
        {"'" + ragged + "'", 1,
         "qnd-stats: " + ragged + ", line 4: 1 field, expected 2 as on line 1\n"},
        {"'" + word + "'", 1, "qnd-stats: " + word + ", line 3, field 2: 'six' is not a number\n"},
        {"--dims 3 '" + raw + "'", 1,
         "qnd-stats: " + raw +
             ": 20 bytes are not a whole number of observations of 3 float64 values (24 bytes "
             "each)\n"},
        {"'" + raw + "'", 2,
         "qnd-stats: " + raw + " is read as raw binary, which needs --dims (or give --format)\n"},
        {std::string("-m 9 ") + weather, 1, "qnd-stats: --mask: column 9 is not in 1 to 6\n"},
        {std::string("-d gpu --method alternate -e central_moment ") + weather, 1,
         "qnd-stats: tavrel::qnd::stats::central_moment: unimplemented functionality: for this "
         "method\n"},
    };
    for (const cli_case& c : cases) {
        SCOPED_TRACE(c.args);
        const run_result r = run(c.args);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.err, c.err);
        EXPECT_EQ(r.out, "") << "nothing is printed when the run fails";
    }
}

TEST(qnd_stats_cli, standard_input_is_read_as_text) {
    const std::string data = write_file("in.txt", "1 10\n2 20\n3 60\n");
    const run_result r = run("-e mean,min_max -o csv - < '" + data + "'");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "dimension,mean,min,max\nx1,2,1,3\nx2,30,10,60\n");
    const run_result bad = run("- < '" + write_file("bad.txt", "1 2\n3\n") + "'");
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(bad.err, "qnd-stats: -, line 2: 1 field, expected 2 as on line 1\n");
}

TEST(qnd_stats_cli, help_and_version) {
    const run_result help = run("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out, help_text());
    const run_result version = run("-V");
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, std::string("qnd-stats ") + QND_VERSION + "\n");
}

// What the library gives for the weather data on the default device, through compute().
std::vector<quantity> library_results(const tool_options& o, stats_job& job) {
    job = prepare_job(read_data(weather, o), o);
    sycl::queue q = make_queue(o.device);
    return compute(q, job, o);
}

// A float result is printed with the 9 digits that bring the same float back.
void expect_same(double printed, double computed, const std::string& what, bool in_float = false) {
    if (std::isnan(computed))
        EXPECT_TRUE(std::isnan(printed)) << what;
    else if (in_float)
        EXPECT_EQ(static_cast<float>(printed), static_cast<float>(computed)) << what;
    else
        EXPECT_EQ(printed, computed) << what;
}

TEST(qnd_stats_cli, json_reads_back_to_the_computed_numbers) {
    for (const char* type : {"double", "float"}) {
        SCOPED_TRACE(type);
        const run_result r =
            run(std::string("-o json -t ") + type + " --weight-column day -m 2,4-6 " + weather);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(r.err, "");
        tool_options o;
        o.estimates = parse_options(2, std::vector<const char*>{"x", "f"}.data()).estimates;
        o.use_float = std::string(type) == "float";
        o.weight_column = "day";
        o.mask = "2,4-6";
        stats_job job;
        const std::vector<quantity> expected = library_results(o, job);

        const qnd_test::json_value doc = qnd_test::parse_json(r.out);
        EXPECT_EQ(doc["file"].str, weather);
        EXPECT_EQ(doc["type"].str, type);
        EXPECT_EQ(doc["observations"].num, 180);
        EXPECT_TRUE(doc["weighted"].flag);
        const auto& dims = doc["dimensions"].items;
        const std::vector<std::string> names = {"temperature_c", "wind_m_s", "pressure_hpa",
                                                "rain_mm"};
        const std::vector<std::size_t> index = {0, 2, 3, 4};
        ASSERT_EQ(dims.size(), names.size());
        for (std::size_t k = 0; k < dims.size(); ++k) {
            EXPECT_EQ(dims[k]["name"].str, names[k]);
            ASSERT_EQ(dims[k].members.size(), expected.size() + 1);
            for (const quantity& q : expected) {
                const qnd_test::json_value& v = dims[k][q.name];
                if (v.kind == qnd_test::json_value::null)
                    EXPECT_FALSE(std::isfinite(q.values[index[k]])) << q.name;
                else
                    expect_same(v.num, q.values[index[k]], names[k] + " " + q.name, o.use_float);
            }
        }
    }
}

TEST(qnd_stats_cli, csv_reads_back_and_table_is_aligned) {
    const run_result r = run(std::string("-o csv -e mean,min_max,kurtosis --mean 10 ") + weather);
    ASSERT_EQ(r.status, 0) << r.err;
    tool_options o;
    o.estimates = {"mean", "kurtosis", "min_max"};
    o.user_mean = "10";
    stats_job job;
    const std::vector<quantity> expected = library_results(o, job);
    std::istringstream csv(r.out);
    std::string row;
    std::getline(csv, row);
    EXPECT_EQ(row, "dimension,mean,kurtosis,min,max");
    std::size_t d = 0;
    while (std::getline(csv, row)) {
        ASSERT_LT(d, job.names.size());
        std::vector<std::string> fields;
        std::istringstream fs(row);
        for (std::string f; std::getline(fs, f, ',');)
            fields.push_back(f);
        ASSERT_EQ(fields.size(), 5u) << row;
        EXPECT_EQ(fields[0], job.names[d]);
        for (std::size_t k = 0; k < expected.size(); ++k)
            expect_same(std::strtod(fields[k + 1].c_str(), nullptr), expected[k].values[d],
                        job.names[d] + " " + expected[k].name);
        ++d;
    }
    EXPECT_EQ(d, 6u);
    const run_result t = run(std::string("-e mean,min_max ") + weather);
    ASSERT_EQ(t.status, 0) << t.err;
    std::istringstream lines(t.out);
    std::string first, line;
    std::getline(lines, first);
    EXPECT_EQ(first, std::string(weather) + ": 180 observations, 6 dimensions; double on " +
                         make_queue(device_choice::default_device)
                             .get_device()
                             .get_info<sycl::info::device::name>());
    std::size_t width = 0, rows = 0;
    while (std::getline(lines, line)) {
        if (width == 0)
            width = line.size();
        EXPECT_EQ(line.size(), width) << line;
        ++rows;
    }
    EXPECT_EQ(rows, 4u);  // names, mean, min, max
}

}  // namespace
}  // namespace qnd_stats
