// The entry points on an OpenCL interop when the system's OpenCL runtime loads: the SYCL runtime
// makes nothing of an OpenCL handle, and its exception becomes a line and -2. The failed making
// leaves the context cache locked, so this program calls no other runtime.
#include <cstdint>
#include <string>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "offload/offload_task.hpp"
#include "omptarget_double.h"
#include "omptarget_double_sycl.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;

TEST(offload_opencl_refused, the_exception_of_the_sycl_runtime_gives_its_line_and_minus_2) {
    sycl::queue q{sycl::device(sycl::gpu_selector_v)};
    void* interop = omptarget_double::opencl_interop(q);
    offload_task<double> t(q, 2, 4, st::row_major, true);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(t.compute(0x400, 1, interop), -2);
    const std::string line = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(line.rfind("Pelloran Stats: sycl::exception what: ", 0), 0u) << line;
    ASSERT_GE(line.size(), 2u);
    EXPECT_EQ(line.substr(line.size() - 2), " \n") << line;
    EXPECT_FALSE(t.out.written(f_min));
    omptarget_double_delete_interop(interop);
}

}  // namespace
