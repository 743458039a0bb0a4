// Without an offload runtime, and with an OpenCL double lacking clCreateProgramWithIL: loads that
// fail for good, and wrappers of missing entries that print their name and exit with status 2.
#include <dlfcn.h>

#include <string>

#include <gtest/gtest.h>

#include "service/interop_loader.hpp"
#include "service/opencl_entries.hpp"

namespace {

using namespace tavrel::qnd::gpu::detail;
namespace service = tavrel::qnd::gpu::detail;

// What the threading layer prints for a missing entry, before the process ends with status 2.
const std::string message = "qnd error: a runtime library this program needs has no entry ";

TEST(service_absent_runtime, runtimes_are_opened_on_first_use_and_a_failed_load_stays_failed) {
    EXPECT_EQ(dlopen("libomptarget.so", RTLD_NOW | RTLD_NOLOAD), nullptr);
    EXPECT_EQ(load_interop_entries(), -1);
    EXPECT_EQ(load_interop_entries(), -1);
    EXPECT_EQ(dlopen("libOpenCL.so.1", RTLD_NOW | RTLD_NOLOAD), nullptr);
    EXPECT_EQ(load_opencl_entries(), -1);
    EXPECT_NE(dlopen("libOpenCL.so.1", RTLD_NOW | RTLD_NOLOAD), nullptr);
    EXPECT_EQ(load_opencl_entries(), -1);
    for (int e = 0; e < opencl_entry_count; ++e) {
        const auto entry = static_cast<opencl_entry>(e);
        EXPECT_EQ(opencl_entry_slot(entry) != nullptr, e < opencl_clCreateProgramWithIL)
            << opencl_entry_name(entry);
    }
    cl_uint platforms = 0;
    EXPECT_EQ(service::clGetPlatformIDs(0, nullptr, &platforms), CL_SUCCESS);
    EXPECT_EQ(platforms, 7u);  // the double's own answer
}

TEST(service_absent_runtime, every_wrapper_of_a_missing_entry_ends_the_process_with_its_name) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    int interop = 0, code = 0;
    void* result = nullptr;
    const auto dies = ::testing::ExitedWithCode(2);
    EXPECT_EXIT(__tgt_get_interop_property(&interop, 5, &result), dies,
                message + "'__tgt_get_interop_property'");
    EXPECT_EXIT(omp_get_interop_int(&interop, -1, &code), dies, message + "'omp_get_interop_int'");
    EXPECT_EXIT(omp_get_interop_ptr(&interop, 5, &code), dies, message + "'omp_get_interop_ptr'");
    EXPECT_EXIT(omp_get_interop_str(&interop, 5, &code), dies, message + "'omp_get_interop_str'");
    EXPECT_EXIT(ompx_interop_add_completion_callback(&interop, nullptr, nullptr), dies,
                message + "'ompx_interop_add_completion_callback'");
    EXPECT_EXIT(service::clSVMFree(nullptr, nullptr), dies, message + "'clSVMFree'");
    EXPECT_EXIT(service::clCreateProgramWithIL(nullptr, nullptr, 0, nullptr), dies,
                message + "'clCreateProgramWithIL'");
}

}  // namespace
