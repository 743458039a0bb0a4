// How the CPU path binds its threading layer (one already in the process by precedence, else the
// pool layer beside the library) and the statistics component (missing: status 2 after message 771
// on the first call; an entry missing: after 772, when first used), each case in its own process.
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "cpu/cpu_estimators.hpp"
#include "cpu/doubles/core_double.hpp"
#include "cpu/threading_layer.hpp"

namespace {

using namespace tavrel::qnd::stats;
using namespace tavrel::qnd::stats::detail::cpu;

const char* const message_771 =
    "qnd fatal error: the statistics component libqnd_core.so.2 could not be loaded from the "
    "directory of the threading layer\n";
const char* const message_772 = "qnd fatal error: the statistics component has no entry named ";

void say(const char* line) {
    [[maybe_unused]] ssize_t written = write(2, line, std::strlen(line));
}

void* open_layer(const std::string& layer, int mode) {
    return dlopen((CPU_DOUBLES_DIR "lib" + layer + ".so.2").c_str(), RTLD_NOW | mode);
}

class threading_layer_search : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};
using client_death = threading_layer_search;

// The child ends with 5 when the layer bound is `bound` (the pool layer when none was in the
// process), no other layer was loaded for it, and the services and the threader table come from it.
TEST_F(threading_layer_search, binds_the_layer_already_in_the_process_by_precedence) {
    EXPECT_EQ(std::string(library_directory()), CPU_DOUBLES_DIR);
    const std::string P = "qnd_pool_thread", S = "qnd_sequential", O = "qnd_omp_thread";
    // Layers loaded first, and the one bound.
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, P}, {{P}, P}, {{S}, S}, {{O}, O}, {{P, S}, S}, {{S, O}, O}, {{P, S, O}, O}};
    for (const auto& [loaded, bound] : cases) {
        SCOPED_TRACE("bound: " + bound);
        const auto child = [&] {
            for (const std::string& layer : loaded)
                open_layer(layer, RTLD_LOCAL);
            bool ok = threading_layer() == open_layer(bound, RTLD_NOLOAD);
            for (const std::string& other : {P, S, O})
                ok = ok && (other == bound || open_layer(other, RTLD_NOLOAD) == nullptr ||
                            std::find(loaded.begin(), loaded.end(), other) != loaded.end());
            // Six identical rows of the layer's threader entries.
            const char* names[] = {"for", "for_ordered", "sections", "ordered",
                                   "get_num_threads_limit"};
            for (const ss_threader_row& r : threader_table()->rows) {
                const threader_entry got[] = {r.parallel_for, r.for_ordered, r.sections, r.ordered,
                                              r.get_num_threads_limit};
                for (int k = 0; k < 5; ++k) {
                    const std::string name = std::string("qnd_rtk_serv_threader_") + names[k];
                    ok = ok &&
                         reinterpret_cast<void*>(got[k]) == dlsym(threading_layer(), name.c_str());
                }
            }
            ok = ok && qnd_serv_load_ktn() == dlopen(CPU_DOUBLES_DIR "libqnd_core.so.2", RTLD_NOW);
            std::int32_t word = 0;
            qnd_serv_lock(&word);
            ok = ok && word == 1;
            qnd_serv_unlock(&word);
            char value[8];
            setenv("QND_SEARCH_VALUE", "abcdefghij", 1);
            ok = ok && word == 0 && qnd_serv_getenv("QND_SEARCH_VALUE", value, 8) == 10 &&
                 std::string(value) == "abcdefg";
            if (ok)
                qnd_serv_print(0, 99, 0);
            qnd_serv_exit(ok ? 5 : 1);
        };
        EXPECT_EXIT(child(), ::testing::ExitedWithCode(5), "^qnd error: message 99\n$");
    }
}

TEST_F(client_death, a_missing_component_ends_the_process_with_status_2_after_message_771) {
    const auto body = [](bool through_an_estimator) {
        setenv("QND_CORE_LIBRARY_PATH", CPU_DOUBLES_DIR "libqnd_core_absent.so.2", 1);
        say("before the first call\n");
        if (!through_an_estimator)
            resolve_core_entry("__rtkdSSNewTask");
        sycl::queue queue{sycl::cpu_selector_v};
        double* x = sycl::malloc_shared<double>(6, queue);
        run_mean<double, row_major>(queue, dataset<row_major, double*>(2, 3, x), x, {}).wait();
        say("after the first call\n");
    };
    // Through an estimator, or resolving any name.
    for (bool through_an_estimator : {true, false})
        EXPECT_EXIT(body(through_an_estimator), ::testing::ExitedWithCode(2),
                    std::string("^before the first call\n") + message_771 + "$");
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
        ss_task task{1, 0, 0, &dims, &count, nullptr, &x, nullptr, 0, &storage};
        if (__rtkdSSCompute(&task, 0, 1) == 0)
            say("empty mask: fine\n");
        resolve_core_entry("_rtkdSSNoSuchRoutine");
    };
    EXPECT_EXIT(body(), ::testing::ExitedWithCode(2),
                std::string("^empty mask: fine\n") + message_772 + "_rtkdSSNoSuchRoutine\n$");
}

}  // namespace
