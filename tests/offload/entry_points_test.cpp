// The eight offload entry points over the offload-runtime double: refusals and the order of the
// checks, the arrays written, the groups' order and last status, widths, and the catch ladder.
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "offload/offload_task.hpp"
#include "omptarget_double_sycl.hpp"
#include "support/devices.hpp"
#include "support/launch_log.hpp"
#include "tavrel/qnd/exceptions.hpp"

namespace {

using namespace qnd_test;
using namespace omptarget_double;

constexpr std::uint64_t all_bits = ~std::uint64_t{0};

// A call: method, estimates, the result fields handed over as null, status, the fields written.
struct request {
    std::int64_t method;
    std::uint64_t estimates;
    const char* nulls;
    std::int32_t status;
    const char* written = "";
};

// clang-format off
const request requests[] = {
    // The extremes: method 1 only, tested before the array.
    {256, 0x400, "min", -4029}, {1, 0x400, "min", -4015}, {1, 0x400, "", 0, "min"},
    // Raw sums and moments: the method, then the arrays asked for, lowest order first; the arrays
    // present decide what is written, order 1 always.
    {256, 0x1e000000, "", -4029}, {3, 0x2000000, "rs1", -4029}, {1, 0x2000000, "rs1", -4074},
    {1, 0x1e000000, "rs2 rs4", -4075}, {1, 0x8000000, "rs3", -4076},
    {1, 0x10000000, "rs3 rs4", -4077}, {1, 0x2000000, "rs3", 0, "rs1 rs2 rs4"},
    {1, 0x4000000, "rs3 rs4", 0, "rs1 rs2"}, {256, 0xf, "", -4029}, {1, 0x1, "mean", -4006},
    {1, 0x2, "raw2", -4007}, {1, 0xf, "raw3 raw4", -4008}, {1, 0x8, "raw4", -4009},
    {1, 0x1, "raw3 raw4", 0, "mean raw2"}, {1, 0xf, "", 0, "mean raw2 raw3 raw4"},
    // Central moments: the mean for every method; under the caller's mean only the results asked
    // for; under method 1 each order's result before its lowest raw moment missing.
    {7, 0x70, "mean", -4006}, {256, 0x70, "mean", -4006}, {256, 0x10, "cm2", -4010},
    {256, 0x70, "cm3 cm4", -4011}, {256, 0x40, "cm4", -4012}, {3, 0x70, "", -4029},
    {1, 0x10, "cm2 raw2", -4010}, {1, 0x10, "raw2", -4007}, {1, 0x20, "cm3 raw2", -4011},
    {1, 0x20, "raw2 raw3", -4007}, {1, 0x20, "raw3", -4008}, {1, 0x40, "raw2 raw3", -4007},
    {1, 0x40, "raw3 raw4", -4008}, {1, 0x40, "raw4", -4009}, {1, 0x40, "cm4 raw2", -4012},
    {1, 0x60, "cm4 raw3", -4008}, {1, 0x70, "raw2", -4007},
    {1, 0x10, "cm3 cm4 raw3 raw4", 0, "mean raw2 cm2"},
    {1, 0x40, "cm3", 0, "mean raw2 raw3 raw4 cm2 cm4"},
    {1, 0x10, "", 0, "mean raw2 raw3 raw4 cm2 cm3 cm4"},
    {256, 0x70, "raw2 raw3 raw4", 0, "cm2 cm3 cm4"},
    // Central sums: the same ladder with their own result codes and the raw moments' codes.
    {9, 0xe0000000, "mean", -4006}, {256, 0x20000000, "cs2", -4078},
    {256, 0x40000000, "cs3", -4079}, {256, 0x80000000, "cs4", -4080}, {2, 0xe0000000, "", -4029},
    {1, 0x20000000, "raw2", -4007}, {1, 0x40000000, "cs3 raw3", -4079},
    {1, 0x80000000, "raw4", -4009}, {1, 0x20000000, "cs3 cs4 raw3 raw4", 0, "mean raw2 cs2"},
    {1, 0xe0000000, "", 0, "mean raw2 raw3 raw4 cs2 cs3 cs4"},
    {256, 0x20000000, "cs3 raw2", 0, "cs2 cs4"},
    // The shapes: the mean, the caller's mean with the result alone, the method, the result,
    // then the highest raw moment missing.
    {5, 0x200, "mean", -4006}, {256, 0x200, "variation", -4017}, {9, 0x200, "variation", -4029},
    {1, 0x200, "variation raw2", -4017}, {1, 0x200, "raw2", -4007},
    {1, 0x200, "", 0, "mean raw2 variation"}, {256, 0x200, "raw2", 0, "variation"},
    {0, 0x100, "mean", -4006}, {256, 0x100, "skewness", -4014}, {0, 0x100, "skewness", -4029},
    {1, 0x100, "skewness raw3", -4014}, {1, 0x100, "raw2 raw3", -4008}, {1, 0x100, "raw2", -4007},
    {1, 0x100, "", 0, "mean raw2 raw3 skewness"}, {256, 0x100, "raw2", 0, "skewness"},
    {2, 0x80, "mean", -4006}, {256, 0x80, "kurtosis", -4013}, {2, 0x80, "", -4029},
    {1, 0x80, "kurtosis raw4", -4013}, {1, 0x80, "raw2 raw3 raw4", -4009},
    {1, 0x80, "raw2 raw3", -4008}, {1, 0x80, "raw2 raw4", -4009}, {1, 0x80, "raw2", -4007},
    {1, 0x80, "", 0, "mean raw2 raw3 raw4 kurtosis"}, {256, 0x80, "raw2 raw3 raw4", 0, "kurtosis"},
    // Several groups: a refusal does not stop them, the last status counts; other bits run nothing.
    {1, 0xC00, "min", 0, "max"}, {1, 0xC00, "max", -4016, "min"},
    {1, 0x480, "kurtosis", -4013, "min"}, {256, 0x410, "", 0, "cm2 cm3 cm4"},
    {1, 0x2000001, "rs1", 0, "mean raw2 raw3 raw4"},
    {1, 0x2000001, "mean", -4006, "rs1 rs2 rs3 rs4"},
    {1, 0x1000 | 0x2000 | 0x400000 | 0x100000000ull | 0x8000000000ull, "", 0},
    {1, ~0ull, "", 0, "mean raw2 raw3 raw4 cm2 cm3 cm4 rs1 rs2 rs3 rs4 cs2 cs3 cs4 kurtosis "
                      "skewness variation min max"},
    {256, 0xe00003f0, "", 0, "cm2 cm3 cm4 cs2 cs3 cs4 kurtosis skewness variation"}};
// clang-format on

// Each request through each entry point, on 3 x 10 data of either layout, some weighted and masked,
// on the test GPUs in turn: status, launches (only when writing, in group order, of the task's
// layout and index width) and arrays.
TEST(offload_entry_points, each_request_has_its_status_and_writes_its_arrays) {
    const std::vector<std::string> order{"min",        "max",         "raw_sum",
                                         "raw_moment", "central_sum", "central_moment",
                                         "variation",  "skewness",    "kurtosis"};
    std::vector<sycl::queue> queues;
    for (const sycl::device& device : test_gpus())
        queues.emplace_back(device);
    for (std::size_t k = 0; k < std::size(requests); ++k) {
        const request& r = requests[k];
        for (std::size_t form = 0; form < 8; ++form) {
            const bool wide = form & 1, fortran = form & 2;
            const st::layout layout = (k ^ form) & 1 ? st::row_major : st::col_major;
            sycl::queue& q = queues[(k + form) % queues.size()];
            SCOPED_TRACE(::testing::Message() << "request " << k << " form " << form);
            const auto run = [&](auto tag) {
                offload_task<decltype(tag)> t(q, 3, 10, layout, wide);
                t.hand_over(set_of(r.nulls));
                if ((k + form) % 3 == 0)
                    t.use_mask({1, 0, -1});
                const auto centre =
                    r.method == 256 ? t.set_caller_means() : std::vector<long double>{};
                const auto log = record_launches([&] {
                    EXPECT_EQ(t.compute(r.estimates, r.method, sycl_interop(&q).get(), fortran),
                              r.status);
                });
                q.wait();
                EXPECT_EQ(log.empty(), *r.written == 0);
                std::size_t last = 0;
                for (const auto& launch : log) {
                    const std::vector<std::string> args = template_arguments(launch.kernel_name);
                    ASSERT_GE(args.size(), 3u) << launch.kernel_name;
                    EXPECT_EQ(args[1], layout == st::row_major ? "true" : "false");
                    EXPECT_EQ(args.back(), wide ? "true" : "false");
                    // The group, from the functor's name: the last one or one after it.
                    std::string name = args[0].substr(0, args[0].find("_func"));
                    name = name.substr(name.rfind("::") + 2);
                    const std::size_t at =
                        std::find(order.begin(), order.end(), name) - order.begin();
                    EXPECT_TRUE(at >= last && at < order.size()) << name;
                    last = at;
                }
                expect_results(t, set_of(r.written), centre);
            };
            form & 4 ? run(float{}) : run(double{});
        }
    }
}

// The queue first (-2 without one), then the data checks in order (one dimension and one
// observation pass), then the memory: a runtime other than 3, 4 and 6 survives only a failed query
// and ends with -1. A valid task computes on the driver runtime's queue, also by the kind alone.
TEST(offload_entry_points, the_queue_comes_first_then_the_data_checks_then_the_memory) {
    sycl::queue gpu{sycl::device(sycl::gpu_selector_v)};
    // n_dims, n_observations, observations present, status.
    const std::tuple<int, int, bool, std::int32_t> cases[] = {
        {0, 0, true, -4002},  {3, 0, true, -4002},  {3, -7, true, -4002},
        {0, 1, true, -4001},  {-2, 4, true, -4001}, {0, 4, false, -4001},
        {3, 4, false, -4032}, {1, 1, true, 0},      {3, 300, true, 0}};
    const interop_ptr sycl = sycl_interop(&gpu), driver = driver_interop(gpu);
    const interop_ptr unknown = new_interop(6), none = new_interop(6),
                      by_kind = driver_interop(gpu);
    int_of(unknown, -1) = {5, -1, 0};
    int_of(none, -1) = {0, -1, 0};
    int_of(by_kind, -1) = {0, -5, 0};
    for (bool wide : {false, true}) {
        for (const auto& [n_dims, n_observations, observations, status] : cases) {
            SCOPED_TRACE(::testing::Message() << n_dims << " x " << n_observations << " "
                                              << observations << (wide ? " ilp64" : ""));
            offload_task<double> t(gpu, 3, 300, st::col_major, wide);
            t.set_counts(n_dims, n_observations, st::col_major);
            if (!observations)
                t.record.observations = nullptr;
            const auto log = record_launches([&, status = status] {
                if (status != 0) {
                    EXPECT_EQ(t.compute(all_bits, 1, sycl.get()), status);
                    EXPECT_EQ(t.compute(all_bits, 1, driver.get()), status);
                }
                EXPECT_EQ(t.compute(all_bits, 1, unknown.get()), status == 0 ? -1 : status);
                EXPECT_EQ(t.compute(all_bits, 1, none.get()), -2);
                for (int runtime : {1, 2, 5})
                    EXPECT_EQ(t.compute(all_bits, 1, new_interop(runtime).get()), -2);
            });
            EXPECT_TRUE(log.empty());
            expect_results(t, 0);
            if (n_observations == 300) {
                EXPECT_EQ(t.compute(all_bits, 1, (wide ? by_kind : driver).get()), 0);
                expect_results(t, all_fields);
            }
        }
    }
}

// lp64 reads 32-bit integers (n_dims sign-extended, the storage unsigned, the method); ilp64
// reads the same words whole. Neither looks at the record's int_width.
TEST(offload_entry_points, the_width_in_the_name_decides_how_integers_are_read) {
    sycl::queue small{sycl::ext::hostsycl::make_gpu_device(3)};
    const interop_ptr interop = sycl_interop(&small);
    // Words whose low halves read 1, 3, -1 and 65536 (row-major storage).
    const std::int64_t one = 0x100000001ll, three = 0x100000003ll, minus_one = 0xFFFFFFFFll,
                       rows = 0xFFFFFFFF00010000ll;
    for (bool wide : {false, true}) {
        SCOPED_TRACE(wide ? "ilp64" : "lp64");
        offload_task<double> t(small, 3, 8, st::row_major, wide);
        t.record.int_width = wide ? 0 : 1;
        t.record.dims_ptr = &three;
        void* task = &t.record;
        std::uint64_t estimates = 0x400;
        EXPECT_EQ(wide ? qnd_rtk_dsscompute_omp_offload(&task, &estimates, &one, interop.get())
                       : qnd_rtk_dsscompute_omp_offload_lp64(
                             &task, &estimates, reinterpret_cast<const std::int32_t*>(&one),
                             interop.get()),
                  wide ? -4029 : 0);
        small.wait();
        expect_results(t, wide ? 0 : set_of("min"));
        t.record.dims_ptr = &minus_one;
        t.record.observations = nullptr;
        EXPECT_EQ(t.compute(0x400, 1, interop.get()), wide ? -4032 : -4001);
        t.record.storage_ptr = &rows;
        EXPECT_EQ(t.compute(0x400, 1, interop.get()), wide ? -3 : -4001);
    }
}

// Makes every launch throw `what`; the first group is refused, the second throws at its launch.
template <typename E>
std::string line_of(E what) {
    sycl::queue gpu{sycl::device(sycl::gpu_selector_v)};
    sycl::ext::hostsycl::set_launch_observer(
        [what](const sycl::ext::hostsycl::launch_record&) { throw what; });
    offload_task<double> t(gpu, 2, 4, st::row_major, true);
    t.hand_over(set_of("min"));
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(t.compute(0xC00, 1, sycl_interop(&gpu).get()), -2);
    sycl::ext::hostsycl::set_launch_observer({});
    return ::testing::internal::GetCapturedStderr();
}

// The catch ladder: one line per kind of exception, in 1024 bytes, and -2 whatever came before.
TEST(offload_entry_points, each_kind_of_exception_prints_its_line_and_returns_minus_2) {
    const std::string head = "Pelloran Stats: ", ours = "tavrel::qnd::exception: what: ";
    EXPECT_EQ(line_of(tavrel::qnd::invalid_argument("stats", "max", "injected")),
              head + ours + "tavrel::qnd::stats::max: invalid argument: injected\n");
    EXPECT_EQ(line_of(sycl::exception(sycl::make_error_code(sycl::errc::runtime), "lost")),
              head + "sycl::exception what: lost \n");
    EXPECT_EQ(line_of(std::runtime_error("device gone")),
              head + "std::exception what: device gone\n");
    EXPECT_EQ(line_of(42), head + "unknown exception occured during Zarth call");
    // A long text is cut at the end of the buffer, its line end with it.
    const std::string cut = head + "std::exception what: ";
    EXPECT_EQ(line_of(std::runtime_error(std::string(2000, 'x'))),
              cut + std::string(1023 - cut.size(), 'x'));
}

}  // namespace
