// The checks every routine makes on a task, and the plain view of it that the routines work on.
#pragma once

#include <cstdint>

#include "qnd_core/ss.h"

namespace qnd_core {

struct task_view {
    int64_t n_dims;
    int64_t n_observations;
    bool row_major;
    bool wide_ints;       // the integers of the task are 64-bit
    bool double_results;  // outputs hold doubles whatever T is
    const void* indices;
    const void* observations;
    const void* weights;
};

inline int64_t read_int(const void* p, bool wide) {
    return wide ? *static_cast<const int64_t*>(p) : *static_cast<const int32_t*>(p);
}

inline bool dimension_kept(const task_view& t, int64_t d) {
    return t.indices == nullptr ||
           read_int(static_cast<const char*>(t.indices) + d * (t.wide_ints ? 8 : 4), t.wide_ints) !=
               0;
}

inline bool live_task(const qnd_ss_task* task) {
    return task != nullptr && task->magic == QND_SS_TASK_MAGIC;
}

// The checks, in the documented order; 0 and a filled view when the task can be computed.
template <class T>
int32_t check_task(const qnd_ss_task* task, int64_t method, task_view* view) {
    if (!live_task(task)) {
        return QND_SS_ERROR_TASK;
    }
    const bool wide = task->int_width != 0;
    if (task->dims_ptr == nullptr || read_int(task->dims_ptr, wide) < 1) {
        return QND_SS_ERROR_DIMENSIONS;
    }
    if (task->observations_count_ptr == nullptr ||
        read_int(task->observations_count_ptr, wide) < 1) {
        return QND_SS_ERROR_OBSERVATIONS_COUNT;
    }
    if (task->observations == nullptr) {
        return QND_SS_ERROR_OBSERVATIONS;
    }
    if (task->storage_ptr == nullptr) {
        return QND_SS_ERROR_STORAGE_POINTER;
    }
    const int64_t storage = read_int(task->storage_ptr, wide);
    if (storage != QND_SS_ROW_MAJOR && storage != QND_SS_COL_MAJOR) {
        return QND_SS_ERROR_STORAGE;
    }
    if (task->element_size != sizeof(T)) {
        return QND_SS_ERROR_ELEMENT_TYPE;
    }
    if (method != QND_SS_METHOD_FAST && method != QND_SS_METHOD_STREAMING &&
        method != QND_SS_METHOD_USER_MEAN) {
        return QND_SS_ERROR_METHOD;
    }
    view->n_dims = read_int(task->dims_ptr, wide);
    view->n_observations = read_int(task->observations_count_ptr, wide);
    view->row_major = storage == QND_SS_ROW_MAJOR;
    view->wide_ints = wide;
    view->double_results = (task->flags & QND_SS_FLAG_DOUBLE_RESULTS) != 0;
    view->indices = task->indices;
    view->observations = task->observations;
    view->weights = task->weights;
    return QND_SS_OK;
}

// One result into an output array of T, or of double for a task that asks for double results.
template <class T>
inline void store(void* array, int64_t d, double value, bool double_results) {
    if (double_results) {
        static_cast<double*>(array)[d] = value;
    } else {
        static_cast<T*>(array)[d] = static_cast<T>(value);
    }
}

template <class T>
inline double load(const void* array, int64_t d, bool double_results) {
    return double_results ? static_cast<const double*>(array)[d]
                          : static_cast<double>(static_cast<const T*>(array)[d]);
}

}  // namespace qnd_core
