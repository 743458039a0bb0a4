// An OpenCL runtime without clCreateProgramWithIL (the double, found first by LD_LIBRARY_PATH):
// the table's load fails for good with the first 96 entries bound, a bound wrapper calls
// through, a wrapper behind the failure ends the process, and queue_from_interop goes on with a
// default queue that keeps the runtime number 3.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include "omptarget_double.h"
#include "omptarget_double_sycl.hpp"
#include "service/opencl_entries.hpp"
#include "service/queue_from_interop.hpp"
#include "service_test_support.hpp"

namespace {

using namespace tavrel::qnd::gpu::detail;
namespace service = tavrel::qnd::gpu::detail;
using namespace service_test;

TEST(opencl_double, load_fails_after_binding_the_first_96_entries) {
    EXPECT_EQ(load_opencl_entries(), -1);
    for (int e = 0; e < opencl_entry_count; ++e) {
        const auto entry = static_cast<opencl_entry>(e);
        if (e < 96)
            EXPECT_NE(opencl_entry_slot(entry), nullptr) << opencl_entry_name(entry);
        else
            EXPECT_EQ(opencl_entry_slot(entry), nullptr) << opencl_entry_name(entry);
    }
    EXPECT_EQ(load_opencl_entries(), -1);
}

TEST(opencl_double, a_bound_wrapper_calls_the_double) {
    ASSERT_EQ(load_opencl_entries(), -1);
    cl_uint platforms = 0;
    EXPECT_EQ(service::clGetPlatformIDs(0, nullptr, &platforms), CL_SUCCESS);
    EXPECT_EQ(platforms, 7u);  // the double's own answer
}

TEST(opencl_double_death, wrappers_behind_the_failure_end_the_process_with_2) {
    use_threadsafe_death_tests();
    EXPECT_EXIT(service::clSVMFree(nullptr, nullptr), ::testing::ExitedWithCode(2),
                missing_entry_message("clSVMFree"));
    EXPECT_EXIT(service::clCreateProgramWithIL(nullptr, nullptr, 0, nullptr),
                ::testing::ExitedWithCode(2), missing_entry_message("clCreateProgramWithIL"));
}

// The way of runtime 3, and of kind 1 when the runtime number cannot be had, with OpenCL absent.
TEST(opencl_double, queue_from_interop_keeps_3_on_a_default_queue) {
    const sycl::queue queue{gpu()};
    void* by_number = omptarget_double::opencl_interop(queue);
    void* by_kind = omptarget_double::opencl_interop(queue);
    omptarget_double_fail_int(by_kind, -1, -2);
    for (void* interop : {by_number, by_kind}) {
        std::int32_t backend = -9;
        const sycl::queue made = queue_from_interop(interop, &backend);
        EXPECT_EQ(backend, 3);
        EXPECT_FALSE(made == queue);
        // No property beyond the kind was asked for.
        EXPECT_EQ(omptarget_double_property_queries(interop, 5), 0);
        EXPECT_EQ(omptarget_double_property_queries(interop, 9), 0);
        omptarget_double_delete_interop(interop);
    }
}

}  // namespace
