// The search for the threading layer: a layer already in the process serves the library (omp,
// then sequential, then pool), else the pool layer is loaded from the library's directory. Each
// case runs in a process of its own, since the first binding is kept for the process's life.
#include <dlfcn.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cpu/threading_layer.hpp"

namespace {

using namespace tavrel::qnd::stats::detail::cpu;

void* open_layer(const std::string& layer, int mode) {
    return dlopen((CPU_DOUBLES_DIR "lib" + layer + ".so.2").c_str(), RTLD_NOW | mode);
}

class threading_layer_search : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(threading_layer_search, finds_the_directory_of_the_library_file) {
    ASSERT_NE(library_directory(), nullptr);
    EXPECT_EQ(std::string(library_directory()), CPU_DOUBLES_DIR);
}

// The child ends with 0 when the layer bound is `bound`, no other layer was loaded for it, and
// the services and the threader table come from it.
TEST_F(threading_layer_search, binds_the_layer_already_in_the_process_by_precedence) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, "qnd_pool_thread"},
        {{"qnd_pool_thread"}, "qnd_pool_thread"},
        {{"qnd_sequential"}, "qnd_sequential"},
        {{"qnd_omp_thread"}, "qnd_omp_thread"},
        {{"qnd_pool_thread", "qnd_sequential"}, "qnd_sequential"},
        {{"qnd_sequential", "qnd_omp_thread"}, "qnd_omp_thread"},
        {{"qnd_pool_thread", "qnd_sequential", "qnd_omp_thread"}, "qnd_omp_thread"},
    };
    for (const auto& [loaded, bound] : cases) {
        SCOPED_TRACE("bound: " + bound);
        EXPECT_EXIT(
            {
                for (const std::string& layer : loaded)
                    open_layer(layer, RTLD_LOCAL);
                bool ok = threading_layer() == open_layer(bound, RTLD_NOLOAD);
                for (const char* other : {"qnd_pool_thread", "qnd_sequential", "qnd_omp_thread"})
                    ok = ok && (other == bound || open_layer(other, RTLD_NOLOAD) == nullptr ||
                                std::find(loaded.begin(), loaded.end(), other) != loaded.end());
                ok = ok &&
                     reinterpret_cast<void*>(threader_table()->rows[5].get_num_threads_limit) ==
                         dlsym(threading_layer(), "qnd_rtk_serv_threader_get_num_threads_limit");
                ok = ok &&
                     qnd_serv_load_ktn() == dlopen(CPU_DOUBLES_DIR "libqnd_core.so.2", RTLD_NOW);
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
            },
            ::testing::ExitedWithCode(5), "^qnd error: message 99\n$");
    }
}

}  // namespace
