// The exception family of the statistics library: one base that composes the message and five
// kinds that differ only in how they word their detail.
#pragma once

#include <exception>
#include <string>

#include <sycl/sycl.hpp>

#pragma GCC visibility push(default)

namespace tavrel::qnd {

// Every error the library raises at its public surface. The full text is built once, at
// construction, as "tavrel::qnd[::domain][::function][: info]", and what() returns it for the
// exception's whole life.
class __attribute__((visibility("default"))) exception : public std::exception {
  public:
    exception(const std::string& domain, const std::string& function, const std::string& info)
        : msg_("tavrel::qnd") {
        if (!domain.empty())
            msg_ += "::" + domain;
        if (!function.empty())
            msg_ += "::" + function;
        if (!info.empty())
            msg_ += ": " + info;
    }
    ~exception() override = default;
    const char* what() const noexcept override { return msg_.c_str(); }

  private:
    std::string msg_;
};

namespace detail {
// "kind" alone, or "kind: detail" when a detail is given.
inline std::string with_detail(const char* kind, const std::string& detail) {
    return detail.empty() ? std::string(kind) : std::string(kind) + ": " + detail;
}

// The device's reported name, possibly empty.
inline std::string device_name(const sycl::device& device) {
    return device.get_info<sycl::info::device::name>();
}
}  // namespace detail

// An output argument the call cannot work with (a null pointer, an empty buffer).
class __attribute__((visibility("default"))) invalid_argument : public exception {
  public:
    invalid_argument(const std::string& domain,
                     const std::string& function,
                     const std::string& detail)
        : exception(
              domain, function, ::tavrel::qnd::detail::with_detail("invalid argument", detail)) {}
};

// A combination of estimate, method and device that this library does not compute.
class __attribute__((visibility("default"))) unimplemented : public exception {
  public:
    unimplemented(const std::string& domain, const std::string& function, const std::string& detail)
        : exception(domain,
                    function,
                    ::tavrel::qnd::detail::with_detail("unimplemented functionality", detail)) {}
};

// A failure reported by the engine that computed the estimate.
class __attribute__((visibility("default"))) computation_error : public exception {
  public:
    computation_error(const std::string& domain,
                      const std::string& function,
                      const std::string& detail)
        : exception(
              domain, function, ::tavrel::qnd::detail::with_detail("computation error", detail)) {}
};

// A queue whose device is neither a CPU nor a GPU.
class __attribute__((visibility("default"))) unsupported_device : public exception {
  public:
    unsupported_device(const std::string& domain,
                       const std::string& function,
                       const sycl::device& device)
        : exception(domain,
                    function,
                    "unsupported device: " + ::tavrel::qnd::detail::device_name(device)) {}
};

// A temporary array that could not be allocated on the queue's device.
class __attribute__((visibility("default"))) device_bad_alloc : public exception {
  public:
    device_bad_alloc(const std::string& domain,
                     const std::string& function,
                     const sycl::device& device)
        : exception(domain,
                    function,
                    "cannot allocate memory on " + ::tavrel::qnd::detail::device_name(device)) {}
};

}  // namespace tavrel::qnd

#pragma GCC visibility pop
