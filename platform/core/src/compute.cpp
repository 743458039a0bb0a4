// The routing of a mask of estimates among the routines, for applications that hold a task.
#include "task_view.hpp"

namespace qnd_core {
namespace {

using routine = int32_t (*)(qnd_ss_task*, uint64_t, int64_t, const qnd_ss_threader_row*);

struct route {
    uint64_t bits;
    routine single;
    routine dbl;
};

// In the order the routines run.
const route routes[] = {
    {0xc00ULL, _rtksSSMinmax, _rtkdSSMinmax},
    {0x8000000000ULL, _rtksSSSort, _rtkdSSSort},
    {0x1fe0033ffULL, _rtksSSBasic, _rtkdSSBasic},
    {0x600000000ULL, _rtksSSMAD, _rtkdSSMAD},
    {0x180000c000ULL, _rtksSSPooledCovariance, _rtkdSSPooledCovariance},
    {0x80000ULL, _rtksSSOutliersDetection, _rtkdSSOutliersDetection},
    {0x40000ULL, _rtksSSRobustCovariance, _rtkdSSRobustCovariance},
    {0x300000ULL, _rtksSSPartialCovariance, _rtkdSSPartialCovariance},
    {0x30000ULL, _rtksSSQuantiles, _rtkdSSQuantiles},
    {0x1000000ULL, _rtksSSStreamQuantiles, _rtkdSSStreamQuantiles},
    {0x800000ULL, _rtksSSCorParametrization, _rtkdSSCorParametrization},
};
constexpr uint64_t missing_values_bit = 0x400000ULL;
// Requests that need no observations: with one of these only the dimensions are checked.
constexpr uint64_t without_observations = 0x1b00000ULL;

int32_t check_shape(const qnd_ss_task* task, uint64_t estimates) {
    if (task == nullptr) {
        return QND_SS_ERROR_TASK;
    }
    const bool wide = task->int_width != 0;
    if (task->dims_ptr == nullptr || read_int(task->dims_ptr, wide) < 1) {
        return QND_SS_ERROR_DIMENSIONS;
    }
    if ((estimates & without_observations) != 0) {
        return QND_SS_OK;
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
    return QND_SS_OK;
}

int32_t compute(bool single,
                qnd_ss_task* task,
                uint64_t estimates,
                int64_t method,
                const qnd_ss_threader_row* table) {
    if (const int32_t status = check_shape(task, estimates)) {
        return status;
    }
    if ((estimates & missing_values_bit) != 0) {
        return (single ? _rtksSSMissingValues : _rtkdSSMissingValues)(task, estimates, method,
                                                                      table);
    }
    int32_t status = QND_SS_OK;
    for (const route& r : routes) {
        if ((estimates & r.bits) != 0) {
            status = (single ? r.single : r.dbl)(task, estimates, method, table);
            if (status < 0) {
                return status;
            }
        }
    }
    return status;
}

}  // namespace
}  // namespace qnd_core

extern "C" {

int32_t qnd_ss_compute_s(qnd_ss_task* task,
                         uint64_t estimates,
                         int64_t method,
                         const qnd_ss_threader_row* threader_table) {
    return qnd_core::compute(true, task, estimates, method, threader_table);
}

int32_t qnd_ss_compute_d(qnd_ss_task* task,
                         uint64_t estimates,
                         int64_t method,
                         const qnd_ss_threader_row* threader_table) {
    return qnd_core::compute(false, task, estimates, method, threader_table);
}
}
