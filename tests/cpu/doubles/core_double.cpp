// The recording stand-in of the statistics component: tasks are real records, edits set their
// fields, and the two routines this library uses write a marker into every array they are asked
// to fill, so that tests can follow where each array went.
#include "core_double.hpp"

#include <map>
#include <set>
#include <mutex>

using tavrel::qnd::stats::detail::cpu::ss_task;

namespace {

std::mutex lock;
std::vector<core_double::call> log;
std::map<std::string, std::int32_t> statuses;
// Tasks not yet deleted: a failing call leaves its task behind, and reset() frees it.
std::set<ss_task*> live_tasks;

std::int64_t integer(const ss_task& task, const void* at);

std::int32_t record(core_double::call c) {
    if (c.task.dims_ptr != nullptr)
        c.n_dims = integer(c.task, c.task.dims_ptr);
    if (c.task.observations_count_ptr != nullptr)
        c.n_observations = integer(c.task, c.task.observations_count_ptr);
    if (c.task.storage_ptr != nullptr)
        c.storage = integer(c.task, c.task.storage_ptr);
    std::lock_guard<std::mutex> guard(lock);
    const auto found = statuses.find(c.entry);
    log.push_back(std::move(c));
    return found == statuses.end() ? 0 : found->second;
}

std::int64_t integer(const ss_task& task, const void* at) {
    if (task.int_width == 0)
        return *static_cast<const std::int32_t*>(at);
    return *static_cast<const std::int64_t*>(at);
}

bool kept(const ss_task& task, std::int64_t d) {
    if (task.indices == nullptr)
        return true;
    return integer(task, static_cast<const char*>(task.indices) + d * (task.int_width ? 8 : 4)) !=
           0;
}

// Fills the array of record word `word` with markers when `wanted` and the array is given.
template <typename T>
void fill(const ss_task& task, bool wanted, void* array, int word) {
    if (!wanted || array == nullptr)
        return;
    const std::int64_t n = integer(task, task.dims_ptr);
    for (std::int64_t d = 0; d < n; ++d)
        if (kept(task, d))
            static_cast<T*>(array)[d] = static_cast<T>(core_double::marker(word, d));
}

template <typename T>
std::int32_t new_task(const char* entry,
                      ss_task** handle,
                      const void* n_dims,
                      const void* n_observations,
                      const void* storage,
                      const T* observations,
                      const T* weights,
                      const void* indices,
                      std::int32_t int_width) {
    auto* task = new ss_task{};
    task->int_width = static_cast<std::uint32_t>(int_width);
    task->dims_ptr = n_dims;
    task->observations_count_ptr = n_observations;
    task->storage_ptr = storage;
    task->observations = observations;
    task->weights = weights;
    task->indices = indices;
    *handle = task;
    {
        std::lock_guard<std::mutex> guard(lock);
        live_tasks.insert(task);
    }
    core_double::call c;
    c.entry = entry;
    c.task = *task;
    return record(c);
}

std::int32_t edit_task(const char* entry, ss_task* task, std::int64_t parameter, void* array) {
    switch (parameter) {
        case 7:
            task->mean = array;
            break;
        case 14:
            task->kurtosis = array;
            break;
        case 15:
            task->skewness = array;
            break;
        case 16:
            task->min = array;
            break;
        case 17:
            task->max = array;
            break;
        case 18:
            task->variation = array;
            break;
        default:
            return -1;
    }
    core_double::call c;
    c.entry = entry;
    c.parameter = parameter;
    c.array = array;
    c.task = *task;
    return record(c);
}

std::int32_t edit_moments(const char* entry, ss_task* task, void* const (&a)[7]) {
    task->mean = a[0];
    task->raw_moment_2 = a[1];
    task->raw_moment_3 = a[2];
    task->raw_moment_4 = a[3];
    task->central_moment_2 = a[4];
    task->central_moment_3 = a[5];
    task->central_moment_4 = a[6];
    core_double::call c;
    c.entry = entry;
    c.task = *task;
    return record(c);
}

std::int32_t edit_sums(const char* entry, ss_task* task, void* const (&a)[7]) {
    task->raw_sum_1 = a[0];
    task->raw_sum_2 = a[1];
    task->raw_sum_3 = a[2];
    task->raw_sum_4 = a[3];
    task->central_sum_2 = a[4];
    task->central_sum_3 = a[5];
    task->central_sum_4 = a[6];
    core_double::call c;
    c.entry = entry;
    c.task = *task;
    return record(c);
}

// Every routine records; basic and minmax also fill what the mask asks for.
template <typename T>
std::int32_t routine(const char* entry,
                     ss_task* task,
                     std::uint64_t estimates,
                     std::int64_t method,
                     const void* threaders) {
    core_double::call c;
    c.entry = entry;
    c.estimates = estimates;
    c.method = method;
    c.threaders = threaders;
    if (task != nullptr)
        c.task = *task;
    const std::int32_t status = record(c);
    if (status != 0 || task == nullptr || task->dims_ptr == nullptr)
        return status;
    const std::string name(entry + 7);  // behind "_rtk?SS"
    if (name == "Basic") {
        fill<T>(*task, estimates & 0x1, task->mean, 11);
        fill<T>(*task, estimates & 0x2, task->raw_moment_2, 12);
        fill<T>(*task, estimates & 0x4, task->raw_moment_3, 13);
        fill<T>(*task, estimates & 0x8, task->raw_moment_4, 14);
        fill<T>(*task, estimates & 0x10, task->central_moment_2, 15);
        fill<T>(*task, estimates & 0x20, task->central_moment_3, 16);
        fill<T>(*task, estimates & 0x40, task->central_moment_4, 17);
        fill<T>(*task, estimates & 0x2000000, task->raw_sum_1, 18);
        fill<T>(*task, estimates & 0x4000000, task->raw_sum_2, 19);
        fill<T>(*task, estimates & 0x8000000, task->raw_sum_3, 20);
        fill<T>(*task, estimates & 0x10000000, task->raw_sum_4, 21);
        fill<T>(*task, estimates & 0x20000000, task->central_sum_2, 22);
        fill<T>(*task, estimates & 0x40000000, task->central_sum_3, 23);
        fill<T>(*task, estimates & 0x80000000, task->central_sum_4, 24);
        fill<T>(*task, estimates & 0x80, task->kurtosis, 25);
        fill<T>(*task, estimates & 0x100, task->skewness, 26);
        fill<T>(*task, estimates & 0x200, task->variation, 27);
    } else if (name == "Minmax") {
        fill<T>(*task, estimates & 0x400, task->min, 28);
        fill<T>(*task, estimates & 0x800, task->max, 29);
    }
    return status;
}

}  // namespace

