// Threader entries of the sequential layer: every region runs on the calling thread.
#include "qnd_core/ss.h"

extern "C" {

void qnd_rtk_serv_threader_for(int64_t n, int32_t, void* ctx, qnd_threader_body body) {
    for (int64_t i = 0; i < n; ++i) {
        body(ctx, i, 0, 1);
    }
}

void qnd_rtk_serv_threader_for_ordered(
    int64_t n, int32_t, void* ctx, qnd_threader_body body, qnd_threader_body ordered_body) {
    for (int64_t i = 0; i < n; ++i) {
        body(ctx, i, 0, 1);
        ordered_body(ctx, i, 0, 1);
    }
}

void qnd_rtk_serv_threader_sections(int32_t n_sections,
                                    int32_t,
                                    void* ctx,
                                    qnd_threader_body body) {
    for (int32_t s = 0; s < n_sections; ++s) {
        body(ctx, s, 0, 1);
    }
}

void qnd_rtk_serv_threader_ordered(int32_t,
                                   void* ctx,
                                   qnd_threader_body body,
                                   qnd_threader_body ordered_body) {
    body(ctx, 0, 0, 1);
    if (ordered_body != nullptr) {
        ordered_body(ctx, 0, 0, 1);
    }
}

int32_t qnd_rtk_serv_threader_get_num_threads_limit(void) {
    return 1;
}
}
