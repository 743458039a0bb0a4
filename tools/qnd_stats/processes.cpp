// The MPI side of a run of several processes. Built without MPI, or started without mpirun,
// there is one process and every exchange is the identity.
#include "processes.hpp"

#include <cstdlib>
#include <vector>

#ifdef QND_HAVE_MPI
#include <mpi.h>
#endif

namespace qnd_stats {

#ifdef QND_HAVE_MPI

namespace {

// Launched by mpirun (or a compatible launcher): a plain run never starts MPI.
bool launched_by_mpirun() {
    for (const char* name : {"OMPI_COMM_WORLD_SIZE", "PMIX_RANK", "PMI_RANK"})
        if (std::getenv(name) != nullptr)
            return true;
    return false;
}

// A process's results as doubles: three counts, then twelve values per column.
std::vector<double> flatten(const partial_results& r) {
    std::vector<double> v = {r.n_observations, r.n_weights, r.weight_total};
    for (const auto& c : r.columns)
        v.insert(v.end(),
                 {c.w, c.w2, c.mean, c.cs2, c.cs3, c.cs4, c.s1, c.s2, c.s3, c.s4, c.min, c.max});
    return v;
}

partial_results unflatten(const std::vector<double>& v, std::size_t columns) {
    partial_results r;
    r.n_observations = v[0];
    r.n_weights = v[1];
    r.weight_total = v[2];
    r.columns.resize(columns);
    const double* p = v.data() + 3;
    for (auto& c : r.columns) {
        c.w = *p++, c.w2 = *p++, c.mean = *p++, c.cs2 = *p++, c.cs3 = *p++, c.cs4 = *p++;
        c.s1 = *p++, c.s2 = *p++, c.s3 = *p++, c.s4 = *p++, c.min = *p++, c.max = *p++;
    }
    return r;
}

// Combines every process's values into rank 0's in a tree over the ranks: at step s, rank r
// (a multiple of 2s) takes in the values of rank r + s, which then leaves.
template <typename Combine>
void tree(const share& of, std::vector<double>& v, Combine combine) {
    const int n = static_cast<int>(v.size());
    for (int step = 1; step < of.size; step *= 2) {
        if (of.rank % (2 * step) == step) {
            MPI_Send(v.data(), n, MPI_DOUBLE, of.rank - step, 0, MPI_COMM_WORLD);
            return;
        }
        if (of.rank + step < of.size) {
            std::vector<double> theirs(v.size());
            MPI_Recv(theirs.data(), n, MPI_DOUBLE, of.rank + step, 0, MPI_COMM_WORLD,
                     MPI_STATUS_IGNORE);
            combine(v, theirs);
        }
    }
}

}  // namespace

processes::processes(int& argc, char**& argv) {
    if (!launched_by_mpirun())
        return;
    MPI_Init(&argc, &argv);
    started = true;
    MPI_Comm_rank(MPI_COMM_WORLD, &of.rank);
    MPI_Comm_size(MPI_COMM_WORLD, &of.size);
    MPI_Comm node;
    MPI_Comm_split_type(MPI_COMM_WORLD, MPI_COMM_TYPE_SHARED, of.rank, MPI_INFO_NULL, &node);
    MPI_Comm_rank(node, &local_rank);
    MPI_Comm_free(&node);
}

processes::~processes() {
    if (started)
        MPI_Finalize();
}

int processes::agree(int status, bool& speaks) {
    speaks = status != 0;
    if (of.size == 1)
        return status;
    int worst = 0;
    MPI_Allreduce(&status, &worst, 1, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
    const int mine = status != 0 ? of.rank : of.size;
    int first = of.size;
    MPI_Allreduce(&mine, &first, 1, MPI_INT, MPI_MIN, MPI_COMM_WORLD);
    speaks = first == of.rank;
    return worst;
}

std::int64_t processes::rows_before(std::int64_t rows) {
    if (of.size == 1)
        return 0;
    long long mine = rows, before = 0;
    MPI_Exscan(&mine, &before, 1, MPI_LONG_LONG, MPI_SUM, MPI_COMM_WORLD);
    return of.rank == 0 ? 0 : before;
}

void processes::merge(partial_results& mine, bool about_centre) {
    std::vector<double> v = flatten(mine);
    tree(of, v, [&](std::vector<double>& ours, const std::vector<double>& theirs) {
        merge_into(mine, unflatten(theirs, mine.columns.size()), about_centre);
        ours = flatten(mine);
    });
}

void processes::broadcast(std::vector<double>& values) {
    if (of.size > 1)
        MPI_Bcast(values.data(), static_cast<int>(values.size()), MPI_DOUBLE, 0, MPI_COMM_WORLD);
}

void processes::add_up(std::vector<histogram>& mine) {
    std::vector<double> v;
    for (const histogram& h : mine)
        v.insert(v.end(), h.bins.begin(), h.bins.end());
    tree(of, v, [](std::vector<double>& ours, const std::vector<double>& theirs) {
        for (std::size_t k = 0; k < ours.size(); ++k)
            ours[k] += theirs[k];
    });
    const double* p = v.data();
    for (histogram& h : mine)
        for (double& b : h.bins)
            b = *p++;
}

int processes::status_of_first(int status) {
    if (of.size > 1)
        MPI_Bcast(&status, 1, MPI_INT, 0, MPI_COMM_WORLD);
    return status;
}

#else

processes::processes(int&, char**&) {}
processes::~processes() = default;
int processes::agree(int status, bool& speaks) {
    speaks = status != 0;
    return status;
}
std::int64_t processes::rows_before(std::int64_t) {
    return 0;
}
void processes::merge(partial_results&, bool) {}
void processes::broadcast(std::vector<double>&) {}
void processes::add_up(std::vector<histogram>&) {}
int processes::status_of_first(int status) {
    return status;
}

#endif

}  // namespace qnd_stats
