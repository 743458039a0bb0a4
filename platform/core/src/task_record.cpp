// Creation, edits and deletion of a task record.
#include <cstddef>
#include <cstring>
#include <new>

#include "task_view.hpp"

namespace qnd_core {
namespace {

int32_t new_task(qnd_ss_task** task,
                 const void* n_dims,
                 const void* n_observations,
                 const void* storage,
                 const void* observations,
                 const void* weights,
                 const void* indices,
                 int32_t int_width,
                 uint32_t element_size) {
    if (task == nullptr) {
        return QND_SS_ERROR_TASK;
    }
    qnd_ss_task* t = new (std::nothrow) qnd_ss_task{};
    qnd_ss_extension* e = new (std::nothrow) qnd_ss_extension{};
    if (t == nullptr || e == nullptr) {
        delete t;
        delete e;
        return QND_SS_ERROR_MEMORY;
    }
    t->extension = e;
    t->int_width = int_width != 0 ? 1 : 0;
    t->element_size = element_size;
    t->dims_ptr = n_dims;
    t->observations_count_ptr = n_observations;
    t->storage_ptr = storage;
    t->observations = observations;
    t->weights = weights;
    t->indices = indices;
    t->magic = QND_SS_TASK_MAGIC;
    *task = t;
    return QND_SS_OK;
}

int32_t check_edit(const qnd_ss_task* task, uint32_t element_size) {
    if (!live_task(task)) {
        return QND_SS_ERROR_TASK;
    }
    return task->element_size == element_size ? QND_SS_OK : QND_SS_ERROR_ELEMENT_TYPE;
}

// The field an edit parameter sets; null for a parameter without one.
void** output_field(qnd_ss_task* t, int32_t parameter) {
    switch (parameter) {
        case QND_SS_ED_MEAN:
            return &t->mean;
        case QND_SS_ED_KURTOSIS:
            return &t->kurtosis;
        case QND_SS_ED_SKEWNESS:
            return &t->skewness;
        case QND_SS_ED_MIN:
            return &t->min;
        case QND_SS_ED_MAX:
            return &t->max;
        case QND_SS_ED_VARIATION:
            return &t->variation;
        default:
            break;
    }
    if (parameter >= QND_SS_ED_RAW_MOMENT_2 && parameter < QND_SS_ED_RAW_MOMENT_2 + 3) {
        return &t->raw_moment[parameter - QND_SS_ED_RAW_MOMENT_2];
    }
    if (parameter >= QND_SS_ED_CENTRAL_MOMENT_2 && parameter < QND_SS_ED_CENTRAL_MOMENT_2 + 3) {
        return &t->central_moment[parameter - QND_SS_ED_CENTRAL_MOMENT_2];
    }
    if (parameter >= QND_SS_ED_RAW_SUM_1 && parameter < QND_SS_ED_RAW_SUM_1 + 4) {
        return &t->raw_sum[parameter - QND_SS_ED_RAW_SUM_1];
    }
    if (parameter >= QND_SS_ED_CENTRAL_SUM_2 && parameter < QND_SS_ED_CENTRAL_SUM_2 + 3) {
        return &t->central_sum[parameter - QND_SS_ED_CENTRAL_SUM_2];
    }
    return nullptr;
}

// The pointer fields of the extension record, in the order of their parameters 41 to 61; -1
// for another parameter. They are pointers of several types, set through their bytes.
std::ptrdiff_t extension_offset(int32_t parameter) {
    static_assert(offsetof(qnd_ss_extension, stream_sketches) ==
                      offsetof(qnd_ss_extension, quantile_orders_count) +
                          8 * (QND_SS_ED_STREAM_SKETCHES - QND_SS_ED_QUANTILE_ORDERS_COUNT),
                  "one pointer per parameter");
    if (parameter < QND_SS_ED_QUANTILE_ORDERS_COUNT || parameter > QND_SS_ED_STREAM_SKETCHES) {
        return -1;
    }
    return static_cast<std::ptrdiff_t>(offsetof(qnd_ss_extension, quantile_orders_count)) +
           8 * (parameter - QND_SS_ED_QUANTILE_ORDERS_COUNT);
}

int32_t edit_task(qnd_ss_task* t, int32_t parameter, const void* value, uint32_t element_size) {
    if (const int32_t status = check_edit(t, element_size)) {
        return status;
    }
    switch (parameter) {
        case QND_SS_ED_DIMENSIONS:
            t->dims_ptr = value;
            return QND_SS_OK;
        case QND_SS_ED_OBSERVATIONS_COUNT:
            t->observations_count_ptr = value;
            return QND_SS_OK;
        case QND_SS_ED_OBSERVATIONS:
            t->observations = value;
            return QND_SS_OK;
        case QND_SS_ED_WEIGHTS:
            t->weights = value;
            return QND_SS_OK;
        case QND_SS_ED_INDICES:
            t->indices = value;
            return QND_SS_OK;
        case QND_SS_ED_STORAGE:
            t->storage_ptr = value;
            return QND_SS_OK;
        case QND_SS_ED_QUANTILE_DEFINITION:
            t->extension->quantile_definition =
                value == nullptr ? 0 : *static_cast<const int32_t*>(value);
            return QND_SS_OK;
        case QND_SS_ED_STREAM_CAPACITY:
            t->extension->stream_capacity =
                value == nullptr ? 0 : *static_cast<const int32_t*>(value);
            return QND_SS_OK;
        case QND_SS_ED_DOUBLE_RESULTS:
            if (value != nullptr && *static_cast<const int32_t*>(value) != 0) {
                t->flags |= QND_SS_FLAG_DOUBLE_RESULTS;
            } else {
                t->flags &= ~QND_SS_FLAG_DOUBLE_RESULTS;
            }
            return QND_SS_OK;
        default:
            break;
    }
    if (const std::ptrdiff_t offset = extension_offset(parameter); offset >= 0) {
        std::memcpy(reinterpret_cast<char*>(t->extension) + offset, &value, sizeof value);
        return QND_SS_OK;
    }
    void** field = output_field(t, parameter);
    if (field == nullptr) {
        return QND_SS_ERROR_PARAMETER;
    }
    *field = const_cast<void*>(value);
    return QND_SS_OK;
}

int32_t edit_moments(qnd_ss_task* t,
                     void* mean,
                     void* r2,
                     void* r3,
                     void* r4,
                     void* c2,
                     void* c3,
                     void* c4,
                     uint32_t element_size) {
    if (const int32_t status = check_edit(t, element_size)) {
        return status;
    }
    t->mean = mean;
    t->raw_moment[0] = r2;
    t->raw_moment[1] = r3;
    t->raw_moment[2] = r4;
    t->central_moment[0] = c2;
    t->central_moment[1] = c3;
    t->central_moment[2] = c4;
    return QND_SS_OK;
}

int32_t edit_sums(qnd_ss_task* t,
                  void* s1,
                  void* s2,
                  void* s3,
                  void* s4,
                  void* cs2,
                  void* cs3,
                  void* cs4,
                  uint32_t element_size) {
    if (const int32_t status = check_edit(t, element_size)) {
        return status;
    }
    t->raw_sum[0] = s1;
    t->raw_sum[1] = s2;
    t->raw_sum[2] = s3;
    t->raw_sum[3] = s4;
    t->central_sum[0] = cs2;
    t->central_sum[1] = cs3;
    t->central_sum[2] = cs4;
    return QND_SS_OK;
}

}  // namespace
}  // namespace qnd_core

