// The caches of contexts and queues through the three exported functions, on hostsycl's native
// handles: first and later callers, keys, the driver-runtime forms, failures and concurrency.
#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "omptarget_double_sycl.hpp"
#include "service/cache.hpp"
#include "tavrel/qnd/gpu.hpp"

namespace {

using namespace tavrel::qnd::gpu;
using namespace tavrel::qnd::gpu::detail;
using namespace omptarget_double;

sycl::context* context_of(void* native_context, sycl::device& device, bool pass_device = true) {
    return lookup_and_cache_zarth_context(native_context, native(device), qnd_gpu_backend_driver,
                                          pass_device ? &device : nullptr);
}

// The key is the pair (native context, native device), and a new context lists the one device
// asked for; the native context stays with its owner. The first caller of a key gets a heap
// object of its own, later callers the entry, and a hit does not look at the device.
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
    EXPECT_EQ(sycl::ext::hostsycl::native_reference_count(native(both)), 1u);
    EXPECT_EQ(context_cache_word.load(), 0u);
}

// A driver queue is immediate for a non-zero value of property 10 with code 0. It is keyed by the
// native queue alone: the context of a later call is not looked at, and property 10 is asked
// for once, on the miss.
TEST(service_cache, driver_queues_are_cached_by_native_queue) {
    const std::pair<std::int32_t, std::intptr_t> cases[] = {{0, 1}, {0, 7}, {0, 0}, {-3, 1}};
    for (const auto& [code, value] : cases) {
        const interop_ptr interop = new_interop(6);
        int_of(interop, 10) = {value, code, 0};
        EXPECT_EQ(driver_queue_description(interop.get()), code == 0 && value != 0 ? 1 : 0);
    }
    const std::size_t before = service_caches.queue_cache.size;
    const sycl::queue queue = fresh_gpu_queue();
    sycl::device device = queue.get_device();
    sycl::context* context = context_of(native(queue.get_context()), device);
    const interop_ptr interop = driver_interop(queue, true);
    const auto lookup = [&](const sycl::context& c, void* i) {
        return lookup_and_cache_zarth_queue(native(queue), qnd_gpu_backend_driver, c, i);
    };
    sycl::queue* first = lookup(*context, interop.get());
    sycl::queue* later = lookup(*context, interop.get());
    EXPECT_NE(first, later);
    EXPECT_EQ(lookup(sycl::context{sycl::device{sycl::cpu_selector_v}}, nullptr), later);
    EXPECT_TRUE(*first == *later);
    EXPECT_TRUE(first->get_context() == *context && first->get_device() == device);
    EXPECT_EQ(native(*first), native(queue));
    EXPECT_EQ(int_of(interop, 10).queries, 1);
    EXPECT_EQ(service_caches.queue_cache.size, before + 1);
    EXPECT_EQ(queue_cache_word.load(), 0u);
}

// A driver interop gives one cached queue, on the cached context of its native context and
// device, from the driver runtime's properties alone. Any failed query gives null and caches
// nothing: the kind (8), the driver runtime's context (9), queue (5) and device (7), OpenCL's
// context (6) and queue (5).
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
    EXPECT_EQ(service_caches.context_cache.size, contexts + 1);
    EXPECT_EQ(service_caches.queue_cache.size, queues + 1);
    EXPECT_EQ(pointer_of(interop, 6).queries, 0);
    EXPECT_EQ(int_of(interop, -1).queries, 0);
}

// Threads that ask for one key at once make it once; every answer is the same context.
TEST(service_cache, concurrent_first_calls_make_one_entry) {
    const std::size_t before = service_caches.context_cache.size;
    const sycl::queue queue = fresh_gpu_queue();
    std::vector<sycl::context*> results(4);
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (sycl::context*& result : results) {
        threads.emplace_back([&] {
            sycl::device device = queue.get_device();
            while (!go.load())
                std::this_thread::yield();
            result = context_of(native(queue.get_context()), device);
        });
    }
    go = true;
    for (std::thread& t : threads)
        t.join();
    EXPECT_LE(std::set<sycl::context*>(results.begin(), results.end()).size(), 2u);
    for (sycl::context* r : results)
        EXPECT_TRUE(*r == *results[0]);
    EXPECT_EQ(service_caches.context_cache.size, before + 1);
    EXPECT_EQ(context_cache_word.load(), 0u);
}

// An exception under a write lock leaves its word at 1 and the other word free: an unknown
// backend takes the OpenCL form, which hostsycl refuses, and a driver device that SYCL does not
// expose. Each runs in a child, which reports by its status what it saw.
TEST(service_cache, an_exception_under_the_write_lock_leaves_the_word_locked) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto child = [](auto call, sycl::errc code, const char* text, bool queue_word) {
        try {
            call();
        } catch (const sycl::exception& e) {
            std::_Exit(e.code() == code && std::string(e.what()).find(text) != std::string::npos &&
                               queue_cache_word.load() == (queue_word ? 1u : 0u) &&
                               context_cache_word.load() == (queue_word ? 0u : 1u)
                           ? 0
                           : 1);
        }
        std::_Exit(3);
    };
    const sycl::queue queue = fresh_gpu_queue();
    const auto unknown_backend = [&] {
        lookup_and_cache_zarth_queue(native(queue), static_cast<qnd_gpu_backend_t>(7),
                                     queue.get_context(), nullptr);
    };
    EXPECT_EXIT(child(unknown_backend, sycl::errc::feature_not_supported, "OpenCL", true),
                ::testing::ExitedWithCode(0), "");
    const sycl::queue aside{sycl::ext::hostsycl::make_gpu_device(8)};
    const auto unexposed = [&] {
        lookup_and_cache_zarth_queue_and_context(driver_interop(aside).get());
    };
    EXPECT_EXIT(
        child(unexposed, sycl::errc::invalid, "Native device isn't exposed to SYCL.", false),
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
