// Without an offload runtime: nothing is loaded before first use, the load fails for good, and
// each wrapper ends the process with status 2 after the message with its name.
#include <dlfcn.h>

#include <string>

#include <gtest/gtest.h>

#include "service/interop_loader.hpp"
#include "service/opencl_entries.hpp"

namespace {

using namespace tavrel::qnd::gpu::detail;

// What the threading layer prints for a missing entry, before the process ends with status 2.
std::string missing_entry_message(const std::string& name) {
    return "qnd error: a runtime library this program needs has no entry '" + name + "'";
}

bool loaded(const char* name) {
    void* handle = dlopen(name, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr)
        dlclose(handle);
    return handle != nullptr;
}

// Neither runtime is opened before its first use; the failed load is not tried again.
TEST(service_absent_runtime, runtimes_are_opened_on_first_use_and_a_failed_load_stays_failed) {
    EXPECT_FALSE(loaded("libomptarget.so"));
    EXPECT_FALSE(loaded("libOpenCL.so.1"));
    EXPECT_EQ(load_interop_entries(), -1);
    EXPECT_EQ(load_interop_entries(), -1);
    EXPECT_FALSE(loaded("libOpenCL.so.1"));
    EXPECT_EQ(load_opencl_entries(), 0);
    EXPECT_TRUE(loaded("libOpenCL.so.1"));
}

TEST(service_absent_runtime, every_wrapper_ends_the_process_with_its_name) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    int interop = 0;
    std::int32_t code = 0;
    void* result = nullptr;
    const auto dies = ::testing::ExitedWithCode(2);
    EXPECT_EXIT(__tgt_get_interop_property(&interop, 5, &result), dies,
                missing_entry_message("__tgt_get_interop_property"));
    EXPECT_EXIT(omp_get_interop_int(&interop, -1, &code), dies,
                missing_entry_message("omp_get_interop_int"));
    EXPECT_EXIT(omp_get_interop_ptr(&interop, 5, &code), dies,
                missing_entry_message("omp_get_interop_ptr"));
    EXPECT_EXIT(omp_get_interop_str(&interop, 5, &code), dies,
                missing_entry_message("omp_get_interop_str"));
    EXPECT_EXIT(ompx_interop_add_completion_callback(&interop, nullptr, nullptr), dies,
                missing_entry_message("ompx_interop_add_completion_callback"));
}

}  // namespace
