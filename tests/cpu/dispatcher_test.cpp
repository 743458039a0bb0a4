// The compute dispatcher against the recording stand-in of the statistics component: its
// validation codes in their order, its routing order and the rule of the returned status. Its
// threader table is checked in loading_test.cpp, for each layer it may be bound to.
#include <cstdint>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "cpu/doubles/core_double.hpp"
#include "cpu/ss_client.hpp"
#include "cpu/threading_layer.hpp"

namespace {

using namespace tavrel::qnd::stats::detail::cpu;

// A valid task with 64-bit integers, 3 dimensions of 4 observations, and 32-bit integers that
// are valid only when read as 32-bit.
struct task_record {
    std::int64_t n_dims = 3, n_observations = 4, storage = 0x10000;
    std::int32_t narrow[3][2] = {{3, -1}, {4, -1}, {0x20000, -1}};
    double observations[12] = {};
    // Words 0 to 9: width, two reserved, dims, count, indices, observations, weights, reserved,
    // storage.
    ss_task task{1, 0, 0, &n_dims, &n_observations, nullptr, observations, nullptr, 0, &storage};
    void use_narrow() {
        task = {0, 0, 0, narrow[0], narrow[1], nullptr, observations, nullptr, 0, narrow[2]};
    }
};

class dispatcher : public ::testing::TestWithParam<bool> {
  protected:
    void TearDown() override { core_double::reset(); }
    std::int32_t compute(ss_task* task, std::uint64_t estimates, std::int64_t method = 1) {
        return GetParam() ? __rtksSSCompute(task, estimates, method)
                          : __rtkdSSCompute(task, estimates, method);
    }
    // The routines called, behind their "_rtk?SS" prefix, which must be the task's precision.
    std::string routines() const {
        std::string names;
        for (const core_double::call& c : core_double::calls()) {
            EXPECT_EQ(c.entry.substr(0, 7), GetParam() ? "_rtksSS" : "_rtkdSS");
            names += (names.empty() ? "" : " ") + c.entry.substr(7);
        }
        return names;
    }
};

// The checks of the task in their order: a refused task reaches no routine.
TEST_P(dispatcher, checks_the_task_before_any_routine) {
    using R = task_record&;
    // clang-format off
    const struct { const char* what; void (*spoil)(R); std::uint64_t estimates; std::int32_t status; const char* routines; } cases[] = {
        {"no dims_ptr", [](R r) { r.task.dims_ptr = nullptr; }, 1, -4001, ""},
        {"n_dims 0", [](R r) { r.n_dims = 0; }, 1, -4001, ""},
        {"n_dims negative", [](R r) { r.n_dims = -5; }, 1, -4001, ""},
        {"no count", [](R r) { r.task.observations_count_ptr = nullptr; }, 1, -4002, ""},
        {"n_observations 0", [](R r) { r.n_observations = 0; }, 1, -4002, ""},
        {"no observations", [](R r) { r.task.observations = nullptr; }, 1, -4032, ""},
        {"no storage_ptr", [](R r) { r.task.storage_ptr = nullptr; }, 1, -4044, ""},
        {"storage 0", [](R r) { r.storage = 0; }, 1, -4003, ""},
        {"storage of both layouts", [](R r) { r.storage = 0x30000; }, 0x400, -4003, ""},
        // The order of the checks decides between two faults.
        {"n_dims before observations", [](R r) { r.n_dims = 0, r.task.observations = 0; }, 1, -4001, ""},
        {"n_observations before observations", [](R r) { r.n_observations = -1, r.task.observations = 0; }, 1, -4002, ""},
        {"observations before storage", [](R r) { r.task.observations = 0, r.task.storage_ptr = 0; }, 1, -4032, ""},
        {"storage_ptr before its value", [](R r) { r.task.storage_ptr = 0, r.storage = 1; }, 1, -4044, ""},
        {"empty mask on a bad task", [](R r) { r.task.observations = 0; }, 0, -4032, ""},
        // Integers are read at the width the task announces: 0 is 32-bit, anything else 64-bit.
        {"2^32 read at 32 bits", [](R r) { r.task.int_width = 0, r.n_dims = 1ll << 32; }, 1, -4001, ""},
        {"32-bit integers", [](R r) { r.use_narrow(); }, 1, 0, "Basic"},
        {"2^32 read at width 7", [](R r) { r.task.int_width = 7, r.n_dims = 1ll << 32; }, 1, 0, "Basic"},
        // The dimension-only estimates still need n_dims, and nothing else.
        {"dimension-only without n_dims", [](R r) { r.n_dims = 0; }, 0x100000, -4001, ""},
        {"dimension-only, no observations", [](R r) { r.n_observations = 0, r.task.storage_ptr = 0; }, 0x200000, 0, "PartialCovariance"},
        {"dimension-only, no storage", [](R r) { r.task.storage_ptr = 0; }, 0x800000, 0, "CorParametrization"},
        {"dimension-only with the mean", [](R r) { r.task.observations = 0; }, 0x1000001, 0, "Basic StreamQuantiles"},
    };
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        core_double::reset();
        task_record record;
        c.spoil(record);
        EXPECT_EQ(compute(&record.task, c.estimates), c.status);
        EXPECT_EQ(routines(), c.routines);
    }
    core_double::reset();
    EXPECT_EQ(compute(nullptr, 1), -4031);
    EXPECT_EQ(routines(), "");
}

