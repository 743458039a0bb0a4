/* A C program that includes the offload header and calls all eight entry points in a process
   without an offload runtime: a task whose storage format is neither layout gets -3, a row-major
   task -2, each before anything else is looked at. Exit status 0 on success. */
#include <stdint.h>
#include <stdio.h>

#include "tavrel/qnd/offload.h"

static int failures_of(uint64_t storage, int32_t want) {
    const void* record[30] = {0}; /* the task in 64-bit words: word 8 points at the storage */
    void* task = (void*)record;
    uint64_t estimates = 0x400;
    int32_t method32 = 1;
    int64_t method64 = 1;
    int32_t got[8];
    int failures = 0;
    int i;

    record[8] = &storage;
    got[0] = qnd_rtk_sSSCompute_omp_offload_lp64(task, estimates, method32, NULL);
    got[1] = qnd_rtk_dSSCompute_omp_offload_lp64(task, estimates, method32, NULL);
    got[2] = qnd_rtk_sSSCompute_omp_offload_ilp64(task, estimates, method64, NULL);
    got[3] = qnd_rtk_dSSCompute_omp_offload_ilp64(task, estimates, method64, NULL);
    got[4] = qnd_rtk_ssscompute_omp_offload_lp64(&task, &estimates, &method32, NULL);
    got[5] = qnd_rtk_dsscompute_omp_offload_lp64(&task, &estimates, &method32, NULL);
    got[6] = qnd_rtk_ssscompute_omp_offload(&task, &estimates, &method64, NULL);
    got[7] = qnd_rtk_dsscompute_omp_offload(&task, &estimates, &method64, NULL);
    for (i = 0; i < 8; ++i) {
        if (got[i] != want) {
            fprintf(stderr, "entry point %d answered %d, not %d\n", i, (int)got[i], (int)want);
            ++failures;
        }
    }
    return failures;
}

int main(void) {
    return failures_of(7, -3) + failures_of(65536, -2) == 0 ? 0 : 1;
}
