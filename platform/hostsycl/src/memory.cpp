// Buffers and USM: ordinary, aligned host memory, with injectable allocation failures.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sycl/ext/hostsycl.hpp>
#include <sycl/usm.hpp>

#include "objects.hpp"

// The C library's report of a failed assertion; declared here because <assert.h> hides it
// when NDEBUG is defined, and a failed buffer release must stop in every build.
extern "C" [[noreturn]] void __assert_fail(const char* assertion,
                                           const char* file,
                                           unsigned int line,
                                           const char* function) noexcept;

namespace sycl {
namespace detail {
namespace {

constexpr std::size_t alignment = 64;

std::atomic<std::size_t> failing_allocations{0};
std::atomic<std::size_t> failing_releases{0};

std::mutex& observer_mutex() {
    static std::mutex m;
    return m;
}
ext::hostsycl::usm_observer& observer() {
    static auto* o = new ext::hostsycl::usm_observer;
    return *o;
}

// Takes one unit from `counter` if it is above 0.
bool take_one(std::atomic<std::size_t>& counter) {
    std::size_t n = counter.load();
    while (n > 0)
        if (counter.compare_exchange_weak(n, n - 1))
            return true;
    return false;
}

void* aligned_allocation(std::size_t bytes) {
    void* p = nullptr;
    const std::size_t rounded = (bytes + alignment - 1) / alignment * alignment;
    if (posix_memalign(&p, alignment, rounded) != 0)
        return nullptr;
    return p;
}

void* usm_allocate(std::size_t bytes, ext::hostsycl::usm_op op) {
    void* p = nullptr;
    if (bytes != 0 && !take_allocation_failure())
        p = aligned_allocation(bytes);
    ext::hostsycl::usm_observer o;
    {
        std::lock_guard<std::mutex> lock(observer_mutex());
        o = observer();
    }
    if (o)
        o(op, p, bytes);
    return p;
}

}  // namespace

bool take_allocation_failure() {
    return take_one(failing_allocations);
}

bool take_release_failure() {
    return take_one(failing_releases);
}

buffer_impl::~buffer_impl() {
    std::free(data);
}

std::shared_ptr<buffer_impl> make_buffer(std::size_t count,
                                         std::size_t element_size,
                                         void* host_data,
                                         bool write_back) {
    const std::size_t bytes = count * element_size;
    if (count != 0 && bytes / count != element_size)
        throw exception(errc::memory_allocation, "Buffer size overflows the address space.");
    // A buffer of 0 elements still gets one element, which its accessors reach harmlessly.
    const std::size_t storage = std::max(bytes, element_size);
    void* data = take_allocation_failure() ? nullptr : aligned_allocation(storage);
    if (data == nullptr)
        throw exception(errc::memory_allocation,
                        "Cannot allocate " + std::to_string(storage) + " bytes for a buffer.");
    std::memset(data, 0, storage);
    if (host_data != nullptr && bytes != 0)
        std::memcpy(data, host_data, bytes);
    auto b = std::make_shared<buffer_impl>();
    b->data = data;
    b->bytes = bytes;
    b->host = host_data;
    b->write_back = write_back && host_data != nullptr;
    return b;
}

void* buffer_data(const buffer_impl& buffer) {
    return buffer.data;
}

void wait_buffer(const buffer_impl& buffer) {
    std::shared_ptr<event_impl> last;
    {
        std::lock_guard<std::mutex> lock(const_cast<buffer_impl&>(buffer).mutex);
        last = buffer.last;
    }
    if (last)
        last->wait();
}

void set_buffer_write_back(buffer_impl& buffer, void* host_data, bool write_back) {
    std::lock_guard<std::mutex> lock(buffer.mutex);
    if (host_data != nullptr)
        buffer.host = host_data;
    buffer.write_back = write_back && buffer.host != nullptr;
}

// The release of a buffer's last handle: wait for its commands, then write back. A failure
// never leaves the destructor: it is reported and the process stops on a failed assertion.
void release_buffer(const std::shared_ptr<buffer_impl>& buffer) noexcept {
    try {
        if (take_release_failure())
            throw exception(errc::runtime, "The buffer's storage could not be released.");
        wait_buffer(*buffer);
        std::lock_guard<std::mutex> lock(buffer->mutex);
        if (buffer->write_back && buffer->bytes != 0)
            std::memcpy(buffer->host, buffer->data, buffer->bytes);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "exception in ~buffer %s\n", e.what());
        std::fflush(stderr);
        __assert_fail("!\"exception in ~buffer\"", __FILE__, __LINE__, __func__);
    }
}

}  // namespace detail

void* malloc_device(std::size_t bytes, const device&, const context&, const property_list&) {
    return detail::usm_allocate(bytes, ext::hostsycl::usm_op::malloc_device);
}
void* malloc_device(std::size_t bytes, const queue& q, const property_list& props) {
    return malloc_device(bytes, q.get_device(), q.get_context(), props);
}
void* malloc_shared(std::size_t bytes, const device&, const context&, const property_list&) {
    return detail::usm_allocate(bytes, ext::hostsycl::usm_op::malloc_shared);
}
void* malloc_shared(std::size_t bytes, const queue& q, const property_list& props) {
    return malloc_shared(bytes, q.get_device(), q.get_context(), props);
}
void* malloc_host(std::size_t bytes, const context&, const property_list&) {
    return detail::usm_allocate(bytes, ext::hostsycl::usm_op::malloc_host);
}
void* malloc_host(std::size_t bytes, const queue& q, const property_list& props) {
    return malloc_host(bytes, q.get_context(), props);
}

void free(void* ptr, const context&) {
    ext::hostsycl::usm_observer o;
    {
        std::lock_guard<std::mutex> lock(detail::observer_mutex());
        o = detail::observer();
    }
    if (o)
        o(ext::hostsycl::usm_op::free, ptr, 0);
    std::free(ptr);
}
void free(void* ptr, const queue& q) {
    free(ptr, q.get_context());
}

namespace ext {
namespace hostsycl {

void fail_next_allocations(std::size_t n) {
    detail::failing_allocations.store(n);
}

void fail_next_buffer_releases(std::size_t n) {
    detail::failing_releases.store(n);
}

void set_usm_observer(usm_observer o) {
    std::lock_guard<std::mutex> lock(detail::observer_mutex());
    detail::observer() = std::move(o);
}

}  // namespace hostsycl
}  // namespace ext
}  // namespace sycl
