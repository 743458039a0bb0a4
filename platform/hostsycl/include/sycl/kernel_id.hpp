// Kernel identifiers: every kernel name type that a loaded library instantiates.
#pragma once
#pragma GCC visibility push(default)

#include <string>
#include <vector>

namespace sycl {

class kernel_id {
  public:
    // The demangled C++ name of the kernel name type.
    const char* get_name() const noexcept { return name_->c_str(); }

    friend bool operator==(const kernel_id& a, const kernel_id& b) { return a.name_ == b.name_; }
    friend bool operator!=(const kernel_id& a, const kernel_id& b) { return a.name_ != b.name_; }

    explicit kernel_id(const std::string* name) : name_(name) {}

  private:
    const std::string* name_;  // owned by the registry, which lives as long as the process
};

// All registered kernels, in the order of their registration.
std::vector<kernel_id> get_kernel_ids();

}  // namespace sycl

#pragma GCC visibility pop
