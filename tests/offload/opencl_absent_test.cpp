// The entry points on an OpenCL interop in a process whose OpenCL runtime lacks an entry: the
// queue is a default one and the runtime number stays 3, so after the data checks the
// shared-virtual-memory setting decides between -1 and a computation on the default queue.
#include <cstdint>
#include <cstdlib>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "offload/offload_task.hpp"
#include "omptarget_double_sycl.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;

TEST(offload_opencl_absent, shared_virtual_memory_decides_after_the_data_checks) {
    sycl::queue q{sycl::device(sycl::gpu_selector_v)};
    const omptarget_double::interop_ptr interop = omptarget_double::opencl_interop(q);
    const std::pair<const char*, std::int32_t> cases[] = {
        {"1", -1}, {"10", -1}, {"0", 0}, {" 1", 0}, {nullptr, 0}};
    for (const auto& [svm, status] : cases) {
        SCOPED_TRACE(svm ? svm : "unset");
        if (svm != nullptr)
            setenv("LIBOMPTARGET_OPENCL_USE_SVM", svm, 1);
        else
            unsetenv("LIBOMPTARGET_OPENCL_USE_SVM");
        // More observations than the default group size: every group has ended its device work
        // when the call returns.
        offload_task<double> t(q, 3, 300, st::col_major, true);
        t.set_counts(0, 300, st::col_major);
        EXPECT_EQ(t.compute(~std::uint64_t{0}, 1, interop.get()), -4001);
        t.set_counts(3, 0, st::col_major);
        EXPECT_EQ(t.compute(~std::uint64_t{0}, 1, interop.get()), -4002);
        t.set_counts(3, 300, st::col_major);
        EXPECT_EQ(t.compute(~std::uint64_t{0}, 1, interop.get()), status);
        expect_results(t, status == 0 ? all_fields : 0);
    }
}

}  // namespace
