// The caches' reader-writer spin word: its counts, a reader that waits for a writer inside, and
// exclusion under contention.
#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "service/rw_spin_word.hpp"

namespace {

using namespace tavrel::qnd::gpu::detail;

TEST(rw_spin_word, readers_count_two_and_a_writer_one) {
    rw_spin_word word{0};
    read_lock(word);
    EXPECT_EQ(word.load(), 2u);
    read_lock(word);
    EXPECT_EQ(word.load(), 4u);
    read_unlock(word);
    read_unlock(word);
    EXPECT_EQ(word.load(), 0u);
    write_lock(word);
    EXPECT_EQ(word.load(), 1u);
    write_unlock(word);
    EXPECT_EQ(word.load(), 0u);
}

// A reader that comes while a writer holds the word leaves its count there and waits.
TEST(rw_spin_word, reader_waits_with_its_count_while_a_writer_holds) {
    rw_spin_word word{0};
    std::atomic<bool> reader_inside{false};
    write_lock(word);
    std::thread reader([&] {
        read_lock(word);
        reader_inside = true;
        read_unlock(word);
    });
    while (word.load() != 3u)
        std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(reader_inside.load());
    EXPECT_EQ(word.load(), 3u);
    write_unlock(word);
    reader.join();
    EXPECT_TRUE(reader_inside.load());
    EXPECT_EQ(word.load(), 0u);
}

// Two writers and two readers: writers keep two plain counters equal under the write lock,
// readers never see them apart, and no increment is lost.
TEST(rw_spin_word, excludes_under_contention) {
    rw_spin_word word{0};
    long first = 0;
    long second = 0;
    constexpr int rounds = 20000;
    std::atomic<int> torn_reads{0};
    std::vector<std::thread> threads;
    for (int w = 0; w < 2; ++w) {
        threads.emplace_back([&] {
            for (int i = 0; i < rounds; ++i) {
                write_lock(word);
                ++first;
                ++second;
                write_unlock(word);
            }
        });
    }
    for (int r = 0; r < 2; ++r) {
        threads.emplace_back([&] {
            for (int i = 0; i < rounds; ++i) {
                read_lock(word);
                if (first != second)
                    ++torn_reads;
                read_unlock(word);
            }
        });
    }
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(torn_reads.load(), 0);
    EXPECT_EQ(first, 2L * rounds);
    EXPECT_EQ(second, 2L * rounds);
    EXPECT_EQ(word.load(), 0u);
}

}  // namespace
