// The runtime's records behind the SYCL handles: devices, native contexts and queues, events,
// buffers. Private to the runtime.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <sycl/context.hpp>
#include <sycl/detail/runtime.hpp>
#include <sycl/device.hpp>
#include <sycl/event.hpp>
#include <sycl/exception.hpp>
#include <sycl/info.hpp>
#include <sycl/queue.hpp>

namespace sycl {
namespace detail {

struct device_impl {
    std::string name;
    info::device_type type = info::device_type::cpu;
    std::size_t max_work_group_size = 1;
    std::uint32_t compute_units = 1;
    device_impl* parent = nullptr;
    int split_levels = 0;  // how many more times the device can be split by affinity domain
    std::once_flag split_once;
    std::vector<device_impl*> sub_devices;
};

struct device_access {
    static device make(device_impl* impl) { return device(impl); }
    static device_impl* impl(const device& d) { return d.impl_; }
};

// A native object of hostsycl's native layer: a count of native references, and a liveness
// that ends when the count reaches zero.
struct native_object {
    std::atomic<std::size_t> refs{1};
    virtual ~native_object();
};

struct native_context : native_object {
    std::vector<device> devices;
    ~native_context() override;
};

struct context_impl {
    std::vector<device> devices;
    async_handler handler;
    std::shared_ptr<native_context> native;
    bool owns_native_ref = true;
    ~context_impl();
};

struct context_access {
    static context make(std::shared_ptr<context_impl> impl) { return context(std::move(impl)); }
    static const std::shared_ptr<context_impl>& impl(const context& c) { return c.impl_; }
};

struct queue_impl;

struct event_impl {
    std::mutex mutex;
    std::condition_variable done_cv;
    bool done = false;
    std::weak_ptr<queue_impl> queue;  // whose handler receives this command's errors

    void wait();
    void complete();
};

struct event_access {
    static event make(std::shared_ptr<event_impl> impl) { return event(std::move(impl)); }
    static const std::shared_ptr<event_impl>& impl(const event& e) { return e.impl_; }
};

// One submitted command group waiting for its turn.
struct pending_command {
    std::vector<std::shared_ptr<event_impl>> dependencies;
    std::function<void()> work;
    std::shared_ptr<event_impl> event;
    std::string what;  // for error reports: the kernel's name or "host task"
};

// The FIFO of a native queue; shared with its worker thread, which may outlive the queue
// when the queue's last handle goes away on the worker itself (inside a host task).
struct command_fifo {
    std::mutex mutex;
    std::condition_variable wake;
    std::deque<pending_command> commands;
    std::shared_ptr<event_impl> last;  // the last command submitted
    bool stopping = false;
};

// A native queue: a FIFO drained in submission order by one runtime thread.
struct native_queue : native_object {
    device dev;
    std::shared_ptr<command_fifo> fifo = std::make_shared<command_fifo>();
    std::thread worker;

    explicit native_queue(const device& d);
    ~native_queue() override;
    void enqueue(pending_command&& cmd);
    std::shared_ptr<event_impl> last_event();
};

struct queue_impl {
    device dev;
    context ctx;
    async_handler handler;
    std::shared_ptr<native_queue> native;
    bool owns_native_ref = true;
    std::mutex errors_mutex;
    std::vector<std::exception_ptr> errors;  // asynchronous errors not yet handed over

    queue_impl(const device& d, const context& c) : dev(d), ctx(c) {}
    ~queue_impl();
    void record_error(std::exception_ptr e);
    void throw_asynchronous();
};

struct queue_access {
    static queue make(std::shared_ptr<queue_impl> impl) { return queue(std::move(impl)); }
    static const std::shared_ptr<queue_impl>& impl(const queue& q) { return q.impl_; }
};

struct buffer_impl {
    void* data = nullptr;
    std::size_t bytes = 0;
    void* host = nullptr;
    bool write_back = false;
    std::mutex mutex;
    std::shared_ptr<event_impl> last;  // the last command that uses the buffer
    ~buffer_impl();
};

// Native-layer registry: handle -> live native object.
void register_native(void* handle, const std::shared_ptr<native_object>& object);
std::shared_ptr<native_object> find_native(void* handle);
std::shared_ptr<native_context> make_native_context(const std::vector<device>& devices);
std::shared_ptr<native_queue> make_native_queue(const device& dev);
void release_native_ref(native_object& object) noexcept;

// Hands errors to `handler`, or reports them and terminates when there is none.
void deliver_errors(const async_handler& handler, std::vector<std::exception_ptr> errors);

// Test hooks shared by the memory code.
bool take_allocation_failure();
bool take_release_failure();

}  // namespace detail
}  // namespace sycl

namespace sycl {
namespace detail {
// A new emulated GPU, not listed by the platform.
device_impl* emulated_gpu(std::size_t max_work_group_size);
}  // namespace detail
}  // namespace sycl

namespace sycl {
namespace detail {
// Tells the launch observer about a parallel_for, on the submitting thread.
void notify_launch(const launch_desc& launch);
// A queue on `dev` in the device's default context.
context default_context(const device& dev);
}  // namespace detail
}  // namespace sycl
