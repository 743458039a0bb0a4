// On an OpenCL interop whose runtime lacks an entry the queue is a default one and the runtime
// stays 3: after the data checks, the shared-virtual-memory setting's first character decides -1 or
// not.
#include <cstdint>
#include <cstdlib>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "offload/offload_task.hpp"
#include "omptarget_double_sycl.hpp"

namespace {

using namespace qnd_test;
using namespace omptarget_double;

TEST(offload_opencl_absent, shared_virtual_memory_decides_after_the_data_checks) {
    sycl::queue q{sycl::device(sycl::gpu_selector_v)};
    const interop_ptr number = opencl_interop(q), kind = opencl_interop(q);
    int_of(kind, -1) = {0, -2, 0};
    const std::pair<const char*, std::int32_t> cases[] = {
        {"1", -1}, {"10", -1}, {"1x", -1}, {"0", 0}, {"01", 0}, {" 1", 0}, {"", 0}, {nullptr, 0}};
    for (const auto& [svm, status] : cases) {
        SCOPED_TRACE(svm ? svm : "unset");
        svm ? setenv("LIBOMPTARGET_OPENCL_USE_SVM", svm, 1)
            : unsetenv("LIBOMPTARGET_OPENCL_USE_SVM");
        // More observations than a group: each group's device work is done when the call returns.
        offload_task<double> t(q, 3, 300, st::col_major, true);
        t.set_counts(3, 0, st::col_major);
        EXPECT_EQ(t.compute(~0ull, 1, number.get()), -4002);
        t.set_counts(3, 300, st::col_major);
        EXPECT_EQ(t.compute(0x400, 1, kind.get()), status);
        EXPECT_EQ(t.compute(~0ull, 1, number.get()), status);
        expect_results(t, status == 0 ? all_fields : 0);
    }
}

}  // namespace
