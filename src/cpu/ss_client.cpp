// The statistics component's entries, bound by name on first call through one slot each, and the
// process end that a missing component or entry leads to.
#include "cpu/ss_client.hpp"

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>

#include "cpu/threading_layer.hpp"

namespace tavrel::qnd::stats::detail::cpu {

namespace {

std::atomic<void*> module_slot{nullptr};
// Would take the status in place of ending the process; nothing sets it.
std::atomic<void (*)(int)> termination_hook{nullptr};

std::atomic<void*> s_new_task_slot{nullptr};
std::atomic<void*> d_new_task_slot{nullptr};
std::atomic<void*> s_edit_task_slot{nullptr};
std::atomic<void*> d_edit_task_slot{nullptr};
std::atomic<void*> s_edit_moments_slot{nullptr};
std::atomic<void*> d_edit_moments_slot{nullptr};
std::atomic<void*> s_edit_sums_slot{nullptr};
std::atomic<void*> d_edit_sums_slot{nullptr};
std::atomic<void*> delete_task_slot{nullptr};

// The entry behind `slot`, resolved in the component on first use.
template <typename Fn>
Fn* core_entry(std::atomic<void*>& slot, const char* name) {
    return slot_entry<Fn>(slot, name, resolve_core_entry);
}

}  // namespace

void* load_core_component() {
    void* module = module_slot.load(std::memory_order_acquire);
    if (module == nullptr) {
        module = qnd_serv_load_ktn();
        module_slot.store(module, std::memory_order_release);
    }
    return module;
}

void* resolve_core_entry(const char* name) {
    void* module = load_core_component();
    if (module == nullptr) {
        qnd_serv_print(1, 771, 0);
        terminate_with_status(2);
    }
    void* address = dlsym(module, name);
    if (address == nullptr) {
        qnd_serv_print(1, 772, 1, name);
        terminate_with_status(2);
    }
    return address;
}

void terminate_with_status(int status) {
    if (void (*hook)(int) = termination_hook.load(std::memory_order_acquire))
        hook(status);
    _exit(status);
}

std::int32_t __rtksSSNewTask(ss_task** task,
                             const void* n_dims,
                             const void* n_observations,
                             const void* storage,
                             const float* observations,
                             const float* weights,
                             const void* indices,
                             std::int32_t int_width) {
    return core_entry<decltype(__rtksSSNewTask)>(s_new_task_slot, "__rtksSSNewTask")(
        task, n_dims, n_observations, storage, observations, weights, indices, int_width);
}

std::int32_t __rtkdSSNewTask(ss_task** task,
                             const void* n_dims,
                             const void* n_observations,
                             const void* storage,
                             const double* observations,
                             const double* weights,
                             const void* indices,
                             std::int32_t int_width) {
    return core_entry<decltype(__rtkdSSNewTask)>(d_new_task_slot, "__rtkdSSNewTask")(
        task, n_dims, n_observations, storage, observations, weights, indices, int_width);
}

std::int32_t __rtksSSEditTask(ss_task* task, std::int32_t parameter, float* array) {
    return core_entry<decltype(__rtksSSEditTask)>(s_edit_task_slot, "__rtksSSEditTask")(
        task, parameter, array);
}

std::int32_t __rtkdSSEditTask(ss_task* task, std::int32_t parameter, double* array) {
    return core_entry<decltype(__rtkdSSEditTask)>(d_edit_task_slot, "__rtkdSSEditTask")(
        task, parameter, array);
}

std::int32_t __rtksSSEditMoments(ss_task* task,
                                 float* mean,
                                 float* raw_moment_2,
                                 float* raw_moment_3,
                                 float* raw_moment_4,
                                 float* central_moment_2,
                                 float* central_moment_3,
                                 float* central_moment_4) {
    return core_entry<decltype(__rtksSSEditMoments)>(s_edit_moments_slot, "__rtksSSEditMoments")(
        task, mean, raw_moment_2, raw_moment_3, raw_moment_4, central_moment_2, central_moment_3,
        central_moment_4);
}

std::int32_t __rtkdSSEditMoments(ss_task* task,
                                 double* mean,
                                 double* raw_moment_2,
                                 double* raw_moment_3,
                                 double* raw_moment_4,
                                 double* central_moment_2,
                                 double* central_moment_3,
                                 double* central_moment_4) {
    return core_entry<decltype(__rtkdSSEditMoments)>(d_edit_moments_slot, "__rtkdSSEditMoments")(
        task, mean, raw_moment_2, raw_moment_3, raw_moment_4, central_moment_2, central_moment_3,
        central_moment_4);
}

std::int32_t __rtksSSEditSums(ss_task* task,
                              float* raw_sum_1,
                              float* raw_sum_2,
                              float* raw_sum_3,
                              float* raw_sum_4,
                              float* central_sum_2,
                              float* central_sum_3,
                              float* central_sum_4) {
    return core_entry<decltype(__rtksSSEditSums)>(s_edit_sums_slot, "__rtksSSEditSums")(
        task, raw_sum_1, raw_sum_2, raw_sum_3, raw_sum_4, central_sum_2, central_sum_3,
        central_sum_4);
}

std::int32_t __rtkdSSEditSums(ss_task* task,
                              double* raw_sum_1,
                              double* raw_sum_2,
                              double* raw_sum_3,
                              double* raw_sum_4,
                              double* central_sum_2,
                              double* central_sum_3,
                              double* central_sum_4) {
    return core_entry<decltype(__rtkdSSEditSums)>(d_edit_sums_slot, "__rtkdSSEditSums")(
        task, raw_sum_1, raw_sum_2, raw_sum_3, raw_sum_4, central_sum_2, central_sum_3,
        central_sum_4);
}

std::int32_t __rtkSSDeleteTask(ss_task** task) {
    return core_entry<decltype(__rtkSSDeleteTask)>(delete_task_slot, "__rtkSSDeleteTask")(task);
}

}  // namespace tavrel::qnd::stats::detail::cpu
