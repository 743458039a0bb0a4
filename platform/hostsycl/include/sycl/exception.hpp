// The error type of the runtime: sycl::errc, sycl::exception and the asynchronous handler.
#pragma once
#pragma GCC visibility push(default)

#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace sycl {

class context;

// Error codes, numbered as the SYCL 2020 standard numbers them.
enum class errc : int {
    success = 0,
    runtime = 1,
    kernel = 2,
    accessor = 3,
    nd_range = 4,
    event = 5,
    kernel_argument = 6,
    build = 7,
    invalid = 8,
    memory_allocation = 9,
    platform = 10,
    profiling = 11,
    feature_not_supported = 12,
    kernel_not_supported = 13,
    backend_mismatch = 14,
};

// The category of every errc; its name is "sycl".
const std::error_category& sycl_category() noexcept;
std::error_code make_error_code(errc e) noexcept;

class exception : public virtual std::exception {
  public:
    exception(std::error_code ec, const std::string& what_arg);
    exception(std::error_code ec, const char* what_arg);
    exception(std::error_code ec);
    exception(int ev, const std::error_category& cat, const std::string& what_arg);
    exception(int ev, const std::error_category& cat);
    exception(errc ec, const std::string& what_arg) : exception(make_error_code(ec), what_arg) {}
    exception(errc ec, const char* what_arg) : exception(make_error_code(ec), what_arg) {}
    exception(const exception&) = default;
    exception& operator=(const exception&) = default;
    ~exception() override;  // out of line: one vtable and type_info for every library

    const std::error_code& code() const noexcept { return code_; }
    const std::error_category& category() const noexcept { return code_.category(); }
    const char* what() const noexcept override;

  private:
    std::error_code code_;
    std::shared_ptr<std::string> what_;
};

// The list of asynchronous errors handed to an async_handler.
class exception_list {
  public:
    using value_type = std::exception_ptr;
    using reference = value_type&;
    using const_reference = const value_type&;
    using size_type = std::size_t;
    using iterator = std::vector<std::exception_ptr>::const_iterator;
    using const_iterator = iterator;

    exception_list() = default;
    explicit exception_list(std::vector<std::exception_ptr> list) : list_(std::move(list)) {}
    size_type size() const { return list_.size(); }
    iterator begin() const { return list_.begin(); }
    iterator end() const { return list_.end(); }

  private:
    std::vector<std::exception_ptr> list_;
};

using async_handler = std::function<void(exception_list)>;

}  // namespace sycl

namespace std {
template <>
struct is_error_code_enum<sycl::errc> : true_type {};
}  // namespace std

#pragma GCC visibility pop