namespace core_double {

std::vector<call> calls() {
    std::lock_guard<std::mutex> guard(lock);
    return log;
}

void reset() {
    std::lock_guard<std::mutex> guard(lock);
    log.clear();
    statuses.clear();
    for (ss_task* task : live_tasks)
        delete task;
    live_tasks.clear();
}

void set_status(const std::string& entry, std::int32_t status) {
    std::lock_guard<std::mutex> guard(lock);
    statuses[entry] = status;
}

}  // namespace core_double

#define CORE_DOUBLE_EXPORT extern "C" __attribute__((visibility("default")))

CORE_DOUBLE_EXPORT std::int32_t __rtksSSNewTask(ss_task** task,
                                                const void* n_dims,
                                                const void* n_observations,
                                                const void* storage,
                                                const float* observations,
                                                const float* weights,
                                                const void* indices,
                                                std::int32_t int_width) {
    return new_task("__rtksSSNewTask", task, n_dims, n_observations, storage, observations, weights,
                    indices, int_width);
}

CORE_DOUBLE_EXPORT std::int32_t __rtkdSSNewTask(ss_task** task,
                                                const void* n_dims,
                                                const void* n_observations,
                                                const void* storage,
                                                const double* observations,
                                                const double* weights,
                                                const void* indices,
                                                std::int32_t int_width) {
    return new_task("__rtkdSSNewTask", task, n_dims, n_observations, storage, observations, weights,
                    indices, int_width);
}

