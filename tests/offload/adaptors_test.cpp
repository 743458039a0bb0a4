// The nine groups of estimates through the entry points: the status of each refusal and the
// order of the checks, that a refusal launches and writes nothing, which arrays a request that
// passes writes, the status of the last group that ran, and the results against long-double
// references for each entry point on every emulated GPU of the test table.
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "offload/offload_task.hpp"
#include "omptarget_double_sycl.hpp"
#include "support/devices.hpp"
#include "support/launch_log.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;

// A call: its method and estimates, the result fields handed over as null, the status expected
// and the fields written.
struct request {
    std::int64_t method;
    std::uint64_t estimates;
    const char* nulls;
    std::int32_t status;
    const char* written;
};

const request requests[] = {
    // The extremes: method 1 only, tested before the array.
    {256, 0x400, "min", -4029, ""},
    {2, 0x400, "", -4029, ""},
    {1, 0x400, "min", -4015, ""},
    {1, 0x400, "", 0, "min"},
    {256, 0x800, "max", -4029, ""},
    {0, 0x800, "", -4029, ""},
    {1, 0x800, "max", -4016, ""},
    // Raw sums and moments: the method, then the arrays asked for, lowest order first; the
    // arrays present decide what is written, order 1 always.
    {256, 0x1e000000, "", -4029, ""},
    {3, 0x2000000, "rs1", -4029, ""},
    {1, 0x2000000, "rs1", -4074, ""},
    {1, 0x1e000000, "rs2 rs4", -4075, ""},
    {1, 0x8000000, "rs3", -4076, ""},
    {1, 0x10000000, "rs3 rs4", -4077, ""},
    {1, 0x2000000, "rs3", 0, "rs1 rs2 rs4"},
    {1, 0x4000000, "rs3 rs4", 0, "rs1 rs2"},
    {256, 0xf, "", -4029, ""},
    {1, 0x1, "mean", -4006, ""},
    {1, 0x2, "raw2", -4007, ""},
    {1, 0xf, "raw3 raw4", -4008, ""},
    {1, 0x8, "raw4", -4009, ""},
    {1, 0x1, "raw3 raw4", 0, "mean raw2"},
    {1, 0xf, "", 0, "mean raw2 raw3 raw4"},
    // Central moments: the mean for every method; under the caller's mean the results asked for
    // and nothing else; under method 1 each order asked for, its result before the lowest raw
    // moment missing. The arrays present decide what is written.
    {7, 0x70, "mean", -4006, ""},
    {256, 0x70, "mean", -4006, ""},
    {256, 0x10, "cm2", -4010, ""},
    {256, 0x70, "cm3 cm4", -4011, ""},
    {256, 0x40, "cm4", -4012, ""},
    {3, 0x70, "", -4029, ""},
    {1, 0x10, "cm2 raw2", -4010, ""},
    {1, 0x10, "raw2", -4007, ""},
    {1, 0x20, "cm3 raw2", -4011, ""},
    {1, 0x20, "raw2 raw3", -4007, ""},
    {1, 0x20, "raw3", -4008, ""},
    {1, 0x40, "raw2 raw3", -4007, ""},
    {1, 0x40, "raw3 raw4", -4008, ""},
    {1, 0x40, "raw4", -4009, ""},
    {1, 0x40, "cm4 raw2", -4012, ""},
    {1, 0x60, "cm4 raw3", -4008, ""},
    {1, 0x70, "raw2", -4007, ""},
    {1, 0x10, "cm3 cm4 raw3 raw4", 0, "mean raw2 cm2"},
    {1, 0x40, "cm3", 0, "mean raw2 raw3 raw4 cm2 cm4"},
    {1, 0x10, "", 0, "mean raw2 raw3 raw4 cm2 cm3 cm4"},
    {256, 0x70, "raw2 raw3 raw4", 0, "cm2 cm3 cm4"},
    // Central sums: the same ladder with their own result codes and the raw moments' codes.
    {9, 0xe0000000, "mean", -4006, ""},
    {256, 0x20000000, "cs2", -4078, ""},
    {256, 0x40000000, "cs3", -4079, ""},
    {256, 0x80000000, "cs4", -4080, ""},
    {2, 0xe0000000, "", -4029, ""},
    {1, 0x20000000, "raw2", -4007, ""},
    {1, 0x40000000, "cs3 raw3", -4079, ""},
    {1, 0x80000000, "raw4", -4009, ""},
    {1, 0x20000000, "cs3 cs4 raw3 raw4", 0, "mean raw2 cs2"},
    {1, 0xe0000000, "", 0, "mean raw2 raw3 raw4 cs2 cs3 cs4"},
    {256, 0x20000000, "cs3 raw2", 0, "cs2 cs4"},
    // The shapes: the mean, the caller's mean with the result alone, the method, the result,
    // then the highest raw moment missing.
    {5, 0x200, "mean", -4006, ""},
    {256, 0x200, "variation", -4017, ""},
    {9, 0x200, "variation", -4029, ""},
    {1, 0x200, "variation raw2", -4017, ""},
    {1, 0x200, "raw2", -4007, ""},
    {1, 0x200, "", 0, "mean raw2 variation"},
    {256, 0x200, "raw2", 0, "variation"},
    {0, 0x100, "mean", -4006, ""},
    {256, 0x100, "skewness", -4014, ""},
    {0, 0x100, "skewness", -4029, ""},
    {1, 0x100, "skewness raw3", -4014, ""},
    {1, 0x100, "raw2 raw3", -4008, ""},
    {1, 0x100, "raw2", -4007, ""},
    {1, 0x100, "", 0, "mean raw2 raw3 skewness"},
    {256, 0x100, "raw2", 0, "skewness"},
    {2, 0x80, "mean", -4006, ""},
    {256, 0x80, "kurtosis", -4013, ""},
    {2, 0x80, "", -4029, ""},
    {1, 0x80, "kurtosis raw4", -4013, ""},
    {1, 0x80, "raw2 raw3 raw4", -4009, ""},
    {1, 0x80, "raw2 raw3", -4008, ""},
    {1, 0x80, "raw2 raw4", -4009, ""},
    {1, 0x80, "raw2", -4007, ""},
    {1, 0x80, "", 0, "mean raw2 raw3 raw4 kurtosis"},
    {256, 0x80, "raw2 raw3 raw4", 0, "kurtosis"},
    // Several groups: a refusal does not stop the sequence, and the status is the last group's.
    // Bits outside the groups run nothing.
    {1, 0xC00, "min", 0, "max"},
    {1, 0xC00, "max", -4016, "min"},
    {1, 0x480, "kurtosis", -4013, "min"},
    {256, 0x410, "", 0, "cm2 cm3 cm4"},
    {1, 0x2000001, "rs1", 0, "mean raw2 raw3 raw4"},
    {1, 0x2000001, "mean", -4006, "rs1 rs2 rs3 rs4"},
    {1, 0x1000 | 0x2000 | 0x400000 | 0x100000000ull | 0x8000000000ull, "", 0, ""},
};

