// Device-accessible arrays for tests: shared USM memory that frees itself.
#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <vector>

#include <sycl/sycl.hpp>

namespace qnd_test {

// n elements of shared USM memory on the queue's device, filled from `values` if given.
template <typename T>
class usm_array {
  public:
    usm_array(sycl::queue& queue, std::size_t n)
        : queue_(queue), data_(sycl::malloc_shared<T>(n == 0 ? 1 : n, queue)), size_(n) {
        if (data_ == nullptr)
            throw std::runtime_error("shared allocation failed");
    }
    usm_array(sycl::queue& queue, const std::vector<T>& values) : usm_array(queue, values.size()) {
        for (std::size_t i = 0; i < values.size(); ++i)
            data_[i] = values[i];
    }
    usm_array(const usm_array&) = delete;
    usm_array& operator=(const usm_array&) = delete;
    ~usm_array() { sycl::free(data_, queue_); }

    T* get() const { return data_; }
    std::size_t size() const { return size_; }
    T& operator[](std::size_t i) const { return data_[i]; }
    std::vector<T> to_vector() const { return std::vector<T>(data_, data_ + size_); }
    void fill(T value) {
        for (std::size_t i = 0; i < size_; ++i)
            data_[i] = value;
    }

  private:
    sycl::queue queue_;
    T* data_;
    std::size_t size_;
};

}  // namespace qnd_test
