// Events: the completion state of a command group.
#pragma once
#pragma GCC visibility push(default)

#include <memory>
#include <vector>

namespace sycl {

namespace detail {
struct event_impl;
struct event_access;
}  // namespace detail

class event {
  public:
    // An event that is already complete.
    event();

    // Blocks until the command is done.
    void wait();
    // Blocks, then hands the pending asynchronous errors of the command's queue to its handler.
    void wait_and_throw();
    static void wait(const std::vector<event>& events);
    static void wait_and_throw(const std::vector<event>& events);

    friend bool operator==(const event& a, const event& b) { return a.impl_ == b.impl_; }
    friend bool operator!=(const event& a, const event& b) { return a.impl_ != b.impl_; }

  private:
    friend struct detail::event_access;
    explicit event(std::shared_ptr<detail::event_impl> impl) : impl_(std::move(impl)) {}
    std::shared_ptr<detail::event_impl> impl_;
};

}  // namespace sycl

#pragma GCC visibility pop
