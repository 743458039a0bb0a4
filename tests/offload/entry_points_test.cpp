// The offload entry points over the complete offload-runtime double: the order of their checks,
// the integer widths they read, the driver runtime's queue, and each line of the catch ladder on
// the standard error stream.
#include <cstdint>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "offload/offload_task.hpp"
#include "omptarget_double_sycl.hpp"
#include "support/launch_log.hpp"
#include "tavrel/qnd/exceptions.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;
using namespace omptarget_double;

constexpr std::uint64_t all_bits = ~std::uint64_t{0};

struct offload_entry_points : ::testing::Test {
    sycl::queue small_gpu{sycl::ext::hostsycl::make_gpu_device(3)};
    sycl::queue gpu{sycl::device(sycl::gpu_selector_v)};
};

// -3 comes before anything else: the interop, even a null one, is not asked for its runtime.
TEST_F(offload_entry_points, a_bad_storage_format_is_refused_before_the_interop_is_looked_at) {
    const interop_ptr interop = new_interop(6);
    for (std::int64_t storage : {0, 1, 65537, 131071, 0x30000}) {
        for (int form = 0; form < 4; ++form) {
            offload_task<double> t(gpu, 2, 5, st::row_major, form & 1);
            t.set_counts(2, 5, storage);
            EXPECT_EQ(t.compute(all_bits, 1, interop.get(), form & 2), -3) << storage;
            EXPECT_EQ(t.compute(all_bits, 1, nullptr, form & 2), -3) << storage;
        }
    }
    EXPECT_EQ(int_of(interop, -1).queries, 0);
}

// The queue first: runtimes without one leave with -2. Then the data checks, in order, on every
// runtime, and last the runtime's memory: a runtime number other than 3, 4 and 6 survives only a
// failed query (its value, with no kind to go by), and ends with -1.
TEST_F(offload_entry_points, the_queue_comes_first_then_the_data_checks_then_the_memory) {
    struct data_case {
        std::int64_t n_dims, n_observations;
        bool observations;
        std::int32_t status;
    };
    const data_case cases[] = {{0, 0, true, -4002},  {3, 0, true, -4002},  {3, -7, true, -4002},
                               {0, 1, true, -4001},  {-2, 4, true, -4001}, {0, 4, false, -4001},
                               {3, 4, false, -4032}, {3, 4, true, 0}};
    const interop_ptr sycl = sycl_interop(&small_gpu), driver = driver_interop(gpu);
    const interop_ptr unknown = new_interop(6), none = new_interop(6);
    int_of(unknown, -1) = {5, -1, 0};
    int_of(none, -1) = {0, -1, 0};
    for (bool wide : {false, true}) {
        for (const data_case& c : cases) {
            SCOPED_TRACE(std::to_string(c.n_dims) + " x " + std::to_string(c.n_observations) +
                         (c.observations ? "" : ", no observations") + (wide ? " ilp64" : ""));
            offload_task<double> t(gpu, 3, 4, st::row_major, wide);
            t.set_counts(c.n_dims, c.n_observations, st::row_major);
            if (!c.observations)
                t.record.observations = nullptr;
            const auto log = record_launches([&] {
                if (c.status != 0) {
                    EXPECT_EQ(t.compute(all_bits, 1, sycl.get()), c.status);
                    EXPECT_EQ(t.compute(all_bits, 1, driver.get()), c.status);
                }
                EXPECT_EQ(t.compute(all_bits, 1, unknown.get()), c.status == 0 ? -1 : c.status);
                EXPECT_EQ(t.compute(all_bits, 1, none.get()), -2);
                for (int runtime : {1, 2, 5})
                    EXPECT_EQ(t.compute(all_bits, 1, new_interop(runtime).get()), -2);
            });
            EXPECT_TRUE(log.empty());
            EXPECT_EQ(t.written(), 0u);
        }
    }
}

