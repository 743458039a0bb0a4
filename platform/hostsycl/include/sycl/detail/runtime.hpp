// The narrow interface between the header-only templates and the compiled runtime.
#pragma once
#pragma GCC visibility push(default)

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace sycl {
namespace detail {

struct device_impl;
struct context_impl;
struct queue_impl;
struct event_impl;
struct buffer_impl;
struct group_state;

// Where a work-item stands in its nd_range; the runtime fills one per work-item.
struct item_state {
    std::size_t local_id;
    std::size_t group_id;
    std::size_t local_range;
    std::size_t group_range;
    group_state* group;
};

// One nd_range launch, with its kernel erased once per launch (not per work-item).
struct launch_desc {
    std::string kernel_name;
    std::size_t global_size = 0;
    std::size_t local_size = 0;
    std::size_t local_memory_bytes = 0;   // sum of the local accessors as asked
    std::size_t local_arena_bytes = 0;    // end of the last local accessor in the arena
    std::size_t largest_local_bytes = 0;  // the slack that follows the arena
    std::shared_ptr<const void> kernel;   // the kernel object, copied once
    // Runs the work-items [first, last) of one group as plain calls.
    void (*run_items)(const void* kernel,
                      item_state& state,
                      std::size_t first,
                      std::size_t last) = nullptr;
};

// Base of the current group's local arena on this thread (set by the executor per group).
extern __thread char* local_arena_base;

// Collective support for the running group; every work-item of the group calls these.
void group_barrier(group_state* group);
// Scratch memory of the group for collectives, at least `bytes` long. The executor sizes it
// for 64 bytes per work-item and 64 more up front, so that it does not move during a group.
void* group_scratch(group_state* group, std::size_t bytes);

// Runs an nd_range to completion on the calling thread and the worker pool.
void run_nd_range(const launch_desc& launch);

// Kernel names: registration at library load and the demangled name of a type.
bool register_kernel_name(const char* pretty_function_text);
std::string kernel_name_from_signature(const char* pretty_function_text);

template <typename T>
const char* type_signature() {
    return __PRETTY_FUNCTION__;
}

// A command group as the handler builds it.
struct command {
    std::vector<std::shared_ptr<event_impl>> dependencies;
    std::vector<std::shared_ptr<buffer_impl>> buffers;  // accessed by the command
    std::function<void()> work;                         // empty for a command with no action
    std::shared_ptr<launch_desc> launch;                // for kernels: what the observer sees
    bool is_host_task = false;
};

std::shared_ptr<event_impl> submit_command(const std::shared_ptr<queue_impl>& queue, command&& cmd);

// Buffer storage.
std::shared_ptr<buffer_impl> make_buffer(std::size_t count,
                                         std::size_t element_size,
                                         void* host_data,
                                         bool write_back);
void* buffer_data(const buffer_impl& buffer);
void release_buffer(const std::shared_ptr<buffer_impl>& buffer) noexcept;
void set_buffer_write_back(buffer_impl& buffer, void* host_data, bool write_back);

}  // namespace detail
}  // namespace sycl

#pragma GCC visibility pop
