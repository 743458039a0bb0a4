// sycl::exception and the "sycl" error category.
#include <cstdio>
#include <exception>
#include <string>

#include "objects.hpp"

namespace sycl {
namespace {

struct sycl_error_category : std::error_category {
    const char* name() const noexcept override { return "sycl"; }
    std::string message(int code) const override {
        switch (static_cast<errc>(code)) {
            case errc::success:
                return "success";
            case errc::runtime:
                return "runtime error";
            case errc::kernel:
                return "kernel error";
            case errc::accessor:
                return "accessor error";
            case errc::nd_range:
                return "nd_range error";
            case errc::event:
                return "event error";
            case errc::kernel_argument:
                return "kernel argument error";
            case errc::build:
                return "build error";
            case errc::invalid:
                return "invalid object";
            case errc::memory_allocation:
                return "memory allocation error";
            case errc::platform:
                return "platform error";
            case errc::profiling:
                return "profiling error";
            case errc::feature_not_supported:
                return "feature not supported";
            case errc::kernel_not_supported:
                return "kernel not supported";
            case errc::backend_mismatch:
                return "backend mismatch";
        }
        return "unknown error " + std::to_string(code);
    }
};

}  // namespace

const std::error_category& sycl_category() noexcept {
    static const sycl_error_category category;
    return category;
}

std::error_code make_error_code(errc e) noexcept {
    return std::error_code(static_cast<int>(e), sycl_category());
}

exception::exception(std::error_code ec, const std::string& what_arg)
    : code_(ec), what_(std::make_shared<std::string>(what_arg)) {}
exception::exception(std::error_code ec, const char* what_arg)
    : exception(ec, std::string(what_arg)) {}
exception::exception(std::error_code ec) : exception(ec, std::string()) {}
exception::exception(int ev, const std::error_category& cat, const std::string& what_arg)
    : exception(std::error_code(ev, cat), what_arg) {}
exception::exception(int ev, const std::error_category& cat)
    : exception(std::error_code(ev, cat), std::string()) {}
exception::~exception() = default;

const char* exception::what() const noexcept {
    return what_->c_str();
}

namespace detail {

void deliver_errors(const async_handler& handler, std::vector<std::exception_ptr> errors) {
    if (errors.empty())
        return;
    if (handler) {
        handler(exception_list(std::move(errors)));
        return;
    }
    // The default handler: report every error, then terminate.
    for (const auto& e : errors) {
        try {
            std::rethrow_exception(e);
        } catch (const std::exception& ex) {
            std::fprintf(stderr, "hostsycl: unhandled asynchronous error: %s\n", ex.what());
        } catch (...) {
            std::fprintf(stderr, "hostsycl: unhandled asynchronous error of unknown type\n");
        }
    }
    std::fflush(stderr);
    std::terminate();
}

}  // namespace detail
}  // namespace sycl
