// An OpenCL runtime without clCreateProgramWithIL (the double, found first by LD_LIBRARY_PATH):
// the table's load fails for good with the entries before it bound, a bound wrapper calls
// through, a wrapper behind the failure ends the process, and queue_from_interop goes on with a
// default queue that keeps the runtime number 3.
#include <gtest/gtest.h>

#include "omptarget_double_sycl.hpp"
#include "service/opencl_entries.hpp"
#include "service/queue_from_interop.hpp"

namespace {

using namespace tavrel::qnd::gpu::detail;
namespace service = tavrel::qnd::gpu::detail;
using namespace omptarget_double;

TEST(service_opencl_double, the_load_fails_for_good_after_binding_the_entries_before_the_gap) {
    EXPECT_EQ(load_opencl_entries(), -1);
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

TEST(service_opencl_double, wrappers_behind_the_gap_end_the_process_with_2) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(service::clSVMFree(nullptr, nullptr), ::testing::ExitedWithCode(2),
                "qnd error: a runtime library this program needs has no entry 'clSVMFree'");
    EXPECT_EXIT(
        service::clCreateProgramWithIL(nullptr, nullptr, 0, nullptr), ::testing::ExitedWithCode(2),
        "qnd error: a runtime library this program needs has no entry 'clCreateProgramWithIL'");
}

// Runtime 3, and kind 1 when the runtime number cannot be had, with OpenCL absent: no property
// beyond the kind is asked for.
TEST(service_opencl_double, queue_from_interop_keeps_3_on_a_default_queue) {
    const sycl::queue queue{sycl::device{sycl::gpu_selector_v}};
    for (bool by_kind : {false, true}) {
        const interop_ptr interop = opencl_interop(queue);
        if (by_kind)
            int_of(interop, -1) = {0, -2, 0};
        std::int32_t backend = -9;
        EXPECT_FALSE(queue_from_interop(interop.get(), &backend) == queue);
        EXPECT_EQ(backend, 3);
        EXPECT_EQ(pointer_of(interop, 5).queries, 0);
        EXPECT_EQ(pointer_of(interop, 9).queries, 0);
    }
}

}  // namespace
