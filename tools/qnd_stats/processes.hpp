// The processes that describe one file together when the program runs under mpirun, each with
// its share of the observations; a single process otherwise.
#pragma once

#include <cstdint>
#include <vector>

#include "compute.hpp"
#include "share.hpp"

namespace qnd_stats {

struct processes {
    processes(int& argc, char**& argv);
    ~processes();
    processes(const processes&) = delete;
    processes& operator=(const processes&) = delete;

    // Every process learns the worst exit status of all; `speaks` is set on the one process
    // (the lowest failing rank) that prints its error, so that a failure is told once.
    int agree(int status, bool& speaks);
    // The number of observations of the shares before this one, given this share's.
    std::int64_t rows_before(std::int64_t rows);
    // Merges the results of all processes into rank 0's, in a tree over the ranks whose shape
    // depends on the number of processes only, so that a run gives the same bits every time.
    void merge(partial_results& mine, bool about_centre);
    // Rank 0's values on every process (each gives as many).
    void broadcast(std::vector<double>& values);
    // Adds the bins of all processes into rank 0's, over the same tree as merge.
    void add_up(std::vector<histogram>& mine);
    // Rank 0's status, on every process.
    int status_of_first(int status);

    share of;
    int local_rank = 0;  // among the processes of this machine: picks one of its GPUs
    bool started = false;
};

}  // namespace qnd_stats
