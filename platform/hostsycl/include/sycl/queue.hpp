// Queues: command groups run asynchronously, in submission order, on a runtime thread.
#pragma once
#pragma GCC visibility push(default)

#include <memory>
#include <type_traits>
#include <vector>

#include <sycl/context.hpp>
#include <sycl/device.hpp>
#include <sycl/event.hpp>
#include <sycl/exception.hpp>
#include <sycl/handler.hpp>
#include <sycl/types.hpp>

namespace sycl {

namespace detail {
struct queue_access;
event make_event(std::shared_ptr<event_impl> impl);
}  // namespace detail

class queue {
  public:
    explicit queue(const property_list& props = {});
    explicit queue(const async_handler& handler, const property_list& props = {});
    template <
        typename Selector,
        typename = std::enable_if_t<std::is_invocable_r_v<int, const Selector&, const device&>>>
    explicit queue(const Selector& selector, const property_list& props = {})
        : queue(device(selector), props) {}
    template <
        typename Selector,
        typename = std::enable_if_t<std::is_invocable_r_v<int, const Selector&, const device&>>>
    queue(const Selector& selector, const async_handler& handler, const property_list& props = {})
        : queue(device(selector), handler, props) {}
    explicit queue(const device& dev, const property_list& props = {});
    queue(const device& dev, const async_handler& handler, const property_list& props = {});
    // The device must be one of the context's devices (else errc::invalid).
    queue(const context& ctx, const device& dev, const property_list& props = {});
    queue(const context& ctx,
          const device& dev,
          const async_handler& handler,
          const property_list& props = {});

    device get_device() const;
    context get_context() const;
    backend get_backend() const noexcept;
    bool is_in_order() const noexcept { return true; }

    // Runs the command-group function now, on this thread, and enqueues what it built.
    template <typename CGF>
    event submit(CGF cgf) {
        handler cgh(impl_);
        cgf(cgh);
        return detail::make_event(detail::submit_command(impl_, cgh.take_command()));
    }

    // Blocks until every command group submitted so far is done.
    void wait();
    // wait(), then hands the pending asynchronous errors to the async handler.
    void wait_and_throw();
    void throw_asynchronous();

    friend bool operator==(const queue& a, const queue& b) { return a.impl_ == b.impl_; }
    friend bool operator!=(const queue& a, const queue& b) { return a.impl_ != b.impl_; }

  private:
    friend struct detail::queue_access;
    explicit queue(std::shared_ptr<detail::queue_impl> impl) : impl_(std::move(impl)) {}
    std::shared_ptr<detail::queue_impl> impl_;
};

}  // namespace sycl

namespace std {
template <>
struct hash<sycl::queue> {
    std::size_t operator()(const sycl::queue& q) const;
};
}  // namespace std

#pragma GCC visibility pop
