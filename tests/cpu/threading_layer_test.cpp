// The search for the threading layer: a layer already in the process serves the library (omp,
// then sequential, then pool), else the pool layer is loaded from the library's directory. Each
// case runs in a process of its own, since the first binding is kept for the process's life.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cpu/threading_layer.hpp"

namespace {

using namespace tavrel::qnd::stats::detail::cpu;

const std::string doubles_dir = CPU_DOUBLES_DIR;

void* preload(const char* layer) {
    return dlopen((doubles_dir + "lib" + layer + ".so.2").c_str(), RTLD_NOW | RTLD_LOCAL);
}

bool in_process(const char* layer) {
    return dlopen((doubles_dir + "lib" + layer + ".so.2").c_str(), RTLD_NOW | RTLD_NOLOAD) !=
           nullptr;
}

// The name the bound layer gives itself.
std::string bound_layer() {
    using name_fn = const char*();
    auto* name = reinterpret_cast<name_fn*>(dlsym(threading_layer(), "layer_double_name"));
    return name != nullptr ? name() : "unknown";
}

// Ends the child with 0 when `ok`, else prints `why` and ends it with 1.
[[noreturn]] void finish(bool ok, const std::string& why) {
    if (!ok) {
        const std::string line = why + "\n";
        ssize_t written = write(2, line.data(), line.size());
        (void)written;
    }
    _exit(ok ? 0 : 1);
}

class threading_layer_search : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(threading_layer_search, finds_the_directory_of_the_library_file) {
    ASSERT_NE(library_directory(), nullptr);
    EXPECT_EQ(std::string(library_directory()), doubles_dir);
}

TEST_F(threading_layer_search, binds_the_layer_already_in_the_process_by_precedence) {
    struct search_case {
        std::vector<const char*> loaded;
        const char* bound;
    };
    const std::vector<search_case> cases = {
        {{}, "qnd_pool_thread"},
        {{"qnd_pool_thread"}, "qnd_pool_thread"},
        {{"qnd_sequential"}, "qnd_sequential"},
        {{"qnd_omp_thread"}, "qnd_omp_thread"},
        {{"qnd_pool_thread", "qnd_sequential"}, "qnd_sequential"},
        {{"qnd_sequential", "qnd_omp_thread"}, "qnd_omp_thread"},
        {{"qnd_pool_thread", "qnd_sequential", "qnd_omp_thread"}, "qnd_omp_thread"},
    };
    for (const search_case& c : cases) {
        std::string loaded;
        for (const char* layer : c.loaded)
            loaded += std::string(layer) + " ";
        SCOPED_TRACE("loaded before: " + loaded);
        EXPECT_EXIT(
            {
                for (const char* layer : c.loaded)
                    preload(layer);
                const std::string bound = bound_layer();
                const bool pool_untouched = !c.loaded.empty() ||
                                            std::strcmp(c.bound, "qnd_pool_thread") == 0 ||
                                            !in_process("qnd_pool_thread");
                finish(bound == c.bound && pool_untouched, "bound " + bound);
            },
            ::testing::ExitedWithCode(0), "");
    }
}

TEST_F(threading_layer_search, a_preloaded_layer_keeps_the_pool_layer_out) {
    EXPECT_EXIT(
        {
            preload("qnd_omp_thread");
            threading_layer();
            finish(!in_process("qnd_pool_thread") && !in_process("qnd_sequential"),
                   "another layer was loaded");
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(threading_layer_search, the_services_and_the_threader_table_come_from_the_bound_layer) {
    EXPECT_EXIT(
        {
            void* omp = preload("qnd_omp_thread");
            const ss_threader_table* table = threader_table();
            const bool table_ok = reinterpret_cast<void*>(table->rows[5].get_num_threads_limit) ==
                                  dlsym(omp, "qnd_rtk_serv_threader_get_num_threads_limit");
            if (!table_ok)
                finish(false, "table not from the omp layer");
            qnd_serv_print(1, 3, 1, "through the omp layer");
            _exit(5);
        },
        ::testing::ExitedWithCode(5),
        "^layer double qnd_omp_thread: message 3 kind 1: through the omp layer\n$");
}

TEST_F(threading_layer_search, the_component_comes_from_the_layer_loader) {
    EXPECT_EXIT(
        {
            void* module = qnd_serv_load_ktn();
            void* expected = dlopen((doubles_dir + "libqnd_core.so.2").c_str(), RTLD_NOW);
            finish(module != nullptr && module == expected, "another component");
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