using namespace qnd_core;

extern "C" {

int32_t __rtksSSNewTask(qnd_ss_task** task,
                        const void* n_dims,
                        const void* n_observations,
                        const void* storage,
                        const float* observations,
                        const float* weights,
                        const void* indices,
                        int32_t int_width) {
    return new_task(task, n_dims, n_observations, storage, observations, weights, indices,
                    int_width, sizeof(float));
}

int32_t __rtkdSSNewTask(qnd_ss_task** task,
                        const void* n_dims,
                        const void* n_observations,
                        const void* storage,
                        const double* observations,
                        const double* weights,
                        const void* indices,
                        int32_t int_width) {
    return new_task(task, n_dims, n_observations, storage, observations, weights, indices,
                    int_width, sizeof(double));
}

int32_t __rtksSSEditTask(qnd_ss_task* task, int32_t parameter, const void* value) {
    return edit_task(task, parameter, value, sizeof(float));
}

int32_t __rtkdSSEditTask(qnd_ss_task* task, int32_t parameter, const void* value) {
    return edit_task(task, parameter, value, sizeof(double));
}

int32_t __rtksSSEditMoments(qnd_ss_task* task,
                            float* mean,
                            float* raw_moment_2,
                            float* raw_moment_3,
                            float* raw_moment_4,
                            float* central_moment_2,
                            float* central_moment_3,
                            float* central_moment_4) {
    return edit_moments(task, mean, raw_moment_2, raw_moment_3, raw_moment_4, central_moment_2,
                        central_moment_3, central_moment_4, sizeof(float));
}

int32_t __rtkdSSEditMoments(qnd_ss_task* task,
                            double* mean,
                            double* raw_moment_2,
                            double* raw_moment_3,
                            double* raw_moment_4,
                            double* central_moment_2,
                            double* central_moment_3,
                            double* central_moment_4) {
    return edit_moments(task, mean, raw_moment_2, raw_moment_3, raw_moment_4, central_moment_2,
                        central_moment_3, central_moment_4, sizeof(double));
}

int32_t __rtksSSEditSums(qnd_ss_task* task,
                         float* raw_sum_1,
                         float* raw_sum_2,
                         float* raw_sum_3,
                         float* raw_sum_4,
                         float* central_sum_2,
                         float* central_sum_3,
                         float* central_sum_4) {
    return edit_sums(task, raw_sum_1, raw_sum_2, raw_sum_3, raw_sum_4, central_sum_2, central_sum_3,
                     central_sum_4, sizeof(float));
}

int32_t __rtkdSSEditSums(qnd_ss_task* task,
                         double* raw_sum_1,
                         double* raw_sum_2,
                         double* raw_sum_3,
                         double* raw_sum_4,
                         double* central_sum_2,
                         double* central_sum_3,
                         double* central_sum_4) {
    return edit_sums(task, raw_sum_1, raw_sum_2, raw_sum_3, raw_sum_4, central_sum_2, central_sum_3,
                     central_sum_4, sizeof(double));
}

int32_t __rtkSSDeleteTask(qnd_ss_task** task) {
    if (task == nullptr || !live_task(*task)) {
        return QND_SS_ERROR_TASK;
    }
    (*task)->magic = 0;
    delete (*task)->extension;
    delete *task;
    *task = nullptr;
    return QND_SS_OK;
}
}
