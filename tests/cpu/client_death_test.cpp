// The process-ending paths of the statistics client: a component that cannot be had ends the
// process with status 2 after message 771 on the first call; an entry missing from it, after
// message 772 with its name, only when that entry is first used.
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "cpu/cpu_estimators.hpp"
#include "cpu/doubles/core_double.hpp"

namespace {

using namespace tavrel::qnd::stats;
using namespace tavrel::qnd::stats::detail::cpu;

void say(const char* line) {
    ssize_t written = write(2, line, std::strlen(line));
    (void)written;
}

class client_death : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

// One float and one double dataset of 2 x 3 observations in shared memory.
struct small_data {
    sycl::queue queue{sycl::cpu_selector_v};
    float* fx = sycl::malloc_shared<float>(6, queue);
    double* dx = sycl::malloc_shared<double>(6, queue);
    float* fr = sycl::malloc_shared<float>(2, queue);
    double* dr = sycl::malloc_shared<double>(2, queue);
    dataset<row_major, float*> floats{2, 3, fx};
    dataset<row_major, double*> doubles{2, 3, dx};
};

TEST_F(client_death, a_missing_component_ends_the_process_with_status_2_after_message_771) {
    const auto body = [] {
        setenv("QND_CORE_LIBRARY_PATH", CPU_DOUBLES_DIR "libqnd_core_absent.so.2", 1);
        small_data s;
        say("before the first call\n");
        run_mean<double, row_major>(s.queue, s.doubles, s.dr, {}).wait();
        say("after the first call\n");
    };
    EXPECT_EXIT(body(), ::testing::ExitedWithCode(2),
                "^before the first call\nlayer double qnd_pool_thread: message 771 kind 1\n$");
}

TEST_F(client_death, resolving_a_name_without_a_component_ends_the_same_way) {
    const auto body = [] {
        setenv("QND_CORE_LIBRARY_PATH", CPU_DOUBLES_DIR "libqnd_core_absent.so.2", 1);
        resolve_core_entry("__rtkdSSNewTask");
    };
    EXPECT_EXIT(body(), ::testing::ExitedWithCode(2), "message 771 kind 1\n$");
}

TEST_F(client_death, a_missing_entry_ends_the_process_only_when_first_used) {
    const auto body = [] {
        setenv("QND_CORE_LIBRARY_PATH", CPU_DOUBLES_DIR "libqnd_core_partial.so.2", 1);
        small_data s;
        // Every entry but the single-precision sums is there.
        run_mean<float, row_major>(s.queue, s.floats, s.fr, {}).wait();
        run_raw_sum<double, row_major>(s.queue, s.doubles, s.dr, nullptr, nullptr, nullptr, {})
            .wait();
        run_central_moment<1, float, row_major>(s.queue, s.floats, s.fr, nullptr, nullptr, {})
            .wait();
        say("entries present: fine\n");
        run_raw_sum<float, row_major>(s.queue, s.floats, s.fr, nullptr, nullptr, nullptr, {})
            .wait();
        say("after the missing entry\n");
    };
    EXPECT_EXIT(body(), ::testing::ExitedWithCode(2),
                "^entries present: fine\n"
                "layer double qnd_pool_thread: message 772 kind 1: __rtksSSEditSums\n$");
}

TEST_F(client_death, a_missing_routine_ends_the_process_when_the_dispatcher_needs_it) {
    const auto body = [] {
        setenv("QND_CORE_LIBRARY_PATH", CPU_DOUBLES_DIR "libqnd_core_partial.so.2", 1);
        // Nothing selected: no routine is looked up, so nothing is missed.
        std::int64_t dims = 1, count = 1, storage = row_major;
        double x = 0;
        ss_task task{};
        task.int_width = 1;
        task.dims_ptr = &dims;
        task.observations_count_ptr = &count;
        task.observations = &x;
        task.storage_ptr = &storage;
        if (__rtkdSSCompute(&task, 0, 1) == 0)
            say("empty mask: fine\n");
        resolve_core_entry("_rtkdSSNoSuchRoutine");
    };
    EXPECT_EXIT(body(), ::testing::ExitedWithCode(2),
                "^empty mask: fine\nlayer double qnd_pool_thread: message 772 kind 1: "
                "_rtkdSSNoSuchRoutine\n$");
}

}  // namespace
