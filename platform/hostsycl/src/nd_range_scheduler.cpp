// The nd_range scheduler: the work-groups of a launch in contiguous slices on a pool of host
// threads, as many as the machine has cores, the calling thread taking the first slice.
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "group_runner.hpp"
#include "objects.hpp"

namespace sycl {
namespace detail {

namespace {

// The threads that run work-groups; as many as the machine has cores.
struct worker_pool {
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> tasks;
    std::vector<std::thread> threads;

    explicit worker_pool(unsigned count) {
        for (unsigned i = 0; i < count; ++i)
            threads.emplace_back([this] { serve(); });
    }
    void serve() {
        for (;;) {
            std::function<void()> task;
            {
                std::unique_lock<std::mutex> lock(mutex);
                wake.wait(lock, [this] { return !tasks.empty(); });
                task = std::move(tasks.front());
                tasks.pop_front();
            }
            task();
        }
    }
    void post(std::function<void()> task) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            tasks.push_back(std::move(task));
        }
        wake.notify_one();
    }
};

unsigned core_count() {
    const unsigned n = std::thread::hardware_concurrency();
    return n == 0 ? 1 : n;
}

worker_pool& pool() {
    static auto* p = new worker_pool(core_count());  // lives as long as the process
    return *p;
}

// The slices of one launch: completion count and the first error.
struct launch_progress {
    std::mutex mutex;
    std::condition_variable done;
    std::size_t remaining = 0;
    std::exception_ptr error;
    std::atomic<bool> failed{false};
};

void run_slice(const launch_desc& launch,
               std::size_t first,
               std::size_t last,
               std::size_t group_count,
               launch_progress& progress) {
    try {
        for (std::size_t g = first; g < last && !progress.failed.load(); ++g)
            run_group(launch, g, group_count);
    } catch (...) {
        std::lock_guard<std::mutex> lock(progress.mutex);
        if (!progress.error)
            progress.error = std::current_exception();
        progress.failed = true;
    }
    std::lock_guard<std::mutex> lock(progress.mutex);
    if (--progress.remaining == 0)
        progress.done.notify_all();
}

}  // namespace

void run_nd_range(const launch_desc& launch) {
    if (launch.local_size == 0 || launch.global_size == 0)
        return;
    const std::size_t groups = launch.global_size / launch.local_size;
    const std::size_t slices = std::min<std::size_t>(groups, core_count());
    launch_progress progress;
    progress.remaining = slices;
    // Contiguous slices; the calling thread takes the first one itself.
    for (std::size_t s = 1; s < slices; ++s) {
        const std::size_t first = groups * s / slices;
        const std::size_t last = groups * (s + 1) / slices;
        pool().post([&launch, first, last, groups, &progress] {
            run_slice(launch, first, last, groups, progress);
        });
    }
    run_slice(launch, 0, groups / slices, groups, progress);
    std::unique_lock<std::mutex> lock(progress.mutex);
    progress.done.wait(lock, [&] { return progress.remaining == 0; });
    if (progress.error)
        std::rethrow_exception(progress.error);
}

}  // namespace detail
}  // namespace sycl
