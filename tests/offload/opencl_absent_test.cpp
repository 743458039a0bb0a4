// The entry points on an OpenCL interop in a process whose OpenCL runtime lacks an entry: the
// queue is a default one and the runtime number stays 3, so the shared-virtual-memory setting
// decides between -1 and a computation on the default queue, after the data checks.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "offload/expected_results.hpp"
#include "offload/offload_task.hpp"
#include "omptarget_double.h"
#include "omptarget_double_sycl.hpp"
#include "support/launch_log.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;

constexpr const char* svm_variable = "LIBOMPTARGET_OPENCL_USE_SVM";
constexpr std::uint64_t all_bits = ~std::uint64_t{0};

struct opencl_absent : ::testing::Test {
    sycl::queue q{sycl::device(sycl::gpu_selector_v)};
    void* interop = omptarget_double::opencl_interop(q);
    ~opencl_absent() override {
        omptarget_double_delete_interop(interop);
        unsetenv(svm_variable);
    }
};

TEST_F(opencl_absent, shared_virtual_memory_gives_minus_1_after_the_data_checks) {
    for (const char* value : {"1", "10", "1 please"}) {
        SCOPED_TRACE(value);
        setenv(svm_variable, value, 1);
        offload_task<float> t(q, 3, 10, st::row_major, false);
        t.ints.set(0, 10, st::row_major);
        EXPECT_EQ(t.compute(all_bits, 1, interop), -4001);
        t.ints.set(3, 0, st::row_major);
        EXPECT_EQ(t.compute(all_bits, 1, interop), -4002);
        t.ints.set(3, 10, st::row_major);
        const auto log = record_launches([&] { EXPECT_EQ(t.compute(all_bits, 1, interop), -1); });
        EXPECT_TRUE(log.empty());
        for (int f = 0; f < n_fields; ++f)
            EXPECT_FALSE(t.out.written(f)) << field_name(f);
    }
}

// Without the setting, or with any other first character, the call runs on the default queue.
TEST_F(opencl_absent, other_settings_run_on_the_default_queue) {
    for (const char* value : {"", "0", "true", " 1"}) {
        SCOPED_TRACE(std::string("'") + value + "'");
        setenv(svm_variable, value, 1);
        // More observations than the default group size, so that every group has ended its
        // device work when the call returns.
        offload_task<double> t(q, 3, 300, st::col_major, true);
        EXPECT_EQ(t.compute(all_bits, 1, interop), 0);
        std::vector<field> all;
        for (int f = 0; f < n_fields; ++f)
            all.push_back(static_cast<field>(f));
        expect_results(t.out, t.host, all, false, {});
    }
    unsetenv(svm_variable);
    offload_task<float> t(q, 2, 300, st::row_major, false);
    EXPECT_EQ(t.compute(0x400, 1, interop), 0);
    expect_results(t.out, t.host, {f_min}, false, {});
}

}  // namespace
