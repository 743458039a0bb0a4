// The GPU service under many threads: the interop runtime is opened once by many first callers, and
// the context cache grows through rehashes under 16 threads while every cached key keeps its
// address.
#include <dlfcn.h>

#include <atomic>
#include <cstring>
#include <map>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "omptarget_double_sycl.hpp"
#include "service/cache.hpp"
#include "service/interop_loader.hpp"
#include "tavrel/qnd/gpu.hpp"

// Every dlopen of this program's copy of the service passes here (linked with --wrap=dlopen).
std::atomic<int> runtime_opens{0};
extern "C" void* __real_dlopen(const char* file, int flags);
extern "C" void* __wrap_dlopen(const char* file, int flags) {
    if (file != nullptr && std::strcmp(file, "libomptarget.so") == 0)
        ++runtime_opens;
    return __real_dlopen(file, flags);
}

namespace {

using namespace tavrel::qnd::gpu;
using namespace tavrel::qnd::gpu::detail;
using namespace omptarget_double;

constexpr int n_threads = 16;

// Runs body(t) on n_threads threads released together.
template <typename Body>
void together(Body body) {
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < n_threads; ++t)
        threads.emplace_back([&, t] {
            while (!go.load())
                std::this_thread::yield();
            body(t);
        });
    go = true;
    for (std::thread& thread : threads)
        thread.join();
}

TEST(service_stress, the_interop_runtime_is_opened_once_by_many_first_callers) {
    ASSERT_EQ(runtime_opens.load(), 0);
    std::vector<int> loads(n_threads, -1);
    std::vector<std::intptr_t> runtimes(n_threads, 0);
    together([&](int t) {
        const interop_ptr interop = new_interop(6);
        std::int32_t code = 1;
        runtimes[t] = omp_get_interop_int(interop.get(), property_runtime, &code);
        loads[t] = load_interop_entries();
    });
    EXPECT_EQ(runtime_opens.load(), 1);
    EXPECT_EQ(loads, std::vector<int>(n_threads, 0));
    EXPECT_EQ(runtimes, std::vector<std::intptr_t>(n_threads, 6));
}

TEST(service_stress, the_context_cache_grows_under_readers_and_keeps_every_address) {
    constexpr int keys_per_thread = 48;  // 768 keys: buckets 8, 64, 512, then 1024
    const std::size_t before = service_caches.context_cache.size;
    const sycl::device device{sycl::gpu_selector_v};
    std::vector<std::vector<sycl::context>> owned(n_threads);
    std::vector<int> moved(n_threads, 0), differ(n_threads, 0);
    together([&](int t) {
        sycl::device d = device;
        std::vector<std::pair<void*, sycl::context*>> cached;  // native context, entry
        for (int k = 0; k < keys_per_thread; ++k) {
            owned[t].emplace_back(d);
            void* key = native(owned[t].back());
            sycl::context* first =
                lookup_and_cache_zarth_context(key, native(d), qnd_gpu_backend_driver, &d);
            sycl::context* entry =
                lookup_and_cache_zarth_context(key, native(d), qnd_gpu_backend_driver, &d);
            differ[t] += !(*first == *entry);
            cached.emplace_back(key, entry);
            // Every key so far, read again while the other threads insert theirs.
            for (const auto& [old_key, address] : cached)
                moved[t] += lookup_and_cache_zarth_context(old_key, native(d),
                                                           qnd_gpu_backend_driver, &d) != address;
        }
    });
    EXPECT_EQ(moved, std::vector<int>(n_threads, 0));
    EXPECT_EQ(differ, std::vector<int>(n_threads, 0));
    EXPECT_EQ(service_caches.context_cache.size, before + n_threads * keys_per_thread);
    EXPECT_GE(service_caches.context_cache.bucket_count, 1024u);
    EXPECT_EQ(context_cache_word.load(), 0u);
}

}  // namespace
