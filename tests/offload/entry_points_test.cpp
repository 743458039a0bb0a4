// The offload entry points over the complete offload-runtime double: the order of their checks, the
// order of the groups and the status they return, the integer widths they read, their Fortran
// forms, results against long-double references, and each line of the catch ladder as written to
// the standard error stream.
#include <dlfcn.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "offload/expected_results.hpp"
#include "offload/offload_task.hpp"
#include "omptarget_double.h"
#include "omptarget_double_sycl.hpp"
#include "support/launch_log.hpp"
#include "tavrel/qnd/exceptions.hpp"
#include "tavrel/qnd/offload.h"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;

constexpr std::uint64_t all_bits = ~std::uint64_t{0};
// Bits of every group that takes the caller's mean.
constexpr std::uint64_t user_mean_groups = 0xE0000000 | 0x70 | 0x200 | 0x100 | 0x80;

// An interop object that deletes itself.
struct interop_handle {
    void* handle;
    explicit interop_handle(void* h) : handle(h) {}
    interop_handle(const interop_handle&) = delete;
    interop_handle& operator=(const interop_handle&) = delete;
    ~interop_handle() { omptarget_double_delete_interop(handle); }
    operator void*() const { return handle; }
};

// Every field that any group writes under method 1, with every array present.
std::vector<field> all_written() {
    std::vector<field> fields;
    for (int f = 0; f < n_fields; ++f)
        fields.push_back(static_cast<field>(f));
    return fields;
}

std::vector<field> user_mean_written() {
    return {f_cm2, f_cm3, f_cm4, f_cs2, f_cs3, f_cs4, f_kurtosis, f_skewness, f_variation};
}

// Makes `observer` throw `what` at the first launch it sees, until the guard goes.
template <typename E>
struct throw_at_launch {
    explicit throw_at_launch(E what) {
        sycl::ext::hostsycl::set_launch_observer(
            [what](const sycl::ext::hostsycl::launch_record&) { throw what; });
    }
    ~throw_at_launch() { sycl::ext::hostsycl::set_launch_observer({}); }
};

struct entry_points : ::testing::Test {
    sycl::queue small_gpu{sycl::ext::hostsycl::make_gpu_device(3)};
    sycl::queue gpu{sycl::device(sycl::gpu_selector_v)};
};

// -3 comes before anything else: the interop is not even asked for its runtime.
TEST_F(entry_points, a_bad_storage_format_is_refused_before_the_interop_is_looked_at) {
    for (std::uint64_t storage : {0ull, 1ull, 65537ull, 131071ull, 0x30000ull}) {
        for (bool wide : {false, true}) {
            SCOPED_TRACE("storage " + std::to_string(storage) + (wide ? " ilp64" : " lp64"));
            offload_task<double> t(gpu, 2, 5, st::row_major, wide);
            t.ints.set(2, 5, storage);
            interop_handle interop(omptarget_double_new_interop(6));
            EXPECT_EQ(t.compute(all_bits, 1, interop), -3);
            EXPECT_EQ(t.compute(all_bits, 1, interop, entry_form::fortran), -3);
            EXPECT_EQ(omptarget_double_int_queries(interop, -1), 0);
            // Nor is a null interop handle touched.
            EXPECT_EQ(t.compute(all_bits, 1, nullptr), -3);
        }
    }
}

// The runtimes the library cannot serve leave with -2 whatever the task holds, once the queue
// has been asked for.
TEST_F(entry_points, runtimes_without_a_queue_return_minus_2_before_the_data_checks) {
    for (std::int32_t runtime : {1, 2, 5}) {
        SCOPED_TRACE("runtime " + std::to_string(runtime));
        offload_task<float> t(gpu, 2, 5, st::col_major, false);
        t.ints.set(0, 0, st::col_major);
        interop_handle interop(omptarget_double_new_interop(runtime));
        const auto log = record_launches([&] { EXPECT_EQ(t.compute(all_bits, 1, interop), -2); });
        EXPECT_TRUE(log.empty());
        EXPECT_EQ(omptarget_double_int_queries(interop, -1), 1);
    }
}

