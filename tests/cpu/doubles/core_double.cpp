// The recording stand-in of the statistics component: tasks are real records, edits set their
// words, and the two routines this library uses write a marker into every array they are asked
// to fill, so that tests can follow where each array went.
#include "core_double.hpp"

#include <map>
#include <mutex>
#include <set>

namespace {

using core_double::ss_task;
using core_double::word_of;

std::mutex lock;
std::vector<core_double::call> log;
std::map<std::string, std::int32_t> statuses;
std::set<ss_task*> live_tasks;  // a failing call leaves its task behind, and reset() frees it

std::int64_t integer(const ss_task& task, const void* at) {
    if (at == nullptr)
        return 0;
    return task.int_width == 0 ? *static_cast<const std::int32_t*>(at)
                               : *static_cast<const std::int64_t*>(at);
}

void*& word_of(ss_task* task, int word) {
    return reinterpret_cast<void**>(task)[word];
}

std::int32_t record(const char* entry, const ss_task* task, core_double::call c = {}) {
    c.entry = entry;
    if (task != nullptr) {
        c.task = *task;
        c.n_dims = integer(*task, task->dims_ptr);
        c.n_observations = integer(*task, task->observations_count_ptr);
        c.storage = integer(*task, task->storage_ptr);
    }
    std::lock_guard<std::mutex> guard(lock);
    log.push_back(c);
    const auto found = statuses.find(entry);
    return found == statuses.end() ? 0 : found->second;
}

// Keeps `made`, a record built from the creation's arguments, until it is deleted or reset.
std::int32_t new_task(const char* entry, ss_task** handle, const ss_task& made) {
    *handle = new ss_task(made);
    {
        std::lock_guard<std::mutex> guard(lock);
        live_tasks.insert(*handle);
    }
    return record(entry, *handle);
}

std::int32_t edit_task(const char* entry, ss_task* task, std::int32_t parameter, void* array) {
    // The parameters this library uses, and the record words they set.
    static const std::map<std::int32_t, int> words = {{7, 11},  {14, 25}, {15, 26},
                                                      {16, 28}, {17, 29}, {18, 27}};
    const auto found = words.find(parameter);
    if (found == words.end())
        return -1;
    word_of(task, found->second) = array;
    return record(entry, task, {"", parameter});
}

// EditMoments sets words 11 to 17, EditSums words 18 to 24.
std::int32_t edit_seven(const char* entry, ss_task* task, int first, void* const (&a)[7]) {
    for (int k = 0; k < 7; ++k)
        word_of(task, first + k) = a[k];
    return record(entry, task);
}

// Every routine records; basic and minmax also fill the arrays of their words that the mask asks
// for, in the dimensions the task keeps.
template <typename T>
std::int32_t routine(const char* entry,
                     ss_task* task,
                     std::uint64_t estimates,
                     std::int64_t method,
                     const void* threaders) {
    const std::int32_t status = record(entry, task, {"", 0, estimates, method, threaders});
    const std::string name(entry + 7);  // behind "_rtk?SS"
    if (status != 0 || task == nullptr || task->dims_ptr == nullptr ||
        (name != "Basic" && name != "Minmax"))
        return status;
    const std::int64_t n = integer(*task, task->dims_ptr);
    const auto* kept = static_cast<const char*>(task->indices);
    for (int word = name == "Basic" ? 11 : 28; word <= (name == "Basic" ? 27 : 29); ++word) {
        if ((estimates & core_double::bit_of_word(word)) == 0 || word_of(task, word) == nullptr)
            continue;
        for (std::int64_t d = 0; d < n; ++d)
            if (kept == nullptr || integer(*task, kept + d * (task->int_width ? 8 : 4)) != 0)
                static_cast<T*>(word_of(task, word))[d] =
                    static_cast<T>(core_double::marker(word, d));
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

// The entries of one precision: p is s or d, T its element type.
#define CORE_DOUBLE_TASK_ENTRIES(p, T)                                                             \
    CORE_DOUBLE_EXPORT std::int32_t __rtk##p##SSNewTask(                                           \
        ss_task** task, const void* n_dims, const void* n_observations, const void* storage,       \
        const T* observations, const T* weights, const void* indices, std::int32_t width) {        \
        return new_task("__rtk" #p "SSNewTask", task,                                              \
                        {static_cast<std::uint32_t>(width), 0, 0, n_dims, n_observations, indices, \
                         observations, weights, 0, storage});                                      \
    }                                                                                              \
    CORE_DOUBLE_EXPORT std::int32_t __rtk##p##SSEditTask(ss_task* task, std::int32_t k, T* a) {    \
        return edit_task("__rtk" #p "SSEditTask", task, k, a);                                     \
    }                                                                                              \
    CORE_DOUBLE_EXPORT std::int32_t __rtk##p##SSEditMoments(ss_task* task, T* a0, T* a1, T* a2,    \
                                                            T* a3, T* a4, T* a5, T* a6) {          \
        return edit_seven("__rtk" #p "SSEditMoments", task, 11, {a0, a1, a2, a3, a4, a5, a6});     \
    }

#define CORE_DOUBLE_EDIT_SUMS(p, T)                                                          \
    CORE_DOUBLE_EXPORT std::int32_t __rtk##p##SSEditSums(ss_task* task, T* a0, T* a1, T* a2, \
                                                         T* a3, T* a4, T* a5, T* a6) {       \
        return edit_seven("__rtk" #p "SSEditSums", task, 18, {a0, a1, a2, a3, a4, a5, a6});  \
    }

CORE_DOUBLE_TASK_ENTRIES(s, float)
CORE_DOUBLE_TASK_ENTRIES(d, double)
CORE_DOUBLE_EDIT_SUMS(d, double)
// The partial stand-in lacks this entry, to show that a missing name ends the process only
// when it is first used.
#ifndef CORE_DOUBLE_WITHOUT_S_EDIT_SUMS
CORE_DOUBLE_EDIT_SUMS(s, float)
#endif

CORE_DOUBLE_EXPORT std::int32_t __rtkSSDeleteTask(ss_task** task) {
    const std::int32_t status = record("__rtkSSDeleteTask", *task);
    {
        std::lock_guard<std::mutex> guard(lock);
        live_tasks.erase(*task);
    }
    delete *task;
    *task = nullptr;
    return status;
}

#define CORE_DOUBLE_ROUTINE(p, T, name)                                                         \
    CORE_DOUBLE_EXPORT std::int32_t _rtk##p##name(ss_task* task, std::uint64_t estimates,       \
                                                  std::int64_t method, const void* threaders) { \
        return routine<T>("_rtk" #p #name, task, estimates, method, threaders);                 \
    }
#define CORE_DOUBLE_ROUTINES(name) \
    CORE_DOUBLE_ROUTINE(s, float, name) CORE_DOUBLE_ROUTINE(d, double, name)

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
