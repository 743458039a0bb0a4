// Without an offload runtime: nothing is loaded before first use, the load fails, and each
// wrapper ends the process with status 2 after message 3 with its name.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include "service/interop_loader.hpp"
#include "service/opencl_entries.hpp"
#include "service_test_support.hpp"

namespace {

using namespace tavrel::qnd::gpu::detail;
using namespace service_test;

bool loaded(const char* name) {
    void* handle = dlopen(name, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr)
        dlclose(handle);
    return handle != nullptr;
}

// Loading the library opens neither runtime: both come on first use only.
TEST(absent_runtime, loading_the_library_opens_no_runtime) {
    EXPECT_FALSE(loaded("libomptarget.so"));
    EXPECT_FALSE(loaded("libOpenCL.so.1"));
    EXPECT_EQ(load_interop_entries(), -1);
    EXPECT_FALSE(loaded("libOpenCL.so.1"));
    EXPECT_EQ(load_opencl_entries(), 0);
    EXPECT_TRUE(loaded("libOpenCL.so.1"));
}

TEST(absent_runtime, load_answers_minus_one_for_good) {
    EXPECT_EQ(load_interop_entries(), -1);
    EXPECT_EQ(load_interop_entries(), -1);
}

TEST(absent_runtime_death, every_wrapper_ends_the_process_with_its_name) {
    use_threadsafe_death_tests();
    int dummy = 0;
    void* interop = &dummy;
    std::int32_t code = 0;
    void* result = nullptr;
    EXPECT_EXIT(__tgt_get_interop_property(interop, 5, &result), ::testing::ExitedWithCode(2),
                missing_entry_message("__tgt_get_interop_property"));
    EXPECT_EXIT(omp_get_interop_int(interop, -1, &code), ::testing::ExitedWithCode(2),
                missing_entry_message("omp_get_interop_int"));
    EXPECT_EXIT(omp_get_interop_ptr(interop, 5, &code), ::testing::ExitedWithCode(2),
                missing_entry_message("omp_get_interop_ptr"));
    EXPECT_EXIT(omp_get_interop_str(interop, 5, &code), ::testing::ExitedWithCode(2),
                missing_entry_message("omp_get_interop_str"));
    EXPECT_EXIT(ompx_interop_add_completion_callback(interop, nullptr, nullptr),
                ::testing::ExitedWithCode(2),
                missing_entry_message("ompx_interop_add_completion_callback"));
}

}  // namespace