// The data checks, in order, after the queue is made and before the runtime's memory is judged.
TEST_F(entry_points, data_checks_come_in_order_on_every_runtime) {
    struct data_case {
        std::int64_t n_dims;
        std::int64_t n_observations;
        bool observations;
        std::int32_t status;
    };
    const data_case cases[] = {
        {0, 0, true, -4002},  {3, 0, true, -4002},  {3, -7, true, -4002}, {0, 1, true, -4001},
        {-2, 4, true, -4001}, {0, 4, false, -4001}, {3, 4, false, -4032},
    };
    // A runtime number other than 3, 4 and 6 survives only a failed query whose fallback failed:
    // the call then ends with -1, after the data checks.
    const auto unknown_runtime = [] {
        void* i = omptarget_double_new_interop(6);
        omptarget_double_fail_int_with_value(i, -1, -1, 5);
        return i;
    };
    for (bool wide : {false, true}) {
        for (const data_case& c : cases) {
            SCOPED_TRACE(std::to_string(c.n_dims) + " x " + std::to_string(c.n_observations) +
                         (c.observations ? "" : ", no observations") + (wide ? " ilp64" : ""));
            offload_task<double> t(gpu, 3, 4, st::row_major, wide);
            t.ints.set(c.n_dims, c.n_observations, st::row_major);
            if (!c.observations)
                t.record.observations = nullptr;
            interop_handle sycl_interop(omptarget_double::sycl_interop(&small_gpu));
            interop_handle driver_interop(omptarget_double::driver_interop(gpu));
            interop_handle unknown(unknown_runtime());
            const auto log = record_launches([&] {
                EXPECT_EQ(t.compute(all_bits, 1, sycl_interop), c.status);
                EXPECT_EQ(t.compute(all_bits, 1, driver_interop), c.status);
                EXPECT_EQ(t.compute(all_bits, 1, unknown), c.status);
            });
            EXPECT_TRUE(log.empty());
        }
    }
    offload_task<double> t(gpu, 3, 4, st::row_major, true);
    interop_handle unknown(unknown_runtime());
    EXPECT_EQ(t.compute(all_bits, 1, unknown), -1);
    // A failed query that leaves 0 means no runtime at all.
    interop_handle none(omptarget_double_new_interop(6));
    omptarget_double_fail_int_with_value(none, -1, -1, 0);
    EXPECT_EQ(t.compute(all_bits, 1, none), -2);
}

// The group of a launch, from the functor in its kernel name.
std::string group_of(const std::string& kernel_name) {
    const std::vector<std::string> args = template_arguments(kernel_name);
    const std::string functor = args.empty() ? kernel_name : args[0];
    const std::string prefix = "tavrel::qnd::stats::detail::gpu::";
    std::string name = functor.rfind(prefix, 0) == 0 ? functor.substr(prefix.size()) : functor;
    return name.substr(0, name.find('<'));
}

std::vector<std::string> groups_in_order(
    const std::vector<sycl::ext::hostsycl::launch_record>& log) {
    std::vector<std::string> groups;
    for (const auto& launch : log) {
        const std::string g = group_of(launch.kernel_name);
        if (groups.empty() || groups.back() != g)
            groups.push_back(g);
    }
    return groups;
}

TEST_F(entry_points, groups_run_in_their_fixed_order_and_write_every_result) {
    offload_task<double> t(small_gpu, 3, 20, st::col_major, true);
    interop_handle interop(omptarget_double::sycl_interop(&small_gpu));
    std::int32_t status = 1;
    const auto log = record_launches([&] { status = t.compute(all_bits, 1, interop); });
    small_gpu.wait();
    EXPECT_EQ(status, 0);
    const std::vector<std::string> want{"min_func_fast",
                                        "max_func_fast",
                                        "raw_sum_func_fast",
                                        "raw_moment_func_fast",
                                        "ex::central_sum_func_fast",
                                        "ex::central_moment_func_fast",
                                        "ex::variation_func_fast",
                                        "ex::skewness_func_fast",
                                        "ex::kurtosis_func_fast"};
    EXPECT_EQ(groups_in_order(log), want);
    expect_results(t.out, t.host, all_written(), false, {});
}

// Bits outside the groups are ignored: nothing runs, yet the queue was made first.
TEST_F(entry_points, a_mask_without_group_bits_runs_nothing_and_returns_0) {
    offload_task<float> t(small_gpu, 3, 8, st::row_major, false);
    interop_handle interop(omptarget_double::sycl_interop(&small_gpu));
    const std::uint64_t foreign = 0x1000 | 0x2000 | 0x400000 | 0x100000000ull | 0x8000000000ull;
    const auto log = record_launches([&] { EXPECT_EQ(t.compute(foreign, 1, interop), 0); });
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(omptarget_double_property_queries(interop, 5), 1);
    for (int f = 0; f < n_fields; ++f)
        EXPECT_FALSE(t.out.written(f)) << field_name(f);
}

