/* The offload header from C, in a process without an offload runtime: each of the eight entry
   points links and answers -3 for a storage format that is neither layout, before anything else
   is looked at, and -2 for a row-major task, whose runtime cannot be loaded. */
#include <stdint.h>
#include <stddef.h>

#include "tavrel/qnd/offload.h"

/* How many of the eight entry points do not answer `want` for a task of layout `storage`. */
static int failures_of(uint64_t storage, int32_t want) {
    const void* record[30] = {0}; /* the task in 64-bit words: word 8 points at the storage */
    void* task = (void*)record;
    uint64_t estimates = 0x400;
    int32_t m32 = 1;
    int64_t m64 = 1;
    record[8] = &storage;
    return (qnd_rtk_sSSCompute_omp_offload_lp64(task, estimates, m32, NULL) != want) +
           (qnd_rtk_dSSCompute_omp_offload_lp64(task, estimates, m32, NULL) != want) +
           (qnd_rtk_sSSCompute_omp_offload_ilp64(task, estimates, m64, NULL) != want) +
           (qnd_rtk_dSSCompute_omp_offload_ilp64(task, estimates, m64, NULL) != want) +
           (qnd_rtk_ssscompute_omp_offload_lp64(&task, &estimates, &m32, NULL) != want) +
           (qnd_rtk_dsscompute_omp_offload_lp64(&task, &estimates, &m32, NULL) != want) +
           (qnd_rtk_ssscompute_omp_offload(&task, &estimates, &m64, NULL) != want) +
           (qnd_rtk_dsscompute_omp_offload(&task, &estimates, &m64, NULL) != want);
}

int main(void) {
    return failures_of(7, -3) + failures_of(0x30000, -3) + failures_of(65536, -2) == 0 ? 0 : 1;
}
