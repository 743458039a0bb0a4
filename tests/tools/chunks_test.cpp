// qnd-stats's results on every device: equal to long-double references, the same whatever the
// chunk size (weighted or not, caller's mean, mask, both layouts), and right on a GPU for data
// that the GPU engine's one-pass forms and extreme seeds get wrong.
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "compute.hpp"
#include "long_double_partial.hpp"
#include "run_program.hpp"
#include "support/devices.hpp"

namespace qnd_stats {
namespace {

namespace stats = tavrel::qnd::stats;
using column = std::vector<double>;

// A float64 .npy file of the columns (each a vector of observations), in C or Fortran order.
std::string write_npy(const std::string& name, const std::vector<column>& columns, bool fortran) {
    const std::size_t n = columns[0].size(), d = columns.size();
    column data;
    for (std::size_t a = 0; a < (fortran ? d : n); ++a)
        for (std::size_t b = 0; b < (fortran ? n : d); ++b)
            data.push_back(fortran ? columns[a][b] : columns[b][a]);
    return write_file(
        name, npy("{'descr': '<f8', 'fortran_order': " + std::string(fortran ? "True" : "False") +
                      ", 'shape': (" + std::to_string(n) + ", " + std::to_string(d) + "), }",
                  bytes_of(data)));
}

named_values run(sycl::queue& q, const std::string& path, tool_options o) {
    o.estimates = {"mean",      "raw_sum",  "raw_moment", "central_sum", "central_moment",
                   "variation", "skewness", "kurtosis",   "min_max"};
    const auto source = open_source(path, o);
    stats_job job = prepare_job(*source, o);
    named_values values;
    for (const quantity& qy : finish_results(job, compute(q, *source, job, o), o))
        for (std::size_t d = 0; d < qy.values.size(); ++d)
            values[job.names[d] + " " + qy.name] = qy.values[d];
    return values;
}

// The twenty printed quantities of one dimension, from its long-double partial.
named_values reference(std::string name, const column& x, const column& w, const long double* c) {
    const auto p = qnd_test::direct<long double>(x, w, 0, x.size(), c);
    const auto f = stats::finish(p, c ? *c : p.mean);
    // clang-format off
    const std::pair<const char*, long double> q[] = {
        {"mean", f.mean}, {"s1", p.s1}, {"s2", p.s2}, {"s3", p.s3}, {"s4", p.s4},
        {"r1", f.mean}, {"r2", f.r2}, {"r3", f.r3}, {"r4", f.r4},
        {"cs2", p.cs2}, {"cs3", p.cs3}, {"cs4", p.cs4}, {"c2", f.c2}, {"c3", f.c3}, {"c4", f.c4},
        {"variation", f.variation}, {"skewness", f.skewness}, {"kurtosis", f.kurtosis},
        {"min", p.min}, {"max", p.max}};
    // clang-format on
    named_values to;
    for (const auto& [k, v] : q)
        to[name + " " + k] = static_cast<double>(v);
    return to;
}

std::vector<sycl::device> devices() {
    const std::vector<sycl::device> gpus = qnd_test::test_gpus();
    return {qnd_test::cpu_device(), gpus[0], gpus[2]};  // the CPU, GPUs of 256 and 3 items
}

TEST(qnd_stats_chunks, results_match_references_and_do_not_depend_on_the_chunk_size) {
    const std::size_t n = 45;
    std::mt19937_64 gen(20261124);
    std::normal_distribution<double> z(0.0, 1.0);
    std::vector<column> cols(4, column(n));
    std::string weights_text;
    for (std::size_t i = 0; i < n; ++i) {
        const double a = z(gen), b = z(gen);
        cols[0][i] = 50 + a;
        cols[1][i] = 50 + 3 * b;
        cols[2][i] = 50 + a * a;  // skewed
        // Weights from 0.25 to 2 that the text file holds exactly, some of them 0.
        cols[3][i] = i >= 10 && i < 17 ? 0.0 : static_cast<double>(16 + gen() % 113) / 64;
        weights_text += std::to_string(cols[3][i]) + "\n";
    }
    const std::string weights_file = write_file("w.txt", weights_text);

    const long double centre[] = {49.5L, 50.0L, 51.25L};
    struct variant {
        const char* what;
        const char* weight_column;
        bool weights_from_file;
        const char* mask;
        const char* user_mean;  // the centres, and 1 where the fourth column is a dimension
    };
    const variant variants[] = {{"unweighted", "", false, "", ""},
                                {"weight column", "4", false, "", ""},
                                {"weights file, mask", "", true, "1,3", ""},
                                {"caller's mean, weighted", "4", false, "", "49.5,50,51.25"},
                                {"caller's mean, mask", "", false, "2-3", "49.5,50,51.25,1"}};
    for (const sycl::device& device : devices())
        for (bool fortran : {false, true})
            for (const variant& v : variants) {
                SCOPED_TRACE(qnd_test::device_label(device) + (fortran ? " Fortran " : " C ") +
                             v.what);
                sycl::queue q(device);
                const std::string path = write_npy("d.npy", cols, fortran);
                tool_options o;
                o.weight_column = v.weight_column;
                o.weights_file = v.weights_from_file ? weights_file : "";
                o.mask = v.mask;
                o.user_mean = v.user_mean;

                named_values want;
                const bool weighted = *v.weight_column || v.weights_from_file;
                for (std::size_t d = 0; d < (*v.weight_column ? 3u : 4u); ++d) {
                    const long double c = d < 3 ? centre[d] : 1.0L;
                    const bool kept = !*v.mask || (std::string(v.mask) == "1,3" ? d == 0 || d == 2
                                                                                : d == 1 || d == 2);
                    for (const auto& [k, value] :
                         reference("x" + std::to_string(d + 1), cols[d],
                                   weighted ? cols[3] : column{}, *v.user_mean ? &c : nullptr))
                        want[k] = kept ? value : std::nan("");
                }
                const named_values whole = run(q, path, o);
                expect_close(whole, want, 1e-10);
                for (std::int64_t rows : {1, 2, 7}) {
                    SCOPED_TRACE("chunks of " + std::to_string(rows));
                    o.chunk_rows = rows;
                    expect_close(run(q, path, o), whole, 1e-12);
                }
            }
}

// Data far from zero (where sums of powers cancel), a dimension of negative values only (below
// the GPU's clamp of the maximum) and one with a NaN: the GPU device must give what the CPU gives.
TEST(qnd_stats_chunks, gpu_results_are_right_where_one_pass_forms_and_seeds_fail) {
    const std::size_t n = 2011;
    std::mt19937_64 gen(5);
    std::normal_distribution<double> z(0.0, 1.0);
    std::vector<column> cols(3, column(n));
    for (std::size_t i = 0; i < n; ++i) {
        cols[0][i] = 1e6 + z(gen);
        cols[1][i] = -1 - std::abs(5 * z(gen));
        cols[2][i] = static_cast<double>(i);
    }
    cols[2][7] = std::nan("");  // the GPU's extremes clamp a NaN; the CPU's keep it
    named_values want;
    for (std::size_t d = 0; d < 3; ++d)
        want.merge(reference("x" + std::to_string(d + 1), cols[d], {}, nullptr));
    want["x3 min"] = want["x3 max"] = std::nan("");
    const std::string path = write_npy("hard.npy", cols, false);
    for (const sycl::device& device : devices()) {
        SCOPED_TRACE(qnd_test::device_label(device));
        sycl::queue q(device);
        expect_close(run(q, path, tool_options()), want, 1e-10);
    }
}

}  // namespace
}  // namespace qnd_stats