CORE_DOUBLE_EXPORT std::int32_t __rtksSSEditTask(ss_task* task, std::int32_t p, float* a) {
    return edit_task("__rtksSSEditTask", task, p, a);
}

CORE_DOUBLE_EXPORT std::int32_t __rtkdSSEditTask(ss_task* task, std::int32_t p, double* a) {
    return edit_task("__rtkdSSEditTask", task, p, a);
}

CORE_DOUBLE_EXPORT std::int32_t __rtksSSEditMoments(
    ss_task* task, float* a0, float* a1, float* a2, float* a3, float* a4, float* a5, float* a6) {
    return edit_moments("__rtksSSEditMoments", task, {a0, a1, a2, a3, a4, a5, a6});
}

CORE_DOUBLE_EXPORT std::int32_t __rtkdSSEditMoments(ss_task* task,
                                                    double* a0,
                                                    double* a1,
                                                    double* a2,
                                                    double* a3,
                                                    double* a4,
                                                    double* a5,
                                                    double* a6) {
    return edit_moments("__rtkdSSEditMoments", task, {a0, a1, a2, a3, a4, a5, a6});
}

// The partial stand-in lacks this entry, to show that a missing name ends the process only
// when it is first used.
#ifndef CORE_DOUBLE_WITHOUT_S_EDIT_SUMS
CORE_DOUBLE_EXPORT std::int32_t __rtksSSEditSums(
    ss_task* task, float* a0, float* a1, float* a2, float* a3, float* a4, float* a5, float* a6) {
    return edit_sums("__rtksSSEditSums", task, {a0, a1, a2, a3, a4, a5, a6});
}
#endif

CORE_DOUBLE_EXPORT std::int32_t __rtkdSSEditSums(ss_task* task,
                                                 double* a0,
                                                 double* a1,
                                                 double* a2,
                                                 double* a3,
                                                 double* a4,
                                                 double* a5,
                                                 double* a6) {
    return edit_sums("__rtkdSSEditSums", task, {a0, a1, a2, a3, a4, a5, a6});
}

CORE_DOUBLE_EXPORT std::int32_t __rtkSSDeleteTask(ss_task** task) {
    core_double::call c;
    c.entry = "__rtkSSDeleteTask";
    c.task = **task;
    const std::int32_t status = record(c);
    {
        std::lock_guard<std::mutex> guard(lock);
        live_tasks.erase(*task);
    }
    delete *task;
    *task = nullptr;
    return status;
}

#define CORE_DOUBLE_ROUTINES(name)                                                            \
    CORE_DOUBLE_EXPORT std::int32_t _rtks##name(ss_task* task, std::uint64_t estimates,       \
                                                std::int64_t method, const void* threaders) { \
        return routine<float>("_rtks" #name, task, estimates, method, threaders);             \
    }                                                                                         \
    CORE_DOUBLE_EXPORT std::int32_t _rtkd##name(ss_task* task, std::uint64_t estimates,       \
                                                std::int64_t method, const void* threaders) { \
        return routine<double>("_rtkd" #name, task, estimates, method, threaders);            \
    }

CORE_DOUBLE_ROUTINES(SSMissingValues)
CORE_DOUBLE_ROUTINES(SSMinmax)
CORE_DOUBLE_ROUTINES(SSSort)
CORE_DOUBLE_ROUTINES(SSBasic)
CORE_DOUBLE_ROUTINES(SSMAD)
CORE_DOUBLE_ROUTINES(SSPooledCovariance)
CORE_DOUBLE_ROUTINES(SSOutliersDetection)
CORE_DOUBLE_ROUTINES(SSRobustCovariance)
CORE_DOUBLE_ROUTINES(SSPartialCovariance)
CORE_DOUBLE_ROUTINES(SSQuantiles)
CORE_DOUBLE_ROUTINES(SSStreamQuantiles)
CORE_DOUBLE_ROUTINES(SSCorParametrization)
