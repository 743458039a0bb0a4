// The entry points in a process where the OpenMP offload runtime cannot be loaded: a bad storage
// format is still refused first, and every other call ends with -2 and writes nothing.
#include <cstdint>
#include <string>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "offload/offload_task.hpp"
#include "support/launch_log.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;

TEST(offload_absent_runtime, bad_storage_is_minus_3_and_everything_else_minus_2) {
    sycl::queue q{sycl::device(sycl::gpu_selector_v)};
    // Never dereferenced: without the runtime there is nothing to ask it.
    int not_an_interop = 0;
    for (bool wide : {false, true}) {
        for (auto form : {entry_form::by_value, entry_form::fortran}) {
            SCOPED_TRACE(std::string(wide ? "ilp64" : "lp64") +
                         (form == entry_form::fortran ? " fortran" : ""));
            offload_task<double> t(q, 2, 6, st::col_major, wide);
            t.ints.set(2, 6, 7);
            EXPECT_EQ(t.compute(~std::uint64_t{0}, 1, &not_an_interop, form), -3);
            t.ints.set(2, 6, st::col_major);
            ::testing::internal::CaptureStderr();
            std::int32_t status = 0;
            const auto log = record_launches(
                [&] { status = t.compute(~std::uint64_t{0}, 1, &not_an_interop, form); });
            EXPECT_EQ(status, -2);
            EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
            EXPECT_TRUE(log.empty());
            for (int f = 0; f < n_fields; ++f)
                EXPECT_FALSE(t.out.written(f)) << field_name(f);
        }
    }
}

}  // namespace
