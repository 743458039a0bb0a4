// The work-group runner: the work-items of a group as fibers spawned lazily at the first
// barrier, with pooled stacks and a per-thread local arena. The threads that run the groups are
// in nd_range_scheduler.cpp; this unit holds the fiber switches, which the thread sanitizer must
// not see instrumented.
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <boost/context/fiber.hpp>
#include <boost/context/protected_fixedsize_stack.hpp>

#include "group_runner.hpp"
#include "objects.hpp"

#if defined(__SANITIZE_THREAD__)
#define HOSTSYCL_TSAN 1
#endif
#if defined(__SANITIZE_ADDRESS__)
#define HOSTSYCL_ASAN 1
#endif
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define HOSTSYCL_TSAN 1
#endif
#if __has_feature(address_sanitizer)
#define HOSTSYCL_ASAN 1
#endif
#endif
#ifdef HOSTSYCL_TSAN
#include <sanitizer/tsan_interface.h>
#endif
#ifdef HOSTSYCL_ASAN
#include <sanitizer/common_interface_defs.h>
#endif

namespace ctx = boost::context;

namespace sycl {
namespace detail {

__thread char* local_arena_base = nullptr;

namespace {

constexpr std::size_t stack_bytes = 256 * 1024;
constexpr std::size_t arena_alignment = 64;

// Fiber stacks of one thread, kept for reuse across groups and launches.
struct stack_pool {
    std::vector<ctx::stack_context> free;
    ~stack_pool() {
        ctx::protected_fixedsize_stack allocator(stack_bytes);
        for (auto& s : free)
            allocator.deallocate(s);
    }
};

// The stack allocator of a work-item's fiber: takes from and returns to the thread's pool.
struct pooled_stack {
    stack_pool* pool;
    ctx::stack_context* handed_out;  // where the work-item keeps its stack's bounds
    ctx::stack_context allocate() {
        ctx::stack_context s;
        if (!pool->free.empty()) {
            s = pool->free.back();
            pool->free.pop_back();
        } else {
            s = ctx::protected_fixedsize_stack(stack_bytes).allocate();
        }
        *handed_out = s;
        return s;
    }
    void deallocate(ctx::stack_context& s) noexcept {
        try {
            pool->free.push_back(s);
        } catch (...) {
            ctx::protected_fixedsize_stack(stack_bytes).deallocate(s);
        }
    }
};

struct work_item {
    ctx::fiber fiber;      // the work-item while it waits at a barrier
    ctx::fiber scheduler;  // the group's scheduler while the work-item runs
    std::size_t barriers = 0;
    bool finished = false;
    std::exception_ptr error;
    item_state state{};
    ctx::stack_context stack;
#ifdef HOSTSYCL_TSAN
    void* tsan_fiber = nullptr;
#endif
#ifdef HOSTSYCL_ASAN
    void* fake_stack = nullptr;
#endif

    work_item() = default;
    work_item(const work_item&) = delete;
    work_item& operator=(const work_item&) = delete;
#ifdef HOSTSYCL_TSAN
    // The sanitizer counts each fiber as a thread until it is destroyed; a slot's fiber goes
    // with the slot when its thread ends.
    ~work_item() {
        if (tsan_fiber != nullptr)
            __tsan_destroy_fiber(tsan_fiber);
    }
#endif
};

// What one thread owns to run groups: stacks, work-item slots, the local arena, scratch.
struct thread_state {
    stack_pool stacks;
    std::deque<work_item> items;  // a deque keeps slots in place as it grows
    std::unique_ptr<char, decltype(&std::free)> arena{nullptr, &std::free};
    std::size_t arena_bytes = 0;
    std::vector<unsigned char> scratch;

