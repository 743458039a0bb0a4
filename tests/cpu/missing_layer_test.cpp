// A library directory without any threading layer: the first call that needs the layer ends the
// process the way the dynamic loader does when a library is missing, with its reason and status
// 127, and nothing before that call needs the layer.
#include <unistd.h>

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "cpu/threading_layer.hpp"

namespace {

using namespace tavrel::qnd::stats::detail::cpu;

TEST(missing_layer, ends_the_process_like_the_loader_with_status_127) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    ASSERT_NE(library_directory(), nullptr);
    EXPECT_EQ(std::string(library_directory()), CPU_ALONE_DIR);
    const auto body = [] {
        const char line[] = "before the first service\n";
        ssize_t written = write(2, line, std::strlen(line));
        (void)written;
        qnd_serv_load_ktn();
    };
    EXPECT_EXIT(body(), ::testing::ExitedWithCode(127),
                "^before the first service\nlibqnd_sycl_stats.so: cannot load the threading layer: "
                ".*libqnd_pool_thread.so.2.*\n$");
    EXPECT_EXIT(threader_table(), ::testing::ExitedWithCode(127),
                "cannot load the threading layer");
}

}  // namespace