// Each request on 3 x 10 doubles through the lp64 and the ilp64 entry point: its status, a
// launch exactly when something is written, and the arrays against their references.
TEST(offload_adaptors, each_request_has_its_status_and_writes_its_arrays) {
    sycl::queue q{sycl::ext::hostsycl::make_gpu_device(4)};
    const omptarget_double::interop_ptr interop = omptarget_double::sycl_interop(&q);
    for (const request& r : requests) {
        for (bool wide : {false, true}) {
            SCOPED_TRACE(::testing::Message()
                         << "method " << r.method << " estimates 0x" << std::hex << r.estimates
                         << " null { " << r.nulls << " }" << (wide ? " ilp64" : " lp64"));
            offload_task<double> t(q, 3, 10, st::row_major, wide, {}, set_of(r.nulls));
            const auto centre = r.method == 256 ? t.set_caller_means() : std::vector<long double>{};
            std::int32_t status = 1;
            const auto log =
                record_launches([&] { status = t.compute(r.estimates, r.method, interop.get()); });
            q.wait();
            EXPECT_EQ(status, r.status);
            EXPECT_EQ(log.empty(), *r.written == 0);
            expect_results(t, set_of(r.written), centre);
        }
    }
}

// Each of the eight entry points, plain and with weights and a mask, under method 1 and around
// the caller's mean: every group in its fixed order, each launch naming the task's layout and
// index width, and every array against its reference. 40 observations: one step on the default
// GPU, every kind of step on the small ones.
TEST(offload_adaptors, each_entry_point_matches_the_references_on_every_gpu) {
    const std::vector<std::string> order{"min",        "max",         "raw_sum",
                                         "raw_moment", "central_sum", "central_moment",
                                         "variation",  "skewness",    "kurtosis"};
    for (const sycl::device& device : test_gpus()) {
        sycl::queue q{device};
        const omptarget_double::interop_ptr interop = omptarget_double::sycl_interop(&q);
        for (int form = 0; form < 32; ++form) {
            const bool wide = form & 1, fortran = form & 2, masked = form & 8,
                       user_mean = form & 16;
            const st::layout layout =
                (form ^ form >> 2 ^ form >> 3) & 1 ? st::row_major : st::col_major;
            SCOPED_TRACE(device_label(device) + " form " + std::to_string(form));
            const auto run = [&](auto tag) {
                offload_task<decltype(tag)> t(q, 5, 40, layout, wide,
                                              masked ? std::vector<std::int64_t>{1, 0, -1, 7, 0}
                                                     : std::vector<std::int64_t>{});
                const auto centre = user_mean ? t.set_caller_means() : std::vector<long double>{};
                std::vector<std::string> groups;
                for (const auto& launch : record_launches([&] {
                         // The groups that take the caller's mean, or all of them.
                         const std::uint64_t estimates = user_mean ? 0xe00003f0 : ~0ull;
                         EXPECT_EQ(
                             t.compute(estimates, user_mean ? 256 : 1, interop.get(), fortran), 0);
                     })) {
                    const std::vector<std::string> args = template_arguments(launch.kernel_name);
                    ASSERT_GE(args.size(), 3u) << launch.kernel_name;
                    EXPECT_EQ(args[1], layout == st::row_major ? "true" : "false");
                    EXPECT_EQ(args.back(), wide ? "true" : "false");
                    // The group, from the functor's name.
                    const std::string name = args[0].substr(0, args[0].find("_func"));
                    if (groups.empty() || groups.back() != name.substr(name.rfind("::") + 2))
                        groups.push_back(name.substr(name.rfind("::") + 2));
                }
                q.wait();
                EXPECT_EQ(groups, user_mean
                                      ? std::vector<std::string>(order.begin() + 4, order.end())
                                      : order);
                expect_results(t,
                               user_mean
                                   ? set_of("cm2 cm3 cm4 cs2 cs3 cs4 kurtosis skewness variation")
                                   : all_fields,
                               centre);
            };
            form & 4 ? run(float{}) : run(double{});
        }
    }
}

}  // namespace