    char* arena_of(std::size_t bytes) {
        if (bytes > arena_bytes) {
            const std::size_t rounded =
                (bytes + arena_alignment - 1) / arena_alignment * arena_alignment;
            void* p = nullptr;
            if (posix_memalign(&p, arena_alignment, rounded) != 0)
                throw exception(errc::memory_allocation, "Cannot allocate local memory.");
            arena.reset(static_cast<char*>(p));
            arena_bytes = rounded;
        }
        return arena.get();
    }
};

thread_state& this_thread_state() {
    thread_local thread_state state;
    return state;
}

}  // namespace

struct group_state {
    const launch_desc* launch = nullptr;
    std::size_t group_id = 0;
    std::vector<unsigned char>* scratch = nullptr;
    stack_pool* stacks = nullptr;  // the running thread's, without a thread-local lookup per fiber
    work_item* current = nullptr;  // the running fiber; null while items run as plain calls
    const item_state* plain = nullptr;  // the running plain call
#ifdef HOSTSYCL_TSAN
    void* scheduler_tsan = nullptr;
#endif
#ifdef HOSTSYCL_ASAN
    void* scheduler_fake_stack = nullptr;
    const void* scheduler_stack_bottom = nullptr;
    std::size_t scheduler_stack_size = 0;
#endif
};

namespace {

[[noreturn]] void throw_kernel_error(const group_state& g, const std::string& what) {
    throw exception(errc::kernel, "Kernel '" + g.launch->kernel_name + "', work-group " +
                                      std::to_string(g.group_id) + ": " + what);
}

// The sanitizers follow each switch between the group's scheduler and a work-item: the
// side that gives up control announces the switch, the side that gets control confirms it.
void switching_to_item(group_state& g, work_item& w) {
#ifdef HOSTSYCL_TSAN
    __tsan_switch_to_fiber(w.tsan_fiber, 0);
#endif
#ifdef HOSTSYCL_ASAN
    __sanitizer_start_switch_fiber(&g.scheduler_fake_stack,
                                   static_cast<char*>(w.stack.sp) - w.stack.size, w.stack.size);
#endif
    (void)g;
    (void)w;
}
void back_on_scheduler(group_state& g) {
#ifdef HOSTSYCL_ASAN
    __sanitizer_finish_switch_fiber(g.scheduler_fake_stack, nullptr, nullptr);
#endif
    (void)g;
}
void switching_to_scheduler(group_state& g, work_item& w, bool finishing) {
#ifdef HOSTSYCL_TSAN
    __tsan_switch_to_fiber(g.scheduler_tsan, 0);
#endif
#ifdef HOSTSYCL_ASAN
    __sanitizer_start_switch_fiber(finishing ? nullptr : &w.fake_stack, g.scheduler_stack_bottom,
                                   g.scheduler_stack_size);
#endif
    (void)g;
    (void)w;
    (void)finishing;
}
void on_item(group_state& g, work_item& w) {
#ifdef HOSTSYCL_ASAN
    __sanitizer_finish_switch_fiber(w.fake_stack, &g.scheduler_stack_bottom,
                                    &g.scheduler_stack_size);
#endif
    (void)g;
    (void)w;
}

void start(group_state& g, work_item& w, std::size_t local_id, const item_state& base) {
    w.barriers = 0;
    w.finished = false;
    w.error = nullptr;
    w.state = base;
    w.state.local_id = local_id;
#ifdef HOSTSYCL_TSAN
    if (w.tsan_fiber == nullptr)
        w.tsan_fiber = __tsan_create_fiber(0);
#endif
#ifdef HOSTSYCL_ASAN
    w.fake_stack = nullptr;
#endif
    const launch_desc* launch = g.launch;
    w.fiber = ctx::fiber(std::allocator_arg, pooled_stack{g.stacks, &w.stack},
                         [&w, &g, launch](ctx::fiber&& scheduler) {
                             on_item(g, w);
                             w.scheduler = std::move(scheduler);
                             try {
                                 const std::size_t l = w.state.local_id;
                                 launch->run_items(launch->kernel.get(), w.state, l, l + 1);
                             } catch (const ctx::detail::forced_unwind&) {
                                 switching_to_scheduler(g, w, true);
                                 throw;
                             } catch (...) {
                                 w.error = std::current_exception();
                             }
                             w.finished = true;
                             switching_to_scheduler(g, w, true);
                             return std::move(w.scheduler);
                         });
}

void resume(group_state& g, work_item& w) {
    g.current = &w;
    switching_to_item(g, w);
    w.fiber = std::move(w.fiber).resume();
    back_on_scheduler(g);
    g.current = nullptr;
}

// Destroys the fibers still waiting at a barrier, unwinding their stacks.
void abandon(group_state& g, std::deque<work_item>& items, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i) {
        if (items[i].fiber) {
            g.current = &items[i];
            switching_to_item(g, items[i]);
            items[i].fiber = ctx::fiber();
            back_on_scheduler(g);
            g.current = nullptr;
        }
        items[i].scheduler = ctx::fiber();
        // Errors are handed on by copy; no reference stays behind on this thread.
        items[i].error = nullptr;
    }
}

// After a round every work-item is either finished or waiting at the same barrier.
void check_round(group_state& g, std::deque<work_item>& items, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i)
        if (items[i].error)
            std::rethrow_exception(items[i].error);
    std::size_t finished = 0;
    std::size_t first_finished = 0;
    std::size_t first_waiting = 0;
    for (std::size_t i = n; i-- > 0;) {
        if (items[i].finished) {
            ++finished;
            first_finished = i;
        } else {
            first_waiting = i;
        }
    }
    if (finished != 0 && finished != n)
        throw_kernel_error(g, "work-item " + std::to_string(first_finished) +
                                  " returned while work-item " + std::to_string(first_waiting) +
                                  " waits at barrier " +
                                  std::to_string(items[first_waiting].barriers) +
                                  "; every work-item of a group must reach the same barriers.");
}

}  // namespace