// A group's refusal does not stop the sequence: the result is the status of the last group.
TEST_F(entry_points, the_status_is_that_of_the_last_group_that_ran) {
    struct group_case {
        std::uint64_t mask;
        std::int64_t method;
        std::vector<field> nulls;
        std::int32_t status;
        std::vector<field> written;
    };
    const group_case cases[] = {
        {0xC00, 1, {f_min}, 0, {f_max}},
        {0xC00, 1, {f_max}, -4016, {f_min}},
        {0x480, 1, {f_min}, 0, {f_mean, f_raw2, f_raw3, f_raw4, f_kurtosis}},
        {0x480, 1, {f_kurtosis}, -4013, {f_min}},
        {0x400, 256, {}, -4029, {}},
        {0x10, 256, {}, 0, {f_cm2, f_cm3, f_cm4}},
        {0x410, 256, {}, 0, {f_cm2, f_cm3, f_cm4}},
        {0x1, 1, {f_raw3, f_raw4}, 0, {f_mean, f_raw2}},
        {0x2000001, 1, {f_rs1}, 0, {f_mean, f_raw2, f_raw3, f_raw4}},
        {0x2000001, 1, {f_mean}, -4006, {f_rs1, f_rs2, f_rs3, f_rs4}},
    };
    for (const group_case& c : cases) {
        SCOPED_TRACE(::testing::Message()
                     << "mask 0x" << std::hex << c.mask << std::dec << " method " << c.method);
        offload_task<double> t(small_gpu, 3, 8, st::row_major, true);
        for (field f : c.nulls)
            t.drop(f);
        const std::vector<long double> centre = caller_means(t.host);
        if (c.method == 256) {
            for (std::size_t d = 0; d < centre.size(); ++d)
                t.out.array(f_mean)[d] = static_cast<double>(centre[d]);
        }
        interop_handle interop(omptarget_double::sycl_interop(&small_gpu));
        EXPECT_EQ(t.compute(c.mask, c.method, interop), c.status);
        small_gpu.wait();
        expect_results(t.out, t.host, c.written, c.method == 256, centre);
    }
}

// lp64 reads 32-bit integers (n_dims and n_observations sign-extended, the storage unsigned, the
// method); ilp64 reads the same words whole. Neither looks at the record's int_width.
TEST_F(entry_points, the_width_in_the_name_decides_how_integers_are_read) {
    const std::int64_t minus_one_low = 0x00000000FFFFFFFFll;  // -1 in 32 bits, 2^32-1 in 64
    const std::uint64_t rows_low = 0xFFFFFFFF00010000ull;     // 65536 in its low half
    const std::int64_t method_low = 0x100000001ll;            // 1 in its low half
    std::int64_t wide_dims = (std::int64_t{1} << 32) | 3;     // 3 in its low half
    for (bool wide : {false, true}) {
        SCOPED_TRACE(wide ? "ilp64" : "lp64");
        interop_handle interop(omptarget_double::sycl_interop(&small_gpu));
        {
            offload_task<double> t(small_gpu, 3, 8, st::row_major, wide);
            t.record.int_width = wide ? 0 : 1;
            t.ints.n_dims64 = minus_one_low;
            t.record.dims_ptr = &t.ints.n_dims64;
            t.record.observations = nullptr;
            EXPECT_EQ(t.compute(0x400, 1, interop), wide ? -4032 : -4001);
        }
        {
            offload_task<double> t(small_gpu, 3, 8, st::row_major, wide);
            t.ints.storage64 = rows_low;
            t.record.storage_ptr = &t.ints.storage64;
            EXPECT_EQ(t.compute(0x400, 1, interop), wide ? -3 : 0);
        }
        {
            offload_task<double> t(small_gpu, 3, 8, st::row_major, wide);
            void* task = &t.record;
            std::uint64_t mask = 0x400;
            const std::int32_t status =
                wide ? qnd_rtk_dsscompute_omp_offload(&task, &mask, &method_low, interop)
                     : qnd_rtk_dsscompute_omp_offload_lp64(
                           &task, &mask, reinterpret_cast<const std::int32_t*>(&method_low),
                           interop);
            EXPECT_EQ(status, wide ? -4029 : 0);
        }
        if (!wide) {
            offload_task<double> t(small_gpu, 3, 8, st::row_major, false);
            t.record.dims_ptr = &wide_dims;
            t.record.observations_count_ptr = &t.ints.n_observations64;
            EXPECT_EQ(t.compute(0x400, 1, interop), 0);
            small_gpu.wait();
            expect_results(t.out, t.host, {f_min}, false, {});
        }
    }
}

