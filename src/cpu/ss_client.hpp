// The client of the core library's statistics component: its entries, bound by name on first
// call, and the wrappers that turn a failing status into computation_error.
#pragma once

#include <cstdint>
#include <type_traits>

#include "tavrel/qnd/exceptions.hpp"

#include "cpu/ss_task.hpp"

namespace tavrel::qnd::stats::detail::cpu {

// The component's module handle, taken from the threading layer's qnd_serv_load_ktn while the
// slot is empty; null if the layer has none to give.
void* load_core_component();

// The address of `name` in the component. Without a component: message 771 and the process ends
// with status 2; without the name in it: message 772 with the name, and the same end.
void* resolve_core_entry(const char* name);

// Ends the process with `status` at once: no destructor runs and nothing is thrown.
[[noreturn]] void terminate_with_status(int status);

// Thin entries with the component's own arguments: each resolves its name on the first call and
// calls through its slot afterwards. Integers behind the pointers have the width that the marker
// of NewTask announces (1: 64-bit). Status 0 is success.
std::int32_t __rtksSSNewTask(ss_task** task,
                             const void* n_dims,
                             const void* n_observations,
                             const void* storage,
                             const float* observations,
                             const float* weights,
                             const void* indices,
                             std::int32_t int_width);
std::int32_t __rtkdSSNewTask(ss_task** task,
                             const void* n_dims,
                             const void* n_observations,
                             const void* storage,
                             const double* observations,
                             const double* weights,
                             const void* indices,
                             std::int32_t int_width);
std::int32_t __rtksSSEditTask(ss_task* task, std::int32_t parameter, float* array);
std::int32_t __rtkdSSEditTask(ss_task* task, std::int32_t parameter, double* array);
std::int32_t __rtksSSEditMoments(ss_task* task,
                                 float* mean,
                                 float* raw_moment_2,
                                 float* raw_moment_3,
                                 float* raw_moment_4,
                                 float* central_moment_2,
                                 float* central_moment_3,
                                 float* central_moment_4);
std::int32_t __rtkdSSEditMoments(ss_task* task,
                                 double* mean,
                                 double* raw_moment_2,
                                 double* raw_moment_3,
                                 double* raw_moment_4,
                                 double* central_moment_2,
                                 double* central_moment_3,
                                 double* central_moment_4);
std::int32_t __rtksSSEditSums(ss_task* task,
                              float* raw_sum_1,
                              float* raw_sum_2,
                              float* raw_sum_3,
                              float* raw_sum_4,
                              float* central_sum_2,
                              float* central_sum_3,
                              float* central_sum_4);
std::int32_t __rtkdSSEditSums(ss_task* task,
                              double* raw_sum_1,
                              double* raw_sum_2,
                              double* raw_sum_3,
                              double* raw_sum_4,
                              double* central_sum_2,
                              double* central_sum_3,
                              double* central_sum_4);
std::int32_t __rtkSSDeleteTask(ss_task** task);

// The compute dispatchers (compute_dispatcher.cpp): validate a task and run the routines that
// its mask of estimates selects.
std::int32_t __rtksSSCompute(ss_task* task, std::uint64_t estimates, std::int64_t method);
std::int32_t __rtkdSSCompute(ss_task* task, std::uint64_t estimates, std::int64_t method);

// Any status but 0, positive ones too, is a failure; the status itself is not kept.
inline void check_status(std::int32_t status) {
    if (status != 0)
        throw computation_error("stats", "", "");
}

// Wrappers for the host tasks, on float or double data.
template <typename T>
void ss_new_task(ss_task** task,
                 const std::int64_t* n_dims,
                 const std::int64_t* n_observations,
                 const std::int64_t* storage,
                 const T* observations,
                 const T* weights,
                 const std::int64_t* indices) {
    static_assert(std::is_same_v<T, float> || std::is_same_v<T, double>);
    // Marker 1: the three integers and the mask of dimensions are 64-bit.
    if constexpr (std::is_same_v<T, float>)
        check_status(__rtksSSNewTask(task, n_dims, n_observations, storage, observations, weights,
                                     indices, 1));
    else
        check_status(__rtkdSSNewTask(task, n_dims, n_observations, storage, observations, weights,
                                     indices, 1));
}

inline void ss_edit_task(ss_task* task, std::int32_t parameter, float* array) {
    check_status(__rtksSSEditTask(task, parameter, array));
}
inline void ss_edit_task(ss_task* task, std::int32_t parameter, double* array) {
    check_status(__rtkdSSEditTask(task, parameter, array));
}

inline void ss_edit_moments(
    ss_task* task, float* mean, float* r2, float* r3, float* r4, float* c2, float* c3, float* c4) {
    check_status(__rtksSSEditMoments(task, mean, r2, r3, r4, c2, c3, c4));
}
inline void ss_edit_moments(ss_task* task,
                            double* mean,
                            double* r2,
                            double* r3,
                            double* r4,
                            double* c2,
                            double* c3,
                            double* c4) {
    check_status(__rtkdSSEditMoments(task, mean, r2, r3, r4, c2, c3, c4));
}

inline void ss_edit_sums(
    ss_task* task, float* s1, float* s2, float* s3, float* s4, float* cs2, float* cs3, float* cs4) {
    check_status(__rtksSSEditSums(task, s1, s2, s3, s4, cs2, cs3, cs4));
}
inline void ss_edit_sums(ss_task* task,
                         double* s1,
                         double* s2,
                         double* s3,
                         double* s4,
                         double* cs2,
                         double* cs3,
                         double* cs4) {
    check_status(__rtkdSSEditSums(task, s1, s2, s3, s4, cs2, cs3, cs4));
}

// The task does not carry its element type, so the caller names it.
template <typename T>
void ss_compute(ss_task* task, std::uint64_t estimates, std::int64_t method) {
    static_assert(std::is_same_v<T, float> || std::is_same_v<T, double>);
    if constexpr (std::is_same_v<T, float>)
        check_status(__rtksSSCompute(task, estimates, method));
    else
        check_status(__rtkdSSCompute(task, estimates, method));
}

inline void ss_delete_task(ss_task** task) {
    check_status(__rtkSSDeleteTask(task));
}

}  // namespace tavrel::qnd::stats::detail::cpu
