// The GPU service with the offload-runtime double and the system's OpenCL: the caches, the three
// exported functions, native device search, queue_from_interop's fallbacks, loading by name.
#include <dlfcn.h>
#include <limits.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "omptarget_double_sycl.hpp"
#include "service/cache.hpp"
#include "service/interop_loader.hpp"
#include "service/opencl_entries.hpp"
#include "service/queue_from_interop.hpp"
#include "tavrel/qnd/gpu.hpp"

namespace {

using namespace tavrel::qnd::gpu;
using namespace tavrel::qnd::gpu::detail;
using namespace omptarget_double;

// A queue on the GPU in a context of its own, so that its native context is new to the caches.
sycl::queue fresh_gpu_queue() {
    const sycl::device device{sycl::gpu_selector_v};
    return sycl::queue(sycl::context(device), device);
}

// Hand-computed FNV-1a 64 of the pointers' bytes, low byte first; a context key xors its handles'
// hashes. (a, b) and (b, a) hash alike, (a, a) and (b, b) to 0, yet all four are entries.
TEST(service_cache, keys_hash_like_hand_computed_values_and_stay_apart) {
    constexpr std::uint64_t zero = 0xa8c7f832281a39c5ull;   // eight zero bytes
    constexpr std::uint64_t bytes = 0x0c6d4496e17859d5ull;  // 08 07 ... 01 in memory
    void* const a = reinterpret_cast<void*>(0x0102030405060708);
    void* const b = reinterpret_cast<void*>(0x10);
    EXPECT_EQ(fnv1a(nullptr), zero);
    EXPECT_EQ(key_hash(queue_key{a}), bytes);
    EXPECT_EQ(key_hash(queue_key{b}), 0x987468c2d70edbd5ull);
    EXPECT_EQ(key_hash(context_key{a, nullptr}), bytes ^ zero);
    EXPECT_EQ(key_hash(context_key{a, b}), key_hash(context_key{b, a}));
    EXPECT_EQ(key_hash(context_key{a, a}), 0u);
    pointer_hash_map<context_key, int> map;
    const context_key keys[] = {{a, b}, {b, a}, {a, a}, {b, b}};
    for (int k = 0; k < 4; ++k)
        map.find_or_insert(keys[k]) = k;
    EXPECT_EQ(map.size, 4u);
    for (int k = 0; k < 4; ++k)
        EXPECT_EQ(*map.find(keys[k]), k);
    EXPECT_EQ(map.find({a, nullptr}), nullptr);  // both handles count
}

// 8 buckets to start; a ninth entry makes 64, the 65th 512, the 513th 1024 (what the size needs,
// raised to a power of two), the 1025th 2048. Values keep their address as the map grows, and a
// key already there inserts nothing.
TEST(service_cache, buckets_grow_eightfold_below_512_then_by_size_and_values_stay_put) {
    pointer_hash_map<queue_key, std::size_t> map;
    std::vector<std::pair<std::size_t, std::size_t>> growth{{0, map.bucket_count}};
    std::vector<std::size_t*> values;
    for (std::size_t i = 1; i <= 1100; ++i) {
        values.push_back(&map.find_or_insert({reinterpret_cast<void*>(i * 64)}));
        *values.back() = i;
        if (map.bucket_count != growth.back().second)
            growth.emplace_back(map.size, map.bucket_count);
    }
    EXPECT_EQ(growth, (std::vector<std::pair<std::size_t, std::size_t>>{
                          {0, 8}, {9, 64}, {65, 512}, {513, 1024}, {1025, 2048}}));
    for (std::size_t i = 1; i <= 1100; ++i) {
        ASSERT_EQ(map.find({reinterpret_cast<void*>(i * 64)}), values[i - 1]);
        EXPECT_EQ(*values[i - 1], i);
    }
    EXPECT_EQ(&map.find_or_insert({reinterpret_cast<void*>(64)}), values[0]);
    EXPECT_EQ(map.size, 1100u);
}

sycl::context* context_of(void* native_context, sycl::device& device, bool pass_device = true) {
    return lookup_and_cache_zarth_context(native_context, native(device), qnd_gpu_backend_driver,
                                          pass_device ? &device : nullptr);
}

// Keyed by (native context, native device); a new context lists that device alone, and the native
// context stays with its owner. A key's first caller gets a heap object of its own, later callers
// the entry; a hit ignores the device.
TEST(service_cache, contexts_are_cached_by_native_context_and_device) {
    const std::size_t before = service_caches.context_cache.size;
    sycl::device devices[] = {sycl::device{sycl::gpu_selector_v},
                              sycl::device{sycl::cpu_selector_v}};
    const sycl::context both({devices[0], devices[1]});
    sycl::context* first[2];
    for (int d = 0; d < 2; ++d) {
        first[d] = context_of(native(both), devices[d]);
        sycl::context* later = context_of(native(both), devices[d]);
        EXPECT_NE(first[d], later);
        EXPECT_EQ(context_of(native(both), devices[d], false), later);
        EXPECT_TRUE(*first[d] == *later);
        EXPECT_EQ(native(*first[d]), native(both));
        EXPECT_EQ(first[d]->get_devices(), std::vector<sycl::device>{devices[d]});
    }
    EXPECT_FALSE(*first[0] == *first[1]);
    EXPECT_EQ(service_caches.context_cache.size, before + 2);
    { const sycl::context made = make_driver_context(native(both), devices[0]); }
    EXPECT_EQ(sycl::ext::hostsycl::native_reference_count(native(both)), 1u);
}

// A driver queue is immediate for a non-zero value of property 10 with code 0. It is keyed by the
// native queue alone: the context of a later call is not looked at, and property 10 is asked for
// once, on the miss. The native queue stays with its owner.
TEST(service_cache, driver_queues_are_cached_by_native_queue) {
    const std::pair<std::int32_t, std::intptr_t> cases[] = {{0, 1}, {0, 7}, {0, 0}, {-3, 1}};
    for (const auto& [code, value] : cases) {
        const interop_ptr interop = new_interop(6);
        int_of(interop, 10) = {value, code, 0};
        EXPECT_EQ(driver_queue_description(interop.get()), code == 0 && value != 0 ? 1 : 0);
    }
    const sycl::queue queue = fresh_gpu_queue();
    sycl::device device = queue.get_device();
    sycl::context* context = context_of(native(queue.get_context()), device);
    const interop_ptr interop = driver_interop(queue);
    const auto lookup = [&](const sycl::context& c, void* i) {
        return lookup_and_cache_zarth_queue(native(queue), qnd_gpu_backend_driver, c, i);
    };
    sycl::queue* first = lookup(*context, interop.get());
    EXPECT_EQ(lookup(sycl::context{sycl::device{sycl::cpu_selector_v}}, nullptr),
              lookup(*context, nullptr));
    EXPECT_TRUE(first->get_context() == *context && first->get_device() == device);
    EXPECT_EQ(native(*first), native(queue));
    EXPECT_EQ(int_of(interop, 10).queries, 1);
    { const sycl::queue made = make_driver_queue(native(queue), *context, interop.get()); }
    EXPECT_EQ(sycl::ext::hostsycl::native_reference_count(native(queue)), 1u);
}

// A driver interop gives one cached queue on the cached context, from the driver's properties
// alone. A failed query gives null and caches nothing: kind (8), driver context (9), queue (5),
// device (7), OpenCL context (6) and queue (5).
TEST(service_cache, an_interop_gives_one_cached_queue_or_null) {
    const std::size_t contexts = service_caches.context_cache.size;
    const std::size_t queues = service_caches.queue_cache.size;
    const sycl::queue queue = fresh_gpu_queue();
    const std::pair<bool, std::int32_t> failures[] = {{true, 8}, {true, 9},  {true, 5},
                                                      {true, 7}, {false, 6}, {false, 5}};
    for (const auto& [driver, property] : failures) {
        const interop_ptr interop = driver ? driver_interop(queue) : opencl_interop(queue);
        pointer_of(interop, property) = {0, -4, 0};
        EXPECT_EQ(lookup_and_cache_zarth_queue_and_context(interop.get()), nullptr) << property;
    }
    EXPECT_EQ(service_caches.context_cache.size, contexts);
    const interop_ptr interop = driver_interop(queue);
    sycl::queue* first = lookup_and_cache_zarth_queue_and_context(interop.get());
    sycl::queue* later = lookup_and_cache_zarth_queue_and_context(interop.get());
    ASSERT_NE(first, nullptr);
    EXPECT_NE(first, later);
    EXPECT_EQ(lookup_and_cache_zarth_queue_and_context(interop.get()), later);
    EXPECT_EQ(native(*first), native(queue));
    sycl::device device = queue.get_device();
    EXPECT_TRUE(first->get_context() == *context_of(native(queue.get_context()), device, false));
    EXPECT_TRUE(first->get_device() == device);
    EXPECT_EQ(std::tuple(service_caches.context_cache.size, service_caches.queue_cache.size),
              std::tuple(contexts + 1, queues + 1));
    EXPECT_EQ(std::tuple(pointer_of(interop, 6).queries, int_of(interop, -1).queries),
              std::tuple(0, 0));
}

// A root device and a sub-device are found by their handles; an emulated GPU made aside, the CPU
// device and a handle of nothing, which no listed GPU leads to, are refused in their words.
TEST(service_interop, driver_devices_are_found_among_roots_and_sub_devices) {
    constexpr auto by_affinity = sycl::info::partition_property::partition_by_affinity_domain;
    const sycl::device root{sycl::gpu_selector_v};
    int nothing = 0;
    void* handles[] = {native(root),
                       native(root.create_sub_devices<by_affinity>(
                           sycl::info::partition_affinity_domain::next_partitionable)[1]),
                       native(sycl::ext::hostsycl::make_gpu_device(16)),
                       native(sycl::device{sycl::cpu_selector_v}), &nothing};
    for (int h = 0; h < 5; ++h) {
        try {
            EXPECT_EQ(native(find_driver_device(&handles[h])), handles[h]);
            EXPECT_LT(h, 2) << "no exception for handle " << h;
        } catch (const sycl::exception& e) {
            EXPECT_GE(h, 2);
            EXPECT_EQ(e.code(), sycl::make_error_code(sycl::errc::invalid));
            EXPECT_STREQ(e.what(), "Native device isn't exposed to SYCL.");
        }
    }
}

// Each way of failing gives a default queue, none of the interop's, with the runtime number it
// leaves: 0, or the failed query's value when the kind cannot be had either.
TEST(service_interop, failures_give_a_default_queue) {
    sycl::queue queue{sycl::device{sycl::gpu_selector_v}};
    // The interop's runtime (0: none, with the kind 3); the property answered null with a status,
    // unless 0; the failed runtime query's value, if it fails; the number left.
    const int failures[][5] = {{1, 0, 0, -1, 0},  {5, 0, 0, -1, 0},  {4, 5, -1, -1, 0},
                               {4, 5, 0, -1, 0},  {6, 7, -1, -1, 0}, {6, 9, -1, -1, 0},
                               {6, 5, -1, -1, 0}, {3, 9, -1, -1, 0}, {3, 5, -1, -1, 0},
                               {3, 5, -1, 0, 0},  {0, 0, 0, 0, 0},   {0, 8, -1, 9, 9},
                               {0, 8, 0, 4, 4}};
    for (const auto& [runtime, property, status, number, left] : failures) {
        const interop_ptr interop = runtime == 4   ? sycl_interop(&queue)
                                    : runtime == 6 ? driver_interop(queue)
                                    : runtime == 3 ? opencl_interop(queue)
                                                   : new_interop(runtime);
        interop->kind = 3;
        if (runtime == 0)
            pointer_of(interop, 8) = pointing_at(&interop->kind);
        if (property != 0)
            pointer_of(interop, property) = {0, status, 0};
        if (number >= 0)
            int_of(interop, -1) = {number, -5, 0};
        std::int32_t got = -9;
        const sycl::queue made = queue_from_interop(interop.get(), &got);
        EXPECT_EQ(got, left) << runtime << " " << property << " " << number;
        EXPECT_FALSE(made == queue) << runtime << " " << property << " " << number;
    }
}

// A bare name is found on the library search path; a path skips the search and is tried once as
// it is; a missing name, or one too long to be kept, gives null.
TEST(service_interop, libraries_are_loaded_by_bare_name_or_by_path) {
    void* runtime = load_library_by_name("libOpenCL.so.1");
    ASSERT_NE(runtime, nullptr);
    Dl_info info{};
    ASSERT_NE(dladdr(dlsym(runtime, "clGetPlatformIDs"), &info), 0);
    EXPECT_EQ(load_library_by_name(info.dli_fname), runtime);
    EXPECT_EQ(load_library_by_name("/nonexistent/libOpenCL.so.1"), nullptr);
    EXPECT_EQ(load_library_by_name("libqnd_no_such_library.so.9"), nullptr);
    EXPECT_EQ(load_library_by_name(std::string(PATH_MAX + 10, 'x').c_str()), nullptr);
}

}  // namespace
