// The compute dispatcher against the recording stand-in of the statistics component: its
// validation codes in their order, its routing order and the rule of the returned status.
#include <dlfcn.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cpu/doubles/core_double.hpp"
#include "cpu/ss_client.hpp"
#include "cpu/threading_layer.hpp"

namespace {

using namespace tavrel::qnd::stats::detail::cpu;

// A valid task with 64-bit integers, 3 dimensions of 4 observations.
struct task_record {
    std::int64_t n_dims = 3;
    std::int64_t n_observations = 4;
    std::int64_t storage = 0x10000;
    double observations[12] = {};
    ss_task task{};

    task_record() {
        task.int_width = 1;
        task.dims_ptr = &n_dims;
        task.observations_count_ptr = &n_observations;
        task.observations = observations;
        task.storage_ptr = &storage;
    }
    task_record(const task_record&) = delete;
};

std::vector<std::string> routines_called() {
    std::vector<std::string> names;
    for (const core_double::call& c : core_double::calls())
        names.push_back(c.entry);
    return names;
}

std::int32_t compute(bool single, ss_task* task, std::uint64_t estimates, std::int64_t method) {
    return single ? __rtksSSCompute(task, estimates, method)
                  : __rtkdSSCompute(task, estimates, method);
}

class dispatcher : public ::testing::TestWithParam<bool> {
  protected:
    void SetUp() override { core_double::reset(); }
    void TearDown() override { core_double::reset(); }
    bool single() const { return GetParam(); }
    std::string routine(const char* name) const {
        return std::string(single() ? "_rtksSS" : "_rtkdSS") + name;
    }
};

TEST_P(dispatcher, refuses_a_bad_task_with_the_first_failing_code) {
    struct refusal {
        const char* what;
        std::function<void(task_record&)> spoil;
        std::uint64_t estimates;
        std::int32_t status;
    };
    const std::vector<refusal> refusals = {
        {"no dims_ptr", [](task_record& r) { r.task.dims_ptr = nullptr; }, 1, -4001},
        {"n_dims 0", [](task_record& r) { r.n_dims = 0; }, 1, -4001},
        {"n_dims negative", [](task_record& r) { r.n_dims = -5; }, 1, -4001},
        {"no observations_count_ptr",
         [](task_record& r) { r.task.observations_count_ptr = nullptr; }, 1, -4002},
        {"n_observations 0", [](task_record& r) { r.n_observations = 0; }, 1, -4002},
        {"no observations", [](task_record& r) { r.task.observations = nullptr; }, 1, -4032},
        {"no storage_ptr", [](task_record& r) { r.task.storage_ptr = nullptr; }, 1, -4044},
        {"storage 0", [](task_record& r) { r.storage = 0; }, 1, -4003},
        {"storage of both layouts", [](task_record& r) { r.storage = 0x30000; }, 0x400, -4003},
        // The order of the tests decides between two faults.
        {"n_dims 0 before no observations",
         [](task_record& r) {
             r.n_dims = 0;
             r.task.observations = nullptr;
         },
         1, -4001},
        {"n_observations before observations",
         [](task_record& r) {
             r.n_observations = -1;
             r.task.observations = nullptr;
         },
         1, -4002},
        {"observations before storage",
         [](task_record& r) {
             r.task.observations = nullptr;
             r.task.storage_ptr = nullptr;
         },
         1, -4032},
        {"storage_ptr before its value",
         [](task_record& r) {
             r.task.storage_ptr = nullptr;
             r.storage = 1;
         },
         1, -4044},
        // The dimension-only estimates still need n_dims.
        {"dims-only estimate without n_dims", [](task_record& r) { r.n_dims = 0; }, 0x100000,
         -4001},
        // Refused even when nothing would run.
        {"empty mask on a bad task", [](task_record& r) { r.task.observations = nullptr; }, 0,
         -4032},
    };
    for (const refusal& r : refusals) {
        SCOPED_TRACE(r.what);
        core_double::reset();
        task_record record;
        r.spoil(record);
        EXPECT_EQ(compute(single(), &record.task, r.estimates, 1), r.status);
        EXPECT_TRUE(core_double::calls().empty());
    }
    EXPECT_EQ(compute(single(), nullptr, 1, 1), -4031);
}

TEST_P(dispatcher, reads_integers_at_the_width_the_task_announces) {
    // A 64-bit word holding 2^32 reads as 0 at 32-bit width.
    task_record record;
    record.task.int_width = 0;
    std::int64_t wide = std::int64_t{1} << 32;
    record.task.dims_ptr = &wide;
    EXPECT_EQ(compute(single(), &record.task, 1, 1), -4001);

    // 32-bit integers that are valid only when read as 32-bit.
    std::int32_t dims[2] = {3, -1};
    std::int32_t observations[2] = {4, -1};
    std::int32_t storage[2] = {0x20000, -1};
    record.task.dims_ptr = dims;
    record.task.observations_count_ptr = observations;
    record.task.storage_ptr = storage;
    core_double::reset();
    EXPECT_EQ(compute(single(), &record.task, 1, 1), 0);
    EXPECT_EQ(routines_called(), std::vector<std::string>{routine("Basic")});

    // Any non-zero width means 64-bit.
    record.task.int_width = 7;
    record.task.dims_ptr = &wide;
    record.task.observations_count_ptr = &record.n_observations;
    record.task.storage_ptr = &record.storage;
    core_double::reset();
    EXPECT_EQ(compute(single(), &record.task, 1, 1), 0);
    EXPECT_EQ(routines_called(), std::vector<std::string>{routine("Basic")});
}

TEST_P(dispatcher, dimension_only_estimates_skip_the_other_checks) {
    for (std::uint64_t bits : {0x100000ull, 0x200000ull, 0x800000ull, 0x1000000ull}) {
        SCOPED_TRACE(bits);
        task_record record;
        record.n_observations = 0;
        record.task.observations = nullptr;
        record.task.storage_ptr = nullptr;
        core_double::reset();
        EXPECT_EQ(compute(single(), &record.task, bits, 1), 0);
        EXPECT_EQ(routines_called().size(), 1u);
    }
    // With the mean asked for as well, the basic routine gets the unchecked task too.
    task_record record;
    record.task.observations = nullptr;
    core_double::reset();
    EXPECT_EQ(compute(single(), &record.task, 0x100001, 1), 0);
    EXPECT_EQ(routines_called(),
              (std::vector<std::string>{routine("Basic"), routine("PartialCovariance")}));
    EXPECT_EQ(core_double::calls()[0].task.observations, nullptr);
}

TEST_P(dispatcher, routes_each_group_of_bits_to_its_routine_in_order) {
    struct routing {
        std::uint64_t estimates;
        std::vector<const char*> routines;
    };
    const std::vector<routing> table = {
        {0x0, {}},
        {0x1, {"Basic"}},
        {0x3ff, {"Basic"}},
        {0x400, {"Minmax"}},
        {0x800, {"Minmax"}},
        {0xc00, {"Minmax"}},
        {0xc01, {"Minmax", "Basic"}},
        {0x1000, {"Basic"}},
        {0x2000, {"Basic"}},
        {0x2000000, {"Basic"}},
        {0x80000000, {"Basic"}},
        {0x100000000, {"Basic"}},
        {0x8000000000, {"Sort"}},
        {0x8000000001, {"Sort", "Basic"}},
        {0x200000000, {"MAD"}},
        {0x400000000, {"MAD"}},
        {0x4000, {"PooledCovariance"}},
        {0x8000, {"PooledCovariance"}},
        {0x800000000, {"PooledCovariance"}},
        {0x1000000000, {"PooledCovariance"}},
        {0x80000, {"OutliersDetection"}},
        {0x40000, {"RobustCovariance"}},
        {0x100000, {"PartialCovariance"}},
        {0x200000, {"PartialCovariance"}},
        {0x10000, {"Quantiles"}},
        {0x20000, {"Quantiles"}},
        {0x1000000, {"StreamQuantiles"}},
        {0x800000, {"CorParametrization"}},
        // Bits outside every group select nothing.
        {0x2000000000, {}},
        {0xffffff0000000000, {}},
        // The missing-values bit takes the request alone.
        {0x400000, {"MissingValues"}},
        {0x400001, {"MissingValues"}},
        {~0ull, {"MissingValues"}},
        // Everything else, in the fixed order.
        {~0ull & ~0x400000ull,
         {"Minmax", "Sort", "Basic", "MAD", "PooledCovariance", "OutliersDetection",
          "RobustCovariance", "PartialCovariance", "Quantiles", "StreamQuantiles",
          "CorParametrization"}},
    };
    for (const routing& r : table) {
        SCOPED_TRACE(testing::Message() << std::hex << "estimates 0x" << r.estimates);
        task_record record;
        core_double::reset();
        EXPECT_EQ(compute(single(), &record.task, r.estimates, 12345), 0);
        std::vector<std::string> expected;
        for (const char* name : r.routines)
            expected.push_back(routine(name));
        EXPECT_EQ(routines_called(), expected);
        // Every routine gets the task, the whole mask, the method untouched and the table.
        for (const core_double::call& c : core_double::calls()) {
            EXPECT_EQ(c.estimates, r.estimates);
            EXPECT_EQ(c.method, 12345);
            EXPECT_EQ(c.threaders, threader_table());
            EXPECT_EQ(c.task.observations, record.observations);
        }
    }
}

TEST_P(dispatcher, returns_the_status_of_the_last_routine_and_stops_at_a_negative_one) {
    struct status_case {
        const char* what;
        std::vector<std::pair<const char*, std::int32_t>> statuses;
        std::uint64_t estimates;
        std::int32_t result;
        std::vector<const char*> routines;
    };
    const std::vector<status_case> cases = {
        {"positive then zero", {{"Minmax", 1}}, 0xc01, 0, {"Minmax", "Basic"}},
        {"negative first", {{"Minmax", -1}}, 0xc01, -1, {"Minmax"}},
        {"zero then positive", {{"Basic", 5}}, 0xc01, 5, {"Minmax", "Basic"}},
        {"positive then positive", {{"Minmax", 2}, {"Basic", 3}}, 0xc01, 3, {"Minmax", "Basic"}},
        {"negative in the middle", {{"Basic", -7}}, 0x8200000001, -7, {"Sort", "Basic"}},
        {"missing values hands its status on",
         {{"MissingValues", 3}},
         0x400001,
         3,
         {"MissingValues"}},
        {"negative code of a routine unchanged",
         {{"Quantiles", -4029}},
         0x10000,
         -4029,
         {"Quantiles"}},
    };
    for (const status_case& c : cases) {
        SCOPED_TRACE(c.what);
        core_double::reset();
        for (const auto& s : c.statuses)
            core_double::set_status(routine(s.first), s.second);
        task_record record;
        EXPECT_EQ(compute(single(), &record.task, c.estimates, 1), c.result);
        std::vector<std::string> expected;
        for (const char* name : c.routines)
            expected.push_back(routine(name));
        EXPECT_EQ(routines_called(), expected);
    }
}

INSTANTIATE_TEST_SUITE_P(precisions,
                         dispatcher,
                         ::testing::Values(true, false),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? std::string("float") : std::string("double");
                         });

TEST(threader_table, holds_six_identical_rows_of_the_layer_entries) {
    const ss_threader_table* table = threader_table();
    void* layer = dlopen(CPU_DOUBLES_DIR "libqnd_pool_thread.so.2", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(layer, nullptr) << "the pool layer is the one loaded when none was in the process";
    const char* names[] = {"qnd_rtk_serv_threader_for", "qnd_rtk_serv_threader_for_ordered",
                           "qnd_rtk_serv_threader_sections", "qnd_rtk_serv_threader_ordered",
                           "qnd_rtk_serv_threader_get_num_threads_limit"};
    for (const ss_threader_row& row : table->rows) {
        const threader_entry entries[] = {row.parallel_for, row.for_ordered, row.sections,
                                          row.ordered, row.get_num_threads_limit};
        for (int k = 0; k < 5; ++k)
            EXPECT_EQ(reinterpret_cast<void*>(entries[k]), dlsym(layer, names[k])) << names[k];
    }
    EXPECT_EQ(threader_table(), table);
}

}  // namespace
