// qnd-stats under mpirun: for 1, 2 and 3 processes (more than there are observations too), the
// merged results equal one process's, and a bad field in any share stops every process with
// one line that names the file, line and field.
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "run_program.hpp"

namespace qnd_stats {
namespace {

run_result run(int processes, const std::string& args) {
    // Open MPI refuses root unless told twice; a test machine runs as root.
    setenv("OMPI_ALLOW_RUN_AS_ROOT", "1", 1);
    setenv("OMPI_ALLOW_RUN_AS_ROOT_CONFIRM", "1", 1);
    // Processes of one machine exchange through shared memory without attaching to each other,
    // which a container may forbid.
    setenv("OMPI_MCA_btl_vader_single_copy_mechanism", "none", 1);
    // What Open MPI's components allocate at start-up is reported, once they are unloaded at
    // MPI_Finalize, as leaks of unknown modules that no suppression can name. The program's own
    // leaks are checked by the runs of one process, which take the same paths.
    const std::string mpirun = std::string("ASAN_OPTIONS=detect_leaks=0 ") + QND_MPIEXEC +
                               " --quiet --oversubscribe -n " + std::to_string(processes) + " ";
    return run_command((processes == 0 ? "" : mpirun) + "'" + QND_STATS_BIN + "' " + args +
                       " < /dev/null");
}

// The last field of each row: the bins, with --histogram.
std::vector<std::string> last_fields(const std::string& csv) {
    std::vector<std::string> v;
    std::istringstream lines(csv);
    for (std::string line; std::getline(lines, line);)
        v.push_back(line.substr(line.rfind(',') + 1));
    return v;
}

TEST(qnd_stats_mpi, any_number_of_processes_gives_one_process_results) {
    std::string csv = "a,b,c,w\n";
    for (int i = 0; i < 500; ++i)
        csv += std::to_string(50 + std::sin(i)) + "," + std::to_string(i % 17 * 0.25) + "," +
               std::to_string(std::exp(std::cos(i))) + "," + std::to_string(i % 5 + (i % 7 == 0)) +
               "\n";
    const std::string data = write_file("mpi.csv", csv);
    std::string weights;
    for (int i = 0; i < 500; ++i)
        weights += std::to_string(1 + i % 3) + "\n";
    const std::string weights_file = write_file("mpi_w.txt", weights);
    std::vector<double> raw(2 * 500);
    for (int i = 0; i < 2 * 500; ++i)
        raw[i] = 1 + std::sin(i * 0.37);
    const std::string raw_file = write_file("mpi.bin", bytes_of(raw));
    const std::string two = write_file("two.csv", "x\n1\n4\n");

    for (const std::string& args :
         {"--chunk-rows 7 --histogram " + data, "--weight-column w -m 1,3 " + data,
          "--chunk-rows 64 --histogram -w " + weights_file + " --mean 50,2,1,2 " + data,
          "--dims 2 --layout row_major -w " + weights_file + " " + raw_file, "-d gpu " + two}) {
        SCOPED_TRACE(args);
        const run_result one = run(0, "-o csv " + args);
        ASSERT_EQ(one.status, 0) << one.err;
        const auto want = values_of(one.out);
        for (int n : {1, 2, 3}) {
            SCOPED_TRACE(std::to_string(n) + " processes");
            const run_result r = run(n, "-o csv " + args);
            ASSERT_EQ(r.status, 0) << r.err;
            EXPECT_EQ(r.err, "");
            if (args.find("--histogram") != std::string::npos)  // exact counts and whole weights
                EXPECT_EQ(last_fields(r.out), last_fields(one.out));
            expect_close(values_of(r.out), want, 1e-12);
        }
    }
}

TEST(qnd_stats_mpi, a_failure_in_any_share_stops_every_process_with_one_line) {
    std::string csv = "a,b\n";
    for (int i = 0; i < 300; ++i)
        csv += std::to_string(i) + ",1\n";
    const std::string late = write_file("late.csv", csv + "7,x\n");
    const std::string early = write_file("early.csv", "a,b\n1,y\n" + csv.substr(4));
    const std::string short_weights = write_file("short_w.txt", "1\n2\n");
    const std::string ok = write_file("ok.csv", csv);
    const std::vector<std::pair<std::string, std::string>> cases = {
        {late, late + ", line 302, field 2: 'x' is not a number"},
        {early, early + ", line 2, field 2: 'y' is not a number"},
        {"-m 1 -w " + short_weights + " " + late,
         late + ", line 302, field 2: 'x' is not a number"},
        {"-w " + short_weights + " " + ok, short_weights + ": 2 weights for 300 observations"},
        {"/nonexistent.csv", "/nonexistent.csv: cannot open: No such file or directory"},
    };
    for (const auto& [args, error] : cases)
        for (int n : {2, 3}) {
            SCOPED_TRACE(args + ", " + std::to_string(n) + " processes");
            EXPECT_EQ(run(n, args), (run_result{1, "", "qnd-stats: " + error + "\n"}));
        }
    // The lines before a text share are not counted: a bad weight is named within its share.
    const std::string bad_weight = write_file("bad_w.csv", csv + "7,-1\n");
    EXPECT_EQ(run(2, "--weight-column b " + bad_weight).err,
              "qnd-stats: " + bad_weight +
                  ", column 2, observation 141 of the share of process 1: the weight -1 is "
                  "negative (weights are finite, 0 or more)\n");
}

}  // namespace
}  // namespace qnd_stats
