// The process-ending paths of the statistics client, with the real threading layers beside the
// recording stand-in: a component that cannot be had ends the process with status 2 after
// message 771 on the first call; an entry missing from it, after message 772 with its name, only
// when that entry is first used.
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

const char* const message_771 =
    "qnd fatal error: the statistics component libqnd_core.so.2 could not be loaded from the "
    "directory of the threading layer\n";
const char* const message_772 = "qnd fatal error: the statistics component has no entry named ";

void say(const char* line) {
    ssize_t written = write(2, line, std::strlen(line));
    (void)written;
}

class client_death : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(client_death, a_missing_component_ends_the_process_with_status_2_after_message_771) {
    const auto body = [] {
        setenv("QND_CORE_LIBRARY_PATH", CPU_DOUBLES_DIR "libqnd_core_absent.so.2", 1);
        sycl::queue queue{sycl::cpu_selector_v};
        double* x = sycl::malloc_shared<double>(6, queue);
        say("before the first call\n");
        run_mean<double, row_major>(queue, dataset<row_major, double*>(2, 3, x), x, {}).wait();
        say("after the first call\n");
    };
    EXPECT_EXIT(body(), ::testing::ExitedWithCode(2),
                std::string("^before the first call\n") + message_771 + "$");
    // Resolving any name without a component ends the same way.
    EXPECT_EXIT(
        {
            setenv("QND_CORE_LIBRARY_PATH", CPU_DOUBLES_DIR "libqnd_core_absent.so.2", 1);
            resolve_core_entry("__rtkdSSNewTask");
        },
        ::testing::ExitedWithCode(2), std::string("^") + message_771 + "$");
}

TEST_F(client_death, a_missing_entry_ends_the_process_only_when_first_used) {
    const auto body = [] {
        setenv("QND_CORE_LIBRARY_PATH", CPU_DOUBLES_DIR "libqnd_core_partial.so.2", 1);
        sycl::queue queue{sycl::cpu_selector_v};
        float* fx = sycl::malloc_shared<float>(6, queue);
        double* dx = sycl::malloc_shared<double>(6, queue);
        const dataset<row_major, float*> floats(2, 3, fx);
        const dataset<row_major, double*> doubles(2, 3, dx);
        // Every entry but the single-precision sums is there.
        run_mean<float, row_major>(queue, floats, fx, {}).wait();
        run_raw_sum<double, row_major>(queue, doubles, dx, nullptr, nullptr, nullptr, {}).wait();
        run_central_moment<1, float, row_major>(queue, floats, fx, nullptr, nullptr, {}).wait();
        say("entries present: fine\n");
        run_raw_sum<float, row_major>(queue, floats, fx, nullptr, nullptr, nullptr, {}).wait();
        say("after the missing entry\n");
    };
    EXPECT_EXIT(body(), ::testing::ExitedWithCode(2),
                std::string("^entries present: fine\n") + message_772 + "__rtksSSEditSums\n$");
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
                std::string("^empty mask: fine\n") + message_772 + "_rtkdSSNoSuchRoutine\n$");
}

}  // namespace
