// The library itself loaded and unloaded at run time: loading contacts no runtime, and unloading
// after the caches were filled destroys them without harm to the process.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include "omptarget_double.h"
#include "omptarget_double_sycl.hpp"
#include "service_test_support.hpp"
#include "tavrel/qnd/gpu.hpp"

namespace {

using namespace tavrel::qnd::gpu;
using namespace service_test;

using context_fn = sycl::context*(void*, void*, qnd_gpu_backend_t, sycl::device*);
using queue_fn = sycl::queue*(void*, qnd_gpu_backend_t, sycl::context, void*);

bool loaded(const char* name) {
    void* handle = dlopen(name, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr)
        dlclose(handle);
    return handle != nullptr;
}

TEST(load_and_unload, loading_opens_neither_opencl_nor_the_threading_layer) {
    void* library = dlopen(QND_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    EXPECT_FALSE(loaded("libOpenCL.so.1"));
    EXPECT_FALSE(loaded(QND_LIBRARY_DIR "libqnd_pool_thread.so.2"));
    EXPECT_FALSE(loaded(QND_LIBRARY_DIR "libqnd_core.so.2"));
    EXPECT_EQ(dlclose(library), 0);
}

TEST(load_and_unload, unloading_after_use_destroys_the_caches_cleanly) {
    void* library = dlopen(QND_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto* context_of = reinterpret_cast<context_fn*>(
        dlsym(library,
              "_ZN6tavrel3qnd3gpu30lookup_and_cache_zarth_contextEPvS2_NS1_17qnd_gpu_"
              "backend_tEPN4sycl6deviceE"));
    auto* queue_of = reinterpret_cast<queue_fn*>(
        dlsym(library,
              "_ZN6tavrel3qnd3gpu28lookup_and_cache_zarth_queueEPvNS1_17qnd_gpu_backend_"
              "tEN4sycl7contextES2_"));
    ASSERT_NE(context_of, nullptr);
    ASSERT_NE(queue_of, nullptr);

    const sycl::queue queue = fresh_gpu_queue();
    sycl::device device = queue.get_device();
    void* interop = omptarget_double::driver_interop(queue);
    sycl::context* context = nullptr;
    for (int call = 0; call < 2; ++call) {
        context = context_of(native(queue.get_context()), native(device), qnd_gpu_backend_driver,
                             &device);
        sycl::queue* cached = queue_of(native(queue), qnd_gpu_backend_driver, *context, interop);
        ASSERT_NE(cached, nullptr);
        EXPECT_EQ(native(*cached), native(queue));
    }
    EXPECT_EQ(dlclose(library), 0);
    // Really gone: its destructors, the caches' among them, have run.
    EXPECT_FALSE(loaded(QND_LIBRARY_PATH));

    // The process's own objects and the native ones behind the destroyed entries live on.
    EXPECT_EQ(sycl::ext::hostsycl::native_reference_count(native(queue.get_context())), 1u);
    int value = 0;
    sycl::queue(queue)
        .submit([&](sycl::handler& handler) { handler.host_task([&] { value = 1; }); })
        .wait();
    EXPECT_EQ(value, 1);
    omptarget_double_delete_interop(interop);
}

}  // namespace
