// The progress meter: percentages rewritten in place on a terminal and erased at the end;
// nothing at all on a file or for a small input.
#include <fcntl.h>
#include <pty.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "progress.hpp"

namespace qnd_stats {
namespace {

// Everything written so far to the terminal whose master side is `fd`.
std::string drain(int fd) {
    std::string s;
    char buf[256];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0)
        s.append(buf, static_cast<std::size_t>(n));
    return s;
}

TEST(qnd_stats_progress, terminal_sees_each_percentage_once_then_a_cleared_line) {
    int master = -1, slave = -1;
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    fcntl(master, F_SETFL, fcntl(master, F_GETFL) | O_NONBLOCK);
    std::FILE* tty = fdopen(slave, "w");
    ASSERT_NE(tty, nullptr);
    {
        progress_meter meter("reading d.csv", 200, tty, 100);
        EXPECT_TRUE(meter.active);
        for (std::uint64_t done : {0, 1, 100, 200})  // 1 is still 0%: not shown again
            meter.update(done);
    }  // the destructor erases the line
    std::fclose(tty);
    // The terminal turns "\n" into "\r\n"; none is written here, so the bytes arrive as sent.
    EXPECT_EQ(drain(master),
              "\rreading d.csv: 0%\rreading d.csv: 50%\rreading d.csv: 100%\r\033[K");
    close(master);
}

TEST(qnd_stats_progress, silent_on_a_file_and_for_small_inputs) {
    std::FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    {
        progress_meter meter("reading d.csv", 1u << 30, file, 100);
        EXPECT_FALSE(meter.active);
        meter.update(1u << 29);
    }
    EXPECT_EQ(std::ftell(file), 0);
    std::fclose(file);

    int master = -1, slave = -1;
    ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    std::FILE* tty = fdopen(slave, "w");
    progress_meter small("reading d.csv", 99, tty, 100);
    EXPECT_FALSE(small.active);
    std::fclose(tty);
    close(master);
}

}  // namespace
}  // namespace qnd_stats