TEST_P(dispatcher, routes_each_group_of_bits_to_its_routine_in_order) {
    // Each mask with the routines it reaches, in order. Bits outside every group select nothing;
    // the missing-values bit takes the request alone; everything else runs in the fixed order.
    const std::vector<std::pair<const char*, std::vector<std::uint64_t>>> groups = {
        {"", {0x0, 0x2000000000, 0xffffff0000000000}},
        {"Basic", {0x1, 0x3ff, 0x1000, 0x2000, 0x2000000, 0x80000000, 0x100000000}},
        {"Minmax", {0x400, 0x800, 0xc00}},
        {"Minmax Basic", {0xc01}},
        {"Sort", {0x8000000000}},
        {"Sort Basic", {0x8000000001}},
        {"MAD", {0x200000000, 0x400000000}},
        {"PooledCovariance", {0x4000, 0x8000, 0x800000000, 0x1000000000}},
        {"OutliersDetection", {0x80000}},
        {"RobustCovariance", {0x40000}},
        {"PartialCovariance", {0x100000, 0x200000}},
        {"Quantiles", {0x10000, 0x20000}},
        {"StreamQuantiles", {0x1000000}},
        {"CorParametrization", {0x800000}},
        {"MissingValues", {0x400000, 0x400001, ~0ull}},
        {"Minmax Sort Basic MAD PooledCovariance OutliersDetection RobustCovariance "
         "PartialCovariance Quantiles StreamQuantiles CorParametrization",
         {~0ull & ~0x400000ull}},
    };
    for (const auto& [routines_in_order, masks] : groups)
        for (std::uint64_t estimates : masks) {
            SCOPED_TRACE(testing::Message() << std::hex << "estimates 0x" << estimates);
            task_record record;
            core_double::reset();
            EXPECT_EQ(compute(&record.task, estimates, 12345), 0);
            EXPECT_EQ(routines(), routines_in_order);
            // Every routine gets the task, the whole mask, the method untouched and the table.
            for (const core_double::call& c : core_double::calls())
                EXPECT_EQ(std::make_tuple(c.estimates, c.method, c.threaders, c.task.observations),
                          std::make_tuple(estimates, 12345, threader_table(), record.observations));
        }
}

TEST_P(dispatcher, returns_the_status_of_the_last_routine_and_stops_at_a_negative_one) {
    const struct {
        const char* statuses;  // routine=status pairs
        std::uint64_t estimates;
        std::int32_t result;
        const char* routines;
    } cases[] = {
        {"Minmax=1", 0xc01, 0, "Minmax Basic"},
        {"Minmax=-1", 0xc01, -1, "Minmax"},
        {"Basic=5", 0xc01, 5, "Minmax Basic"},
        {"Minmax=2 Basic=3", 0xc01, 3, "Minmax Basic"},
        {"Basic=-7", 0x8200000001, -7, "Sort Basic"},
        {"MissingValues=3", 0x400001, 3, "MissingValues"},
        {"Quantiles=-4029", 0x10000, -4029, "Quantiles"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.statuses);
        task_record record;
        core_double::reset();
        std::istringstream statuses(c.statuses);
        for (std::string s; statuses >> s;)
            core_double::set_status((GetParam() ? "_rtksSS" : "_rtkdSS") + s.substr(0, s.find('=')),
                                    std::stoi(s.substr(s.find('=') + 1)));
        EXPECT_EQ(compute(&record.task, c.estimates), c.result);
        EXPECT_EQ(routines(), c.routines);
    }
}

INSTANTIATE_TEST_SUITE_P(precisions,
                         dispatcher,
                         ::testing::Values(true, false),
                         [](const auto& info) { return info.param ? "float" : "double"; });

}  // namespace
