// The registry of kernel names, filled as libraries load, and the launch observer.
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <sycl/ext/hostsycl.hpp>
#include <sycl/kernel_id.hpp>

#include "objects.hpp"

namespace sycl {
namespace detail {
namespace {

struct kernel_registry {
    std::mutex mutex;
    std::set<std::string> names;
    std::vector<const std::string*> order;  // registration order; points into `names`
};

// Built on first use: libraries register from their static initialisers, in any order.
kernel_registry& registry() {
    static auto* r = new kernel_registry;
    return *r;
}

std::mutex& observer_mutex() {
    static std::mutex m;
    return m;
}
ext::hostsycl::launch_observer& observer() {
    static auto* o = new ext::hostsycl::launch_observer;
    return *o;
}

}  // namespace

// The compilers write a function template's signature as "... [with T = NAME]" (GCC) or
// "... [T = NAME]" (Clang); NAME is the type's demangled name.
std::string kernel_name_from_signature(const char* text) {
    const char* start = std::strstr(text, "T = ");
    if (start == nullptr)
        return text;
    start += 4;
    const char* end = text + std::strlen(text);
    if (end > start && end[-1] == ']')
        --end;
    return std::string(start, end);
}

bool register_kernel_name(const char* text) {
    std::string name = kernel_name_from_signature(text);
    auto& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto inserted = r.names.insert(std::move(name));
    if (inserted.second)
        r.order.push_back(&*inserted.first);
    return true;
}

void notify_launch(const launch_desc& launch) {
    ext::hostsycl::launch_observer o;
    {
        std::lock_guard<std::mutex> lock(observer_mutex());
        o = observer();
    }
    if (o)
        o(ext::hostsycl::launch_record{launch.kernel_name, launch.global_size, launch.local_size,
                                       launch.local_memory_bytes});
}

}  // namespace detail

std::vector<kernel_id> get_kernel_ids() {
    auto& r = detail::registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    std::vector<kernel_id> ids;
    ids.reserve(r.order.size());
    for (const std::string* name : r.order)
        ids.emplace_back(name);
    return ids;
}

namespace ext {
namespace hostsycl {

void set_launch_observer(launch_observer o) {
    std::lock_guard<std::mutex> lock(detail::observer_mutex());
    detail::observer() = std::move(o);
}

}  // namespace hostsycl
}  // namespace ext
}  // namespace sycl