void run_group(const launch_desc& launch, std::size_t group_id, std::size_t group_count) {
    thread_state& ts = this_thread_state();
    const std::size_t n = launch.local_size;
    group_state g;
    g.launch = &launch;
    g.group_id = group_id;
    g.scratch = &ts.scratch;
    g.stacks = &ts.stacks;
#ifdef HOSTSYCL_TSAN
    g.scheduler_tsan = __tsan_get_current_fiber();
#endif
    local_arena_base = ts.arena_of(launch.local_arena_bytes + launch.largest_local_bytes);
    // Collectives of values up to 64 bytes: a result area and one slot per work-item.
    if (ts.scratch.size() < 64 * (n + 1))
        ts.scratch.resize(64 * (n + 1));
    item_state base{0, group_id, n, group_count, &g};

    // A group of one needs no fiber: its barriers have nobody to wait for.
    if (n == 1) {
        g.plain = &base;
        launch.run_items(launch.kernel.get(), base, 0, 1);
        return;
    }
    while (ts.items.size() < n)
        ts.items.emplace_back();
    std::deque<work_item>& items = ts.items;
    try {
        // Work-item 0 runs first on its fiber; if it never reaches a barrier, the others run
        // as plain calls.
        start(g, items[0], 0, base);
        resume(g, items[0]);
        if (items[0].finished) {
            if (items[0].error)
                std::rethrow_exception(std::exchange(items[0].error, nullptr));
            item_state s = base;
            g.plain = &s;
            launch.run_items(launch.kernel.get(), s, 1, n);
            return;
        }
        for (std::size_t i = 1; i < n; ++i) {
            start(g, items[i], i, base);
            resume(g, items[i]);
        }
        for (;;) {
            check_round(g, items, n);
            if (items[0].finished)
                break;
            for (std::size_t i = 0; i < n; ++i)
                resume(g, items[i]);
        }
    } catch (...) {
        abandon(g, items, n);
        throw;
    }
    abandon(g, items, n);
}

void group_barrier(group_state* g) {
    if (g->launch->local_size == 1)
        return;
    work_item* w = g->current;
    if (w == nullptr)
        throw_kernel_error(*g, "work-item " + std::to_string(g->plain->local_id) +
                                   " reached a barrier that work-item 0 never reached; every "
                                   "work-item of a group must reach the same barriers.");
    ++w->barriers;
    switching_to_scheduler(*g, *w, false);
    try {
        w->scheduler = std::move(w->scheduler).resume();
    } catch (const ctx::detail::forced_unwind&) {
        on_item(*g, *w);  // resumed only to unwind: the group was abandoned
        throw;
    }
    on_item(*g, *w);
}

void* group_scratch(group_state* g, std::size_t bytes) {
    if (g->scratch->size() < bytes)
        g->scratch->resize(bytes);
    return g->scratch->data();
}

}  // namespace detail
}  // namespace sycl
