// The refusals of the routines and of the routing entry: their statuses, their order, and that a
// refusing routine writes nothing.
#include <limits>

#include "core_test_support.hpp"

using namespace core_test;

namespace {

constexpr double sentinel = -777.0;

// A valid 2 x 3 task with a mean and a skewness output, which a case then spoils.
struct spoilable {
    double x[6] = {1, 2, 3, 4, 5, 9};
    double w[3] = {1, 1, 1};
    double mean[2] = {sentinel, sentinel};
    double skew[2] = {sentinel, sentinel};
    double mn[2] = {sentinel, sentinel};
    task_fixture<double> f{2, 3, QND_SS_ROW_MAJOR, x, w};
    spoilable() {
        f.edit(QND_SS_ED_MEAN, mean);
        f.edit(QND_SS_ED_SKEWNESS, skew);
        f.edit(QND_SS_ED_MIN, mn);
    }
    bool untouched() const {
        for (int d = 0; d < 2; ++d) {
            if (mean[d] != sentinel || skew[d] != sentinel || mn[d] != sentinel) {
                return false;
            }
        }
        return true;
    }
};

struct refusal {
    const char* name;
    void (*spoil)(spoilable&);
    uint64_t estimates;
    int64_t method;
    int32_t basic_status;
    int32_t minmax_status;
};

const refusal refusals[] = {
    {"dims zero", [](spoilable& s) { s.f.dims64 = 0; }, 0x101, 1, -4001, -4001},
    {"dims null", [](spoilable& s) { s.f.task->dims_ptr = nullptr; }, 0x101, 1, -4001, -4001},
    {"observations zero", [](spoilable& s) { s.f.obs64 = 0; }, 0x101, 1, -4002, -4002},
    {"observations null", [](spoilable& s) { s.f.task->observations = nullptr; }, 0x101, 1, -4032,
     -4032},
    {"storage null", [](spoilable& s) { s.f.task->storage_ptr = nullptr; }, 0x101, 1, -4044, -4044},
    {"storage value", [](spoilable& s) { s.f.storage64 = 3; }, 0x101, 1, -4003, -4003},
    // The count check comes before the observations check.
    {"count before observations",
     [](spoilable& s) {
         s.f.obs64 = -1;
         s.f.task->observations = nullptr;
     },
     0x101, 1, -4002, -4002},
    {"method 3", [](spoilable&) {}, 0x101, 3, -4029, -4029},
    {"method 257", [](spoilable&) {}, 0x101, 257, -4029, -4029},
    {"negative weight", [](spoilable& s) { s.w[1] = -1; }, 0x101, 1, -4052, -4052},
    {"NaN weight", [](spoilable& s) { s.w[2] = std::numeric_limits<double>::quiet_NaN(); }, 0x101,
     2, -4052, -4052},
    {"caller's mean missing", [](spoilable& s) { s.f.task->mean = nullptr; }, 0x100, 256, -4006, 0},
    {"covariance bit", [](spoilable&) {}, 0x1001, 1, -4090, 0},
    {"32-bit read of a 64-bit dims",
     [](spoilable& s) {
         s.f.task->int_width = 0;
         s.f.dims64 = int64_t(1) << 32;
     },
     0x101, 1, -4001, -4001},
};

TEST(Refusals, StatusAndNothingWritten) {
    for (const refusal& r : refusals) {
        SCOPED_TRACE(r.name);
        {
            spoilable s;
            r.spoil(s);
            EXPECT_EQ(s.f.basic(r.estimates, r.method), r.basic_status);
            EXPECT_TRUE(s.untouched());
        }
        spoilable s;
        r.spoil(s);
        EXPECT_EQ(s.f.minmax(QND_SS_MIN, r.method), r.minmax_status);
        if (r.minmax_status != 0) {
            EXPECT_TRUE(s.untouched());
        }
    }
}

TEST(Refusals, NullAndForeignTasks) {
    EXPECT_EQ(_rtkdSSBasic(nullptr, 1, 1, nullptr), QND_SS_ERROR_TASK);
    EXPECT_EQ(_rtksSSMinmax(nullptr, 0x400, 1, nullptr), QND_SS_ERROR_TASK);
    qnd_ss_task fake{};
    EXPECT_EQ(_rtkdSSBasic(&fake, 1, 1, nullptr), QND_SS_ERROR_TASK);
    spoilable s;
    EXPECT_EQ(_rtksSSBasic(s.f.task, 1, 1, nullptr), QND_SS_ERROR_ELEMENT_TYPE);
    EXPECT_TRUE(s.untouched());
}

TEST(Outputs, ARequestedEstimateWithoutArrayIsSkipped) {
    spoilable s;
    s.f.task->mean = nullptr;
    // Everything is asked for; only skewness has an array among the basic estimates.
    ASSERT_EQ(s.f.basic(QND_SS_BASIC_ESTIMATES, 1), QND_SS_OK);
    EXPECT_NE(s.skew[0], sentinel);
    EXPECT_EQ(s.mn[0], sentinel);
    // An array that is not asked for stays as it is.
    s.f.task->mean = s.mean;
    ASSERT_EQ(s.f.basic(QND_SS_SKEWNESS, 1), QND_SS_OK);
    EXPECT_EQ(s.mean[0], sentinel);
}

TEST(Outputs, CallersMeanIsAnInputUnderMethod256) {
    spoilable s;
    s.mean[0] = 2;
    s.mean[1] = 6;
    ASSERT_EQ(s.f.basic(QND_SS_MEAN | QND_SS_SKEWNESS, 256), QND_SS_OK);
    EXPECT_EQ(s.mean[0], 2);
    EXPECT_EQ(s.mean[1], 6);
    EXPECT_DOUBLE_EQ(s.skew[0], 0.0);
}

TEST(Routines, TheTenOthersAreNotSupported) {
    void* core = dlopen((std::string(QND_TEST_LIB_DIR) + "/libqnd_core.so.2").c_str(),
                        RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(core, nullptr);
    const char* names[] = {"MissingValues",
                           "Sort",
                           "MAD",
                           "PooledCovariance",
                           "OutliersDetection",
                           "RobustCovariance",
                           "PartialCovariance",
                           "Quantiles",
                           "StreamQuantiles",
                           "CorParametrization"};
    spoilable s;
    for (const char* name : names) {
        for (const char* prefix : {"_rtks", "_rtkd"}) {
            const std::string symbol = std::string(prefix) + "SS" + name;
            auto routine = reinterpret_cast<int32_t (*)(qnd_ss_task*, uint64_t, int64_t,
                                                        const qnd_ss_threader_row*)>(
                dlsym(core, symbol.c_str()));
            ASSERT_NE(routine, nullptr) << symbol;
            EXPECT_EQ(routine(s.f.task, ~0ULL, 1, nullptr), QND_SS_ERROR_NOT_SUPPORTED) << symbol;
        }
    }
    EXPECT_TRUE(s.untouched());
}

TEST(Routing, ComputeEntryRoutesTheMask) {
    spoilable s;
    // Nothing asked: nothing done.
    EXPECT_EQ(qnd_ss_compute_d(s.f.task, 0, 1, nullptr), QND_SS_OK);
    // The missing-values bit runs that routine alone.
    EXPECT_EQ(qnd_ss_compute_d(s.f.task, 0x400000 | 1, 1, nullptr), QND_SS_ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(s.untouched());
    // A partial-covariance bit passes without observations and reaches its routine.
    s.f.task->observations = nullptr;
    EXPECT_EQ(qnd_ss_compute_d(s.f.task, 0x100000, 1, nullptr), QND_SS_ERROR_NOT_SUPPORTED);
    s.f.task->observations = s.x;
    EXPECT_EQ(qnd_ss_compute_d(nullptr, 1, 1, nullptr), QND_SS_ERROR_TASK);
    // Minimum first, then the basic estimates.
    ASSERT_EQ(qnd_ss_compute_d(s.f.task, QND_SS_MIN | QND_SS_MEAN, 1, nullptr), QND_SS_OK);
    EXPECT_EQ(s.mn[0], 1);
    EXPECT_EQ(s.mn[1], 4);
    EXPECT_DOUBLE_EQ(s.mean[1], 6);
    EXPECT_EQ(s.skew[0], sentinel);
}

}  // namespace
