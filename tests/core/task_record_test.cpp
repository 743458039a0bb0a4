// The task record: what creation records, the edit entries, deletion, and the refusals of the
// routines and of the routing entry, with their statuses in their order, writing nothing.
#include "core_test_support.hpp"

using namespace core_test;

namespace {

TEST(TaskRecord, CreationRecordsItsArgumentsAndEditsSetTheirFields) {
    const double x[4] = {1, 2, 3, 4}, w[2] = {1, 1};
    const int32_t idx[2] = {1, 1};
    for (bool wide : {false, true}) {
        task_fixture<double> f(2, 2, QND_SS_COL_MAJOR, x, w, idx, wide);
        const qnd_ss_task& t = *f.task;
        EXPECT_EQ(t.int_width, wide ? 1u : 0u);
        EXPECT_EQ(t.element_size, 8u);
        EXPECT_EQ(t.dims_ptr, wide ? static_cast<const void*>(&f.dims64) : &f.dims32);
        EXPECT_EQ(t.observations_count_ptr, wide ? static_cast<const void*>(&f.obs64) : &f.obs32);
        EXPECT_EQ(t.storage_ptr, wide ? static_cast<const void*>(&f.storage64) : &f.storage32);
        EXPECT_TRUE(t.observations == x && t.weights == w && t.indices == idx && !t.mean);
    }
    const float xf[1] = {1};
    task_fixture<float> f(1, 1, QND_SS_ROW_MAJOR, xf);
    EXPECT_EQ(f.task->element_size, 4u);
    float a[1];  // parameters 7 to 25 set their result words, null too
    for (int32_t p = 7; p <= 25; ++p) {
        void* const& field = reinterpret_cast<void* const*>(f.task)[word_of_parameter[p - 7]];
        ASSERT_EQ(f.edit(p, a), QND_SS_OK);
        EXPECT_EQ(field, a) << p;
        ASSERT_EQ(f.edit(p, nullptr), QND_SS_OK);
        EXPECT_EQ(field, nullptr) << p;
    }
    EXPECT_EQ(f.edit(QND_SS_ED_OBSERVATIONS, a), QND_SS_OK);
    EXPECT_EQ(f.task->observations, a);
    EXPECT_EQ(f.edit(0, a), QND_SS_ERROR_PARAMETER);
    EXPECT_EQ(f.edit(26, a), QND_SS_ERROR_PARAMETER);
    EXPECT_EQ(__rtkdSSEditTask(f.task, QND_SS_ED_MEAN, a), QND_SS_ERROR_ELEMENT_TYPE);
    EXPECT_EQ(__rtkdSSEditTask(nullptr, QND_SS_ED_MEAN, a), QND_SS_ERROR_TASK);
    // EditMoments and EditSums set all seven fields, nulls too.
    float m[7][1];
    ASSERT_EQ(__rtksSSEditMoments(f.task, m[0], m[1], m[2], m[3], m[4], m[5], m[6]), QND_SS_OK);
    EXPECT_TRUE(f.task->mean == m[0] && f.task->raw_moment[2] == m[3] &&
                f.task->central_moment[2] == m[6]);
    ASSERT_EQ(__rtksSSEditMoments(f.task, m[0], 0, 0, 0, 0, 0, 0), QND_SS_OK);
    EXPECT_EQ(f.task->raw_moment[0], nullptr);
    ASSERT_EQ(__rtksSSEditSums(f.task, m[0], m[1], m[2], m[3], m[4], m[5], m[6]), QND_SS_OK);
    EXPECT_TRUE(f.task->raw_sum[0] == m[0] && f.task->central_sum[2] == m[6]);
    EXPECT_EQ(__rtkdSSEditSums(f.task, 0, 0, 0, 0, 0, 0, 0), QND_SS_ERROR_ELEMENT_TYPE);
}

TEST(TaskRecord, DeleteClearsTheHandleAndRefusesWhatIsNotATask) {
    const double x[1] = {0};
    const int64_t one = 1, storage = QND_SS_ROW_MAJOR;
    qnd_ss_task* task = nullptr;
    ASSERT_EQ(__rtkdSSNewTask(&task, &one, &one, &storage, x, nullptr, nullptr, 1), QND_SS_OK);
    EXPECT_EQ(__rtkSSDeleteTask(&task), QND_SS_OK);
    EXPECT_EQ(task, nullptr);
    EXPECT_EQ(__rtkSSDeleteTask(&task), QND_SS_ERROR_TASK);
    EXPECT_EQ(__rtkSSDeleteTask(nullptr), QND_SS_ERROR_TASK);
    EXPECT_EQ(__rtkdSSNewTask(nullptr, &one, &one, &storage, x, nullptr, nullptr, 1),
              QND_SS_ERROR_TASK);
}

constexpr double sentinel = -777.0;

// A valid 2 x 3 task with mean, skewness and minimum outputs, which a case then spoils.
struct spoilable {
    double x[6] = {1, 2, 3, 4, 5, 9}, w[3] = {1, 1, 1};
    double mean[2] = {sentinel, sentinel}, skew[2] = {sentinel, sentinel},
           mn[2] = {sentinel, sentinel};
    task_fixture<double> f{2, 3, QND_SS_ROW_MAJOR, x, w};
    spoilable() {
        f.edit(QND_SS_ED_MEAN, mean);
        f.edit(QND_SS_ED_SKEWNESS, skew);
        f.edit(QND_SS_ED_MIN, mn);
    }
    bool untouched() const {
        return mean[0] == sentinel && mean[1] == sentinel && skew[0] == sentinel &&
               skew[1] == sentinel && mn[0] == sentinel && mn[1] == sentinel;
    }
};

struct refusal {
    const char* name;
    void (*spoil)(spoilable&);
    uint64_t estimates;
    int64_t method;
    int32_t basic_status, minmax_status;
};

// Each refusal of the basic routine, of minmax and, for the checks of the task, of the routing
// entry; the routines write nothing when they refuse.
TEST(Refusals, StatusAndNothingWritten) {
    using S = spoilable&;
    // clang-format off
    const refusal refusals[] = {
        {"dims zero", [](S s) { s.f.dims64 = 0; }, 0x101, 1, -4001, -4001},
        {"dims null", [](S s) { s.f.task->dims_ptr = nullptr; }, 0x101, 1, -4001, -4001},
        {"observations zero", [](S s) { s.f.obs64 = 0; }, 0x101, 1, -4002, -4002},
        {"observations null", [](S s) { s.f.task->observations = 0; }, 0x101, 1, -4032, -4032},
        {"storage null", [](S s) { s.f.task->storage_ptr = 0; }, 0x101, 1, -4044, -4044},
        {"storage value", [](S s) { s.f.storage64 = 3; }, 0x101, 1, -4003, -4003},
        {"count before observations", [](S s) { s.f.obs64 = -1, s.f.task->observations = 0; }, 0x101, 1, -4002, -4002},
        {"32-bit read of a 64-bit dims", [](S s) { s.f.task->int_width = 0, s.f.dims64 = int64_t(1) << 32; }, 0x101, 1, -4001, -4001},
        {"method 3", [](S) {}, 0x101, 3, -4029, -4029},
        {"method 257", [](S) {}, 0x101, 257, -4029, -4029},
        {"negative weight", [](S s) { s.w[1] = -1; }, 0x101, 1, -4052, -4052},
        {"NaN weight", [](S s) { s.w[2] = std::nan(""); }, 0x101, 2, -4052, -4052},
        {"caller's mean missing", [](S s) { s.f.task->mean = 0; }, 0x100, 256, -4006, 0},
    };
    // clang-format on
    for (const refusal& r : refusals) {
        SCOPED_TRACE(r.name);
        spoilable s[3];  // one task for each routine
        for (spoilable& each : s)
            r.spoil(each);
        EXPECT_EQ(s[0].f.basic(r.estimates, r.method), r.basic_status);
        EXPECT_EQ(s[1].f.minmax(QND_SS_MIN, r.method), r.minmax_status);
        // These masks route to the basic routine alone.
        EXPECT_EQ(qnd_ss_compute_d(s[2].f.task, r.estimates, r.method, 0), r.basic_status);
        EXPECT_TRUE(s[0].untouched() && s[2].untouched());
        EXPECT_TRUE(s[1].untouched() || r.minmax_status == 0);
    }
    EXPECT_EQ(_rtkdSSBasic(nullptr, 1, 1, nullptr), QND_SS_ERROR_TASK);
    EXPECT_EQ(_rtksSSMinmax(nullptr, 0x400, 1, nullptr), QND_SS_ERROR_TASK);
    qnd_ss_task fake{};
    EXPECT_EQ(_rtkdSSBasic(&fake, 1, 1, nullptr), QND_SS_ERROR_TASK);
    spoilable s;
    EXPECT_EQ(_rtksSSBasic(s.f.task, 1, 1, nullptr), QND_SS_ERROR_ELEMENT_TYPE);
    EXPECT_EQ(qnd_ss_compute_d(nullptr, 1, 1, nullptr), QND_SS_ERROR_TASK);
    EXPECT_TRUE(s.untouched());
}

TEST(Outputs, OnlyWhatIsAskedForAndHasAnArrayIsWritten) {
    spoilable s;
    s.f.task->mean = nullptr;
    ASSERT_EQ(s.f.basic(QND_SS_BASIC_ESTIMATES, 1), QND_SS_OK);
    EXPECT_TRUE(s.skew[0] != sentinel && s.mn[0] == sentinel);
    s.f.task->mean = s.mean;
    ASSERT_EQ(s.f.basic(QND_SS_SKEWNESS, 1), QND_SS_OK);
    EXPECT_EQ(s.mean[0], sentinel);
    // Each estimate goes by its own array: the third central moment alone among the moments.
    double c3[2] = {sentinel, sentinel};
    s.f.task->skewness = nullptr;
    ASSERT_EQ(
        __rtkdSSEditMoments(s.f.task, nullptr, nullptr, nullptr, nullptr, nullptr, c3, nullptr),
        QND_SS_OK);
    ASSERT_EQ(s.f.basic(QND_SS_BASIC_ESTIMATES, 1), QND_SS_OK);
    EXPECT_NE(c3[0], sentinel);
    ASSERT_EQ(__rtkdSSEditMoments(s.f.task, s.mean, 0, 0, 0, 0, 0, 0), QND_SS_OK);
    s.f.task->skewness = s.skew;
    // Under method 256 the mean is an input.
    s.mean[0] = 2, s.mean[1] = 6;
    ASSERT_EQ(s.f.basic(QND_SS_MEAN | QND_SS_SKEWNESS, 256), QND_SS_OK);
    EXPECT_TRUE(s.mean[0] == 2 && s.mean[1] == 6 && s.skew[0] == 0);
    // Also when it is all that is asked for.
    s.mean[0] = 10;
    ASSERT_EQ(s.f.basic(QND_SS_MEAN, 256), QND_SS_OK);
    EXPECT_TRUE(s.mean[0] == 10 && s.mean[1] == 6);
}

TEST(Routines, TheFourOthersAreNotSupported) {
    void* core = dlopen(QND_TEST_LIB_DIR "/libqnd_core.so.2", RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(core, nullptr);
    spoilable s;
    for (const char* name :
         {"MissingValues", "OutliersDetection", "RobustCovariance", "CorParametrization"}) {
        for (const char* prefix : {"_rtks", "_rtkd"}) {
            const std::string symbol = std::string(prefix) + "SS" + name;
            auto routine = reinterpret_cast<decltype(&_rtkdSSBasic)>(dlsym(core, symbol.c_str()));
            ASSERT_NE(routine, nullptr) << symbol;
            EXPECT_EQ(routine(s.f.task, ~0ULL, 1, nullptr), QND_SS_ERROR_NOT_SUPPORTED) << symbol;
        }
    }
    EXPECT_TRUE(s.untouched());
}

TEST(Routing, ComputeEntryRoutesTheMask) {
    spoilable s;
    EXPECT_EQ(qnd_ss_compute_d(s.f.task, 0, 1, nullptr), QND_SS_OK);
    // The missing-values bit runs that routine alone.
    EXPECT_EQ(qnd_ss_compute_d(s.f.task, 0x400000 | 1, 1, nullptr), QND_SS_ERROR_NOT_SUPPORTED);
    EXPECT_TRUE(s.untouched());
    // A correlation-parametrisation bit passes without observations and reaches its routine.
    s.f.task->observations = nullptr;
    EXPECT_EQ(qnd_ss_compute_d(s.f.task, 0x800000, 1, nullptr), QND_SS_ERROR_NOT_SUPPORTED);
    s.f.task->observations = s.x;
    // Minimum first, then the basic estimates.
    ASSERT_EQ(qnd_ss_compute_d(s.f.task, QND_SS_MIN | QND_SS_MEAN, 1, nullptr), QND_SS_OK);
    EXPECT_TRUE(s.mn[0] == 1 && s.mn[1] == 4 && s.mean[1] == 6 && s.skew[0] == sentinel);
}

}  // namespace
