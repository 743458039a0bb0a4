// Threader entries of the OpenMP layer.
#include <omp.h>

#include "qnd_core/ss.h"
#include "thread_count.hpp"

using namespace qnd_layer;

extern "C" {

int32_t qnd_rtk_serv_threader_get_num_threads_limit(void) {
    return limit_from_environment(omp_get_max_threads());
}

void qnd_rtk_serv_threader_for(int64_t n, int32_t max_threads, void* ctx, qnd_threader_body body) {
    const int32_t nt =
        region_threads(qnd_rtk_serv_threader_get_num_threads_limit(), max_threads, n);
#pragma omp parallel num_threads(nt)
    {
        const int32_t t = omp_get_thread_num();
        const int32_t team = omp_get_num_threads();
        const int64_t end = range_begin(n, t + 1, team);
        for (int64_t i = range_begin(n, t, team); i < end; ++i) {
            body(ctx, i, t, team);
        }
    }
}

void qnd_rtk_serv_threader_for_ordered(int64_t n,
                                       int32_t max_threads,
                                       void* ctx,
                                       qnd_threader_body body,
                                       qnd_threader_body ordered_body) {
    qnd_rtk_serv_threader_for(n, max_threads, ctx, body);
    for (int64_t i = 0; i < n; ++i) {
        ordered_body(ctx, i, 0, 1);
    }
}

void qnd_rtk_serv_threader_sections(int32_t n_sections,
                                    int32_t max_threads,
                                    void* ctx,
                                    qnd_threader_body body) {
    const int32_t nt =
        region_threads(qnd_rtk_serv_threader_get_num_threads_limit(), max_threads, n_sections);
#pragma omp parallel for schedule(dynamic, 1) num_threads(nt)
    for (int32_t s = 0; s < n_sections; ++s) {
        body(ctx, s, omp_get_thread_num(), omp_get_num_threads());
    }
}

void qnd_rtk_serv_threader_ordered(int32_t max_threads,
                                   void* ctx,
                                   qnd_threader_body body,
                                   qnd_threader_body ordered_body) {
    const int32_t limit = qnd_rtk_serv_threader_get_num_threads_limit();
    const int32_t nt = region_threads(limit, max_threads, limit);
    int32_t team = nt;
#pragma omp parallel num_threads(nt)
    {
        const int32_t t = omp_get_thread_num();
#pragma omp single
        team = omp_get_num_threads();
        body(ctx, t, t, omp_get_num_threads());
    }
    if (ordered_body != nullptr) {
        for (int32_t t = 0; t < team; ++t) {
            ordered_body(ctx, t, t, team);
        }
    }
}
}
