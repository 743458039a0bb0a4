// The task record: byte positions of its fields, what creation records, and the edit entries.
#include <cstddef>

#include "core_test_support.hpp"

using namespace core_test;

namespace {

TEST(TaskRecord, FieldsStandAtTheirBytePositions) {
    const struct {
        size_t offset;
        size_t want;
    } fields[] = {
        {offsetof(qnd_ss_task, int_width), 0},
        {offsetof(qnd_ss_task, dims_ptr), 16},
        {offsetof(qnd_ss_task, observations_count_ptr), 24},
        {offsetof(qnd_ss_task, indices), 32},
        {offsetof(qnd_ss_task, observations), 40},
        {offsetof(qnd_ss_task, weights), 48},
        {offsetof(qnd_ss_task, storage_ptr), 64},
        {offsetof(qnd_ss_task, mean), 88},
        {offsetof(qnd_ss_task, raw_moment), 96},
        {offsetof(qnd_ss_task, central_moment), 120},
        {offsetof(qnd_ss_task, raw_sum), 144},
        {offsetof(qnd_ss_task, central_sum), 176},
        {offsetof(qnd_ss_task, kurtosis), 200},
        {offsetof(qnd_ss_task, skewness), 208},
        {offsetof(qnd_ss_task, variation), 216},
        {offsetof(qnd_ss_task, min), 224},
        {offsetof(qnd_ss_task, max), 232},
    };
    for (const auto& f : fields) {
        EXPECT_EQ(f.offset, f.want);
    }
}

TEST(TaskRecord, CreationRecordsItsArguments) {
    const double x[4] = {1, 2, 3, 4};
    const double w[2] = {1, 1};
    const int32_t idx[2] = {1, 1};
    for (int32_t marker : {0, 1}) {
        task_fixture<double> f(2, 2, QND_SS_COL_MAJOR, x, w, idx, marker != 0);
        const qnd_ss_task& t = *f.task;
        EXPECT_EQ(t.int_width, static_cast<uint32_t>(marker));
        EXPECT_EQ(t.element_size, 8u);
        EXPECT_EQ(t.dims_ptr, marker ? static_cast<const void*>(&f.dims64) : &f.dims32);
        EXPECT_EQ(t.observations_count_ptr, marker ? static_cast<const void*>(&f.obs64) : &f.obs32);
        EXPECT_EQ(t.storage_ptr, marker ? static_cast<const void*>(&f.storage64) : &f.storage32);
        EXPECT_EQ(t.observations, x);
        EXPECT_EQ(t.weights, w);
        EXPECT_EQ(t.indices, idx);
        EXPECT_EQ(t.mean, nullptr);
    }
    const float xf[1] = {1};
    task_fixture<float> f(1, 1, QND_SS_ROW_MAJOR, xf);
    EXPECT_EQ(f.task->element_size, 4u);
}

TEST(TaskRecord, EditParametersSetTheirFields) {
    const double x[1] = {0};
    task_fixture<double> f(1, 1, QND_SS_ROW_MAJOR, x);
    qnd_ss_task& t = *f.task;
    double a[1];
    const struct {
        int32_t parameter;
        void* const* field;
    } cases[] = {
        {7, &t.mean},
        {8, &t.raw_moment[0]},
        {9, &t.raw_moment[1]},
        {10, &t.raw_moment[2]},
        {11, &t.central_moment[0]},
        {12, &t.central_moment[1]},
        {13, &t.central_moment[2]},
        {14, &t.kurtosis},
        {15, &t.skewness},
        {16, &t.min},
        {17, &t.max},
        {18, &t.variation},
        {19, &t.raw_sum[0]},
        {22, &t.raw_sum[3]},
        {23, &t.central_sum[0]},
        {25, &t.central_sum[2]},
    };
    for (const auto& c : cases) {
        ASSERT_EQ(f.edit(c.parameter, a), QND_SS_OK) << c.parameter;
        EXPECT_EQ(*c.field, a) << c.parameter;
        ASSERT_EQ(f.edit(c.parameter, nullptr), QND_SS_OK);
        EXPECT_EQ(*c.field, nullptr) << c.parameter;
    }
    EXPECT_EQ(f.edit(QND_SS_ED_OBSERVATIONS, a), QND_SS_OK);
    EXPECT_EQ(t.observations, a);
    EXPECT_EQ(f.edit(0, a), QND_SS_ERROR_PARAMETER);
    EXPECT_EQ(f.edit(26, a), QND_SS_ERROR_PARAMETER);
    EXPECT_EQ(__rtksSSEditTask(f.task, QND_SS_ED_MEAN, a), QND_SS_ERROR_ELEMENT_TYPE);
    EXPECT_EQ(__rtkdSSEditTask(nullptr, QND_SS_ED_MEAN, a), QND_SS_ERROR_TASK);
}

TEST(TaskRecord, EditMomentsAndSumsSetAllSevenFieldsNullsToo) {
    const float x[1] = {0};
    task_fixture<float> f(1, 1, QND_SS_ROW_MAJOR, x);
    float a[7][1];
    ASSERT_EQ(__rtksSSEditMoments(f.task, a[0], a[1], a[2], a[3], a[4], a[5], a[6]), QND_SS_OK);
    EXPECT_EQ(f.task->mean, a[0]);
    EXPECT_EQ(f.task->raw_moment[2], a[3]);
    EXPECT_EQ(f.task->central_moment[2], a[6]);
    ASSERT_EQ(
        __rtksSSEditMoments(f.task, a[0], nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
        QND_SS_OK);
    EXPECT_EQ(f.task->raw_moment[0], nullptr);
    ASSERT_EQ(__rtksSSEditSums(f.task, a[0], a[1], a[2], a[3], a[4], a[5], a[6]), QND_SS_OK);
    EXPECT_EQ(f.task->raw_sum[0], a[0]);
    EXPECT_EQ(f.task->central_sum[2], a[6]);
    EXPECT_EQ(
        __rtkdSSEditSums(f.task, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
        QND_SS_ERROR_ELEMENT_TYPE);
}

TEST(TaskRecord, DeleteClearsTheHandleAndRefusesWhatIsNotATask) {
    const double x[1] = {0};
    const int64_t one = 1, storage = QND_SS_ROW_MAJOR;
    qnd_ss_task* task = nullptr;
    ASSERT_EQ(__rtkdSSNewTask(&task, &one, &one, &storage, x, nullptr, nullptr, 1), QND_SS_OK);
    ASSERT_NE(task, nullptr);
    EXPECT_EQ(__rtkSSDeleteTask(&task), QND_SS_OK);
    EXPECT_EQ(task, nullptr);
    EXPECT_EQ(__rtkSSDeleteTask(&task), QND_SS_ERROR_TASK);
    EXPECT_EQ(__rtkSSDeleteTask(nullptr), QND_SS_ERROR_TASK);
    EXPECT_EQ(__rtkdSSNewTask(nullptr, &one, &one, &storage, x, nullptr, nullptr, 1),
              QND_SS_ERROR_TASK);
}

}  // namespace
