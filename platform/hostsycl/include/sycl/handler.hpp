// Command-group handlers: one action (an nd_range kernel or a host task) with its requirements.
#pragma once
#pragma GCC visibility push(default)

#include <cstddef>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <sycl/accessor.hpp>
#include <sycl/detail/runtime.hpp>
#include <sycl/event.hpp>
#include <sycl/exception.hpp>
#include <sycl/nd_item.hpp>
#include <sycl/types.hpp>

namespace sycl {

namespace detail {

// The kernel name of a parallel_for that names none: the kernel's own type stands for it.
struct auto_name;

// Registration of a kernel name type happens once per loaded library, at load, because the
// definition below is instantiated (with its dynamic initialiser) by every parallel_for.
template <typename Name>
struct kernel_registration {
    static const bool done;
};
template <typename Name>
const bool kernel_registration<Name>::done = register_kernel_name(type_signature<Name>());

template <typename Name>
const std::string& kernel_name() {
    static const std::string name = kernel_name_from_signature(type_signature<Name>());
    return name;
}

template <typename Kernel>
void run_items(const void* kernel, item_state& state, std::size_t first, std::size_t last) {
    const Kernel& k = *static_cast<const Kernel*>(kernel);
    for (std::size_t i = first; i < last; ++i) {
        state.local_id = i;
        k(nd_item<1>(state));
    }
}

// Checks a launch before anything of it is built; throws errc::nd_range.
void check_nd_range(const queue_impl& queue, std::size_t global, std::size_t local);
[[noreturn]] void throw_second_action();
struct event_access;
}  // namespace detail

class handler {
  public:
    explicit handler(std::shared_ptr<detail::queue_impl> queue) : queue_(std::move(queue)) {}
    handler(const handler&) = delete;
    handler& operator=(const handler&) = delete;

    // Runs `kernel(nd_item<1>)` over `r`. The global size must be a multiple of the local size,
    // and the local size at most the device's max_work_group_size (else errc::nd_range).
    template <typename KernelName = detail::auto_name, typename KernelType>
    void parallel_for(nd_range<1> r, const KernelType& kernel) {
        using name_t = std::conditional_t<std::is_same_v<KernelName, detail::auto_name>, KernelType,
                                          KernelName>;
        if (!detail::kernel_registration<name_t>::done)
            throw exception(errc::runtime, "kernel name registration failed");
        if (has_action_)
            detail::throw_second_action();
        detail::check_nd_range(*queue_, r.get_global_range().size(), r.get_local_range().size());
        std::shared_ptr<detail::launch_desc> launch = take_launch();
        launch->kernel_name = detail::kernel_name<name_t>();
        launch->global_size = r.get_global_range().size();
        launch->local_size = r.get_local_range().size();
        launch->kernel = std::make_shared<KernelType>(kernel);
        launch->run_items = &detail::run_items<KernelType>;
        cmd_.launch = launch;
        cmd_.work = [launch] { detail::run_nd_range(*launch); };
        has_action_ = true;
    }

    // Runs `f()` on a runtime thread once the command group's requirements are met.
    template <typename F>
    void host_task(F f) {
        if (has_action_)
            detail::throw_second_action();
        cmd_.work = [f = std::move(f)]() mutable { f(); };
        cmd_.is_host_task = true;
        has_action_ = true;
    }

    // Registers a placeholder accessor's buffer on this command group.
    template <typename DataT, int D, access_mode M, target T, access::placeholder P>
    void require(const accessor<DataT, D, M, T, P>& acc) {
        if (acc.buffer_record())
            detail::handler_require(*this, acc.buffer_record());
    }

    void depends_on(const event& e);
    void depends_on(const std::vector<event>& events);

    // What the queue takes over when the command-group function returns.
    detail::command take_command() { return std::move(cmd_); }

  private:
    friend void detail::handler_require(handler&, const std::shared_ptr<detail::buffer_impl>&);
    friend std::size_t detail::handler_reserve_local(handler&,
                                                     std::size_t,
                                                     std::size_t,
                                                     std::size_t);

    std::shared_ptr<detail::launch_desc> take_launch() {
        if (!launch_)
            launch_ = std::make_shared<detail::launch_desc>();
        return launch_;
    }

    std::shared_ptr<detail::queue_impl> queue_;
    std::shared_ptr<detail::launch_desc> launch_;  // local memory is reserved here first
    detail::command cmd_;
    bool has_action_ = false;
};

}  // namespace sycl

#pragma GCC visibility pop
