// Histograms: bins counted in a second pass equal a direct count of the same data, whatever the
// device, chunk size, weights and mask; and how the program shows them and refuses their options.
#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "compute.hpp"
#include "run_program.hpp"

namespace qnd_stats {
namespace {

// Columns a (0.5 to 99.5, and the range's ends 0 and 100), b, w (weights, some 0) and c; no value
// lies on an inner bin edge, so the direct count below cannot round otherwise.
struct data {
    std::vector<std::vector<double>> columns{{}, {}, {}, {}};
    std::string csv = "a,b,w,c\n";
    data() {
        for (int i = 0; i < 102; ++i) {
            const double a = i == 100 ? 0 : i == 101 ? 100 : (i * 37 % 100) + 0.5;
            const double b = -3.0 + (i * 13 % 50) * 0.25 + 0.125;
            const double w = i % 5 == 0 ? 0 : i % 3 + 1, c = 1e6 + (i % 4);
            for (int k = 0; k < 4; ++k)
                columns[k].push_back(std::vector<double>{a, b, w, c}[k]);
            csv += std::to_string(a) + "," + std::to_string(b) + "," + std::to_string(w) + "," +
                   std::to_string(c) + "\n";
        }
    }
};

// Over the range of the observations that count (weight above 0), as the extremes are.
histogram direct_count(const std::vector<double>& x, const std::vector<double>* w, int n) {
    const auto counts = [&](std::size_t i) { return w == nullptr || (*w)[i] > 0; };
    histogram h{INFINITY, -INFINITY, std::vector<double>(n, 0.0)};
    for (std::size_t i = 0; i < x.size(); ++i)
        if (counts(i))
            h.low = std::min(h.low, x[i]), h.high = std::max(h.high, x[i]);
    for (std::size_t i = 0; i < x.size(); ++i) {
        const long double t = (x[i] - static_cast<long double>(h.low)) / (h.high - h.low) * n;
        if (counts(i))
            h.bins[std::min(n - 1, static_cast<int>(t))] += w ? (*w)[i] : 1;
    }
    return h;
}

// The range and the bins.
auto fields(const histogram& h) {
    return std::make_tuple(h.low, h.high, h.bins);
}

TEST(qnd_stats_histogram, bins_equal_a_direct_count_on_every_device_and_chunk_size) {
    const data d;
    const std::string path = write_file("h.csv", d.csv);
    for (const char* device : {"cpu", "gpu"})
        for (std::int64_t chunk : {1, 3, 0})
            for (bool weighted : {false, true})
                for (bool use_float : {false, true}) {
                    SCOPED_TRACE(std::string(device) + " chunk " + std::to_string(chunk) +
                                 (weighted ? " weighted" : "") + (use_float ? " float" : ""));
                    tool_options o;
                    o.device =
                        device == std::string("gpu") ? device_choice::gpu : device_choice::cpu;
                    o.chunk_rows = chunk, o.use_float = use_float, o.histogram = true, o.bins = 7;
                    o.estimates = {"mean"};
                    o.mask = weighted ? "1,2,4" : "1,2";
                    o.weight_column = weighted ? "w" : "";
                    sycl::queue q = make_queue(o.device);
                    const auto first = open_source(path, o);
                    const stats_job job = prepare_job(*first, o);
                    const partial_results r = compute(q, *first, job, o);
                    std::vector<double> min_max;
                    for (const auto& c : r.columns)
                        min_max.insert(min_max.end(), {c.min, c.max});
                    const auto again = open_source(path, o);
                    const std::vector<histogram> h =
                        count_histograms(q, *again, job, o, histogram_ranges(job, min_max, o.bins));
                    const std::vector<double>* w = weighted ? &d.columns[2] : nullptr;
                    EXPECT_EQ(fields(h[0]), fields(direct_count(d.columns[0], w, 7)));
                    EXPECT_EQ(fields(h[1]), fields(direct_count(d.columns[1], w, 7)));
                    EXPECT_EQ(h[2].bins, std::vector<double>{});  // weights or masked out
                    EXPECT_EQ(h[3].bins, weighted ? direct_count(d.columns[3], w, 7).bins
                                                  : std::vector<double>{});
                }
}

run_result run(const std::string& args) {
    return run_command("printf '1 2\\n3 4\\n5 9\\n' | '" QND_STATS_BIN "' " + args);
}

TEST(qnd_stats_histogram, shown_in_every_format_and_read_twice_from_a_pipe) {
    const run_result table = run("--histogram --bins 4 -e min_max --chunk-rows 2 -");
    ASSERT_EQ(table.status, 0) << table.err;
    EXPECT_EQ(table.out,
              "-: 3 observations, 2 dimensions; double on hostsycl CPU\n"
              "             x1    x2\n"
              "min           1     2\n"
              "max           5     9\n"
              "histogram  █ ██  ██ █\n");
    EXPECT_EQ(run("--histogram --bins 4 -o csv -e mean -d gpu -").out,
              "dimension,mean,histogram\nx1,3,1 0 1 1\nx2,5,1 1 0 1\n");
    EXPECT_NE(run("--histogram --bins 2 -o json -e mean -")
                  .out.find("\"histogram\": {\"low\": 1, \"high\": 5, \"bins\": [1, 2]}"),
              std::string::npos);
    for (const auto& [args, err] : std::vector<std::pair<std::string, std::string>>{
             {"--bins 0 -", "--bins: '0' is not a positive whole number"},
             {"--bins 1001 -", "--bins: '1001' is more than 1000 bins"},
             {"--histogram=yes -", "option --histogram takes no value"}})
        EXPECT_EQ(run(args), (run_result{2, "", "qnd-stats: " + err + "\n"})) << args;
}

}  // namespace
}  // namespace qnd_stats