// Every entry point on both layouts, weighted and masked, with 32-bit or 64-bit mask entries
// as its width says, under method 1 and around the caller's mean; on a small GPU through a
// SYCL interop, whose launch tree has intermediate steps, and on the default GPU through the
// driver runtime.
TEST_F(entry_points, every_entry_point_computes_every_group_against_references) {
    const std::vector<std::int64_t> mask{3, 0, 1, -1, 0};
    // More than the default group size, so that the extremes end their work before the call
    // returns on the driver runtime's queue, which the test cannot wait for.
    constexpr std::int64_t n_obs = 300;
    for (bool wide : {false, true}) {
        for (entry_form form : {entry_form::by_value, entry_form::fortran}) {
            for (st::layout layout : {st::row_major, st::col_major}) {
                for (bool driver : {false, true}) {
                    SCOPED_TRACE(std::string(wide ? "ilp64" : "lp64") +
                                 (form == entry_form::fortran ? " fortran" : "") +
                                 (layout == st::row_major ? " rows" : " columns") +
                                 (driver ? " driver runtime" : " SYCL runtime"));
                    sycl::queue& q = driver ? gpu : small_gpu;
                    interop_handle interop(driver ? omptarget_double::driver_interop(gpu)
                                                  : omptarget_double::sycl_interop(&small_gpu));
                    const auto run = [&](auto tag) {
                        using T = decltype(tag);
                        offload_task<T> t(q, 5, n_obs, layout, wide, true, mask);
                        EXPECT_EQ(t.compute(all_bits, 1, interop, form), 0);
                        q.wait();
                        expect_results(t.out, t.host, all_written(), false, {});

                        offload_task<T> u(q, 5, n_obs, layout, wide, true, mask);
                        const std::vector<long double> centre = caller_means(u.host);
                        for (std::size_t d = 0; d < centre.size(); ++d)
                            u.out.array(f_mean)[d] = static_cast<T>(centre[d]);
                        EXPECT_EQ(u.compute(user_mean_groups, 256, interop, form), 0);
                        q.wait();
                        expect_results(u.out, u.host, user_mean_written(), true, centre);
                    };
                    run(float{});
                    run(double{});
                }
            }
        }
    }
}

// The catch ladder: one exact line per kind of exception, formatted into 1024 bytes, and -2
// whatever the groups before it returned.
TEST_F(entry_points, each_kind_of_exception_prints_its_line_and_returns_minus_2) {
    const auto run_throwing = [&](auto what) {
        offload_task<double> t(gpu, 2, 4, st::row_major, true);
        t.drop(f_min);  // the first group is refused, the second throws at its launch
        interop_handle interop(omptarget_double::sycl_interop(&gpu));
        throw_at_launch<decltype(what)> guard(what);
        ::testing::internal::CaptureStderr();
        const std::int32_t status = t.compute(0xC00, 1, interop);
        const std::string line = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(status, -2);
        return line;
    };
    EXPECT_EQ(run_throwing(tavrel::qnd::invalid_argument("stats", "max", "injected")),
              "Pelloran Stats: tavrel::qnd::exception: what: tavrel::qnd::stats::max: invalid "
              "argument: injected\n");
    EXPECT_EQ(run_throwing(sycl::exception(sycl::make_error_code(sycl::errc::runtime), "lost")),
              "Pelloran Stats: sycl::exception what: lost \n");
    EXPECT_EQ(run_throwing(std::runtime_error("device gone")),
              "Pelloran Stats: std::exception what: device gone\n");
    EXPECT_EQ(run_throwing(42), "Pelloran Stats: unknown exception occured during Zarth call");
    // A long text is cut at the end of the buffer, its line end with it.
    const std::string head = "Pelloran Stats: std::exception what: ";
    const std::string line = run_throwing(std::runtime_error(std::string(2000, 'x')));
    EXPECT_EQ(line, head + std::string(1023 - head.size(), 'x'));
}

