// Queues, events and command submission: each native queue drains its FIFO on one thread.
#include <algorithm>
#include <cstdio>
#include <map>
#include <mutex>

#include "objects.hpp"

namespace sycl {
namespace detail {
namespace {

// Buffer dependencies of concurrent submissions are recorded under one lock, so that two
// command groups can never wait for each other through two buffers.
std::mutex& dependency_mutex() {
    static std::mutex m;
    return m;
}

void drain(const std::shared_ptr<command_fifo>& fifo) {
    for (;;) {
        pending_command cmd;
        {
            std::unique_lock<std::mutex> lock(fifo->mutex);
            fifo->wake.wait(lock, [&] { return fifo->stopping || !fifo->commands.empty(); });
            if (fifo->commands.empty())
                return;
            cmd = std::move(fifo->commands.front());
            fifo->commands.pop_front();
        }
        for (const auto& d : cmd.dependencies)
            d->wait();
        std::exception_ptr error;
        try {
            if (cmd.work)
                cmd.work();
        } catch (...) {
            error = std::current_exception();
        }
        cmd.work = nullptr;  // what the command holds is released before it counts as done
        if (error) {
            if (auto q = cmd.event->queue.lock()) {
                q->record_error(std::move(error));
            } else {
                try {
                    std::rethrow_exception(error);
                } catch (const std::exception& e) {
                    std::fprintf(stderr, "hostsycl: error in %s of a destroyed queue: %s\n",
                                 cmd.what.c_str(), e.what());
                } catch (...) {
                    std::fprintf(stderr, "hostsycl: unknown error in %s of a destroyed queue\n",
                                 cmd.what.c_str());
                }
            }
        }
        cmd.event->complete();
    }
}

std::shared_ptr<queue_impl> new_queue(const context& ctx,
                                      const device& dev,
                                      const async_handler& handler) {
    const auto devices = ctx.get_devices();
    if (std::find(devices.begin(), devices.end(), dev) == devices.end())
        throw exception(errc::invalid, "The queue's device is not one of its context's devices.");
    auto impl = std::make_shared<queue_impl>(dev, ctx);
    impl->handler = handler;
    impl->native = make_native_queue(dev);
    return impl;
}

}  // namespace

void event_impl::wait() {
    std::unique_lock<std::mutex> lock(mutex);
    done_cv.wait(lock, [this] { return done; });
}

void event_impl::complete() {
    std::lock_guard<std::mutex> lock(mutex);
    done = true;
    done_cv.notify_all();
}

native_queue::native_queue(const device& d) : dev(d) {
    worker = std::thread([f = fifo] { drain(f); });
}

native_queue::~native_queue() {
    {
        std::lock_guard<std::mutex> lock(fifo->mutex);
        fifo->stopping = true;
    }
    fifo->wake.notify_all();
    // The last handle can go inside a host task, on the worker itself, which then finishes
    // the FIFO on its own.
    if (worker.get_id() == std::this_thread::get_id())
        worker.detach();
    else
        worker.join();
}

void native_queue::enqueue(pending_command&& cmd) {
    {
        std::lock_guard<std::mutex> lock(fifo->mutex);
        fifo->last = cmd.event;
        fifo->commands.push_back(std::move(cmd));
    }
    fifo->wake.notify_one();
}

std::shared_ptr<event_impl> native_queue::last_event() {
    std::lock_guard<std::mutex> lock(fifo->mutex);
    return fifo->last;
}

queue_impl::~queue_impl() {
    if (native && native->worker.get_id() != std::this_thread::get_id())
        if (auto last = native->last_event())
            last->wait();
    std::vector<std::exception_ptr> pending;
    {
        std::lock_guard<std::mutex> lock(errors_mutex);
        pending.swap(errors);
    }
    if (!pending.empty())
        deliver_errors(handler ? handler : context_access::impl(ctx)->handler, std::move(pending));
    if (owns_native_ref && native)
        release_native_ref(*native);
}

void queue_impl::record_error(std::exception_ptr e) {
    std::lock_guard<std::mutex> lock(errors_mutex);
    errors.push_back(std::move(e));
}

void queue_impl::throw_asynchronous() {
    std::vector<std::exception_ptr> pending;
    {
        std::lock_guard<std::mutex> lock(errors_mutex);
        pending.swap(errors);
    }
    deliver_errors(handler ? handler : context_access::impl(ctx)->handler, std::move(pending));
}

context default_context(const device& dev) {
    static std::mutex m;
    static auto* contexts = new std::map<device_impl*, context>;  // kept for the process
    std::lock_guard<std::mutex> lock(m);
    auto it = contexts->find(device_access::impl(dev));
    if (it == contexts->end())
        it = contexts->emplace(device_access::impl(dev), context(dev)).first;
    return it->second;
}

std::shared_ptr<event_impl> submit_command(const std::shared_ptr<queue_impl>& queue,
                                           command&& cmd) {
    auto ev = std::make_shared<event_impl>();
    ev->queue = queue;
    pending_command p;
    p.dependencies = std::move(cmd.dependencies);
    {
        std::lock_guard<std::mutex> order(dependency_mutex());
        std::vector<buffer_impl*> seen;
        for (const auto& b : cmd.buffers) {
            if (std::find(seen.begin(), seen.end(), b.get()) != seen.end())
                continue;
            seen.push_back(b.get());
            std::lock_guard<std::mutex> lock(b->mutex);
            if (b->last)
                p.dependencies.push_back(b->last);
            b->last = ev;
        }
    }
    p.work = std::move(cmd.work);
    p.event = ev;
    p.what = cmd.launch ? "kernel '" + cmd.launch->kernel_name + "'" : "host task";
    if (cmd.launch)
        notify_launch(*cmd.launch);
    queue->native->enqueue(std::move(p));
    return ev;
}

event make_event(std::shared_ptr<event_impl> impl) {
    return event_access::make(std::move(impl));
}

void handler_require(handler& cgh, const std::shared_ptr<buffer_impl>& buffer) {
    cgh.cmd_.buffers.push_back(buffer);
}

std::size_t handler_reserve_local(handler& cgh,
                                  std::size_t bytes,
                                  std::size_t element_bytes,
                                  std::size_t align) {
    std::shared_ptr<launch_desc> launch = cgh.take_launch();
    const std::size_t a = std::max<std::size_t>(align, alignof(std::max_align_t));
    const std::size_t offset = (launch->local_arena_bytes + a - 1) / a * a;
    const std::size_t reserved = std::max(bytes, element_bytes);
    launch->local_arena_bytes = offset + reserved;
    launch->local_memory_bytes += bytes;
    launch->largest_local_bytes = std::max(launch->largest_local_bytes, reserved);
    return offset;
}

void check_nd_range(const queue_impl& queue, std::size_t global, std::size_t local) {
    if (local == 0)
        throw exception(errc::nd_range, "The local size of an nd_range must not be 0.");
    const std::size_t limit = queue.dev.get_info<info::device::max_work_group_size>();
    if (local > limit)
        throw exception(errc::nd_range, "Total number of work-items in a work-group (" +
                                            std::to_string(local) +
                                            ") exceeds the device's max_work_group_size (" +
                                            std::to_string(limit) + ").");
    if (global % local != 0)
        throw exception(errc::nd_range,
                        "Non-uniform work-groups are not supported: the global size " +
                            std::to_string(global) + " is not a multiple of the local size " +
                            std::to_string(local) + ".");
}

void throw_second_action() {
    throw exception(errc::runtime,
                    "A command group holds one action: parallel_for or host_task, not two.");
}

}  // namespace detail

void handler::depends_on(const event& e) {
    if (const auto& impl = detail::event_access::impl(e))
        cmd_.dependencies.push_back(impl);
}

void handler::depends_on(const std::vector<event>& events) {
    for (const event& e : events)
        depends_on(e);
}

event::event() = default;

void event::wait() {
    if (impl_)
        impl_->wait();
}

void event::wait_and_throw() {
    if (!impl_)
        return;
    impl_->wait();
    if (auto q = impl_->queue.lock())
        q->throw_asynchronous();
}

void event::wait(const std::vector<event>& events) {
    for (event e : events)
        e.wait();
}

void event::wait_and_throw(const std::vector<event>& events) {
    for (event e : events)
        e.wait_and_throw();
}

queue::queue(const property_list& props) : queue(device(), async_handler(), props) {}
queue::queue(const async_handler& handler, const property_list& props)
    : queue(device(), handler, props) {}
queue::queue(const device& dev, const property_list& props) : queue(dev, async_handler(), props) {}
queue::queue(const device& dev, const async_handler& handler, const property_list&)
    : impl_(detail::new_queue(detail::default_context(dev), dev, handler)) {}
queue::queue(const context& ctx, const device& dev, const property_list& props)
    : queue(ctx, dev, async_handler(), props) {}
queue::queue(const context& ctx,
             const device& dev,
             const async_handler& handler,
             const property_list&)
    : impl_(detail::new_queue(ctx, dev, handler)) {}

device queue::get_device() const {
    return impl_->dev;
}
context queue::get_context() const {
    return impl_->ctx;
}
backend queue::get_backend() const noexcept {
    return backend::ext_hostsycl_native;
}

void queue::wait() {
    if (auto last = impl_->native->last_event())
        last->wait();
}

void queue::wait_and_throw() {
    wait();
    impl_->throw_asynchronous();
}

void queue::throw_asynchronous() {
    impl_->throw_asynchronous();
}

}  // namespace sycl

std::size_t std::hash<sycl::queue>::operator()(const sycl::queue& q) const {
    return std::hash<const void*>()(sycl::detail::queue_access::impl(q).get());
}