// lp64 reads 32-bit integers (n_dims sign-extended, the storage unsigned, the method); ilp64
// reads the same words whole. Neither looks at the record's int_width.
TEST_F(offload_entry_points, the_width_in_the_name_decides_how_integers_are_read) {
    const interop_ptr interop = sycl_interop(&small_gpu);
    // Words whose low halves read 1, 3, -1 and 65536 (row-major storage).
    const std::int64_t one = 0x100000001ll, three = 0x100000003ll, minus_one = 0xFFFFFFFFll,
                       rows = 0xFFFFFFFF00010000ll;
    for (bool wide : {false, true}) {
        SCOPED_TRACE(wide ? "ilp64" : "lp64");
        offload_task<double> t(small_gpu, 3, 8, st::row_major, wide);
        t.record.int_width = wide ? 0 : 1;
        t.record.dims_ptr = &three;
        void* task = &t.record;
        std::uint64_t estimates = 0x400;
        const auto* one32 = reinterpret_cast<const std::int32_t*>(&one);
        EXPECT_EQ(
            wide ? qnd_rtk_dsscompute_omp_offload(&task, &estimates, &one, interop.get())
                 : qnd_rtk_dsscompute_omp_offload_lp64(&task, &estimates, one32, interop.get()),
            wide ? -4029 : 0);
        small_gpu.wait();
        expect_results(t, wide ? 0 : set_of("min"));
        t.record.dims_ptr = &minus_one;
        t.record.observations = nullptr;
        EXPECT_EQ(t.compute(0x400, 1, interop.get()), wide ? -4032 : -4001);
        t.record.storage_ptr = &rows;
        EXPECT_EQ(t.compute(0x400, 1, interop.get()), wide ? -3 : -4001);
    }
}

// The driver runtime's queue computes too. More observations than the default group size: the
// groups have ended their device work when the call returns on that queue, which the test
// cannot wait for.
TEST_F(offload_entry_points, the_driver_runtime_s_queue_computes_every_group) {
    offload_task<float> t(gpu, 3, 300, st::col_major, true, {1, 1, 0});
    EXPECT_EQ(t.compute(all_bits, 1, driver_interop(gpu).get()), 0);
    expect_results(t, all_fields);
}

// Makes every launch throw `what`; the first group is refused, the second throws at its launch.
template <typename E>
std::string line_of(sycl::queue& gpu, E what) {
    sycl::ext::hostsycl::set_launch_observer(
        [what](const sycl::ext::hostsycl::launch_record&) { throw what; });
    offload_task<double> t(gpu, 2, 4, st::row_major, true, {}, set_of("min"));
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(t.compute(0xC00, 1, sycl_interop(&gpu).get()), -2);
    sycl::ext::hostsycl::set_launch_observer({});
    return ::testing::internal::GetCapturedStderr();
}

// The catch ladder: one exact line per kind of exception, formatted into 1024 bytes, and -2
// whatever the groups before it returned.
TEST_F(offload_entry_points, each_kind_of_exception_prints_its_line_and_returns_minus_2) {
    const std::string head = "Pelloran Stats: ";
    EXPECT_EQ(line_of(gpu, tavrel::qnd::invalid_argument("stats", "max", "injected")),
              head +
                  "tavrel::qnd::exception: what: tavrel::qnd::stats::max: invalid argument: "
                  "injected\n");
    EXPECT_EQ(line_of(gpu, sycl::exception(sycl::make_error_code(sycl::errc::runtime), "lost")),
              head + "sycl::exception what: lost \n");
    EXPECT_EQ(line_of(gpu, std::runtime_error("device gone")),
              head + "std::exception what: device gone\n");
    EXPECT_EQ(line_of(gpu, 42), head + "unknown exception occured during Zarth call");
    // A long text is cut at the end of the buffer, its line end with it.
    const std::string cut = head + "std::exception what: ";
    EXPECT_EQ(line_of(gpu, std::runtime_error(std::string(2000, 'x'))),
              cut + std::string(1023 - cut.size(), 'x'));
}

// With the system's OpenCL runtime, the SYCL runtime makes nothing of an OpenCL handle: its
// exception becomes a line and -2. The failed making leaves the context cache locked, so this
// runs in a child that reports by its status and its line.
TEST_F(offload_entry_points, an_opencl_interop_gives_the_sycl_runtime_s_line_and_minus_2) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto child = [this] {
        offload_task<double> t(gpu, 2, 4, st::row_major, true);
        const std::int32_t status = t.compute(0x400, 1, opencl_interop(gpu).get());
        std::_Exit(status == -2 && t.written() == 0 ? 0 : 1);
    };
    EXPECT_EXIT(child(), ::testing::ExitedWithCode(0),
                "^Pelloran Stats: sycl::exception what: [^\n]*OpenCL[^\n]* \n$");
}

}  // namespace