// Exceptions of the library's own calls reach the ladder too: a driver-runtime device that SYCL
// does not expose, and a launch out of the 31-bit range. (An OpenCL handle, which leaves the
// context cache locked, has a program of its own.)
TEST_F(entry_points, runtime_exceptions_become_minus_2_with_their_text) {
    {
        interop_handle interop(omptarget_double::driver_interop(gpu));
        int not_a_device = 0;
        omptarget_double_set_property(interop, 7, &not_a_device);
        offload_task<float> t(gpu, 2, 4, st::row_major, false);
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(t.compute(0x400, 1, interop), -2);
        EXPECT_EQ(::testing::internal::GetCapturedStderr(),
                  "Pelloran Stats: sycl::exception what: Native device isn't exposed to SYCL. \n");
    }
    {
        // 2^31 observations on groups of 65536: the first step's 2^31 work-items are refused
        // before anything reads the data.
        sycl::queue big_groups{sycl::ext::hostsycl::make_gpu_device(65536)};
        interop_handle interop(omptarget_double::sycl_interop(&big_groups));
        offload_task<float> t(big_groups, 1, 4, st::row_major, true);
        t.ints.n_observations64 = std::int64_t{1} << 31;
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(t.compute(0x400, 1, interop), -2);
        EXPECT_EQ(::testing::internal::GetCapturedStderr(),
                  "Pelloran Stats: sycl::exception what: Provided range is out of integer limits. "
                  "Pass `-fno-sycl-id-queries-fit-in-int' to disable range check. \n");
    }
}

// Calls from several threads at once, each with its own task, through the driver runtime's
// shared context cache and through SYCL interops of one queue.
TEST_F(entry_points, concurrent_calls_with_their_own_tasks_compute_correctly) {
    constexpr int n_threads = 4;
    std::vector<std::unique_ptr<offload_task<double>>> tasks;
    std::vector<std::unique_ptr<interop_handle>> interops;
    for (int k = 0; k < n_threads; ++k) {
        const bool driver = k % 2 == 0;
        sycl::queue& q = driver ? gpu : small_gpu;
        tasks.push_back(std::make_unique<offload_task<double>>(
            q, 2 + k, 300, k < 2 ? st::row_major : st::col_major, k % 3 == 0));
        interops.push_back(
            std::make_unique<interop_handle>(driver ? omptarget_double::driver_interop(gpu)
                                                    : omptarget_double::sycl_interop(&small_gpu)));
    }
    std::vector<std::int32_t> status(n_threads, 1);
    std::vector<std::thread> threads;
    for (int k = 0; k < n_threads; ++k) {
        threads.emplace_back([&, k] { status[k] = tasks[k]->compute(all_bits, 1, *interops[k]); });
    }
    for (std::thread& t : threads)
        t.join();
    small_gpu.wait();
    for (int k = 0; k < n_threads; ++k) {
        SCOPED_TRACE("thread " + std::to_string(k));
        EXPECT_EQ(status[k], 0);
        expect_results(tasks[k]->out, tasks[k]->host, all_written(), false, {});
    }
}

TEST(offload_exports, the_eight_entry_points_are_exported_by_their_names) {
    const std::pair<const char*, void*> entries[] = {
        {"qnd_rtk_sSSCompute_omp_offload_lp64",
         reinterpret_cast<void*>(&qnd_rtk_sSSCompute_omp_offload_lp64)},
        {"qnd_rtk_dSSCompute_omp_offload_lp64",
         reinterpret_cast<void*>(&qnd_rtk_dSSCompute_omp_offload_lp64)},
        {"qnd_rtk_sSSCompute_omp_offload_ilp64",
         reinterpret_cast<void*>(&qnd_rtk_sSSCompute_omp_offload_ilp64)},
        {"qnd_rtk_dSSCompute_omp_offload_ilp64",
         reinterpret_cast<void*>(&qnd_rtk_dSSCompute_omp_offload_ilp64)},
        {"qnd_rtk_ssscompute_omp_offload_lp64",
         reinterpret_cast<void*>(&qnd_rtk_ssscompute_omp_offload_lp64)},
        {"qnd_rtk_dsscompute_omp_offload_lp64",
         reinterpret_cast<void*>(&qnd_rtk_dsscompute_omp_offload_lp64)},
        {"qnd_rtk_ssscompute_omp_offload",
         reinterpret_cast<void*>(&qnd_rtk_ssscompute_omp_offload)},
        {"qnd_rtk_dsscompute_omp_offload",
         reinterpret_cast<void*>(&qnd_rtk_dsscompute_omp_offload)},
    };
    Dl_info info{};
    ASSERT_NE(dladdr(entries[0].second, &info), 0);
    void* library = dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr) << info.dli_fname;
    EXPECT_NE(std::string(info.dli_fname).find("libqnd_sycl_stats.so"), std::string::npos);
    for (const auto& [name, address] : entries)
        EXPECT_EQ(dlsym(library, name), address) << name;
    dlclose(library);
}

}  // namespace
